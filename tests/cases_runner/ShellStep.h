// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace KTEST {

/// What a command of a case answered: its streams as lines that a case can hold.
struct ShellOutcome {
    int exitCode = 0; ///< 128 and the signal of one that was killed
    std::vector<std::string> out;
    std::vector<std::string> err;
};

/// Runs a text by sh(1), with this standard input, in a fixed environment; kills it after a minute.
/// Bytes that are no printable text come escaped, a last line without a line break with a note.
///
/// Throws   std::system_error
ShellOutcome RunShell(const std::string& text, const std::string& input);

/// The same on a terminal of its own, of which `out` is what stands there at the end, standard error
/// too, as TerminalScreen tells it. Each line of keys is typed once something is asked.
///
/// Throws   std::system_error
ShellOutcome RunShellOnTerminal(const std::string& text, const std::string& keys, unsigned columns);

} // namespace KTEST
