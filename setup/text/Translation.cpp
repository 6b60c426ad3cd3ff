// SPDX-License-Identifier: MIT
#include <setup/text/Translation.h>

#include <clocale>
#include <cstdlib>
#include <vector>

#include <libintl.h>
#include <locale.h>
#include <sys/files/KCatalogueFile.h>

namespace KSETUP {

namespace {

constexpr char domain[] = "ins-setup";

/// That of messages; null where no language is asked for. Never freed: threads may use it to the end.
locale_t messages = nullptr;

/// A system that has not generated the locale (a minimal one, or a container) can have the language
/// all the same: where the locale is not "C", libintl goes by LANGUAGE.
locale_t LocaleOfLanguage() {
    const std::vector<std::string> languages = KSYS::MessageLanguages();
    if (languages.empty()) {
        return nullptr;
    }
    std::string list;
    for (const std::string& language : languages) {
        list += (list.empty() ? "" : ":") + language;
    }
    constexpr int keep = 0;
    ::setenv("LANGUAGE", list.c_str(), keep); // NOLINT(concurrency-mt-unsafe): one thread yet
    return ::newlocale(LC_MESSAGES_MASK, "C.UTF-8", nullptr);
}

/// The thread's locale for one look-up.
class KLanguageScope {
  public:
    KLanguageScope() noexcept : former(::uselocale(messages)) {}
    ~KLanguageScope() { ::uselocale(former); }
    KLanguageScope(const KLanguageScope&) = delete;
    KLanguageScope& operator=(const KLanguageScope&) = delete;

  private:
    locale_t former;
};

} // namespace

void StartTranslation(const std::string& directory) {
    messages = ::newlocale(LC_MESSAGES_MASK, "", nullptr);
    if (messages == nullptr) {
        messages = LocaleOfLanguage();
    }
    ::bindtextdomain(domain, directory.c_str());
    ::bind_textdomain_codeset(domain, "UTF-8");
}

const char* FindTranslation(const char* english) noexcept {
    const KLanguageScope scope;
    // An empty text is the catalogue's own header.
    return messages == nullptr || *english == '\0' ? english : ::dgettext(domain, english);
}

const char* FindTranslation(const char* one, const char* many, std::uint64_t count) noexcept {
    const KLanguageScope scope;
    return messages == nullptr ? (count == 1 ? one : many)
                               : ::dngettext(domain, one, many, static_cast<unsigned long>(count));
}

} // namespace KSETUP
