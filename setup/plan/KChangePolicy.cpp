// SPDX-License-Identifier: MIT
#include <setup/files/KFileDigest.h>
#include <setup/files/PathText.h>
#include <setup/plan/KChangePolicy.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace KSETUP {

namespace {

const KOwnership& NobodysMachine() {
    static const KOwnership nothing;
    return nothing;
}

/// Empty for what cannot be read: it is like no other then.
std::string DigestOf(const std::string& path) {
    return path.empty() ? std::string() : DigestFile(path).sha256;
}

} // namespace

KChangePolicy::KChangePolicy(
    const KOwnership& whoOwns, const std::string& productPath, Options given
)
    : ownership(&whoOwns),
      productDirectory(NormalPath(productPath)),
      configDirectory(NormalPath(JoinPath(productPath, "config"))),
      options(given) {}

KChangePolicy::KChangePolicy() : ownership(&NobodysMachine()), options{true, true, true} {}

bool KChangePolicy::IsConfiguration(const std::string& path, Treatment treatment) const {
    if (treatment != Treatment::ByPlace) {
        return treatment == Treatment::Configuration;
    }
    const auto isOfOne = [this](const std::string& normal) {
        return IsAtOrBelow(normal, configDirectory) || IsAtOrBelow(normal, "/etc");
    };
    return IsNormalPath(path) ? isOfOne(path) : isOfOne(NormalPath(path)); // mostly it is
}

KChangePolicy::Copy KChangePolicy::DecideCopy(
    const std::string& source, const std::string& target, Treatment treatment
) const {
    if (options.replacesConfiguration || !IsConfiguration(target, treatment) ||
        !IsAdministrators(target)) {
        return Copy::Write;
    }
    const std::string offered = DigestOf(source);
    if (!offered.empty() && offered == DigestOf(NormalPath(target))) { // else one cannot be read
        return Copy::Write;
    }
    const KManifestEntry* last = ownership->Find(target);
    const bool isNoNews = last != nullptr && last->kind == KManifestEntry::Kind::File &&
                          offered == last->GetKitDigest();
    return isNoNews ? Copy::Keep : Copy::Offer;
}

bool KChangePolicy::IsAdministrators(const std::string& path) const {
    const std::string normal = NormalPath(path);
    const auto [at, isNew] = administrators.try_emplace(normal);
    if (!isNew) {
        return at->second;
    }
    unsigned whyMissing = 0;
    const auto now = LookAtEntry(normal, &whyMissing);
    const bool isGone = !now && (whyMissing == ENOENT || whyMissing == ENOTDIR);
    const KManifestEntry* last = ownership->Find(path);
    const bool isFile = now && last != nullptr && last->kind == KManifestEntry::Kind::File &&
                        now->kind == last->kind && now->size == last->size;
    const KFileDigest digest = isFile ? DigestFile(normal) : KFileDigest();
    const unsigned failed = now ? digest.errorNumber : whyMissing;
    if (ownership->WasEdited(path)) {
        at->second = !isGone;
    } else if (isGone || ownership->WasBegun(path) || ownership->WasRewritten(path) ||
               ownership->WasMadeNow(path) || (last == nullptr && ownership->WasBornNow(path))) {
        at->second = false; // what an interrupted run was at may be half a file
    } else if (failed != 0) {
        administrators.erase(at); // rather kept than lost
        unread.emplace(normal, failed);
        return true;
    } else {
        at->second = !isFile || digest.sha256 != last->digest;
    }
    return at->second;
}

std::vector<std::string> KChangePolicy::GetAdministrators() const {
    std::vector<std::string> paths;
    for (const auto& [path, isTheirs] : administrators) {
        if (isTheirs) {
            paths.push_back(path);
        }
    }
    return paths;
}

