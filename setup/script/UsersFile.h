// SPDX-License-Identifier: MIT
#pragma once

#include <setup/script/KSetupRuleLine.h>

#include <string>
#include <string_view>

namespace KSETUP {

/// \file
/// The file by which systemd-sysusers(8) makes a product's users, on every boot where they are
/// missing. It is the product's; the users stay when it goes.

/// Where it is: the macro of the service's name is in it.
inline constexpr const char* usersFileMacro = "/usr/lib/sysusers.d/$serviceName$.conf";
/// Its first line, by which a file is known as one that rules wrote.
inline constexpr const char* usersFileMark = "# Written by ins-setup, of the rules user=create.\n";
/// Whether a file with this text is one of them, also one that a killed run had begun to write.
bool IsUsersFile(std::string_view text) noexcept;
/// The program that reads it; on the path of a run, for not every system has it in /usr/bin.
inline constexpr const char* usersProgram = "systemd-sysusers";

/// The line of that file for a rule of user=create, with its end.
std::string UsersFileLine(const KSetupRuleLine& line);

} // namespace KSETUP
