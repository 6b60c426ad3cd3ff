// SPDX-License-Identifier: MIT
// The command line as one text: what was quoted reads back, and the values of an option are those
// that a model finds.
#include "Fuzz.h"

#include <sup++/CommandLineText.h>
#include <sup++/SvcCommandLine.h>

#include <array>
#include <optional>

namespace {

using KTEST::Require;

constexpr unsigned notFound = 64;

/// The values of an option up to the first mistake; nothing behind them for one.
std::vector<std::optional<std::string>>
PlainValues(const std::vector<std::string>& arguments, const std::string& name) {
    std::vector<std::optional<std::string>> values;
    for (std::size_t at = 1; at < arguments.size() && arguments[at] != "--"; ++at) {
        const std::string& one = arguments[at];
        for (const std::string dashes : {"-", "--"}) {
            const bool isLong = one.substr(0, 2) == "--";
            if (isLong != (dashes == "--") || one == "-") {
                continue;
            }
            if (one.substr(0, dashes.size() + name.size() + 1) == dashes + name + "=") {
                values.emplace_back(one.substr(dashes.size() + name.size() + 1));
            } else if (one == dashes + name) {
                if (++at == arguments.size() || arguments[at] == "--") {
                    values.emplace_back(std::nullopt);
                    return values;
                }
                values.emplace_back(arguments[at]);
            }
            break;
        }
    }
    return values;
}

void RequireValues(const std::vector<std::string>& arguments, const std::string& name) {
    const std::string line = KSUP::CommandLineText::Quote(arguments);
    std::array<char, 64> buffer{};
    unsigned cursor = 0;
    for (const std::optional<std::string>& value : PlainValues(arguments, name)) {
        const unsigned status = SvcEnumerateStringFromCommandLine(
            0, line.c_str(), "", name.c_str(), buffer.size(), &cursor, buffer.data()
        );
        const bool fits = value && value->size() < buffer.size();
        Require((status == 0) == fits, "an option has the values that it was given");
        Require(!fits || *value == buffer.data(), "a value is as it was given");
        if (!value) {
            return;
        }
    }
    Require(
        SvcEnumerateStringFromCommandLine(
            0, line.c_str(), "", name.c_str(), buffer.size(), &cursor, buffer.data()
        ) == notFound,
        "an option has no other values"
    );
}

/// Of any text, also one that nobody quoted.
void RequireEnd(const std::string& line) {
    KSUP::CommandLineText::Reader reader(line.c_str());
    std::size_t count = 0;
    while (reader.Next()) {
        Require(++count <= line.size(), "a command line has an end");
    }
}

} // namespace

/// The name of an option, and arguments.
FUZZ_TARGET(CommandLine) {
    std::vector<std::string> arguments = KTEST::PiecesOf(input);
    for (std::string& one : arguments) {
        one = KTEST::UpToNul(one);
    }
    const std::string name = arguments[0];
    arguments[0] = "ins-setup";
    const std::string line = KSUP::CommandLineText::Quote(arguments);
    KSUP::CommandLineText::Reader reader(line.c_str());
    for (const std::string& one : arguments) {
        Require(reader.Next() == one, "what was quoted reads back");
    }
    Require(!reader.Next(), "what was quoted has an end");
    RequireEnd(KTEST::UpToNul(std::string(input)));
    if (!name.empty()) {
        RequireValues(arguments, name);
    }
}
