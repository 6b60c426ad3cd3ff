// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace KBUNDLE {

/// An architecture that bundles are made for.
struct KArchitecture {
    std::string_view name;   ///< as sections of scripts are called after it
    std::string_view loader; ///< what the C library calls its loader there
};

/// The one of a program, by the begin of its file; nothing for what is no program, or of another one.
const KArchitecture* FindArchitecture(std::string_view elf);

/// The one that this is compiled for. On any other than the known ones its name is empty.
const KArchitecture& OwnArchitecture();

} // namespace KBUNDLE
