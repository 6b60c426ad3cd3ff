// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace KSWEEP {

/// What of a sweep is to be tried.
struct KSelection {
    unsigned every = 1; ///< only each so many-th point
    unsigned from = 0;  ///< ... beginning with this one
    unsigned slice = 0; ///< of the points that are left, those of one machine
    unsigned slices = 1;
    /// One point, as a complaint names it, or all of which the name begins so, up to ":" or "/"; empty
    /// for all.
    std::string only;
    /// Only calls that are told of with this text, or that follow such a one and name no file.
    std::string at;

    /// Whether a point, by its number and its name ("upgrade:17"), is to be tried.
    bool Has(unsigned number, const std::string& name) const;
    /// Whether one at a call may be.
    ///
    /// `named`   how the last call up to it that names a file is told of
    bool HasCall(const std::string& call, const std::string& named) const;
    /// Whether any point of a way may be.
    bool HasWay(const std::string& way) const;
    /// Whether any point whose name begins so, "upgrade:together/", may be.
    bool HasBelow(const std::string& begin) const;
};

/// Counts points, and prints what was not held.
class KReport {
  public:
    KReport(std::string itsSweep, bool asJson) : sweep(std::move(itsSweep)), isJson(asJson) {}

    void Begin(const std::string& way);
    /// Notes a point; what was wrong with it is empty when it was held.
    void Add(const std::string& name, const std::string& at, const std::string& wrong);
    /// Prints what else is to be known of the way.
    void Tell(const std::string& text) const;
    /// Prints that something cannot be tried here.
    void Skip(const std::string& what, const std::string& why) const;
    /// Prints the line of the way.
    void End();
    /// Prints "N passed, N failed".
    void Finish() const;
    bool IsGood() const noexcept { return failed == 0 && tried > 0; }

  private:
    std::string sweep;
    bool isJson;
    std::string way;
    unsigned triedHere = 0;
    unsigned failedHere = 0;
    unsigned tried = 0;
    unsigned failed = 0;
};

} // namespace KSWEEP
