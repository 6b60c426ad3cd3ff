// SPDX-License-Identifier: MIT
#include <algorithm>

#include <bundle/KBundleError.h>
#include <bundle/UnpackBundle.h>
#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileCalls.h>
#include <sys/files/FileContent.h>

namespace KBUNDLE {

namespace {

void RequireWritten(unsigned failed, const std::string& path) {
    if (failed != 0) {
        FailOnWrite(path, failed);
    }
}

timespec TimeOf(const KBundleEntry& entry) {
    return {
        .tv_sec = static_cast<time_t>(entry.seconds),
        .tv_nsec = static_cast<long>(entry.nanoseconds)};
}

bool IsWanted(const KBundleEntry& entry, BundlePart part) {
    return part == BundlePart::Everything || IsInFront(entry);
}

class KFileSink : public KBundleSink {
  public:
    explicit KFileSink(const std::string& itsDirectory) : directory(itsDirectory) {}

    void Begin(const KBundleEntry& entry) override {
        path = directory + "/" + entry.name;
        RequireWritten(KSYS::MakeFile(path, file), path);
    }
    void Add(std::string_view bytes) override {
        RequireWritten(KSYS::WriteAll(file.Get(), bytes.data(), bytes.size()), path);
    }
    void End(const KBundleEntry& entry) override {
        RequireWritten(KSYS::SetMode(file.Get(), entry.mode), path);
        RequireWritten(KSYS::SetTime(file.Get(), TimeOf(entry)), path);
        RequireWritten(KSYS::CloseReporting(file), path);
    }

  private:
    const std::string& directory;
    std::string path;
    KSYS::KDescriptor file;
};

} // namespace

std::size_t CountFiles(const KBundleTable& table, BundlePart part) {
    std::size_t count = 0;
    for (const KBundleEntry& entry : table.entries) {
        if (entry.isDirectory) {
            continue;
        }
        if (!IsWanted(entry, part)) {
            break;
        }
        ++count;
    }
    return count;
}

KBundleNeeds NeedsOf(const KBundleTable& table, BundlePart part, std::uint64_t blockBytes) {
    KBundleNeeds needs;
    const std::uint64_t block = std::max<std::uint64_t>(blockBytes, 1);
    for (const KBundleEntry& entry : table.entries) {
        if (!table.IsChosen(entry) || !IsWanted(entry, part)) {
            continue;
        }
        needs.bytes += entry.isDirectory ? block : (entry.byteCount + block - 1) / block * block;
        ++needs.entries;
    }
    return needs;
}

void UnpackBundle(
    const KBundleReader& bundle,
    const std::string& directory,
    BundlePart part,
    const std::function<bool()>& shallStop
) {
    const std::vector<KBundleEntry>& entries = bundle.GetTable().entries;
    const auto isMade = [&](const KBundleEntry& entry) {
        return entry.isDirectory && bundle.GetTable().IsChosen(entry) && IsWanted(entry, part);
    };
    for (const KBundleEntry& entry : entries) {
        if (isMade(entry)) {
            const std::string path = directory + "/" + entry.name;
            RequireWritten(KSYS::MakeDirectoryEntry(path, S_IRWXU), path);
        }
    }
    KFileSink sink(directory);
    bundle.ReadFiles(CountFiles(bundle.GetTable(), part), sink, shallStop);
    // The deepest first, when nothing is made in them any more.
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        if (isMade(*entry)) {
            const std::string path = directory + "/" + entry->name;
            KSYS::KDescriptor opened;
            RequireWritten(KSYS::OpenDirectoryEntry(path, opened), path);
            RequireWritten(KSYS::SetMode(opened.Get(), entry->mode), path);
            RequireWritten(KSYS::SetTime(opened.Get(), TimeOf(*entry)), path);
        }
    }
}

void VerifyBundle(const KBundleReader& bundle, const std::function<bool()>& shallStop) {
    if (!bundle.IsHeadWhole()) {
        throw KBundleError(
            KBundleError::Kind::Damaged,
            bundle.GetPath() +
                ": the bundle is damaged (the program in front of it was changed). Get it again."
        );
    }
    bundle.VerifyFiles(shallStop);
}

} // namespace KBUNDLE
