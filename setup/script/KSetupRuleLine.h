// SPDX-License-Identifier: MIT
#pragma once

#include <setup/script/KScript.h>
#include <setup/text/KText.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace KSETUP {

/// What a rule of ins-setup's own types does. The engine's types are in ins/KRuleLine.h.
enum class KSetupOperation : std::uint8_t {
    None = 0,    ///< the line is none of these, or cannot be loaded
    CopyConfig,  ///< config=copy
    ReplaceFile, ///< config=replace
    CreateLink,  ///< link=create
    SetMode,     ///< mode=set
    CreateUser,  ///< user=create
    RunCommand,  ///< command=run
    CopyEntry,   ///< entry=copy
    CreateEntry, ///< entry=create
    DeleteEntry, ///< entry=delete
};

/// What a field of such a line means.
enum class KSetupField : std::uint8_t {
    FileName, ///< perhaps a pattern, of "config"
    FromDirectory,
    ToDirectory,
    NewName,
    LinkTarget,
    Path, ///< of what is made, changed or deleted
    From, ///< the file that is copied
    Mode,
    Owner,
    Group,
    UserName,
    Home,
    Description,
    Command,
};

/// An operation as it is written.
struct KSetupOperationInfo {
    const char* keyword; ///< the script's key, exactly so
    const char* word;    ///< the first field, in lower case
    KSetupOperation operation;
    std::span<const KSetupField> fields; ///< behind the word
    std::size_t needed; ///< of them; the rest may be left out, from the last one on
    const char* shape;  ///< how a line is written
};

/// A line of one of ins-setup's own rule types, as check, plan and the rules read it. Other than with
/// the engine's types no field may be empty, nothing is ignored, and fields may hold escapes
/// (EscapedText.h), save a command.
///
///     const KSetupRuleLine line = KSetupRuleLine::Read("mode", "set,$pathTarget$data,0750", expand);
///     if (line.GetProblem().empty()) { use(line.Get(KSetupField::Path)); }
class KSetupRuleLine {
  public:
    /// All operations, those of one type behind each other.
    ///
    /// Lifetime of the process
    static std::span<const KSetupOperationInfo> GetOperations() noexcept;
    /// Whether a key of the script is one of these types.
    static bool IsType(const std::string& keyword) noexcept;

    /// Reads a line of such a type; `value` as it stands in the script.
    static KSetupRuleLine
    Read(const std::string& keyword, const std::string& value, const MacroExpander& expand);

    /// None for a line with a problem.
    KSetupOperation GetOperation() const noexcept {
        return problem.empty() && info != nullptr ? info->operation : KSetupOperation::None;
    }
    /// The field of this meaning; empty where the line has none.
    const std::string& Get(KSetupField field) const noexcept;
    bool Has(KSetupField field) const noexcept { return !Get(field).empty(); }
    /// All fields, the operation first.
    const std::vector<std::string>& GetFields() const noexcept { return fields; }
    /// Where a field of this meaning stands among them; 0 where the line has none.
    std::size_t IndexOf(KSetupField field) const noexcept;
    /// Whether the file name is a pattern: it has an asterisk or a question mark that is not escaped.
    bool IsPattern() const noexcept { return isPattern; }
    /// Why the line cannot be loaded, without a period; empty for one that can.
    const KText& GetProblem() const noexcept { return problem; }
    /// What to write instead, as "write …".
    const KText& GetAdvice() const noexcept { return advice; }
    /// Both as a sentence; empty for a line that can be loaded.
    KText GetProblemText() const;

    /// of config and entry copies: the file, or the pattern of files, with its directory.
    std::string GetSource() const;
    /// of config and entry copies: where the one file goes. A pattern's files keep their names.
    std::string GetTarget() const;
    /// The bits of mode=set.
    unsigned GetMode() const;

  private:
    void Split(const std::string& value, const MacroExpander& expand);
    void Verify();
    void VerifyPaths();
    void Refuse(KText why, KText instead);
    void FindPattern(const std::string& written);

    const KSetupOperationInfo* info = nullptr;
    std::vector<std::string> fields;
    bool isPattern = false;
    KText problem;
    KText advice;
};

/// What a rule of a script does, if it is of one of these types; else None.
KSetupOperation SetupOperationOf(const KScriptRule& rule) noexcept;

/// The mode of three or four octal digits; nothing for another text.
std::optional<unsigned> ParseMode(const std::string& text) noexcept;

} // namespace KSETUP
