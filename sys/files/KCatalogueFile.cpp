// SPDX-License-Identifier: MIT
#include <algorithm>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <map>
#include <string_view>

#include <dlfcn.h>
#include <nl_types.h>
#include <sys/NeverDestroyed.h>
#include <sys/files/KCatalogueFile.h>

namespace KSYS {

namespace {

/// What a variable holds; null when it is not set, empty, or not to be trusted (a program that
/// runs with more rights than its caller).
const char* Variable(const char* name) noexcept {
    const char* value = ::secure_getenv(name);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

bool MeansNone(std::string_view locale) noexcept {
    return locale.empty() || locale == "C" || locale.starts_with("C.") || locale == "POSIX";
}

std::string_view LocaleOfMessages() noexcept {
    // Set by programs that chose; one that did not has "C" here, and its user's choice counts.
    const char* chosen = std::setlocale(LC_MESSAGES, nullptr);
    if (chosen != nullptr && !MeansNone(chosen)) {
        return chosen;
    }
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        if (const char* value = Variable(name); value != nullptr) {
            return value;
        }
    }
    return "";
}

/// It becomes part of a path.
bool IsLanguage(std::string_view text) noexcept {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char byte) {
        return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
               (byte >= '0' && byte <= '9') || byte == '_';
    });
}

} // namespace

std::string ModuleDirectory(const void* address) {
    Dl_info module{};
    char resolved[PATH_MAX];
    if (::dladdr(address, &module) == 0 || module.dli_fname == nullptr ||
        ::realpath(module.dli_fname, resolved) == nullptr) {
        return "";
    }
    const std::string_view path = resolved;
    return std::string(path.substr(0, path.rfind('/')));
}

std::vector<std::string> MessageLanguages() {
    std::string_view locale = LocaleOfMessages();
    locale = locale.substr(0, locale.find_first_of(".@"));
    std::vector<std::string> languages;
    if (!MeansNone(locale) && IsLanguage(locale)) {
        languages.emplace_back(locale);
        if (const std::size_t country = locale.find('_'); country != std::string_view::npos) {
            languages.emplace_back(locale.substr(0, country));
        }
    }
    return languages;
}

const KCatalogueFile* KCatalogueFile::Open(const std::string& path) {
    // Nor are the files closed: texts outlive everything.
    static NeverDestroyed<std::map<std::string, const KCatalogueFile*>> files;
    auto& opened = files.Get();
    const auto found = opened.find(path);
    if (found != opened.end()) {
        return found->second;
    }
    // A path with a separator is taken as it stands, whatever the environment says.
    const nl_catd handle = ::catopen(path.c_str(), 0);
    if (handle == reinterpret_cast<nl_catd>(-1)) { // the interface's own sign of failure
        return nullptr;
    }
    return opened[path] = new KCatalogueFile(handle);
}

const char* KCatalogueFile::GetText(unsigned set, unsigned message) const noexcept {
    static constexpr const char* missing = "";
    // The default is handed back as it was given, which tells it from a text.
    const char* text = ::catgets(
        static_cast<nl_catd>(handle), static_cast<int>(set), static_cast<int>(message), missing
    );
    return text != missing ? text : nullptr;
}

} // namespace KSYS
