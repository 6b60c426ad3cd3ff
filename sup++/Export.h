// SPDX-License-Identifier: MIT
#pragma once

// Every public header includes this one first: what follows would be pages of errors.
#if defined(__cplusplus) && __cplusplus < 202002L
#error "Ins++ and Sup++ need C++20: compile with -std=c++20, or set CMAKE_CXX_STANDARD to 20"
#include "needs-c++20" // which is not there, and so ends it
#endif

/// Marks what leaves libdplinsup.so. Everything else is hidden.
///
/// Classes are marked as a whole, also where every member is inline: an error thrown in one library
/// and caught in another is matched by its type information, which must exist once.
#define SUP_EXPORT __attribute__((visibility("default")))
