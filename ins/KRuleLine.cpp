// SPDX-License-Identifier: MIT
#include <ins/KRuleLine.h>
#include <ins/RuleLayout.h>
#include <sup++/KUtil.h>
#include <sup++/Txt.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>

using KSUP::KString;

namespace KINS {

namespace {

using Field = KRuleField;
using Operation = KRuleOperation;

constexpr std::array fileFields{
    Field::Operation,
    Field::FileName,
    Field::SourceDirectory,
    Field::TargetDirectory,
    Field::TargetName};
constexpr std::array deletedFileFields{Field::Operation, Field::FileName, Field::SourceDirectory};
constexpr std::array directoryFields{Field::Operation, Field::Directory};
constexpr std::array processFields{Field::Operation, Field::Command};
constexpr std::array serviceFields{Field::Operation, Field::ServiceName};
constexpr std::array installedServiceFields{
    Field::Operation, Field::ServiceName, Field::DisplayName, Field::Program, Field::Arguments};
constexpr std::array profileFields{Field::Operation, Field::ProfilePath};
constexpr std::array putFields{
    Field::Operation, Field::ProfilePath, Field::Section, Field::Key, Field::Value};
constexpr std::array removedFileFields{
    Field::Operation, Field::ProfilePath, Field::Section, Field::Match};

constexpr std::array fileOperations = std::to_array<KRuleOperationInfo>({
    {"copy", Operation::Copy, fileFields},
    {"delete", Operation::Delete, deletedFileFields},
    {"symlink", Operation::Symlink, fileFields},
});
constexpr std::array directoryOperations = std::to_array<KRuleOperationInfo>({
    {"create", Operation::Create, directoryFields},
    {"delete", Operation::Delete, directoryFields},
});
constexpr std::array processOperations = std::to_array<KRuleOperationInfo>({
    {"start", Operation::Start, processFields},
    {"stop", Operation::Stop, processFields},
});
constexpr std::array serviceOperations = std::to_array<KRuleOperationInfo>({
    {"install", Operation::Install, installedServiceFields},
    {"start", Operation::Start, serviceFields},
    {"stop", Operation::Stop, serviceFields},
    {"remove", Operation::Remove, serviceFields},
});
constexpr std::array profileOperations = std::to_array<KRuleOperationInfo>({
    {"create", Operation::Create, profileFields},
    {"put", Operation::Put, putFields},
    {"remove_file", Operation::RemoveFile, removedFileFields},
});

constexpr std::array<std::size_t, 3> fileCounts{3, 4, 5};
constexpr std::array<std::size_t, 1> twoFields{2};
constexpr std::array<std::size_t, 2> serviceCounts{2, 5};
constexpr std::array<std::size_t, 3> profileCounts{2, 4, 5};

constexpr std::array types = std::to_array<KRuleTypeInfo>({
    {KRuleType::File, "file", fileCounts, fileOperations, false, KUnknownOperation::DoesNothing},
    {KRuleType::Directory,
     "directory",
     twoFields,
     directoryOperations,
     true,
     KUnknownOperation::DoesNothing},
    {KRuleType::Section, "section", {}, {}, false, KUnknownOperation::DoesNothing},
    {KRuleType::Process,
     "process",
     twoFields,
     processOperations,
     false,
     KUnknownOperation::DoesNothing},
    {KRuleType::Service,
     "service",
     serviceCounts,
     serviceOperations,
     true,
     KUnknownOperation::FailsToRun},
    {KRuleType::Profile,
     "profile",
     profileCounts,
     profileOperations,
     true,
     KUnknownOperation::FailsToLoad},
});

const KRuleTypeInfo* InfoOf(KRuleType type) noexcept {
    const auto* found = std::find_if(types.begin(), types.end(), [&](const KRuleTypeInfo& one) {
        return one.type == type;
    });
    return found != types.end() ? found : nullptr;
}

const KRuleOperationInfo*
FindOperationInfo(const KRuleTypeInfo& type, const KString& word) noexcept {
    for (const KRuleOperationInfo& one : type.operations) {
        if (Txtcmp(word.c_str(), one.word) == 0) {
            return &one;
        }
    }
    return nullptr;
}

KRuleLine::Problem FindProblem(const KRuleTypeInfo* info, std::size_t count) noexcept {
    if (info == nullptr) {
        return KRuleLine::Problem::UnknownType;
    }
    const std::span<const std::size_t> counts = info->fieldCounts;
    const bool isRight = counts.empty() || std::ranges::find(counts, count) != counts.end();
    return isRight ? KRuleLine::Problem::None : KRuleLine::Problem::FieldCount;
}

/// Whether a type's class expands the whole line before it is split.
bool ExpandsWholeLine(KRuleType type) noexcept {
    return type == KRuleType::Directory || type == KRuleType::Profile || type == KRuleType::Section;
}

/// What the fields of a line that loads mean. More than the operation needs are let pass by some
/// types; what they mean then is nothing.
std::span<const KRuleField>
LayoutOf(KRuleType type, Operation operation, std::size_t count) noexcept {
    switch (type) {
    case KRuleType::File:
        return fileFields;
    case KRuleType::Directory:
        return directoryFields;
    case KRuleType::Process:
        return processFields;
    case KRuleType::Service:
        return installedServiceFields;
    case KRuleType::Profile:
        if (operation == Operation::Put && count == putFields.size()) {
            return putFields;
        }
        if (operation == Operation::RemoveFile && count == removedFileFields.size()) {
            return removedFileFields;
        }
        return profileFields;
    case KRuleType::Section:
    case KRuleType::None:
        break;
    }
    return {};
}

/// What says what to do is taken as it stands; a profile's path and a directory's were expanded with
/// the line, and are not expanded again.
bool IsExpanded(KRuleField meaning) noexcept {
    return meaning != Field::None && meaning != Field::Operation && meaning != Field::Directory &&
           meaning != Field::ProfilePath;
}

/// "a", "a or b", "a, b or c", with another last word.
template <class Range, class ToWords>
std::string ListOf(const Range& range, const char* lastWord, ToWords toWords) {
    std::string list;
    std::size_t left = range.size();
    for (const auto& one : range) {
        --left;
        list += toWords(one);
        list += left > 1 ? ", " : left == 1 ? std::string(" ") + lastWord + " " : "";
    }
    return list;
}

std::string CountsInWords(std::span<const std::size_t> counts) {
    if (counts.size() > 1 && counts.back() - counts.front() == counts.size() - 1) {
        return std::to_string(counts.front()) + " to " + std::to_string(counts.back());
    }
    return ListOf(counts, "or", [](std::size_t count) { return std::to_string(count); });
}

} // namespace

RuleLayout LayOut(KRuleType type, const std::vector<KString>& fields) {
    RuleLayout layout;
    layout.info = InfoOf(type);
    layout.problem = FindProblem(layout.info, fields.size());
    if (layout.problem != KRuleLine::Problem::None || layout.info->operations.empty()) {
        return layout;
    }
    if (layout.info->ignoresCase) {
        layout.loweredOperation = KSUP::KUtil::Lowerify(fields.front());
    }
    const KString& word = layout.info->ignoresCase ? layout.loweredOperation : fields.front();
    if (const auto* known = FindOperationInfo(*layout.info, word)) {
        layout.operation = known->operation;
    } else if (layout.info->unknownOperation == KUnknownOperation::FailsToLoad) {
        layout.problem = KRuleLine::Problem::UnknownOperation;
    }
    layout.meanings = LayoutOf(type, layout.operation, fields.size());
    return layout;
}

/// The library exports the name, so it stays.
KRuleLine::Problem KRuleLine::ProblemOf(const KRuleTypeInfo* info, std::size_t count) noexcept {
    return FindProblem(info, count);
}

struct KRuleLine::Contents {
    const KRuleTypeInfo* info = nullptr;
    Problem problem = Problem::None;
    KString typeName; // as it is written, of a line of no type
    KRuleOperation operation = KRuleOperation::None;
    KString loweredOperation; // where the type ignores the case
    std::vector<KRuleLine::Field> fields;
};

KRuleLine::KRuleLine(std::unique_ptr<Contents> read) noexcept : contents(std::move(read)) {}
KRuleLine::~KRuleLine() = default;
KRuleLine::KRuleLine(KRuleLine&& other) noexcept = default;
KRuleLine& KRuleLine::operator=(KRuleLine&& other) noexcept = default;

KRuleLine KRuleLine::Read(const KString& type, const KString& line, const Expander& expand) {
    const KRuleTypeInfo* info = FindType(type);
    if (info != nullptr && info->type == KRuleType::Section) {
        auto section = std::make_unique<Contents>();
        section->info = info;
        section->fields.push_back({KRuleField::SectionName, expand(line)});
        return KRuleLine(std::move(section));
    }
    if (info != nullptr) {
        const KString text = ExpandsWholeLine(info->type) ? expand(line) : line;
        return ReadFields(info->type, text.SectionVector(',', true), expand);
    }
    auto unknown = std::make_unique<Contents>();
    unknown->problem = Problem::UnknownType;
    unknown->typeName = type;
    for (KString& text : line.SectionVector(',', true)) {
        unknown->fields.push_back({KRuleField::None, std::move(text)});
    }
    return KRuleLine(std::move(unknown));
}

KRuleLine
KRuleLine::ReadFields(KRuleType type, const std::vector<KString>& fields, const Expander& expand) {
    RuleLayout layout = LayOut(type, fields);
    auto read = std::make_unique<Contents>();
    read->info = layout.info;
    read->problem = layout.problem;
    read->operation = layout.operation;
    read->loweredOperation = std::move(layout.loweredOperation);
    // Each text is made once, as the rule gets to see it: scripts have lines by the hundred thousand.
    read->fields.reserve(fields.size());
    for (std::size_t index = 0; index < fields.size(); ++index) {
        const KRuleField meaning =
            index < layout.meanings.size() ? layout.meanings[index] : KRuleField::None;
        read->fields.push_back(
            {meaning, IsExpanded(meaning) ? expand(fields[index]) : fields[index]}
        );
    }
    return KRuleLine(std::move(read));
}

std::span<const KRuleTypeInfo> KRuleLine::GetTypes() noexcept {
    return types;
}

const KRuleTypeInfo* KRuleLine::FindType(const KString& keyword) noexcept {
    const auto* found = std::find_if(types.begin(), types.end(), [&](const KRuleTypeInfo& one) {
        return Txtcmp(keyword.c_str(), one.keyword) == 0;
    });
    return found != types.end() ? found : nullptr;
}

KRuleOperation KRuleLine::FindOperation(KRuleType type, const KString& word) noexcept {
    const KRuleTypeInfo* info = InfoOf(type);
    const KRuleOperationInfo* found = info != nullptr ? FindOperationInfo(*info, word) : nullptr;
    return found != nullptr ? found->operation : KRuleOperation::None;
}

KRuleType KRuleLine::GetType() const noexcept {
    return contents->info != nullptr ? contents->info->type : KRuleType::None;
}

KRuleOperation KRuleLine::GetOperation() const noexcept {
    return contents->operation;
}

const KString& KRuleLine::GetOperationText() const noexcept {
    return contents->info != nullptr && contents->info->ignoresCase ? contents->loweredOperation
                                                                    : Get(KRuleField::Operation);
}

const std::vector<KRuleLine::Field>& KRuleLine::GetFields() const noexcept {
    return contents->fields;
}

KRuleLine::Field* KRuleLine::Find(KRuleField meaning) const noexcept {
    const auto found = std::ranges::find(contents->fields, meaning, &Field::meaning);
    if (found == contents->fields.end() && meaning == KRuleField::TargetName) {
        return Find(KRuleField::FileName); // a copy or link keeps its name
    }
    return found != contents->fields.end() ? &*found : nullptr;
}

const KString& KRuleLine::Get(KRuleField meaning) const noexcept {
    static const KString nothing;
    const Field* field = Find(meaning);
    return field != nullptr ? field->text : nothing;
}

KString KRuleLine::Take(KRuleField meaning) {
    Field* field = Find(meaning);
    if (field == nullptr) {
        return {};
    }
    return field->meaning == meaning ? std::move(field->text) : field->text;
}

KRuleLine::Problem KRuleLine::GetProblem() const noexcept {
    return contents->problem;
}

KString KRuleLine::GetProblemText() const {
    const auto asItIs = [](const char* word) { return std::string(word); };
    switch (contents->problem) {
    case Problem::UnknownType:
        return KString(
            "\"" + std::string(contents->typeName.c_str()) + "\" is no type of rule. They are " +
            ListOf(types, "and", [&](const KRuleTypeInfo& one) { return asItIs(one.keyword); }) +
            ", in lower case."
        );
    case Problem::FieldCount:
        return KString(
            std::string("a ") + contents->info->keyword + " rule has " +
            CountsInWords(contents->info->fieldCounts) + " fields, and this line " +
            std::to_string(contents->fields.size()) + ". Empty fields do not count."
        );
    case Problem::UnknownOperation:
        return KString(
            "\"" + std::string(contents->fields.front().text.c_str()) + "\" is no operation of a " +
            contents->info->keyword + " rule. They are " +
            ListOf(
                contents->info->operations,
                "and",
                [&](const KRuleOperationInfo& one) { return asItIs(one.word); }
            ) +
            "."
        );
    case Problem::None:
        break;
    }
    return {};
}

KSUP::KErrorDetail KRuleLine::GetErrorDetail() const {
    return {KSUP::KErrorKind::Rule, KSUP::KOperation::None, {}, GetProblemText()};
}

} // namespace KINS
