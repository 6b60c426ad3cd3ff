// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/check/MacroText.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <array>

namespace KSETUP::Checks {

namespace {

/// What becomes of an operation that the rule does not know.
enum class Unknown { Ignored, Fails };

struct RuleType {
    const char* name;
    std::vector<std::size_t> fieldCounts; ///< none: whatever stands there is one field
    std::vector<std::string> operations;
    bool ignoresCase;
    Unknown unknown;
    const char* shape; ///< how a line is written
};

const std::array<RuleType, 6>& RuleTypes() {
    static const std::array<RuleType, 6> types{{
        {"file",
         {3, 4, 5},
         {"copy", "delete", "symlink"},
         false,
         Unknown::Ignored,
         "file=copy,NAME,FROM,TO[,NEWNAME], file=delete,NAME,FROM or "
         "file=symlink,NAME,FROM,TO[,NEWNAME]"},
        {"directory",
         {2},
         {"create", "delete"},
         true,
         Unknown::Ignored,
         "directory=create,PATH or directory=delete,PATH"},
        {"section", {}, {}, false, Unknown::Ignored, "section=NAME"},
        {"process",
         {2},
         {"start", "stop"},
         false,
         Unknown::Ignored,
         "process=start,COMMAND or process=stop,PROGRAM; what needs a comma goes into a file of "
         "the "
         "kit that the command runs"},
        {"service",
         {2, 5},
         {"install", "start", "stop", "remove"},
         true,
         Unknown::Fails,
         "service=OPERATION,NAME or service=install,NAME,DISPLAY NAME,PROGRAM,ARGUMENTS"},
        {"profile",
         {2, 4, 5},
         {"create", "put", "remove_file"},
         true,
         Unknown::Fails,
         "profile=create,FILE or profile=put,FILE,SECTION,KEY,VALUE or "
         "profile=remove_file,FILE,SECTION,TEXT"},
    }};
    return types;
}

const RuleType* FindType(const std::string& name) {
    const auto& types = RuleTypes();
    const auto* found = std::find_if(types.begin(), types.end(), [&](const RuleType& type) {
        return name == type.name;
    });
    return found != types.end() ? &*found : nullptr;
}

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

std::string ListOf(const std::vector<std::string>& words) {
    std::string list;
    for (std::size_t index = 0; index < words.size(); ++index) {
        list += index == 0 ? "" : index + 1 == words.size() ? " or " : ", ";
        list += Quoted(words[index]);
    }
    return list;
}

/// What to write instead of a word that is none of `known`.
std::string WriteInstead(const std::string& written, const std::vector<std::string>& known) {
    // Close to "start", which leaves the former program running.
    if (Lowered(written) == "restart") {
        return "write a \"stop\", and a \"start\" behind it";
    }
    const std::string meant = FindMeant(written, known);
    return "write " + (meant.empty() ? ListOf(known) : Quoted(meant));
}

/// The key that proposes the product path, or one that was meant for it.
bool IsLikeDefaultPath(const std::string& type) {
    return Lowered(type).find("path") != std::string::npos;
}

constexpr char defaultPathKey[] = "defaultPath.$os$";

/// Whether the operation stands there, and its type does not know it.
bool HasUnknownOperation(const KScriptRule& rule, Unknown unknown) {
    const RuleType* type = FindType(rule.line.type);
    if (type == nullptr || type->operations.empty() || type->unknown != unknown ||
        rule.fields.empty()) {
        return false;
    }
    const std::string word = type->ignoresCase ? Lowered(rule.fields[0]) : rule.fields[0];
    return std::find(type->operations.begin(), type->operations.end(), word) ==
           type->operations.end();
}

Findings Operations(const KCheckContext& context, Unknown unknown, const std::string& consequence) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        if (HasUnknownOperation(rule, unknown)) {
            const std::string& word = rule.fields[0];
            found.push_back(context.AtField(
                rule.line,
                0,
                "unknown operation " + Quoted(word) + " of " + rule.line.type + ", " + consequence,
                WriteInstead(std::string(Trimmed(word)), FindType(rule.line.type)->operations)
            ));
        }
    }
    return found;
}

