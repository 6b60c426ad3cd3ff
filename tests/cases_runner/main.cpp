// SPDX-License-Identifier: MIT
//
// Runs the cases of tests/cases: see README.md there. It belongs into the throwaway machine.
#include "SetupCase.h"
#include "SetupWorld.h"
#include "Verdict.h"
#include "Workers.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include <fnmatch.h>

namespace {

namespace fs = std::filesystem;
using KTEST::CaseError;
using KTEST::CaseFile;
using KTEST::Verdict;
using Names = std::vector<std::string>;

constexpr unsigned slowSeconds = 3;
constexpr const char* setupPrefix = "setup/";
constexpr const char* enginePrefix = "engine/"; // as patterns have it; there is no such folder
constexpr const char* kitName = "setup/kit";
constexpr const char* usage =
    "usage: cases_runner [--cases DIR] [--jobs N] [--list] [--accept] [NAME|PATTERN...]\n";

struct Options {
    fs::path cases = "tests/cases";
    unsigned jobs = std::max(2U, std::thread::hardware_concurrency());
    bool isList = false;
    bool isAccept = false;
    Names patterns;
};

/// False for a call that is not understood.
bool Read(Options& options, int argc, char** argv) {
    for (int at = 1; at < argc; ++at) {
        const std::string argument = argv[at];
        if (argument == "--list") {
            options.isList = true;
        } else if (argument == "--accept") {
            options.isAccept = true;
        } else if (argument == "--cases" && at + 1 < argc) {
            options.cases = argv[++at];
        } else if (argument == "--jobs" && at + 1 < argc) {
            options.jobs = static_cast<unsigned>(std::max(1, std::atoi(argv[++at])));
        } else if (argument.starts_with("-")) {
            return false;
        } else {
            options.patterns.push_back(argument);
        }
    }
    return true;
}

/// Every folder with a case, by its path below tests/cases.
///
/// Throws   CaseError for a folder without one
Names AllNames(const fs::path& cases) {
    Names names;
    for (const char* prefix : {"", setupPrefix}) {
        for (const auto& entry : fs::directory_iterator(cases / prefix)) {
            const std::string name = prefix + entry.path().filename().string();
            if (!entry.is_directory() || name + '/' == setupPrefix || name == kitName) {
                continue;
            }
            if (!fs::exists(entry.path() / "case")) {
                throw CaseError(entry.path().string() + ": has no file \"case\"");
            }
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// Whether a pattern means a case: by "setup/NAME", "engine/NAME" or NAME.
bool Means(const std::string& pattern, const std::string& name) {
    const bool isSetup = name.starts_with(setupPrefix);
    const std::string bare = isSetup ? name.substr(std::strlen(setupPrefix)) : name;
    const std::string whole = isSetup ? name : enginePrefix + name;
    return ::fnmatch(pattern.c_str(), whole.c_str(), FNM_PATHNAME) == 0 ||
           ::fnmatch(pattern.c_str(), bare.c_str(), FNM_PATHNAME) == 0;
}

/// Throws   CaseError for a pattern that means none
Names Matching(const Names& all, const Names& patterns) {
    Names found = patterns.empty() ? all : Names{};
    for (const std::string& pattern : patterns) {
        const std::size_t before = found.size();
        std::copy_if(all.begin(), all.end(), std::back_inserter(found), [&](const auto& name) {
            return Means(pattern, name);
        });
        if (found.size() == before) {
            throw CaseError("no case is called " + pattern);
        }
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

/// One part of them, as programs of GoogleTest take theirs.
Names Share(const Names& names) {
    const char* const total = std::getenv("GTEST_TOTAL_SHARDS"); // NOLINT: one thread
    const char* const index = std::getenv("GTEST_SHARD_INDEX");  // NOLINT: one thread
    if (total == nullptr || index == nullptr) {
        return names;
    }
    Names share;
    for (std::size_t at = 0; at < names.size(); ++at) {
        if (at % std::stoul(total) == std::stoul(index)) {
            share.push_back(names[at]);
        }
    }
    return share;
}

std::vector<KTEST::Work> WorkOf(const Names& names, const fs::path& cases) {
    const auto kit = KTEST::StandardKit::Load(cases / kitName);
    std::vector<KTEST::Work> works;
    for (const std::string& name : names) {
        const bool isSetup = name.starts_with(setupPrefix);
        const std::string path = cases / name / "case";
        works.push_back({name, isSetup, [isSetup, path, kit] {
                             const CaseFile file = CaseFile::Load(path);
                             return isSetup ? KTEST::TrySetupCase(file, kit)
                                            : KTEST::TryEngineCase(file);
                         }});
    }
    return works;
}

/// Tells what came of a case. Returns whether it counts as passed.
bool Tell(const std::string& name, const Verdict& verdict, const Options& options) {
    std::cout << (verdict.passed ? "ok     " : "FAILED ") << name;
    if (verdict.seconds >= slowSeconds) {
        std::cout << "  (" << verdict.seconds << " s)";
    }
    std::cout << '\n' << verdict.text;
    if (verdict.passed || verdict.accepted.empty()) {
        return verdict.passed;
    }
    if (!options.isAccept) {
        std::cout << "  if this is what it should do: cases_runner --accept " << name << '\n';
        return false;
    }
    std::ofstream file(options.cases / name / "case", std::ios::trunc);
    file << verdict.accepted;
    file.close();
    std::cout << (file ? "  accepted: read the change before you keep it\n" : "  not written\n");
    return static_cast<bool>(file);
}

int Run(const Options& options) {
    const Names names = Share(Matching(AllNames(options.cases), options.patterns));
    if (options.isList) {
        for (const std::string& name : names) {
            std::cout << name << '\n';
        }
        return 0;
    }
    const std::string programs = fs::canonical("/proc/self/exe").parent_path();
    const fs::path here = fs::absolute(options.cases);
    KTEST::PrepareWorlds(programs);
    unsigned passed = 0;
    unsigned failed = 0;
    KTEST::DoAll(
        WorkOf(names, here),
        options.jobs,
        [&](const std::string& name, const Verdict& verdict) {
            (Tell(name, verdict, options) ? passed : failed) += 1;
            std::cout.flush();
        }
    );
    std::cout << passed << " passed, " << failed << " failed\n";
    return failed == 0 && passed > 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) try {
    Options options;
    if (!Read(options, argc, argv)) {
        std::cerr << usage;
        return 2;
    }
    const char* const machine = std::getenv("INSPP_THROWAWAY"); // NOLINT: one thread
    if (!options.isList && (machine == nullptr || std::strcmp(machine, "1") != 0)) {
        std::cerr << "the cases mount directories; run them in the throwaway machine "
                     "(tests/machine/throwaway --setenv INSPP_THROWAWAY=1 -- …)\n";
        return 2;
    }
    return Run(options);
} catch (const std::exception& error) {
    std::cerr << "cases_runner: " << error.what() << '\n';
    return 2;
}
