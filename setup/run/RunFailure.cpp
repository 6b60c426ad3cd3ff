// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/run/RunFailure.h>
#include <setup/text/NotedText.h>
#include <sup++/KErrorCode.h>
#include <sup++/Svc.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <system_error>

namespace KSETUP {

namespace {

constexpr unsigned runningState = 4; // of a service

/// "cannot write /opt/p/a: No space left on device".
KText WordsOfSystem(const KSUP::KError& error) {
    const std::string path = error.GetPath().c_str();
    const std::string reason = error.GetReason().c_str();
    std::string whole =
        error.HasInfo() ? error.GetInfo().GetString().c_str() : path + ": " + reason;
    if (!error.HasInfo() && path.empty()) { // of no file, such as a lock that cannot be had
        whole = reason.empty() ? std::generic_category().message(static_cast<int>(error.GetCode()))
                               : reason;
    }
    const KText limit = error.GetCode() == EFBIG
                            ? Text(" (a limit of the caller, as ulimit -f sets "
                                   "it, or of the file system)")
                            : "";
    if (path.empty()) {
        return whole + limit;
    }
    // The reason follows what cannot be done with the path.
    const bool isAtPath = whole.starts_with(path);
    const std::string what = isAtPath ? path : whole;
    const KText rest = FindNotedText(whole.substr(what.size())) + limit;
    switch (error.GetOperation()) {
    case KSUP::KOperation::Read:
        return Text("cannot read %s", what) + rest;
    case KSUP::KOperation::Write:
        return Text("cannot write %s", what) + rest;
    case KSUP::KOperation::Delete:
        return Text("cannot delete %s", what) + rest;
    default:
        return what + rest;
    }
}

KText WordsOfLink(const KSUP::KError& error) {
    if (error.GetCode() != KSUP::ErrorCode::notFound) {
        return Text("The product's link /etc/SERVICE/SERVICE does not lead to an absolute path.");
    }
    const std::string reason = error.GetReason().c_str();
    const auto isFor = [&reason](int number) {
        return reason == std::generic_category().message(number);
    };
    if (!isFor(ENOENT) && !isFor(ENOTDIR) && !isFor(EINVAL)) {
        return Text(
            "cannot read %s: %s. Fix the cause and try again.", error.GetPath().c_str(), reason
        );
    }
    return Text("The product's link is missing or no link. The script has to make "
                "/etc/SERVICE/SERVICE, a symbolic link to a program three levels below the product "
                "path.");
}

/// Whether the target is in the way: there is no room, or nothing may be written.
bool CannotWrite(unsigned code) {
    static constexpr std::array codes =
        std::to_array<unsigned>({ENOSPC, EDQUOT, EROFS, EACCES, EPERM, EFBIG, ETXTBSY});
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

} // namespace

KText DescribeError(const KSUP::KError& error) {
    const std::string info = error.GetInfo().GetString().c_str();
    switch (error.GetKind()) {
    case KSUP::KErrorKind::System:
        return WordsOfSystem(error);
    case KSUP::KErrorKind::Rule:
        return Text("The script has a line that is no rule%s", (info.empty() ? "." : ": " + info));
    case KSUP::KErrorKind::RecordLink:
        return WordsOfLink(error);
    case KSUP::KErrorKind::RecordFile:
        return Text("The product's configuration file is missing, so there is no place for the "
                    "record. The script has to make it, for instance with profile=put.");
    case KSUP::KErrorKind::Process:
        return Text("A process could not be started or stopped: %s", error.GetReason().c_str());
    case KSUP::KErrorKind::Service:
        return error.GetReason().c_str();
    case KSUP::KErrorKind::Own:
        if (error.GetOperation() == KSUP::KOperation::Execute) {
            return Text(
                "the command failed with exit code %s: %s",
                error.GetReason().c_str(),
                error.GetPath().c_str()
            );
        }
        [[fallthrough]];
    default:
        return FindNotedText(info.empty() ? error.GetSummary().c_str() : info);
    }
}

int ExitCodeOf(const KSUP::KError& error) {
    if (error.GetKind() == KSUP::KErrorKind::Service) {
        return ExitCode::noService;
    }
    return error.IsSystemError() && CannotWrite(error.GetCode()) ? ExitCode::cannotWrite
                                                                 : ExitCode::ruleFailed;
}

KText DescribeLeftServices() {
    KText left;
    std::array<char, NAME_MAX + 1> name{};
    unsigned state = 0;
    for (unsigned cursor = 0;
         SvcEnumerateLeftServices(0, &cursor, name.size(), name.data(), &state) == 0;) {
        left +=
            (left.empty() ? "" : ", ") +
            Text(
                state == runningState ? TextFormat("start %s") : TextFormat("stop %s"), name.data()
            );
    }
    return left.empty()
               ? ""
               : Text("systemd does not run here, so this is left for the next boot: %s.", left);
}

} // namespace KSETUP
