// SPDX-License-Identifier: MIT
#pragma once

#include "CaseFile.h"
#include "Difference.h"

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace KTEST {

/// A command whose screens are compared: on terminals of 40, 80 and 200 columns, in English and in German, each
/// with colours and without. What the colours are is compared once: without them all else has to be the same.
/// What the command changes is not looked at.
class ScreensStep {
  public:
    ScreensStep(const CaseFile& caseFile, const CaseSection& section)
        : file(caseFile),
          heading(section) {}

    /// Takes `exit` and `out WIDTHS [de]`; false for any other section.
    bool Take(const CaseSection& section);
    /// `before` is called in front of each run, which types `keys`.
    void Run(const std::string& text, const std::string& keys, const std::function<void()>& before);
    /// What differs; "" for nothing.
    std::string Description() const;
    /// The sections with what came, those of a language that are the same in one.
    std::vector<CaseSection> Accepted() const;

  private:
    using Place = std::pair<std::string, unsigned>; // language and columns
    void RunAt(const Place& place, const std::string& text, const std::string& keys);
    std::vector<CaseSection> Grouped(const std::string& language) const;

    const CaseFile& file;
    const CaseSection& heading;
    std::string exitCode = "0";
    std::string exited; // how all ended, or what is different of them
    std::map<Place, Lines> expected;
    std::map<Place, Lines> shown;
    std::string uncoloured; // what is different without colours
};

} // namespace KTEST
