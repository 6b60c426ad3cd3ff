// SPDX-License-Identifier: MIT
#include <sup++/KErrorSource.h>
#include <sup++/KLogBase.h>
#include <sup++/KUtil.h>
#include <sup++/Txt.h>

#include <utf8.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <deque>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/KPerThread.h>
#include <sys/NeverDestroyed.h>
#include <sys/files/FileCalls.h>

namespace KSUP {

namespace {

constexpr KErrorSource source{"sup++/KLogBase"};
constexpr unsigned logMode = 0640;

std::uint64_t NextSerial() noexcept {
    static std::atomic<std::uint64_t> serials{0};
    return ++serials;
}

/// The text of a second, in which only the milliseconds change.
struct Second {
    std::time_t value = -1;
    std::array<char, 25> text{};
};

/// Appends the UTC time in milliseconds, as in 2026-01-31T23:59:59.123Z. The date is worked out
/// once a second; entries come in thousands.
void AppendTime(std::string& line, Second& second) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != second.value) {
        std::tm parts{};
        ::gmtime_r(&now.tv_sec, &parts);
        std::strftime(second.text.data(), second.text.size(), "%Y-%m-%dT%H:%M:%S.000Z", &parts);
        second.value = now.tv_sec;
    }
    constexpr std::size_t fraction = 20; // its first digit
    const auto milliseconds = static_cast<int>(now.tv_nsec / 1000000);
    const auto digit = [](int value) { return static_cast<char>('0' + value % 10); };
    second.text[fraction] = digit(milliseconds / 100);
    second.text[fraction + 1] = digit(milliseconds / 10);
    second.text[fraction + 2] = digit(milliseconds);
    line.append(second.text.data(), second.text.size() - 1);
}

std::string Digits(unsigned long long number, int base) {
    std::array<char, 24> digits{};
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), number, base);
    return {digits.data(), result.ptr};
}

constexpr unsigned char hasControl = 1;
constexpr unsigned char isAboveAscii = 0x80;

/// hasControl, isAboveAscii, both or neither: what there is among the bytes.
unsigned char LookAt(std::string_view bytes) noexcept {
    // Hardly ever there is a control. So every byte is looked at without a branch, and the type is
    // that of the bytes: what compilers make vectors of.
    unsigned char found = 0;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        const auto isLow = static_cast<unsigned char>(value < 0x20);
        const auto isDelete = static_cast<unsigned char>(value == 0x7F);
        const auto high = static_cast<unsigned char>(value & isAboveAscii);
        found = static_cast<unsigned char>(found | isLow | isDelete | high);
    }
    return found;
}

/// The controls above ASCII: in UTF-8, where they are C2 80 to C2 9F, and as single bytes, which
/// terminals of eight bits obey.
void BlankControlsAboveAscii(std::string& line) {
    for (std::size_t at = 0; at < line.size();) {
        const std::size_t size = std::max<std::size_t>(Txtchrsize(line.c_str() + at), 1);
        const auto last = static_cast<unsigned char>(line[at + size - 1]);
        const bool isPair = size == 2 && static_cast<unsigned char>(line[at]) == 0xC2;
        if ((size == 1 || isPair) && last >= 0x80 && last < 0xA0) {
            line.replace(at, size, size, ' ');
        }
        at += size;
    }
}

/// What a text holds must not end the line, look like the next entry, or be obeyed by the terminal
/// of who reads it.
void BlankControls(std::string& line) {
    const unsigned char found = LookAt(line);
    if ((found & hasControl) != 0) {
        std::replace_if(
            line.begin(),
            line.end(),
            [](char byte) {
                return (LookAt({&byte, 1}) & hasControl) != 0;
            },
            ' '
        );
    }
    if ((found & isAboveAscii) != 0) {
        BlankControlsAboveAscii(line);
    }
}

} // namespace

/// An entry that is being put together, one for each thread and log.
struct KLogBase::Entry {
    std::uint64_t serial = 0;
    std::string line; // empty: no prefix yet
    std::size_t width = 0;
    bool nextIsStatus = false;
    Second second;
};

