// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KRunReport.h>

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace KSETUP {

/// Of an object: its keys stay in the order in which they came, for people who read it.
using Json = nlohmann::ordered_json;

/// In one line, without its end. Bytes that are no UTF-8 become U+FFFD.
std::string OneLine(const Json& object);

/// A report as an object with "schema": 1, which ToJson makes a line of.
Json ToJsonObject(const KRunReport& report);

} // namespace KSETUP
