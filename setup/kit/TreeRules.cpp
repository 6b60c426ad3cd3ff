// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/TreeRules.h>
#include <setup/kit/TreeUnits.h>
#include <setup/output/TextFormat.h>
#include <setup/script/EscapedText.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include <sys/stat.h>

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

/// Configuration by its place in the tree, wherever the product path is.
bool IsConfiguration(const std::string& relative) {
    return relative == "etc" || relative.starts_with("etc/");
}

bool NeedsRights(const KAddedTree::Rights& rights, mode_t usual) {
    return rights.mode != usual || rights.owner != "root" || rights.group != "root";
}

/// The rules of one tree.
class TreeRules {
  public:
    explicit TreeRules(const KAddedTree& added)
        : tree(added),
          source(std::string("$pathSource$") + payloadDirectory + "/" + added.GetName() + "/"),
          escapedSource(
              std::string("$pathSource$") + payloadDirectory + "/" + Escaped(added.GetName()) + "/"
          ),
          units(FindUnits(added)) {
        std::erase_if(units, [](const KTreeUnit& unit) { return !unit.objection.empty(); });
    }

    std::string Install() {
        text.clear();
        for (const KTreeUnit& unit : units) {
            text += "service=remove," + unit.service + "\n";
        }
        ForEach([&](const auto& path, const auto& /*directory*/) { CreateDirectory(path); });
        ForEach([&](const auto& path, const auto& directory) { CopyFiles(path, directory); });
        ForEach([&](const auto& path, const auto& directory) { MakeLinks(path, directory); });
        ForEach([&](const auto& path, const auto& directory) { SetRights(path, directory); });
        for (const KTreeUnit& unit : units) {
            InstallUnit(unit);
        }
        return text;
    }

    std::string Remove() {
        text.clear();
        for (const KTreeUnit& unit : units) {
            text += "service=remove," + unit.service + "\nfile=delete," + unit.service +
                    ".service," + unitTarget + "\n";
        }
        const auto& directories = tree.GetDirectories();
        for (auto at = directories.rbegin(); at != directories.rend(); ++at) {
            RemoveDirectory(at->first, at->second);
        }
        return text;
    }

  private:
    using Directory = KAddedTree::Directory;

    template <class Use>
    void ForEach(Use use) {
        for (const auto& [path, directory] : tree.GetDirectories()) {
            use(path, directory);
        }
    }

    /// A name in the tree, as a field of ins-setup's own rules.
    static std::string Target(const std::string& path, const std::string& name = {}) {
        const std::string relative = path.empty() || name.empty() ? path + name : path + "/" + name;
        return "$pathTarget$" + Escaped(relative);
    }

    /// Whether the engine's rules can name the directory.
    static bool IsPlain(const std::string& path) { return !NeedsEscapes(path + "/"); }

    void CreateDirectory(const std::string& path) {
        text += IsPlain(path) ? "directory=create," + Below("$pathTarget$", path) + "\n"
                              : "entry=create," + Target(path) + "\n";
    }

    void CopyFiles(const std::string& path, const Directory& directory) {
        const std::string from = escapedSource + Escaped(path);
        if (directory.files.empty()) {
            return;
        }
        if (IsConfiguration(path)) {
            text += "config=copy,*," + from + "," + Target(path) + "\n";
            return;
        }
        if (IsPlain(path)) {
            text += "file=copy,*," + Below(source.c_str(), path) + "," +
                    Below("$pathTarget$", path) + "\n";
            return;
        }
        for (const KAddedTree::File& file : directory.files) {
            text += "entry=copy," + escapedSource + Escaped(path + "/" + file.name) + "," +
                    Target(path, file.name) + "\n";
        }
    }

    void MakeLinks(const std::string& path, const Directory& directory) {
        for (const auto& [name, target] : directory.links) {
            text += "link=create," + Escaped(target) + "," + Target(path, name) + "\n";
        }
    }

    void SetRights(const std::string& path, const Directory& directory) {
        constexpr mode_t usual = 0755;
        constexpr mode_t carried = 0777; // by the files of a kit
        if (!path.empty() && NeedsRights(directory.rights, usual)) {
            AppendRights(Target(path), directory.rights);
        }
        for (const KAddedTree::File& file : directory.files) {
            if (NeedsRights(file.rights, file.rights.mode & carried)) {
                AppendRights(Target(path, file.name), file.rights);
            }
        }
    }

    void AppendRights(const std::string& target, const KAddedTree::Rights& rights) {
        text += "mode=set," + target + "," + ModeText(rights.mode);
        // Whose rights a set-id bit gives is never left to what stands there.
        const bool isSetId = (rights.mode & (S_ISUID | S_ISGID)) != 0;
        if (isSetId || rights.owner != "root" || rights.group != "root") {
            text += "," + rights.owner + "," + rights.group;
        }
        text += "\n";
    }

    /// To where an administrator's units are: systemd looks nowhere else that a product may write to.
    /// It is no configuration there, for what an administrator changes goes into a drop-in.
    void InstallUnit(const KTreeUnit& unit) {
        text += "config=replace," + unit.service + ".service," + escapedSource + unit.directory +
                "," + unitTarget + "\nservice=install," + unit.service + "\n";
        text += unit.isStarted ? "service=start," + unit.service + "\n" : "";
    }

    void RemoveDirectory(const std::string& path, const Directory& directory) {
        const std::string target = Below("$pathTarget$", path);
        if (!IsShared(path) && IsPlain(path)) {
            text += "file=delete,*," + target + "\ndirectory=delete," + target + "\n";
            return;
        }
        for (const KAddedTree::File& file : directory.files) {
            RemoveFile(path, file.name);
        }
        for (const auto& [name, to] : directory.links) {
            RemoveFile(path, name);
        }
        text += IsShared(path) ? "" : "entry=delete," + Target(path) + "\n";
    }

    void RemoveFile(const std::string& path, const std::string& name) {
        text += !IsPlain(path) || NeedsEscapes(name)
                    ? "entry=delete," + Target(path, name) + "\n"
                    : "file=delete," + name + "," + Below("$pathTarget$", path) + "\n";
    }

    static constexpr const char* unitTarget = "/etc/systemd/system";

    const KAddedTree& tree;
    const std::string source;        // for rules of the engine
    const std::string escapedSource; // for our own
    std::vector<KTreeUnit> units;
    std::string text;
};

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
    TreeRules rules(tree);
    return BeginMark(name) +
           "\n; Written by \"ins-setup kit add\", which replaces all of it. Put rules of your own "
           "elsewhere.\n[files]\nsection=files " +
           name + "\n[remove files]\nsection=remove files " + name + "\n[files " + name + "]\n" +
           rules.Install() + "[remove files " + name + "]\n" + rules.Remove() + EndMark(name) +
           "\n";
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
            Text(
                "The script's marks for the tree %s do not match: it needs a line \"%s\" and "
                "behind "
                "it one \"%s\". Put them back, or take that part out of the script. Nothing was "
                "changed.",
                name,
                BeginMark(name),
                EndMark(name)
            )
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