KText KChangePolicy::WhyNotReplace(const std::string& path, const std::string& source) const {
    const bool isOwn = ownership->Find(path) != nullptr || ownership->WasBegun(path);
    unsigned whyMissing = 0;
    if (options.allowsConflicts || isOwn ||
        (!LookAtEntry(path, &whyMissing) && CountsAsMissing(whyMissing))) {
        return {};
    }
    if (const std::string other = ownership->FindOther(path); !other.empty()) {
        return Text("it is a file of the product \"%s\"", other);
    }
    if (ownership->Owns(path) || ownership->WasBornNow(path)) {
        return {};
    }
    const std::string bytes = DigestOf(source);
    const bool isSame = !bytes.empty() && bytes == DigestOf(path);
    return isSame ? "" : Text("it is there already and not the product's");
}

bool KChangePolicy::IsEdited(const std::string& path) const {
    const KManifestEntry* last = ownership->Find(path);
    if (last == nullptr || last->kind != KManifestEntry::Kind::File ||
        !(last->isConfiguration || IsConfiguration(path))) {
        return false;
    }
    return IsAdministrators(path);
}

bool KChangePolicy::MayDelete(const std::string& path, Named named) const {
    if (options.purges || ownership->WasMadeNow(path)) {
        return true;
    }
    if (IsEdited(path)) {
        return false;
    }
    return named == Named::ByScript ||
           (ownership->Owns(path) &&
            (ownership->GetKnown() == KOwnership::Known::Manifest || WhyNotDelete(path).empty()));
}

KText KChangePolicy::WhyNotDeleteListed(const std::string& path) const {
    if (HasParentStep(path)) {
        return Text("it has \"..\" in it");
    }
    const std::string full = path.starts_with('/') ? path : "/" + path;
    unsigned whyMissing = 0;
    const bool isThere = LookAtEntry(full, &whyMissing) || whyMissing == 0;
    if (!isThere || productDirectory.empty() || ownership->Find(full) != nullptr ||
        ownership->WasBegun(full) || ownership->WasMadeNow(full)) {
        return {};
    }
    if (const std::string other = ownership->FindOther(full); !other.empty()) {
        return Text("it is a file of the product \"%s\"", other);
    }
    // Links on the way count as where they lead to.
    const std::string directory = ParentPath(ownership->RealPath(JoinPath(productDirectory, "x")));
    return IsAtOrBelow(ownership->RealPath(full), directory) ? "" : Text("it is not the product's");
}

KText KChangePolicy::WhyNotDelete(const std::string& path) const {
    if (options.allowsConflicts || ownership->Find(path) != nullptr) {
        return {};
    }
    const std::string other = ownership->FindOther(path);
    return other.empty() ? "" : Text("it is a file of the product \"%s\"", other);
}

bool KChangePolicy::IsRubbish(const std::string& path, const KManifestEntry& entry, bool installs)
    const {
    unsigned whyMissing = 0;
    const auto now = LookAtEntry(path, &whyMissing);
    if (!now && !CountsAsMissing(whyMissing)) {
        unread.emplace(path, whyMissing);
    }
    if (!now || now->kind != entry.kind) { // somebody laid something else there
        return false;
    }
    if (installs) {
        return true;
    }
    return !IsConfiguration(path) && now->target == entry.target && now->size == entry.size &&
           (entry.kind != KManifestEntry::Kind::File || DigestOf(path) == entry.digest);
}

std::optional<std::vector<std::string>> KChangePolicy::FindWhatGivesWay(const std::string& path
) const {
    const std::string normal = NormalPath(path);
    const auto isOwn = [&](const std::string& one) {
        return ownership->Find(one) != nullptr && !IsEdited(one);
    };
    if (!isOwn(normal)) {
        return std::nullopt;
    }
    std::vector<std::string> all;
    std::error_code failed;
    const std::filesystem::file_status status = std::filesystem::symlink_status(normal, failed);
    if (!failed && std::filesystem::is_directory(status)) {
        for (std::filesystem::recursive_directory_iterator at(normal, failed), end;
             !failed && at != end;
             at.increment(failed)) {
            if (!isOwn(at->path().string())) {
                return std::nullopt;
            }
            all.push_back(at->path().string());
        }
    }
    if (failed) {
        return std::nullopt;
    }
    std::vector<std::string> deepestFirst(all.rbegin(), all.rend());
    deepestFirst.push_back(normal);
    return deepestFirst;
}

} // namespace KSETUP
