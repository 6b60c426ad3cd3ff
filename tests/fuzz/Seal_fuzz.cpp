// SPDX-License-Identifier: MIT
// A kit's seal: one that is accepted has a line for each file, with its digest, and no other line.
#include "Fuzz.h"

#include <setup/KSetupFailure.h>
#include <setup/files/KFileDigest.h>
#include <setup/kit/KitSeal.h>

#include <set>

namespace {

using KTEST::Require;

constexpr const char* names[] = {"install.ini", "lin/a b", "odd\\name"};

/// The lines that sha256sum could have written for the kit's files, in text or in binary mode.
std::set<std::string> LinesFor(const std::string& kit, const std::string& name) {
    const std::string digest = KSETUP::DigestFile(kit + "/" + name).sha256;
    const bool isOdd = name.find('\\') != std::string::npos;
    const std::string written = isOdd ? "odd\\\\name" : name;
    std::set<std::string> lines;
    for (const char* mode : {"  ", " *"}) {
        // A name without such letters may be marked, too: nothing in it is escaped then.
        lines.insert("\\" + digest + mode + written);
        lines.insert(digest + mode + name);
    }
    return lines;
}

void RequireComplete(const std::string& seal, const std::string& kit) {
    std::vector<std::string> lines = KTEST::PiecesOf(seal, '\n');
    if (lines.back().empty()) {
        lines.pop_back();
    }
    std::erase_if(lines, [](const std::string& line) { return line.starts_with('#'); });
    Require(lines.size() == std::size(names), "an accepted seal has as many lines as files");
    for (const char* name : names) {
        const std::set<std::string> good = LinesFor(kit, name);
        const auto isGood = [&](const std::string& line) { return good.contains(line); };
        Require(
            std::count_if(lines.begin(), lines.end(), isGood) == 1,
            "an accepted seal vouches for each file"
        );
    }
}

} // namespace

/// SHA256SUMS.
FUZZ_TARGET(Seal) {
    static const KTEST::KScratchDirectory kit;
    static const bool isMade = [] {
        kit.Write(names[0], "[install]\n");
        kit.Write(names[1], "a\n");
        kit.Write(names[2], "odd\n");
        return true;
    }();
    static_cast<void>(isMade);
    kit.Write("SHA256SUMS", input);
    try {
        const KSETUP::KDigests read = KSETUP::VerifySeal(kit.GetPath());
        Require(read.size() == std::size(names) + 1, "an accepted seal and its files were read");
        RequireComplete(std::string(input), kit.GetPath());
    } catch (const KSETUP::KSetupFailure&) { // NOLINT(bugprone-empty-catch): refused, as it may be
    }
}
