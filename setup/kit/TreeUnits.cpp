// SPDX-License-Identifier: MIT
#include <setup/kit/KitFiles.h>
#include <setup/kit/TreeUnits.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>

namespace KSETUP {

namespace {

constexpr std::array unitDirectories{
    "etc/systemd/system", "lib/systemd/system", "usr/lib/systemd/system"};
constexpr std::string_view suffix = ".service";

/// What of a unit file decides about its rules.
struct Unit {
    bool isEnabled = false; ///< it says when it is to be started
    bool isOneShot = false;
    std::string program; ///< of the first command, a path
};

/// The program of a command line, without the characters that systemd takes in front of it.
std::string ProgramOf(std::string_view command) {
    command.remove_prefix(std::min(command.find_first_not_of("@-:+!|"), command.size()));
    command = command.substr(0, command.find_first_of(" \t"));
    const bool isQuoted = command.size() > 1 && command.front() == '"' && command.back() == '"';
    return std::string(isQuoted ? command.substr(1, command.size() - 2) : command);
}

Unit ReadUnit(const std::string& text) {
    Unit unit;
    std::string_view rest = text;
    std::string_view section;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        const std::string_view line = Trimmed(rest.substr(0, end), " \t\r");
        rest.remove_prefix(std::min(end + 1, rest.size()));
        const std::size_t equals = line.find('=');
        if (line.starts_with('[')) {
            section = line;
        } else if (equals != std::string_view::npos && !line.starts_with('#')) {
            const std::string_view key = Trimmed(line.substr(0, equals));
            const std::string_view value = Trimmed(line.substr(equals + 1));
            unit.isEnabled = unit.isEnabled || (section == "[Install]" && !value.empty() &&
                                                (key == "WantedBy" || key == "RequiredBy"));
            if (section == "[Service]" && key == "Type") {
                unit.isOneShot = value == "oneshot";
            } else if (section == "[Service]" && key == "ExecStart" && unit.program.empty()) {
                unit.program = ProgramOf(value);
            }
        }
    }
    return unit;
}

bool IsUnitOfService(std::string_view name) {
    constexpr std::string_view others = ":-_.\\";
    return !name.empty() && std::all_of(name.begin(), name.end(), [&](char letter) {
        const bool isLetter = (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z');
        return isLetter || (letter >= '0' && letter <= '9') ||
               others.find(letter) != std::string_view::npos;
    });
}

KText WhyNoRules(const KAddedTree& tree, const std::string& file, const Unit& unit) {
    if (!unit.isEnabled) {
        return Text(
            "%s says in no section [Install] when it is to be started, so it has no service rules: "
            "something else of the system is to start it.",
            file
        );
    }
    if (unit.program.starts_with('/') && tree.HasFile(unit.program.substr(1))) {
        return Text(
            "%s runs %s, and the tree is installed below the product path. So it has no service "
            "rules: let the unit name the program where it will be, and add the tree again.",
            file,
            unit.program
        );
    }
    return "";
}

} // namespace

std::vector<KTreeUnit> FindUnits(const KAddedTree& tree) {
    std::vector<KTreeUnit> units;
    for (const char* const directory : unitDirectories) {
        const auto found = tree.GetDirectories().find(directory);
        if (found == tree.GetDirectories().end()) {
            continue;
        }
        for (const KAddedTree::File& file : found->second.files) {
            const std::string_view name = file.name;
            if (!name.ends_with(suffix) ||
                !IsUnitOfService(name.substr(0, name.size() - suffix.size()))) {
                continue; // no service, or a template
            }
            const Unit unit =
                ReadUnit(ReadBytes(std::filesystem::path(tree.GetRoot()) / directory / file.name));
            KTreeUnit one;
            one.directory = directory;
            one.service = name.substr(0, name.size() - suffix.size());
            one.isStarted = !unit.isOneShot;
            one.objection = WhyNoRules(tree, std::string(directory) + "/" + file.name, unit);
            units.push_back(std::move(one));
        }
    }
    return units;
}

} // namespace KSETUP
