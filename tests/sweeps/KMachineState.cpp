// SPDX-License-Identifier: MIT
#include "KMachineState.h"

#include "Files.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include <sys/stat.h>

namespace KSWEEP {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t longestShown = 120; // bytes of a file in a difference

std::string EntryLine(const fs::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    std::array<char, 64> head{};
    std::snprintf(
        head.data(), head.size(), "%06o %u:%u ", status.st_mode, status.st_uid, status.st_gid
    );
    if (S_ISLNK(status.st_mode)) {
        return head.data() + fs::read_symlink(path).string();
    }
    if (!S_ISREG(status.st_mode)) {
        return head.data();
    }
    return head.data() + ReadSteady(path);
}

std::string Shown(const std::string& line, std::size_t from = 0) {
    std::string text = line.substr(from, longestShown);
    for (char& letter : text) {
        letter = static_cast<unsigned char>(letter) < ' ' ? ' ' : letter;
    }
    return text;
}

} // namespace

KMachineState::KMachineState(
    std::string itsService, std::string itsProduct, std::string itsStore, std::string itsPath
)
    : service(std::move(itsService)),
      product(std::move(itsProduct)),
      store(std::move(itsStore)),
      path(itsPath.empty() ? "/opt/" + service : std::move(itsPath)) {
    fs::create_directories(store);
}

std::vector<std::string> KMachineState::Places() const {
    return {
        path,
        "/etc/" + service,
        "/etc/systemd/system",
        "/srv/elsewhere",
        "/usr/lib/sysusers.d",
        "/var/lib/ins++",
        "/etc/passwd",
        "/etc/group",
        "/etc/shadow",
        "/etc/gshadow",
        "/var/log/" + product + " Setup Log.txt",
        "/var/log/" + product + " Setup Commands.txt"};
}

KLook KMachineState::Look() const {
    return LookAt(false);
}

std::string KMachineState::Summary() const {
    std::string all;
    for (const auto& [path, line] : LookAt(true)) {
        all += path + '\0' + line + '\0';
    }
    return std::to_string(all.size()) + " " + std::to_string(std::hash<std::string>()(all));
}

KLook KMachineState::LookAt(bool withBackup) const {
    KLook look;
    for (const std::string& place : Places()) {
        std::error_code missing;
        const auto status = fs::symlink_status(place, missing);
        if (!fs::exists(status) || place.starts_with("/var/log/")) {
            continue;
        }
        look[place] = EntryLine(place);
        if (!fs::is_directory(status)) {
            continue;
        }
        for (fs::recursive_directory_iterator entry(place), end; entry != end; ++entry) {
            look[entry->path()] = EntryLine(entry->path());
            if (!withBackup &&
                entry->path() == StateDirectory() + "/backup") { // tried by what it is for
                entry.disable_recursion_pending();
            }
        }
    }
    return look;
}

void KMachineState::Keep(const std::string& name) const {
    const std::string kept = store + "/" + name;
    std::string line = "rm -rf '" + kept + "'; mkdir -p '" + kept + "'; cd / ";
    for (const std::string& place : Places()) {
        line += "; if [ -e '" + place + "' ]; then cp -a --parents '" + place.substr(1) + "' '" +
                kept + "' || exit 1; fi";
    }
    Shell(line);
}

void KMachineState::PutBack(const std::string& name) const {
    std::string line = "rm -rf";
    for (const std::string& place : Places()) {
        line += " '" + place + "'";
    }
    Shell(line + " && cp -a '" + store + "/" + name + "/.' /");
}

KLook ProductOf(KLook look) {
    std::erase_if(look, [](const auto& one) {
        const std::string& path = one.first;
        return path.starts_with("/var/lib/ins++") || path == "/etc/passwd" ||
               path == "/etc/group" || path == "/etc/shadow" || path == "/etc/gshadow";
    });
    return look;
}

std::string Difference(const KLook& expected, const KLook& got, std::size_t most) {
    std::string text;
    const auto add = [&](const char* mark, const auto& one, std::size_t from = 0) {
        if (most > 0) {
            text +=
                std::string("\n        ") + mark + " " + one.first + "  " + Shown(one.second, from);
            --most;
        }
    };
    for (const auto& one : expected) {
        if (const auto found = got.find(one.first); found == got.end()) {
            add("missing", one);
        } else if (found->second != one.second) {
            const std::string& is = found->second;
            const auto differ =
                std::mismatch(one.second.begin(), one.second.end(), is.begin(), is.end());
            const auto same = static_cast<std::size_t>(differ.first - one.second.begin());
            const std::size_t from = same > longestShown / 2 ? same - longestShown / 2 : 0;
            add("expected", one, from);
            add("but is  ", *found, from);
        }
    }
    for (const auto& one : got) {
        if (!expected.contains(one.first)) {
            add("left    ", one);
        }
    }
    return text;
}

} // namespace KSWEEP
