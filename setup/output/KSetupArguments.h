// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/TerminalColour.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace KSETUP {

enum class Command {
    Install,
    Remove,
    Status,
    Restore,
    List,
    Check,
    PlanInstall,
    PlanRemove,
    Macros,
    KitNew,
    KitAdd,
    KitSeal,
    KitBundle,
    KitKeyNew,
    Verify,
};

/// An option of a profile.
struct KAddedOption {
    std::string section;
    std::string key;
    std::string value;
};

/// What the command line asks for. Options that a command does not have keep their defaults.
struct KSetupArguments {
    Command command = Command::Status;
    std::string kit;         ///< the kit's directory; empty means the program's own
    std::string product;     ///< a product by its name, whose kept kit is taken; empty for none
    std::string productPath; ///< where to install; empty leaves it to the record or the script
    /// install: the first word behind it, of which it is not known yet what it is.
    std::string bundleOrPath;
    std::string bundle;       ///< install: a bundle in place of a kit; empty for none
    std::string unpackParent; ///< where a bundle is unpacked; empty for the usual place
    std::string root; ///< the directory tree that is worked on as a machine; empty for this one

    std::vector<std::string> words;         ///< the command line itself, the program's name first
    std::string values;                     ///< the file of values; "-" for standard input
    std::vector<KAddedOption> valueOptions; ///< what was read from it
    std::map<std::string, std::string> givenValues; ///< of the kit's, by their names
    KColourChoice colour = KColourChoice::Automatic;
    bool quiet = false;         ///< no progress; only failures are said
    bool json = false;          ///< one JSON object at the end instead of texts
    bool jsonEvents = false;    ///< one JSON object a line while it goes on
    int progressDescriptor = 1; ///< where these lines go

    bool offlineServices = false; ///< leave starts and stops for the next boot where systemd is off
    bool noCheck = false;         ///< install although the script has errors
    bool allowDowngrade = false;  ///< install over a newer version
    bool allowUnsigned = false;   ///< go on although it is not known whose kit it is
    bool reinstall = false;       ///< install also what is there already
    bool detailedExitCode = false; ///< another exit code where something was changed
    bool backup = false;           ///< keep what is overwritten or deleted
    bool allowConflicts = false;   ///< change what is not the product's
    bool startServices = false;    ///< also those that the administrator stopped
    bool purge = false;            ///< remove all that the script says, edited configuration too
    bool rollback = false;         ///< put back by itself when it fails or is stopped
    bool force = false;            ///< restore although files were edited since
    bool yes = false;              ///< without being asked
    unsigned waitSeconds = 0;      ///< for another run to end
    bool verify = false;           ///< compare what is installed with what was
    bool strict = false;           ///< warnings of the check are errors

    bool service = false; ///< kit new: the kit of a service
    std::string tree;     ///< kit add: what is to be installed
    /// kit new: the directory; kit bundle: the file; kit key new: the pair's; verify: what to look at
    std::string target;
    std::string signKey;             ///< kit seal, kit bundle: the secret key; empty for none
    std::vector<std::string> joined; ///< kit bundle: bundles of other architectures
    bool noPassword = false;         ///< kit key new: whoever has the file can sign
};

/// How a command line asks to be answered.
struct KAnswerForm {
    std::string command; ///< such as "plan install"; empty when there is none
    bool json = false;
    bool events = false;
    int descriptor = 1; ///< for events; -1 for what is no number of one
};

/// The same command line, as far as it is understood: also of one that is refused.
KAnswerForm ReadAnswerForm(int argc, const char* const* argv);

/// Reads the command line. Help, the version and what is wrong are printed here.
///
/// Returns  the arguments, or nothing when the program is to end with `exitCode` (0 or 64)
std::optional<KSetupArguments> ReadArguments(int argc, char** argv, int& exitCode);

} // namespace KSETUP
