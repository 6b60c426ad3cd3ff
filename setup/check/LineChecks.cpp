// SPDX-License-Identifier: MIT
#include <ins/KRuleLine.h>
#include <ins/Names.h>
#include <setup/check/Checks.h>
#include <setup/check/MacroText.h>
#include <setup/script/KSetupRuleLine.h>
#include <setup/script/ScriptText.h>

#include <algorithm>

namespace KSETUP::Checks {

namespace {

using KINS::KRuleLine;
using KINS::KRuleOperation;
using KINS::KRuleType;
using KINS::KRuleTypeInfo;
using KINS::KUnknownOperation;

/// How a line of a type is written.
KText ShapeOf(KRuleType type) noexcept {
    switch (type) {
    case KRuleType::File:
        return Text("file=copy,NAME,FROM,TO[,NEWNAME], file=delete,NAME,FROM or "
                    "file=symlink,NAME,FROM,TO[,NEWNAME]");
    case KRuleType::Directory:
        return Text("directory=create,PATH or directory=delete,PATH");
    case KRuleType::Section:
        return "section=NAME";
    case KRuleType::Process:
        return Text("process=start,COMMAND or process=stop,PROGRAM; what needs a comma goes into a "
                    "file of the kit that the command runs");
    case KRuleType::Service:
        return Text("service=OPERATION,NAME or service=install,NAME,DISPLAY NAME,PROGRAM,ARGUMENTS"
        );
    case KRuleType::Profile:
        return Text("profile=create,FILE or profile=put,FILE,SECTION,KEY,VALUE or "
                    "profile=remove_file,FILE,SECTION,TEXT");
    case KRuleType::None:
        break;
    }
    return "";
}

std::vector<std::string> OperationsOf(const KRuleTypeInfo& type) {
    std::vector<std::string> words;
    for (const KINS::KRuleOperationInfo& operation : type.operations) {
        words.emplace_back(operation.word);
    }
    return words;
}

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

KText ChoiceOf(const std::vector<std::string>& words) {
    KText list;
    for (std::size_t index = 0; index < words.size(); ++index) {
        list += index == 0 ? "" : index + 1 == words.size() ? Text(" or ") : ", ";
        list += Quoted(words[index]);
    }
    return list;
}

/// What to write instead of a word that is none of `known`.
KText WriteInstead(const std::string& written, const std::vector<std::string>& known) {
    // Close to "start", which leaves the former program running.
    if (Lowered(written) == "restart") {
        return Text("write a \"stop\", and a \"start\" behind it");
    }
    const std::string meant = FindMeant(written, known);
    return Text("write %s", meant.empty() ? ChoiceOf(known) : Quoted(meant));
}

/// The key that proposes the product path, or one that was meant for it.
bool IsLikeDefaultPath(const std::string& type) {
    return Lowered(type).find("path") != std::string::npos;
}

/// Whether the operation stands there, and its type does not know it.
bool HasUnknownOperation(const KScriptRule& rule, bool isIgnored) {
    const KRuleTypeInfo* type = KRuleLine::FindType(rule.line.type);
    return type != nullptr && !type->operations.empty() && !rule.fields.empty() &&
           (type->unknownOperation == KUnknownOperation::DoesNothing) == isIgnored &&
           KRuleLine::FindOperation(
               type->type, type->ignoresCase ? Lowered(rule.fields[0]) : rule.fields[0]
           ) == KRuleOperation::None;
}

Findings Operations(const KCheckContext& context, bool areIgnored, const KText& consequence) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        if (HasUnknownOperation(rule, areIgnored)) {
            const std::string& word = rule.fields[0];
            found.push_back(context.AtField(
                rule.line,
                0,
                Text("unknown operation %s of %s, %s", Quoted(word), rule.line.type, consequence),
                WriteInstead(
                    std::string(Trimmed(word)), OperationsOf(*KRuleLine::FindType(rule.line.type))
                )
            ));
        }
    }
    return found;
}

bool IsProfile(const KScriptRule& rule, KRuleOperation operation) {
    return rule.Is(KRuleType::Profile, operation);
}

/// As many fields as the operation makes sense of. A "put" with too few is a finding of its own.
bool HasRightCount(const KScriptRule& rule, const KRuleTypeInfo& type) {
    const std::size_t count = rule.fields.size();
    const bool isAccepted = std::find(type.fieldCounts.begin(), type.fieldCounts.end(), count) !=
                            type.fieldCounts.end();
    if (IsProfile(rule, KRuleOperation::Create)) {
        return count == 2;
    }
    if (IsProfile(rule, KRuleOperation::RemoveFile)) {
        return count == 4;
    }
    return isAccepted || type.fieldCounts.empty();
}

