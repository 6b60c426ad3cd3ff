// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/state/KPrivateDirectory.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>
#include <vector>

#include <sys/files/FileCalls.h>
#include <sys/files/FileContent.h>
#include <sys/files/FileStatus.h>
#include <sys/processes/ProcessIsolation.h>

namespace KSETUP {

namespace {

constexpr const char* causeAdvice = TextFormat("Fix the cause and run it again.");

/// What helps against the failure: room where there is none.
KText AdviceFor(unsigned errorNumber) noexcept {
    return errorNumber == ENOSPC || errorNumber == EDQUOT
               ? Text("Make room there and run it again.")
               : Text(causeAdvice);
}

KSetupFailure NotOurs(const std::string& path) {
    return {
        ExitCode::cannotWrite,
        Text(
            "%s is not root's alone: another user owns it or may write there, so what it tells "
            "cannot be trusted. Look at what it holds, then delete it or give it back to root.",
            path
        )};
}

bool IsFileName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

} // namespace

KSetupFailure
SystemFailure(int exitCode, const KText& what, unsigned errorNumber, const KText& advice) {
    return {
        exitCode,
        what + ": " + std::generic_category().message(static_cast<int>(errorNumber)) + ". " +
            advice};
}

KPrivateDirectory::KPrivateDirectory(KSYS::KDescriptor opened, std::string itsPath)
    : directory(std::move(opened)),
      path(std::move(itsPath)) {}

KPrivateDirectory::KPrivateDirectory(const std::string& base, const std::string& name) {
    auto inner = OpenIn(AT_FDCWD, base, base, true)->Below(name);
    directory = std::move(inner.directory);
    path = std::move(inner.path);
}

std::optional<KPrivateDirectory>
KPrivateDirectory::OpenExisting(const std::string& base, const std::string& name) {
    const auto outer = OpenIn(AT_FDCWD, base, base, false);
    return outer ? outer->ExistingBelow(name) : std::nullopt;
}

KPrivateDirectory KPrivateDirectory::Below(const std::string& name) const {
    return std::move(*OpenIn(Get(), name, path + "/" + name, true));
}

std::optional<KPrivateDirectory> KPrivateDirectory::ExistingBelow(const std::string& name) const {
    return OpenIn(Get(), name, path + "/" + name, false);
}

std::optional<KPrivateDirectory>
KPrivateDirectory::OpenIn(int at, const std::string& name, const std::string& path, bool make) {
    if (at != AT_FDCWD && !IsFileName(name)) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            Text(
                "\"%s\" cannot be the name of a service: it has to be a plain file name. Fix "
                "\"serviceName\" in product.ini.",
                name
            )
        );
    }
    const KSYS::Entry entry(at, name.c_str());
    unsigned failed = make ? KSYS::MakeDirectoryEntry(entry, S_IRWXU) : 0;
    if (failed != 0 && failed != EEXIST) {
        throw SystemFailure(
            ExitCode::cannotWrite, Text("cannot make %s", path), failed, AdviceFor(failed)
        );
    }
    KSYS::KDescriptor opened;
    failed = KSYS::OpenDirectoryEntry(entry, opened);
    if (failed == ENOENT && !make) {
        return std::nullopt;
    }
    if (failed == EACCES && !KSYS::IsRoot()) {
        throw KSetupFailure(ExitCode::notRoot, Text("only root can look into %s.", path));
    }
    if (failed != 0) {
        const bool isOther = failed == ENOTDIR || failed == ELOOP; // it is no directory at all
        throw SystemFailure(
            ExitCode::cannotWrite,
            Text("cannot open the directory %s", path),
            failed,
            isOther ? Text("Delete what stands there.") : Text(causeAdvice)
        );
    }
    struct stat status {};
    failed = KSYS::ReadStatus(opened.Get(), status);
    if (failed != 0) {
        throw SystemFailure(
            ExitCode::cannotWrite, Text("cannot look at %s", path), failed, Text(causeAdvice)
        );
    }
    if (!KSYS::IsOwnAlone(status)) {
        throw NotOurs(path);
    }
    return KPrivateDirectory(std::move(opened), path);
}

