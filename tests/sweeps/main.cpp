// SPDX-License-Identifier: MIT
//
// sweeps_runner SWEEP [OPTION...]: one of the sweeps over the runs of a product. It belongs into the
// throwaway machine. tools/faults says what it can do.
#include "Sweeps.h"

#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>

namespace {

using KSWEEP::KSelection;

struct KOptions {
    std::string sweep;
    KSelection selection;
    bool isJson = false;
};

KOptions Understood(int argc, char** argv) {
    KOptions options;
    for (int at = 1; at < argc; ++at) {
        const std::string word = argv[at];
        const auto value = [&]() -> std::string {
            if (at + 1 == argc) {
                throw std::invalid_argument(word + " needs a value");
            }
            return argv[++at];
        };
        const auto number = [&] { return static_cast<unsigned>(std::stoul(value())); };
        if (word == "--every") {
            options.selection.every = number();
        } else if (word == "--from") {
            options.selection.from = number();
        } else if (word == "--slice") { // "0/2": the first one of two
            const std::string text = value();
            options.selection.slice = static_cast<unsigned>(std::stoul(text));
            options.selection.slices =
                static_cast<unsigned>(std::stoul(text.substr(text.find('/') + 1)));
        } else if (word == "--only") {
            options.selection.only = value();
        } else if (word == "--at") {
            options.selection.at = value();
        } else if (word == "--json") {
            options.isJson = true;
        } else if (word.starts_with("-") || !options.sweep.empty()) {
            throw std::invalid_argument("unknown argument " + word);
        } else {
            options.sweep = word;
        }
    }
    return options;
}

} // namespace

int main(int argc, char** argv) {
    constexpr int usage = 64;
    const char* const machine = std::getenv("INSPP_THROWAWAY");
    if (machine == nullptr || std::strcmp(machine, "1") != 0) {
        std::cerr << "sweeps_runner: it installs products as root; run it by ./dev faults, which "
                     "does so in a throwaway machine\n";
        return usage;
    }
    try {
        const KOptions options = Understood(argc, argv);
        const std::map<std::string, decltype(&KSWEEP::SweepKills)> sweeps = {
            {"kill", &KSWEEP::SweepKills},
            {"error", &KSWEEP::SweepErrors},
            {"memory", &KSWEEP::SweepAllocations},
            {"cut", &KSWEEP::SweepCuts},
            {"load", &KSWEEP::SweepLoads},
            {"race", &KSWEEP::SweepRaces}};
        const auto found = sweeps.find(options.sweep);
        if (found == sweeps.end()) {
            std::cerr << "sweeps_runner: no sweep is called \"" << options.sweep << "\"\n";
            return usage;
        }
        if (options.sweep == "cut") {
            KSWEEP::HideManager();
        }
        const auto bin = std::filesystem::read_symlink("/proc/self/exe").parent_path();
        const KSWEEP::KSubject subject(bin / "ins-setup");
        KSWEEP::KReport report(options.sweep, options.isJson);
        found->second(subject, options.selection, report);
        report.Finish();
        return report.IsGood() ? 0 : 1;
    } catch (const std::exception& failure) {
        std::cerr << "sweeps_runner: " << failure.what() << '\n';
        return usage;
    }
}
