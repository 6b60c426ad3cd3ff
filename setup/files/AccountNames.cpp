// SPDX-License-Identifier: MIT
#include <setup/files/AccountNames.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string_view>
#include <vector>

#include <grp.h>
#include <nss.h>
#include <pwd.h>
#include <sys/processes/OwnProcess.h>

namespace KSETUP {

namespace {

constexpr std::size_t mostLetters = 31;
constexpr std::size_t mostRoom = std::size_t{1} << 20U; // for the members of a group

// What base-passwd lays down.
constexpr std::array systemUsers = std::to_array<std::string_view>(
    {"root",
     "daemon",
     "bin",
     "sys",
     "sync",
     "games",
     "man",
     "lp",
     "mail",
     "news",
     "uucp",
     "proxy",
     "www-data",
     "backup",
     "list",
     "irc",
     "nobody"}
);
constexpr std::array systemGroups = std::to_array<std::string_view>(
    {"root",   "daemon",   "bin",    "sys",   "adm",   "tty",    "disk",    "lp",
     "mail",   "news",     "uucp",   "man",   "proxy", "kmem",   "dialout", "fax",
     "voice",  "cdrom",    "floppy", "tape",  "sudo",  "audio",  "dip",     "www-data",
     "backup", "operator", "list",   "irc",   "src",   "shadow", "utmp",    "video",
     "sasl",   "plugdev",  "staff",  "games", "users", "nogroup"}
);

std::atomic<bool> areLocalChosen{false};

bool IsLetter(char byte) noexcept {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte == '_';
}

bool IsDigit(char byte) noexcept {
    return byte >= '0' && byte <= '9';
}

/// Asks the database with as much room as it needs. Nothing for what there is not.
template <class Entry, class Ask>
bool AskFor(std::vector<char>& room, Entry& entry, Ask ask) {
    room.resize(1024);
    Entry* found = nullptr;
    int status = ask(&entry, room.data(), room.size(), &found);
    while (status == ERANGE && room.size() < mostRoom) {
        room.resize(room.size() * 2);
        status = ask(&entry, room.data(), room.size(), &found);
    }
    return status == 0 && found != nullptr;
}

} // namespace

bool IsAccountNumber(const std::string& text) noexcept {
    // The last one means "leave it" to chown(2).
    return !text.empty() && text.size() <= 10 && std::all_of(text.begin(), text.end(), IsDigit) &&
           std::stoull(text) < UINT32_MAX;
}

bool IsAccountName(const std::string& name) noexcept {
    return !name.empty() && name.size() <= mostLetters && IsLetter(name.front()) &&
           std::all_of(name.begin(), name.end(), [](char byte) {
               return IsLetter(byte) || IsDigit(byte) || byte == '-';
           });
}

void UseLocalAccounts() {
    for (const char* database : {"passwd", "group"}) {
        // Fails only for a database that is none.
        static_cast<void>(::__nss_configure_lookup(database, "files"));
    }
    areLocalChosen = true;
    // C libraries before 2.34 have a module for files too, which is loaded with the first question.
    static_cast<void>(UserName(0));
    static_cast<void>(GroupName(0));
}

bool KnowsLocalAccountsOnly() noexcept {
    return areLocalChosen || KSYS::IsStartedByLoader();
}

std::optional<uid_t> FindUser(const std::string& nameOrNumber) {
    if (IsAccountNumber(nameOrNumber)) {
        return static_cast<uid_t>(std::stoul(nameOrNumber));
    }
    passwd entry{};
    std::vector<char> room;
    const bool isFound =
        AskFor(room, entry, [&](passwd* to, char* at, std::size_t size, passwd** found) {
            return ::getpwnam_r(nameOrNumber.c_str(), to, at, size, found);
        });
    return isFound ? std::optional(entry.pw_uid) : std::nullopt;
}

std::optional<gid_t> FindGroup(const std::string& nameOrNumber) {
    if (IsAccountNumber(nameOrNumber)) {
        return static_cast<gid_t>(std::stoul(nameOrNumber));
    }
    group entry{};
    std::vector<char> room;
    const bool isFound =
        AskFor(room, entry, [&](group* to, char* at, std::size_t size, group** found) {
            return ::getgrnam_r(nameOrNumber.c_str(), to, at, size, found);
        });
    return isFound ? std::optional(entry.gr_gid) : std::nullopt;
}

std::string UserName(uid_t user) {
    passwd entry{};
    std::vector<char> room;
    const bool isFound =
        AskFor(room, entry, [&](passwd* to, char* at, std::size_t size, passwd** found) {
            return ::getpwuid_r(user, to, at, size, found);
        });
    return isFound ? entry.pw_name : std::to_string(user);
}

std::string GroupName(gid_t wanted) {
    group entry{};
    std::vector<char> room;
    const bool isFound =
        AskFor(room, entry, [&](group* to, char* at, std::size_t size, group** found) {
            return ::getgrgid_r(wanted, to, at, size, found);
        });
    return isFound ? entry.gr_name : std::to_string(wanted);
}

bool IsSystemUser(const std::string& name) {
    return std::find(systemUsers.begin(), systemUsers.end(), name) != systemUsers.end();
}

bool IsSystemGroup(const std::string& name) {
    return std::find(systemGroups.begin(), systemGroups.end(), name) != systemGroups.end();
}

} // namespace KSETUP
