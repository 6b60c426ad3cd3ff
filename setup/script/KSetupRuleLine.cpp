// SPDX-License-Identifier: MIT
#include <setup/files/AccountNames.h>
#include <setup/files/PathText.h>
#include <setup/script/EscapedText.h>
#include <setup/script/KSetupRuleLine.h>

#include <algorithm>
#include <array>
#include <climits>
#include <string_view>
#include <utility>

namespace KSETUP {

namespace {

using Field = KSetupField;
using Operation = KSetupOperation;

constexpr std::array configFields{
    Field::FileName, Field::FromDirectory, Field::ToDirectory, Field::NewName};
constexpr std::array linkFields{Field::LinkTarget, Field::Path};
constexpr std::array modeFields{Field::Path, Field::Mode, Field::Owner, Field::Group};
constexpr std::array userFields{Field::UserName, Field::Home, Field::Description};
constexpr std::array commandFields{Field::Command};
constexpr std::array entryCopyFields{Field::From, Field::Path};
constexpr std::array entryFields{Field::Path};

constexpr std::array operations = std::to_array<KSetupOperationInfo>({
    {"config",
     "copy",
     Operation::CopyConfig,
     configFields,
     3,
     "config=copy,NAME,FROM,TO[,NEWNAME]"},
    {"config",
     "replace",
     Operation::ReplaceFile,
     configFields,
     3,
     "config=replace,NAME,FROM,TO[,NEWNAME]"},
    {"link", "create", Operation::CreateLink, linkFields, 2, "link=create,TARGET,PATH"},
    {"mode", "set", Operation::SetMode, modeFields, 2, "mode=set,PATH,MODE[,OWNER[,GROUP]]"},
    {"user",
     "create",
     Operation::CreateUser,
     userFields,
     1,
     "user=create,NAME[,HOME[,DESCRIPTION]]"},
    {"command", "run", Operation::RunCommand, commandFields, 1, "command=run,COMMAND LINE"},
    {"entry", "copy", Operation::CopyEntry, entryCopyFields, 2, "entry=copy,FROM,TO"},
    {"entry", "create", Operation::CreateEntry, entryFields, 1, "entry=create,DIRECTORY"},
    {"entry", "delete", Operation::DeleteEntry, entryFields, 1, "entry=delete,PATH"},
});

const KSetupOperationInfo* Find(const std::string& keyword, std::string_view word) noexcept {
    const auto* found = std::find_if(operations.begin(), operations.end(), [&](const auto& one) {
        return keyword == one.keyword && word == one.word;
    });
    return found != operations.end() ? found : nullptr;
}

/// "config=copy,… or config=replace,…"
std::string ShapesOf(const std::string& keyword) {
    std::string text;
    for (const KSetupOperationInfo& one : operations) {
        if (keyword == one.keyword) {
            text += (text.empty() ? "" : " or ") + std::string(one.shape);
        }
    }
    return text;
}

bool HasWildcard(std::string_view text) noexcept {
    return text.find_first_of("*?") != std::string_view::npos;
}

/// What systemd-sysusers(8) would read as something else.
bool IsDescription(const std::string& text) noexcept {
    return std::none_of(text.begin(), text.end(), [](char letter) {
        const auto byte = static_cast<unsigned char>(letter);
        return byte < 0x20 || byte == 0x7F || letter == ':' || letter == '"' || letter == '\\';
    });
}

} // namespace

std::optional<unsigned> ParseMode(const std::string& text) noexcept {
    const bool isOctal = std::all_of(text.begin(), text.end(), [](char digit) {
        return digit >= '0' && digit <= '7';
    });
    if (!isOctal || text.size() < 3 || text.size() > 4) {
        return std::nullopt;
    }
    unsigned mode = 0;
    for (const char digit : text) {
        mode = mode * 8 + static_cast<unsigned>(digit - '0');
    }
    return mode;
}

KSetupOperation SetupOperationOf(const KScriptRule& rule) noexcept {
    return rule.own != nullptr ? rule.own->GetOperation() : Operation::None;
}

std::span<const KSetupOperationInfo> KSetupRuleLine::GetOperations() noexcept {
    return operations;
}

bool KSetupRuleLine::IsType(const std::string& keyword) noexcept {
    return std::any_of(operations.begin(), operations.end(), [&](const auto& one) {
        return keyword == one.keyword;
    });
}

KSetupRuleLine KSetupRuleLine::Read(
    const std::string& keyword, const std::string& value, const MacroExpander& expand
) {
    KSetupRuleLine line;
    const std::string word = value.substr(0, value.find(','));
    line.info = Find(keyword, word);
    if (line.info == nullptr) {
        line.fields = {word};
        line.Refuse(
            Text("\"%s\" is no operation of a %s rule", word, keyword),
            Text("write %s", ShapesOf(keyword))
        );
        return line;
    }
    line.Split(value, expand);
    line.VerifyPaths();
    line.Verify();
    return line;
}

/// The first problem counts.
void KSetupRuleLine::Refuse(KText why, KText instead) {
    if (problem.empty()) {
        problem = std::move(why);
        advice = std::move(instead);
    }
}

KText KSetupRuleLine::GetProblemText() const {
    return problem.empty() ? "" : problem + "; " + advice + ".";
}

void KSetupRuleLine::Split(const std::string& value, const MacroExpander& expand) {
    const bool isCommand = info->operation == Operation::RunCommand;
    const KText shape = Text("write %s", info->shape);
    std::vector<std::string> written = WrittenFields(value);
    if (isCommand && written.size() > 1) {
        written = {written.front(), value.substr(written.front().size() + 1)};
    }
    for (std::size_t index = 0; index < written.size(); ++index) {
        const std::string& one = written[index];
        const std::optional<std::string> text =
            isCommand ? std::string(expand(one).c_str()) : Unescaped(one, expand);
        if (!text) {
            Refuse(
                Text("\"%s\" has a percent sign without two hexadecimal digits behind it", one),
                Text("write \"%%25\" for the sign itself")
            );
        } else if (text->empty()) {
            Refuse(Text("field %s is empty", index + 1), shape);
        }
        fields.push_back(text.value_or(one));
    }
    const std::size_t count = fields.size() - 1;
    if (count < info->needed || count > info->fields.size()) {
        Refuse(
            count == 0
                ? Text("this line has one field only")
                : Counted(fields.size(), "this line has %s field", "this line has %s fields"),
            shape
        );
    } else if (info->fields.front() == Field::FileName) {
        FindPattern(written[1]);
    }
}

void KSetupRuleLine::FindPattern(const std::string& written) {
    const auto asItIs = [](const KSUP::KString& text) { return text; };
    const std::string unescaped = Unescaped(written, asItIs).value_or("");
    isPattern = HasWildcard(written);
    for (const char wildcard : {'*', '?'}) {
        if (isPattern && std::count(unescaped.begin(), unescaped.end(), wildcard) !=
                             std::count(written.begin(), written.end(), wildcard)) {
            Refuse(
                Text("a pattern cannot have an asterisk or a question mark that is escaped"),
                Text("write a line for each file")
            );
        }
    }
    if (isPattern && Has(Field::NewName)) {
        Refuse(
            Text("files that a pattern names keep their names"), Text("take the last field out")
        );
    }
}

void KSetupRuleLine::VerifyPaths() {
    for (const Field field : {Field::Path, Field::From, Field::FromDirectory, Field::ToDirectory}) {
        const std::string& path = Get(field);
        if (path.size() >= PATH_MAX) { // also so that nobody goes through all of it
            Refuse(
                Text("a path of %s bytes is longer than any can be", path.size()),
                Text("write one of %s at the most", PATH_MAX - 1)
            );
            return;
        }
        // A macro that there is not is told by itself.
        if (!path.empty() && path.front() != '/' && path.front() != '$') {
            Refuse(
                Text("\"%s\" is relative", path),
                Text("begin it with \"/\" or with a directory's macro, as $pathTarget$")
            );
        }
    }
}

void KSetupRuleLine::Verify() {
    const std::string& name = Get(Field::UserName);
    const std::string& home = Get(Field::Home);
    if (Has(Field::Mode) && !ParseMode(Get(Field::Mode))) {
        Refuse(Text("\"%s\" is no mode", Get(Field::Mode)), Text("write octal digits, as 0750"));
    }
    if (!name.empty() && !IsAccountName(name)) {
        Refuse(
            Text("\"%s\" is no name for a user", name),
            Text("write up to 31 letters, digits, \"_\" and \"-\", a letter first")
        );
    }
    if (!home.empty() && home != "-" && (home.front() != '/' || !IsDescription(home))) {
        Refuse(
            Text("\"%s\" is no home directory", home),
            Text("write an absolute path, or \"-\" for none")
        );
    }
    if (!IsDescription(Get(Field::Description))) {
        Refuse(
            Text("a user's description has a character that it cannot have"),
            Text("write it without colons, quotes and backslashes")
        );
    }
    for (const Field field : {Field::Owner, Field::Group}) {
        if (Get(field).find_first_of(":/ ") != std::string::npos) {
            Refuse(
                Text("\"%s\" is no name or number of an owner", Get(field)),
                Text("write mode=set,PATH,MODE[,OWNER[,GROUP]]")
            );
        }
    }
}

std::size_t KSetupRuleLine::IndexOf(KSetupField field) const noexcept {
    if (info == nullptr) {
        return 0;
    }
    const auto found = std::find(info->fields.begin(), info->fields.end(), field);
    const auto index = static_cast<std::size_t>(found - info->fields.begin()) + 1;
    return found != info->fields.end() && index < fields.size() ? index : 0;
}

const std::string& KSetupRuleLine::Get(KSetupField field) const noexcept {
    static const std::string nothing;
    const std::size_t index = IndexOf(field);
    return index != 0 ? fields[index] : nothing;
}

std::string KSetupRuleLine::GetSource() const {
    return Has(Field::From) ? Get(Field::From)
                            : JoinPath(Get(Field::FromDirectory), Get(Field::FileName));
}

std::string KSetupRuleLine::GetTarget() const {
    return Has(Field::Path) ? Get(Field::Path)
                            : JoinPath(
                                  Get(Field::ToDirectory),
                                  Has(Field::NewName) ? Get(Field::NewName) : Get(Field::FileName)
                              );
}

unsigned KSetupRuleLine::GetMode() const {
    return ParseMode(Get(Field::Mode)).value_or(0);
}

} // namespace KSETUP
