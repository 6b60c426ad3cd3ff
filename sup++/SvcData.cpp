// SPDX-License-Identifier: MIT
#include <sup++/CommandLineText.h>
#include <sup++/DataRecords.h>
#include <sup++/KError.h>
#include <sup++/KErrorCode.h>
#include <sup++/KProfile.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>
#include <sup++/ThreadSafety.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <forward_list>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include <sys/KAnnotatedMutex.h>
#include <sys/NeverDestroyed.h>
#include <sys/processes/OwnProcess.h>

namespace {

using KSUP::ErrorCode::invalidArgument;

/// Texts below 4 GiB. Nothing is given back: whoever read the record may still hold a pointer.
class LowTexts {
  public:
    std::uint32_t Put(const char* text) {
        const std::size_t bytes = std::strlen(text) + 1;
        if (bytes > left) {
            const std::size_t room = bytes > blockBytes ? bytes : blockBytes;
            next = static_cast<char*>(KSYS::AllocateLow(room));
            if (next == nullptr) {
                left = 0;
                throw std::bad_alloc();
            }
            left = room;
        }
        char* place = static_cast<char*>(std::memcpy(next, text, bytes));
        next += bytes;
        left -= bytes;
        return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(place));
    }

  private:
    static constexpr std::size_t blockBytes = 65536;
    char* next = nullptr;
    std::size_t left = 0;
};

struct ProductTexts {
    KSUP::KString product = "DPS";
    KSUP::KString serviceName = "dps";
    KSUP::KString iniFile = "dps.ini";
    KSUP::KString version = "0.0.0";
    unsigned buildNumber = 0;
};

/// Both records and what they point to; never destroyed, as their readers may outlive everything.
struct Records {
    Records() {
        std::memcpy(global.os, "lin", sizeof("lin"));
        const std::string architecture = KSYS::Architecture();
        architecture.copy(global.architecture, sizeof(global.architecture) - 1);
        Store(ProductTexts());
        SetCommandLine(KSUP::CommandLineText::Quote(KSYS::ProgramArguments()));
    }

    void SetCommandLine(std::string commandLine) {
        commandLines.push_front(std::move(commandLine));
        global.commandLine = commandLines.front().c_str();
    }

    void Store(const ProductTexts& texts) {
        SvcProductData made{};
        made.buildNumber = texts.buildNumber;
        made.iniFile = lowTexts.Put(texts.iniFile.c_str());
        made.serviceName = lowTexts.Put(texts.serviceName.c_str());
        made.product = lowTexts.Put(texts.product.c_str());
        made.version = lowTexts.Put(texts.version.c_str());
        product = made;
    }

    SvcGlobalData global{};
    SvcProductData product{};
    LowTexts lowTexts;
    std::forward_list<std::string> commandLines; // all of them: who reads may hold a former one
};

Records& TheRecords() {
    static KSYS::NeverDestroyed<Records> records;
    return records.Get();
}

struct CustomKeys {
    KSYS::KAnnotatedMutex<std::mutex> guard;
    std::map<std::string, std::string, std::less<>> values SUP_GUARDED_BY(guard);
};

CustomKeys& TheCustomKeys() {
    static KSYS::NeverDestroyed<CustomKeys> keys;
    return keys.Get();
}

bool HasControlCharacter(const KSUP::KString& text) noexcept {
    const std::string_view bytes(text.c_str());
    return std::any_of(bytes.begin(), bytes.end(), [](char byte) {
        return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
    });
}

bool IsFileName(const KSUP::KString& name) noexcept {
    return !name.IsEmpty() && !HasControlCharacter(name) && name.Find("/", 0, true) < 0 &&
           name != "." && name != "..";
}

ProductTexts ReadProduct(const char* path) {
    KSUP::KProfile profile;
    profile.Open(path);
    ProductTexts texts;
    texts.product = profile.GetString("product", "name", texts.product);
    texts.serviceName = profile.GetString("product", "serviceName", texts.serviceName);
    texts.iniFile = profile.GetString("product", "iniFile", texts.iniFile);
    texts.version = profile.GetString("product", "version", texts.version);
    texts.buildNumber = KSUP::KUtil::StringToNumber<unsigned int>(
        profile.GetString("product", "buildNumber", "0"), false
    );
    return texts;
}

} // namespace

