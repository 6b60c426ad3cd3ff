// SPDX-License-Identifier: MIT
//
// Of the load sweep: more than usual.
#include "Files.h"
#include "LoadParts.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace KSWEEP {

namespace {

namespace fs = std::filesystem;

constexpr unsigned longestSeconds = 600;
constexpr int differs = 4;

std::string Seconds(const KProcessEnd& end) {
    std::string text(32, '\0');
    text.resize(static_cast<std::size_t>(
        std::snprintf(text.data(), text.size(), "%.1f s, %ld MiB", end.seconds, end.memory / 1024)
    ));
    return text;
}

/// Makes a kit of a tree, installs, looks at it, and removes it.
class KTreeRuns {
  public:
    KTreeRuns(const KLoad& itsLoad, const char* itsName) : load(itsLoad), name(itsName) {}

    /// `kit add` may refuse what no rule can have; then that is told, and all is well.
    void Run(const std::string& tree, bool mayBeRefused) {
        const std::string& program = load.product.GetProgram();
        const std::string kit = "/srv/loads/kits/" + std::string(name) + "/oddkit";
        fs::remove_all(fs::path(kit).parent_path());
        fs::create_directories(fs::path(kit).parent_path());
        Step({program, "kit", "new", kit}, 0);
        const KProcessEnd added =
            KProcess({program, "kit", "add", "--kit", kit, tree}, {}, longestSeconds).Wait();
        constexpr int malformed = 65;
        if (mayBeRefused && added.exitCode == malformed && !added.err.empty()) {
            load.report.Add(name, tree + " is refused", "");
            return;
        }
        load.report.Add(name, "kit add", WrongEnd(added, {0}));
        Step({program, "install", "--quiet", "--kit", kit}, 0);
        Step({"/usr/bin/diff", "-r", "--no-dereference", tree, "/opt/oddkit"}, differs);
        Step({program, "status", "--verify", "--kit", kit}, 0);
        Step({program, "remove", "--quiet", "--yes", "--kit", kit}, 0);
        const bool isLeft = fs::exists("/opt/oddkit");
        load.report.Add(name, "what is left", isLeft ? "/opt/oddkit is still there" : "");
        fs::remove_all(fs::path(kit).parent_path());
    }

  private:
    /// `differs` stands for a comparison, of which only what the tree has and the product has not counts.
    void Step(const std::vector<std::string>& words, int exitCode) {
        const KProcessEnd end = KProcess(words, {}, longestSeconds).Wait();
        std::string wrong;
        if (exitCode == differs) {
            const bool isComplete = end.out.find("Only in " + words[3]) == std::string::npos &&
                                    end.out.find("differ") == std::string::npos &&
                                    end.signal == 0 && end.err.empty();
            wrong = isComplete ? "" : end.out + end.err;
        } else {
            wrong = WrongEnd(end, {exitCode});
        }
        load.report.Add(name, words[1], wrong.substr(0, 1000));
        if (words[0] == load.product.GetProgram() && words[1] != "kit") {
            load.report.Tell(words[1] + " of " + name + ": " + Seconds(end));
        }
    }

    const KLoad& load;
    std::string name;
};

void Touch(const fs::path& path) {
    fs::create_directories(path.parent_path());
    std::ofstream(path) << path.filename().string().size() << '\n';
}

} // namespace

void LoadManyFiles(const KLoad& load) {
    constexpr unsigned files = 100000;
    constexpr unsigned inOneDirectory = 1000;
    const std::string tree = "/srv/loads/many";
    for (unsigned number = 0; number < files / load.every; ++number) {
        const std::string directory = "/d" + std::to_string(number / inOneDirectory);
        Touch(tree + directory + "/" + std::to_string(number));
    }
    KTreeRuns(load, "files").Run(tree, false);
    fs::remove_all(tree);
}

void LoadLongLog(const KLoad& load) {
    constexpr unsigned lines = 10000000;
    const std::string path = "/var/log/load Setup Log.txt";
    {
        std::ofstream log(path, std::ios::binary | std::ios::app);
        for (unsigned line = 0; line < lines / load.every; ++line) {
            log << "a line of before\n";
        }
    }
    const KLoadProduct& product = load.product;
    product.GetMachine().Keep("long");
    const auto step = [&](std::vector<std::string> words, const std::vector<int>& exitCodes) {
        const KProcessEnd end = KProcess(words).Wait();
        load.report.Add("log", words[1], WrongEnd(end, exitCodes));
        load.report.Tell(words[1] + " behind a long log: " + Seconds(end));
    };
    step(product.Words("install"), {0});
    step(product.Words("status"), {0});
    Shell(
        "cd " + product.Kit() +
        " && cp install.ini kept.ini && "
        "sed -i '/^.remove/i file=copy,missing,$pathSource$,$pathTarget$' install.ini"
    );
    std::vector<std::string> fails = product.Words("install");
    fails.insert(fails.end(), {"--no-check", "--reinstall"});
    step(fails, {1});
    Shell("cd " + product.Kit() + " && mv kept.ini install.ini && rm '" + path + "'");
}

void LoadOddNames(const KLoad& load) {
    constexpr unsigned depth = 200;
    constexpr unsigned longest = 255; // bytes, of a name
    const fs::path tree = "/srv/loads/odd";
    fs::path deep = tree / "deep";
    for (unsigned level = 0; level < depth; ++level) {
        deep /= "d";
    }
    Touch(deep / "last");
    Touch(tree / std::string(longest, 'n'));
    Touch(tree / std::string(longest, 'm') / std::string(longest, 'n'));
    for (const char* const name : {"it's",     "\"quoted\"", "b l a n k",    "-dash",
                                   "--all",    "$os$",       "a,b",          "\xc3\xa4\xe2\x82\xac",
                                   "*",        "?",          "[remove]",     "back\\slash",
                                   ";comment", "#hash",      "%s",           "key=value",
                                   "~",        "a&b",        " blank first", "blank last "}) {
        Touch(tree / name);
        Touch(tree / (std::string("in ") + name) / name);
    }
    KTreeRuns(load, "names").Run(tree, false);
    fs::remove_all(tree);
    for (const char* const name : {"new\nline", "tab\there", "\xff\xfe no text", "return\r"}) {
        const fs::path other = "/srv/loads/other";
        Touch(other / name);
        KTreeRuns(load, "names").Run(other, true);
        fs::remove_all(other);
    }
}

} // namespace KSWEEP
