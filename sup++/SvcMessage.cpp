// SPDX-License-Identifier: MIT
#include <sup++/KErrorCode.h>
#include <sup++/NeverDestroyed.h>
#include <sup++/SvcMessage.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <new>

namespace {

using KSUP::ErrorCode::invalidArgument;

struct Catalogue {
    unsigned loads = 0;
    const SvcBuiltInMessage* builtIn = nullptr;
};

struct Catalogues {
    std::mutex guard;
    std::map<unsigned, Catalogue> byNumber; // guarded by guard
};

Catalogues& TheCatalogues() {
    static KSUP::NeverDestroyed<Catalogues> catalogues;
    return catalogues.Get();
}

} // namespace

unsigned SvcSetBuiltInMessages(unsigned catalogue, const SvcBuiltInMessage* messages) noexcept {
    try {
        Catalogues& all = TheCatalogues();
        const std::lock_guard hold(all.guard);
        all.byNumber[catalogue].builtIn = messages;
        return 0;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

unsigned SvcLoadMessage(unsigned catalogue, const char* baseName) noexcept {
    if (baseName == nullptr || *baseName == '\0' || catalogue > 0xFFFF) {
        return invalidArgument;
    }
    try {
        Catalogues& all = TheCatalogues();
        const std::lock_guard hold(all.guard);
        ++all.byNumber[catalogue].loads;
        return 0;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

unsigned SvcUnloadMessage(unsigned catalogue) noexcept {
    Catalogues& all = TheCatalogues();
    const std::lock_guard hold(all.guard);
    const auto found = all.byNumber.find(catalogue);
    if (found != all.byNumber.end() && found->second.loads > 0) {
        --found->second.loads;
    }
    return 0;
}

const char* SvcGetMessagePtr(unsigned id) noexcept {
    Catalogues& all = TheCatalogues();
    const std::lock_guard hold(all.guard);
    const auto found = all.byNumber.find(id >> 16U);
    if (found == all.byNumber.end() || found->second.loads == 0) {
        return "";
    }
    const SvcBuiltInMessage* message = found->second.builtIn;
    while (message != nullptr && message->text != nullptr) {
        if (message->id == id) {
            return message->text;
        }
        ++message;
    }
    return "";
}
