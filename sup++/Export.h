// SPDX-License-Identifier: MIT
#pragma once

/// Marks what leaves libdplinsup.so. Everything else is hidden.
///
/// Classes are marked as a whole, also where every member is inline: an error thrown in one library
/// and caught in another is matched by its type information, which must exist once.
#define SUP_EXPORT __attribute__((visibility("default")))