bool IsProfile(const KScriptRule& rule, const char* operation) {
    return rule.line.type == "profile" && !rule.fields.empty() &&
           Lowered(rule.fields[0]) == operation;
}

/// As many fields as the operation makes sense of. A "put" with too few is a finding of its own.
bool HasRightCount(const KScriptRule& rule, const RuleType& type) {
    const std::size_t count = rule.fields.size();
    const bool isAccepted = std::find(type.fieldCounts.begin(), type.fieldCounts.end(), count) !=
                            type.fieldCounts.end();
    if (IsProfile(rule, "create")) {
        return count == 2;
    }
    if (IsProfile(rule, "remove_file")) {
        return count == 4;
    }
    return isAccepted || type.fieldCounts.empty();
}

std::string CountText(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " field" : " fields");
}

} // namespace

Findings UnknownTypes(const KCheckContext& context) {
    static const std::vector<std::string> known = [] {
        std::vector<std::string> names;
        for (const RuleType& type : RuleTypes()) {
            names.emplace_back(type.name);
        }
        return names;
    }();
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const std::string& type = rule.line.type;
        if (FindType(type) != nullptr || IsLikeDefaultPath(type)) {
            continue;
        }
        found.push_back(
            type.starts_with('[')
                ? context.AtType(
                      rule.line,
                      Quoted(type) + " is no section header and no rule",
                      "write the header alone in its line, as \"[install]\""
                  )
                : context.AtType(
                      rule.line, "unknown rule type " + Quoted(type), WriteInstead(type, known)
                  )
        );
    }
    return found;
}

Findings FieldCounts(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const RuleType* type = FindType(rule.line.type);
        if (type != nullptr && !HasRightCount(rule, *type)) {
            found.push_back(context.AtValue(
                rule.line,
                "a " + rule.line.type + " rule cannot have " + CountText(rule.fields.size()),
                std::string("write ") + type->shape
            ));
        }
    }
    return found;
}

Findings IgnoredOperations(const KCheckContext& context) {
    return Operations(context, Unknown::Ignored, "which does nothing");
}

Findings FailingOperations(const KCheckContext& context) {
    return Operations(context, Unknown::Fails, "which fails");
}

Findings EmptyFields(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        if (FindType(rule.line.type) == nullptr) {
            continue;
        }
        const std::vector<std::string> fields = rule.line.type == "section"
                                                    ? std::vector<std::string>{rule.line.value}
                                                    : WrittenFields(rule.line.value);
        // Behind the last field with anything in it nothing moves up.
        std::size_t count = fields.size();
        while (count > 1 && fields[count - 1].empty()) {
            --count;
        }
        for (std::size_t index = 0; index < count; ++index) {
            const std::string number = "field " + std::to_string(index + 1);
            if (fields[index].empty()) {
                found.push_back(context.AtWritten(
                    rule.line,
                    index,
                    0,
                    "",
                    number + " is empty and does not count, so those behind it move up",
                    "fill it, or take the comma out"
                ));
            } else if (context.Expand(fields[index]).empty()) {
                found.push_back(context.AtWritten(
                    rule.line,
                    index,
                    0,
                    fields[index],
                    number + " is empty, for " + Quoted(fields[index]) + " has no value",
                    "write something beside the macro, or take the field out"
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
        if (IsProfile(rule, "put") && (isShort || isBlank)) {
            found.push_back(context.AtField(
                rule.line,
                isBlank ? 3 : 0,
                isBlank ? "this \"put\" writes an empty key"
                        : "a \"put\" with " + CountText(count) + " writes an empty key",
                "write profile=put,FILE,SECTION,KEY,VALUE"
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
        if (type != defaultPathKey) {
            found.push_back(context.AtType(
                rule.line,
                Quoted(type) + " does not propose the product path",
                "write \"defaultPath.$os$\", dollars and all"
            ));
        } else if (Trimmed(rule.line.section) != "install") {
            found.push_back(context.AtType(
                rule.line,
                Quoted(type) + " is not looked for in section [" + rule.line.section + "]",
                "put it into section [install]"
            ));
        }
    }
    return found;
}

} // namespace KSETUP::Checks
