// SPDX-License-Identifier: MIT
#include <setup/text/NotedText.h>

#include <map>
#include <mutex>

#include <sys/KAnnotatedMutex.h>
#include <sys/NeverDestroyed.h>

namespace KSETUP {

namespace {

/// As many as a run has errors of its own.
struct KNoted {
    KSYS::KAnnotatedMutex<std::mutex> guard;
    std::map<std::string, std::string> translations SYS_GUARDED_BY(guard); // by the English text
};

KNoted& Noted() {
    static KSYS::NeverDestroyed<KNoted> noted;
    return noted.Get();
}

} // namespace

std::string NoteText(const KText& text) {
    KNoted& noted = Noted();
    const KSYS::KScopedLock hold(noted.guard);
    noted.translations.insert_or_assign(text.English(), text.Translated());
    return text.English();
}

KText FindNotedText(const std::string& english) {
    KNoted& noted = Noted();
    const KSYS::KScopedLock hold(noted.guard);
    const auto found = noted.translations.find(english);
    return found != noted.translations.end() ? KText(english, found->second) : KText(english);
}

} // namespace KSETUP
