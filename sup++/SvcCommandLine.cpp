// SPDX-License-Identifier: MIT
#include <sup++/DataRecords.h>
#include <sup++/KErrorCode.h>
#include <sup++/SvcCommandLine.h>
#include <sup++/SvcData.h>
#include <sup++/unx/lin/SysProcess.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <forward_list>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using KSUP::ErrorCode::invalidArgument;
using KSUP::ErrorCode::notFound;

/// Quotes an argument so that it reads back exactly: in double quotes, with a backslash before a
/// quote and a backslash.
void AppendQuoted(std::string_view argument, std::string& line) {
    line += line.empty() ? "\"" : " \"";
    for (const char byte : argument) {
        if (byte == '"' || byte == '\\') {
            line += '\\';
        }
        line += byte;
    }
    line += '"';
}

void Save(const std::vector<std::string>& arguments) {
    // Former lines are kept: who reads the record may hold a pointer to one.
    static std::forward_list<std::string>& lines = *new std::forward_list<std::string>;
    std::string line;
    for (const std::string& argument : arguments) {
        AppendQuoted(argument, line);
    }
    lines.push_front(std::move(line));
    KSUP::DataRecords::SetCommandLine(lines.front().c_str());
}

std::once_flag savedOnce; // NOLINT: the record is one for the process

/// Walks the arguments of a saved line.
class Arguments {
  public:
    explicit Arguments(const char* commandLine) : line(commandLine) {}

    std::optional<std::string> Next() {
        at = line.find('"', at);
        if (at == std::string_view::npos) {
            at = line.size();
            return std::nullopt;
        }
        ++position;
        std::string argument;
        for (++at; at < line.size() && line[at] != '"'; ++at) {
            at += line[at] == '\\' && at + 1 < line.size() ? 1U : 0U;
            argument += line[at];
        }
        at += at < line.size() ? 1U : 0U;
        return argument;
    }
    /// How many were read.
    unsigned Position() const noexcept { return position; }

  private:
    std::string_view line;
    std::size_t at = 0;
    unsigned position = 0;
};

/// The name of an option, without its dashes; nothing for another argument.
std::optional<std::string_view> OptionName(std::string_view argument) {
    if (!argument.starts_with('-') || argument == "-") {
        return std::nullopt;
    }
    argument.remove_prefix(argument.starts_with("--") ? 2 : 1);
    return argument;
}

unsigned CopyValue(const std::string& value, unsigned size, char* buffer) noexcept {
    if (value.size() >= size) {
        return invalidArgument;
    }
    std::memcpy(buffer, value.c_str(), value.size() + 1);
    return 0;
}

unsigned NextValue(
    Arguments& arguments, unsigned from, const std::string& name, unsigned size, char* buffer
) {
    while (const std::optional<std::string> argument = arguments.Next()) {
        if (*argument == "--" && arguments.Position() > 1) {
            return notFound;
        }
        const bool behindCursor = arguments.Position() > (from == 0 ? 1 : from);
        const auto option = OptionName(*argument);
        if (!option || !option->starts_with(name)) {
            continue;
        }
        const bool joined = option->size() > name.size() && (*option)[name.size()] == '=';
        if (!joined && option->size() != name.size()) {
            continue;
        }
        // Also walked when it stands before the cursor: its value may look like an option.
        const std::optional<std::string> value =
            joined ? std::string(option->substr(name.size() + 1)) : arguments.Next();
        if (behindCursor) {
            return value && (joined || *value != "--") ? CopyValue(*value, size, buffer)
                                                       : invalidArgument;
        }
    }
    return notFound;
}

} // namespace

void KSUP::DataRecords::SaveOwnCommandLine() noexcept {
    try {
        std::call_once(savedOnce, [] { Save(Sys::ProgramArguments()); });
    } catch (...
    ) { // NOLINT: without memory there is no saved command line, which callers allow for
    }
}

unsigned SvcSetCommandLine(unsigned argc, const char* const* argv) noexcept {
    if (argv == nullptr && argc > 0) {
        return invalidArgument;
    }
    try {
        std::vector<std::string> arguments;
        for (unsigned i = 0; i < argc; ++i) {
            if (argv[i] == nullptr) {
                return invalidArgument;
            }
            arguments.emplace_back(argv[i]);
        }
        KSUP::DataRecords::SaveOwnCommandLine(); // so that it does not come later and replace this
        Save(arguments);
        return 0;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

unsigned SvcEnumerateStringFromCommandLine(
    unsigned flags,
    const char* commandLine,
    const char* prefix,
    const char* name,
    unsigned size,
    unsigned* cursor,
    char* buffer
) noexcept {
    if (flags != 0 || name == nullptr || *name == '\0' || cursor == nullptr || buffer == nullptr) {
        return invalidArgument;
    }
    if (commandLine == nullptr) {
        return notFound;
    }
    try {
        Arguments arguments(commandLine);
        const std::string wanted = std::string(prefix != nullptr ? prefix : "") + name;
        const unsigned status = NextValue(arguments, *cursor, wanted, size, buffer);
        *cursor = arguments.Position();
        return status;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

unsigned SvcGetStringFromCommandLine(
    unsigned flags,
    const char* context,
    const char* section,
    const char* key,
    unsigned size,
    char* buffer
) noexcept {
    if (context == nullptr) {
        return notFound;
    }
    if (section == nullptr || key == nullptr) {
        return invalidArgument;
    }
    try {
        unsigned cursor = 0;
        const std::string name = std::string(section) + "." + key;
        return SvcEnumerateStringFromCommandLine(
            flags, SvcGetGlobalDataEx()->commandLine, "", name.c_str(), size, &cursor, buffer
        );
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}
