// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <cstdint>
#include <string>

namespace KSETUP {

/// What becomes of that which stands at a path itself.
enum class KPathEnd : std::uint8_t {
    Counts,
    IsOthersBusiness, ///< the way to it counts, and whether it can be taken away
};

/// Who else than root could exchange what stands at an absolute path, or lay something there: in
/// words, as "/home/ann belongs to the user ann". Empty when nobody could.
///
/// Each directory on the way counts, and each link that is followed. In a directory with the sticky bit
/// nobody takes another's entry away, but anybody lays one that is not there.
KText WhyOthersCanExchange(const std::string& path, KPathEnd end = KPathEnd::Counts);

} // namespace KSETUP
