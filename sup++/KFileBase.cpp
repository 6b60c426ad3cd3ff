// SPDX-License-Identifier: MIT
#include <sup++/KDirectory.h>
#include <sup++/KErrorSource.h>
#include <sup++/KFileBase.h>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/files/FileCalls.h>
#include <sys/files/FileContent.h>
#include <sys/files/SecondName.h>
#include <sys/files/WriteReport.h>
#include <unistd.h>

namespace KSUP {

namespace {

constexpr KErrorSource source{"sup++/KFileBase"};
/// So much of a long file is copied before the disk begins to write it: the flush of all finds less to do,
/// and a disk that writes all the time is done sooner.
constexpr unsigned long long writtenBytes = 8ULL << 20U;
constexpr unsigned newFileMode = 0600; // until the file is whole and gets its own
constexpr unsigned permissionBits = 07777;

[[noreturn]] void RaiseInWords(
    unsigned status,
    KOperation operation,
    const KString& path,
    const char* reason,
    unsigned line = __builtin_LINE(),
    const char* function = __builtin_FUNCTION()
) {
    source.RaiseAs(
        {KErrorKind::System, operation, path, reason},
        TraceLevel::support,
        status,
        path + ": " + reason,
        line,
        function
    );
}

[[noreturn]] void RaiseOpening(
    unsigned status,
    KOperation operation,
    const KString& path,
    unsigned line = __builtin_LINE(),
    const char* function = __builtin_FUNCTION()
) {
    if (status == EINVAL) { // the system's own words would not help anybody
        RaiseInWords(status, operation, path, "not a regular file", line, function);
    }
    source.RaiseSystem(status, operation, path, line, function);
}

} // namespace

KFileBase::KFileBase(const char* classTag) noexcept : KBase(classTag, true) {}

KFileBase::~KFileBase() {
    if (descriptor >= 0) {
        ::close(descriptor);
    }
}

void KFileBase::OpenForRead(const KString& filePath, KDirectory* held) {
    KSYS::KDescriptor file;
    struct stat status {};
    int directory = -1;
    const char* name = held != nullptr ? held->FindName(filePath, directory) : nullptr;
    const unsigned error = name != nullptr ? KSYS::OpenRegularAt(directory, name, file, status)
                                           : KSYS::OpenRegular(filePath.c_str(), file, status);
    if (error != 0) {
        RaiseOpening(error, KOperation::Read, filePath);
    }
    KSYS::KDescriptor former(std::exchange(descriptor, file.Release()));
    length = static_cast<unsigned long long>(status.st_size);
    modeFlags = status.st_mode & permissionBits;
    mayHaveHoles = KSYS::MayHaveHoles(status);
    path = filePath;
}

void KFileBase::Create(const KString& filePath, KDirectory* held) {
    KSYS::KDescriptor file;
    int directory = -1;
    const char* name = held != nullptr ? held->FindName(filePath, directory) : nullptr;
    unsigned error = ELOOP;
    if (name != nullptr) {
        error = KSYS::CreateAnewAt(directory, name, filePath.c_str(), newFileMode, file);
    }
    if (error == ELOOP) { // the whole path decides whether a link may be followed
        error = KSYS::CreateAnew(filePath.c_str(), newFileMode, file);
    }
    if (error != 0) {
        RaiseOpening(error, KOperation::Write, filePath);
    }
    KSYS::KDescriptor former(std::exchange(descriptor, file.Release()));
    length = 0;
    modeFlags = newFileMode;
    kernelCopies = true;
    mayHaveHoles = false;
    path = filePath;
}

void KFileBase::Copy(
    const KFileBase& from, const unsigned long long& offset, unsigned int byteCount
) {
    const auto copy = from.mayHaveHoles ? KSYS::CopyRangeWithHoles : KSYS::CopyRange;
    const unsigned status = copy(from.descriptor, offset, descriptor, byteCount, kernelCopies);
    if (status == ENODATA) {
        RaiseInWords(EIO, KOperation::Read, from.path, "became shorter while it was copied");
    }
    if (status != 0) {
        source.RaiseSystem(status, KOperation::Write, path);
    }
    if ((offset + byteCount) / writtenBytes != offset / writtenBytes) {
        KSYS::BeginWriting(descriptor);
    }
}

void KFileBase::Write(const KString& text) {
    const std::string_view bytes(text.c_str());
    if (const unsigned status = KSYS::WriteAll(descriptor, bytes.data(), bytes.size());
        status != 0) {
        source.RaiseSystem(status, KOperation::Write, path);
    }
}

void KFileBase::Close() {
    KSYS::KDescriptor file(std::exchange(descriptor, -1));
    if (!file.IsOpen()) {
        return;
    }
    if (const unsigned status = KSYS::CloseReporting(file); status != 0) {
        source.RaiseSystem(status, KOperation::Write, path);
    }
}

void KFileBase::SetModeFlags(unsigned int flags) {
    if (::fchmod(descriptor, flags & permissionBits) != 0) {
        source.RaiseSystem(static_cast<unsigned>(errno), KOperation::Write, path);
    }
    const unsigned former = std::exchange(modeFlags, flags & permissionBits);
    if (former != modeFlags) {
        KSYS::ReportWrite(KSYS::Written::Mode, path.c_str());
    }
}

unsigned KFileBase::Link(
    const KString& file, KDirectory* fileHeld, const KString& secondName, KDirectory* nameHeld
) noexcept {
    int from = AT_FDCWD;
    int to = -1;
    const char* held = fileHeld != nullptr ? fileHeld->FindName(file, from) : nullptr;
    const char* name = nameHeld != nullptr ? nameHeld->FindName(secondName, to) : nullptr;
    KSYS::KDescriptor place;
    if (name == nullptr) {
        const unsigned status = KSYS::OpenPlace(secondName.c_str(), place);
        if (status != 0) {
            return status;
        }
        to = place.Get();
        name = std::strrchr(secondName.c_str(), '/') + 1;
    }
    return KSYS::LinkAnewAt(
        held != nullptr ? from : AT_FDCWD,
        held != nullptr ? held : file.c_str(),
        to,
        name,
        secondName.c_str()
    );
}

void KFileBase::DeleteFile(const KString& filePath) {
    if (const unsigned status = KSYS::Unlink(filePath.c_str()); status != 0) {
        source.RaiseSystem(status, KOperation::Delete, filePath);
    }
}

bool KFileBase::DoesFileExist(const KString& filePath) noexcept {
    return ::access(filePath.c_str(), F_OK) == 0;
}

} // namespace KSUP
