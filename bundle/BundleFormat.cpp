// SPDX-License-Identifier: MIT
#include <algorithm>
#include <climits>
#include <concepts>
#include <unordered_map>

#include <bundle/BundleFormat.h>
#include <bundle/KBundleError.h>

namespace KBUNDLE {

namespace {

constexpr std::string_view endMagic = "InsBndl1";
constexpr std::string_view tableMagic = "InsTabl1";
constexpr char fileLetter = 'f';
constexpr char directoryLetter = 'd';
constexpr std::uint32_t permissions = 07777;
constexpr std::uint32_t nanosecondsPerSecond = 1000000000;

template <std::integral Number>
void Add(std::string& bytes, Number number) {
    auto rest = static_cast<std::uint64_t>(number);
    for (std::size_t byte = 0; byte < sizeof(Number); ++byte, rest >>= CHAR_BIT) {
        bytes += static_cast<char>(rest & UCHAR_MAX);
    }
}

void Add(std::string& bytes, const KSha256Bytes& digest) {
    bytes.append(digest.begin(), digest.end());
}

void AddText(std::string& bytes, const std::string& text) {
    Add(bytes, static_cast<std::uint16_t>(text.size()));
    bytes += text;
}

[[noreturn]] void Refuse(const std::string& why) {
    throw KBundleError(KBundleError::Kind::Damaged, "its table of files " + why);
}

/// Takes parts from the front of bytes that may end anywhere.
class KByteReader {
  public:
    explicit KByteReader(std::string_view itsBytes) : bytes(itsBytes) {}

    std::string_view Take(std::size_t count) {
        if (count > bytes.size()) {
            Refuse("ends too early");
        }
        const std::string_view taken = bytes.substr(0, count);
        bytes.remove_prefix(count);
        return taken;
    }
    template <std::integral Number>
    Number TakeNumber() {
        std::uint64_t number = 0;
        unsigned shift = 0;
        for (const char byte : Take(sizeof(Number))) {
            number |= std::uint64_t{static_cast<unsigned char>(byte)} << shift;
            shift += CHAR_BIT;
        }
        return static_cast<Number>(number);
    }
    KSha256Bytes TakeDigest() {
        KSha256Bytes digest{};
        std::copy_n(Take(digest.size()).begin(), digest.size(), digest.begin());
        return digest;
    }
    std::string TakeText() { return std::string(Take(TakeNumber<std::uint16_t>())); }
    bool IsAtEnd() const noexcept { return bytes.empty(); }

