// SPDX-License-Identifier: MIT
#include "SetupCase.h"

#include "../support/SetupLog.h"
#include "../support/TemporaryTree.h"
#include "Calls.h"
#include "Difference.h"
#include "JsonLines.h"
#include "Marks.h"
#include "ScreensStep.h"
#include "SetupWorld.h"
#include "ShellStep.h"

#include <sup++/SvcData.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>
#include <system_error>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace KTEST {

namespace {

namespace fs = std::filesystem;

constexpr const char* logDirectory = "/var/log";
constexpr const char* logEnding = " Setup Log.txt";
constexpr const char* statusEvent = "\"event\":\"status\"";  // how many is a question of speed
constexpr const char* recordRule = "directory=create,/etc/"; // more rules stand in front of it

std::string Joined(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + '\n';
    }
    return text;
}

void Write(const fs::path& path, const std::string& bytes, mode_t mode) {
    fs::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << bytes;
    file.close();
    if (!file || ::chmod(path.c_str(), mode) != 0) {
        throw CaseError(path.string() + ": cannot be written");
    }
}

void Make(const TreeLine& line) {
    switch (line.kind) {
    case 'd':
        fs::create_directories(line.path);
        break;
    case 'f':
        Write(line.path, line.bytes, line.mode);
        break;
    case 'l':
        fs::remove_all(line.path);
        fs::create_directories(fs::path(line.path).parent_path());
        fs::create_symlink(line.target, line.path);
        return;
    case 'p':
        if (::mkfifo(line.path.c_str(), line.mode) != 0) {
            throw CaseError(line.path + ": cannot be made");
        }
        break;
    case '-':
        fs::remove_all(line.path);
        return;
    default:
        throw CaseError("not to be made: " + line.path);
    }
    if (::chown(line.path.c_str(), line.owner, line.group) != 0 ||
        ::chmod(line.path.c_str(), line.mode) != 0) {
        throw CaseError(line.path + ": cannot be given its owner and mode");
    }
}

/// The entries of every setup log that is there, those of one log behind those of the other.
Lines LogLines() {
    std::vector<std::string> paths;
    for (const auto& entry : fs::directory_iterator(logDirectory)) {
        const std::string path = entry.path();
        if (path.ends_with(logEnding) && entry.is_regular_file() && !entry.is_symlink()) {
            paths.push_back(path);
        }
    }
    std::sort(paths.begin(), paths.end());
    Lines lines;
    for (const std::string& path : paths) {
        const Lines entries = LogEntries(path);
        lines.insert(lines.end(), entries.begin(), entries.end());
    }
    return lines;
}

/// What the second world has that the first has not, then, at their places, what is gone.
Lines Changes(
    const std::map<std::string, std::string>& before,
    const std::map<std::string, std::string>& after
) {
    std::map<std::string, std::string> changes;
    for (const auto& [path, line] : after) {
        const auto former = before.find(path);
        if (former == before.end() || former->second != line) {
            changes[path] = line;
        }
    }
    for (const auto& [path, line] : before) {
        const bool isBelowGone =
            !after.contains(fs::path(path).parent_path()) && path.rfind('/') != 0;
        if (!after.contains(path) && !isBelowGone) {
            changes[path] = "- " + TemporaryTree::Escaped(path);
        }
    }
    Lines lines;
    for (const auto& [path, line] : changes) {
        lines.push_back(line);
    }
    return lines;
}

/// "size 200000 7" in place of the digest, where the case says it so.
Lines WithSizes(Lines lines, const std::map<std::string, std::string>& sizes) {
    for (std::string& line : lines) {
        for (const auto& [digest, size] : sizes) {
            line = Replaced(line, digest, size);
        }
    }
    return lines;
}

/// What a log, a manifest or a state holds differs from run to run: not to be accepted as expected.
std::string WithoutVarying(const std::string& line) {
    static const std::regex varying(
        "(f [0-7]{4}(?: [0-9]+:[0-9]+)? /var/(?:log/.*Log.txt|lib/ins\\+\\+/.*?)) "
        "(?:\"[^\"].*\"|[0-9]+ bytes [0-9a-f]{16})"
    );
    return std::regex_replace(line, varying, "$1 ...");
}

/// One command with what is expected of it and what came.
class Step {
  public:
    Step(const CaseFile& caseFile, const CaseSection& section) : file(caseFile), heading(section) {}

    /// Takes a section that belongs to a command; false for any other.
    bool Take(const CaseSection& section);
    void Run(const std::string& text, const std::string& input, unsigned columns);
    /// What differs; "" for nothing.
    std::string Description() const;
    /// The sections with what came, for the case's file.
    std::vector<CaseSection> Accepted() const;