namespace KSUP::DataRecords {

void SetCommandLine(std::string commandLine) {
    TheRecords().SetCommandLine(std::move(commandLine));
}

namespace {

struct Macro {
    std::string_view name;
    std::string (*value)(const Records& records);
};

constexpr std::array macros = std::to_array<Macro>({
    {"product",
     [](const Records& from) -> std::string { return SvcGetProductText(from.product.product); }},
    {"serviceName",
     [](const Records& from) -> std::string {
         return SvcGetProductText(from.product.serviceName);
     }},
    {"iniFile",
     [](const Records& from) -> std::string { return SvcGetProductText(from.product.iniFile); }},
    {"verInfo",
     [](const Records& from) -> std::string { return SvcGetProductText(from.product.version); }},
    {"buildNumber", [](const Records& from) { return std::to_string(from.product.buildNumber); }},
    {"os", [](const Records& from) -> std::string { return from.global.os; }},
    {"arch", [](const Records& from) -> std::string { return from.global.architecture; }},
});

} // namespace

bool AppendByMacro(std::string_view name, std::string& target) {
    for (const Macro& macro : macros) {
        if (macro.name == name) {
            target += macro.value(TheRecords());
            return true;
        }
    }
    CustomKeys& keys = TheCustomKeys();
    const KSYS::KScopedLock hold(keys.guard);
    const auto key = keys.values.find(name);
    if (key != keys.values.end()) {
        target += key->second;
    }
    return key != keys.values.end();
}

void AppendNames(std::vector<KString>& names) {
    for (const Macro& macro : macros) {
        names.emplace_back(std::string(macro.name));
    }
}

} // namespace KSUP::DataRecords

const SvcGlobalData* SvcGetGlobalDataEx() noexcept {
    return &TheRecords().global;
}

const SvcProductData* SvcGetOEMDataEx() noexcept {
    return &TheRecords().product;
}

unsigned SvcLoadProductData(const char* productProfile) noexcept {
    if (productProfile == nullptr) {
        return invalidArgument;
    }
    try {
        const ProductTexts texts = ReadProduct(productProfile);
        if (HasControlCharacter(texts.version) || !IsFileName(texts.product) ||
            !IsFileName(texts.serviceName) || !IsFileName(texts.iniFile)) {
            return invalidArgument;
        }
        TheRecords().Store(texts);
        return 0;
    } catch (const KSUP::KError& error) {
        const bool noNumber = error.GetCode() == KSUP::ErrorCode::numberConversion;
        return noNumber ? invalidArgument : error.GetCode();
    } catch (const std::exception&) { // no memory, or a file too large for it
        return ENOMEM;
    }
}

unsigned SvcSetCustomKey(
    unsigned reserved, unsigned alsoReserved, const char* name, const char* value
) noexcept {
    if (reserved != 0 || alsoReserved != 0 || name == nullptr || *name == '\0') {
        return invalidArgument;
    }
    try {
        CustomKeys& keys = TheCustomKeys();
        const KSYS::KScopedLock hold(keys.guard);
        keys.values[name] = value != nullptr ? value : "";
        return 0;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

unsigned SvcGetCustomKey(
    unsigned reserved, unsigned alsoReserved, const char* name, unsigned size, char* buffer
) noexcept {
    if (reserved != 0 || alsoReserved != 0 || name == nullptr || buffer == nullptr) {
        return invalidArgument;
    }
    CustomKeys& keys = TheCustomKeys();
    const KSYS::KScopedLock hold(keys.guard);
    const auto key = keys.values.find(std::string_view(name));
    if (key == keys.values.end()) {
        return KSUP::ErrorCode::notFound;
    }
    if (key->second.size() >= size) {
        return invalidArgument;
    }
    std::memcpy(buffer, key->second.c_str(), key->second.size() + 1);
    return 0;
}
