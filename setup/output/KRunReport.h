// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace KSETUP {

class KJsonObject;

/// What a restoration, or a run that was rolled back, put back.
struct KPutBackReport {
    unsigned putBack = 0;    ///< files, links and directories
    unsigned deleted = 0;    ///< that had not been there
    bool isComplete = false; ///< nothing is known that is not as it was before
    /// What was edited since the run, and where it lies now.
    std::vector<std::pair<std::string, std::string>> edited;
    std::vector<std::string> restarted; ///< services, with the program of before
    std::vector<std::string> stopped;   ///< services that did not run before
};

enum class KRunResult { Done, Failed, Cancelled, Refused, NotInstalled, Differs };

/// A product that the machine remembers.
struct KListedProduct {
    std::string name;    ///< of its service, by which commands take it
    std::string product; ///< as people read it
    std::string version; ///< empty where it is not known, as the path
    std::optional<unsigned> buildNumber;
    std::string path;
    std::int64_t lastRun = 0; ///< in seconds since 1970
    bool isRunning = false;
    bool isInterrupted = false;
    bool isInstalled = false;
    bool hasConfigurationLeft = false; ///< of one that was removed
    std::optional<bool> differs;       ///< from what was installed; nothing where it is not known
    KText trouble;                     ///< why more is not known; empty without
};

/// Who signed the kit of a run.
struct KSignerReport {
    /// "known key", "first use", "installed kit", "not verified"
    std::string state;
    std::string key;       ///< its id; empty where the kit has no signature
    std::string knownFrom; ///< the file that the key is known from
    KText why;             ///< it is not verified
};

/// A key that a product's kits have to be signed with.
struct KKeyReport {
    std::string key;       ///< its id
    std::string knownFrom; ///< the file of it
};

/// What became of a run or a question, for people and programs. Texts are as they came: whoever
/// shows them makes them harmless.
struct KRunReport {
    std::string command; ///< "install", "remove", "status", "restore", "list", "verify"
    KRunResult result = KRunResult::Done;
    int exitCode = 0;
    bool wasPurged = false; ///< what an earlier removal left was deleted
    bool changed = false;   ///< whether an install, removal or restore changed anything

    std::string product;
    std::string version;
    unsigned buildNumber = 0;
    std::string formerVersion; ///< that was installed before; empty for none
    std::string productPath;
    std::string root;   ///< the directory tree in which all paths are; empty for this machine
    KText recordDamage; ///< what is wrong with the record of what is installed: a sentence

    unsigned rulesDone = 0;
    unsigned rulesAll = 0;
    unsigned ruleAtWork = 0;   ///< from 1, when the run ended before its end; 0 for none
    unsigned filesCopied = 0;  ///< with those that replaced another
    unsigned filesDeleted = 0; ///< of the product, by a removal
    std::uint64_t bytesCopied = 0;
    double seconds = 0;    ///< from its first rule on
    bool wasNewer = false; ///< what was installed before

    unsigned errorCode = 0;              ///< of the engine's error; 0 for none
    KText error;                         ///< in words; of a refusal too
    std::string place;                   ///< of the failed rule, as "/kit/install.ini:12"
    std::string rule;                    ///< the failed rule's line
    std::string log;                     ///< the setup log's path; empty when there is none yet
    std::vector<std::string> logEnd;     ///< its last lines, without their time
    std::vector<std::string> commandEnd; ///< last lines of what the failed command wrote
    std::string service;                 ///< that failed; empty for none
    std::vector<std::string> journal;    ///< its last lines there, of this run
    std::string commandOutput;           ///< where commands wrote to; empty when they wrote nothing
    std::vector<std::string> missingValues; ///< the names of those that an install needs
    std::vector<KText> notes;               ///< further sentences for the reader
    std::vector<std::string> running;       ///< programs that ran when their files were to go
    std::vector<std::string> leftBehind;    ///< paths that a removal left
    struct Kept {
        std::string path;
        std::string offered; ///< where the kit's newer one lies; empty without one
    };
    std::vector<Kept> keptConfiguration; ///< edited files, which stay
    std::vector<std::string>
        keptForeign;                   ///< what an install was to delete and is not the product's
    std::vector<std::string> obsolete; ///< deleted, as this version does not have them any more
    std::vector<KText> outdated;       ///< sentences on programs that use what was replaced
    /// Services that stay as the administrator had them: name and "stopped", "disabled", "masked".
    std::vector<std::pair<std::string, std::string>> keptServices;
    /// Links that a file took the place of, and what they lead to.
    std::vector<std::pair<std::string, std::string>> replacedLinks;
    /// Path and what is different, of `status --verify`.
    std::vector<std::pair<std::string, KText>> differences;
    std::optional<KPutBackReport> restored; ///< of "restore", and of a run that was rolled back
    std::optional<bool> rolledBack;         ///< of a run that was to be, whether all was put back
    std::vector<KListedProduct> products;   ///< of `list`
    std::optional<KSignerReport> signer;    ///< where there is a signature, or should be one
    std::vector<KKeyReport> keys;           ///< of `status`: those of which one has to sign
};

/// The word for a result, as "failed".
const char* ResultWord(KRunResult result) noexcept;

/// One JSON object in one line, with "schema": 1. Bytes that are no UTF-8 become U+FFFD.
std::string ToJson(const KRunReport& report);
/// The same, for further members beside it.
KJsonObject ToJsonObject(const KRunReport& report);

} // namespace KSETUP