  private:
    struct Part {
        const char* name;
        bool isThere = false;
        std::string arguments{};
        Lines expected{};
        Lines actual{};
    };

    const CaseFile& file;
    const CaseSection& heading;
    Part parts[5] = {{"exit"}, {"out"}, {"err"}, {"log"}, {"changes"}};
};

bool Step::Take(const CaseSection& section) {
    for (Part& part : parts) {
        if (section.name == part.name) {
            if (part.isThere) {
                file.Refuse(
                    section.lineNumber, "a second '== " + section.name + "' of one command"
                );
            }
            part.isThere = true;
            part.arguments = section.arguments;
            part.expected = section.lines;
            return true;
        }
    }
    return false;
}

void Step::Run(const std::string& text, const std::string& input, unsigned columns) {
    const std::map<std::string, std::string> before = ListWorld();
    const std::size_t logBefore = LogLines().size();
    ShellOutcome outcome =
        columns == 0 ? RunShell(text, input) : RunShellOnTerminal(text, input, columns);
    Lines log = LogLines();
    log.erase(
        log.begin(), log.begin() + static_cast<std::ptrdiff_t>(std::min(logBefore, log.size()))
    );

    auto& [code, out, err, entries, changes] = parts;
    code.expected = {code.isThere ? code.arguments : "0"};
    code.actual = {std::to_string(outcome.exitCode)};
    out.actual = outcome.out;
    if (out.arguments == "as JSON events") {
        std::erase_if(out.actual, [](const std::string& line) {
            return line.find(statusEvent) != std::string::npos;
        });
    }
    if (out.arguments.starts_with("as JSON")) {
        out.actual = ReadableJson(out.actual);
    }
    err.actual = outcome.err;
    entries.actual = entries.isThere ? log : Lines{};
    changes.actual = WithSizes(Changes(before, ListWorld()), file.Sizes());
    for (Part& part : parts) {
        std::transform(
            part.actual.begin(),
            part.actual.end(),
            part.actual.begin(),
            [](const std::string& line) { return WithMarks(line); }
        );
    }
}

std::string Step::Description() const {
    std::string text;
    for (const Part& part : parts) {
        text += DescribeDifference(part.name, Difference(part.expected, part.actual));
    }
    const std::string command = heading.lines.empty() ? "" : heading.lines.front();
    return text.empty() ? ""
                        : "  " + file.path + ':' + std::to_string(heading.lineNumber) + ": " +
                              command + '\n' + text;
}

std::vector<CaseSection> Step::Accepted() const {
    std::vector<CaseSection> sections;
    for (const Part& part : parts) {
        if (part.name == std::string("exit")) {
            if (part.actual.front() != "0") {
                sections.push_back({part.name, part.actual.front(), {}, 0});
            }
            continue;
        }
        Lines lines;
        for (const DifferenceLine& line : Difference(part.expected, part.actual)) {
            if (line.mark == ' ') {
                lines.push_back(line.text);
            } else if (line.mark == '+') {
                lines.push_back(WithoutVarying(line.text));
            }
        }
        if (!lines.empty()) {
            sections.push_back({part.name, part.arguments, lines, 0});
        }
    }
    return sections;
}

/// A case from its first section to its last.
class Case {
  public:
    Case(const CaseFile& caseFile, const StandardKit& standardKit)
        : file(caseFile),
          kit(standardKit) {}

    Verdict Try();

  private:
    bool Prepare(const CaseSection& section);
    void LayKit(const CaseSection& section);
    void LayTree(const CaseSection& section);
    void Given(const CaseSection& section) const;
    /// Hands a command the sections that belong to it, from `at` on; returns where they end.
    template <class AnyStep>
    std::size_t TakeParts(AnyStep& step, std::size_t at) const {
        while (at < file.sections.size() && step.Take(file.sections[at])) {
            ++at;
        }
        return at;
    }
    template <class AnyStep>
    static void Note(const AnyStep& step, Verdict& verdict, CaseFile& accepted) {
        verdict.text += step.Description();
        for (CaseSection& part : step.Accepted()) {
            accepted.sections.push_back(std::move(part));
        }
    }
    static std::string WithPlaces(const std::string& text) {
        return Replaced(text, "@ARCH@", SvcGetGlobalDataEx()->architecture);
    }

    const CaseFile& file;
    const StandardKit& kit;
    unsigned ColumnsOf(const CaseSection& section) const;

