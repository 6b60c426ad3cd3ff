// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/KSetupKit.h>
#include <setup/run/KLockedProduct.h>
#include <setup/run/ListProducts.h>
#include <setup/run/RunFailure.h>
#include <setup/state/KBackup.h>
#include <setup/state/KProductList.h>
#include <setup/state/ManifestLook.h>
#include <sup++/KError.h>

#include <optional>
#include <utility>

namespace KSETUP {

namespace {

void FillListedRuns(KListedProduct& listed) {
    listed.isRunning = KRunLock::FindHolder(listed.name).has_value();
    if (const auto interrupted = KRunState::Read(listed.name)) {
        listed.isInterrupted = true;
        listed.product = interrupted->product.empty() ? listed.product : interrupted->product;
        listed.version = interrupted->version;
        listed.path = interrupted->path;
    }
}

/// By the kept kit, which knows where the record is.
void FillListed(const std::string& kit, KListedProduct& listed) {
    const KSetupKit loaded(kit);
    const KINS::KInstaller installer;
    const std::optional<KInstalledRecord> record = LoadRecord(installer);
    if (record) {
        listed.isInstalled = true;
        if (const KText words = record->ToWords(); !words.empty()) {
            listed.trouble = words;
        }
        listed.path = record->path;
        if (record->version != KINS::Names::noRecordedVersion) { // as one that was killed leaves it
            listed.version = record->version;
            listed.buildNumber = record->buildNumber;
        }
    }
    const std::optional<KManifest> manifest = KManifest::Read(listed.name);
    listed.hasConfigurationLeft = !record && manifest;
    if (record && manifest) {
        listed.differs = !LooksAsInstalled(*manifest, {RecordFile(installer, *record)});
    }
}

/// What is left of a product that is gone is not worth a line, unless it can be put back.
bool IsGone(const KListedProduct& listed) {
    return !listed.isInstalled && !listed.isInterrupted && !listed.isRunning &&
           !listed.hasConfigurationLeft && listed.trouble.empty() && !KBackup(listed.name).Exists();
}

/// Nothing for one that is gone.
std::optional<KListedProduct> ToListed(const KKnownProduct& known) {
    KListedProduct listed;
    listed.name = known.service;
    listed.product = known.name;
    listed.lastRun = known.lastRun;
    listed.trouble = known.trouble;
    try {
        FillListedRuns(listed);
        if (!known.kit.empty()) {
            FillListed(known.kit, listed);
        } else {
            listed.isInstalled = KManifest::Read(known.service).has_value();
        }
        if (IsGone(listed)) {
            return std::nullopt;
        }
    } catch (const KSetupFailure& failure) { // one that is damaged does not hide the others
        listed.trouble = failure.GetText();
    } catch (const KSUP::KError& error) {
        listed.trouble = DescribeError(error);
    }
    return listed;
}

} // namespace

void FillList(KRunReport& report) {
    for (const KKnownProduct& known : FindKnownProducts()) {
        std::optional<KListedProduct> listed = ToListed(known);
        if (!listed) {
            continue;
        }
        if (!listed->trouble.empty()) {
            report.notes.push_back(known.service + ": " + listed->trouble);
        }
        report.products.push_back(std::move(*listed));
    }
}

} // namespace KSETUP
