// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace KTEST {

/// The language of messages, as the environment has it, for a scope: texts that a test compares must
/// not depend on who runs it.
///
/// Thread   while no other one reads the environment
class Language {
  public:
    explicit Language(const char* locale) {
        if (const char* value = std::getenv(variable); value != nullptr) {
            former = value;
        }
        ::setenv(variable, locale, 1);
    }
    ~Language() {
        if (former) {
            ::setenv(variable, former->c_str(), 1);
        } else {
            ::unsetenv(variable);
        }
    }
    Language(const Language&) = delete;
    Language& operator=(const Language&) = delete;

  private:
    static constexpr const char* variable = "LC_ALL"; // outweighs the others
    std::optional<std::string> former;
};

} // namespace KTEST
