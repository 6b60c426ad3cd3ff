// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/run/KCommandOutput.h>
#include <sup++/SvcProcess.h>

#include <filesystem>
#include <system_error>

namespace KSETUP {

namespace {

/// In bytes, 0 for a file that is missing.
std::uintmax_t SizeOf(const std::string& path) {
    std::error_code failed;
    const std::uintmax_t size = std::filesystem::file_size(path, failed);
    return failed ? 0 : size;
}

} // namespace

void KCommandOutput::Begin(const std::string& file) {
    path = file;
    sizeBefore = SizeOf(path);
    if (const unsigned status = SvcSetCommandOutput(path.c_str()); status != 0) {
        throw KSetupFailure(
            ExitCode::internal, std::generic_category().message(static_cast<int>(status))
        );
    }
}

std::string KCommandOutput::FindWritten() const {
    // Another size, not only a larger one: somebody may have emptied the file meanwhile.
    const std::uintmax_t size = SizeOf(path);
    return size == 0 || size == sizeBefore ? "" : path;
}

} // namespace KSETUP
