// SPDX-License-Identifier: MIT
#include <sup++/KErrorSource.h>
#include <sup++/KUtil.h>
#include <sup++/PathMap.h>
#include <sup++/Txt.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <locale>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <cxxabi.h>
#include <sys/KPerThread.h>
#include <sys/NeverDestroyed.h>
#include <sys/processes/ProcessList.h>

namespace KSUP {

namespace {

constexpr KErrorSource source{"sup++/KUtil"};

// After SIGKILL only a process that is stuck in the kernel remains.
constexpr auto killPatience = std::chrono::seconds(1);
constexpr int hexDigitsOfUnsigned = 7; // as the records of earlier products hold them
constexpr int hexDigitsOfDouble = 11;

std::size_t SeparatorSize(const char* separator) noexcept {
    return Txtsize(separator);
}

/// The size of `path` without separators at its end.
std::size_t BareSize(const KString& path, const char* separator) noexcept {
    const std::size_t step = SeparatorSize(separator);
    std::size_t size = path.GetSize();
    while (step > 0 && size >= step && std::memcmp(path.c_str() + size - step, separator, step) == 0
    ) {
        size -= step;
    }
    return size;
}

/// Where the last separator begins, or npos.
std::size_t LastSeparator(const KString& path, const char* separator) {
    return SeparatorSize(separator) == 0 ? std::string_view::npos
                                         : std::string_view(path.c_str()).rfind(separator);
}

KString FirstBytes(const KString& path, std::size_t bytes) {
    return KString(std::string(path.c_str(), bytes));
}

KString Hexadecimal(std::string_view digits, std::size_t width) {
    std::string text = "0x";
    text.append(digits.size() < width ? width - digits.size() : 0, '0').append(digits);
    return KString(std::move(text));
}

std::string Demangle(const char* name) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> readable(
        abi::__cxa_demangle(name, nullptr, nullptr, &status), &std::free
    );
    return readable != nullptr ? readable.get() : name;
}

KString ClassName(const char* name) {
    KString text(Demangle(name));
    text.Replace("class ", "", 0, KString::npos, true);
    text.Replace("KSUP::", "", 0, KString::npos, true);
    if (!text.IsEmpty()) {
        if (const int blank = text.Find(" ", 0, true); blank >= 0) {
            text.Truncate(static_cast<unsigned>(blank));
        }
    }
    return text += ":";
}

KString ProcessText(const KSYS::HeldProcess& process) {
    return "process " + std::to_string(process.id) + " (" + process.name + ")";
}

/// Names are asked for at each log entry, and a thread logs for few classes. Kept by the name's
/// letters, not by its address: a library may be unloaded and another take its place.
struct NameCache {
    struct Item {
        std::string mangled;
        KString readable;
    };
    std::array<Item, 8> items;
    std::size_t next = 0;
};

NameCache& TheNameCache() {
    static KSYS::NeverDestroyed<KSYS::KPerThread<NameCache>> cache;
    return cache.Get().Get();
}

} // namespace

KString KUtil::AppendPathSep(const KString& path, const char* separator) {
    const std::size_t bare = BareSize(path, separator);
    if (path.GetSize() == bare + SeparatorSize(separator)) {
        return path; // most paths are so already
    }
    return FirstBytes(path, bare) + separator;
}

KString KUtil::RemovePathSep(const KString& path, const char* separator) {
    return FirstBytes(path, BareSize(path, separator));
}

KString KUtil::GetFileFromPath(const KString& path, const char* separator) {
    const std::size_t last = LastSeparator(path, separator);
    return last == std::string_view::npos ? path
                                          : KString(path.c_str() + last + SeparatorSize(separator));
}

KString KUtil::RemoveFileFromPath(const KString& path, const char* separator) {
    const std::size_t last = LastSeparator(path, separator);
    if (last == std::string_view::npos) {
        return {};
    }
    return last == 0 ? KString(separator) : FirstBytes(path, last);
}

KString KUtil::GetPathMap(unsigned id) {
    return PathMap::Get(id);
}

void KUtil::SetPathMap(unsigned id, const KString& path) {
    PathMap::Set(id, path);
}

KString KUtil::GetPathName(unsigned id, const KString& name) {
    return AppendPathSep(GetPathMap(id), "/") + name;
}

KString KUtil::Lowerify(const KString& text) {
    KString lowered(text);
    lowered.MakeLower();
    return lowered;
}

