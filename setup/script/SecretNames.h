// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// \file
/// Which settings hold secrets, by their names, and how what has such a value is written where others
/// may read it: in the log, the journal, answers, the lock.
namespace KSETUP {

/// The words by which a secret is known, in lower case.
const std::vector<std::string_view>& SecretWords() noexcept;
/// A word of its own: it is part of too many others, as "keyboard".
inline constexpr std::string_view secretKey = "key";

/// What stands in the place of a secret.
inline constexpr const char* maskedValue = "***";

/// Whether the value of an option may be a secret. Rather one too many than one too few: also that of
/// "TokenTimeout", and all of a section "Credentials".
bool MayBeSecret(const std::string& section, const std::string& key);

/// A line of a script, TYPE=VALUE, with its secret masked if it puts one into a profile.
std::string MaskedLine(const std::string& type, const std::string& value);
/// The fields of such a line, the operation first.
std::vector<std::string>
MaskedFields(const std::string& type, const std::vector<std::string>& fields);
/// SECTION,KEY,VALUE, as --addProfileLine takes it, with its secret masked.
std::string MaskedAddedLine(const std::string& line);
/// The words of a command line of ins-setup, with the secrets of --addProfileLine masked.
std::vector<std::string> MaskedArguments(const std::vector<std::string>& words);

} // namespace KSETUP
