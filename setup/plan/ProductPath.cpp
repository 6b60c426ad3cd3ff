// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/kit/KSetupKit.h>
#include <setup/plan/ProductPath.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace KSETUP {

namespace {

/// Directories that hold what many own (hier(7), file-hierarchy(7)). A directory of one's own below
/// them is fine.
constexpr std::array shared = std::to_array<std::string_view>({
    "/",
    "/bin",
    "/boot",
    "/etc",
    "/home",
    "/lib",
    "/lib32",
    "/lib64",
    "/libx32",
    "/media",
    "/mnt",
    "/opt",
    "/root",
    "/run",
    "/sbin",
    "/snap",
    "/srv",
    "/tmp",
    "/usr",
    "/usr/bin",
    "/usr/games",
    "/usr/include",
    "/usr/lib",
    "/usr/lib32",
    "/usr/lib64",
    "/usr/libexec",
    "/usr/libx32",
    "/usr/local",
    "/usr/local/bin",
    "/usr/local/etc",
    "/usr/local/include",
    "/usr/local/lib",
    "/usr/local/sbin",
    "/usr/local/share",
    "/usr/local/src",
    "/usr/sbin",
    "/usr/share",
    "/usr/src",
    "/var",
    "/var/backups",
    "/var/cache",
    "/var/lib",
    "/var/local",
    "/var/lock",
    "/var/log",
    "/var/mail",
    "/var/opt",
    "/var/run",
    "/var/spool",
    "/var/tmp",
});

/// Nothing can be installed anywhere below: file systems of the kernel's own, and what belongs to
/// the package and service managers.
constexpr std::array closed = std::to_array<std::string_view>({
    "/dev",
    "/proc",
    "/sys",
    "/boot",
    "/lost+found",
    "/etc/systemd",
    "/usr/lib/modules",
    "/usr/lib/systemd",
    "/usr/share/doc",
    "/usr/share/man",
    "/var/lib/dpkg",
    "/var/lib/systemd",
});

/// The directories of libraries for one architecture, /usr/lib/x86_64-linux-gnu for instance.
bool IsMultiarch(const std::string& path) {
    const std::filesystem::path directory(path);
    return (directory.parent_path() == "/usr/lib" || directory.parent_path() == "/lib") &&
           directory.filename().string().find("-linux-") != std::string::npos;
}

/// A home directory itself; a product in one's own home is fine.
bool IsHome(const std::string& path) {
    return std::filesystem::path(path).parent_path() == "/home";
}

std::string WithoutEndSeparator(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

bool BelongsToTheSystem(const std::string& path) {
    return std::find(shared.begin(), shared.end(), path) != shared.end() || IsMultiarch(path) ||
           IsHome(path) || std::any_of(closed.begin(), closed.end(), [&](std::string_view one) {
               return IsAtOrBelow(path, one);
           });
}

} // namespace

std::string WhyNotAProductPath(const std::string& path) {
    if (path.empty()) {
        return "it is empty";
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
    if (BelongsToTheSystem(WithoutEndSeparator(written.string())) ||
        (!unreadable && BelongsToTheSystem(WithoutEndSeparator(real.string())))) {
        return "it is a directory of the system";
    }
    return {};
}

std::string ChooseProductPath(
    const KINS::KInstaller& installer,
    const KMacroContext& macros,
    const KScript& script,
    const std::string& given
) {
    const bool installed = installer.IsProductInstalled();
    const std::string recorded = installed ? installer.GetInstalledProductPath().c_str() : "";
    const std::string path = !given.empty() ? given
                             : installed    ? recorded
                                            : macros.ProposePath(script);
    if (const std::string why = WhyNotAProductPath(path); !why.empty()) {
        throw KSetupFailure(
            given.empty() ? ExitCode::malformedScript : ExitCode::usage,
            "The product path \"" + path + "\" cannot be used: " + why +
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
