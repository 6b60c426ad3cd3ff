// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/state/KManifest.h>
#include <setup/state/KWriteJournal.h>
#include <sup++/SvcFile.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <string_view>

#include <fcntl.h>
#include <sys/files/FileCalls.h>

namespace KSETUP {

namespace {

constexpr const char* journalName = "written";
constexpr char madeMark = '+';
constexpr char deletedMark = '-';
constexpr char expectedMark = '?';
constexpr char editedMark = '!';
constexpr char rewrittenMark = '*';
constexpr char directoryMark = '/';
constexpr std::size_t mostTaken = 256;                      // at once, of what was made
constexpr std::size_t mostPending = std::size_t{64} << 10U; // bytes

std::string Entry(char mark, const std::string& path) {
    return mark + path + '\0';
}

/// Also a link that leads nowhere, and what cannot be looked at.
bool IsThere(const std::string& path) {
    unsigned whyMissing = 0;
    return LookAtEntry(path, &whyMissing).has_value() ||
           (whyMissing != ENOENT && whyMissing != ENOTDIR);
}

/// The last entry may be cut off: a machine that went down had not flushed it.
KWriteJournal::Begun BegunIn(const std::string& text) {
    KWriteJournal::Begun begun;
    std::set<std::string> expected;
    std::size_t at = 0;
    for (std::size_t end = text.find('\0'); end != std::string::npos;
         at = end + 1, end = text.find('\0', at)) {
        std::string path = text.substr(std::min(at + 1, end), end - std::min(at + 1, end));
        switch (text[at]) {
        case expectedMark:
            expected.insert(std::move(path));
            break;
        case madeMark:
            begun.made.insert(std::move(path));
            break;
        case deletedMark:
            begun.made.erase(path);
            break;
        case editedMark:
            begun.edited.insert(std::move(path));
            break;
        case rewrittenMark:
            begun.rewritten.insert(std::move(path));
            break;
        case directoryMark:
            begun.directories.insert(std::move(path));
            break;
        default:
            break;
        }
    }
    for (const std::string& path : expected) {
        if (IsThere(path)) {
            begun.made.insert(path);
        }
    }
    return begun;
}

} // namespace

KWriteJournal::KWriteJournal(
    const std::string& serviceName, Begin begin, const Beginning& beginning, const std::string& base
)
    : directory(base, serviceName) {
    std::set<std::string> rewritten(beginning.rewritten.begin(), beginning.rewritten.end());
    std::set<std::string> directories = beginning.directories;
    if (begin == Begin::GoOn) {
        Begun begun = BegunIn(directory.Read(journalName).value_or(""));
        for (const std::string& path : begun.made) {
            made.emplace(path, false);
        }
        rewritten.merge(begun.rewritten);
        directories.merge(begun.directories);
    }
    std::string text;
    for (const std::string& path : rewritten) {
        text += Entry(rewrittenMark, NormalPath(path));
    }
    for (const std::string& path : directories) {
        text += Entry(directoryMark, path);
    }
    for (const std::string& path : beginning.expected) {
        text += Entry(expectedMark, NormalPath(path));
    }
    for (const std::string& path : beginning.edited) {
        text += Entry(editedMark, NormalPath(path));
    }
    for (const auto& one : made) {
        text += Entry(madeMark, one.first);
    }
    directory.WriteDurably(journalName, text);
    file = directory.Open(journalName, O_WRONLY | O_APPEND);
    static_cast<void>(SvcSetWriteListener(&KWriteJournal::Listen, this)); // cannot fail
}

KWriteJournal::~KWriteJournal() {
    static_cast<void>(SvcSetWriteListener(nullptr, nullptr)); // cannot fail
    const KSYS::KScopedLock hold(guard);
    SaveHeld(); // of a run that did not come to its end
}

void KWriteJournal::Listen(void* journal, unsigned what, const char* path) noexcept {
    auto& self = *static_cast<KWriteJournal*>(journal);
    const KSYS::KScopedLock hold(self.guard);
    try {
        switch (what) {
        case SvcWroteFile: // by the thousand, and those that are new are expected
            self.Note(true, false, path);
            break;
        case SvcMadeDirectory:
        case SvcLaidLink:
            self.Note(true, true, path);
            break;
        case SvcDeletedFile:
        case SvcDeletedDirectory:
            self.Note(false, false, path);
            break;
        default: // a mode: the manifest looks at it when all is done
            break;
        }
    } catch (const std::bad_alloc&) {
        self.errorNumber = ENOMEM;
    }
}

void KWriteJournal::Note(bool isMade, bool isSoon, const std::string& path) {
    const std::string normal = NormalPath(path);
    if (later) {
        later->insert(normal);
    }
    const bool isNews =
        isMade ? made.insert_or_assign(normal, true).second : made.erase(normal) != 0;
    if (!isNews) {
        return;
    }
    pending += Entry(isMade ? madeMark : deletedMark, normal);
    if (isSoon || pending.size() >= mostPending) {
        SaveHeld();
    }
}

/// Nothing follows what could not be written whole: it would be read as part of it.
void KWriteJournal::SaveHeld() noexcept {
    if (pending.empty() || !file.IsOpen() || errorNumber != 0) {
        return;
    }
    const unsigned status = KSYS::WriteAll(file.Get(), pending.data(), pending.size());
    if (status != 0 && errorNumber == 0) {
        errorNumber = static_cast<int>(status);
    }
    pending.clear();
}

KWriteJournal::Begun KWriteJournal::Read(const std::string& serviceName, const std::string& base) {
    const auto existing = KPrivateDirectory::OpenExisting(base, serviceName);
    return existing ? BegunIn(existing->Read(journalName).value_or("")) : Begun();
}

bool KWriteJournal::IsMadeNow(const std::string& path) const {
    const KSYS::KScopedLock hold(guard);
    const auto found = made.find(path);
    return found != made.end() && found->second;
}

bool KWriteJournal::IsMade(const std::string& path) const {
    const KSYS::KScopedLock hold(guard);
    return made.contains(path);
}

std::vector<std::string> KWriteJournal::GetMade() const {
    std::vector<std::string> paths;
    ForEachMade([&](const std::string& path) { paths.push_back(path); });
    return paths;
}

void KWriteJournal::ForEachMade(const std::function<void(const std::string& path)>& take) const {
    std::vector<std::string> some;
    do {
        const std::string last = some.empty() ? std::string() : std::move(some.back());
        some.clear();
        {
            const KSYS::KScopedLock hold(guard);
            for (auto at = made.upper_bound(last); at != made.end() && some.size() < mostTaken;
                 ++at) {
                some.push_back(at->first);
            }
        }
        std::for_each(some.begin(), some.end(), take);
    } while (some.size() == mostTaken);
}

void KWriteJournal::BeginLater() {
    const KSYS::KScopedLock hold(guard);
    later.emplace();
}

std::set<std::string> KWriteJournal::GetLater() const {
    const KSYS::KScopedLock hold(guard);
    return later.value_or(std::set<std::string>());
}

int KWriteJournal::GetErrorNumber() const noexcept {
    const KSYS::KScopedLock hold(guard);
    return errorNumber;
}

void KWriteJournal::End() {
    {
        const KSYS::KScopedLock hold(guard);
        file.Reset();
        pending.clear();
    }
    directory.Delete(journalName);
}

void KWriteJournal::Discard(const std::string& serviceName, const std::string& base) {
    if (const auto existing = KPrivateDirectory::OpenExisting(base, serviceName)) {
        existing->Delete(journalName);
    }
}

} // namespace KSETUP
