// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include <bundle/KBundleError.h>
#include <bundle/KWorkPlace.h>
#include <bundle/UnpackedTable.h>
#include <sys/files/FileStatus.h>
#include <sys/files/SealedMemory.h>
#include <unistd.h>

namespace KBUNDLE {

namespace {

constexpr const char* shownName = "ins-setup-bundle";

/// Which directory a table is of, in front of it: a program that was run out of one bundle may unpack
/// another.
std::string IdentityOf(const struct stat& directory) {
    const std::array<std::uint64_t, 2> numbers{directory.st_dev, directory.st_ino};
    return {
        reinterpret_cast<const char*>(numbers.data()), sizeof(numbers)}; // of this machine alone
}

} // namespace

KSYS::KDescriptor KeepTable(const KBundleTable& table, const std::string& directory) {
    KSYS::KDescriptor kept;
    struct stat status {};
    if (KSYS::ReadStatus(directory, KSYS::LastLink::Keep, status) == 0) {
        KBundleTable unpacked;
        std::copy_if(
            table.entries.begin(),
            table.entries.end(),
            std::back_inserter(unpacked.entries),
            [&](const KBundleEntry& entry) { return table.IsChosen(entry); }
        );
        // Without memory for it nothing is lost but time.
        static_cast<void>(
            KSYS::MakeSealedMemory(shownName, IdentityOf(status) + ToBytes(unpacked), kept)
        );
    }
    return kept;
}

std::optional<KBundleTable> FindKeptTable(const std::string& directory) {
    struct stat status {};
    if (KSYS::ReadStatus(directory, KSYS::LastLink::Keep, status) != 0) {
        return std::nullopt;
    }
    const std::string identity = IdentityOf(status);
    for (int number = STDERR_FILENO + 1; number < mostHeld; ++number) {
        std::string bytes;
        if (KSYS::ReadSealedMemory(number, bytes) == 0 && bytes.starts_with(identity)) {
            try {
                return ReadBundleTable(std::string_view(bytes).substr(identity.size()));
            } catch (const KBundleError&) {
                return std::nullopt; // somebody else's memory
            }
        }
    }
    return std::nullopt;
}

} // namespace KBUNDLE
