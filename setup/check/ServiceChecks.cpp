// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/check/PlanSteps.h>
#include <setup/files/PathText.h>
#include <setup/plan/KPlannedServices.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_map>

#include <sys/services/KServiceError.h>
#include <sys/services/UnitText.h>

namespace KSETUP::Checks {

namespace {

using KINS::KRuleOperation;
using Kind = KPlannedAction::Kind;

bool IsService(const KScriptRule& rule, KRuleOperation operation) {
    return rule.Is(KINS::KRuleType::Service, operation);
}

/// The services that a line of the script installs, for whatever machine or version.
std::set<std::string> InstalledBySomeLine(const KCheckContext& context) {
    std::set<std::string> names;
    for (const KScriptRule& rule : context.GetLines()) {
        if (IsService(rule, KRuleOperation::Install)) {
            names.insert(rule.fields[1]);
        }
    }
    return names;
}

/// Whether a unit file of the name comes along, or belongs to this machine's system.
bool HasUnitFile(const KCheckContext& context, const std::string& name) {
    static constexpr std::array directories = std::to_array<const char*>({
        "/etc/systemd/system/",
        "/run/systemd/generator.late/",
        "/usr/local/lib/systemd/system/",
        "/lib/systemd/system/",
        "/usr/lib/systemd/system/",
    });
    return std::any_of(directories.begin(), directories.end(), [&](const char* directory) {
        const std::string path = directory + name + ".service";
        std::error_code unknown; // as good as missing
        return context.GetAfterInstall().Exists(path) || std::filesystem::exists(path, unknown);
    });
}

/// What the support library would refuse of a service's name and unit file, on any machine.
KText WhyRefused(const KScriptRule& rule) {
    const std::vector<std::string>& fields = rule.fields;
    if (const KText why = KSYS::WhyNotAServiceName(fields[1]); !why.empty()) {
        return Text("\"%s\" cannot be the name of a service: %s", fields[1], why);
    }
    return fields.size() == 5 && IsService(rule, KRuleOperation::Install) && !fields[3].empty()
               ? WhyNotAUnit(fields[2], fields[3], fields[4])
               : "";
}

/// Where things are done first in an install, by what they are about: the numbers of its steps.
class FirstSteps {
  public:
    explicit FirstSteps(const std::vector<KPlanStep>& steps) {
        for (std::size_t index = 0; index < steps.size(); ++index) {
            const KPlanStep& step = steps[index];
            const bool ends =
                step.action->kind == Kind::StopService || step.action->kind == Kind::RemoveService;
            if (step.action->kind == Kind::InstallService) {
                installed.emplace(step.path, index);
            } else if (ends) {
                ended.emplace(step.path, index);
            } else if (step.action->kind == Kind::StopProgram) {
                stopped.emplace(NameOfPath(step.path), index);
            } else if (step.action->kind == Kind::StartCommand) {
                commands.append(step.path).append(1, '\n');
            }
            if (MakesFile(*step.action)) {
                made.emplace(step.path, index);
            }
        }
    }

    bool Installs(std::string_view service) const { return installed.contains(service); }
    bool InstallsBefore(std::string_view service, std::size_t step) const {
        return IsBefore(installed, service, step);
    }
    bool Makes(std::string_view path) const { return made.contains(path); }
    bool MakesBefore(std::string_view path, std::size_t step) const {
        return IsBefore(made, path, step);
    }
    /// Whether the run touches the running service before a step, so that it starts with its new
    /// program. A command may do it behind, too: "systemctl restart NAME" for instance.
    bool EndsBefore(std::string_view service, std::string_view program, std::size_t step) const {
        return IsBefore(ended, service, step) || IsBefore(stopped, NameOfPath(program), step) ||
               commands.find(service) != std::string::npos;
    }

  private:
    using Steps = std::unordered_map<std::string_view, std::size_t>;
    static bool IsBefore(const Steps& first, std::string_view what, std::size_t step) {
        const auto found = first.find(what);
        return found != first.end() && found->second < step;
    }

