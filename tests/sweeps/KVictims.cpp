// SPDX-License-Identifier: MIT
#include "KVictims.h"

#include "Files.h"
#include "KSwapper.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace KSWEEP {

namespace {

namespace fs = std::filesystem;

constexpr const char* victims = "/srv/victim";
constexpr const char* secret = "[General]\nLevel=SECRET-OF-ROOT\n";
constexpr const char* lure = "#!/bin/sh\n# BAIT\n";

bool IsDirectory(const std::string& line) { // of a look
    return line.starts_with("04");
}

KLook LookAtVictims() {
    KLook look;
    const auto add = [&](const std::string& path) {
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0) {
            return;
        }
        std::array<char, 64> head{};
        std::snprintf(
            head.data(), head.size(), "%06o %u:%u ", status.st_mode, status.st_uid, status.st_gid
        );
        const bool isFile = S_ISREG(status.st_mode);
        look[path] = head.data() + (isFile ? std::to_string(status.st_nlink) + Read(path) : "");
    };
    add(victims);
    for (const auto& entry : fs::recursive_directory_iterator(victims)) {
        add(entry.path());
    }
    return look;
}

std::string FindLeak(const fs::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return {};
    }
    const bool isReadable = (status.st_mode & S_IROTH) != 0 || status.st_uid == sweeper ||
                            (status.st_gid == sweeper && (status.st_mode & S_IRGRP) != 0);
    const bool isSetId = (status.st_mode & (S_ISUID | S_ISGID)) != 0 && status.st_uid != sweeper;
    if (!isReadable && !isSetId) {
        return {};
    }
    const std::string bytes = Read(path);
    if (isReadable && bytes.find("SECRET-OF-ROOT") != std::string::npos) {
        return path.string() + " tells the secret";
    }
    return isSetId && bytes.find("BAIT") != std::string::npos
               ? path.string() + " is the user's and runs as " + std::to_string(status.st_uid)
               : "";
}

} // namespace

KVictims::KVictims(std::vector<KLook> looks) : names(std::move(looks)) {}

std::string KVictims::Of(const std::string& path) {
    return victims + path;
}

void KVictims::Make() {
    fs::remove_all(victims);
    for (const KLook& look : names) {
        for (const auto& [path, line] : look) {
            const std::string victim = Of(path);
            fs::create_directories(
                IsDirectory(line) ? fs::path(victim) : fs::path(victim).parent_path()
            );
            if (!IsDirectory(line)) {
                fs::remove(victim);
                Write(victim, secret, S_IRUSR | S_IWUSR);
            }
        }
    }
    for (const auto& entry : fs::recursive_directory_iterator(victims)) {
        if (entry.is_directory()) {
            ::chmod(entry.path().c_str(), S_IRWXU);
        }
    }
    ::chmod(victims, S_IRWXU);
    asMade = LookAtVictims();
}

void KVictims::LayBait(const std::string& path, const std::string& bait) const {
    fs::remove_all(bait);
    const std::string victim = Of(path);
    fs::copy(victim, bait, fs::copy_options::recursive);
    const auto give = [](const std::string& one) {
        if (!fs::is_directory(one)) {
            Write(one, lure, S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH);
        }
        if (::chown(one.c_str(), sweeper, sweeper) != 0) {
            throw std::system_error(errno, std::generic_category(), one);
        }
    };
    give(bait);
    if (fs::is_directory(bait)) {
        for (const auto& entry : fs::recursive_directory_iterator(bait)) {
            give(entry.path());
        }
    }
}

std::string KVictims::FindEscape(const std::vector<std::string>& places) const {
    if (const KLook look = LookAtVictims(); look != asMade) {
        return "what is root's was changed" + Difference(asMade, look);
    }
    for (const std::string& place : places) {
        if (!fs::is_directory(fs::symlink_status(place))) {
            if (std::string leak = FindLeak(place); !leak.empty()) {
                return leak;
            }
            continue;
        }
        for (const auto& entry : fs::recursive_directory_iterator(place)) {
            if (std::string leak = FindLeak(entry.path()); !leak.empty()) {
                return leak;
            }
        }
    }
    return {};
}

} // namespace KSWEEP
