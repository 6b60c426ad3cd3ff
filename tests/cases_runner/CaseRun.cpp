// SPDX-License-Identifier: MIT
#include "CaseRun.h"

#include "../support/SetupLog.h"
#include "../support/StatusRecorder.h"
#include "../support/TemporaryTree.h"
#include "Calls.h"

#include <ins/KInstaller.h>
#include <sup++/KTraceLogger.h>
#include <sup++/KUtil.h>
#include <sup++/Svc.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <regex>
#include <sstream>
#include <system_error>

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KTEST {

namespace {

constexpr unsigned longestRunSeconds = 60;

/// What a run section says.
struct RunPlan {
    std::string mode;
    std::string path;
    unsigned number = 0; ///< of `start NUMBER`
    std::size_t stopAtStatus = 0;
    std::size_t throwAtStatus = 0;
    bool stopBeforeStart = false;
    unsigned user = 0;
};

void Require(unsigned status, const char* what) {
    if (status != 0) {
        throw std::runtime_error(std::string(what) + " failed with " + std::to_string(status));
    }
}

RunPlan PlanOf(const CaseFile& file, const CaseSection& section) {
    RunPlan plan;
    std::istringstream words(section.arguments);
    words >> plan.mode;
    if (plan.mode == "start" && !(words >> plan.number)) {
        file.Refuse(section.lineNumber, "'run start' needs the mode's number");
    }
    std::getline(words >> std::ws, plan.path);
    const std::vector<std::string> known{
        "start", "install", "remove", "auto-install", "auto-remove", "load"};
    if (std::find(known.begin(), known.end(), plan.mode) == known.end()) {
        file.Refuse(section.lineNumber, "no such kind of run: " + plan.mode);
    }
    for (const std::string& line : section.lines) {
        std::istringstream option(line);
        std::string verb;
        std::string place;
        std::string what;
        option >> verb >> place >> what;
        if (line == "stop before start") {
            plan.stopBeforeStart = true;
        } else if ((verb == "stop" || verb == "throw") && place == "at" && what == "status") {
            option >> (verb == "stop" ? plan.stopAtStatus : plan.throwAtStatus);
        } else if (verb == "as" && place == "user") {
            plan.user = static_cast<unsigned>(std::stoul(what));
        } else {
            file.Refuse(section.lineNumber, "no option of a run: " + line);
        }
        if (option.fail()) {
            file.Refuse(section.lineNumber, "a number is missing: " + line);
        }
    }
    return plan;
}

void Perform(KINS::KInstaller& installer, const RunPlan& plan) {
    if (plan.mode == "auto-install") {
        installer.AutoInstall();
        return;
    }
    if (plan.mode == "auto-remove") {
        installer.AutoUninstall();
        return;
    }
    if (plan.mode == "install") {
        installer.StartInstall(plan.path);
    } else if (plan.mode == "remove") {
        installer.StartUninstall(plan.path);
    } else if (plan.mode == "start") {
        installer.Start(plan.path, static_cast<KINS::MODE>(plan.number));
    }
    while (!installer.IsComplete()) {
        SvcPollingDispatch();
    }
}

/// The product as a fresh installer finds it.
std::string ProductLine() {
    const KINS::KInstaller fresh;
    if (!fresh.IsProductInstalled()) {
        return "product none";
    }
    KSUP::KString path;
    KSUP::KString version;
    unsigned buildNumber = 0;
    fresh.GetInstalledProductInformation(path, version, buildNumber);
    return std::string("product ") + version.c_str() + ' ' + std::to_string(buildNumber) + ' ' +
           path.c_str();
}

std::string OneLine(const KSUP::KString& text) {
    return TemporaryTree::Escaped(text.c_str());
}

/// The run itself. Returns the lines of the result section.
std::vector<std::string>
ResultOfRun(const RunPlan& plan, const std::string& script, StatusRecorder& statuses) {
    KINS::KInstaller installer;
    installer.SetCallback(statuses.Callback());
    statuses.At(plan.stopAtStatus, [&] { installer.Stop(); });
    statuses.At(plan.throwAtStatus, [] { throw std::runtime_error("thrown by the callback"); });
    std::vector<std::string> result{"done"};
    try {
        installer.Initialize(script);
        if (plan.stopBeforeStart) {
            installer.Stop();
        }
        Perform(installer, plan);
    } catch (const KSUP::KError& error) {
        result = {"error " + std::to_string(error.GetCode())};
        result.push_back(std::string("from ") + error.GetFile() + ' ' + error.GetFunction());
        if (error.HasInfo()) {
            result.push_back("info " + OneLine(error.GetInfo().GetString()));
        }
    } catch (const std::exception& error) {
        result = {std::string("exception ") + error.what()};
    }
    result.push_back(
        "counts " + std::to_string(installer.GetCompletedCount()) + " of " +
        std::to_string(installer.GetMaxCount())
    );
    result.push_back("mode " + std::to_string(installer.GetMode()));
    return result;
}

/// A case's sandbox and what its sections have set so far.
class Sandbox {
  public:
    explicit Sandbox(const CaseFile& file) : source(file) {
        tree.Directory("root");
        tree.Directory("root/etc");
        tree.Directory("root/kit");
        tree.Directory("log", 0777); // for runs as another user
    }

    /// Takes a section that prepares something; false for any other.
    bool Prepare(const CaseSection& section);
    Outcome Run(const CaseSection& section);
    std::vector<std::string> List() const { return WithMarks(tree.List("root")); }
    std::string WithPaths(const std::string& text) const {
        return Replaced(
            Replaced(Replaced(text, "@ROOT@", tree.Path("root")), "@SCRIPT@", Script()),
            "@ARCH@",
            SvcGetGlobalDataEx()->architecture
        );
    }

  private:
    std::string Script() const { return tree.Path("install.ini"); }
    std::string Joined(const CaseSection& section) const;
    void Apply(const CaseSection& section);
    void EnterWorld(const RunPlan& plan) const;
    [[noreturn]] void Child(const RunPlan& plan, int end) const;
    std::vector<std::string> NewLogEntries();
    std::vector<std::string> WithMarks(std::vector<std::string> lines) const;

    const CaseFile& source;
    TemporaryTree tree;
    std::vector<std::string> arguments;
    std::size_t logEntriesSeen = 0;
};

std::string Sandbox::Joined(const CaseSection& section) const {
    std::string text;
    for (const std::string& line : section.lines) {
        text += WithPaths(line) + '\n';
    }
    return text;
}

bool Sandbox::Prepare(const CaseSection& section) {
    if (section.name == "describe") {
        return true;
    }
    if (section.name == "start" || section.name == "change") {
        Apply(section);
    } else if (section.name == "script") {
        const std::string text = Joined(section);
        // As an editor of another system saves it; git would not keep such a case as it is.
        const bool foreign = section.arguments == "with BOM and CRLF";
        tree.Write("install.ini", foreign ? "\xef\xbb\xbf" + Replaced(text, "\n", "\r\n") : text);
    } else if (section.name == "product") {
        tree.Write("product.ini", "[product]\n" + Joined(section));
    } else if (section.name == "arguments") {
        arguments.clear();
        for (const std::string& line : section.lines) {
            arguments.push_back(WithPaths(line));
        }
    } else {
        return false;
    }
    return true;
}

void Sandbox::Apply(const CaseSection& section) {
    for (const std::string& text : section.lines) {
        if (text.empty()) {
            continue;
        }
        const TreeLine line = TreeLine::Parse(WithPaths(text));
        const std::string path = "root/" + line.path;
        switch (line.kind) {
        case 'd':
            tree.Directory(path, line.mode);
            break;
        case 'f':
            tree.Write(path, line.bytes, line.mode);
            break;
        case 'l':
            tree.Remove(path);
            tree.Link(path, line.target);
            break;
        case 'p':
            tree.Fifo(path, line.mode);
            break;
        case '-':
            tree.Remove(path);
            break;
        default:
            source.Refuse(section.lineNumber, "not to be made: " + text);
        }
    }
}

/// Everything that the process shares, as a run of this case is to find it.
void Sandbox::EnterWorld(const RunPlan& plan) const {
    Check(::unshare(CLONE_NEWNS), "unshare");
    Check(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mount /");
    Check(::mount(tree.Path("root/etc").c_str(), "/etc", nullptr, MS_BIND, nullptr), "mount /etc");
    SvcGetGlobalLogger()->UseNothing();
    if (tree.Exists("product.ini")) {
        Require(SvcLoadProductData(tree.Path("product.ini").c_str()), "SvcLoadProductData");
    }
    std::vector<const char*> texts{"setup"};
    for (const std::string& argument : arguments) {
        texts.push_back(argument.c_str());
    }
    Require(SvcSetCommandLine(static_cast<unsigned>(texts.size()), texts.data()), "command line");
    KSUP::KUtil::SetPathMap(2, tree.Path("root/kit"));
    KSUP::KUtil::SetPathMap(19, tree.Path("log"));
    if (plan.user != 0) {
        Check(::seteuid(plan.user), "seteuid");
    }
}

void Sandbox::Child(const RunPlan& plan, int end) const {
    ::alarm(longestRunSeconds);
    StatusRecorder statuses;
    std::vector<std::string> result;
    try {
        EnterWorld(plan);
        result = ResultOfRun(plan, Script(), statuses);
        Check(::seteuid(0), "seteuid");
        result.push_back(ProductLine());
    } catch (const std::exception& error) {
        result.push_back(std::string("the runner failed: ") + error.what());
    }
    std::string report;
    for (const std::string& line : statuses.Lines()) {
        report += "S" + TemporaryTree::Escaped(line) + '\n';
    }
    for (const std::string& line : result) {
        report += "R" + line + '\n';
    }
    for (std::size_t sent = 0; sent < report.size();) {
        const ssize_t step = ::write(end, report.data() + sent, report.size() - sent);
        if (step <= 0) {
            ::_exit(1);
        }
        sent += static_cast<std::size_t>(step);
    }
    ::_exit(0);
}

std::vector<std::string> Sandbox::WithMarks(std::vector<std::string> lines) const {
    // An error's summary in the log names the line that raised it; that moves with every change.
    static const std::regex place("\\(((?:ins|sup\\+\\+)/[^:]+):[0-9]+, ");
    for (std::string& line : lines) {
        line = Replaced(Replaced(line, tree.Path("root"), "@ROOT@"), Script(), "@SCRIPT@");
        line = Replaced(line, SvcGetGlobalDataEx()->architecture, "@ARCH@");
        line = std::regex_replace(line, place, "($1:@LINE@, ");
        line = Replaced(line, "KINS::KInstaller: ", "Installer: ");
        line = Replaced(line, "KINS::KInstallRuleManager: ", "Manager: ");
    }
    return lines;
}

std::vector<std::string> Sandbox::NewLogEntries() {
    std::vector<std::string> entries;
    for (const std::string& line : tree.List("log")) {
        // "f 0640 NAME …": the log's name carries the product's.
        const std::string name = line.substr(7, line.find(".txt") + 4 - 7);
        entries = LogEntries(tree.Path("log/" + name));
    }
    const std::size_t first = std::min(logEntriesSeen, entries.size());
    logEntriesSeen = entries.size();
    return {entries.begin() + static_cast<std::ptrdiff_t>(first), entries.end()};
}

Outcome Sandbox::Run(const CaseSection& section) {
    const RunPlan plan = [&] {
        RunPlan made = PlanOf(source, section);
        made.path = WithPaths(made.path);
        return made;
    }();
    int ends[2];
    Check(::pipe(ends), "pipe");
    const pid_t child = ::fork();
    Check(child, "fork");
    if (child == 0) {
        ::close(ends[0]);
        Child(plan, ends[1]);
    }
    ::close(ends[1]);
    std::string report;
    char buffer[4096];
    for (ssize_t step = 0; (step = ::read(ends[0], buffer, sizeof(buffer))) > 0;) {
        report.append(buffer, static_cast<std::size_t>(step));
    }
    ::close(ends[0]);
    int end = 0;
    Check(::waitpid(child, &end, 0), "waitpid");

    Outcome outcome;
    std::istringstream lines(report);
    for (std::string line; std::getline(lines, line);) {
        (line[0] == 'S' ? outcome.status : outcome.result).push_back(line.substr(1));
    }
    if (WIFSIGNALED(end)) {
        outcome.result.push_back("the run died of signal " + std::to_string(WTERMSIG(end)));
    }
    outcome.status = WithMarks(outcome.status);
    outcome.result = WithMarks(outcome.result);
    outcome.log = WithMarks(NewLogEntries());
    outcome.tree = List();
    return outcome;
}

std::string PathOfListed(const std::string& line) {
    return TreeLine::Parse(line).path;
}

/// The lines of a tree section as List has them: contents as digests, "= PATH" as it stood before.
std::vector<std::string>
ListedTree(const CaseSection& section, const std::vector<std::string>& before) {
    std::vector<std::string> listed;
    for (const std::string& text : section.lines) {
        if (text.empty()) {
            continue;
        }
        const TreeLine line = TreeLine::Parse(text);
        if (line.kind != '=') {
            listed.push_back(line.Listed());
            continue;
        }
        for (const std::string& former : before) {
            const std::string path = PathOfListed(former);
            if (line.path == "." || path == line.path || path.starts_with(line.path + '/')) {
                listed.push_back(former);
            }
        }
    }
    std::stable_sort(
        listed.begin(),
        listed.end(),
        [](const std::string& left, const std::string& right) {
            return PathOfListed(left) < PathOfListed(right);
        }
    );
    return listed;
}

/// What a case may leave out of its result is taken from what came.
std::vector<std::string>
CompletedResult(const std::vector<std::string>& expected, const std::vector<std::string>& actual) {
    std::vector<std::string> completed;
    for (const std::string& line : actual) {
        const std::string key = line.substr(0, line.find(' '));
        const bool optional = key == "from" || key == "info" || key == "mode";
        const bool named =
            std::any_of(expected.begin(), expected.end(), [&](const std::string& wanted) {
                return wanted.substr(0, wanted.find(' ')) == key;
            });
        if (optional && !named) {
            completed.push_back(line);
        }
    }
    completed.insert(completed.end(), expected.begin(), expected.end());
    return completed;
}

std::vector<std::string> WithoutBlankLines(std::vector<std::string> lines) {
    std::erase(lines, std::string());
    return lines;
}

} // namespace

bool RunReport::Passed() const {
    const auto sorted = [](std::vector<std::string> lines) {
        std::sort(lines.begin(), lines.end());
        return lines;
    };
    return expected.status == actual.status && expected.log == actual.log &&
           sorted(expected.result) == sorted(actual.result) && expected.tree == actual.tree;
}

std::vector<RunReport> RunCase(const CaseFile& file) {
    Sandbox sandbox(file);
    std::vector<RunReport> reports;
    for (std::size_t at = 0; at < file.sections.size();) {
        const CaseSection& section = file.sections[at++];
        if (sandbox.Prepare(section)) {
            continue;
        }
        if (section.name != "run") {
            file.Refuse(section.lineNumber, "no such section here: " + section.name);
        }
        RunReport report{&section, {}, {}, sandbox.List()};
        report.actual = sandbox.Run(section);
        std::map<std::string, const CaseSection*> parts;
        while (at < file.sections.size()) {
            const CaseSection& part = file.sections[at];
            const std::string& name = part.name;
            if (name != "status" && name != "log" && name != "result" && name != "tree") {
                break;
            }
            parts[name] = &part;
            ++at;
        }
        static const CaseSection none;
        const auto part = [&](const char* name) -> const CaseSection& {
            return parts.count(name) != 0 ? *parts[name] : none;
        };
        report.expected.status = WithoutBlankLines(part("status").lines);
        report.expected.log = WithoutBlankLines(part("log").lines);
        report.expected.result =
            CompletedResult(WithoutBlankLines(part("result").lines), report.actual.result);
        try {
            report.expected.tree = ListedTree(part("tree"), report.treeBefore);
            std::stable_sort(
                report.actual.tree.begin(),
                report.actual.tree.end(),
                [](const std::string& left, const std::string& right) {
                    return PathOfListed(left) < PathOfListed(right);
                }
            );
        } catch (const CaseError& error) {
            file.Refuse(part("tree").lineNumber, error.what());
        }
        reports.push_back(std::move(report));
    }
    if (reports.empty()) {
        file.Refuse(1, "there is no run");
    }
    return reports;
}

} // namespace KTEST