KLogBase::KLogBase(const char* classTag) : KBase(classTag, true) {}

KLogBase::~KLogBase() {
    Close();
}

void KLogBase::Open(const KString& logPath) {
    Close();
    KSYS::KDescriptor file;
    if (const unsigned status = KSYS::OpenForAppend(logPath.c_str(), logMode, file); status != 0) {
        source.RaiseSystem(status, KOperation::Write, logPath);
    }
    path = logPath;
    serial = NextSerial();
    lineIsCut.store(false, std::memory_order_relaxed);
    descriptor = file.Release();
}

void KLogBase::Close() noexcept {
    // Entries that threads have not ended go stale with the serial. They are not touched: a log may
    // be closed while the process ends, when what belonged to threads is gone.
    const KSYS::KDescriptor file(std::exchange(descriptor, -1));
}

KLogBase::Entry* KLogBase::FindEntry() {
    // The pieces of an entry ask for the same one in a row. Entries do not move.
    static thread_local Entry* last = nullptr;
    if (last != nullptr && last->serial == serial) {
        return last;
    }
    // A thread writes to one log, rarely to two. Ended entries make room for other logs'.
    static KSYS::NeverDestroyed<KSYS::KPerThread<std::deque<Entry>>> ofThreads;
    std::deque<Entry>& entries = ofThreads.Get().Get();
    Entry* free = nullptr;
    for (Entry& entry : entries) {
        if (entry.serial == serial) {
            return last = &entry;
        }
        free = entry.line.empty() ? &entry : free;
    }
    free = free != nullptr ? free : &entries.emplace_back();
    *free = Entry{serial, {}, 0, false, {}};
    return last = free;
}

KLogBase& KLogBase::Append(const char* bytes, std::size_t byteCount) {
    if (descriptor < 0) {
        return *this;
    }
    Entry& entry = *FindEntry();
    if (entry.width > byteCount) {
        entry.line.append(entry.width - byteCount, ' ');
    }
    entry.width = 0;
    entry.line.append(bytes, byteCount);
    return *this;
}

void KLogBase::EndEntry(Entry& entry) noexcept {
    try {
        BlankControls(entry.line);
        entry.line += '\t';
        AppendTime(entry.line, entry.second);
        entry.line += '\n';
        if (lineIsCut.load(std::memory_order_relaxed) && lineIsCut.exchange(false)) {
            entry.line.insert(0, "\n"); // an entry begins a line whatever became of the one before
        }
        // A log that cannot be written must not stop the run that it describes.
        if (KSYS::WriteAll(descriptor, entry.line.data(), entry.line.size()) != 0) {
            lineIsCut.store(true, std::memory_order_relaxed);
        }
    } catch (...) { // no memory for the last bytes of an entry
    }
    entry.line.clear(); // keeps its memory for the next one
    entry.width = 0;
    entry.nextIsStatus = false;
}

KLogBase& KLogBase::operator<<(const std::type_info& type) {
    return *this << KUtil::GetClassNameFromTypeInfo(type);
}

KLogBase& KLogBase::operator<<(KLogTypes::MODIFIER modifier) {
    if (descriptor < 0) {
        return *this;
    }
    Entry& entry = *FindEntry();
    if (modifier == KLogTypes::EndEntry) {
        EndEntry(entry);
    } else if (modifier == KLogTypes::StatusCode) {
        entry.nextIsStatus = true;
    }
    return *this;
}

KLogBase& KLogBase::operator<<(const KLogPrefix& prefix) {
    if (descriptor < 0) {
        return *this;
    }
    Entry& entry = *FindEntry();
    entry.line.clear();
    entry.width = 0;
    entry.nextIsStatus = false;
    entry.line.append(prefix.GetText().c_str(), prefix.GetText().GetSize()) += ' ';
    return *this;
}

KLogBase& KLogBase::operator<<(unsigned char number) {
    return WriteUnsigned(number);
}

KLogBase& KLogBase::operator<<(float number) {
    return WriteReal(static_cast<double>(number));
}

KLogBase& KLogBase::operator<<(double number) {
    return WriteReal(number);
}

