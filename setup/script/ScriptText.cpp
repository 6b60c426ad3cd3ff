// SPDX-License-Identifier: MIT
#include <setup/script/ScriptText.h>
#include <sup++/KUtil.h>

namespace KSETUP {

std::string_view Trimmed(std::string_view text, std::string_view blanks) noexcept {
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string_view::npos
               ? std::string_view()
               : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string Lowered(const std::string& text) {
    return KSUP::KUtil::Lowerify(text).c_str();
}

} // namespace KSETUP
