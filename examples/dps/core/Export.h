// SPDX-License-Identifier: MIT
#pragma once

/// Marks what leaves the product's own libraries. Everything else is hidden.
#define DPS_EXPORT __attribute__((visibility("default")))
