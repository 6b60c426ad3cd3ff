// SPDX-License-Identifier: MIT
#include <setup/script/UsersFile.h>

namespace KSETUP {

namespace {

/// A percent sign begins a specifier there.
std::string WithoutSpecifiers(const std::string& text) {
    std::string result;
    for (const char letter : text) {
        result += letter;
        result += letter == '%' ? "%" : "";
    }
    return result;
}

} // namespace

std::string UsersFileLine(const KSetupRuleLine& line) {
    const std::string& home = line.Get(KSetupField::Home);
    const std::string& description = line.Get(KSetupField::Description);
    return "u " + line.Get(KSetupField::UserName) + " - " +
           (description.empty() ? "-" : "\"" + WithoutSpecifiers(description) + "\"") + " " +
           (home.empty() || home == "-" ? "-" : "\"" + WithoutSpecifiers(home) + "\"") + "\n";
}

} // namespace KSETUP
