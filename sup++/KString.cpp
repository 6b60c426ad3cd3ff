// SPDX-License-Identifier: MIT
#include <sup++/KErrorSource.h>
#include <sup++/KString.h>
#include <sup++/SvcMemory.h>
#include <sup++/Txt.h>

#include <boost/make_shared.hpp>
#include <utf8.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>

namespace KSUP {

namespace {

constexpr KErrorSource source{"sup++/KString"};

bool SameSeparator(char byte, char separator, bool caseSensitive) noexcept {
    return caseSensitive ? byte == separator : Txttolower(byte) == Txttolower(separator);
}

/// The first separator that is a character of one byte, or the end.
const char* FindSeparator(const char* at, char separator, bool caseSensitive) noexcept {
    if (caseSensitive && static_cast<unsigned char>(separator) < 0x80) {
        return strchrnul(at, separator); // an ASCII byte is always a character of its own
    }
    while (*at != '\0') {
        const std::size_t size = Txtchrsize(at);
        if (size == 1 && SameSeparator(*at, separator, caseSensitive)) {
            break;
        }
        at += size;
    }
    return at;
}

/// Replaces what is not UTF-8 byte by byte with U+FFFD, so that there is always a wide copy.
std::u16string ToWide(const std::string& text) {
    std::string valid;
    utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(valid));
    std::u16string wide;
    utf8::utf8to16(valid.begin(), valid.end(), std::back_inserter(wide));
    return wide;
}

} // namespace

KString::KString(std::string&& bytes) : text(std::move(bytes)) {
    if (const std::size_t nul = text.find('\0'); nul != std::string::npos) {
        text.resize(nul);
    }
}

KString::~KString() = default;

KString::KString(const KString& other)
    : text(other.text),
      wideCopy(other.wideCopy),
      characterCount(other.characterCount.load(std::memory_order_relaxed)) {}

KString::KString(KString&& other) noexcept
    : text(std::move(other.text)),
      wideCopy(std::move(other.wideCopy)),
      characterCount(other.characterCount.load(std::memory_order_relaxed)) {
    other.text.clear();
    other.DropCaches();
}

KString& KString::operator=(const KString& other) {
    if (this != &other) {
        text = other.text;
        wideCopy = other.wideCopy;
        characterCount.store(
            other.characterCount.load(std::memory_order_relaxed), std::memory_order_relaxed
        );
    }
    return *this;
}

KString& KString::operator=(KString&& other) noexcept {
    if (this != &other) {
        text = std::move(other.text);
        wideCopy = std::move(other.wideCopy);
        characterCount.store(
            other.characterCount.load(std::memory_order_relaxed), std::memory_order_relaxed
        );
        other.text.clear();
        other.DropCaches();
    }
    return *this;
}

KString& KString::operator=(const char* bytes) {
    text = bytes != nullptr ? bytes : "";
    DropCaches();
    return *this;
}

KString& KString::operator+=(const KString& tail) {
    text += tail.text;
    DropCaches();
    return *this;
}

KString& KString::operator+=(const char* tail) {
    if (tail != nullptr) {
        text += tail;
        DropCaches();
    }
    return *this;
}

KString& KString::Cat(const char* bytes, unsigned byteCount) {
    if (bytes != nullptr) {
        text.append(bytes, strnlen(bytes, byteCount));
        DropCaches();
    }
    return *this;
}

unsigned KString::Replace(
    const char* find, const char* replacement, unsigned start, unsigned most, bool caseSensitive
) {
    const std::size_t findBytes = Txtsize(find);
    if (text.empty() || findBytes == 0) {
        return 0;
    }
    const unsigned startByte = ConvertCharacterOffsetToByteOffset(start);
    if (startByte == npos) {
        source.Raise(TraceLevel::setup, ErrorCode::invalidArgument);
    }
    const auto search = caseSensitive ? Txtstr : Txtistr;
    const char* from = text.c_str() + startByte;
    std::string result(text.c_str(), from);
    unsigned count = 0;
    while (const char* match = search(from, find)) {
        result.append(from, match).append(replacement != nullptr ? replacement : "");
        from = match + findBytes;
        if (++count == most) {
            break;
        }
    }
    result.append(from);
    text = std::move(result);
    DropCaches();
    return count;
}

KString& KString::Truncate(unsigned count) {
    if (const unsigned bytes = ConvertCharacterOffsetToByteOffset(count); bytes != npos) {
        text.resize(bytes);
    }
    DropCaches();
    return *this;
}

KString& KString::MakeLower() {
    std::transform(text.begin(), text.end(), text.begin(), Txttolower);
    DropCaches();
    return *this;
}

unsigned KString::GetCount() const noexcept {
    unsigned count = characterCount.load(std::memory_order_relaxed);
    if (count == npos) {
        count = static_cast<unsigned>(Txtlen(text.c_str()));
        characterCount.store(count, std::memory_order_relaxed);
    }
    return count;
}

