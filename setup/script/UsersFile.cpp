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

bool IsUsersFile(std::string_view text) noexcept {
    const std::string_view mark = usersFileMark;
    return text.starts_with(mark) || mark.starts_with(text);
}

std::string UsersFileLine(const KSetupRuleLine& line) {
    const std::string& home = line.Get(KSetupField::Home);
    const std::string& description = line.Get(KSetupField::Description);
    return "u " + line.Get(KSetupField::UserName) + " - " +
           (description.empty() ? "-" : "\"" + WithoutSpecifiers(description) + "\"") + " " +
           (home.empty() || home == "-" ? "-" : "\"" + WithoutSpecifiers(home) + "\"") + "\n";
}

} // namespace KSETUP
