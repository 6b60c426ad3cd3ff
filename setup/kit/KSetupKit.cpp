// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/KSetupKit.h>
#include <setup/kit/ProductData.h>
#include <setup/output/TextFormat.h>
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
    const bool isDirectory = !error && std::filesystem::is_directory(found, error);
    if (error && error != std::errc::no_such_file_or_directory &&
        error != std::errc::not_a_directory) {
        throw KSetupFailure(ExitCode::noKit, wanted + ": " + error.message() + ".");
    }
    if (!isDirectory) {
        throw KSetupFailure(
            ExitCode::noKit, Text("%s: no such directory. Name the kit's with --kit DIR.", wanted)
        );
    }
    return found.string();
}

/// Throws where that cannot be known.
bool Has(const std::filesystem::path& directory, const char* name) {
    const std::filesystem::path file = directory / name;
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(file, error);
    if (status.type() == std::filesystem::file_type::none) {
        throw KSetupFailure(ExitCode::noKit, file.string() + ": " + error.message() + ".");
    }
    return std::filesystem::is_regular_file(status);
}

KSUP::KString FindFile(const std::string& directory, const char* name) {
    const std::filesystem::path file = std::filesystem::path(directory) / name;
    if (!Has(directory, name)) {
        throw KSetupFailure(
            ExitCode::noKit,
            Text(
                "%s: missing. A kit is a directory with product.ini, install.ini and the product's "
                "files; name it with --kit DIR.",
                file.string()
            )
        );
    }
    return file.string();
}

/// Nothing is done with a product that is perhaps another one.
void RefuseMistakes(const KScript& productData) {
    KText words;
    for (const KProductMistake& one : FindProductMistakes(productData)) {
        words += "\n" + Printable(Text(
                            "%s:%s:%s: error: %s; %s",
                            productData.GetPath(),
                            one.line,
                            one.column,
                            one.message,
                            one.advice
                        ));
    }
    if (!words.empty()) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            Text("the kit's product.ini has errors. Nothing was changed.%s", words)
        );
    }
}

std::vector<KDeclaredValue> DeclaredIn(const KScript& productData, const KSUP::KString& script) {
    std::vector<KDeclaredValue> values = ReadDeclaredValues(productData);
    if (!values.empty()) {
        for (const KValueUse& use : FindValueUses(KScript(script), values)) {
            KDeclaredValue& used = values[static_cast<std::size_t>(use.value - values.data())];
            used.isOptionOnly = used.isOptionOnly && use.isOption;
        }
    }
    return values;
}

} // namespace

KSetupKit::KSetupKit(const std::string& givenDirectory, Mistakes mistakes)
    : directory(FindDirectory(givenDirectory)) {
    const KSUP::KString product = FindFile(directory, "product.ini");
    script = FindFile(directory, "install.ini");
    const KScript productData(product);
    if (mistakes == Mistakes::Refused) {
        RefuseMistakes(productData);
    }
    const unsigned status = SvcLoadProductData(product.c_str());
    if (status != 0 && mistakes == Mistakes::Refused) {
        throw KSetupFailure(
            ExitCode::noKit,
            std::string(product.c_str()) + ": " +
                std::generic_category().message(static_cast<int>(status))
        );
    }
    KSUP::KUtil::SetPathMap(sourceRoot, KSUP::KUtil::AppendPathSep(directory, "/"));
    values = DeclaredIn(productData, script);
}

bool KSetupKit::IsBesideProgram() {
    const std::string own = KSUP::KUtil::GetPathMap(sourceRoot).c_str();
    return Has(own, "product.ini") && Has(own, "install.ini");
}

std::string KSetupKit::ChooseDirectory(const std::string& given) {
    const std::string own = KSUP::KUtil::GetPathMap(sourceRoot).c_str();
    if (!given.empty() || IsBesideProgram()) {
        return given.empty() ? own : given;
    }
    if (Has(".", "product.ini") || Has(".", "install.ini")) { // what is missing will be told
        return ".";
    }
    throw KSetupFailure(
        ExitCode::noKit,
        Text(
            "no kit: neither the current directory nor %s, where the program is, has product.ini "
            "and install.ini. Name the kit's directory with --kit DIR, or make a kit with "
            "\"ins-setup kit new DIR\".",
            own
        )
    );
}

KSUP::KString KSetupKit::GetProductName() {
    return SvcGetProductText(SvcGetOEMDataEx()->product);
}

} // namespace KSETUP
