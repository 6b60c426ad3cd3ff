// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A command line as one text, which is how the global data record holds it; for this library's own
/// sources.
namespace KSUP::CommandLineText {

/// Each argument in double quotes, with a backslash before a quote and a backslash, so that it
/// reads back exactly.
std::string Quote(const std::vector<std::string>& arguments);

/// Walks the arguments of such a text.
///
/// Lifetime the text must live as long as the reader
class Reader {
  public:
    explicit Reader(const char* commandLine) : line(commandLine) {}

    /// The next argument, nothing at the end.
    std::optional<std::string> Next();
    /// How many were read.
    unsigned GetPosition() const noexcept { return position; }

  private:
    std::string_view line;
    std::size_t at = 0;
    unsigned position = 0;
};

} // namespace KSUP::CommandLineText
