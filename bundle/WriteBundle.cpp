// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <thread>

#include <bundle/BundleFormat.h>
#include <bundle/JoinedHead.h>
#include <bundle/KBundleError.h>
#include <bundle/WriteBundle.h>
#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileCalls.h>
#include <sys/files/FileContent.h>
#include <zstd.h>

namespace KBUNDLE {

namespace {

constexpr std::size_t chunkBytes = std::size_t{1} << 20U;
/// Smaller than gzip -9 makes it, in a fraction of the time; unpacking is as fast with any.
constexpr int compressionLevel = 12;
constexpr unsigned mostWorkers = 16; // each takes memory
constexpr std::uint32_t permissions = 07777;

void Require(unsigned failed, const std::string& path) {
    if (failed != 0) {
        FailOnRead(path, failed);
    }
}

/// A file that is written from its begin to its end.
class KOutput {
  public:
    explicit KOutput(const std::string& itsPath) : path(itsPath) {
        Check(KSYS::MakeFile(path, file));
    }

    void Write(std::string_view bytes) {
        Check(KSYS::WriteAll(file.Get(), bytes.data(), bytes.size()));
        byteCount += bytes.size();
    }
    void Close() {
        constexpr unsigned executable = 0755;
        Check(KSYS::SetMode(file.Get(), executable));
        Check(KSYS::Flush(file.Get()));
        Check(KSYS::CloseReporting(file));
    }
    std::uint64_t GetByteCount() const noexcept { return byteCount; }

  private:
    void Check(unsigned failed) const {
        if (failed != 0) {
            FailOnWrite(path, failed);
        }
    }

    const std::string& path;
    KSYS::KDescriptor file;
    std::uint64_t byteCount = 0;
};

/// One frame, packed by several threads.
class KPacker {
  public:
    explicit KPacker(KOutput& itsOutput) : output(itsOutput) {
        if (stream == nullptr) {
            throw std::bad_alloc();
        }
        ::ZSTD_CCtx_setParameter(stream.get(), ZSTD_c_compressionLevel, compressionLevel);
        ::ZSTD_CCtx_setParameter(stream.get(), ZSTD_c_checksumFlag, 0); // each file has its digest
        const unsigned workers = std::clamp(std::thread::hardware_concurrency(), 1U, mostWorkers);
        // Refused by a library without threads, which makes the same in more time.
        ::ZSTD_CCtx_setParameter(stream.get(), ZSTD_c_nbWorkers, static_cast<int>(workers));
    }

    void Add(std::string_view bytes) { Pack(bytes, ZSTD_e_continue); }
    void End() { Pack({}, ZSTD_e_end); }

  private:
    void Pack(std::string_view bytes, ZSTD_EndDirective directive) {
        ZSTD_inBuffer in{bytes.data(), bytes.size(), 0};
        for (bool isDone = false; !isDone;) {
            ZSTD_outBuffer out{packed.get(), chunkBytes, 0};
            const std::size_t left = ::ZSTD_compressStream2(stream.get(), &out, &in, directive);
            if (::ZSTD_isError(left) != 0) {
                throw KBundleError(
                    KBundleError::Kind::CannotWrite,
                    std::string("cannot pack the bundle: ") + ::ZSTD_getErrorName(left) + "."
                );
            }
            output.Write({packed.get(), out.pos});
            isDone = directive == ZSTD_e_end ? left == 0 : in.pos == in.size;
        }
    }

    KOutput& output;
    std::unique_ptr<char[]> packed = std::make_unique_for_overwrite<char[]>(chunkBytes);
    std::unique_ptr<ZSTD_CCtx, std::size_t (*)(ZSTD_CCtx*)> stream{
        ::ZSTD_createCCtx(), &::ZSTD_freeCCtx};
};

/// Reads a file once; returns its digest, and how long it was.
template <class Take>
KSha256Bytes ReadThrough(const std::string& path, std::uint64_t& byteCount, Take take) {
    KSYS::KDescriptor file;
    struct stat status {};
    Require(KSYS::OpenRegularEntry(path, O_RDONLY, file, status), path);
    const auto chunk = std::make_unique_for_overwrite<char[]>(chunkBytes);
    KSha256 sum;
    byteCount = 0;
    for (std::size_t count = 1; count != 0;) {
        Require(KSYS::ReadSome(file.Get(), chunk.get(), chunkBytes, count), path);
        sum.Add({chunk.get(), count});
        take(std::string_view(chunk.get(), count));
        byteCount += count;
    }
    return sum.End();
}

/// Appends what is below a directory of the tree, sorted, a directory before what is in it.
void List(const std::string& root, const std::string& below, std::vector<KBundleEntry>& entries) {
    const std::string directory = below.empty() ? root : root + "/" + below;
    std::vector<std::string> names;
    Require(KSYS::ListEntries(directory, names), directory);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        KBundleEntry entry;
        entry.name = below.empty() ? name : below + "/" + name;
        const std::string path = root + "/" + entry.name;
        struct stat status {};
        Require(KSYS::ReadStatus(path, KSYS::LastLink::Keep, status), path);
        if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
            FailOnRead(path, EINVAL);
        }
        entry.isDirectory = S_ISDIR(status.st_mode);
        entry.mode = status.st_mode & permissions;
        entry.seconds = status.st_mtim.tv_sec;
        entry.nanoseconds = static_cast<std::uint32_t>(status.st_mtim.tv_nsec);
        entries.push_back(entry);
        if (entry.isDirectory) {
            List(root, entry.name, entries);
        }
    }
}

/// Something that is packed, and where it lies.
struct KPacked {
    KBundleEntry entry;
    std::string path;
};

