// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

/// \file
/// Users and groups of this machine, asked for at each call: a rule may just have made one.
/// Thread   any
namespace KSETUP {

/// From now on names are looked for in /etc/passwd and /etc/group alone, whatever nsswitch.conf(5) says:
/// for a root that may be of another system, of which no modules are loaded. While there is one thread.
void UseLocalAccounts();

/// Whether no others are known: in a bundle, too, whose C library has no modules for others (LDAP).
bool KnowsLocalAccountsOnly() noexcept;

/// The user of this name or, of digits alone, of this number; nothing for a name that there is not.
std::optional<uid_t> FindUser(const std::string& nameOrNumber);
/// The group, likewise.
std::optional<gid_t> FindGroup(const std::string& nameOrNumber);
/// The user's name; the number in digits where it has none.
std::string UserName(uid_t user);
/// The group's name, likewise.
std::string GroupName(gid_t group);

/// A name that systemd-sysusers(8) takes: ASCII letters, digits, "_" and "-", a letter or "_" first,
/// 31 at most.
bool IsAccountName(const std::string& name) noexcept;
/// Digits alone, of a number that a user or a group can have.
bool IsAccountNumber(const std::string& text) noexcept;
/// Whether every Debian system has a user, or a group, of this name from its first boot on.
bool IsSystemUser(const std::string& name);
bool IsSystemGroup(const std::string& name); ///< the same of a group

} // namespace KSETUP
