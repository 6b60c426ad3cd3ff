// SPDX-License-Identifier: MIT
#include <sup++/KError.h>
#include <sup++/KErrorSource.h>
#include <sup++/KProfile.h>
#include <sup++/KProfileContent.h>
#include <sup++/KUtil.h>
#include <sup++/SvcCommandLine.h>

#include <boost/make_shared.hpp>

#include <array>
#include <cerrno>
#include <string>
#include <string_view>
#include <utility>

namespace KSUP {

namespace {

constexpr KErrorSource source{"sup++/KProfile"};
constexpr unsigned putNumberLine = 120; // part of the interface, wherever the code stands

/// Names are written and compared without blanks around them: that is how they read back.
std::string_view Name(const KString& name) noexcept {
    return KProfileText::Trim(name.c_str());
}

bool HasControlCharacter(const KString& text) noexcept {
    for (const char* at = text.c_str(); *at != '\0'; ++at) {
        const auto byte = static_cast<unsigned char>(*at);
        if (byte < 0x20 || byte == 0x7F) {
            return true;
        }
    }
    return false;
}

/// Whether a line made of these would be read as what it was.
bool ReadsBack(const KString& section, const KString& key, const KString& value) noexcept {
    const std::string_view name = Name(key);
    // At the start of a file a byte order mark is none of the key's.
    const bool looksOtherwise = name.starts_with("\xEF\xBB\xBF") || name.starts_with('[') ||
                                name.starts_with(';') || name.starts_with('#');
    return !looksOtherwise && name.find('=') == std::string_view::npos &&
           !HasControlCharacter(section) && !HasControlCharacter(key) &&
           !HasControlCharacter(value);
}

/// Throws   KError 36, from where the value is put
void RequireReadsBack(
    const KString& path,
    const KString& section,
    const KString& key,
    const KString& value,
    unsigned line = __builtin_LINE(),
    const char* function = __builtin_FUNCTION()
) {
    if (!ReadsBack(section, key, value)) {
        source.Raise(
            TraceLevel::support,
            ErrorCode::invalidArgument,
            path + ": cannot hold [" + section + "] " + key + "=" + value,
            line,
            function
        );
    }
}

[[noreturn]] void RaiseFile(
    unsigned status,
    KOperation operation,
    const KString& path,
    unsigned line = __builtin_LINE(),
    const char* function = __builtin_FUNCTION()
) {
    KString reason = "not a regular file";
    if (status == EWOULDBLOCK) {
        reason = "another program holds it locked";
    } else if (status == ENOLCK) {
        reason = KSYS::KDirectoryLock::WhyRefused();
    } else if (status != EINVAL) {
        source.RaiseSystem(status, operation, path, line, function);
    }
    source.RaiseAs(
        {KErrorKind::System, operation, path, reason},
        TraceLevel::support,
        status,
        path + ": " + reason,
        line,
        function
    );
}

} // namespace

KProfile::KProfile() : KBase("KProfile", true) {}

KProfile::KProfile(const KString& path) : KProfile() {
    auto opened = boost::make_shared<KProfileContent>();
    if (const unsigned status = opened->Open(path, true); status != 0) {
        RaiseFile(status, KOperation::Read, path);
    }
    content = std::move(opened);
}

KProfile::KProfile(const KProfile& other) noexcept
    : KBase(other),
      content(other.content),
      commandLineContext(other.commandLineContext) {}

KProfile& KProfile::operator=(const KProfile& other) noexcept {
    if (this != &other) {
        content = other.content;
        commandLineContext = other.commandLineContext;
        enumPosition = 0;
        linePosition = 0;
    }
    return *this;
}

KProfile::~KProfile() = default;

void KProfile::Open(const KString& path) {
    content.reset();
    enumPosition = 0;
    linePosition = 0;
    auto opened = boost::make_shared<KProfileContent>();
    if (const unsigned status = opened->Open(path, false); status != 0) {
        RaiseFile(status, KOperation::Read, path);
    }
    content = std::move(opened);
}

void KProfile::Create(const KString& path) {
    content.reset();
    enumPosition = 0;
    linePosition = 0;
    auto made = boost::make_shared<KProfileContent>();
    if (const unsigned status = made->Create(path); status != 0) {
        RaiseFile(status, KOperation::Write, path);
    }
    content = std::move(made);
}

KString
KProfile::GetString(const KString& section, const KString& key, const KString& defaultValue) const {
    KString value;
    const bool found = content != nullptr && content->Find(Name(section), Name(key), value);
    return found ? value : defaultValue;
}

void KProfile::PutString(const KString& section, const KString& key, const KString& value) {
    if (content == nullptr) {
        Msg(TraceLevel::support, "A profile without a file cannot keep %s", key.c_str());
        return;
    }
    RequireReadsBack(content->GetPath(), section, key, value);
    const unsigned status =
        content->Put(Name(section), Name(key), KProfileText::Trim(value.c_str()));
    if (status != 0) {
        RaiseFile(status, KOperation::Write, content->GetPath());
    }
}

void KProfile::PutStrings(
    const KString& section,
    const KString& firstKey,
    const KString& firstValue,
    const KString& secondKey,
    const KString& secondValue
) {
    if (content == nullptr) {
        Msg(TraceLevel::support,
            "A profile without a file cannot keep %s and %s",
            firstKey.c_str(),
            secondKey.c_str());
        return;
    }
    RequireReadsBack(content->GetPath(), section, firstKey, firstValue);
    RequireReadsBack(content->GetPath(), section, secondKey, secondValue);
    const unsigned status = content->PutBoth(
        Name(section),
        {Name(firstKey), KProfileText::Trim(firstValue.c_str())},
        {Name(secondKey), KProfileText::Trim(secondValue.c_str())}
    );
    if (status != 0) {
        RaiseFile(status, KOperation::Write, content->GetPath());
    }
}

void KProfile::DeleteKey(const KString& section, const KString& key) {
    if (content == nullptr) {
        Msg(TraceLevel::support, "A profile without a file has no %s", key.c_str());
        return;
    }
    const unsigned status = content->Delete(Name(section), Name(key), linePosition, keyName);
    if (status != 0) {
        RaiseFile(status, KOperation::Write, content->GetPath());
    }
}

void KProfile::BeginKeyEnum(const KString& section, unsigned* cursor) const {
    enumSection = section;
    (cursor != nullptr ? *cursor : enumPosition) =
        content != nullptr ? content->Begin(Name(section)) : 0;
}

bool KProfile::EnumKey(unsigned* cursor, bool reserved) const {
    if (reserved) {
        source.Raise(TraceLevel::support, ErrorCode::invalidArgument);
    }
    if (content == nullptr) {
        return false;
    }
    unsigned& position = cursor != nullptr ? *cursor : enumPosition;
    if (position == 0) { // begun before there was content, or begun anew by the caller
        position = content->Begin(Name(enumSection));
    }
    const unsigned next = content->Next(position, keyName, keyValue);
    if (next != 0) {
        position = next;
        linePosition = next;
    }
    return next != 0;
}

template <>
void KProfile::PutNumber<unsigned int>(
    const KString& section, const KString& key, unsigned int value, bool hex
) {
    if (content == nullptr) {
        source.Raise(
            TraceLevel::support, ErrorCode::invalidArgument, {}, putNumberLine, "PutNumber"
        );
    }
    PutString(section, key, KUtil::NumberToString(value, hex));
}

template <>
unsigned int KProfile::GetNumber<unsigned int>(
    const KString& section, const KString& key, unsigned int defaultValue
) const {
    if (content == nullptr) {
        return defaultValue;
    }
    std::array<char, 1024> fromCommandLine{};
    const unsigned status = SvcGetStringFromCommandLine(
        0,
        commandLineContext,
        section.c_str(),
        key.c_str(),
        static_cast<unsigned>(fromCommandLine.size()),
        fromCommandLine.data()
    );
    KString text(fromCommandLine.data());
    if (status != 0 && !content->Find(Name(section), Name(key), text)) {
        return defaultValue;
    }
    try {
        return KUtil::StringToNumber<unsigned int>(text, false);
    } catch (const KError&) { // a line that holds no number counts as missing
        return defaultValue;
    }
}

} // namespace KSUP
