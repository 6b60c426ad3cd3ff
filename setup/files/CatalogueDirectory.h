// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace KSETUP {

/// How the catalogue of one language is named below it: LANGUAGE/LC_MESSAGES/ins-setup.mo.
constexpr char catalogueBelowLanguage[] = "LC_MESSAGES/ins-setup.mo";
/// Where they are beside a program that is in no tree of its package, as in a bundle.
constexpr char cataloguesBeside[] = "locale";

/// Where the running program's catalogues are: in its package's place or beside it. Root believes
/// nobody else's; empty then.
///
/// Throws   std::bad_alloc
/// Thread   any
std::string CatalogueDirectory();

} // namespace KSETUP
