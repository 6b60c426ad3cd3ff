// SPDX-License-Identifier: MIT
//
// A user who may write to a directory on the way of a run swaps what is there, as fast as it goes, while
// each command runs. Nothing of root's may change by that or be read. Beside each pattern a shell does
// the same job, and has to be led astray: else the attack were none.
#include "Files.h"
#include "KPlainProduct.h"
#include "KProcess.h"
#include "KSwapper.h"
#include "KVictims.h"
#include "RacePatterns.h"
#include "Sweeps.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <stdexcept>

#include <sys/stat.h>
#include <unistd.h>

namespace KSWEEP {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::uint64_t fewestSwaps = 100000; // of a pattern
constexpr unsigned fewestRounds = 3;          // each pace once
constexpr unsigned longestClosed = 100;       // milliseconds, until what is opened late is open
constexpr unsigned pollMicroseconds = 300;
constexpr std::chrono::minutes longestPattern(10);
constexpr std::chrono::seconds longestControl(20);

struct KRaced {
    std::string program;
    const KMachineState& machine;
    const std::vector<KWay>& ways;
    std::vector<std::string> places; // in which the user might read, or have something
};

/// Its directories, opened to the user and closed again.
class KOpening {
  public:
    KOpening(const KRaceSetUp& itsSetUp, const KVictims& itsVictims)
        : setUp(itsSetUp),
          victims(itsVictims) {}

    /// Before the run; what is opened late only gets what has to be there.
    void Prepare() {
        if (!setUp.kit.empty()) {
            const bool isLink = setUp.name == "link";
            Shell(
                "rm -rf /home/sweeper/kits && mkdir -p /home/sweeper/kits && " +
                std::string(isLink ? "ln -s " : "cp -a ") + KPlainProduct::Kit() + " " + setUp.kit
            );
        }
        if (setUp.isLate) {
            return;
        }
        for (const std::string& directory : setUp.opened) {
            fs::create_directories(directory);
        }
        for (const KSwap& swap : Swaps()) {
            if (!swap.bait.empty()) {
                victims.LayBait(swap.path, swap.bait);
            }
        }
        Open();
    }

    /// Opens what is there and is not open yet.
    void Open() {
        for (const std::string& directory : setUp.opened) {
            struct stat status {};
            if (::lstat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
                continue;
            }
            if (setUp.isOfGroup && status.st_gid != sweeper) {
                Try(::lchown(directory.c_str(), 0, sweeper));
                Try(::chmod(directory.c_str(), status.st_mode | S_IWGRP));
            } else if (!setUp.isOfGroup && status.st_uid != sweeper) {
                Try(::lchown(directory.c_str(), sweeper, sweeper));
            }
        }
    }

    void Close() {
        for (const std::string& directory : setUp.opened) {
            struct stat status {};
            if (::lstat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
                Try(::lchown(directory.c_str(), 0, 0));
                Try(::chmod(directory.c_str(), status.st_mode & ~static_cast<mode_t>(S_IWGRP)));
            }
            std::error_code gone;
            for (const auto& entry : fs::directory_iterator(directory, gone)) {
                if (entry.path().filename().string().starts_with(".swap-")) {
                    fs::remove_all(entry.path());
                }
            }
        }
    }

    std::vector<KSwap> Swaps() const {
        std::vector<KSwap> swaps;
        for (const std::string& path : setUp.swapped) {
            const bool isKit = !setUp.target.empty();
            const fs::path at(path);
            const std::string victim = isKit ? setUp.target : KVictims::Of(path);
            const bool hasBait = !isKit && !setUp.isLate && fs::exists(victim);
            const fs::path bait = at.parent_path() / (".swap-bait-" + at.filename().string());
            swaps.push_back({path, victim, hasBait ? bait.string() : "", setUp.byPipe});
        }
        return swaps;
    }

  private:
    static void Try(int /*result*/) {} // it was swapped meanwhile

    const KRaceSetUp& setUp;
    const KVictims& victims;
};

/// The runs of one pattern.
class KRace {
  public:
    KRace(const KRacePattern& itsPattern, const KRaced& itsRaced, KVictims& itsVictims, KReport& to)
        : pattern(itsPattern),
          raced(itsRaced),
          victims(itsVictims),
          report(to) {}

