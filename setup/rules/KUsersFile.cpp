// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/rules/KCommandRule.h>
#include <setup/rules/KUsersFile.h>
#include <setup/script/UsersFile.h>
#include <setup/text/NotedText.h>
#include <sup++/KErrorSource.h>
#include <sup++/KFile.h>
#include <sup++/SvcFile.h>

#include <cerrno>

#include <sys/files/FileCalls.h>

namespace KSETUP {

namespace {

constexpr KSUP::KErrorSource usersFile{"setup/KUsersFile"};
constexpr unsigned fileMode = 0644;

struct Former {
    std::string text; ///< empty where there is none
    unsigned mode = 0;
};

Former ReadFormer(const std::string& path) {
    KSYS::KDescriptor file;
    struct stat status {};
    Former former;
    unsigned failed = KSYS::OpenRegular(path.c_str(), file, status);
    if (failed == ENOENT) {
        return former;
    }
    former.mode = status.st_mode & 07777;
    if (failed == 0) {
        failed = KSYS::ReadAll(file.Get(), former.text);
    }
    if (failed != 0) {
        usersFile.RaiseSystem(failed, KSUP::KOperation::Read, path);
    }
    return former;
}

std::string Quoted(const std::string& path) {
    std::string quoted = "'";
    for (const char letter : path) {
        quoted += letter == '\'' ? "'\\''" : std::string(1, letter);
    }
    return quoted + "'";
}

} // namespace

void KUsersFile::Add(const std::string& line) {
    if (lines.find(line) == std::string::npos) {
        lines += line;
    }
}

void KUsersFile::Apply(const KINS::KInstallRuleManagerBase& manager) const {
    const std::string text = usersFileMark + lines;
    const Former former = ReadFormer(path);
    if (!IsUsersFile(former.text)) {
        usersFile.Raise(
            KSUP::TraceLevel::rule,
            KSUP::ErrorCode::invalidArgument,
            KSUP::KString(NoteText(Text(
                "%s: this file is another program's. Give the product a service name that is its "
                "alone.",
                path
            )))
        );
    }
    if (former.text != text || former.mode != fileMode) { // also one that a kill left half
        static_cast<void>(SvcCreateDirectory(0, ParentPath(path).c_str(), 1)); // the file tells
        KSUP::KFile file;
        file.Create(path);
        file.Write(text);
        file.SetModeFlags(fileMode);
        file.Close();
    }
    RunCommandLine(manager, std::string(usersProgram) + " " + Quoted(path));
}

} // namespace KSETUP
