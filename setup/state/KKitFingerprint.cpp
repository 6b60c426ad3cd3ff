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

/// The sum of a list of texts, which may be as long as the product's. Each ends in a byte that no text
/// has, so that no two lists look the same.
class TextSum {
  public:
    void Add(std::string_view text) {
        held += text;
        held += '\0';
        if (held.size() >= mostHeld) { // a call of libcrypto costs more than most texts
            sum.Add(held);
            held.clear();
        }
    }
    std::string End() {
        sum.Add(held);
        return sum.End();
    }

  private:
    static constexpr std::size_t mostHeld = std::size_t{16} << 10U; // bytes
    KDigestSum sum;
    std::string held;
};

} // namespace

KKitFingerprint::KKitFingerprint(std::shared_ptr<const KKitLook> itsKit) : kit(std::move(itsKit)) {
    sorted.reserve(kit->GetEntries().size());
    for (const KKitLook::Entry& entry : kit->GetEntries()) {
        sorted.push_back(&entry);
    }
    std::sort(sorted.begin(), sorted.end(), [this](const auto* left, const auto* right) {
        return std::strcmp(kit->PathOf(*left), kit->PathOf(*right)) < 0;
    });
    TextSum all;
    for (const KKitLook::Entry* entry : sorted) {
        const KSYS::EntryStatus& status = entry->status;
        all.Add(kit->PathOf(*entry));
        all.Add(std::to_string(status.mode));
        all.Add(std::to_string(SizeOf(status)));
        all.Add(std::to_string(status.modifiedSeconds));
        all.Add(std::to_string(status.modifiedNanoseconds));
        all.Add(kit->TargetOf(*entry));
    }
    look = all.End();
}

std::string KKitFingerprint::ReadContent(
    const KnownFiles& known, const std::function<bool()>& shallStop
) const {
    TextSum all;
    for (const KKitLook::Entry* entry : sorted) {
        all.Add(kit->PathOf(*entry));
        all.Add(std::to_string(entry->status.mode));
        all.Add(kit->TargetOf(*entry));
        if (!S_ISREG(entry->status.mode)) {
            continue;
        }
        const std::string path = JoinPath(kit->GetDirectory(), kit->PathOf(*entry));
        if (const auto found = known.find(path);
            found != known.end() && found->second.size == entry->status.bytes) {
            all.Add(found->second.sha256);
            continue;
        }
        const KFileDigest digest = DigestFile(path, shallStop);
        if (digest.errorNumber == ECANCELED) {
            throw KSetupStop(Text("Stopped on request. Nothing was changed."));
        }
        RequireReadableKit(digest.errorNumber, path);
        all.Add(digest.sha256);
    }
    return all.End();
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