  private:
    std::string_view bytes;
};

/// A name that stays below the directory that it is unpacked to.
bool IsSafe(std::string_view name) {
    if (name.empty() || name.size() >= PATH_MAX || name.find('\0') != std::string_view::npos) {
        return false;
    }
    for (std::size_t begin = 0; begin <= name.size();) {
        const std::size_t end = std::min(name.find('/', begin), name.size());
        const std::string_view part = name.substr(begin, end - begin);
        if (part.empty() || part == "." || part == ".." || part.size() > NAME_MAX) {
            return false;
        }
        begin = end + 1;
    }
    return true;
}

KBundleEntry TakeEntry(KByteReader& reader) {
    KBundleEntry entry;
    const char letter = reader.Take(1).front();
    if (letter != fileLetter && letter != directoryLetter) {
        Refuse("has an entry that is neither file nor directory");
    }
    entry.isDirectory = letter == directoryLetter;
    entry.mode = reader.TakeNumber<std::uint32_t>();
    entry.seconds = reader.TakeNumber<std::int64_t>();
    entry.nanoseconds = reader.TakeNumber<std::uint32_t>();
    if (entry.mode > permissions || entry.nanoseconds >= nanosecondsPerSecond) {
        Refuse("has a mode or a time that there is not");
    }
    if (!entry.isDirectory) {
        entry.byteCount = reader.TakeNumber<std::uint64_t>();
        entry.sha256 = reader.TakeDigest();
    }
    entry.name = reader.TakeText();
    return entry;
}

} // namespace

bool IsInFront(const KBundleEntry& entry) {
    constexpr std::string_view texts = "locale";
    const std::string_view name = entry.name;
    const bool isText = name.substr(0, name.find('/')) == texts;
    return isText || (!entry.isDirectory && name.find('/') == std::string_view::npos);
}

std::string ToBytes(const KBundleEnd& end) {
    std::string bytes;
    Add(bytes, end.headSha256);
    Add(bytes, end.tableSha256);
    Add(bytes, end.headBytes);
    Add(bytes, end.dataBytes);
    Add(bytes, end.tableBytes);
    Add(bytes, end.tableContentBytes);
    Add(bytes, std::uint64_t{0}); // for what comes
    bytes += endMagic;
    return bytes;
}

std::optional<KBundleEnd> ReadBundleEnd(std::string_view bytes, std::uint64_t fileBytes) {
    if (bytes.size() < bundleEndBytes || !bytes.ends_with(endMagic)) {
        return std::nullopt;
    }
    KByteReader reader(bytes.substr(bytes.size() - bundleEndBytes));
    KBundleEnd end;
    end.headSha256 = reader.TakeDigest();
    end.tableSha256 = reader.TakeDigest();
    end.headBytes = reader.TakeNumber<std::uint64_t>();
    end.dataBytes = reader.TakeNumber<std::uint64_t>();
    end.tableBytes = reader.TakeNumber<std::uint64_t>();
    end.tableContentBytes = reader.TakeNumber<std::uint64_t>();
    const bool isLater = reader.TakeNumber<std::uint64_t>() != 0;
    std::uint64_t left = fileBytes;
    for (const std::uint64_t part :
         {std::uint64_t{bundleEndBytes}, end.headBytes, end.dataBytes, end.tableBytes}) {
        if (part > left) {
            return std::nullopt;
        }
        left -= part;
    }
    const bool isInMemory = end.tableBytes <= largestTable && end.tableContentBytes <= largestTable;
    return left == 0 && isInMemory && !isLater ? std::optional(end) : std::nullopt;
}

std::string ToBytes(const KBundleTable& table) {
    std::string bytes(tableMagic);
    AddText(bytes, table.place);
    Add(bytes, static_cast<std::uint64_t>(table.entries.size()));
    for (const KBundleEntry& entry : table.entries) {
        bytes += entry.isDirectory ? directoryLetter : fileLetter;
        Add(bytes, entry.mode);
        Add(bytes, entry.seconds);
        Add(bytes, entry.nanoseconds);
        if (!entry.isDirectory) {
            Add(bytes, entry.byteCount);
            Add(bytes, entry.sha256);
        }
        AddText(bytes, entry.name);
    }
    return bytes;
}

KBundleTable ReadBundleTable(std::string_view bytes) {
    KByteReader reader(bytes);
    KBundleTable table;
    if (reader.Take(tableMagic.size()) != tableMagic) {
        Refuse("is none");
    }
    table.place = reader.TakeText();
    const auto count = reader.TakeNumber<std::uint64_t>();
    std::unordered_map<std::string, bool> isDirectory{{"", true}};
    for (std::uint64_t at = 0; at < count; ++at) {
        const KBundleEntry& entry = table.entries.emplace_back(TakeEntry(reader));
        if (!IsSafe(entry.name)) {
            Refuse("has a name that leads out of the kit");
        }
        const std::size_t slash = entry.name.rfind('/');
        const auto parent =
            isDirectory.find(slash == std::string::npos ? "" : entry.name.substr(0, slash));
        if (parent == isDirectory.end() || !parent->second) {
            Refuse("has a name in a directory that is not there");
        }
        if (!isDirectory.emplace(entry.name, entry.isDirectory).second) {
            Refuse("has a name twice");
        }
    }
    if (!reader.IsAtEnd()) {
        Refuse("is longer than it says");
    }
    return table;
}

} // namespace KBUNDLE
