// SPDX-License-Identifier: MIT
#include <setup/output/UsageError.h>
#include <setup/output/WordDistance.h>

#include <functional>

namespace KSETUP {

namespace {

std::string Joined(const std::vector<std::string>& words) {
    std::string joined;
    for (const std::string& word : words) {
        joined += (joined.empty() ? "" : ", ") + word;
    }
    return joined;
}

/// "ins-setup kit seal"; nothing where no command below has that name.
std::string FindCommand(const CLI::App& above, const std::string& before, const std::string& name) {
    for (const CLI::App* one : above.get_subcommands([](const CLI::App*) { return true; })) {
        const std::string words = before + " " + one->get_name();
        if (one->get_name() == name) {
            return words;
        }
        const std::string below = FindCommand(*one, words, name);
        if (!below.empty()) {
            return below;
        }
    }
    return "";
}

const CLI::Option*
FindOption(const CLI::App& command, const std::function<bool(const CLI::Option&)>& isIt) {
    const std::vector<const CLI::Option*> found =
        command.get_options([&](const CLI::Option* one) { return isIt(*one); });
    return found.empty() ? nullptr : found.front();
}

bool IsFlag(const CLI::Option& option) {
    return option.get_items_expected_max() == 0;
}

/// As of "--json=perhaps".
bool IsInvalidFlag(const CLI::Option& option) {
    try {
        return option.count() > 0 && IsFlag(option) && (option.as<bool>(), false);
    } catch (const CLI::ParseError&) {
        return true;
    }
}

KText NearestTo(const std::string& word, const CLI::App& command) {
    std::vector<std::string> known = CommandsBelow(command);
    if (word.starts_with('-')) {
        known.clear();
        for (const CLI::Option* one : command.get_options()) {
            for (const std::string& name : one->get_lnames()) {
                known.push_back("--" + name);
            }
        }
    }
    return DidYouMean(NearestWord(word.substr(0, word.find('=')), known));
}

/// What may have been meant by a word that no command takes.
KText DescribeMeant(const CLI::App& app, const std::string& word) {
    const CLI::App& command = LastCommand(app);
    const bool takesKit = command.get_option_no_throw("--kit") != nullptr;
    const bool hasArguments = FindOption(command, [](const CLI::Option& one) {
                                  return one.get_positional() && one.count() > 0;
                              }) != nullptr;
    if (word.starts_with("--kit") && !takesKit &&
        command.get_option_no_throw("target") != nullptr) {
        return "\n" + Text("It takes the kit without --kit.");
    }
    if (word.starts_with('-')) {
        return NearestTo(word, command);
    }
    if (takesKit && !hasArguments && command.count("--kit") == 0) {
        return "\n" + Text("A kit is named with --kit: --kit %s", word);
    }
    const std::string elsewhere = FindCommand(app, app.get_name(), word);
    return elsewhere.empty() ? NearestTo(word, command) : DidYouMean(elsewhere);
}

KText DescribeMissing(const CLI::App& command) {
    const CLI::Option* missing = FindOption(command, [](const CLI::Option& one) {
        return one.get_required() && one.count() == 0;
    });
    return missing != nullptr ? Text("%s is required", missing->get_name())
                              : Text("A command is required: %s", Joined(CommandsBelow(command)));
}

KText DescribeMismatch(const CLI::App& command, const std::string& last) {
    const CLI::Option* repeated = FindOption(command, [](const CLI::Option& one) {
        return !IsFlag(one) && one.count() > static_cast<std::size_t>(one.get_items_expected_max());
    });
    if (repeated != nullptr) {
        return Text("%s is given more than once", repeated->get_name());
    }
    const CLI::Option* option = command.get_option_no_throw(last);
    return Text("%s: %s is missing", last, option != nullptr ? option->get_type_name() : "");
}

KText DescribeExclusion(const CLI::App& command) {
    for (const CLI::Option* one : command.get_options()) {
        for (const CLI::Option* other : one->get_excludes()) {
            if (one->count() > 0 && other->count() > 0) {
                return Text("%s excludes %s", one->get_name(), other->get_name());
            }
        }
    }
    return "";
}

KText DescribeConversion(const CLI::App& command) {
    const CLI::Option* flag = FindOption(command, IsInvalidFlag);
    return flag != nullptr ? Text("%s takes no value", flag->get_name()) : KText();
}

KText Describe(const CLI::ParseError& error, const CLI::App& command, const std::string& last) {
    if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) {
        return DescribeMissing(command);
    }
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        return DescribeMismatch(command, last);
    }
    if (dynamic_cast<const CLI::ExcludesError*>(&error) != nullptr) {
        return DescribeExclusion(command);
    }
    return dynamic_cast<const CLI::ConversionError*>(&error) != nullptr
               ? DescribeConversion(command)
               : KText();
}

} // namespace

const CLI::App& LastCommand(const CLI::App& app) {
    const CLI::App* command = &app;
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
    }
    return *command;
}

std::vector<std::string> CommandsBelow(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::App* one : command.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(one->get_name());
    }
    return names;
}

KText DidYouMean(const std::string& nearest) {
    return nearest.empty() ? KText() : "\n" + Text("Did you mean \"%s\"?", nearest);
}

KText DescribeUsageError(
    const CLI::ParseError& error,
    const CLI::App& app,
    const std::vector<std::string>& unknown,
    const std::string& last
) {
    if (const auto* own = dynamic_cast<const KUsageError*>(&error)) {
        return own->GetText();
    }
    // A misspelt command says more than that one is missing.
    const bool isUnknown = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr ||
                           dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    if (isUnknown && !unknown.empty()) {
        return Text("The following argument was not expected: %s", unknown.front()) +
               DescribeMeant(app, unknown.front());
    }
    const KText why = Describe(error, LastCommand(app), last);
    return why.empty() ? KText(error.what()) : why;
}

} // namespace KSETUP
