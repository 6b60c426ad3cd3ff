// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace KSETUP {

/// The word that somebody may have meant who wrote another one: the one that is nearest by letters
/// that are missing, too many, wrong or swapped; empty where none is near.
std::string NearestWord(std::string_view written, const std::vector<std::string>& words);

} // namespace KSETUP