    Steps installed;
    Steps ended;
    Steps stopped; // programs, by their names
    Steps made;    // files
    std::string commands;
};

/// The programs of the services that are installed, as far as the steps were gone through; empty for
/// a unit file.
using Programs = std::map<std::string, std::string>;

void Note(const KPlanStep& step, Programs& programs) {
    if (step.action->kind == Kind::InstallService) {
        programs[std::string(step.path)] = NormalPath(*step.action->source);
    }
}

std::string ProgramOf(const Programs& programs, const std::string& service) {
    const auto known = programs.find(service);
    return known != programs.end() ? known->second : "";
}

/// Why a service's program cannot be run in the end; empty when nothing is known against it.
KText WhyNoProgram(const KCheckContext& context, const std::string& program) {
    const KPlannedEntry entry = context.GetAfterInstall().FindTarget(program);
    if (entry.kind == KEntryKind::Nothing) {
        return IsAtOrBelow(program, NormalPath(context.GetProductPath()))
                   ? Text("no rule makes the program \"%s\"", program)
                   : ""; // the system's, perhaps
    }
    constexpr unsigned executable = 0111;
    return entry.kind == KEntryKind::File && (entry.mode & executable) != 0
               ? ""
               : Text("\"%s\" is not executable", program);
}

/// What takes something away from a service, if only a part of what systemd.exec(5) has for it.
constexpr std::array confinements = std::to_array<const char*>({
    "User",
    "DynamicUser",
    "ProtectSystem",
    "ProtectHome",
    "PrivateTmp",
    "PrivateDevices",
    "PrivateUsers",
    "NoNewPrivileges",
    "CapabilityBoundingSet",
    "SystemCallFilter",
    "RestrictAddressFamilies",
    "RestrictNamespaces",
    "RootDirectory",
    "RootImage",
});

/// Of one key the last line counts. An empty CapabilityBoundingSet is the strictest.
bool Confines(const std::string& unit, const std::string& key) {
    const std::vector<std::string> values = KSYS::UnitValues(unit, "Service", key);
    if (values.empty()) {
        return false;
    }
    const std::string value = Lowered(values.back());
    static constexpr std::array none =
        std::to_array<std::string_view>({"no", "false", "off", "0", "root"});
    return (!value.empty() || key == "CapabilityBoundingSet") &&
           std::find(none.begin(), none.end(), value) == none.end();
}

/// Of a unit file that is not the kit's nothing is known.
bool RunsAsRootUnconfined(const KCheckContext& context, const KPlanStep& install) {
    if (!install.action->source->empty()) {
        return true; // by a unit file that names the program and no more
    }
    const std::string path = context.GetAfterInstall().GetContent(
        "/etc/systemd/system/" + std::string(install.path) + ".service"
    );
    std::ifstream file(path, std::ios::binary);
    const std::string unit{std::istreambuf_iterator<char>(file), {}};
    return IsAtOrBelow(path, context.GetKitDirectory()) && file.is_open() &&
           std::none_of(confinements.begin(), confinements.end(), [&](const char* key) {
               return Confines(unit, key);
           });
}

} // namespace

Findings FailingServices(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const bool isKnown = IsService(rule, KRuleOperation::Install) ||
                             IsService(rule, KRuleOperation::Start) ||
                             IsService(rule, KRuleOperation::Stop);
        const KText why = isKnown ? WhyRefused(rule) : "";
        if (!why.empty()) {
            const bool isName = !KSYS::WhyNotAServiceName(rule.fields[1]).empty();
            found.push_back(context.AtField(
                rule.line,
                isName ? 1 : 3,
                why,
                isName ? Text("choose a name of letters, digits and \"-\"")
                       : Text("write service=install,NAME,DISPLAY NAME,PROGRAM,ARGUMENTS, with an "
                              "absolute path and closed quotes")
            ));
        }
    }
    const std::vector<KPlanStep>& steps = context.GetInstallSteps();
    const FirstSteps first(steps);
    for (std::size_t index = 0; index < steps.size(); ++index) {
        const KPlanStep& step = steps[index];
        const bool isEarly =
            (step.action->kind == Kind::StartService || step.action->kind == Kind::StopService) &&
            !step.commandRan && !first.InstallsBefore(step.path, index) &&
            first.Installs(step.path);
        if (isEarly && !step.action->obstacle.empty() &&
            KSYS::WhyNotAServiceName(step.path).empty()) {
            const bool isStop = step.action->kind == Kind::StopService;
            found.push_back(context.AtField(
                step.rule->rule.line,
                1,
                Text(
                    "a first install has no service %s here: it is installed only by a later line, "
                    "so this fails",
                    step.path
                ),
                isStop ? Text(
                             "write service=remove,%s here, which stops it too and does not fail "
                             "where there is none",
                             step.path
                         )
                       : Text("move it behind the line that installs the service")
            ));
        }
    }
    return found;
}

