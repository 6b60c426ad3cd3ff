// SPDX-License-Identifier: MIT
#include <array>
#include <bit>
#include <filesystem>
#include <string_view>

#include <bundle/BundleFormat.h>
#include <bundle/JoinedHead.h>
#include <bundle/KBundleError.h>
#include <bundle/head/OwnBundle.h>
#include <sys/auxv.h>
#include <sys/files/FileCalls.h>
#include <sys/files/FileContent.h>
#include <sys/files/FileStatus.h>

namespace KBUNDLE {

namespace {

constexpr const char* kernelsLink = "/proc/self/exe";
// As head/choose.sh has them.
constexpr std::string_view bundleWord = "--bundle-file=";
constexpr std::string_view probeWord = "--can-run";

std::string CalledAs() {
    const char* const named = std::bit_cast<const char*>(::getauxval(AT_EXECFN));
    return named != nullptr ? named : kernelsLink;
}

/// The program's own file. The kernel's own link leads to it, whatever its name is by now.
unsigned OpenOwn(const std::string& path, KSYS::KDescriptor& file, struct stat& status) {
    const unsigned failed = KSYS::OpenRegular(kernelsLink, file, status);
    return failed != 0 ? KSYS::OpenRegular(path.c_str(), file, status) : failed;
}

/// Whether it lies alone where the script put it, and is no bundle: with one, words are the user's.
bool IsTakenOut(const std::filesystem::path& path) {
    if (!path.parent_path().filename().string().starts_with(headDirectoryBegin)) {
        return false;
    }
    KSYS::KDescriptor file;
    struct stat status {};
    std::array<char, bundleEndBytes> end{};
    std::size_t count = 0;
    const auto size = [&] { return static_cast<std::uint64_t>(status.st_size); };
    if (OpenOwn(path.string(), file, status) != 0 || size() < end.size()) {
        return false;
    }
    const auto offset = static_cast<off_t>(size() - end.size());
    return KSYS::ReadAt(file.Get(), end.data(), end.size(), offset, count) == 0 &&
           !ReadBundleEnd({end.data(), count}, size());
}

} // namespace

KOwnBundle FindOwnBundle(std::vector<std::string>& words) {
    KOwnBundle bundle{.path = CalledAs()};
    const bool isTold = !words.empty() && words[0].starts_with(bundleWord);
    const bool isProbe = !words.empty() && words[0] == probeWord;
    if ((isTold || isProbe) && IsTakenOut(bundle.path)) {
        bundle.isTakenOut = true;
        bundle.isWanted = isTold;
        if (isTold) {
            const std::filesystem::path own = bundle.path;
            std::error_code stays; // it is in nobody's way
            std::filesystem::remove(own, stays);
            std::filesystem::remove(own.parent_path(), stays);
            bundle.path = words[0].substr(bundleWord.size());
            words.erase(words.begin());
        }
    }
    return bundle;
}

KSYS::KDescriptor OpenBundle(const KOwnBundle& bundle) {
    KSYS::KDescriptor file;
    struct stat status {};
    const unsigned failed = bundle.isTakenOut ? KSYS::OpenRegular(bundle.path.c_str(), file, status)
                                              : OpenOwn(bundle.path, file, status);
    if (failed != 0) {
        FailOnRead(bundle.path, failed);
    }
    return file;
}

} // namespace KBUNDLE