void KPrivateDirectory::Require(unsigned failed, const char* what, const std::string& name) const {
    if (failed != 0) {
        const std::string whole = name.empty() ? path : path + "/" + name;
        throw SystemFailure(ExitCode::cannotWrite, Text(what, whole), failed, AdviceFor(failed));
    }
}

void KPrivateDirectory::WriteDurably(const std::string& name, std::string_view bytes) const {
    WriteDurably(name, [&] { return std::exchange(bytes, {}); });
}

void KPrivateDirectory::WriteDurably(const std::string& name, const KSYS::PieceSource& next) const {
    const std::string temporary = name + ".new"; // one run at a time: nobody else makes it
    Require(
        KSYS::ReplaceEntry(Get(), temporary, name, next, S_IRUSR | S_IWUSR),
        TextFormat("cannot write %s"),
        name
    );
    Flush();
}

KSYS::KDescriptor KPrivateDirectory::Open(const std::string& name, int flags) const {
    KSYS::KDescriptor file;
    struct stat status {};
    const unsigned failed = KSYS::OpenRegularEntry({directory, name}, flags, file, status);
    const bool isOther = failed == EISDIR || failed == EINVAL;
    Require(isOther ? 0 : failed, TextFormat("cannot open %s"), name);
    if (isOther || !KSYS::IsOwnAlone(status)) {
        throw NotOurs(path + "/" + name);
    }
    return file;
}

bool KPrivateDirectory::Has(const std::string& name) const {
    struct stat status {};
    const unsigned failed = KSYS::ReadStatus({directory, name}, KSYS::LastLink::Keep, status);
    Require(failed == ENOENT ? 0 : failed, TextFormat("cannot look at %s"), name);
    return failed == 0;
}

std::optional<std::string> KPrivateDirectory::Read(const std::string& name) const {
    if (!Has(name)) {
        return std::nullopt;
    }
    std::string bytes;
    Require(KSYS::ReadAll(Open(name, O_RDONLY).Get(), bytes), TextFormat("cannot read %s"), name);
    return bytes;
}

std::optional<std::string> KPrivateDirectory::ReadFirstLine(const std::string& name) const {
    constexpr std::size_t most = std::size_t{64} << 10U;
    if (!Has(name)) {
        return std::nullopt;
    }
    const KSYS::KDescriptor file = Open(name, O_RDONLY);
    std::string line;
    std::array<char, 1024> bytes{};
    std::size_t count = bytes.size();
    while (count != 0 && line.size() < most && line.find('\n') == std::string::npos) {
        Require(
            KSYS::ReadSome(file.Get(), bytes.data(), bytes.size(), count),
            TextFormat("cannot read %s"),
            name
        );
        line.append(bytes.data(), count);
    }
    line.resize(std::min(line.find('\n'), line.size()));
    return line;
}

void KPrivateDirectory::Delete(const std::string& name) const {
    const unsigned failed = KSYS::UnlinkEntry({directory, name});
    if (failed != ENOENT) {
        Require(failed, TextFormat("cannot delete %s"), name);
        Flush();
    }
}

void KPrivateDirectory::DeleteDirectory(const std::string& name) const {
    const auto inner = ExistingBelow(name);
    if (!inner) {
        return;
    }
    std::vector<std::string> names;
    // What resists keeps the directory, and then that is told.
    static_cast<void>(KSYS::ListEntries({inner->Get(), "."}, names));
    for (const std::string& entry : names) {
        static_cast<void>(KSYS::UnlinkEntry({inner->directory, entry}));
    }
    Require(KSYS::RemoveDirectoryEntry({directory, name}), TextFormat("cannot delete %s"), name);
}

void KPrivateDirectory::Flush() const {
    Require(KSYS::Flush(Get()), TextFormat("cannot flush %s"), "");
}

} // namespace KSETUP
