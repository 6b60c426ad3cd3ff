// SPDX-License-Identifier: MIT
#include <setup/state/KBackupIndex.h>
#include <setup/state/KJsonLine.h>
#include <setup/state/LinePieces.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace KSETUP {

namespace {

using Kind = KBackupEntry::Kind;
constexpr const char* format = "ins++ backup";
constexpr std::uint64_t formatVersion = 2;
constexpr std::array kinds = std::to_array<std::pair<Kind, const char*>>({
    {Kind::Nothing, "nothing"},
    {Kind::File, "file"},
    {Kind::Directory, "directory"},
    {Kind::Link, "link"},
});

bool IsSameTime(const timespec& left, const timespec& right) noexcept {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

/// Before 1970 it is negative: the conversion and the one back keep the bits.
void PutTime(KJsonLine& line, const std::string& key, const timespec& time) {
    line.Put(key, static_cast<std::uint64_t>(time.tv_sec));
    line.Put(key + "Ns", static_cast<std::uint64_t>(time.tv_nsec));
}

timespec GetTime(const KJsonLine& line, const std::string& key) {
    timespec time{};
    time.tv_sec = static_cast<time_t>(line.GetNumber(key));
    time.tv_nsec = static_cast<long>(line.GetNumber(key + "Ns") % 1000000000U);
    return time;
}

KJsonLine ToIndexLine(const std::string& path, const KBackupEntry& entry) {
    KJsonLine line;
    line.Put("path", path);
    for (const auto& [kind, word] : kinds) {
        if (kind == entry.kind) {
            line.Put("kind", word);
        }
    }
    if (entry.kind != Kind::Nothing) {
        line.Put("mode", std::uint64_t{entry.mode});
        line.Put("owner", std::uint64_t{entry.owner});
        line.Put("group", std::uint64_t{entry.group});
        line.Put("inode", entry.inode);
        PutTime(line, "changed", entry.changed);
        PutTime(line, "statusChanged", entry.statusChanged);
    }
    if (entry.kind == Kind::Link) {
        line.Put("target", entry.target);
    }
    if (entry.kind == Kind::File) {
        line.Put("size", entry.size);
        line.Put("sha256", entry.digest);
    }
    if (!entry.stored.empty()) {
        line.Put("stored", entry.stored);
    }
    return line;
}

Kind ToKind(const std::string& word) {
    const auto* const found = std::find_if(kinds.begin(), kinds.end(), [&](const auto& one) {
        return word == one.second;
    });
    if (found == kinds.end()) {
        throw std::invalid_argument("the unknown kind \"" + word + "\"");
    }
    return found->first;
}

KBackupEntry ToEntry(const KJsonLine& line) {
    KBackupEntry entry;
    entry.kind = ToKind(line.GetText("kind"));
    if (entry.kind != Kind::Nothing) {
        entry.mode = static_cast<unsigned>(line.GetNumber("mode") & 07777U);
        entry.owner = static_cast<uid_t>(line.GetNumber("owner"));
        entry.group = static_cast<gid_t>(line.GetNumber("group"));
        entry.inode = line.GetNumber("inode");
        entry.changed = GetTime(line, "changed");
        entry.statusChanged = GetTime(line, "statusChanged");
    }
    if (entry.kind == Kind::Link) {
        entry.target = line.GetText("target");
    }
    if (entry.kind == Kind::File) {
        entry.size = line.GetNumber("size");
        entry.digest = line.GetText("sha256");
    }
    if (line.Has("stored")) {
        entry.stored = line.GetText("stored");
        if (entry.stored.empty() ||
            entry.stored.find_first_not_of("0123456789") != std::string::npos) {
            throw std::invalid_argument("a kept file of the name \"" + entry.stored + "\"");
        }
    }
    return entry;
}

/// Takes one line behind the first in; says whether it is the last one.
bool Take(const KJsonLine& line, KBackupIndex& index) {
    if (line.Has("entries")) {
        if (line.GetNumber("entries") != index.entries.size()) {
            throw std::invalid_argument("some of it is missing");
        }
        return true;
    }
    if (line.Has("service")) {
        KServiceBefore service{line.GetText("service"), std::nullopt, line.Has("installed")};
        if (line.Has("ran")) {
            service.ran = line.GetNumber("ran") != 0;
        }
        index.services.push_back(std::move(service));
        return false;
    }
    const std::string path = line.GetText("path");
    if (path.empty() || path.front() != '/') {
        throw std::invalid_argument("a path that is not absolute");
    }
    index.entries[path] = ToEntry(line);
    return false;
}

void TakeHead(const KJsonLine& line, KBackupIndex& index) {
    if (!line.Has("format") || line.GetText("format") != format ||
        line.GetNumber("formatVersion") != formatVersion) {
        throw std::invalid_argument("written by another version of the program");
    }
    index.run = line.GetText("run");
    index.hasCommands = line.Has("commands");
}

} // namespace

bool KBackupEntry::HasContentOf(const KBackupEntry& other) const noexcept {
    return kind == other.kind && size == other.size && digest == other.digest &&
           target == other.target;
}

bool KBackupEntry::IsUntouched(const KBackupEntry& before) const noexcept {
    return kind == before.kind && inode == before.inode && size == before.size &&
           IsSameTime(statusChanged, before.statusChanged);
}

KSYS::PieceSource ToPieces(const KBackupIndex& index) {
    KJsonLine head;
    head.Put("format", format);
    head.Put("formatVersion", formatVersion);
    head.Put("run", index.run);
    if (index.hasCommands) {
        head.Put("commands", std::uint64_t{1});
    }
    std::string last;
    for (const KServiceBefore& service : index.services) {
        KJsonLine line;
        line.Put("service", service.name);
        if (service.ran) {
            line.Put("ran", std::uint64_t{*service.ran ? 1U : 0U});
        }
        if (service.isInstalled) {
            line.Put("installed", std::uint64_t{1});
        }
        last += line.ToText();
    }
    KJsonLine end;
    end.Put("entries", std::uint64_t{index.entries.size()});
    last += end.ToText();
    const auto toLine = [](const auto& one) { return ToIndexLine(one.first, one.second).ToText(); };
    return LinePieces(head.ToText(), index.entries, toLine, std::move(last));
}

KBackupIndex ToBackupIndex(const std::string& text) {
    KBackupIndex index;
    bool hasHead = false;
    bool complete = false;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const KJsonLine line(std::string_view(text).substr(at, end - at));
        at = end + 1;
        if (complete) {
            throw std::invalid_argument("more than its last line");
        }
        if (!hasHead) {
            TakeHead(line, index);
            hasHead = true;
        } else {
            complete = Take(line, index);
        }
    }
    if (!complete) {
        throw std::invalid_argument("its end is missing");
    }
    return index;
}

} // namespace KSETUP