/// Whether one of them serves for both; when they were written does not matter.
bool IsSame(const KBundleEntry& left, const KBundleEntry& right) {
    return left.isDirectory == right.isDirectory && left.mode == right.mode &&
           left.byteCount == right.byteCount && left.sha256 == right.sha256;
}

/// Directories first, then the files that questions need alone.
unsigned RankOf(const KBundleEntry& entry) {
    return entry.isDirectory ? 0U : IsInFront(entry) ? 1U : 2U;
}

void SortForReading(std::vector<KPacked>& files) {
    std::stable_sort(files.begin(), files.end(), [](const KPacked& left, const KPacked& right) {
        return RankOf(left.entry) < RankOf(right.entry);
    });
}

std::vector<KPacked> FilesBelow(const std::string& directory) {
    std::vector<KBundleEntry> entries;
    List(directory, "", entries);
    std::vector<KPacked> files;
    for (KBundleEntry& entry : entries) {
        const std::string path = directory + "/" + entry.name;
        files.push_back({std::move(entry), path});
    }
    return files;
}

/// Packs the files, and ends the bundle with the table of them.
void WriteBehindHead(
    KOutput& output, KBundleTable table, std::vector<KPacked>& files, const KSha256Bytes& headSha256
) {
    KBundleEnd end;
    end.headBytes = output.GetByteCount();
    end.headSha256 = headSha256;
    KPacker packer(output);
    for (KPacked& file : files) {
        if (!file.entry.isDirectory) {
            file.entry.sha256 =
                ReadThrough(file.path, file.entry.byteCount, [&](std::string_view bytes) {
                    packer.Add(bytes);
                });
        }
        table.entries.push_back(file.entry);
    }
    packer.End();
    end.dataBytes = output.GetByteCount() - end.headBytes;
    const std::string bytes = ToBytes(table);
    std::string frame(::ZSTD_compressBound(bytes.size()), '\0');
    const std::size_t frameBytes =
        ::ZSTD_compress(frame.data(), frame.size(), bytes.data(), bytes.size(), compressionLevel);
    if (::ZSTD_isError(frameBytes) != 0) {
        throw std::bad_alloc(); // all else was made sure of
    }
    frame.resize(frameBytes);
    end.tableBytes = frame.size();
    end.tableContentBytes = bytes.size();
    end.tableSha256 = Sha256Of(frame);
    output.Write(frame);
    output.Write(ToBytes(end));
    output.Close();
}

/// The files of all, each with its architectures; what is the same stands there once.
std::vector<KPacked> Join(const std::vector<KArchitectureSource>& sources) {
    std::vector<KPacked> files;
    std::map<std::string, std::vector<std::size_t>> byName;
    KArchitectureBits bit = 1;
    for (const KArchitectureSource& source : sources) {
        for (KPacked& file : FilesBelow(source.directory)) {
            KBundleEntry& entry = file.entry;
            entry.architectures = bit;
            if (!entry.isDirectory) {
                entry.sha256 = ReadThrough(file.path, entry.byteCount, [](std::string_view) {});
            }
            std::vector<std::size_t>& others = byName[entry.name];
            const auto same = std::find_if(others.begin(), others.end(), [&](std::size_t at) {
                return IsSame(files[at].entry, entry);
            });
            if (same != others.end()) {
                files[*same].entry.architectures |= bit;
                continue;
            }
            others.push_back(files.size());
            files.push_back(std::move(file));
        }
        bit <<= 1U;
    }
    return files;
}

/// Writes what is in front; the digest of it all.
KSha256Bytes
WriteHeads(KOutput& output, const std::vector<KArchitectureSource>& sources, KBundleTable& table) {
    for (const KArchitectureSource& source : sources) {
        KBundleHead& head = table.heads.emplace_back();
        head.architecture = source.architecture;
        static_cast<void>(ReadThrough(source.head, head.byteCount, [](std::string_view) {}));
    }
    KSha256 sum;
    const auto write = [&](std::string_view bytes) {
        sum.Add(bytes);
        output.Write(bytes);
    };
    write(JoinedHead(table.heads));
    for (std::size_t at = 0; at < sources.size(); ++at) {
        std::uint64_t byteCount = 0;
        static_cast<void>(ReadThrough(sources[at].head, byteCount, write));
        const auto over = static_cast<std::size_t>(byteCount % headBlockBytes);
        write(std::string(over == 0 ? 0 : headBlockBytes - over, '\0'));
    }
    return sum.End();
}

} // namespace

void WriteBundle(const KBundleSource& source, const std::string& target) {
    std::vector<KPacked> files = FilesBelow(source.directory);
    SortForReading(files);
    KOutput output(target);
    std::uint64_t headBytes = 0;
    const KSha256Bytes headSha256 =
        ReadThrough(source.head, headBytes, [&](std::string_view bytes) { output.Write(bytes); });
    WriteBehindHead(output, {.place = source.place, .entries = {}}, files, headSha256);
}

std::vector<KBundleEntry> JoinedEntries(const std::vector<KArchitectureSource>& sources) {
    std::vector<KBundleEntry> entries;
    for (KPacked& file : Join(sources)) {
        entries.push_back(std::move(file.entry));
    }
    return entries;
}

void WriteJoinedBundle(
    const std::vector<KArchitectureSource>& sources,
    const std::string& place,
    const std::string& target
) {
    std::vector<KPacked> files = Join(sources);
    SortForReading(files);
    KOutput output(target);
    KBundleTable table{.place = place, .entries = {}};
    const KSha256Bytes headSha256 = WriteHeads(output, sources, table);
    WriteBehindHead(output, std::move(table), files, headSha256);
}

} // namespace KBUNDLE
