// SPDX-License-Identifier: MIT
// Somebody walks through a section while others change the file: nothing comes twice, there is an
// end, and a walk that begins then meets what the file holds, in its order.
#include "Fuzz.h"

#include <sup++/KProfileWalks.h>

#include <algorithm>
#include <set>

namespace {

using KSUP::KProfileText;
using KSUP::KProfileWalks;
using KTEST::Require;

void RequireFileOrder(KProfileWalks& walks, const KProfileText& text, const std::string& section) {
    unsigned line = text.Next(section, 0);
    unsigned position = walks.Begin(section);
    while ((position = walks.Next(text, position)) != 0) {
        Require(walks.LineAt(position) == line, "a new walk goes by the order of the file");
        Require(walks.IsIn(text, position, section), "a walk stays in its section");
        line = text.Next(section, line);
    }
    Require(line == 0, "a new walk meets all there is");
}

} // namespace

/// The section that is walked through, and the states of the file; between two of them the walk goes
/// one step.
FUZZ_TARGET(ProfileWalks) {
    const std::vector<std::string> pieces = KTEST::PiecesOf(input);
    if (pieces.size() < 2 || pieces.size() > 8) {
        return;
    }
    const std::string section = pieces[0];
    KProfileWalks walks;
    KProfileText text;
    text.Parse(pieces[1]);
    std::set<unsigned> met;
    unsigned position = walks.Begin(section);
    const auto step = [&] {
        if (position != 0 && (position = walks.Next(text, position)) != 0) {
            Require(met.insert(position).second, "nothing comes twice");
            Require(text.IsKey(walks.LineAt(position)), "a walk meets lines with keys");
        }
    };
    for (std::size_t index = 2; index < pieces.size(); ++index) {
        step();
        KProfileText now;
        now.Parse(pieces[index]);
        walks.Follow(text, now);
        text = std::move(now);
        for (const std::string_view name : text.GetSections()) {
            RequireFileOrder(walks, text, std::string(name));
        }
    }
    while (position != 0) {
        step();
    }
    RequireFileOrder(walks, text, section);
}
