// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

namespace KSETUP {

enum class Action { Install, Remove, Status };

/// What the command line asks for.
struct KSetupArguments {
    Action action = Action::Status;
    std::string kit;              ///< the kit's directory; empty means the program's own
    std::string productPath;      ///< where to install; empty leaves it to the record or the script
    bool offlineServices = false; ///< leave starts and stops for the next boot where systemd is off
};

/// Reads the command line. Help, the version and what is wrong are printed here.
///
/// Returns  the arguments, or nothing when the program is to end with `exitCode` (0 or 64)
std::optional<KSetupArguments> ReadArguments(int argc, char** argv, int& exitCode);

} // namespace KSETUP
