// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/check/FindingText.h>
#include <setup/check/KCheck.h>
#include <setup/kit/KitSeal.h>
#include <setup/output/Words.h>
#include <setup/preflight/Preflight.h>
#include <setup/preflight/RunningPrograms.h>
#include <setup/preflight/StaleTemporaries.h>
#include <setup/preflight/TrustedPlaces.h>
#include <setup/run/KRunGuard.h>
#include <setup/run/PlannedPaths.h>
#include <setup/state/KBackup.h>
#include <setup/state/KManifest.h>
#include <sup++/KFileBase.h>

#include <csignal>
#include <filesystem>
#include <system_error>
#include <utility>

namespace KSETUP {

KRunGuard::KRunGuard(
    const KSetupKit& kitToUse,
    const KSetupArguments& given,
    KSetupVoice& speaker,
    KSetupSignals& taken,
    std::string serviceName
)
    : kit(kitToUse),
      arguments(given),
      voice(speaker),
      signals(taken),
      service(std::move(serviceName)) {}

void KRunGuard::Lock() {
    RequirePrivate(kit.GetDirectory());
    const bool installs = arguments.command == Command::Install;
    const auto shallStop = [this] { return signals.Take() != 0; };
    WithSignals([&] {
        const KSealExtent extent = installs ? KSealExtent::Whole : KSealExtent::WhatIsThere;
        sealed = VerifySeal(kit.GetDirectory(), extent, shallStop);
        const auto tell = [this](const std::string& words) { voice.Say(Shown(words)); };
        lock.emplace(service, arguments.waitSeconds, shallStop, lockDirectory, tell);
    });
    if (const auto interrupted = KRunState::Read(service)) {
        isAfterInterrupted = true;
        voice.Say(Shown(interrupted->ToWords()));
    }
}

std::optional<KInterruptedRun> KRunGuard::FindBegunRemoval() const {
    auto interrupted = KRunState::Read(service);
    if (interrupted && !interrupted->damage.empty()) {
        voice.Say(Shown(interrupted->ToWords()));
        return std::nullopt;
    }
    const bool removes = interrupted && interrupted->action == KRunDescription::Action::Remove;
    return removes ? std::move(interrupted) : std::nullopt;
}

/// What is stopped on request answers with the signal that it was.
void KRunGuard::WithSignals(const std::function<void()>& work) const {
    try {
        work();
    } catch (const KSetupFailure& failure) {
        const bool isStopped = failure.GetExitCode() == ExitCode::signalBase + SIGINT;
        throw KSetupFailure(
            isStopped ? ExitCode::signalBase + signals.GetFirst() : failure.GetExitCode(),
            failure.what()
        );
    }
}

void KRunGuard::ReadAhead(const KPlan& plan) {
    digests.emplace(LastingCopies(plan, kit.GetDirectory()), std::move(sealed));
}

/// An engine that is given a wrong script does what it says; here people are helped.
void KRunGuard::RefuseErrors(const std::string& productPath, const std::shared_ptr<KDiskView>& view)
    const {
    const KCheckResult found = CheckKitForErrors(kit, productPath, view);
    if (!found.hasCycle && (arguments.noCheck || !found.HasErrors())) {
        return;
    }
    std::string words = "the kit's script has errors. Nothing was changed.";
    for (const KFinding& finding : found.findings) {
        words += "\n" + ToLine(finding, kit.GetDirectory());
    }
    throw KSetupFailure(
        ExitCode::malformedScript,
        words + (found.hasCycle ? "\nMend the circle first: it would load without end."
                                : "\nMend them, or install with --no-check.")
    );
}

std::vector<std::string> KRunGuard::LookAround(const KPlan& plan) const {
    const bool installs = arguments.command == Command::Install;
    RequireWritable(plan);
    RequireSpace(plan, installs ? WrittenByEachInstall() : std::vector<std::string>());
    if (!arguments.offlineServices) {
        RequireServiceManager(plan);
    }
    const char* fate = installs ? "replaced: " : "deleted: ";
    std::vector<std::string> running = FindRunningPrograms(plan);
    for (const std::string& program : running) {
        voice.Say(std::string("Running, and about to be ") + fate + Shown(program));
    }
    return running;
}

void KRunGuard::RefuseStopped() const {
    signals.Take();
    if (signals.GetFirst() != 0) {
        throw KSetupFailure(
            ExitCode::signalBase + signals.GetFirst(), "Stopped on request. Nothing was changed."
        );
    }
}

void KRunGuard::BackUp(const KPlan& plan, const std::string& configuration) const {
    if (!arguments.backup) {
        return;
    }
    std::vector<std::string> paths = ChangedPaths(plan);
    paths.push_back(configuration);
    paths.push_back(std::filesystem::path(stateBaseDirectory) / service / "manifest");
    WithSignals([&] { KBackup(service).Save(paths, [this] { return signals.Take() != 0; }); });
    voice.Say("What is there now is kept; \"ins-setup restore\" puts it back.");
}

void KRunGuard::Begin(const KRunDescription& run, const KPlan& plan) {
    state.emplace(service);
    state->Begin(run);
    if (isAfterInterrupted) {
        DeleteStaleTemporaries(OwnDirectories(plan, run.path, service));
    }
}

/// One that is damaged is lost; the new one is as true without it.
void KRunGuard::MergeFormer(KManifest& manifest) const {
    try {
        if (const auto former = KManifest::Read(service)) {
            manifest.Merge(*former);
        }
    } catch (const KSetupFailure&) {
        voice.Say("The former manifest could not be understood; it is written anew.");
    }
}

std::string KRunGuard::KeepManifest(const KPlan& plan, const std::string& productPath) {
    try {
        const auto shallStop = [this] { return signals.Take() != 0; };
        KManifest manifest(MadePaths(plan, productPath, service), shallStop, digests->Take());
        if (signals.GetFirst() != 0) {
            return "it was stopped on request.";
        }
        MergeFormer(manifest);
        manifest.Write(service);
    } catch (const KSetupFailure& failure) {
        return failure.what();
    }
    return {};
}

std::vector<std::string>
KRunGuard::FindLeft(const std::string& productPath, std::vector<std::string>& notes) const {
    try {
        if (const auto installed = KManifest::Read(service)) {
            return installed->FindRemaining();
        }
    } catch (const KSetupFailure&) { // its advice is for those who keep the product
        notes.push_back(
            std::string(stateBaseDirectory) + "/" + service +
            "/manifest could not be understood, so what was left is not known file by file."
        );
    }
    return KSUP::KFileBase::DoesFileExist(productPath) ? std::vector<std::string>{productPath}
                                                       : std::vector<std::string>();
}

void KRunGuard::Forget() {
    KManifest::Remove(service);
    state->End();
    const std::filesystem::path directory = std::filesystem::path(stateBaseDirectory) / service;
    std::error_code isNotEmpty; // then it stays
    std::filesystem::remove(directory, isNotEmpty);
    std::filesystem::remove(stateBaseDirectory, isNotEmpty);
}

} // namespace KSETUP
