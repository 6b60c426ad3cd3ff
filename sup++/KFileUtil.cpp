// SPDX-License-Identifier: MIT
#include <sup++/KErrorSource.h>
#include <sup++/KFileUtil.h>

#include <cerrno>
#include <new>

#include <sys/files/FileCalls.h>

namespace KSUP {

namespace {

constexpr KErrorSource source{"sup++/KFileUtil"};

} // namespace

void KFileUtil::CreateSymbolicLink(const KString& existingPath, const KString& linkPath) {
    const unsigned status = KSYS::MakeLink(existingPath.c_str(), linkPath.c_str());
    if (status != 0) {
        source.RaiseSystem(status, KOperation::Write, linkPath);
    }
}

unsigned KFileUtil::DeleteFile(const KString& path) noexcept {
    try {
        return KSYS::Unlink(path.c_str());
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

unsigned int KFileUtil::GetModeFlags(const KString& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        source.RaiseSystem(static_cast<unsigned>(errno), KOperation::Read, path);
    }
    return status.st_mode & 07777;
}

void KFileUtil::SetModeFlags(const KString& path, unsigned int flags) {
    if (const unsigned status = KSYS::ChangeMode(path.c_str(), flags); status != 0) {
        source.RaiseSystem(status, KOperation::Write, path);
    }
}

} // namespace KSUP