std::vector<KString> KString::SectionVector(char separator, bool caseSensitive) const {
    std::vector<KString> fields;
    fields.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), separator)) + 1);
    for (const char* at = text.c_str(); *at != '\0';) {
        const char* end = FindSeparator(at, separator, caseSensitive);
        if (end != at) {
            // In place: scripts have lines by the hundred thousand.
            fields.emplace_back().text.assign(at, end);
        }
        at = *end != '\0' ? end + 1 : end;
    }
    return fields;
}

std::pair<KString, KString>
KString::Split(char first, char second, bool caseSensitive, bool honourBackslash) const {
    bool escaped = false;
    unsigned index = 0;
    for (const char* at = text.c_str(); *at != '\0'; at = Txtnext(at), ++index) {
        escaped = escaped || (honourBackslash && *at == '\\');
        if (SameSeparator(*at, first, caseSensitive)) {
            if (!escaped) {
                break;
            }
            escaped = false;
        } else if (SameSeparator(*at, second, caseSensitive)) {
            break;
        }
    }
    const unsigned count = GetCount();
    return {Left(index), index + 1 > count ? KString() : Right(count - index - 1)};
}

int KString::Find(const char* part, unsigned start, bool caseSensitive) const noexcept {
    constexpr int noMatch = -1;
    const unsigned startByte = ConvertCharacterOffsetToByteOffset(start);
    if (text.empty() || startByte == npos) {
        return noMatch;
    }
    const char* match = (caseSensitive ? Txtstr : Txtistr)(text.c_str() + startByte, part);
    // A match inside a character is none either: npos becomes -1.
    return match == nullptr ? noMatch
                            : static_cast<int>(ConvertCharacterPointerToCharacterOffset(match));
}

KString KString::Left(unsigned count) const {
    const unsigned bytes = ConvertCharacterOffsetToByteOffset(count);
    return bytes == npos ? *this : Whole(text.data(), bytes);
}

KString KString::Right(unsigned count) const {
    const unsigned all = GetCount();
    if (count >= all) {
        return *this;
    }
    const unsigned bytes = ConvertCharacterOffsetToByteOffset(all - count);
    return bytes == npos ? KString() : Whole(text.data() + bytes, text.size() - bytes);
}

const unsigned short* KString::GetWideCopy() {
    if (wideCopy == nullptr) {
        const std::u16string wide = ToWide(text);
        auto copy = boost::make_shared<unsigned short[]>(wide.size() + 1);
        std::copy(wide.begin(), wide.end(), copy.get());
        wideCopy = copy;
    }
    return wideCopy.get();
}

unsigned KString::ConvertCharacterOffsetToByteOffset(unsigned index) const noexcept {
    if (index == 0) {
        return 0;
    }
    const char* at = text.c_str();
    for (; index > 0 && *at != '\0'; --index) {
        at = Txtnext(at);
    }
    return *at == '\0' ? npos : static_cast<unsigned>(at - text.c_str());
}

unsigned KString::ConvertCharacterPointerToCharacterOffset(const char* character) const noexcept {
    unsigned index = 0;
    const char* at = text.c_str();
    while (at < character && *at != '\0') {
        at = Txtnext(at);
        ++index;
    }
    return at == character ? index : npos;
}

void KString::DropCaches() noexcept {
    wideCopy.reset();
    characterCount.store(npos, std::memory_order_relaxed);
}

KString KString::Whole(const char* bytes, std::size_t byteCount) {
    KString whole;
    whole.text.assign(bytes, byteCount);
    return whole;
}

KString
KString::Join(const char* left, std::size_t leftBytes, const char* right, std::size_t rightBytes) {
    KString joined;
    joined.text.reserve(leftBytes + rightBytes);
    joined.text.append(left, leftBytes).append(right, rightBytes);
    return joined;
}

KString operator+(const KString& left, const KString& right) {
    return KString::Join(left.c_str(), left.GetSize(), right.c_str(), right.GetSize());
}

KString operator+(const KString& left, const char* right) {
    return KString::Join(left.c_str(), left.GetSize(), right, Txtsize(right));
}

KString operator+(const char* left, const KString& right) {
    return KString::Join(left, Txtsize(left), right.c_str(), right.GetSize());
}

KString operator+(KString&& left, const KString& right) {
    left += right;
    return std::move(left);
}

KString operator+(KString&& left, const char* right) {
    left += right;
    return std::move(left);
}

bool operator==(const KString& left, const KString& right) noexcept {
    return left.GetSize() == right.GetSize() &&
           std::memcmp(left.c_str(), right.c_str(), left.GetSize()) == 0;
}

bool operator==(const KString& left, const char* right) noexcept {
    return Txtcmp(left.c_str(), right) == 0;
}

bool operator<(const KString& left, const KString& right) noexcept {
    return Txtcmp(left.c_str(), right.c_str()) < 0;
}

bool operator<(const KString& left, const char* right) noexcept {
    return Txtcmp(left.c_str(), right) < 0;
}

bool operator<(const char* left, const KString& right) noexcept {
    return Txtcmp(left, right.c_str()) < 0;
}

} // namespace KSUP
