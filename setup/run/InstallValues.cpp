// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/KSetupStop.h>
#include <setup/output/TextFormat.h>
#include <setup/run/InstallValues.h>
#include <setup/run/KQuestion.h>
#include <setup/script/ScriptText.h>

#include <string>
#include <vector>

namespace KSETUP {

namespace {

/// Also with --no-check: what would show a secret is no matter of taste.
void RequireUses(const KSetupKit& kit) {
    const KScript script(kit.GetScript());
    for (const KValueUse& use : FindValueUses(script, kit.GetValues())) {
        if (const KText why = WhyNotUse(use); !why.empty()) {
            throw KSetupFailure(
                ExitCode::malformedScript,
                Text("%s:%s: %s. Nothing was changed.", script.GetPath(), use.line.number, why)
            );
        }
    }
}

KText QuestionFor(const KDeclaredValue& value, const KKnownValues& known) {
    const std::string words = Printable(value.text);
    const auto standard = known.texts.find(value.name);
    if (value.isSecret) {
        return Text("%s (it is not shown): ", words);
    }
    return standard == known.texts.end() ? words + ": "
                                         : words + " [" + Printable(standard->second) + "]: ";
}

/// Until there is an answer that can be the value.
std::string Ask(const KQuestion& question, const KDeclaredValue& value, const KKnownValues& known) {
    const KText words = QuestionFor(value, known);
    for (;;) {
        const std::optional<std::string> answer =
            question.Ask(words, value.isSecret ? KQuestion::Echo::Off : KQuestion::Echo::On);
        if (!answer) {
            throw KSetupStop(Text("Stopped on request. Nothing was changed."));
        }
        const std::string text(Trimmed(*answer)); // as in a file of --values
        const auto standard = known.texts.find(value.name);
        if (text.empty() && standard != known.texts.end()) {
            return standard->second;
        }
        const KText why = text.empty() ? Text("it is needed") : WhyNotValue(value, text);
        if (why.empty()) {
            return text;
        }
        question.Tell(Text("Invalid: %s.\n", Printable(why)));
    }
}

[[noreturn]] void RefuseMissing(
    const KRunContext& context,
    const std::vector<const KDeclaredValue*>& missing,
    const KKnownValues& known
) {
    KText words;
    for (const KDeclaredValue* value : missing) {
        const auto why = known.unfit.find(value->name);
        words += "\n    " + value->name +
                 (value->text == value->name ? "" : " (" + Printable(value->text) + ")");
        if (why != known.unfit.end()) {
            words += Text("; the present one is invalid: %s", Printable(why->second));
        }
        context.report.missingValues.push_back(value->name);
    }
    throw KSetupFailure(
        ExitCode::usage,
        Text(
            "values are missing. Nothing was changed. Give them by --values FILE, in its section "
            "[values] with a line NAME=VALUE for each:%s",
            words
        )
    );
}

} // namespace

KValueTexts FindInstallValues(KLockedProduct& product, const std::shared_ptr<KDiskView>& view) {
    const KRunContext& context = product.GetContext();
    const std::vector<KDeclaredValue>& values = context.kit.GetValues();
    if (values.empty()) {
        return {};
    }
    RequireUses(context.kit);
    KKnownValues known = FindKnownValues(
        context.kit,
        product.GetMacros(),
        context.arguments.givenValues,
        product.GetRecord() || product.GetInterrupted(),
        view
    );
    const KQuestion question(context);
    std::vector<const KDeclaredValue*> missing;
    for (const KDeclaredValue& value : values) {
        const bool isKnown = known.texts.contains(value.name);
        if (question.CanAsk() && (!isKnown || known.standards.contains(value.name))) {
            known.texts.insert_or_assign(value.name, Ask(question, value, known));
        } else if (!isKnown) {
            missing.push_back(&value);
        } else if (const KText why = WhyNotValue(value, known.texts.at(value.name)); !why.empty()) {
            known.unfit.emplace(value.name, why); // a default that the rules cannot hold
            missing.push_back(&value);
        }
    }
    if (!missing.empty()) {
        RefuseMissing(context, missing, known);
    }
    return known.texts;
}

} // namespace KSETUP
