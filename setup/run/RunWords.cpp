// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/run/RunWords.h>
#include <sup++/KErrorCode.h>
#include <sup++/Svc.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <string_view>
#include <system_error>

namespace KSETUP {

namespace {

constexpr unsigned runningState = 4; // of a service

/// Without information the place tells what the number means: our own codes are also errno's.
std::string WordsOfPlace(const KSUP::KError& error) {
    const std::string_view place(error.GetFile());
    if (place == "ins/unx/lin/KInstallPathManager") {
        return error.GetCode() == KSUP::ErrorCode::notFound
                   ? "The product's link is missing or no link. The script has to make "
                     "/etc/SERVICE/SERVICE, a symbolic link to a program three levels below the "
                     "product path."
                   : "The product's link /etc/SERVICE/SERVICE does not lead to an absolute path.";
    }
    if (place == "sup++/KProfile") {
        return "The product's configuration file is missing, so there is no place for the record. "
               "The script has to make it, for instance with profile=put.";
    }
    if (place == "ins/KProcessRuleBase") {
        return "A process could not be started or stopped. The last line of the log says why.";
    }
    if (place == "ins/KFileRule") { // a deletion, whose code is the system's
        return std::generic_category().message(static_cast<int>(error.GetCode()));
    }
    return error.GetCode() == KSUP::ErrorCode::malformedRule
               ? "The script has a line that is no rule."
               : error.GetSummary().c_str();
}

/// Whether the target is in the way: there is no room, or nothing may be written.
bool CannotWrite(unsigned code) {
    static constexpr std::array codes =
        std::to_array<unsigned>({ENOSPC, EDQUOT, EROFS, EACCES, EPERM, EFBIG, ETXTBSY});
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

} // namespace

KInstalledRecord ReadRecord(const KINS::KInstaller& installer) {
    KSUP::KString path;
    KSUP::KString version;
    unsigned buildNumber = 0;
    installer.GetInstalledProductInformation(path, version, buildNumber);
    return {path.c_str(), version.c_str(), buildNumber};
}

std::string InWords(const KSUP::KError& error, const std::string& lastCopied) {
    if (!error.HasInfo()) {
        return WordsOfPlace(error);
    }
    const std::string info = error.GetInfo().GetString().c_str();
    if (error.GetCode() == KSUP::ErrorCode::malformedRule) {
        return "The script has a line that is no rule: " + info;
    }
    if (!lastCopied.empty()) {
        return (info.starts_with(lastCopied + ":") ? "cannot write " : "cannot read ") + info;
    }
    return info;
}

bool IsOfServiceCall(const KSUP::KError& error) {
    return std::string_view(error.GetFile()) == "ins/KServiceRule" &&
           error.GetCode() != KSUP::ErrorCode::malformedRule;
}

int ExitCodeOf(const KSUP::KError& error) {
    if (IsOfServiceCall(error)) {
        return ExitCode::noService;
    }
    // A status of ours that has an errno's number comes from nowhere that deals with files.
    const std::string_view place(error.GetFile());
    const bool isOfFiles = place.starts_with("sup++/") || place == "ins/KFileRule";
    return isOfFiles && CannotWrite(error.GetCode()) ? ExitCode::cannotWrite : ExitCode::ruleFailed;
}

std::string LeftServices() {
    std::string left;
    std::array<char, NAME_MAX + 1> name{};
    unsigned state = 0;
    for (unsigned cursor = 0;
         SvcEnumerateLeftServices(0, &cursor, name.size(), name.data(), &state) == 0;) {
        left += std::string(left.empty() ? "" : ", ") +
                (state == runningState ? "start " : "stop ") + name.data();
    }
    return left.empty()
               ? ""
               : "systemd does not run here, so this is left for the next boot: " + left + ".";
}

} // namespace KSETUP
