// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>

/// \file
/// Texts by the cells that they take on a terminal: a letter takes one, two, or none where it joins
/// the one before. Texts are UTF-8 whatever the locale is, and printable.
namespace KSETUP {

/// How many cells a text takes.
std::size_t TextCells(const std::string& text);
/// As much of its beginning as fits.
std::string FirstCells(const std::string& text, std::size_t cells);
/// As much of its end as fits.
std::string LastCells(const std::string& text, std::size_t cells);

} // namespace KSETUP
