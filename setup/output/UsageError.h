// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace KSETUP {

/// A command line that is refused, in the words of this program and in the language of who reads them. The
/// library's own words are English only.
class KUsageError : public CLI::ParseError {
  public:
    explicit KUsageError(const KText& why)
        : CLI::ParseError(why.English(), CLI::ExitCodes::InvalidError),
          text(why) {}

    const KText& GetText() const noexcept { return text; }

  private:
    KText text;
};

/// The command that a parse came to, also one that failed.
const CLI::App& LastCommand(const CLI::App& app);

std::vector<std::string> CommandsBelow(const CLI::App& command);

/// On a line of its own; nothing where nothing is near.
KText DidYouMean(const std::string& nearest);

/// Why the library refuses a command line. What it was comes from the options, not from the library's words.
///
/// `app` has tried to parse it
/// `unknown` are the words that nothing was found for, `last` is the last word of the command line
KText DescribeUsageError(
    const CLI::ParseError& error,
    const CLI::App& app,
    const std::vector<std::string>& unknown,
    const std::string& last
);

} // namespace KSETUP
