// SPDX-License-Identifier: MIT
#pragma once

#include <ins/Export.h>
#include <sup++/KErrorBase.h>
#include <sup++/KString.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace KINS {

/// The types of rules that the engine has, each behind a key of the script.
enum class KRuleType : std::uint32_t {
    None = 0, ///< none of the engine's
    File,
    Directory,
    Section,
    Process,
    Service,
    Profile,
};

/// What a rule does; which of these a type knows is in KRuleTypeInfo.
enum class KRuleOperation : std::uint32_t {
    None = 0, ///< the type has no operations, or does not know the word
    Copy,
    Delete,
    Symlink,
    Create,
    Start,
    Stop,
    Install,
    Remove,
    Put,
    RemoveFile,
};

/// What a field of a rule line means.
enum class KRuleField : std::uint32_t {
    None = 0, ///< nothing: the rule does not look at it
    Operation,
    FileName,        ///< of a file rule, perhaps with a pattern
    SourceDirectory, ///< of a file rule
    TargetDirectory, ///< of a file rule
    TargetName,      ///< of a file rule; the file name where the line has none
    Directory,       ///< of a directory rule
    SectionName,     ///< of a section rule
    Command,         ///< of a process rule; the program where it stops one
    ServiceName,
    DisplayName,
    Program,   ///< of a service
    Arguments, ///< of a service
    ProfilePath,
    Section, ///< of a profile
    Key,
    Value,
    Match, ///< what the names of the files that go have in them
};

/// An operation of a rule type.
struct KRuleOperationInfo {
    const char* word;                   ///< as it is written, in lower case
    KRuleOperation operation;           ///< never None
    std::span<const KRuleField> fields; ///< what a whole line of this operation has, this one first
};

/// What becomes of a line whose operation its type does not know.
enum class KUnknownOperation : std::uint32_t {
    DoesNothing = 0, ///< it is loaded, and does nothing when it runs
    FailsToLoad,     ///< nothing runs
    FailsToRun,      ///< the run ends there
};

/// How lines of a type are read.
struct KRuleTypeInfo {
    KRuleType type;                                 ///< never None
    const char* keyword;                            ///< the script's key, exactly so
    std::span<const std::size_t> fieldCounts;       ///< that load; none: the line is one field
    std::span<const KRuleOperationInfo> operations; ///< none for a section
    bool ignoresCase;                               ///< of the operation
    KUnknownOperation unknownOperation;             ///< of no meaning without operations
};

/// A line of an install script as its rule reads it: what it does, and its fields with their meaning
/// and macros expanded. The rule classes read their own lines with it.
///
/// Thread   a value
///
///     const KRuleLine line = KRuleLine::Read("file", "copy,a,$pathSource$,/opt/p", expand);
///     if (line.GetOperation() == KRuleOperation::Copy) { use(line.Get(KRuleField::FileName)); }
class INS_EXPORT KRuleLine {
  public:
    /// Replaces the macros of a text, as KInstaller::ExpandMacros does.
    using Expander = std::function<KSUP::KString(const KSUP::KString& text)>;

    /// A field of the line, empty ones left out.
    struct Field {
        KRuleField meaning = KRuleField::None; ///< None: the rule does not look at it
        KSUP::KString text;                    ///< as the rule gets to see it
    };

    /// Why a line would not be loaded.
    enum class Problem : std::uint32_t { None = 0, UnknownType, FieldCount, UnknownOperation };

    /// Reads a line: `type` is its key, `line` its value as it stands in the script. A line that is
    /// no rule is read as well; GetProblem tells.
    ///
    /// Throws   what `expand` throws
    static KRuleLine
    Read(const KSUP::KString& type, const KSUP::KString& line, const Expander& expand);
    /// Reads the fields that a rule of this type is given by KInstallRuleBase::Initialize.
    ///
    /// Throws   what `expand` throws
    static KRuleLine
    ReadFields(KRuleType type, const std::vector<KSUP::KString>& fields, const Expander& expand);

    /// All types, in the order in which a line is compared with them.
    ///
    /// Lifetime of the process
    static std::span<const KRuleTypeInfo> GetTypes() noexcept;
    /// The type behind a key of the script; null for a key of no type.
    static const KRuleTypeInfo* FindType(const KSUP::KString& keyword) noexcept;
    /// The operation that a type knows by this word, written in the case in which the type compares
    /// it; None for another word.
    static KRuleOperation FindOperation(KRuleType type, const KSUP::KString& word) noexcept;

    /// None for a key of no type.
    KRuleType GetType() const noexcept;
    /// None where there is no operation that the type knows.
    KRuleOperation GetOperation() const noexcept;
    /// The operation as the rule compares it: lowered where its type ignores the case.
    const KSUP::KString& GetOperationText() const noexcept;
    /// All fields, in their order. Those of a line with a problem are as they were split.
    const std::vector<Field>& GetFields() const noexcept;
    /// The field of this meaning; an empty text where the line has none.
    const KSUP::KString& Get(KRuleField meaning) const noexcept;

    /// None for a line that loads.
    Problem GetProblem() const noexcept;
    /// The problem as a sentence or two; empty for a line that loads.
    KSUP::KString GetProblemText() const;
    /// What an error that refuses the line tells: the problem is its reason.
    KSUP::KErrorDetail GetErrorDetail() const;

    /// Moves the field of this meaning out, for a rule that keeps it; as Get otherwise, and empty when
    /// it is taken again.
    KSUP::KString Take(KRuleField meaning);

    ~KRuleLine();
    KRuleLine(KRuleLine&& other) noexcept; ///< leaves nothing but destruction to the other
    KRuleLine& operator=(KRuleLine&& other) noexcept; ///< as above

  private:
    struct Contents;
    static Problem ProblemOf(const KRuleTypeInfo* info, std::size_t count) noexcept;
    explicit KRuleLine(std::unique_ptr<Contents> read) noexcept;
    Field* Find(KRuleField meaning) const noexcept;

    std::unique_ptr<Contents> contents; // never null, save in what was moved from
};

} // namespace KINS
