// SPDX-License-Identifier: MIT
#include "KAftermath.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <sstream>

namespace KSWEEP {

namespace {

constexpr int differs = 4;
constexpr int mustBeRestored = 4;
constexpr int nothingToUndo = 66;

std::string Told(const KTracedEnd& end) {
    return end.signal != 0 ? "died of " + std::string(::strsignal(end.signal)) + ":\n" + end.err
                           : "ended with " + std::to_string(end.exitCode) + ":\n" + end.err;
}

/// What was said without the lines of the progress, which name each file that is at work.
std::string NotesOf(const std::string& said) {
    std::string notes;
    std::istringstream lines(said);
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with('[')) {
            notes += line + '\n';
        }
    }
    return notes;
}

/// Whether the path itself is named, and not only one below it, or one that begins like it.
bool Names(const std::string& notes, const std::string& path) {
    for (std::size_t at = 0; (at = notes.find(path, at)) != std::string::npos; at += path.size()) {
        const char next =
            notes[std::min(at + path.size(), notes.size() - 1)]; // of all it is a line's end
        const char afterDot = notes[std::min(at + path.size() + 1, notes.size() - 1)];
        if (std::isspace(next) != 0 || next == ':' || next == ';' || next == ',' ||
            (next == '.' && std::isspace(afterDot) != 0)) {
            return true;
        }
    }
    return false;
}

/// What is otherwise than it should be, save where a note names the path.
std::string Untold(const KLook& expected, KLook got, const std::string& said) {
    const std::string notes = NotesOf(said);
    for (const auto& [path, line] : expected) {
        if (Names(notes, path)) {
            got[path] = line;
        }
    }
    std::erase_if(got, [&](const auto& one) {
        return !expected.contains(one.first) && Names(notes, one.first);
    });
    return Difference(expected, got);
}

} // namespace

std::string KAftermath::FindWrong(
    const KTracedEnd& end, const std::string& cause, KJudged& judged, bool isMute
) const {
    std::string wrong =
        way.asksOnly ? FindWrongAnswer(end, cause, judged, isMute) : FindWrongEnd(end, isMute);
    const bool
        isDoneButFor = // what its notes name, as rules of directories and services pass it over
        !way.asksOnly && end.exitCode == 0 && !subject.IsInterrupted() &&
        ProductOf(subject.GetMachine().Look()) != ProductOf(subject.LookOf(way.to));
    if (wrong.empty() && isDoneButFor) {
        return {};
    }
    const std::string left = subject.GetMachine().Summary();
    if (!wrong.empty() || judged.held.contains(left)) {
        return wrong;
    }
    wrong = FindLie();
    if (wrong.empty() && !way.asksOnly) {
        wrong = GoBackOrOn();
    }
    if (wrong.empty()) {
        judged.held.insert(left);
    }
    return wrong;
}

std::string KAftermath::FindWrongEnd(const KTracedEnd& end, bool isMute) const {
    if (end.exitCode < 0) {
        return Told(end);
    }
    if (end.exitCode == 0) {
        const std::string difference = Untold(
            ProductOf(subject.LookOf(way.to)), ProductOf(subject.GetMachine().Look()), end.out
        );
        return difference.empty() ? "" : "said to be done, but is not" + difference;
    }
    return end.err.empty() && !isMute ? "nothing is said: " + Told(end) : "";
}

/// It may fail, and say so, and is never false.
std::string KAftermath::FindWrongAnswer(
    const KTracedEnd& end, const std::string& cause, KJudged& judged, bool isMute
) const {
    if (end.exitCode < 0) {
        return Told(end);
    }
    const std::string changed = Difference(subject.LookOf(way.from), subject.GetMachine().Look());
    if (!changed.empty()) {
        return "a question changed something" + changed;
    }
    if (!judged.good) {
        judged.good = subject.Run(way.words);
    }
    const KTracedEnd& good = *judged.good;
    const bool isSame = end.exitCode == good.exitCode && end.out == good.out;
    const bool isError = end.exitCode > differs && (isMute || !end.err.empty());
    const bool isTold = end.out.find(cause) != std::string::npos; // for this one line of the answer
    return isSame || isError || isTold ? "" : "it answers " + end.out + Told(end);
}

