// SPDX-License-Identifier: MIT
#include <setup/text/NotedText.h>

#include <map>
#include <mutex>

namespace KSETUP {

namespace {

std::mutex guard;

/// As many as a run has errors of its own. Never destroyed: threads may use it to the end.
std::map<std::string, std::string>& Noted() {
    static auto* const noted = new std::map<std::string, std::string>();
    return *noted;
}

} // namespace

std::string NoteText(const KText& text) {
    const std::lock_guard hold(guard);
    Noted().insert_or_assign(text.English(), text.Translated());
    return text.English();
}

KText FindNotedText(const std::string& english) {
    const std::lock_guard hold(guard);
    const auto found = Noted().find(english);
    return found != Noted().end() ? KText(english, found->second) : KText(english);
}

} // namespace KSETUP
