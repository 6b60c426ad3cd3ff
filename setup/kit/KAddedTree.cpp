// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/AccountNames.h>
#include <setup/kit/KAddedTree.h>
#include <setup/kit/KitFiles.h>
#include <setup/output/TextFormat.h>

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <sys/files/DirectoryEntry.h>
#include <unistd.h>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t namesShown = 50;

constexpr mode_t othersWrite = S_IWGRP | S_IWOTH;
constexpr mode_t allBits = 07777;

/// Why a rule cannot hold the text; empty when it can. All else can be written with escapes.
KText WhyNoField(std::string_view text) {
    for (const char letter : text) {
        if (static_cast<unsigned char>(letter) < 0x20 || letter == 0x7F) {
            return Text("has a control character");
        }
    }
    return "";
}

/// Why no section can have the name of the tree.
KText WhyNoSection(const std::string& name) {
    const bool isArchitecture = name.ends_with(".x86") || name.ends_with(".x86_64");
    return !WhyNoField(name).empty()                       ? WhyNoField(name)
           : name.find(',') != std::string::npos           ? Text("has a comma")
           : name.find('$') != std::string::npos           ? Text("has a dollar sign")
           : name.find_first_of("*?") != std::string::npos ? Text("has a \"*\" or \"?\"")
           : name.starts_with(' ') || name.ends_with(' ')  ? Text("begins or ends with a blank")
           : name.find_first_of("[]") != std::string::npos ? Text("has a bracket")
           : isArchitecture ? Text("ends as a section for one architecture does")
           : name == "/" || name.empty() || name.front() == '.'
               ? Text("is none that a section can have")
               : "";
}

/// As it is to be installed. Who makes a kit is nobody on the machine that it is for, so what is
/// theirs becomes root's, and who else may write it is theirs to say: a group of their own, which
/// umask 002 lets write everything, would be root's group there. A directory keeps the right where
/// it has a group of its own, or where the sticky bit goes with it.
KAddedTree::Rights RightsOf(const struct stat& status) {
    KAddedTree::Rights rights;
    const uid_t caller = ::geteuid();
    const gid_t callersGroup = ::getegid();
    rights.owner = status.st_uid == 0 || status.st_uid == caller ? "root" : UserName(status.st_uid);
    rights.group =
        status.st_gid == 0 || status.st_gid == callersGroup ? "root" : GroupName(status.st_gid);
    rights.mode = status.st_mode & allBits;
    const bool isDirectory = S_ISDIR(status.st_mode);
    const bool keeps = isDirectory && ((rights.mode & S_ISVTX) != 0 ||
                                       ((rights.mode & S_IWOTH) == 0 && rights.group != "root"));
    rights.lostWriting = !keeps && (rights.mode & othersWrite) != 0;
    rights.mode &= keeps ? allBits : allBits & ~othersWrite;
    return rights;
}

/// What would become of a set-id bit: the rights of who made the tree would be root's. A number without
/// a name is anybody's on another machine. Empty for one whose owner a rule can say.
KText WhyNoSetId(const struct stat& status, const KAddedTree::Rights& rights) {
    const auto describe = [&](mode_t bit, unsigned id, const std::string& written, char letter) {
        const bool isLost = id != 0 && (written == "root" || IsAccountNumber(written));
        if ((status.st_mode & bit) == 0 || !isLost) {
            return KText();
        }
        const KText whose = bit == S_ISUID ? Text("user %s", id) : Text("group %s", id);
        return Text(
            written == "root"
                ? TextFormat(
                      "it has the set-id bit of %s, which on a machine would be root's; take "
                      "it away (chmod %s-s), or add the tree as root or under fakeroot(1), "
                      "with the owner and group that the file is to have"
                  )
                : TextFormat("it has the set-id bit of %s, which on a machine would be whose that "
                             "number is there; take it away (chmod %s-s), or add the tree as root "
                             "or under fakeroot(1), with the owner and group that the file is to "
                             "have"),
            whose,
            std::string(1, letter)
        );
    };
    const KText why = describe(S_ISUID, status.st_uid, rights.owner, 'u');
    return why.empty() ? describe(S_ISGID, status.st_gid, rights.group, 'g') : why;
}

} // namespace

