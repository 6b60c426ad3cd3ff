// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/state/KKnownKeys.h>
#include <setup/state/KPrivateDirectory.h>

#include <algorithm>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

namespace {

constexpr const char* keysDirectory = "trusted.d";
constexpr const char* keyEnding = ".pub";

std::vector<KKnownKey> ReadKeys(const KPrivateDirectory& directory) {
    std::vector<std::string> names;
    if (const unsigned failed = KSYS::ListEntries({directory.Get(), "."}, names)) {
        throw SystemFailure(
            ExitCode::malformedScript,
            Text("cannot list %s", directory.GetPath()),
            failed,
            Text("Fix the cause.")
        );
    }
    std::sort(names.begin(), names.end());
    std::vector<KKnownKey> keys;
    for (const std::string& name : names) {
        if (!name.ends_with(keyEnding)) {
            continue;
        }
        struct stat status {};
        const std::string path = directory.GetPath() + "/" + name;
        const unsigned failed =
            KSYS::ReadStatus({directory.Get(), name.c_str()}, KSYS::LastLink::Keep, status);
        if (failed != 0 && failed != ENOENT) {
            throw SystemFailure(
                ExitCode::cannotWrite,
                Text("cannot look at %s", path),
                failed,
                Text("Fix the cause and try again.")
            );
        }
        if (failed == 0 && !S_ISDIR(status.st_mode)) { // those of a product that is called so
            keys.push_back({KPublicKey::FromText(directory.Read(name).value_or(""), path), path});
        }
    }
    return keys;
}

/// What decides whose kits are run is looked at first: it is not passed over.
template <class Find>
std::vector<KKnownKey> FindOrRefuse(const Find& find) {
    try {
        return find();
    } catch (const KSetupFailure& failure) {
        throw KSetupFailure(
            failure.IsDenied() ? ExitCode::notRoot : ExitCode::malformedScript,
            Text(
                "it is not known whose kits may be installed. Nothing was changed. %s",
                failure.GetText()
            )
        );
    }
}

} // namespace

KKnownKeys KKnownKeys::Find(
    const std::string& serviceName, const std::string& trust, const std::string& state
) {
    KKnownKeys known;
    known.pinned = KPinnedKey::Read(serviceName, state);
    known.keys = FindOrRefuse([&]() -> std::vector<KKnownKey> {
        const auto all = KPrivateDirectory::OpenExisting(trust, keysDirectory);
        const auto own = all ? all->ExistingBelow(serviceName) : std::nullopt;
        return own ? ReadKeys(*own) : std::vector<KKnownKey>();
    });
    if (known.keys.empty()) {
        known.keys = FindForAll(trust);
    }
    known.areAdministrators = !known.keys.empty();
    if (known.keys.empty() && known.pinned) {
        known.keys.push_back({known.pinned->key, KPinnedKey::PathOf(serviceName, state)});
    }
    return known;
}

std::vector<KKnownKey> KKnownKeys::FindForAll(const std::string& trust) {
    return FindOrRefuse([&]() -> std::vector<KKnownKey> {
        const auto all = KPrivateDirectory::OpenExisting(trust, keysDirectory);
        return all ? ReadKeys(*all) : std::vector<KKnownKey>();
    });
}

KText KKnownKeys::ToWords() const {
    KText words;
    for (const KKnownKey& known : keys) {
        words += (words.empty() ? "" : ", ") + Text("key %s (%s)", known.key.GetId(), known.file);
    }
    return words;
}

} // namespace KSETUP
