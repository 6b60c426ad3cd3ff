// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <string_view>

#include <bundle/head/HeadArguments.h>

namespace KBUNDLE {

namespace {

constexpr std::array ofTheProgram =
    std::to_array<std::string_view>({"-h", "--help", "--version", "--licences"});
/// These look at what is installed, and into the kit for its name and script only.
constexpr std::array smallCommands = std::to_array<std::string_view>({"list", "status"});

template <class List>
bool Has(const List& list, std::string_view word) {
    return std::find(list.begin(), list.end(), word) != list.end();
}

/// The value of an option, in the same word or the next one.
bool TakeValue(
    const std::vector<std::string>& words,
    std::size_t& at,
    const std::string& option,
    KHeadArguments& arguments,
    std::string& value
) {
    const std::string& word = words[at];
    if (word != option && !word.starts_with(option + "=")) {
        return false;
    }
    if (word != option) {
        value = word.substr(option.size() + 1);
    } else if (++at < words.size()) {
        value = words[at];
    }
    if (value.empty()) {
        arguments.mistake = option + " wants a directory behind it.";
    }
    return true;
}

} // namespace

KHeadArguments ReadHeadArguments(const std::vector<std::string>& words) {
    using Task = KHeadArguments::Task;
    KHeadArguments arguments;
    std::size_t at = 0;
    for (; at < words.size(); ++at) {
        const std::string& word = words[at];
        if (word == "--list") {
            arguments.task = Task::List;
        } else if (word == "--verify") {
            arguments.task = Task::Verify;
        } else if (TakeValue(words, at, "--extract", arguments, arguments.directory)) {
            arguments.task = Task::Extract;
        } else if (!TakeValue(words, at, "--work", arguments, arguments.work)) {
            break;
        }
    }
    if (at < words.size() && arguments.task != Task::Run && arguments.mistake.empty()) {
        arguments.mistake = "what stands behind --list, --verify or --extract DIR is too much.";
    }
    if (at < words.size() && words[at] == "--") {
        ++at;
    }
    if (at < words.size()) {
        arguments.words.assign(words.begin() + static_cast<std::ptrdiff_t>(at), words.end());
    }
    const bool isCommand = !arguments.words.empty() && (!arguments.words[0].starts_with('-') ||
                                                        Has(ofTheProgram, arguments.words[0]));
    if (!isCommand) {
        arguments.words.insert(arguments.words.begin(), "install");
    }
    return arguments;
}

bool AsksForHelp(const std::vector<std::string>& words) {
    return !words.empty() && (words[0] == "--help" || words[0] == "-h");
}

BundlePart PartFor(const std::vector<std::string>& words) {
    const bool isSmall =
        !words.empty() && (Has(ofTheProgram, words[0]) || Has(smallCommands, words[0]));
    return isSmall ? BundlePart::FilesInFront : BundlePart::Everything;
}

std::string PlaceIn(const std::vector<std::string>& words) {
    if (words.size() < 2 || words[0] != "install") {
        return "";
    }
    if (words[1].starts_with('/')) {
        return words[1];
    }
    // Else the last one; behind an option it may be that option's.
    const bool isPlace = words.back().starts_with('/') && !words[words.size() - 2].starts_with('-');
    return isPlace ? words.back() : "";
}

bool WorksInTree(const std::vector<std::string>& words) {
    return std::any_of(words.begin(), words.end(), [](const std::string& word) {
        return word == "--root" || word.starts_with("--root=");
    });
}

} // namespace KBUNDLE