Findings UnknownServices(const KCheckContext& context) {
    const std::set<std::string> installed = InstalledBySomeLine(context);
    Findings found;
    for (const KPlan* plan : {&context.GetInstall(), &context.GetRemove()}) {
        const KPlanSteps steps(*plan);
        for (const KPlanStep& step : steps.Get()) {
            const bool isAsked =
                step.action->kind == Kind::StartService || step.action->kind == Kind::StopService;
            if (!isAsked || step.commandRan || !KSYS::WhyNotAServiceName(step.path).empty() ||
                installed.contains(std::string(step.path)) ||
                HasUnitFile(context, std::string(step.path))) {
                continue;
            }
            found.push_back(context.AtField(
                step.rule->rule.line,
                1,
                Text(
                    "no rule installs a service %s, and this machine has none of that name: where "
                    "there is none, this fails",
                    step.path
                ),
                Text("install it before by service=install, or use the name of the one that is "
                     "installed")
            ));
        }
    }
    return found;
}

Findings ServicePrograms(const KCheckContext& context) {
    const std::vector<KPlanStep>& steps = context.GetInstallSteps();
    const FirstSteps first(steps);
    Programs programs;
    Findings found;
    for (std::size_t index = 0; index < steps.size(); ++index) {
        const KPlanStep& step = steps[index];
        Note(step, programs);
        const bool isStart = step.action->kind == Kind::StartService;
        const std::string program = isStart ? ProgramOf(programs, std::string(step.path))
                                    : step.action->kind == Kind::InstallService
                                        ? NormalPath(*step.action->source)
                                        : "";
        if (!program.starts_with('/') || steps.back().commandRan || step.commandRan) {
            continue;
        }
        const bool isLate = first.Makes(program) && !first.MakesBefore(program, index);
        const KText why = isLate ? Text("the program \"%s\" is made only by a later line", program)
                          : isStart ? ""
                                    : WhyNoProgram(context, program);
        if (!why.empty()) {
            found.push_back(context.AtField(
                step.rule->rule.line,
                isStart ? 1 : 3,
                Text("%s, so the service cannot start", why),
                isLate ? Text("move this line behind it")
                       : Text("copy an executable file there, or name the one that is copied")
            ));
        }
    }
    return found;
}

Findings RunningServices(const KCheckContext& context) {
    const std::vector<KPlanStep>& steps = context.GetInstallSteps();
    const FirstSteps first(steps);
    Programs programs;
    Findings found;
    for (std::size_t index = 0; index < steps.size(); ++index) {
        const KPlanStep& step = steps[index];
        Note(step, programs);
        if (step.action->kind != Kind::StartService) {
            continue;
        }
        const std::string program = ProgramOf(programs, std::string(step.path));
        if (first.MakesBefore(program, index) && !first.EndsBefore(step.path, program, index)) {
            found.push_back(context.AtField(
                step.rule->rule.line,
                1,
                Text(
                    "in an upgrade the service %s runs, and this leaves it running with its former "
                    "program",
                    step.path
                ),
                Text(
                    "write service=remove,%s in front of the copies: it stops the service, and "
                    "does not fail where there is none",
                    step.path
                )
            ));
        }
    }
    return found;
}

Findings UnconfinedServices(const KCheckContext& context) {
    Findings found;
    for (const KPlanStep& step : context.GetInstallSteps()) {
        if (step.action->kind == Kind::InstallService && step.action->obstacle.empty() &&
            !step.commandRan && RunsAsRootUnconfined(context, step)) {
            found.push_back(context.AtField(
                step.rule->rule.line,
                1,
                Text("the service %s runs as root, and nothing confines it", step.path),
                Text("bring a unit file with User= and settings as ProtectSystem=strict, by "
                     "config=replace into /etc/systemd/system and service=install,NAME; "
                     "\"ins-setup kit new --service\" writes one")
            ));
        }
    }
    return found;
}

} // namespace KSETUP::Checks
