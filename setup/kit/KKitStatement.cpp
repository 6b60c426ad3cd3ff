// SPDX-License-Identifier: MIT
#include <ins/KInstaller.h>
#include <setup/kit/KKitStatement.h>
#include <setup/kit/KSetupKit.h>
#include <setup/kit/ProductData.h>
#include <sup++/SvcData.h>

#include <array>
#include <charconv>

namespace KSETUP {

namespace {

constexpr std::array<std::string_view, 4> names = {"product:", "service:", "version:", "build:"};
constexpr char separator = '\t';

} // namespace

KKitStatement KKitStatement::OfProductData() {
    const KINS::KInstaller installer;
    KKitStatement statement;
    statement.product = KSetupKit::GetProductName().c_str();
    statement.service = installer.ExpandMacros("$serviceName$").c_str();
    statement.version = installer.ExpandMacros("$verInfo$").c_str();
    statement.buildNumber = SvcGetOEMDataEx()->buildNumber;
    return statement;
}

std::optional<KKitStatement> KKitStatement::FromComment(std::string_view comment) {
    std::array<std::string_view, names.size()> values;
    for (std::size_t index = 0; index < names.size(); ++index) {
        const std::size_t end = comment.find(separator);
        const bool isLast = index + 1 == names.size();
        if (isLast != (end == std::string_view::npos) || !comment.starts_with(names[index])) {
            return std::nullopt;
        }
        values[index] = comment.substr(names[index].size(), end - names[index].size());
        if (values[index].empty() || HasControlCharacter(values[index])) {
            return std::nullopt;
        }
        comment.remove_prefix(isLast ? comment.size() : end + 1);
    }
    if (!IsServiceName(values[1])) { // it becomes part of a path before product.ini is read
        return std::nullopt;
    }
    KKitStatement statement{
        std::string(values[0]), std::string(values[1]), std::string(values[2]), 0};
    const std::string_view build = values[3];
    const auto read =
        std::from_chars(build.data(), build.data() + build.size(), statement.buildNumber);
    const bool isNumber = read.ec == std::errc() && read.ptr == build.data() + build.size();
    return isNumber && std::to_string(statement.buildNumber) == build ? std::optional(statement)
                                                                      : std::nullopt;
}

std::string KKitStatement::ToComment() const {
    return std::string(names[0]) + product + separator + std::string(names[1]) + service +
           separator + std::string(names[2]) + version + separator + std::string(names[3]) +
           std::to_string(buildNumber);
}

KText KKitStatement::ToWords() const {
    return Text("%s %s (build %s)", product, version, buildNumber);
}

} // namespace KSETUP
