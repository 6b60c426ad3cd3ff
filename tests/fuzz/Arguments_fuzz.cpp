// SPDX-License-Identifier: MIT
// The arguments of ins-setup: read or refused, and what is asked for in a form is answered in it.
#include "Fuzz.h"

#include <setup/output/KSetupArguments.h>

#include <optional>

/// Arguments, without the program's name.
FUZZ_TARGET(Arguments) {
    std::vector<std::string> arguments = KTEST::PiecesOf(input);
    if (arguments.size() > 20) {
        return;
    }
    arguments.insert(arguments.begin(), "ins-setup");
    std::vector<char*> argv;
    for (std::string& one : arguments) {
        one = KTEST::UpToNul(one);
        argv.push_back(one.data());
    }
    argv.push_back(nullptr);
    const int argc = static_cast<int>(arguments.size());
    const KTEST::KMutedOutput muted;
    const KSETUP::KAnswerForm form = KSETUP::ReadAnswerForm(argc, argv.data());
    int exitCode = -1;
    const std::optional<KSETUP::KSetupArguments> read =
        KSETUP::ReadArguments(argc, argv.data(), exitCode);
    KTEST::Require(read || exitCode == 0 || exitCode == 64, "what is refused is told as usage");
    KTEST::Require(!read || read->json == form.json, "both readers see the same form");
    KTEST::Require(!read || read->jsonEvents == form.events, "both readers see the same form");
}
