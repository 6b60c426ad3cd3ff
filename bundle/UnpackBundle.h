// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <bundle/KBundleReader.h>

namespace KBUNDLE {

/// How much of a bundle is wanted.
enum class BundlePart : std::uint8_t {
    Everything,
    FilesInFront ///< those that IsInFront tells, and their directories
};

/// The files of a table that are of a part, by their number: it is a begin of them, for whatever
/// architecture they are.
std::size_t CountFiles(const KBundleTable& table, BundlePart part);

/// What unpacking what is chosen of it takes on a file system with blocks of this size.
struct KBundleNeeds {
    std::uint64_t bytes = 0;
    std::uint64_t entries = 0;
};
KBundleNeeds NeedsOf(const KBundleTable& table, BundlePart part, std::uint64_t blockBytes);

/// Unpacks what is chosen into a directory that is there, is empty, and that nobody else can write to: with the modes
/// and times that were packed, each file held against its digest on its way.
///
/// Throws   KBundleError, as KBundleReader::ReadFiles; CannotWrite. What was unpacked until then is left.
void UnpackBundle(
    const KBundleReader& bundle,
    const std::string& directory,
    BundlePart part = BundlePart::Everything,
    const std::function<bool()>& shallStop = {}
);

/// Reads everything, for all architectures, and holds it against its digests, the programs in front too.
///
/// Throws   KBundleError
void VerifyBundle(const KBundleReader& bundle, const std::function<bool()>& shallStop = {});

} // namespace KBUNDLE
