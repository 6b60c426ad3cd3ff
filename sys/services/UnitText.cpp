// SPDX-License-Identifier: MIT
#include <utf8.h>

#include <algorithm>
#include <climits>

#include <sys/services/KServiceError.h>
#include <sys/services/UnitText.h>

namespace KSYS {

namespace {

constexpr std::string_view suffix = ".service";
constexpr std::string_view blanks = " \t\r\n";
// systemd's limit for the name of a unit, suffix included, and the file system's for its file.
constexpr std::size_t mostUnitNameBytes = 255;

// Where it is looked for, only the beginning counts: the rest may change with the version.
constexpr std::string_view marker = "# Installed by Ins++";

constexpr std::string_view head =
    "# Installed by Ins++. An upgrade replaces this file and a removal deletes it: put changes\n"
    "# into a drop-in, as \"systemctl edit\" does.\n"
    "\n"
    "[Unit]\n";

// Behind the network in the order of things, so that at shutdown the service still has it while it
// stops. Type=exec makes a program that cannot be run a failure of the start.
constexpr std::string_view beforeCommand = "After=network.target\n"
                                           "\n"
                                           "[Service]\n"
                                           "Type=exec\n"
                                           "ExecStart=";

constexpr std::string_view tail = "\n"
                                  "Restart=on-failure\n"
                                  "\n"
                                  "[Install]\n"
                                  "WantedBy=multi-user.target\n";

bool IsAlphanumeric(char byte) noexcept {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9');
}

bool IsControl(char byte) noexcept {
    return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
}

bool IsOneOf(char byte, std::string_view bytes) noexcept {
    return bytes.find(byte) != std::string_view::npos;
}

bool IsBlank(char byte) noexcept {
    return IsOneOf(byte, blanks);
}

/// Means nothing to systemd, wherever it stands.
bool IsPlain(char byte) noexcept {
    return IsAlphanumeric(byte) || IsOneOf(byte, "_-+=/.,:");
}

[[noreturn]] void Refuse(const std::string& reason) {
    throw KServiceError(ServiceStatus::invalidArgument, reason);
}

/// systemd refuses a file with any other text whole.
void RequireUtf8(std::string_view text, const char* what) {
    if (!utf8::is_valid(text.begin(), text.end())) {
        Refuse(std::string("the ") + what + " is not valid UTF-8");
    }
}

void CheckDisplayName(std::string_view name) {
    RequireUtf8(name, "display name");
    // A backslash at its end would join the next line of the file to it.
    if (std::any_of(name.begin(), name.end(), IsControl) || name.ends_with('\\')) {
        Refuse("the display name has a control character or ends in a backslash");
    }
}

void CheckProgram(std::string_view program) {
    RequireUtf8(program, "program");
    if (!program.starts_with('/') || program.ends_with('/') || program.size() >= PATH_MAX) {
        Refuse("the program has to be the absolute path of a file: " + std::string(program));
    }
    // systemd's own rule for what it runs; no quoting gets around it.
    const auto isRefused = [](char byte) { return IsControl(byte) || IsOneOf(byte, "\"'\\"); };
    if (std::any_of(program.begin(), program.end(), isRefused)) {
        Refuse(
            "systemd runs no program with a quote, a backslash or a control character in its "
            "path: " +
            std::string(program)
        );
    }
}

std::string Replaced(std::string_view text, char byte, std::string_view by) {
    std::string result;
    for (const char each : text) {
        if (each == byte) {
            result += by;
        } else {
            result += each;
        }
    }
    return result;
}

/// The path of a program is no argument: "$" means nothing in it, "%" does. But unless it is said
/// otherwise ("@") the path is the first argument too, where "$" means something.
std::string QuoteProgram(std::string_view program) {
    const std::string path = Replaced(program, '%', "%%");
    if (program.find('$') == std::string_view::npos) {
        return QuoteArgument(program);
    }
    return "\"@" + path + "\" " + QuoteArgument(program);
}

/// Reads one argument from `at` on, where no blank stands.
std::string NextArgument(std::string_view text, std::size_t& at) {
    std::string argument;
    char quote = 0;
    for (; at < text.size() && (quote != 0 || !IsBlank(text[at])); ++at) {
        const char byte = text[at];
        const char next = at + 1 < text.size() ? text[at + 1] : '\0';
        const bool escapes =
            byte == '\\' &&
            (quote == 0 ? next != 0 : quote == '"' && (next == '"' || next == '\\'));
        if (escapes) {
            argument += next;
            ++at;
        } else if (byte == quote) {
            quote = 0;
        } else if (quote == 0 && (byte == '"' || byte == '\'')) {
            quote = byte;
        } else {
            argument += byte;
        }
    }
    if (quote != 0) {
        Refuse("the arguments have a quote that is not closed: " + std::string(text));
    }
    return argument;
}

std::string_view Trimmed(std::string_view text) noexcept {
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// Takes one line off the text, joined with those that continue it. Comments are passed over, also
/// between those.
std::string TakeLine(std::string_view& text) {
    std::string line;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view piece = text.substr(0, end);
        const std::string_view trimmed = Trimmed(piece);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (trimmed.starts_with('#') || trimmed.starts_with(';')) {
            continue;
        }
        line += piece;
        if (!line.ends_with('\\')) {
            break;
        }
        line.back() = ' ';
    }
    return line;
}

} // namespace

std::string WhyNotAServiceName(std::string_view name) {
    const auto isAllowed = [](char byte) {
        return IsAlphanumeric(byte) || IsOneOf(byte, ":-_.\\@");
    };
    if (name.empty()) {
        return "it is empty";
    }
    if (!std::all_of(name.begin(), name.end(), isAllowed)) {
        return "only ASCII letters, digits and :-_.\\@ can be in it";
    }
    if (name.starts_with('-') || name.starts_with('.') || name.starts_with('@')) {
        return "it begins with \"-\", \".\" or \"@\"";
    }
    if (name.ends_with('@')) {
        return "it is that of a template";
    }
    return name.size() + suffix.size() > mostUnitNameBytes ? "it is too long" : "";
}

std::string UnitName(std::string_view serviceName) {
    return std::string(serviceName).append(suffix);
}

std::vector<std::string> SplitArguments(std::string_view text) {
    std::vector<std::string> arguments;
    for (std::size_t at = 0; at < text.size();) {
        if (IsBlank(text[at])) {
            ++at;
        } else {
            arguments.push_back(NextArgument(text, at));
        }
    }
    return arguments;
}

std::string QuoteArgument(std::string_view argument) {
    if (!argument.empty() && std::all_of(argument.begin(), argument.end(), IsPlain)) {
        return std::string(argument);
    }
    constexpr std::string_view digits = "0123456789abcdef";
    std::string quoted = "\"";
    for (const char byte : argument) {
        if (IsControl(byte)) {
            const auto value = static_cast<unsigned char>(byte);
            quoted += {'\\', 'x', digits[value >> 4U], digits[value & 15U]};
            continue;
        }
        if (byte == '"' || byte == '\\') {
            quoted += '\\';
        } else if (byte == '%' || byte == '$') {
            quoted += byte;
        }
        quoted += byte;
    }
    return quoted + '"';
}

std::string
UnitText(std::string_view displayName, std::string_view program, std::string_view arguments) {
    CheckDisplayName(displayName);
    CheckProgram(program);
    RequireUtf8(arguments, "text of the arguments");
    std::string text(head);
    if (!displayName.empty()) {
        text.append("Description=").append(Replaced(displayName, '%', "%%")).append("\n");
    }
    text.append(beforeCommand).append(QuoteProgram(program));
    for (const std::string& argument : SplitArguments(arguments)) {
        text.append(" ").append(QuoteArgument(argument));
    }
    return text.append(tail);
}

bool IsOurUnitText(std::string_view text) noexcept {
    return text.starts_with(marker);
}

std::vector<std::string>
UnitValues(std::string_view text, std::string_view section, std::string_view key) {
    std::vector<std::string> values;
    const std::string header = '[' + std::string(section) + ']';
    bool isWithin = false;
    while (!text.empty()) {
        const std::string whole = TakeLine(text);
        const std::string_view line = Trimmed(whole);
        const std::size_t equals = line.find('=');
        if (line.starts_with('[')) {
            isWithin = line == header;
        } else if (isWithin && equals != line.npos && Trimmed(line.substr(0, equals)) == key) {
            values.emplace_back(Trimmed(line.substr(equals + 1)));
        }
    }
    return values;
}

} // namespace KSYS
