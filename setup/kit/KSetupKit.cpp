// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/KSetupKit.h>
#include <sup++/KErrorCode.h>
#include <sup++/KUtil.h>
#include <sup++/Svc.h>

#include <filesystem>
#include <system_error>

namespace KSETUP {

namespace {

constexpr unsigned sourceRoot = 2; // of the path map

std::string FindDirectory(const std::string& directory) {
    const std::string wanted =
        directory.empty() ? KSUP::KUtil::GetPathMap(sourceRoot).c_str() : directory;
    std::error_code error;
    const std::filesystem::path found = std::filesystem::canonical(wanted, error);
    if (error || !std::filesystem::is_directory(found, error)) {
        throw KSetupFailure(
            ExitCode::noKit, wanted + ": no such directory. Name the kit's with --kit DIR."
        );
    }
    return found.string();
}

KSUP::KString FindFile(const std::string& directory, const char* name) {
    const std::filesystem::path file = std::filesystem::path(directory) / name;
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) {
        throw KSetupFailure(
            ExitCode::noKit,
            file.string() + ": missing. A kit is a directory with product.ini, install.ini and "
                            "the product's files; name it with --kit DIR."
        );
    }
    return file.string();
}

} // namespace

KSetupKit::KSetupKit(const std::string& givenDirectory) : directory(FindDirectory(givenDirectory)) {
    const KSUP::KString product = FindFile(directory, "product.ini");
    script = FindFile(directory, "install.ini");
    if (const unsigned status = SvcLoadProductData(product.c_str()); status != 0) {
        const bool malformed = status == KSUP::ErrorCode::invalidArgument;
        throw KSetupFailure(
            malformed ? ExitCode::malformedScript : ExitCode::noKit,
            std::string(product.c_str()) +
                (malformed ? ": name, serviceName and iniFile in section [product] must be names "
                             "without \"/\", and buildNumber a number."
                           : ": " + std::generic_category().message(static_cast<int>(status)))
        );
    }
    KSUP::KUtil::SetPathMap(sourceRoot, KSUP::KUtil::AppendPathSep(directory, "/"));
}

KSUP::KString KSetupKit::GetProductName() {
    return SvcGetProductText(SvcGetOEMDataEx()->product);
}

} // namespace KSETUP
