// SPDX-License-Identifier: MIT
// What root's own directory holds of a product: the state of a run, the manifest and the key of its
// signer. Refused or understood; what is understood is written as it was read.
#include "Fuzz.h"

#include <setup/KSetupFailure.h>
#include <setup/state/KManifest.h>
#include <setup/state/KPinnedKey.h>
#include <setup/state/KRunState.h>

#include <filesystem>

#include <sys/files/LockPlaces.h>
#include <unistd.h>

namespace {

using KTEST::Require;

constexpr char name[] = "dps";

/// The base directory, with the product's in it, ours alone.
class KStateBase {
  public:
    KStateBase() {
        directory.Write("base/dps/manifest", "", 0600);
        directory.Write("base/dps/state", "", 0600);
        directory.Write("base/dps/key", "", 0600);
        directory.Write("locks/none", "");
        namespace fs = std::filesystem;
        fs::permissions(GetBase(), fs::perms(0700));
        fs::permissions(GetBase() + "/dps", fs::perms(0700));
        fs::permissions(directory.GetPath() + "/locks", fs::perms(0700));
    }

    std::string GetBase() const { return directory.GetPath() + "/base"; }
    KSYS::LockPlaces GetLocks() const { return {::geteuid(), {directory.GetPath() + "/locks"}}; }
    void Write(const std::string& file, std::string_view bytes) const {
        directory.Write("base/dps/" + file, bytes, 0600);
    }

  private:
    KTEST::KScratchDirectory directory;
};

void ReadManifest(const KStateBase& state) {
    try {
        const auto manifest = KSETUP::KManifest::Read(name, state.GetBase());
        Require(manifest.has_value(), "a manifest that is there is read");
        manifest->Write(name, state.GetBase());
        const auto again = KSETUP::KManifest::Read(name, state.GetBase());
        Require(
            again && again->GetEntries() == manifest->GetEntries() &&
                again->GetRun() == manifest->GetRun(),
            "a manifest says the same again"
        );
    } catch (const KSETUP::KSetupFailure&) { // NOLINT(bugprone-empty-catch): refused, as it may be
    }
}

void ReadPinnedKey(const KStateBase& state) {
    try {
        const auto pinned = KSETUP::KPinnedKey::Read(name, state.GetBase());
        Require(pinned.has_value(), "a key that is there is read");
        pinned->Write(name, state.GetBase());
        const auto again = KSETUP::KPinnedKey::Read(name, state.GetBase());
        Require(
            again && again->key == pinned->key && again->seal == pinned->seal,
            "a pinned key says the same again"
        );
    } catch (const KSETUP::KSetupFailure&) { // NOLINT(bugprone-empty-catch): refused, as it may be
    }
}

void ReadState(const KStateBase& state) {
    const auto run = KSETUP::KRunState::Read(name, state.GetBase(), state.GetLocks());
    Require(run.has_value(), "a state that is there is read");
    Require(!run->ToWords().empty(), "an interrupted run is told");
    if (!run->damage.empty()) {
        return;
    }
    KSETUP::KRunState written(name, state.GetBase());
    written.Begin(*run);
    written.SetRule(run->rule);
    const auto again = KSETUP::KRunState::Read(name, state.GetBase(), state.GetLocks());
    Require(again && again->ToWords() == run->ToWords(), "a state says the same again");
}

} // namespace

/// The first byte says which file it is: "m" a manifest, "k" a pinned key, else the state.
FUZZ_TARGET(StateFiles) {
    static const KStateBase state;
    if (input.starts_with('m')) {
        state.Write("manifest", input.substr(1));
        ReadManifest(state);
    } else if (input.starts_with('k')) {
        state.Write("key", input.substr(1));
        ReadPinnedKey(state);
    } else {
        state.Write("state", input.substr(input.empty() ? 0 : 1));
        ReadState(state);
    }
}
