// SPDX-License-Identifier: MIT
// A script is loaded as a model loads it that follows the rule by calling itself: the lines of a
// section, those of its section for the architecture, and what they include in front of the line
// that does.
#include "Fuzz.h"
#include "PlainProfile.h"

#include <setup/KSetupFailure.h>
#include <setup/script/KScript.h>

#include <algorithm>

namespace {

using KSETUP::KScript;
using KSETUP::KScriptLine;
using KTEST::Require;

constexpr std::size_t mostRules = 2000; // the model is slow
constexpr std::size_t mostDepth = 200;

/// Three macros: one with a comma, one empty, one that is a name.
KSUP::KString Expand(const KSUP::KString& text) {
    KSUP::KString expanded(text);
    static_cast<void>(expanded.Replace("$two$", "1,2", 0, 0, true));
    static_cast<void>(expanded.Replace("$none$", "", 0, 0, true));
    static_cast<void>(expanded.Replace("$arch$", "x86", 0, 0, true));
    return expanded;
}

class KModel {
  public:
    explicit KModel(const std::string& bytes) : profile(bytes) {}

    void Load(const std::string& section) {
        open.push_back(KTEST::PlainTrimmed(section));
        LoadPart(section);
        LoadPart(section + ".x86");
        open.pop_back();
    }

    std::vector<std::string> rules;
    std::vector<unsigned> cycles;
    bool isTooLarge = false;

  private:
    void LoadPart(const std::string& section) {
        for (const KTEST::KPlainProfile::Line& line : profile.lines) {
            if (line.section == KTEST::PlainTrimmed(section) && line.key != "defaultPath.$os$") {
                Take(line, section);
            }
        }
    }

    void Take(const KTEST::KPlainProfile::Line& line, const std::string& section) {
        isTooLarge = isTooLarge || rules.size() > mostRules || open.size() > mostDepth;
        if (isTooLarge) {
            return;
        }
        const KScriptLine written{
            line.number, section, KTEST::UpToNul(line.key), KTEST::UpToNul(line.value)};
        if (written.type == "section") {
            const std::string name = Expand(written.value).c_str();
            if (std::find(open.begin(), open.end(), KTEST::PlainTrimmed(name)) != open.end()) {
                cycles.push_back(line.number);
            } else {
                Load(name);
            }
        }
        rules.push_back(std::to_string(written.number) + " " + written.type + "=" + written.value);
    }

    KTEST::KPlainProfile profile;
    std::vector<std::string> open;
};

std::vector<std::string> RulesOf(const KScript::Unfolded& unfolded) {
    std::vector<std::string> rules;
    for (const KSETUP::KScriptRule& rule : unfolded.rules) {
        rules.push_back(
            std::to_string(rule.line.number) + " " + rule.line.type + "=" + rule.line.value
        );
    }
    return rules;
}

void RequirePlaces(const KScript& script) {
    for (const KScript::Header& header : script.GetHeaders()) {
        Require(header.line <= script.GetLineCount(), "a header is in the file");
        Require(script.HasSection(header.name), "a header's section is there");
        for (const KScriptLine& line : script.GetLines(header.name)) {
            const std::string text(script.GetText(line.number));
            Require(
                text.find(line.type) != std::string::npos &&
                    text.find(line.value) != std::string::npos,
                "a line stands where it is said to stand"
            );
            const std::size_t count = KSETUP::WrittenFields(line.value).size();
            for (std::size_t field = 0; field < count; ++field) {
                const unsigned column = KSETUP::ColumnOfField(text, field);
                Require(column >= 1 && column <= text.size() + 1, "a field is in its line");
            }
        }
    }
}

} // namespace

/// A script.
FUZZ_TARGET(Script) {
    static const KTEST::KScratchDirectory directory;
    const std::string bytes(input);
    KModel model(bytes);
    model.Load("install");
    directory.Write("install.ini", bytes);
    const KScript script((directory.GetPath() + "/install.ini").c_str());
    RequirePlaces(script);
    try {
        const KScript::Unfolded unfolded = script.Unfold("install", Expand, "x86");
        if (!model.isTooLarge) {
            Require(RulesOf(unfolded) == model.rules, "the rules are those of the model");
            Require(unfolded.cycles.empty() == model.cycles.empty(), "circles are told");
        }
    } catch (const KSETUP::KSetupFailure&) {
        Require(model.isTooLarge, "a script is refused that is not too large");
    }
}