/// A run that is not remembered has to look as if it had not begun, or as if it were done.
std::string KAftermath::FindLie(std::string* told) const {
    const KLook before = subject.GetMachine().Look();
    const std::string said = subject.Ask();
    if (told != nullptr) {
        *told = said;
    }
    if (const KLook after = subject.GetMachine().Look(); after != before) {
        return "a question changed something" + Difference(before, after);
    }
    if (way.asksOnly) {
        return {};
    }
    if (subject.IsInterrupted()) {
        const bool isTold = said.find("was interrupted") != std::string::npos;
        return isTold ? "" : "it is not told that it was interrupted:\n" + said;
    }
    const KLook product = ProductOf(before);
    const std::string* state = nullptr;
    for (const std::string* one : {&way.from, &way.to}) {
        state = product == ProductOf(subject.LookOf(*one)) ? one : state;
    }
    if (state == nullptr) {
        return "nothing is remembered, but something was done" +
               Difference(ProductOf(subject.LookOf(way.from)), product);
    }
    const bool isTrue = said == subject.AnswersOf(way.from) || said == subject.AnswersOf(way.to);
    return isTrue ? "" : "what is told is not so, as nothing is remembered:\n" + said;
}

/// The same command again; only a restoration that was interrupted has to be ended first.
std::string KAftermath::GoBackOrOn() const {
    const bool isRestoring = IsToldOf("restoring");
    if (isRestoring && way.words.front() != "restore") {
        const KLook before = subject.GetMachine().Look();
        const KTracedEnd end = subject.Run(way.words);
        const KLook after = subject.GetMachine().Look();
        if (end.exitCode != mustBeRestored || after != before) {
            return way.words.front() + " into what is half restored ended with " +
                   std::to_string(end.exitCode) + ": " + end.err + Difference(before, after);
        }
        return GoOn(subject.Restoration(), 0, {way.from}, true);
    }
    const bool goesOn = subject.IsInterrupted();
    if (!goesOn && way.words == subject.Restoration()) {
        return Restore(way.to); // it may be done already
    }
    std::string wrong = GoOn(way.words, way.exitCode, {way.to}, false);
    const bool keepsBackup = way.otherWords == subject.Restoration() && way.exitCode == 0;
    if (wrong.empty() && goesOn && keepsBackup) {
        wrong = GoOn(subject.Restoration(), 0, {way.from}, true);
    }
    return wrong;
}

bool KAftermath::IsToldOf(const char* what) const {
    const std::string said = subject.IsInterrupted() ? subject.Ask() : "";
    return said.find(what + std::string(" Sweep")) != std::string::npos &&
           said.find("was interrupted") != std::string::npos;
}

std::string KAftermath::GoOn(
    const std::vector<std::string>& words,
    int exitCode,
    const std::vector<std::string>& states,
    bool isLoose
) const {
    const KTracedEnd end = subject.Run(words);
    if (end.exitCode != exitCode) {
        return words.front() + " behind it ended with " + std::to_string(end.exitCode) + ": " +
               end.err;
    }
    const KLook look =
        isLoose ? ProductOf(subject.GetMachine().Look()) : subject.GetMachine().Look();
    std::string difference;
    for (const std::string& state : states) {
        const KLook& expected = subject.LookOf(state);
        difference = Difference(isLoose ? ProductOf(expected) : expected, look);
        if (difference.empty()) {
            return subject.IsInterrupted() ? words.front() + " still counts as interrupted" : "";
        }
    }
    return "after " + words.front() + " behind it" + difference;
}

std::string KAftermath::GoElsewhere() const {
    if (way.otherWords.front() == "restore") {
        return Restore(way.from);
    }
    if (IsToldOf("restoring") && way.otherWords.front() == "install") {
        return {}; // refused, as above
    }
    return GoOn(way.otherWords, 0, way.otherTo, true);
}

/// There is nothing to undo where the run had not begun, or had undone itself.
std::string KAftermath::Restore(const std::string& state) const {
    const bool mayBeDone = !subject.IsInterrupted();
    const KTracedEnd end = subject.Run(subject.Restoration());
    if (end.exitCode != 0 && !(mayBeDone && end.exitCode == nothingToUndo)) {
        return "restore behind it ended with " + std::to_string(end.exitCode) + ": " + end.err;
    }
    return Difference(ProductOf(subject.LookOf(state)), ProductOf(subject.GetMachine().Look()));
}

} // namespace KSWEEP
