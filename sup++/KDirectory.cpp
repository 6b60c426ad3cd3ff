// SPDX-License-Identifier: MIT
#include <sup++/KDirectory.h>
#include <sup++/KUtil.h>

#include <cstring>

#include <sys/files/FileCalls.h>
#include <unistd.h>

namespace KSUP {

KDirectory::KDirectory(const KString& directoryPath, Purpose use)
    : KBase("KDirectory", true),
      path(KUtil::AppendPathSep(directoryPath, "/")),
      purpose(use) {}

KDirectory::~KDirectory() {
    if (descriptor >= 0) {
        ::close(descriptor);
    }
}

const char* KDirectory::FindName(const KString& filePath, int& directory) noexcept {
    const unsigned size = path.GetSize();
    const char* name = filePath.c_str() + size;
    const bool isInside = filePath.GetSize() > size &&
                          std::memcmp(filePath.c_str(), path.c_str(), size) == 0 &&
                          std::strchr(name, '/') == nullptr;
    if (!isInside) {
        return nullptr;
    }
    if (!wasTried) {
        wasTried = true;
        KSYS::KDescriptor opened;
        const unsigned status = purpose == Purpose::Write
                                    ? KSYS::OpenPlace(filePath.c_str(), opened)
                                    : KSYS::OpenDirectory(path.c_str(), opened);
        descriptor = status == 0 ? opened.Release() : -1;
    }
    directory = descriptor;
    return descriptor >= 0 ? name : nullptr;
}

} // namespace KSUP