KText CountText(std::size_t count) {
    return Counted(count, "%s field", "%s fields");
}

} // namespace

Findings UnknownTypes(const KCheckContext& context) {
    static const std::vector<std::string> known = [] {
        std::vector<std::string> names;
        for (const KRuleTypeInfo& type : KRuleLine::GetTypes()) {
            names.emplace_back(type.keyword);
        }
        for (const KSetupOperationInfo& own : KSetupRuleLine::GetOperations()) {
            if (names.back() != own.keyword) {
                names.emplace_back(own.keyword);
            }
        }
        return names;
    }();
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const std::string& type = rule.line.type;
        if (KRuleLine::FindType(type) != nullptr || KSetupRuleLine::IsType(type) ||
            IsLikeDefaultPath(type)) {
            continue;
        }
        found.push_back(
            type.starts_with('[') ? context.AtType(
                                        rule.line,
                                        Text("%s is no section header and no rule", Quoted(type)),
                                        Text("write the header alone in its line, as \"[install]\"")
                                    )
                                  : context.AtType(
                                        rule.line,
                                        Text("unknown rule type %s", Quoted(type)),
                                        WriteInstead(type, known)
                                    )
        );
    }
    return found;
}

Findings FieldCounts(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const KRuleTypeInfo* type = KRuleLine::FindType(rule.line.type);
        if (type != nullptr && !HasRightCount(rule, *type)) {
            found.push_back(context.AtValue(
                rule.line,
                Text("a %s rule cannot have %s", rule.line.type, CountText(rule.fields.size())),
                Text("write %s", ShapeOf(type->type))
            ));
        }
    }
    return found;
}

Findings IgnoredOperations(const KCheckContext& context) {
    return Operations(context, true, Text("which does nothing"));
}

Findings FailingOperations(const KCheckContext& context) {
    return Operations(context, false, Text("which fails"));
}

Findings EmptyFields(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        if (KRuleLine::FindType(rule.line.type) == nullptr) {
            continue;
        }
        const std::vector<std::string> fields = rule.type == KRuleType::Section
                                                    ? std::vector<std::string>{rule.line.value}
                                                    : WrittenFields(rule.line.value);
        // Behind the last field with anything in it nothing moves up.
        std::size_t count = fields.size();
        while (count > 1 && fields[count - 1].empty()) {
            --count;
        }
        for (std::size_t index = 0; index < count; ++index) {
            const KText number = Text("field %s", index + 1);
            if (fields[index].empty()) {
                found.push_back(context.AtWritten(
                    rule.line,
                    index,
                    0,
                    "",
                    Text("%s is empty and does not count, so those behind it move up", number),
                    Text("fill it, or take the comma out")
                ));
            } else if (context.Expand(fields[index]).empty()) {
                found.push_back(context.AtWritten(
                    rule.line,
                    index,
                    0,
                    fields[index],
                    Text("%s is empty, for %s has no value", number, Quoted(fields[index])),
                    Text("write something beside the macro, or take the field out")
                ));
            }
        }
    }
    return found;
}

Findings EmptyKeys(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const std::size_t count = rule.fields.size();
        const bool isShort = count == 2 || count == 4;
        const bool isBlank = count == 5 && Trimmed(rule.fields[3]).empty();
        if (IsProfile(rule, KRuleOperation::Put) && (isShort || isBlank)) {
            found.push_back(context.AtField(
                rule.line,
                isBlank ? 3 : 0,
                isBlank ? Text("this \"put\" writes an empty key")
                        : Text("a \"put\" with %s writes an empty key", CountText(count)),
                Text("write profile=put,FILE,SECTION,KEY,VALUE")
            ));
        }
    }
    return found;
}

Findings DefaultPaths(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const std::string& type = rule.line.type;
        if (!IsLikeDefaultPath(type)) {
            continue;
        }
        if (type != KINS::Names::defaultPathKey) {
            found.push_back(context.AtType(
                rule.line,
                Text("%s does not propose the product path", Quoted(type)),
                Text("write \"defaultPath.$os$\", dollars and all")
            ));
        } else if (Trimmed(rule.line.section) != "install") {
            found.push_back(context.AtType(
                rule.line,
                Text("%s is not looked for in section [%s]", Quoted(type), rule.line.section),
                Text("put it into section [install]")
            ));
        }
    }
    return found;
}

} // namespace KSETUP::Checks
