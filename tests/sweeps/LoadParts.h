// SPDX-License-Identifier: MIT
#pragma once

#include "KMachineState.h"
#include "KProcess.h"
#include "KReport.h"

#include <functional>
#include <string>
#include <vector>

namespace KSWEEP {

/// A small product without services, as often as needed, and its states on a machine that has not more
/// to do than it can.
class KLoadProduct {
  public:
    /// Makes two kits, installs, upgrades and removes.
    ///
    /// Throws   std::runtime_error when one of the runs does not go as it should
    KLoadProduct(std::string program, const std::string& service);

    const KMachineState& GetMachine() const noexcept { return machine; }
    const std::string& GetProgram() const noexcept { return program; }
    /// What the machine has in a state: nothing, installed, upgraded, removed.
    const KLook& LookOf(const std::string& state) const { return looks.at(state); }
    /// The words of a command: install, upgrade, backup, remove, status.
    std::vector<std::string> Words(const std::string& command) const;
    std::string Kit() const { return store + "/1.0"; }
    std::string Path() const { return "/opt/" + service; }

    /// Runs a command that has nothing in its way, and compares; empty when all is well.
    std::string Converges(const std::string& command, const std::string& state) const;
    std::string DiffersFrom(const std::string& state) const;

  private:
    void MakeKit(const std::string& version) const;

    std::string program;
    std::string service;
    std::string store;
    KMachineState machine;
    std::map<std::string, KLook> looks;
};

/// What is wrong with an end that is none of these; empty when nothing is.
std::string WrongEnd(const KProcessEnd& end, const std::vector<int>& exitCodes);

/// What each part of the load sweep gets.
struct KLoad {
    const KLoadProduct& product;
    KReport& report;
    unsigned every; ///< only each so many-th round

    unsigned Rounds(unsigned whole) const { return (whole + every - 1) / every; }
};

void LoadSameProduct(const KLoad& load);
void LoadDifferentProducts(const KLoad& load);
void LoadWaiting(const KLoad& load);
void LoadKilledHolders(const KLoad& load);

void LoadFullDisks(const KLoad& load);
void LoadLimits(const KLoad& load);
void LoadMissingSystem(const KLoad& load);
void LoadClock(const KLoad& load);
void LoadStops(const KLoad& load);

void LoadManyFiles(const KLoad& load);
void LoadLongLog(const KLoad& load);
void LoadOddNames(const KLoad& load);

} // namespace KSWEEP
