// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/run/FlushDeletions.h>
#include <setup/run/Leftovers.h>
#include <setup/state/KKeptKit.h>
#include <setup/state/KKitFingerprint.h>
#include <setup/state/KPinnedKey.h>
#include <setup/state/StateDirectory.h>
#include <sup++/SvcFile.h>

#include <string>
#include <vector>

namespace KSETUP {

void SettleLeftovers(KLockedProduct& product) {
    const KRunContext& context = product.GetContext();
    const KManifest& manifest = product.GetOwnership().GetManifest();
    if (context.arguments.purge && KPinnedKey::Remove(product.GetService())) {
        context.report.changed = true;
        context.report.wasPurged = true;
    }
    if (!manifest.HasFiles()) { // at most what a removal that was killed at its very end left
        KInstalledKit::Remove(product.GetService());
        KKeptKit::RemoveUnlessNeeded(product.GetService());
        RemoveEmptyStateDirectory(product.GetService());
        return;
    }
    if (!context.arguments.purge) {
        for (const std::string& path : manifest.FindRemaining()) {
            context.report.leftBehind.push_back(path);
        }
        context.report.notes.emplace_back(Text("\"ins-setup remove --purge\" deletes it."));
        return;
    }
    const auto& entries = manifest.GetEntries();
    std::vector<std::string> paths; // also those that a run deleted that was killed before this one
    for (auto at = entries.rbegin(); at != entries.rend(); ++at) { // what is in a directory first
        paths.push_back(product.GetOwnership().RealPath(at->first));
        const bool isDirectory = at->second.kind == KManifestEntry::Kind::Directory;
        static_cast<void>(
            isDirectory ? SvcDeleteDirectory(0, at->first.c_str(), 0)
                        : SvcDeleteFile(0, at->first.c_str())
        );
    }
    for (const std::string& path : manifest.FindRemaining()) {
        context.report.leftBehind.push_back(path);
    }
    FlushDeletions(paths);
    if (const KManifest left = manifest.WithoutMissing(); left.HasFiles()) {
        left.Write(product.GetService()); // for the next purge
    } else {
        KManifest::Remove(product.GetService());
    }
    KKeptKit::RemoveUnlessNeeded(product.GetService());
    RemoveEmptyStateDirectory(product.GetService());
    context.report.changed = true;
    context.report.wasPurged = true;
}

} // namespace KSETUP
