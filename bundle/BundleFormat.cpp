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
/// Of several architectures.
constexpr std::string_view joinedTableMagic = "InsTabl2";
static_assert(tableMagic.size() == joinedTableMagic.size());
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

bool IsArchitectureName(std::string_view name) {
    constexpr std::size_t longest = 16;
    return !name.empty() && name.size() <= longest &&
           name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_") ==
               std::string_view::npos;
}

std::vector<KBundleHead> TakeHeads(KByteReader& reader) {
    std::vector<KBundleHead> heads;
    const auto count = reader.TakeNumber<std::uint8_t>();
    if (count == 0 || count > mostArchitectures) {
        Refuse("is for no architecture, or for too many");
    }
    for (unsigned at = 0; at < count; ++at) {
        KBundleHead head;
        head.architecture = reader.TakeText();
        head.offset = reader.TakeNumber<std::uint64_t>();
        head.byteCount = reader.TakeNumber<std::uint64_t>();
        const bool isThere = std::any_of(heads.begin(), heads.end(), [&](const KBundleHead& each) {
            return each.architecture == head.architecture;
        });
        if (isThere || !IsArchitectureName(head.architecture)) {
            Refuse("has an architecture twice, or one that there is not");
        }
        heads.push_back(std::move(head));
    }
    return heads;
}

/// The names of a table so far, and which architectures have each as what.
class KNames {
  public:
    void Add(const KBundleEntry& entry) {
        if (!IsSafe(entry.name)) {
            Refuse("has a name that leads out of the kit");
        }
        const std::size_t slash = entry.name.rfind('/');
        const auto parent =
            names.find(slash == std::string::npos ? "" : entry.name.substr(0, slash));
        if (parent == names.end() ||
            (parent->second.asDirectory & entry.architectures) != entry.architectures) {
            Refuse("has a name in a directory that is not there");
        }
        KOwners& owners = names[entry.name];
        if ((owners.all & entry.architectures) != 0) {
            Refuse("has a name twice");
        }
        owners.all |= entry.architectures;
        owners.asDirectory |= entry.isDirectory ? entry.architectures : 0;
    }

  private:
    struct KOwners {
        KArchitectureBits all = 0;
        KArchitectureBits asDirectory = 0;
    };

    std::unordered_map<std::string, KOwners> names{{"", {everyArchitecture, everyArchitecture}}};
};

KBundleEntry TakeEntry(KByteReader& reader, const std::vector<KBundleHead>& heads) {
    KBundleEntry entry;
    const char letter = reader.Take(1).front();
    if (letter != fileLetter && letter != directoryLetter) {
        Refuse("has an entry that is neither file nor directory");
    }
    entry.isDirectory = letter == directoryLetter;
    if (!heads.empty()) {
        entry.architectures = reader.TakeNumber<KArchitectureBits>();
        if (entry.architectures == 0 || (entry.architectures & ~BitsOf(heads.size())) != 0) {
            Refuse("has an entry for an architecture that it has not");
        }
    }
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
    std::string bytes(table.heads.empty() ? tableMagic : joinedTableMagic);
    AddText(bytes, table.place);
    if (!table.heads.empty()) {
        Add(bytes, static_cast<std::uint8_t>(table.heads.size()));
    }
    for (const KBundleHead& head : table.heads) {
        AddText(bytes, head.architecture);
        Add(bytes, head.offset);
        Add(bytes, head.byteCount);
    }
    Add(bytes, static_cast<std::uint64_t>(table.entries.size()));
    for (const KBundleEntry& entry : table.entries) {
        bytes += entry.isDirectory ? directoryLetter : fileLetter;
        if (!table.heads.empty()) {
            Add(bytes, entry.architectures & BitsOf(table.heads.size()));
        }
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
    const std::string_view magic = reader.Take(tableMagic.size());
    if (magic != tableMagic && magic != joinedTableMagic) {
        Refuse("is none");
    }
    table.place = reader.TakeText();
    if (magic == joinedTableMagic) {
        table.heads = TakeHeads(reader);
    }
    const auto count = reader.TakeNumber<std::uint64_t>();
    KNames names;
    for (std::uint64_t at = 0; at < count; ++at) {
        names.Add(table.entries.emplace_back(TakeEntry(reader, table.heads)));
    }
    if (!reader.IsAtEnd()) {
        Refuse("is longer than it says");
    }
    return table;
}

} // namespace KBUNDLE
