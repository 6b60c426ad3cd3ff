// SPDX-License-Identifier: MIT
#include <setup/plan/KPlan.h>
#include <setup/plan/KPlannedServices.h>

#include <array>
#include <fstream>

#include <sys/services/KServiceError.h>
#include <sys/services/UnitText.h>

namespace KSETUP {

namespace {

constexpr const char* ownDirectory = "/etc/systemd/system/";

/// Where unit files are, in the order in which systemd looks.
constexpr std::array unitDirectories = std::to_array<const char*>({
    ownDirectory,
    "/run/systemd/system/",
    "/usr/local/lib/systemd/system/",
    "/lib/systemd/system/",
    "/usr/lib/systemd/system/",
});

/// What systemd knows besides: units of its generators, as those for /etc/init.d, and of programs.
constexpr std::array madeUnitDirectories = std::to_array<const char*>({
    "/run/systemd/generator/",
    "/run/systemd/generator.early/",
    "/run/systemd/generator.late/",
    "/run/systemd/transient/",
});

constexpr std::string_view marker = "# Installed by Ins++"; // at the begin of a unit file of ours

std::string OwnUnit(const std::string& name) {
    return ownDirectory + name + ".service";
}

/// The unit file of the template that an instance is made from; empty for what is no instance.
std::string TemplateOf(const std::string& name) {
    const std::size_t at = name.find('@');
    return at == std::string::npos ? "" : name.substr(0, at + 1) + ".service";
}

} // namespace

KPlannedServices::KPlannedServices(KPlannedTree& plannedTree, KServiceFate servicesFate)
    : tree(plannedTree),
      fate(servicesFate) {}

std::string KPlannedServices::FindUnit(const std::string& name) const {
    for (const char* directory : unitDirectories) {
        std::string path = directory + name + ".service";
        if (tree.Exists(path)) {
            return path;
        }
    }
    return "";
}

bool KPlannedServices::IsOurs(const std::string& name) const {
    const std::string path = OwnUnit(name);
    const KPlannedEntry entry = tree.Find(path);
    if (entry.kind != KEntryKind::File) { // a link is somebody else's, too
        return false;
    }
    if (entry.isOurUnit) {
        return true;
    }
    std::ifstream file(tree.GetContent(path), std::ios::binary);
    std::string line;
    return std::getline(file, line) && line.starts_with(marker);
}

KText KPlannedServices::WhyUnknown(const std::string& name) const {
    if (const std::string why = KSYS::WhyNotAServiceName(name); !why.empty()) {
        return Text("\"%s\" cannot be the name of a service: %s", name, why);
    }
    if (commandRan || !FindUnit(name).empty()) {
        return "";
    }
    const std::string source = TemplateOf(name);
    for (const char* directory : unitDirectories) {
        if (!source.empty() && tree.Exists(directory + source)) {
            return "";
        }
    }
    for (const char* directory : madeUnitDirectories) {
        if (fate == KServiceFate::Managed && tree.Exists(directory + name + ".service")) {
            return "";
        }
    }
    return "there is no service " + name + " by then";
}

KText KPlannedServices::Install(
    const std::string& name,
    const std::string& displayName,
    const std::string& program,
    const std::string& arguments
) {
    if (const std::string why = KSYS::WhyNotAServiceName(name); !why.empty()) {
        return Text("\"%s\" cannot be the name of a service: %s", name, why);
    }
    const std::string found = FindUnit(name);
    const std::string link = "/etc/" + name + "/" + name;
    if (program.empty() && !found.empty()) {
        return tree.Find(found).GetTarget() == "/dev/null" ? Text("%s: the unit is masked", found)
                                                           : "";
    }
    if (program.empty() && !tree.Exists(link) && !commandRan) {
        return Text(
            "no program is given for %s, and there is neither a unit file nor the link %s",
            name,
            link
        );
    }
    if (!found.empty() && !IsOurs(name)) {
        return Text("there is a unit file that is not ours, and it stays as it is: %s", found);
    }
    const std::string& chosen = program.empty() ? link : program;
    if (KText why = WhyNotAUnit(displayName, chosen, arguments); !why.empty()) {
        return why;
    }
    if (found.empty()) {
        atRest.insert(name);
    }
    KPlannedEntry unit;
    unit.kind = KEntryKind::File;
    unit.mode = 0644;
    unit.isOurUnit = true;
    tree.Put(OwnUnit(name), unit);
    programs[name] = chosen;
    return "";
}

/// A service that runs already is left as it is, whatever became of its program.
KText KPlannedServices::WhyProgramCannotRun(const std::string& name) const {
    const auto program = programs.find(name);
    if (program == programs.end() || !atRest.contains(name) || commandRan ||
        fate == KServiceFate::Offline) {
        return "";
    }
    const KPlannedEntry entry = tree.FindTarget(program->second);
    const KText what = Text("the program of %s, %s", name, program->second);
    constexpr unsigned executable = 0111;
    return entry.kind == KEntryKind::Nothing ? Text("%s, is missing by then", what)
           : entry.kind != KEntryKind::File  ? Text("%s, is no file", what)
           : (entry.mode & executable) == 0  ? Text("%s, is not executable", what)
                                             : "";
}

KText KPlannedServices::Start(const std::string& name) {
    KText why = WhyUnknown(name);
    why = why.empty() ? WhyProgramCannotRun(name) : why;
    atRest.erase(name);
    return why;
}

KText KPlannedServices::Stop(const std::string& name) {
    KText why = WhyUnknown(name);
    if (why.empty()) {
        atRest.insert(name);
    }
    return why;
}

void KPlannedServices::Remove(const std::string& name) {
    if (!KSYS::WhyNotAServiceName(name).empty()) {
        return;
    }
    if (IsOurs(name)) {
        tree.Remove(OwnUnit(name));
    }
    programs.erase(name);
    atRest.insert(name);
}

KText WhyNotAUnit(
    const std::string& displayName, const std::string& program, const std::string& arguments
) {
    try {
        static_cast<void>(KSYS::UnitText(displayName, program, arguments));
        return {};
    } catch (const KSYS::KServiceError& error) {
        return error.what();
    }
}

} // namespace KSETUP