KString KUtil::GetClassNameFromTypeInfo(const std::type_info& type) {
    const char* name = type.name();
    name += *name == '*' ? 1 : 0; // how g++ marks types that are compared by address
    NameCache& nameCache = TheNameCache();
    for (const NameCache::Item& item : nameCache.items) {
        if (item.mangled == name) {
            return item.readable;
        }
    }
    NameCache::Item& item = nameCache.items[nameCache.next++ % nameCache.items.size()];
    item = NameCache::Item{name, ClassName(name)};
    return item.readable;
}

void KUtil::KillProcess(const KString& program, unsigned timeoutMs) {
    if (program.IsEmpty()) {
        source.Raise(TraceLevel::support, ErrorCode::invalidArgument, "no program to stop");
    }
    std::vector<KSYS::HeldProcess> running;
    if (const unsigned status = KSYS::FindProcesses(program.c_str(), running); status != 0) {
        source.RaiseSystem(status, KOperation::Read, "/proc");
    }
    unsigned refused = 0;
    const auto signalAll = [&](int signal) {
        for (const KSYS::HeldProcess& one : running) {
            const unsigned status = KSYS::Signal(one, signal);
            refused = status != 0 ? status : refused; // the others are to end all the same
        }
    };
    signalAll(SIGTERM);
    KSYS::WaitForEnd(running, std::chrono::milliseconds(timeoutMs));
    signalAll(SIGKILL);
    KSYS::WaitForEnd(running, killPatience);
    if (running.empty()) {
        return;
    }
    if (refused != 0) {
        source.RaiseSystem(refused, ProcessText(running.front()));
    }
    // The system's words for this code speak of a connection.
    const KString process = ProcessText(running.front());
    source.RaiseAs(
        {KErrorKind::System, KOperation::None, process, "did not end"},
        TraceLevel::support,
        ETIMEDOUT,
        process + ": did not end"
    );
}

template <>
KString KUtil::NumberToString<unsigned int>(unsigned int value, bool hex) {
    std::array<char, 16> digits{};
    const auto result =
        std::to_chars(digits.data(), digits.data() + digits.size(), value, hex ? 16 : 10);
    if (result.ec != std::errc()) {
        source.Raise(
            TraceLevel::support, ErrorCode::numberConversion, {}, __builtin_LINE(), "NumberToString"
        );
    }
    const std::string_view text(
        digits.data(), static_cast<std::size_t>(result.ptr - digits.data())
    );
    return hex ? Hexadecimal(text, hexDigitsOfUnsigned) : KString(std::string(text));
}

template <>
KString KUtil::NumberToString<double>(double value, bool hex) {
    // "general" with six digits is what a stream writes by default, without a stream's cost: this
    // runs for every chunk of a copy, there with whole numbers, which are quicker still.
    std::array<char, 32> digits{};
    char* const end = digits.data() + digits.size();
    const bool isWhole = value >= 0 && value < 1e6 && !std::signbit(value) &&
                         static_cast<double>(static_cast<unsigned>(value)) == value;
    const auto result =
        isWhole ? std::to_chars(digits.data(), end, static_cast<unsigned>(value))
                : std::to_chars(digits.data(), end, value, std::chars_format::general, 6);
    if (result.ec != std::errc()) {
        source.Raise(
            TraceLevel::support, ErrorCode::numberConversion, {}, __builtin_LINE(), "NumberToString"
        );
    }
    const std::string_view text(
        digits.data(), static_cast<std::size_t>(result.ptr - digits.data())
    );
    return hex ? Hexadecimal(text, hexDigitsOfDouble) : KString(std::string(text));
}

template <>
unsigned int KUtil::StringToNumber<unsigned int>(const KString& text, bool hex) {
    const bool prefixed = Txtincmp(text.Left(2).c_str(), "0x", 2) == 0;
    std::istringstream stream(text.c_str() + (prefixed ? 2 : 0));
    stream.imbue(std::locale::classic()); // a program's locale must not change what a file says
    unsigned int value = 0;
    stream >> (prefixed || hex ? std::hex : std::dec) >> value;
    if (stream.fail()) {
        source.Raise(
            TraceLevel::support,
            ErrorCode::numberConversion,
            text,
            __builtin_LINE(),
            "StringToNumber"
        );
    }
    return value;
}

} // namespace KSUP
