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
/// Has no language of its own, and is not "C", in which libintl translates nothing.
constexpr char neutralLocale[] = "C.UTF-8";

/// That of messages; null where no language is asked for. Never freed: threads may use it to the end.
locale_t messages = nullptr;

/// Where the system has no locale at all, a bundle brings that one with its catalogues.
locale_t NeutralLocale(const std::string& directory) {
    const locale_t ofSystem = ::newlocale(LC_MESSAGES_MASK, neutralLocale, nullptr);
    // The variable is a list, and the part behind a colon would be a directory of somebody else.
    if (ofSystem != nullptr || directory.find(':') != std::string::npos) {
        return ofSystem;
    }
    constexpr int replace = 1;
    ::setenv("LOCPATH", directory.c_str(), replace); // NOLINT(concurrency-mt-unsafe): as below
    const locale_t brought = ::newlocale(LC_MESSAGES_MASK, neutralLocale, nullptr);
    ::unsetenv("LOCPATH"); // NOLINT(concurrency-mt-unsafe): nor may a command have it
    return brought;
}

/// A system that has not generated the locale (a minimal one, or a container) can have the language
/// all the same: where the locale is not "C", libintl goes by LANGUAGE.
locale_t LocaleOfLanguage(const std::string& directory) {
    std::string list; // empty for "C.UTF-8"; LANGUAGE may have one even so
    for (const std::string& language : KSYS::MessageLanguages()) {
        list += (list.empty() ? "" : ":") + language;
    }
    constexpr int keep = 0;
    if (!list.empty()) {
        ::setenv("LANGUAGE", list.c_str(), keep); // NOLINT(concurrency-mt-unsafe): one thread yet
    }
    return NeutralLocale(directory);
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
        messages = LocaleOfLanguage(directory);
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
