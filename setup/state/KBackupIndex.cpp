// SPDX-License-Identifier: MIT
#include <setup/state/KBackupIndex.h>
#include <setup/state/KJsonLine.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace KSETUP {

namespace {

using Kind = KBackupEntry::Kind;
constexpr std::array kinds = std::to_array<std::pair<Kind, const char*>>({
    {Kind::Nothing, "nothing"},
    {Kind::File, "file"},
    {Kind::Directory, "directory"},
    {Kind::Link, "link"},
});

KJsonLine ToLine(const std::string& path, const KBackupEntry& entry) {
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
        // Before 1970 it is negative: the conversion and the one back keep the bits.
        line.Put("changed", static_cast<std::uint64_t>(entry.changed.tv_sec));
        line.Put("changedNs", static_cast<std::uint64_t>(entry.changed.tv_nsec));
    }
    if (entry.kind == Kind::Link) {
        line.Put("target", entry.target);
    }
    if (entry.kind == Kind::File) {
        line.Put("stored", entry.stored);
    }
    return line;
}

KBackupEntry ToEntry(const KJsonLine& line) {
    KBackupEntry entry;
    const std::string word = line.GetText("kind");
    const auto* const found = std::find_if(kinds.begin(), kinds.end(), [&](const auto& one) {
        return word == one.second;
    });
    if (found == kinds.end()) {
        throw std::invalid_argument("the unknown kind \"" + word + "\"");
    }
    entry.kind = found->first;
    if (entry.kind != Kind::Nothing) {
        entry.mode = static_cast<unsigned>(line.GetNumber("mode") & 07777U);
        entry.owner = static_cast<uid_t>(line.GetNumber("owner"));
        entry.group = static_cast<gid_t>(line.GetNumber("group"));
        entry.changed.tv_sec = static_cast<time_t>(line.GetNumber("changed"));
        entry.changed.tv_nsec = static_cast<long>(line.GetNumber("changedNs") % 1000000000U);
    }
    if (entry.kind == Kind::Link) {
        entry.target = line.GetText("target");
    }
    if (entry.kind == Kind::File) {
        entry.stored = line.GetText("stored");
        if (entry.stored.empty() ||
            entry.stored.find_first_not_of("0123456789") != std::string::npos) {
            throw std::invalid_argument("a kept file of the name \"" + entry.stored + "\"");
        }
    }
    return entry;
}

} // namespace

std::string ToText(const KBackupIndex& index) {
    std::string text;
    for (const auto& [path, entry] : index) {
        text += ToLine(path, entry).ToText();
    }
    KJsonLine end;
    end.Put("entries", std::uint64_t{index.size()});
    return text + end.ToText();
}

KBackupIndex ToBackupIndex(const std::string& text) {
    KBackupIndex index;
    bool complete = false;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const KJsonLine line(std::string_view(text).substr(at, end - at));
        at = end + 1;
        if (complete) {
            throw std::invalid_argument("more than its last line");
        }
        if (line.Has("entries")) {
            complete = line.GetNumber("entries") == index.size();
        } else {
            const std::string path = line.GetText("path");
            if (path.empty() || path.front() != '/') {
                throw std::invalid_argument("a path that is not absolute");
            }
            index[path] = ToEntry(line);
        }
    }
    if (!complete) {
        throw std::invalid_argument("its end is missing");
    }
    return index;
}

} // namespace KSETUP