KAddedTree::KAddedTree(const std::string& directory) {
    std::error_code error;
    const fs::path found = fs::canonical(directory, error);
    if (error) {
        FailOn(directory, error.value(), Text("Name the directory that is to be installed."));
    }
    if (!fs::is_directory(found, error)) {
        throw KSetupFailure(
            ExitCode::noKit,
            Text("%s: no directory. Name the directory that is to be installed.", directory)
        );
    }
    root = found.string();
    Scan("");
    if (GetFileCount() + GetLinkCount() + directories.size() == 1 && complaints.empty()) {
        throw KSetupFailure(
            ExitCode::noKit, Text("%s: there is nothing in it that could be installed.", root)
        );
    }
    if (const KText why = WhyNoSection(GetName()); !why.empty()) {
        Complain("", Text("its name becomes the name of a section, and %s", why));
    }
}

std::string KAddedTree::GetName() const {
    return fs::path(root).filename().string();
}

void KAddedTree::Complain(const std::string& relative, const KText& why) {
    complaints.push_back(Printable((fs::path(root) / relative).string()) + ": " + why);
}

void KAddedTree::Scan(const std::string& relative) {
    const fs::path path = fs::path(root) / relative;
    struct stat status {};
    const unsigned failed = KSYS::ReadStatus(path.string(), KSYS::LastLink::Follow, status);
    if (failed != 0) {
        FailOn(path, static_cast<int>(failed));
    }
    Directory& directory = directories[relative];
    directory.rights = RightsOf(status);
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator at(path, error), end; !error && at != end; at.increment(error)) {
        names.push_back(at->path().filename().string());
    }
    if (error) {
        Complain(relative, error.message());
        return;
    }
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        const std::string child = relative.empty() ? name : relative + "/" + name;
        if (const KText why = WhyNoField(name); !why.empty()) {
            Complain(child, Text("the name %s", why));
        } else {
            ScanEntry(directory, child, name);
        }
    }
}

void KAddedTree::ScanEntry(
    Directory& directory, const std::string& relative, const std::string& name
) {
    const fs::path path = fs::path(root) / relative;
    struct stat status {};
    unsigned failed = KSYS::ReadStatus(path.string(), KSYS::LastLink::Keep, status);
    if (failed != 0) {
        Complain(relative, std::generic_category().message(static_cast<int>(failed)));
    } else if (S_ISDIR(status.st_mode)) {
        Scan(relative);
    } else if (S_ISREG(status.st_mode)) {
        KSYS::KDescriptor readable;
        failed = KSYS::OpenRegularEntry(path.string(), O_RDONLY, readable, status);
        if (failed != 0) {
            Complain(relative, std::generic_category().message(static_cast<int>(failed)));
        }
        const Rights rights = RightsOf(status);
        if (const KText why = WhyNoSetId(status, rights); !why.empty()) {
            Complain(relative, why);
        }
        directory.files.push_back({name, rights});
    } else if (S_ISLNK(status.st_mode)) {
        std::error_code error;
        const std::string target = fs::read_symlink(path, error).string();
        const KText why = WhyNoField(target);
        if (error) {
            Complain(relative, error.message());
        } else if (!why.empty()) {
            Complain(relative, Text("where the link leads to, %s, %s", Printable(target), why));
        } else if (target == root || target.starts_with(root + "/")) {
            Complain(
                relative,
                Text("the link leads into this tree by its path here; make it a relative one")
            );
        } else {
            directory.links.emplace(name, target);
        }
    } else {
        Complain(relative, Text("neither a file, nor a directory, nor a link"));
    }
}

bool KAddedTree::HasFile(const std::string& relative) const {
    const fs::path path(relative);
    const auto found = directories.find(path.parent_path().string());
    const std::string name = path.filename().string();
    return found != directories.end() && (found->second.links.contains(name) ||
                                          std::any_of(
                                              found->second.files.begin(),
                                              found->second.files.end(),
                                              [&](const File& file) { return file.name == name; }
                                          ));
}

std::size_t KAddedTree::GetFileCount() const {
    std::size_t count = 0;
    for (const auto& [path, directory] : directories) {
        count += directory.files.size();
    }
    return count;
}

std::size_t KAddedTree::GetLinkCount() const {
    std::size_t count = 0;
    for (const auto& [path, directory] : directories) {
        count += directory.links.size();
    }
    return count;
}

void KAddedTree::RefuseUnlessExpressible() const {
    if (complaints.empty()) {
        return;
    }
    KText all;
    for (std::size_t index = 0; index < std::min(complaints.size(), namesShown); ++index) {
        all += "\n    " + complaints[index];
    }
    if (complaints.size() > namesShown) {
        all += "\n    " + Text("and %s more", complaints.size() - namesShown);
    }
    throw KSetupFailure(
        ExitCode::malformedScript,
        Text(
            "%s: the tree holds what rules of a script cannot. Rename it or take it out; nothing "
            "was changed.%s",
            root,
            all
        )
    );
}

} // namespace KSETUP
