// SPDX-License-Identifier: MIT
#include <setup/KSetupStop.h>
#include <setup/files/PathText.h>
#include <setup/state/KJsonLine.h>
#include <setup/state/KKitFingerprint.h>
#include <setup/state/KPrivateDirectory.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace KSETUP {

namespace {

constexpr const char* fileName = "fingerprint";
constexpr const char* fingerprintFormat = "ins++ fingerprint";
constexpr std::uint64_t fingerprintVersion = 1;

/// Of a directory or a link it says how the file system keeps them.
std::uint64_t SizeOf(const KSYS::EntryStatus& status) {
    return S_ISREG(status.mode) ? status.bytes : 0;
}

/// Ends in a byte that no text has, so that no two lists of texts look the same.
void Append(std::string& all, std::string_view text) {
    all += text;
    all += '\0';
}

} // namespace

KKitFingerprint::KKitFingerprint(std::shared_ptr<const KKitLook> itsKit) : kit(std::move(itsKit)) {
    sorted.reserve(kit->GetEntries().size());
    for (const KKitLook::Entry& entry : kit->GetEntries()) {
        sorted.push_back(&entry);
    }
    std::sort(sorted.begin(), sorted.end(), [this](const auto* left, const auto* right) {
        return std::strcmp(kit->PathOf(*left), kit->PathOf(*right)) < 0;
    });
    std::string all;
    for (const KKitLook::Entry* entry : sorted) {
        const KSYS::EntryStatus& status = entry->status;
        Append(all, kit->PathOf(*entry));
        Append(all, std::to_string(status.mode));
        Append(all, std::to_string(SizeOf(status)));
        Append(all, std::to_string(status.modifiedSeconds));
        Append(all, std::to_string(status.modifiedNanoseconds));
        Append(all, kit->TargetOf(*entry));
    }
    look = DigestBytes(all);
}

std::string KKitFingerprint::ReadContent(
    const KnownFiles& known, const std::function<bool()>& shallStop
) const {
    std::string all;
    for (const KKitLook::Entry* entry : sorted) {
        Append(all, kit->PathOf(*entry));
        Append(all, std::to_string(entry->status.mode));
        Append(all, kit->TargetOf(*entry));
        if (!S_ISREG(entry->status.mode)) {
            continue;
        }
        const std::string path = JoinPath(kit->GetDirectory(), kit->PathOf(*entry));
        if (const auto found = known.find(path);
            found != known.end() && found->second.size == entry->status.bytes) {
            Append(all, found->second.sha256);
            continue;
        }
        const KFileDigest digest = DigestFile(path, shallStop);
        if (digest.errorNumber == ECANCELED) {
            throw KSetupStop(Text("Stopped on request. Nothing was changed."));
        }
        RequireReadableKit(digest.errorNumber, path);
        Append(all, digest.sha256);
    }
    return DigestBytes(all);
}

void KInstalledKit::Write(const std::string& serviceName, const std::string& base) const {
    KJsonLine line;
    line.Put("format", fingerprintFormat);
    line.Put("formatVersion", fingerprintVersion);
    line.Put("look", look);
    line.Put("content", content);
    line.Put("manifest", manifest);
    KPrivateDirectory(base, serviceName).WriteDurably(fileName, line.ToText());
}

std::optional<KInstalledKit>
KInstalledKit::Read(const std::string& serviceName, const std::string& base) {
    const auto directory = KPrivateDirectory::OpenExisting(base, serviceName);
    const auto text = directory ? directory->Read(fileName) : std::nullopt;
    if (!text) {
        return std::nullopt;
    }
    try {
        const KJsonLine line(*text);
        if (line.GetText("format") != fingerprintFormat ||
            line.GetNumber("formatVersion") != fingerprintVersion) {
            return std::nullopt;
        }
        return KInstalledKit{
            line.GetText("look"), line.GetText("content"), line.GetText("manifest")};
    } catch (const std::invalid_argument&) {
        return std::nullopt;
    }
}

void KInstalledKit::Remove(const std::string& serviceName, const std::string& base) {
    if (const auto directory = KPrivateDirectory::OpenExisting(base, serviceName)) {
        directory->Delete(fileName);
    }
}

} // namespace KSETUP
