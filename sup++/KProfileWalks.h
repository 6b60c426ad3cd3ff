// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/KProfileText.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace KSUP {

/// Where walks through the sections of a profile stand. A position means the same line whatever
/// becomes of the file: it is the number of a line of the text until the file is read again, and
/// from then on a step of a chain for each section. A chain goes on in the order in which it was
/// begun, and meets what others added at its end; a section in which others changed the order gets
/// a new chain, for walks to come.
///
/// Thread   nothing here locks
class KProfileWalks {
  public:
    /// The position before the first key of a section, also of one that is not there (yet).
    unsigned Begin(std::string_view section);
    /// The position of the next key of the walk's section, or 0 at its end.
    unsigned Next(const KProfileText& text, unsigned position) const;
    /// The line of the text that stands there; 0 when it is gone.
    std::uint32_t LineAt(unsigned position) const noexcept;
    /// Whether the walk goes through this section.
    bool IsIn(const KProfileText& text, unsigned position, std::string_view section) const;

    /// The file was read again: `now` takes the place of `former`.
    void Follow(const KProfileText& former, const KProfileText& now);
    /// A key was added at the end of a section, or with it; line 0 is none.
    void Add(std::string_view section, std::uint32_t line);

  private:
    struct Step {
        std::uint32_t line; // 0 once it is gone
        std::uint32_t next; // 0 is the end
        std::uint32_t section;
    };
    struct Chain {
        std::uint32_t head = 0;
        std::uint32_t tail = 0;
    };
    struct Section {
        std::string name;
        std::vector<Chain> chains; // the last one is for new walks
    };
    /// For each line of a text the one of another, 0 where there is none.
    using LineMap = std::vector<std::uint32_t>;

    std::uint32_t IdOf(std::string_view section);
    void MakeSteps(const KProfileText& former);
    void Append(Chain& chain, std::uint32_t line, std::uint32_t section);
    void FollowSection(
        std::uint32_t section,
        const std::vector<std::uint32_t>& lines,
        const LineMap& formerOf,
        const LineMap& rank
    );

    bool isMade = false; // steps are; before that positions are lines
    std::vector<Step> steps;
    std::vector<Section> sections;
    std::map<std::string, std::uint32_t, std::less<>> ids;
};

} // namespace KSUP
