// SPDX-License-Identifier: MIT
#pragma once

/// Marks what leaves libins++.so. Everything else is hidden.
#define INS_EXPORT __attribute__((visibility("default")))