    void Run(const KSelection& selection) {
        for (const KRaceSetUp& setUp : pattern.setUps) {
            const std::string name = pattern.name + ":control-" + setUp.name;
            if (IsChosen(selection, name)) {
                report.Add(name, "a shell", TryControl(setUp));
            }
        }
        const auto end = Clock::now() + longestPattern;
        const std::uint64_t enough = fewestSwaps / selection.every;
        const unsigned rounds = std::max(1U, fewestRounds / selection.every);
        unsigned round = 0;
        while ((round < rounds || swaps < enough) && Clock::now() < end) {
            for (const KRaceSetUp& setUp : pattern.setUps) {
                RunRound(setUp, round, selection);
            }
            if (runs == 0) { // only a control was chosen
                return;
            }
            ++round;
        }
        Judge(enough);
    }

  private:
    static bool IsChosen(const KSelection& selection, const std::string& name) {
        return selection.only.find(':') == std::string::npos || selection.only == name ||
               name.starts_with(selection.only + ":");
    }

    std::vector<std::string> WordsOf(const KWay& way, const std::string& kit) const {
        std::vector<std::string> words = {raced.program};
        words.insert(words.end(), way.words.begin(), way.words.end());
        for (std::string& word : words) {
            // A kit of another version would only be another kit: the user has but one.
            const bool isKit = word.starts_with("/srv/plain/1.");
            word = isKit && !kit.empty() ? kit : word;
        }
        return words;
    }

    void RunRound(const KRaceSetUp& setUp, unsigned round, const KSelection& selection) {
        for (const KWay& way : raced.ways) {
            const std::string name = pattern.name + ":" + setUp.name + ":" + way.name;
            if (IsChosen(selection, name)) {
                report.Add(name, "round " + std::to_string(round), RunOne(setUp, way, round));
            }
        }
    }

    std::string RunOne(const KRaceSetUp& setUp, const KWay& way, unsigned round) {
        raced.machine.PutBack(way.from);
        KOpening opening(setUp, victims);
        opening.Prepare();
        KSwapper swapper(opening.Swaps(), setUp.watched, KVictims::Of("/etc/plain/shared.conf"));
        swapper.Start(static_cast<KSwapper::Pace>(round % 3), ++runs);
        const auto words = WordsOf(way, setUp.kit);
        const auto opens = Clock::now() + std::chrono::milliseconds(runs * 7 % longestClosed);
        const auto meanwhile = [&] {
            if (setUp.isLate && Clock::now() >= opens) {
                opening.Open();
            }
        };
        const KProcessEnd end =
            setUp.isSlow ? RunSlowly(words, meanwhile) : RunFast(words, meanwhile);
        swapper.Stop();
        swaps += swapper.GetSwaps();
        temporaries += swapper.GetTemporaries();
        std::string wrong = victims.FindEscape(raced.places);
        if (!wrong.empty()) {
            ++escapes;
            victims.Make();
            return "ESCAPE: " + wrong + "\n    by " + end.ToText();
        }
        wrong = CountEnd(way, end);
        opening.Close();
        return wrong.empty() ? TryAgain(way) : wrong;
    }

    static KProcessEnd
    RunFast(const std::vector<std::string>& words, const std::function<void()>& meanwhile) {
        KProcess process(words);
        while (process.GoesOn(pollMicroseconds)) {
            meanwhile();
        }
        return process.Wait();
    }

    /// So that each temporary file is there for a while, and time is between a copy and its rights.
    static KProcessEnd
    RunSlowly(const std::vector<std::string>& words, const std::function<void()>& meanwhile) {
        const auto wait = [&](const KSeenCall&, bool /*isDone*/) {
            meanwhile();
            ::usleep(pollMicroseconds);
        };
        const KTracedEnd end = Trace(words, {}, FileChanges(), wait);
        return {end.exitCode, end.signal, end.out, end.err, 0, 0};
    }

    std::string CountEnd(const KWay& way, const KProcessEnd& end) {
        if (end.signal != 0) {
            return end.ToText();
        }
        const std::string& command = way.words.front();
        const bool isQuestion = command == "status" || command == "verify" || command == "list";
        if (end.exitCode == way.exitCode || end.exitCode == 0) { // of another kit it does not fail
            ++done;
            goneOn += isQuestion ? 0U : 1U;
            return {};
        }
        if (end.err.empty() && end.out.empty()) {
            return "it does not say why: " + end.ToText();
        }
        const bool hasBegun = end.err.find("ing failed ") != std::string::npos ||
                              end.err.find("What was done") != std::string::npos ||
                              end.err.find("restor") != std::string::npos;
        ++(hasBegun ? told : refused);
        goneOn += hasBegun ? 1U : 0U;
        return {};
    }

