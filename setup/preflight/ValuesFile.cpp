// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/output/TextFormat.h>
#include <setup/preflight/TrustedPlaces.h>
#include <setup/preflight/ValuesFile.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/files/FileContent.h>
#include <unistd.h>

namespace KSETUP {

namespace {

constexpr std::size_t mostBytes = std::size_t{1} << 20U; // of what people write by hand
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

[[noreturn]] void RefuseValues(const std::string& file, const KText& why) {
    throw KSetupFailure(ExitCode::usage, Text("%s: %s Nothing was changed.", Printable(file), why));
}

KText Reason(unsigned errorNumber) {
    if (errorNumber == EINVAL) {
        return Text("it is no regular file.");
    }
    return std::generic_category().message(static_cast<int>(errorNumber)) + ".";
}

/// What can be read, from where the descriptor stands.
std::string ReadText(int descriptor, const std::string& name) {
    std::string text;
    std::array<char, 4096> chunk{};
    for (std::size_t bytes = 1; bytes != 0;) {
        const unsigned failed = KSYS::ReadSome(descriptor, chunk.data(), chunk.size(), bytes);
        if (failed != 0) {
            RefuseValues(name, Reason(failed));
        }
        text.append(chunk.data(), bytes);
        if (text.size() > mostBytes) {
            RefuseValues(
                name, Text("more than 1 MiB of values. Name a file of sections and keys.")
            );
        }
    }
    return text;
}

/// By its place, and the rights of what was opened, so that nobody leads to another file.
std::string ReadPrivateFile(const std::string& file) {
    KSYS::Place place;
    KSYS::KDescriptor opened;
    struct stat status {};
    unsigned failed = KSYS::FindPlace(file.c_str(), KSYS::LastLink::Follow, place);
    if (failed == 0) {
        failed = KSYS::OpenRegularEntry(place, O_RDONLY, opened, status);
    }
    if (failed != 0) {
        RefuseValues(
            file,
            Text(
                "%s Name a regular file, or lead the values to standard input (--values -).",
                Reason(failed)
            )
        );
    }
    if (status.st_uid != 0 && status.st_uid != CallingUser()) {
        RefuseValues(file, Text("it is neither root's nor yours. Make it your own (chown)."));
    }
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        RefuseValues(
            file,
            Text("others can read or change it, and it is for passwords. Take the rights away "
                 "(chmod 600).")
        );
    }
    return ReadText(opened.Get(), file);
}

bool HasControl(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char byte) {
        return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
    });
}

/// Why a line, which is neither empty nor a comment nor a section, is no option; empty for one.
KText WhyNoOption(std::string_view line, const std::string& section) {
    const std::size_t equals = line.find('=');
    return section.empty()                    ? Text("stands in front of the first section, [NAME]")
           : HasControl(line)                 ? Text("has a control character")
           : equals == std::string_view::npos ? Text("is no KEY=VALUE")
           // No profile takes such a key, and the run would find it out at its very end.
           : line.starts_with(byteOrderMark) ? Text("begins with a byte order mark")
           : Trimmed(line.substr(0, equals)).empty() || line.starts_with('[') ? Text("has no key")
                                                                              : "";
}

[[noreturn]] void
RefuseUnknownValue(const std::string& name, const std::vector<std::string>& names) {
    const std::string meant = FindMeant(name, names);
    std::string all;
    for (const std::string& one : names) {
        all += (all.empty() ? "" : ", ") + one;
    }
    throw KSetupFailure(
        ExitCode::usage,
        meant.empty() ? Text(
                            "--values: the kit has no value \"%s\". Its values are %s. Nothing was "
                            "changed.",
                            Printable(name),
                            all
                        )
                      : Text(
                            "--values: the kit has no value \"%s\". Write \"%s\". Nothing was "
                            "changed.",
                            Printable(name),
                            meant
                        )
    );
}

} // namespace

std::vector<KAddedOption> ParseValues(std::string_view text, const std::string& nameForErrors) {
    std::vector<KAddedOption> options;
    std::string section;
    text.remove_prefix(text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0);
    for (unsigned number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        line = Trimmed(line.substr(0, line.size() - (line.ends_with('\r') ? 1 : 0)));
        if (line.empty() || line.front() == ';' || line.front() == '#') {
            continue;
        }
        if (line.front() == '[' && line.back() == ']' && !HasControl(line)) {
            section = Trimmed(line.substr(1, line.size() - 2));
            continue;
        }
        if (const KText why = WhyNoOption(line, section); !why.empty()) {
            RefuseValues(nameForErrors + ":" + std::to_string(number), Text("the line %s.", why));
        }
        const std::size_t equals = line.find('=');
        options.push_back(
            {section,
             std::string(Trimmed(line.substr(0, equals))),
             std::string(Trimmed(line.substr(equals + 1)))}
        );
    }
    return options;
}

std::vector<KAddedOption> ReadValues(const std::string& file) {
    if (file == standardInput) {
        return ParseValues(ReadText(STDIN_FILENO, "standard input"), "standard input");
    }
    return ParseValues(ReadPrivateFile(file), file);
}

void TakeValues(KSetupArguments& arguments) {
    if (!arguments.values.empty()) { // else they were taken on the way to another root
        arguments.valueOptions = ReadValues(std::exchange(arguments.values, {}));
    }
}

void UseValues(KSetupArguments& arguments, const std::vector<KDeclaredValue>& declared) {
    std::vector<KAddedOption> others;
    std::vector<std::string> names;
    for (const KDeclaredValue& value : declared) {
        names.push_back(value.name);
    }
    for (const KAddedOption& option : arguments.valueOptions) {
        const auto& [section, key, text] = option;
        if (declared.empty() || section != valuesSection) {
            others.push_back(option);
            continue;
        }
        const auto known = std::find(names.begin(), names.end(), key);
        if (known == names.end()) {
            RefuseUnknownValue(key, names);
        }
        const KDeclaredValue& value = declared[static_cast<std::size_t>(known - names.begin())];
        if (const KText why = WhyNotValue(value, text); !why.empty()) {
            throw KSetupFailure(
                ExitCode::usage,
                Text("--values: the value \"%s\" is invalid: %s. Nothing was changed.", key, why)
            );
        }
        arguments.givenValues.insert_or_assign(key, text);
    }
    AddOptions(others, arguments.words);
}

} // namespace KSETUP
