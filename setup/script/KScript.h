// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KRuleLine.h>
#include <setup/text/KText.h>
#include <sup++/KProfile.h>
#include <sup++/KString.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace KSETUP {

class KScriptRules;
class KSetupRuleLine;

/// A key line of a script and where it stands.
struct KScriptLine {
    unsigned number = 0; ///< in the file, from 1
    std::string section;
    std::string type; ///< the key, such as "file"
    std::string value;
};

/// A line as the engine makes a rule of it.
struct KScriptRule {
    KScriptLine line;
    KINS::KRuleType type =
        KINS::KRuleType::None; ///< None for a line that is no rule of the engine's
    /// None for a line that the engine would refuse, so with an operation the fields are as many as
    /// its type takes; also for a word that the type does not know.
    KINS::KRuleOperation operation = KINS::KRuleOperation::None;
    /// What the rule gets to see, macros expanded as its type expands them.
    std::vector<std::string> fields;
    /// Why the line would not be loaded, in the engine's words; empty for one that would.
    KText problem;
    /// The line, if it is of one of ins-setup's own types (KSetupRuleLine.h); else null.
    std::shared_ptr<const KSetupRuleLine> own = nullptr;

    /// Whether it would be loaded, as a rule of this type that does this.
    bool Is(KINS::KRuleType itsType, KINS::KRuleOperation itsOperation) const noexcept {
        return type == itsType && operation == itsOperation;
    }
};

/// A section that includes itself, which would load without end.
struct KScriptCycle {
    KScriptLine line;               ///< that closes the circle
    std::vector<std::string> names; ///< of the sections; the last is the first again
};

/// The sections of a cycle in their order, as "[a] -> [b] -> [a]".
KText ToWords(const KScriptCycle& cycle);

/// Replaces the macros of a text.
using MacroExpander = std::function<KSUP::KString(const KSUP::KString&)>;

/// An install script to look at, without running it: its lines as the engine's own profile reads
/// them, and where in the file they stand.
///
/// Thread   one at a time
///
///     KScript script("/kit/install.ini");
///     for (const KScriptRule& rule : script.Unfold("install", expand).rules) { … }
class KScript {
  public:
    /// Throws   KSetupFailure when the file cannot be read
    explicit KScript(const KSUP::KString& scriptPath);

    const std::string& GetPath() const noexcept { return path; }
    /// The file's line of that number as it stands, without its end; empty for a line that is not.
    std::string_view GetText(unsigned number) const noexcept;
    std::size_t GetLineCount() const noexcept { return lines.size(); }

    /// The value of a section's key, or `otherwise`.
    std::string GetValue(
        const std::string& section, const std::string& key, const std::string& otherwise
    ) const;

    struct Header {
        unsigned line = 0;
        std::string name;
    };
    /// All section headers in the order of the file.
    const std::vector<Header>& GetHeaders() const noexcept { return headers; }
    bool HasSection(std::string_view name) const noexcept;
    /// The key lines of a section, in the order in which the engine reads them.
    std::vector<KScriptLine> GetLines(const std::string& section) const;

    struct Unfolded {
        std::shared_ptr<const KScriptRules> sections; ///< whose the rules are
        /// In the order in which they would run.
        std::vector<std::reference_wrapper<const KScriptRule>> rules;
        std::vector<KScriptCycle> cycles;
    };
    /// What loading a section gives: its lines, those of its section for this machine's
    /// architecture, and what they include in the place of the line that does. Where a section
    /// includes itself, the engine would go round for ever; here the line is told and passed over,
    /// the first hundred times.
    ///
    /// Throws   KSetupFailure when sections are in each other more than a thousand deep, for which
    ///          the engine's stack may not do, and when a script becomes far more rules than it has
    ///          lines
    Unfolded Unfold(const std::string& section, const MacroExpander& expand) const;
    /// The same for a machine of another architecture; `expand` has to know it too.
    Unfolded Unfold(
        const std::string& section, const MacroExpander& expand, const std::string& architecture
    ) const;
    /// The same with the rules of this script that were read already, for this machine.
    Unfolded Unfold(const std::string& section, const std::shared_ptr<KScriptRules>& known) const;

  private:
    class Unfolding;

    /// Throws KSetupFailure.
    void ReadBytes();

    std::string path;
    KSUP::KProfile profile;
    std::string bytes;
    std::vector<std::string_view> lines; // into bytes
    std::vector<Header> headers;
    std::unordered_set<std::string_view> sections; // the names of all headers, into bytes
};

/// A line as the engine reads it, included by nobody.
KScriptRule RuleOf(KScriptLine line, const MacroExpander& expand);

/// The fields of a line as its rule gets to see them: empty ones are gone, macros expanded.
std::vector<std::string> FieldsOf(const KScriptLine& line, const MacroExpander& expand);

/// The column, from 1 in bytes, at which field number `field` of a line's value begins as it is
/// written, empty fields counted. The column of the value itself for a field that is not there.
unsigned ColumnOfField(std::string_view lineText, std::size_t field) noexcept;

/// The fields of a line as it is written, empty ones and blanks too.
std::vector<std::string> WrittenFields(const std::string& value);

} // namespace KSETUP
