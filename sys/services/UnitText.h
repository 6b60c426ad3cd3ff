// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// The text of a service's unit file: which names can be, how arguments are split and quoted, what
/// a file of ours looks like. Nothing here touches the system.
///
/// All throw KServiceError 36 with a reason for a text that systemd cannot take, and std::bad_alloc.

#include <string>
#include <string_view>
#include <vector>

namespace KSYS {

/// What is wrong with the name of a service, as the rest of a sentence; empty for a good one.
std::string WhyNotAServiceName(std::string_view name);

/// The unit's name, as systemd knows it and as its file is called.
std::string UnitName(std::string_view serviceName);

/// Splits a text at blanks. Blanks in single or double quotes stay; in double quotes a backslash
/// stands before a double quote or a backslash, outside of quotes before any character. Nothing
/// else has a meaning: what a shell or systemd would expand reaches the program as it stands.
std::vector<std::string> SplitArguments(std::string_view text);

/// An argument as it stands in a unit file, so that the program gets it unchanged.
std::string QuoteArgument(std::string_view argument);

/// The whole file. An empty `displayName` leaves the service with its own name.
std::string
UnitText(std::string_view displayName, std::string_view program, std::string_view arguments);

/// Whether a unit file was made by UnitText, of this version or another.
bool IsOurUnitText(std::string_view text) noexcept;

/// What a section says for a key, in order, each value without blanks around it. Continued lines
/// are joined.
std::vector<std::string>
UnitValues(std::string_view text, std::string_view section, std::string_view key);

} // namespace KSYS