    /// Nobody disturbs it any more.
    std::string TryAgain(const KWay& way) {
        const KProcessEnd end = KProcess(WordsOf(way, "")).Wait();
        const bool isTold = end.exitCode == way.exitCode || !(end.err + end.out).empty();
        again += end.exitCode == way.exitCode ? 1U : 0U;
        if (const std::string wrong = victims.FindEscape(raced.places); !wrong.empty()) {
            ++escapes;
            victims.Make();
            return "ESCAPE by what the user left: " + wrong + "\n    by " + end.ToText();
        }
        return end.signal == 0 && isTold ? "" : "without the swapper: " + end.ToText();
    }

    std::string TryControl(const KRaceSetUp& setUp) {
        const auto end = Clock::now() + longestControl;
        const std::string& line = setUp.control.empty() ? pattern.control : setUp.control;
        std::string escape;
        for (unsigned nth = 0; escape.empty() && Clock::now() < end; ++nth) {
            raced.machine.PutBack("installed");
            KOpening opening(setUp, victims);
            opening.Prepare();
            opening.Open();
            const std::string target = KVictims::Of("/etc/plain/shared.conf");
            KSwapper swapper(opening.Swaps(), setUp.watched, target);
            swapper.Start(KSwapper::Pace::Full, nth);
            for (unsigned times = 0; times < 20; ++times) {
                KProcess({"/bin/sh", "-c", line}, {}, 2).Wait();
            }
            swapper.Stop();
            escape = victims.FindEscape(raced.places);
        }
        victims.Make();
        return escape.empty() ? "the attack does not work: the shell was never led astray" : "";
    }

    void Judge(std::uint64_t enough) const {
        const auto text = [](auto number, const char* what) {
            return std::to_string(number) + what;
        };
        report.Tell(
            text(swaps, " swaps, ") + text(temporaries, " of temporary files; ") +
            text(runs, " runs: ") + text(done, " to their end, ") + text(refused, " refused, ") +
            text(told, " failed with a text, ") + text(escapes, " escapes; ") +
            text(again, " to their end without the swapper")
        );
        const bool isEnough = swaps >= enough;
        report.Add(pattern.name, "swaps", isEnough ? "" : "too few swaps: " + text(swaps, ""));
        report.Add(pattern.name, "refusals", goneOn > 0 ? "" : "each command was refused");
        if (!pattern.setUps.front().watched.empty()) {
            const bool hasSome = temporaries > 0;
            report.Add(pattern.name, "temporaries", hasSome ? "" : "none was swapped");
        }
    }

    const KRacePattern& pattern;
    const KRaced& raced;
    KVictims& victims;
    KReport& report;
    std::uint64_t swaps = 0;
    std::uint64_t temporaries = 0;
    unsigned runs = 0;
    unsigned done = 0;
    unsigned refused = 0;
    unsigned told = 0;
    unsigned goneOn = 0;
    unsigned again = 0;
    unsigned escapes = 0;
};

} // namespace

void SweepRaces(const KSubject& subject, const KSelection& selection, KReport& report) {
    const std::string program = subject.Words({}).front();
    const KPlainProduct plain(program);
    const std::string logs = "/var/log/Plain Setup ";
    const KRaced ofPlain = {
        program,
        plain.GetMachine(),
        plain.GetWays(),
        {KPlainProduct::Place(), "/etc/plain", logs + "Log.txt", logs + "Commands.txt"}};
    const KRaced ofSubject = {
        program,
        subject.GetMachine(),
        subject.GetWays(),
        {"/opt/sweep", "/etc/sweep", "/etc/systemd/system"}};
    std::vector<KLook> looks = plain.GetLooks();
    looks.push_back(subject.LookOf("installed"));
    // Logs are no part of a look.
    looks.push_back({{logs + "Log.txt", "10"}, {logs + "Commands.txt", "10"}});
    KVictims victims(looks);
    victims.Make();

    unsigned number = 0;
    for (const KRacePattern& pattern : RacePatterns()) {
        KSelection patterns = selection;
        patterns.every = 1;
        const bool isInSlice =
            patterns.only.find(':') != std::string::npos || patterns.Has(number, pattern.name);
        ++number;
        if (!patterns.HasWay(pattern.name) || !isInSlice) {
            continue;
        }
        report.Begin(pattern.name);
        KRace(pattern, pattern.isPlain ? ofPlain : ofSubject, victims, report).Run(selection);
        report.End();
    }
}

} // namespace KSWEEP