KLogBase& KLogBase::operator<<(unsigned int number) {
    return WriteUnsigned(number);
}

KLogBase& KLogBase::operator<<(const KQword& number) {
    return WriteUnsigned(number.value);
}

KLogBase& KLogBase::operator<<(const KString& text) {
    return Append(text.c_str(), text.GetSize());
}

KLogBase& KLogBase::operator<<(const char* text) {
    const std::string_view bytes(text != nullptr ? text : "");
    return Append(bytes.data(), bytes.size());
}

KLogBase& KLogBase::operator<<(std::_Setw width) {
    if (descriptor >= 0) {
        FindEntry()->width = width._M_n > 0 ? static_cast<std::size_t>(width._M_n) : 0;
    }
    return *this;
}

KLogBase& KLogBase::operator<<(const KHeapPtr<unsigned char>& bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.GetCount(); ++i) {
        constexpr std::string_view digits = "0123456789abcdef";
        text += digits[bytes[i] >> 4U];
        text += digits[bytes[i] & 15U];
    }
    return Append(text.data(), text.size());
}

KLogBase& KLogBase::operator<<(int number) {
    return WriteSigned(number);
}

KLogBase& KLogBase::operator<<(unsigned long long number) {
    return WriteUnsigned(number);
}

KLogBase& KLogBase::operator<<(const _tagQword& number) {
    return WriteUnsigned((std::uint64_t{number.high} << 32U) | number.low);
}

KLogBase& KLogBase::operator<<(const unsigned short* text) {
    std::u16string wide;
    for (; text != nullptr && *text != 0; ++text) {
        wide += static_cast<char16_t>(*text);
    }
    // Half of a surrogate pair has no UTF-8; it becomes the replacement character.
    for (std::size_t i = 0; i < wide.size(); ++i) {
        const bool isPair =
            i + 1 < wide.size() && (wide[i] & 0xFC00) == 0xD800 && (wide[i + 1] & 0xFC00) == 0xDC00;
        if (isPair) {
            ++i;
        } else if ((wide[i] & 0xF800) == 0xD800) {
            wide[i] = 0xFFFD;
        }
    }
    std::string bytes;
    utf8::utf16to8(wide.begin(), wide.end(), std::back_inserter(bytes));
    return Append(bytes.data(), bytes.size());
}

KLogBase& KLogBase::operator<<(const KError& error) {
    return *this << error.GetSummary();
}

KLogBase& KLogBase::operator<<(const _tagGuid& guid) {
    std::array<char, 48> text{};
    const std::uint8_t* tail = guid.data4;
    const int bytes = std::snprintf(
        text.data(),
        text.size(),
        "{%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}",
        guid.data1,
        unsigned{guid.data2},
        unsigned{guid.data3},
        unsigned{tail[0]},
        unsigned{tail[1]},
        unsigned{tail[2]},
        unsigned{tail[3]},
        unsigned{tail[4]},
        unsigned{tail[5]},
        unsigned{tail[6]},
        unsigned{tail[7]}
    );
    return Append(text.data(), static_cast<std::size_t>(bytes));
}

KLogBase& KLogBase::operator<<(const KGuid& guid) {
    return *this << guid.value;
}

KLogBase& KLogBase::WriteSigned(long long number) {
    if (number >= 0) {
        return WriteUnsigned(static_cast<unsigned long long>(number));
    }
    const std::string text = "-" + Digits(0 - static_cast<unsigned long long>(number), 10);
    return Append(text.data(), text.size());
}

KLogBase& KLogBase::WriteUnsigned(unsigned long long number) {
    if (descriptor < 0) {
        return *this;
    }
    std::string text = Digits(number, 10);
    if (Entry& entry = *FindEntry(); entry.nextIsStatus) {
        entry.nextIsStatus = false;
        text += " (0x" + Digits(number, 16) + ")";
    }
    return Append(text.data(), text.size());
}

KLogBase& KLogBase::WriteReal(double number) {
    return *this << KUtil::NumberToString<double>(number, false);
}

} // namespace KSUP
