// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/state/KJsonLine.h>
#include <setup/state/KPinnedKey.h>
#include <setup/state/KPrivateDirectory.h>

#include <stdexcept>

namespace KSETUP {

namespace {

constexpr const char* pinFormat = "ins++ pinned key";
constexpr std::uint64_t pinVersion = 1;
constexpr const char* formerKeyName = "formerKey";

} // namespace

std::optional<KPinnedKey>
KPinnedKey::Read(const std::string& serviceName, const std::string& base) {
    const auto directory = KPrivateDirectory::OpenExisting(base, serviceName);
    const auto text = directory ? directory->Read(fileName) : std::nullopt;
    if (!text) {
        return std::nullopt;
    }
    const std::string path = PathOf(serviceName, base);
    try {
        const KJsonLine line(*text);
        if (line.GetText("format") != pinFormat || line.GetNumber("formatVersion") != pinVersion) {
            throw std::invalid_argument("another format");
        }
        KPinnedKey pin{KPublicKey::FromText(line.GetText("key"), path), line.GetText("seal"), {}};
        if (line.Has(formerKeyName)) {
            pin.formerKey = KPublicKey::FromText(line.GetText(formerKeyName), path);
        }
        return pin;
    } catch (const std::invalid_argument& what) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            Text(
                "%s cannot be understood (%s), so it is not known whose kits may be installed. "
                "Nothing was changed. Get the public key from who makes the kits, put it into "
                "/etc/ins++/trusted.d/%s/, and delete the file.",
                path,
                what.what(),
                serviceName
            )
        );
    }
}

void KPinnedKey::Write(const std::string& serviceName, const std::string& base) const {
    KJsonLine line;
    line.Put("format", pinFormat);
    line.Put("formatVersion", pinVersion);
    line.Put("key", key.ToText());
    line.Put("seal", seal);
    if (formerKey) {
        line.Put(formerKeyName, formerKey->ToText());
    }
    KPrivateDirectory(base, serviceName).WriteDurably(fileName, line.ToText());
}

bool KPinnedKey::Remove(const std::string& serviceName, const std::string& base) {
    const auto directory = KPrivateDirectory::OpenExisting(base, serviceName);
    const bool isThere = directory && directory->Read(fileName).has_value();
    if (isThere) {
        directory->Delete(fileName);
    }
    return isThere;
}

} // namespace KSETUP
