// SPDX-License-Identifier: MIT
#include <sup++/KProfileContent.h>

#include <cerrno>
#include <string>
#include <utility>

#include <sys/files/WriteReport.h>

namespace KSUP {

namespace {

constexpr unsigned newProfileMode = 0644;

KString ToText(std::string_view bytes) {
    return KString(std::string(bytes));
}

/// ToText into a text whose memory is used again, line by line.
void Store(std::string_view bytes, KString& text) {
    text.Truncate(0).Cat(bytes.data(), static_cast<unsigned>(bytes.size()));
}

} // namespace

unsigned KProfileContent::Open(const KString& filePath, bool mayBeMissing) {
    const KSYS::KScopedLock hold(guard);
    std::string bytes;
    KSYS::FileIdentity found;
    unsigned status = KSYS::ReadFile(filePath.c_str(), bytes, found);
    if (status == ENOENT && mayBeMissing) {
        status = 0;
    }
    if (status == 0) {
        path = filePath;
        onDisk = found;
        text.Parse(std::move(bytes));
    }
    return status;
}

unsigned KProfileContent::Create(const KString& filePath) {
    KSYS::ReportedFile report(filePath.c_str()); // once the locks are released
    const KSYS::KScopedLock hold(guard);
    KSYS::KFileReplacement lock;
    unsigned status = lock.Take(filePath.c_str());
    if (status == 0) {
        status = lock.Write({}, newProfileMode, onDisk, report.isWritten);
    }
    if (status == 0) {
        path = filePath;
        text.Parse({});
    }
    return status;
}

bool KProfileContent::Find(std::string_view section, std::string_view key, KString& value) {
    const KSYS::KScopedLock hold(guard);
    const unsigned at = text.Find(section, key);
    if (at != 0) {
        value = ToText(text.ValueAt(at));
    }
    return at != 0;
}

void KProfileContent::ReadAgain(std::string bytes) {
    KProfileText now;
    now.Parse(std::move(bytes));
    walks.Follow(text, now);
    text = std::move(now);
}

/// Reads what another process wrote meanwhile, changes it, and writes it back, all under the lock.
/// Keys that `change` adds are the section's.
template <class Change>
unsigned KProfileContent::Apply(GoneFile gone, std::string_view section, Change change) {
    KSYS::ReportedFile report(path.c_str()); // once the locks are released
    const KSYS::KScopedLock hold(guard);
    KSYS::KFileReplacement lock;
    unsigned status = lock.Take(path.c_str());
    if (status == 0 && !lock.IsStill(onDisk)) {
        std::string bytes;
        KSYS::FileIdentity found;
        status = lock.Read(bytes, found);
        if (status == ENOENT && gone == GoneFile::StaysGone) {
            change(text); // what was read is still walked through
            return 0;
        }
        if (status == 0 || status == ENOENT) {
            status = 0;
            ReadAgain(std::move(bytes));
            onDisk = found;
        }
    }
    if (status != 0) {
        return status;
    }
    // On a copy, which takes the text's place when the file holds it: positions stay good either
    // way.
    KProfileText changed(text);
    const unsigned sizeBefore = changed.GetSize();
    change(changed);
    status = lock.Write(changed.Compose(), newProfileMode, onDisk, report.isWritten);
    if (report.isWritten) {
        text = std::move(changed);
        for (unsigned added = sizeBefore; added < text.GetSize(); ++added) {
            walks.Add(section, text.IsKey(added) ? added : 0);
        }
    }
    return status;
}

unsigned
KProfileContent::Put(std::string_view section, std::string_view key, std::string_view value) {
    return Apply(GoneFile::IsMade, section, [&](KProfileText& changed) {
        changed.Put(section, key, value);
    });
}

unsigned KProfileContent::PutBoth(
    std::string_view section, const KProfileKey& first, const KProfileKey& second
) {
    return Apply(GoneFile::IsMade, section, [&](KProfileText& changed) {
        changed.Put(section, first.name, first.value);
        changed.Put(section, second.name, second.value);
    });
}

unsigned KProfileContent::Delete(
    std::string_view section, std::string_view key, unsigned& position, const KString& keyThere
) {
    bool standsOnIt = false;
    const unsigned status =
        Apply(GoneFile::StaysGone, section, [&](KProfileText& changed) SUP_REQUIRES(guard) {
            standsOnIt = keyThere.c_str() == key && walks.IsIn(changed, position, section);
            const unsigned line = standsOnIt ? walks.LineAt(position) : changed.Find(section, key);
            if (changed.IsKey(line)) {
                changed.Remove(line);
            }
        });
    if (status == 0 && standsOnIt) {
        position = 0;
    }
    return status;
}

unsigned KProfileContent::Begin(std::string_view section) {
    const KSYS::KScopedLock hold(guard);
    return walks.Begin(section);
}

unsigned KProfileContent::Next(unsigned position, KString& keyName, KString& keyValue) {
    const KSYS::KScopedLock hold(guard);
    const unsigned at = walks.Next(text, position);
    if (at != 0) {
        const std::uint32_t line = walks.LineAt(at);
        Store(text.KeyAt(line), keyName);
        Store(text.ValueAt(line), keyValue);
    }
    return at;
}

} // namespace KSUP
