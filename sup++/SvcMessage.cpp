// SPDX-License-Identifier: MIT
#include <sup++/KErrorCode.h>
#include <sup++/SvcMessage.h>
#include <sup++/ThreadSafety.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <sys/KAnnotatedMutex.h>
#include <sys/NeverDestroyed.h>
#include <sys/files/KCatalogueFile.h>

namespace {

using KSUP::ErrorCode::invalidArgument;
using KSYS::KCatalogueFile;

constexpr unsigned mostCatalogue = 0xFFFF;
constexpr unsigned numberBits = 16;

struct Catalogue {
    unsigned loads = 0;
    const SvcBuiltInMessage* builtIn = nullptr;
    std::vector<const KCatalogueFile*> files; // those of the first load, the best first
};

struct Catalogues {
    KSYS::KAnnotatedMutex<std::mutex> guard;
    std::map<unsigned, Catalogue> byNumber SUP_GUARDED_BY(guard);
};

Catalogues& TheCatalogues() {
    static KSYS::NeverDestroyed<Catalogues> catalogues;
    return catalogues.Get();
}

bool IsBaseName(const char* text) noexcept {
    return text != nullptr && *text != '\0' &&
           std::string_view(text).find('/') == std::string_view::npos;
}

/// The files beside the module in which `address` lies.
std::vector<const KCatalogueFile*> FindFiles(const void* address, const std::string& baseName) {
    const std::string directory = KSYS::ModuleDirectory(address);
    std::vector<const KCatalogueFile*> files;
    if (directory.empty()) {
        return files;
    }
    std::vector<std::string> endings;
    for (const std::string& language : KSYS::MessageLanguages()) {
        endings.push_back('.' + language + ".cat");
    }
    endings.emplace_back(".cat");
    for (const std::string& ending : endings) {
        const KCatalogueFile* file = KCatalogueFile::Open(directory + '/' + baseName + ending);
        if (file != nullptr) {
            files.push_back(file);
        }
    }
    return files;
}

const char* BuiltInText(const SvcBuiltInMessage* messages, unsigned id) noexcept {
    for (; messages != nullptr && messages->text != nullptr; ++messages) {
        if (messages->id == id) {
            return messages->text;
        }
    }
    return "";
}

} // namespace

unsigned SvcSetBuiltInMessages(unsigned catalogue, const SvcBuiltInMessage* messages) noexcept {
    try {
        Catalogues& all = TheCatalogues();
        const KSYS::KScopedLock hold(all.guard);
        all.byNumber[catalogue].builtIn = messages;
        return 0;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

unsigned SvcLoadMessage(unsigned catalogue, const char* baseName) noexcept {
    if (!IsBaseName(baseName) || catalogue > mostCatalogue) {
        return invalidArgument;
    }
    try {
        Catalogues& all = TheCatalogues();
        const KSYS::KScopedLock hold(all.guard);
        Catalogue& loaded = all.byNumber[catalogue];
        if (loaded.loads == 0) {
            // The built-in texts lie in the library that they belong to, and its files beside it.
            static const char here = 0;
            const void* place = loaded.builtIn;
            loaded.files = FindFiles(place != nullptr ? place : &here, baseName);
        }
        ++loaded.loads;
        return 0;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

unsigned SvcUnloadMessage(unsigned catalogue) noexcept {
    Catalogues& all = TheCatalogues();
    const KSYS::KScopedLock hold(all.guard);
    const auto found = all.byNumber.find(catalogue);
    if (found != all.byNumber.end() && found->second.loads > 0) {
        --found->second.loads;
    }
    return 0;
}

const char* SvcGetMessagePtr(unsigned id) noexcept {
    const unsigned catalogue = id >> numberBits;
    Catalogues& all = TheCatalogues();
    const KSYS::KScopedLock hold(all.guard);
    const auto found = all.byNumber.find(catalogue);
    if (found == all.byNumber.end() || found->second.loads == 0) {
        return "";
    }
    for (const KCatalogueFile* file : found->second.files) {
        const char* text = file->GetText(catalogue, id & mostCatalogue);
        if (text != nullptr) {
            return text;
        }
    }
    return BuiltInText(found->second.builtIn, id);
}
