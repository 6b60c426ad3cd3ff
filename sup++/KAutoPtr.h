// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

namespace KSUP {

/// The pointer that owns what it points to and deletes it at its end: the standard's, under the
/// name that programs written for this library use. `KAutoPtr<T[]>` owns an array.
///
///     KSUP::KAutoPtr<KINS::KInstaller> installer(new KINS::KInstaller);
template <class T, class Deleter = std::default_delete<T>>
using KAutoPtr = std::unique_ptr<T, Deleter>;

} // namespace KSUP
