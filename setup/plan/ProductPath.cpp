// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/kit/KSetupKit.h>
#include <setup/plan/ProductPath.h>
#include <setup/plan/SystemPlaces.h>

#include <algorithm>
#include <climits>

namespace KSETUP {

namespace {

std::string WithoutEndSeparator(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

} // namespace

KText WhyNotAProductPath(const std::string& path, const std::string& service) {
    if (path.empty()) {
        return Text("it is empty");
    }
    if (path.size() >= PATH_MAX) { // first: it would be looked at step by step
        return Text("it is longer than a path can be");
    }
    if (path.front() != '/') {
        return Text("it does not begin with \"/\"");
    }
    const auto cannotStandInARule = [](char byte) {
        return byte == ',' || byte == '$' || static_cast<unsigned char>(byte) < 0x20 ||
               byte == 0x7F;
    };
    if (std::any_of(path.begin(), path.end(), cannotStandInARule)) {
        return Text("it has a comma, a dollar sign or a control character, which rules cannot hold"
        );
    }
    KRealDirectories directories;
    if (LeadsToSystemDirectory(path, service, directories)) {
        return Text("it is a directory of the system");
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
    if (const KText why = WhyNotAProductPath(path, macros.Expand("$serviceName$")); !why.empty()) {
        throw KSetupFailure(
            given.empty() ? ExitCode::malformedScript : ExitCode::usage,
            Text(
                "The product path \"%s\" cannot be used: %s%s",
                path.substr(0, PATH_MAX),
                why,
                (!given.empty() ? Text(". Give a directory of the product's own.")
                 : installed    ? Text(". The record of the installed product is wrong; look at "
                                       "/etc/SERVICE/SERVICE.")
                                : Text(". Give a directory of the product's own, or fix "
                                       "\"defaultPath.$os$\" in the script."))
            )
        );
    }
    if (installed && WithoutEndSeparator(path) != WithoutEndSeparator(recorded)) {
        throw KSetupFailure(
            ExitCode::usage,
            Text(
                "%s is installed in %s. Leave the path out to install over it, or remove it first.",
                KSetupKit::GetProductName().c_str(),
                recorded
            )
        );
    }
    return path;
}

} // namespace KSETUP
