// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/TreeRules.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <string_view>
#include <vector>

namespace KSETUP {

namespace {

using Lines = std::vector<std::string>;

std::string BeginMark(const std::string& name) {
    return "; >>> kit add " + name;
}

std::string EndMark(const std::string& name) {
    return "; <<< kit add " + name;
}

std::string_view Trim(std::string_view line) noexcept {
    return Trimmed(line, " \t\r"); // also the end of a line that was written elsewhere
}

/// The name in a header; the view's data is null for a line that is none.
std::string_view HeaderOf(std::string_view line) noexcept {
    if (line.starts_with("\xEF\xBB\xBF")) { // a byte order mark, before the first line
        line.remove_prefix(3);
    }
    line = Trim(line);
    const bool isHeader = line.size() >= 2 && line.front() == '[' && line.back() == ']';
    return isHeader ? Trim(line.substr(1, line.size() - 2)) : std::string_view();
}

Lines Split(const std::string& text) {
    Lines lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

std::size_t FindLine(const Lines& lines, const std::string& wanted) {
    const auto found = std::find_if(lines.begin(), lines.end(), [&](const std::string& line) {
        return Trim(line) == wanted;
    });
    return static_cast<std::size_t>(found - lines.begin());
}

/// Where a directory's path ends in a separator, a blank before it cannot be lost at a line's end.
std::string Below(const char* base, const std::string& relative) {
    return relative.empty() ? base : base + relative + "/";
}

/// What the author's own rules put files into, and what they delete: the product path itself, and the
/// configuration. There only what came along is deleted.
bool IsShared(const std::string& relative) {
    return relative.empty() || relative == "config";
}

void AppendLink(std::string& text, const std::string& to, const auto& link) {
    const auto& [name, target] = link;
    std::string_view rest = target;
    while (rest.ends_with('/')) {
        rest.remove_suffix(1);
    }
    const std::size_t slash = rest.rfind('/');
    const std::string from = slash == std::string_view::npos ? "."
                             : slash == 0                    ? "/"
                                                             : std::string(rest.substr(0, slash));
    const std::string last(rest.substr(slash == std::string_view::npos ? 0 : slash + 1));
    text += "file=symlink," + last + "," + from + "," + to + "," + name + "\n";
}

std::string InstallRules(const KAddedTree& tree) {
    const std::string source =
        std::string("$pathSource$") + payloadDirectory + "/" + tree.GetName() + "/";
    std::string text;
    for (const auto& [path, directory] : tree.GetDirectories()) {
        text += "directory=create," + Below("$pathTarget$", path) + "\n";
    }
    for (const auto& [path, directory] : tree.GetDirectories()) {
        if (!directory.files.empty()) {
            text += "file=copy,*," + Below(source.c_str(), path) + "," +
                    Below("$pathTarget$", path) + "\n";
        }
    }
    for (const auto& [path, directory] : tree.GetDirectories()) {
        for (const auto& link : directory.links) {
            AppendLink(text, Below("$pathTarget$", path), link);
        }
    }
    return text;
}

std::string RemovalRules(const KAddedTree& tree) {
    std::string text;
    const auto& directories = tree.GetDirectories();
    for (auto at = directories.rbegin(); at != directories.rend(); ++at) {
        const auto& [path, directory] = *at;
        const std::string target = Below("$pathTarget$", path);
        if (!IsShared(path)) {
            text += "file=delete,*," + target + "\ndirectory=delete," + target + "\n";
            continue;
        }
        for (const std::string& name : directory.files) {
            text += "file=delete," + name + "," + target + "\n";
        }
        for (const auto& [name, to] : directory.links) {
            text += "file=delete," + name + "," + target + "\n";
        }
    }
    return text;
}

/// Behind the header of a section's first piece; the number of lines without one.
std::size_t FindSection(const Lines& lines, std::string_view name) {
    for (std::size_t at = 0; at < lines.size(); ++at) {
        if (HeaderOf(lines[at]) == name) {
            return at + 1;
        }
    }
    return lines.size();
}

bool Includes(const Lines& lines, std::string_view section, std::string_view included) {
    std::string_view current;
    for (const std::string& line : lines) {
        const std::string_view header = HeaderOf(line);
        current = header.data() != nullptr ? header : current;
        const std::size_t equals = line.find('=');
        if (current == section && equals != std::string::npos &&
            Trim(std::string_view(line).substr(0, equals)) == "section" &&
            Trim(std::string_view(line).substr(equals + 1)) == included) {
            return true;
        }
    }
    return false;
}

/// Where section [install] goes on with the product's link; at its end where it makes none, for then
/// an architecture's section does, which is loaded behind it.
std::size_t PlaceInInstall(const Lines& lines, std::size_t begin) {
    std::size_t afterLast = begin;
    for (std::size_t at = begin; at < lines.size(); ++at) {
        const std::string_view line = Trim(lines[at]);
        if (HeaderOf(line).data() != nullptr) {
            break;
        }
        if (line.find(",/etc/") != std::string_view::npos && !line.starts_with(';') &&
            !line.starts_with('#')) {
            return at;
        }
        // Comments at the end belong to the section behind.
        afterLast =
            line.empty() || line.starts_with(';') || line.starts_with('#') ? afterLast : at + 1;
    }
    return afterLast;
}

void Include(Lines& lines, const std::string& section, const std::string& included) {
    if (Includes(lines, section, included)) {
        return;
    }
    const std::string rule = "section=" + included;
    const std::size_t begin = FindSection(lines, section);
    if (begin == lines.size() && (lines.empty() || HeaderOf(lines.back()) != section)) {
        lines.insert(lines.end(), {"", "[" + section + "]", rule});
        return;
    }
    const std::size_t at = section == "install" ? PlaceInInstall(lines, begin) : begin;
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at), rule);
}

} // namespace

std::string WriteRules(const KAddedTree& tree) {
    const std::string name = tree.GetName();
    return BeginMark(name) +
           "\n; Written by \"ins-setup kit add\", which replaces all of it. Put rules of your own "
           "elsewhere.\n[files]\nsection=files " +
           name + "\n[remove files]\nsection=remove files " + name + "\n[files " + name + "]\n" +
           InstallRules(tree) + "[remove files " + name + "]\n" + RemovalRules(tree) +
           EndMark(name) + "\n";
}

bool HasRules(const std::string& script, const std::string& name) {
    const Lines lines = Split(script);
    return FindLine(lines, BeginMark(name)) < lines.size();
}

std::string
MergeRules(const std::string& script, const std::string& name, const std::string& rules) {
    Lines lines = Split(script);
    const std::size_t begin = FindLine(lines, BeginMark(name));
    const std::size_t end = FindLine(lines, EndMark(name));
    if ((begin < lines.size()) != (end < lines.size()) || begin > end) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            "The script's marks for the tree " + name + " do not match: it needs a line \"" +
                BeginMark(name) + "\" and behind it one \"" + EndMark(name) +
                "\". Put them back, or take that part out of the script. Nothing was changed."
        );
    }
    const Lines part = Split(rules);
    std::size_t place = begin;
    if (begin < lines.size()) {
        lines.erase(
            lines.begin() + static_cast<std::ptrdiff_t>(begin),
            lines.begin() + static_cast<std::ptrdiff_t>(end) + 1
        );
    } else {
        lines.emplace_back();
        place = lines.size();
    }
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(place), part.begin(), part.end());
    Include(lines, "install", "files");
    Include(lines, "remove", "remove files");
    std::string merged;
    for (const std::string& line : lines) {
        merged += line + "\n";
    }
    return merged;
}

} // namespace KSETUP