    std::string input;
    unsigned columns = 0; // of the terminal of the next command; 0 for none
    bool isOfScreens = false;
    CaseSection each; // what is given to each screen of the next command
};

unsigned Case::ColumnsOf(const CaseSection& section) const {
    const std::string& number = section.arguments;
    if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) {
        file.Refuse(section.lineNumber, "how many columns? As in: == terminal 80");
    }
    return static_cast<unsigned>(std::stoul(number));
}

void Case::LayKit(const CaseSection& section) {
    for (const auto& [name, one] : kit.files) {
        std::string bytes = one.bytes;
        if (const std::size_t at = bytes.find(recordRule);
            name == "install.ini" && at != std::string::npos) {
            bytes.insert(at, WithPlaces(Joined(section.lines)));
        }
        Write(fs::path(kitDirectory) / name, bytes, one.isProgram ? 0755 : 0644);
    }
}

void Case::LayTree(const CaseSection& section) {
    for (const std::string& text : section.lines) {
        if (text.empty()) {
            continue;
        }
        const TreeLine line = TreeLine::Parse(WithPlaces(text));
        if (!line.path.starts_with('/')) {
            file.Refuse(section.lineNumber, "a path that does not begin with \"/\": " + text);
        }
        Make(line);
    }
}

void Case::Given(const CaseSection& section) const {
    const ShellOutcome outcome = RunShell("set -e\n" + WithPlaces(Joined(section.lines)), "");
    if (outcome.exitCode != 0) {
        file.Refuse(
            section.lineNumber,
            "what is given ended with " + std::to_string(outcome.exitCode) + ":\n" +
                Joined(outcome.out) + Joined(outcome.err)
        );
    }
}

bool Case::Prepare(const CaseSection& section) {
    if (section.name == "kit") {
        LayKit(section);
    } else if (section.name == "script") {
        Write(fs::path(kitDirectory) / "install.ini", WithPlaces(Joined(section.lines)), 0644);
    } else if (section.name == "product") {
        const std::string text = "[product]\n" + WithPlaces(Joined(section.lines));
        Write(fs::path(kitDirectory) / "product.ini", text, 0644);
    } else if (section.name == "start" || section.name == "change") {
        LayTree(section);
    } else if (section.name == "given") {
        Given(section);
    } else if (section.name == "input") {
        input = Joined(section.lines);
    } else if (section.name == "terminal") {
        columns = ColumnsOf(section);
    } else if (section.name == "screens") {
        isOfScreens = true;
        each = section;
    } else {
        return section.name == "describe";
    }
    return true;
}

Verdict Case::Try() {
    Verdict verdict{true, 0, "", ""};
    CaseFile accepted{file.path, {}};
    bool isTried = false;
    for (std::size_t at = 0; at < file.sections.size();) {
        const CaseSection& section = file.sections[at++];
        accepted.sections.push_back(section);
        if (Prepare(section)) {
            continue;
        }
        if (section.name != "command" || section.lines.empty()) {
            file.Refuse(section.lineNumber, "no such section here: " + section.name);
        }
        const std::string text = WithPlaces(Joined(section.lines));
        if (std::exchange(isOfScreens, false)) {
            ScreensStep step(file, section);
            at = TakeParts(step, at);
            step.Run(text, std::exchange(input, ""), [this] { Given(each); });
            Note(step, verdict, accepted);
        } else {
            Step step(file, section);
            at = TakeParts(step, at);
            step.Run(text, std::exchange(input, ""), std::exchange(columns, 0));
            Note(step, verdict, accepted);
        }
        isTried = true;
    }
    if (!isTried) {
        file.Refuse(1, "there is no command");
    }
    verdict.passed = verdict.text.empty();
    verdict.accepted = accepted.Text();
    return verdict;
}

} // namespace

StandardKit StandardKit::Load(const fs::path& directory) {
    StandardKit kit;
    std::error_code failed;
    for (const auto& entry : fs::recursive_directory_iterator(directory, failed)) {
        if (entry.is_regular_file()) {
            std::ifstream file(entry.path(), std::ios::binary);
            const bool isProgram =
                (entry.status().permissions() & fs::perms::owner_exec) != fs::perms::none;
            kit.files[fs::relative(entry.path(), directory)] = {
                std::string(std::istreambuf_iterator<char>(file), {}), isProgram};
        }
    }
    if (failed || !kit.files.contains("install.ini")) {
        throw CaseError(directory.string() + ": is no kit");
    }
    return kit;
}

Verdict TrySetupCase(const CaseFile& file, const StandardKit& kit) {
    EnterWorld();
    return Case(file, kit).Try();
}

} // namespace KTEST
