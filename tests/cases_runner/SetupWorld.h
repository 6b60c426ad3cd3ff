// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>

namespace KTEST {

/// Where the programs under test lie in every world: the same text in every output.
constexpr const char* programDirectory = "/run/inspp-cases/bin";
/// Where a case begins, and its kit.
constexpr const char* workDirectory = "/srv";
constexpr const char* kitDirectory = "/srv/kit";

/// Lays the programs' directory, and the libraries beside it, where every world has them.
///
/// Throws   std::system_error
void PrepareWorlds(const std::string& programs);

/// Takes the calling process into a fresh machine: an own root with an empty /opt, /srv, /var and
/// so on and the machine's /usr, /dev and /run; own processes; own mounts. All of it is gone when the
/// process is.
///
/// Throws   std::system_error
/// Thread   the first of a process that was started by ForkIntoWorld
void EnterWorld();

/// Forks a process that is the first of its own processes, as EnterWorld needs it: those it leaves
/// behind end with it. Returns as fork(2) does.
///
/// Throws   std::system_error
int ForkIntoWorld();

/// Everything that a case can change, a line an entry by its path: as TreeLine has it, with
/// absolute paths. Left out are /dev, /etc/alternatives, /proc, /run, /sys, /usr and the journal. Of
/// files over 1 MiB only the size is told.
std::map<std::string, std::string> ListWorld();

} // namespace KTEST
