// SPDX-License-Identifier: MIT
#include <sup++/CommandLineText.h>
#include <sup++/DataRecords.h>
#include <sup++/KErrorCode.h>
#include <sup++/SvcCommandLine.h>
#include <sup++/SvcData.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using KSUP::CommandLineText::Reader;
using KSUP::ErrorCode::invalidArgument;
using KSUP::ErrorCode::notFound;

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

unsigned
NextValue(Reader& arguments, unsigned from, const std::string& name, unsigned size, char* buffer) {
    static_cast<void>(arguments.Next()); // the program's own name
    while (const std::optional<std::string> argument = arguments.Next()) {
        if (*argument == "--") {
            return notFound;
        }
        const bool behindCursor = arguments.GetPosition() > from;
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
        const bool isCutShort = !value || (!joined && *value == "--");
        if (behindCursor) {
            return isCutShort ? invalidArgument : CopyValue(*value, size, buffer);
        }
        if (isCutShort) {
            return notFound;
        }
    }
    return notFound;
}

} // namespace

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
        KSUP::DataRecords::SetCommandLine(KSUP::CommandLineText::Quote(arguments));
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
        Reader arguments(commandLine);
        const std::string wanted = std::string(prefix != nullptr ? prefix : "") + name;
        const unsigned status = NextValue(arguments, *cursor, wanted, size, buffer);
        *cursor = arguments.GetPosition();
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
