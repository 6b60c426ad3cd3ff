// SPDX-License-Identifier: MIT
#include <ins/KFileRule.h>
#include <ins/KInstallRuleManagerBase.h>
#include <ins/RuleLayout.h>
#include <sup++/KError.h>
#include <sup++/KErrorSource.h>
#include <sup++/KFile.h>
#include <sup++/KFileEnum.h>
#include <sup++/KFileUtil.h>
#include <sup++/KUtil.h>
#include <sup++/SvcFile.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

using KSUP::KFileBase;
using KSUP::KString;
using KSUP::KUtil;
using Purpose = KSUP::KDirectory::Purpose;

namespace KINS {

namespace {

constexpr KSUP::KErrorSource errorSource{"ins/KFileRule"};

// Fixed, so that reports of different versions of the engine can be compared.
constexpr unsigned fieldCountLine = 175;
constexpr unsigned deleteFailedLine = 70;

/// A cancellation is noticed, and the progress moves, once for each chunk.
constexpr unsigned chunkBytes = 65536;

/// Appends the directory as KUtil::AppendPathSep makes it, and the name.
void AppendPath(std::string& text, const KString& directory, const KString& name) {
    std::string_view bare(directory.c_str(), directory.GetSize());
    while (bare.ends_with('/')) {
        bare.remove_suffix(1);
    }
    text.append(bare).append(1, '/').append(name.c_str(), name.GetSize());
}

KString Join(const KString& directory, const KString& name) {
    std::string path;
    path.reserve(directory.GetSize() + 1 + name.GetSize());
    AppendPath(path, directory, name);
    return KString(std::move(path));
}

bool IsWildcard(const KString& name) {
    return name.Find("*", 0, true) >= 0 || name.Find("?", 0, true) >= 0;
}

KString ProgressText(const KString& path) {
    return "Copying file " + KUtil::GetFileFromPath(path, "/");
}

} // namespace

KFileRule::KFileRule(KInstallRuleManagerBase* owner, const KString& line)
    : KInstallRule(owner, line) {}

KFileRule::~KFileRule() = default;

void KFileRule::Execute() {
    const KString source = Join(sourceDirectory, fileName);
    switch (KRuleLine::FindOperation(KRuleType::File, operation)) {
    case KRuleOperation::Copy:
        if (IsWildcard(fileName)) {
            CopyWildcard(source, targetDirectory);
        } else {
            CopyFile(source, Join(targetDirectory, targetName));
        }
        break;
    case KRuleOperation::Delete:
        if (IsWildcard(fileName)) {
            DeleteWildcard(sourceDirectory, fileName);
        } else {
            DeleteFile(source);
        }
        break;
    case KRuleOperation::Symlink:
        Link(source, Join(targetDirectory, targetName));
        break;
    default:
        break; // any other operation does nothing, and is meant to
    }
}

void KFileRule::Link(const KString& target, const KString& link) {
    manager->SetCurrentTarget(KSUP::KOperation::Write, link);
    KSUP::KFileUtil::CreateSymbolicLink(target, link);
}

KString KFileRule::Description() const {
    // In one piece of memory: each rule is described in the log when it is loaded and when it runs.
    constexpr std::size_t words = sizeof("File  / to ");
    std::string text;
    text.reserve(
        words + operation.GetSize() + sourceDirectory.GetSize() + fileName.GetSize() +
        targetDirectory.GetSize()
    );
    text.append("File ").append(operation.c_str()).append(" ");
    AppendPath(text, sourceDirectory, fileName);
    text.append(" to ").append(targetDirectory.c_str(), targetDirectory.GetSize());
    return KString(std::move(text));
}

void KFileRule::ParseRule(const std::vector<KString>& fields) {
    // Field by field to where it stays, without the line that other types of rules read: copies come
    // by the hundred thousand.
    const RuleLayout layout = LayOut(KRuleType::File, fields);
    if (layout.problem != KRuleLine::Problem::None) {
        errorSource.RaiseAs(
            ReadFields(KRuleType::File, fields).GetErrorDetail(),
            KSUP::TraceLevel::rule,
            KSUP::ErrorCode::malformedRule,
            ruleLine,
            fieldCountLine
        );
    }
    const auto memberOf = [this](KRuleField meaning) -> KString& {
        switch (meaning) {
        case KRuleField::FileName:
            return fileName;
        case KRuleField::SourceDirectory:
            return sourceDirectory;
        case KRuleField::TargetDirectory:
            return targetDirectory;
        default:
            return targetName;
        }
    };
    operation = fields.front();
    targetDirectory = KString();
    for (std::size_t index = 1; index < fields.size(); ++index) {
        memberOf(layout.meanings[index]) = ExpandMacros(fields[index]);
    }
    if (fields.size() < layout.meanings.size()) { // the last one is the target's name
        targetName = fileName;
    }
}

void KFileRule::CopyFile(const KString& source, const KString& target) {
    CopyHeld(source, nullptr, target, nullptr);
}

void KFileRule::CopyHeld(
    const KString& source,
    KSUP::KDirectory* fromDirectory,
    const KString& target,
    KSUP::KDirectory* toDirectory
) {
    KSUP::KFile from;
    KSUP::KFile to;
    manager->SetCurrentTarget(KSUP::KOperation::Write, target);
    manager->SetCurrentRuleStatus("Copying file " + target);
    from.OpenForRead(source, fromDirectory);
    to.Create(target, toDirectory);
    CopyChunks(source, to, from);
    // Through the open file: what was written gets the mode, whatever its path names by now, and it
    // costs one system call instead of four.
    to.SetModeFlags(from.GetModeFlags());
    from.Close();
    to.Close();
    if (manager->IsCancelled()) {
        try {
            KFileBase::DeleteFile(target);
        } catch (const KSUP::KError&) {
            // The cancellation is what the caller has to hear of, and the manager tells it.
        }
    }
}

void KFileRule::CopyChunks(const KString& source, KFileBase& to, const KFileBase& from) {
    // What UpdateStatus would make anew for each chunk.
    const KString status = ProgressText(source);
    const unsigned long long length = from.GetLength();
    unsigned long long copied = 0;
    while (copied < length && !manager->IsCancelled()) {
        const auto chunk =
            static_cast<unsigned>(std::min<unsigned long long>(length - copied, chunkBytes));
        to.Copy(from, copied, chunk);
        copied += chunk;
        // Divided first: callers see the very values that this order of rounding gives.
        const double part = static_cast<double>(copied) / static_cast<double>(length);
        manager->SetCurrentRuleStatus(status, part * 100.0);
    }
    // An empty file and a cancelled copy end at 100 too, so that no progress display stands still.
    manager->SetCurrentRuleStatus(status, 100.0);
}

void KFileRule::CopyWildcard(const KString& sourcePattern, const KString& directory) {
    KSUP::KFileEnum files(sourcePattern, false, false);
    KSUP::KDirectory from(KUtil::RemoveFileFromPath(sourcePattern, "/"), Purpose::Read);
    KSUP::KDirectory to(directory, Purpose::Write);
    // A cancellation does not end this loop, and is meant not to: each remaining file is made and
    // deleted again, and the manager reports the cancellation after it.
    while (files.Enum()) {
        const KString source = files.GetPath();
        CopyHeld(source, &from, to.GetPath() + KUtil::GetFileFromPath(source, "/"), &to);
    }
}

void KFileRule::DeleteFile(const KString& path) {
    manager->SetCurrentTarget(KSUP::KOperation::Delete, path);
    manager->SetCurrentRuleStatus("Deleting file " + path);
    const unsigned status = SvcDeleteFile(0, path.c_str());
    if (status != 0) {
        errorSource.RaiseAs(
            {KSUP::KErrorKind::System,
             KSUP::KOperation::Delete,
             path,
             std::generic_category().message(static_cast<int>(status))},
            KSUP::TraceLevel::rule,
            status,
            KSUP::KVariant(),
            deleteFailedLine
        );
    }
}

void KFileRule::DeleteWildcard(const KString& directory, const KString& pattern) {
    if (!KFileBase::DoesFileExist(directory)) {
        return;
    }
    KSUP::KFileEnum files(directory, pattern, false, false);
    while (files.Enum()) {
        DeleteFile(files.GetPath());
    }
}

void KFileRule::UpdateStatus(const KString& path, double percent) {
    manager->SetCurrentRuleStatus(ProgressText(path), percent);
}

} // namespace KINS
