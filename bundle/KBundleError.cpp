// SPDX-License-Identifier: MIT
#include <system_error>

#include <bundle/KBundleError.h>

namespace KBUNDLE {

void FailOnRead(const std::string& path, unsigned error) {
    throw KBundleError(
        KBundleError::Kind::CannotRead,
        path + ": " + std::generic_category().message(static_cast<int>(error)) + "."
    );
}

void FailOnWrite(const std::string& path, unsigned error) {
    throw KBundleError(
        KBundleError::Kind::CannotWrite,
        "cannot write " + path + ": " + std::generic_category().message(static_cast<int>(error)) +
            "."
    );
}

} // namespace KBUNDLE
