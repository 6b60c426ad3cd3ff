// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/kit/KSetupKit.h>
#include <setup/plan/ProductPath.h>
#include <setup/plan/SystemPlaces.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <system_error>

namespace KSETUP {

namespace {

std::string WithoutEndSeparator(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

} // namespace

std::string WhyNotAProductPath(const std::string& path, const std::string& service) {
    if (path.empty()) {
        return "it is empty";
    }
    if (path.size() >= PATH_MAX) { // first: it would be looked at step by step
        return "it is longer than a path can be";
    }
    if (path.front() != '/') {
        return "it does not begin with \"/\"";
    }
    const auto cannotStandInARule = [](char byte) {
        return byte == ',' || byte == '$' || static_cast<unsigned char>(byte) < 0x20 ||
               byte == 0x7F;
    };
    if (std::any_of(path.begin(), path.end(), cannotStandInARule)) {
        return "it has a comma, a dollar sign or a control character, which rules cannot hold";
    }
    // Both as it is written and where it leads to: a link or ".." must not get around the list.
    const std::filesystem::path written = std::filesystem::path(path).lexically_normal();
    std::error_code unreadable; // then the written path is all there is to go by
    const std::filesystem::path real = std::filesystem::weakly_canonical(path, unreadable);
    if (IsSystemDirectory(WithoutEndSeparator(written.string()), service) ||
        (!unreadable && IsSystemDirectory(WithoutEndSeparator(real.string()), service))) {
        return "it is a directory of the system";
    }
    return {};
}

std::string ChooseProductPath(
    const std::optional<KInstalledRecord>& record,
    const KMacroContext& macros,
    const KScript& script,
    const std::string& given
) {
    const bool installed = record.has_value();
    const std::string recorded = installed ? record->path : "";
    const std::string path = !given.empty() ? given
                             : installed    ? recorded
                                            : macros.ProposePath(script);
    if (const std::string why = WhyNotAProductPath(path, macros.Expand("$serviceName$"));
        !why.empty()) {
        throw KSetupFailure(
            given.empty() ? ExitCode::malformedScript : ExitCode::usage,
            "The product path \"" + path.substr(0, PATH_MAX) + "\" cannot be used: " + why +
                (!given.empty() ? ". Give a directory of the product's own."
                 : installed    ? ". The record of the installed product is wrong; look at "
                                  "/etc/SERVICE/SERVICE."
                                : ". Give a directory of the product's own, or fix "
                                  "\"defaultPath.$os$\" in the script.")
        );
    }
    if (installed && WithoutEndSeparator(path) != WithoutEndSeparator(recorded)) {
        throw KSetupFailure(
            ExitCode::usage,
            std::string(KSetupKit::GetProductName().c_str()) + " is installed in " + recorded +
                ". Leave the path out to install over it, or remove it first."
        );
    }
    return path;
}

} // namespace KSETUP
