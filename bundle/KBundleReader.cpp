// SPDX-License-Identifier: MIT
#include <algorithm>

#include <bundle/Architecture.h>
#include <bundle/KBundleError.h>
#include <bundle/KBundleReader.h>
#include <bundle/KFrames.h>
#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileContent.h>
#include <zstd.h>

namespace KBUNDLE {

namespace {

constexpr std::size_t chunkBytes = std::size_t{1} << 20U;

/// Takes what is not wanted, as it stands in between.
class KPassed : public KBundleSink {
  public:
    void Begin(const KBundleEntry& /*entry*/) override {}
    void Add(std::string_view /*bytes*/) override {}
    void End(const KBundleEntry& /*entry*/) override {}
};

} // namespace

KBundleReader::KBundleReader(int openFile, const std::string& itsPath)
    : file(openFile),
      path(itsPath) {
    struct stat status {};
    const unsigned failed = KSYS::ReadStatus(file, status);
    if (failed != 0) {
        FailOnRead(path, failed);
    }
    const auto fileBytes = static_cast<std::uint64_t>(status.st_size);
    if (fileBytes < bundleEndBytes) {
        throw KBundleError(KBundleError::Kind::NoBundle, path + ": no bundle.");
    }
    const auto found =
        ReadBundleEnd(ReadPart(fileBytes - bundleEndBytes, bundleEndBytes), fileBytes);
    if (!found) {
        throw KBundleError(KBundleError::Kind::NoBundle, path + ": no bundle, or not all of one.");
    }
    end = *found;
    ReadTable();
}

void KBundleReader::FailDamaged(const std::string& why) const {
    throw KBundleError(
        KBundleError::Kind::Damaged, path + ": the bundle is damaged (" + why + "). Get it again."
    );
}

std::string KBundleReader::ReadPart(std::uint64_t offset, std::uint64_t byteCount) const {
    std::string bytes(static_cast<std::size_t>(byteCount), '\0');
    std::size_t have = 0;
    for (std::size_t count = 1; have < bytes.size() && count != 0; have += count) {
        const unsigned failed = KSYS::ReadAt(
            file, bytes.data() + have, bytes.size() - have, static_cast<off_t>(offset + have), count
        );
        if (failed != 0) {
            FailOnRead(path, failed);
        }
    }
    bytes.resize(have);
    return bytes;
}

void KBundleReader::ReadTable() {
    const std::string frame = ReadPart(end.headBytes + end.dataBytes, end.tableBytes);
    if (frame.size() != end.tableBytes || Sha256Of(frame) != end.tableSha256) {
        FailDamaged("its table of files was changed");
    }
    std::string bytes(static_cast<std::size_t>(end.tableContentBytes), '\0');
    const std::size_t count =
        ::ZSTD_decompress(bytes.data(), bytes.size(), frame.data(), frame.size());
    if (::ZSTD_isError(count) != 0 || count != bytes.size()) {
        FailDamaged("its table of files is none");
    }
    try {
        table = ReadBundleTable(bytes);
    } catch (const KBundleError& error) {
        FailDamaged(error.what());
    }
    for (const KBundleHead& head : table.heads) {
        if (head.offset > end.headBytes || head.byteCount > end.headBytes - head.offset) {
            FailDamaged("the program for " + head.architecture + " is not in front of it");
        }
    }
}

bool KBundleReader::Choose(std::string_view architecture) noexcept {
    if (table.heads.empty()) {
        return true;
    }
    KArchitectureBits bit = 1;
    for (const KBundleHead& head : table.heads) {
        if (head.architecture == architecture) {
            table.chosen = bit;
            return true;
        }
        bit <<= 1U;
    }
    return false;
}

std::vector<KBundleHead> KBundleReader::GetHeads() const {
    if (!table.heads.empty()) {
        return table.heads;
    }
    constexpr std::uint64_t headerBytes = 64;
    const KArchitecture* const found =
        FindArchitecture(ReadPart(0, std::min(end.headBytes, headerBytes)));
    if (found == nullptr) {
        FailDamaged("the program in front of it is for no known architecture");
    }
    return {{std::string(found->name), 0, end.headBytes}};
}

std::string KBundleReader::ReadHead(const KBundleHead& head) const {
    std::string bytes = ReadPart(head.offset, head.byteCount);
    if (bytes.size() != head.byteCount) {
        FailDamaged("it ends too early");
    }
    return bytes;
}

void KBundleReader::ReadFiles(
    std::size_t fileCount, KBundleSink& sink, const std::function<bool()>& shallStop
) const {
    ReadFilesOf(table.chosen, fileCount, sink, shallStop);
}

void KBundleReader::VerifyFiles(const std::function<bool()>& shallStop) const {
    KPassed nobody;
    ReadFilesOf(everyArchitecture, table.entries.size(), nobody, shallStop);
}

void KBundleReader::ReadFilesOf(
    KArchitectureBits architectures,
    std::size_t fileCount,
    KBundleSink& sink,
    const std::function<bool()>& shallStop
) const {
    KFrames frames(file, path, end.headBytes, end.dataBytes);
    for (const KBundleEntry& entry : table.entries) {
        if (entry.isDirectory) {
            continue;
        }
        if (fileCount-- == 0) {
            return;
        }
        KPassed passed;
        KBundleSink& taker = (entry.architectures & architectures) != 0 ? sink : passed;
        taker.Begin(entry);
        KSha256 sum;
        for (std::uint64_t left = entry.byteCount; left != 0;) {
            if (shallStop && shallStop()) {
                throw KBundleError(KBundleError::Kind::Stopped, "Stopped on request.");
            }
            const std::string_view bytes = frames.Next(left);
            if (bytes.empty()) {
                FailDamaged(entry.name + " ends too early");
            }
            sum.Add(bytes);
            taker.Add(bytes);
            left -= bytes.size();
        }
        if (sum.End() != entry.sha256) {
            FailDamaged(entry.name + " was changed");
        }
        taker.End(entry);
    }
    if (!frames.Next(1).empty()) {
        FailDamaged("there is more in it than its table says");
    }
}

bool KBundleReader::IsHeadWhole() const {
    KSha256 sum;
    for (std::uint64_t at = 0; at < end.headBytes;) {
        const std::string bytes =
            ReadPart(at, std::min<std::uint64_t>(end.headBytes - at, chunkBytes));
        if (bytes.empty()) {
            return false;
        }
        sum.Add(bytes);
        at += bytes.size();
    }
    return sum.End() == end.headSha256;
}

} // namespace KBUNDLE
