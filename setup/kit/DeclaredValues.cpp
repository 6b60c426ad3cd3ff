// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/kit/DeclaredValues.h>
#include <setup/kit/ValuePattern.h>
#include <setup/script/KMacroContext.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <set>
#include <utility>

namespace KSETUP {

namespace {

// Of a value typed at a terminal, which takes 4095 bytes and drops the rest: what was cut off is refused.
constexpr std::size_t mostValueBytes = 4000;
constexpr std::size_t mostMatchedBytes = 1000; // of a value with a pattern
constexpr std::size_t longestValueName = 64;
constexpr std::size_t mostLines = 400;  // each is held against all before it
constexpr std::size_t optionFields = 5; // of profile=put,PATH,SECTION,KEY,VALUE
constexpr const char* textField = "text";
constexpr const char* patternField = "pattern";
constexpr const char* secretField = "secret";

bool IsLetter(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

bool IsValueName(std::string_view name) {
    return !name.empty() && name.size() <= longestValueName && IsLetter(name.front()) &&
           std::all_of(name.begin(), name.end(), [](char byte) {
               return IsLetter(byte) || (byte >= '0' && byte <= '9') || byte == '_';
           });
}

/// NAME or NAME.FIELD, as the key of a line has them.
std::pair<std::string, std::string> Parts(const KScriptLine& line) {
    const std::size_t dot = line.type.find('.');
    return {line.type.substr(0, dot), dot == std::string::npos ? "" : line.type.substr(dot + 1)};
}

bool IsField(const std::string& field) {
    return field.empty() || field == textField || field == patternField || field == secretField;
}

/// Why a line declares nothing, with what to do; both empty for one that does.
std::pair<KText, KText> MistakeOf(const KScriptLine& line) {
    const auto [name, field] = Parts(line);
    if (!IsValueName(name)) {
        return {
            Text("\"%s\" is no name of a value", name),
            Text("write up to %s letters, digits and \"_\", a letter first", longestValueName)};
    }
    if (!IsField(field) || line.type.ends_with('.')) {
        return {
            Text("a value has no \"%s\"", field),
            Text("write %s=DEFAULT, %s.text, %s.pattern or %s.secret", name, name, name, name)};
    }
    const std::vector<std::string> known = KMacroContext::GetNames();
    if (std::find(known.begin(), known.end(), name) != known.end()) {
        return {Text("$%s$ is a macro already", name), Text("choose another name")};
    }
    if (field == secretField && line.value != "yes" && line.value != "no") {
        return {Text("\"%s\" is neither yes nor no", line.value), Text("write yes or no")};
    }
    if (field == patternField) {
        if (KText why = WhyNoPattern(line.value); !why.empty()) {
            return {
                Text("\"%s\" is no pattern: %s", line.value, why),
                Text("write an extended regular expression, as [0-9]{1,5}")};
        }
    }
    return {};
}

std::vector<KScriptLine> DeclaringLines(const KScript& productData) {
    std::vector<KScriptLine> lines = productData.GetLines(valuesSection);
    lines.resize(std::min(lines.size(), mostLines));
    return lines;
}

/// Those lines that declare something, the first one of each key.
std::vector<KScriptLine> SoundLines(const KScript& productData) {
    std::vector<KScriptLine> sound;
    for (KScriptLine& line : DeclaringLines(productData)) {
        const bool isAgain = std::any_of(sound.begin(), sound.end(), [&](const auto& one) {
            return one.type == line.type;
        });
        if (!isAgain && MistakeOf(line).first.empty()) {
            sound.push_back(std::move(line));
        }
    }
    return sound;
}

void Take(KDeclaredValue& value, const std::string& field, const std::string& text) {
    if (field.empty()) {
        value.standard = text;
    } else if (field == textField) {
        value.text = text;
    } else if (field == patternField) {
        value.pattern = text;
    } else {
        value.isSecret = text == "yes";
    }
}

/// What is wrong with all lines of a value together, told at its default.
std::pair<KText, KText> MistakeOf(const KDeclaredValue& value) {
    if (!value.standard) {
        return {};
    }
    if (value.isSecret) {
        return {
            Text("a default of a secret is in the kit, which all can read"),
            Text("take the default out, so that it has to be given")};
    }
    if (KText why = WhyNotValue(value, *value.standard); !why.empty()) {
        return {
            Text("the default of \"%s\" is invalid: %s", value.name, why),
            Text("write another default, or take it out")};
    }
    return {};
}

} // namespace

std::vector<KDeclaredValue> ReadDeclaredValues(const KScript& productData) {
    std::vector<KDeclaredValue> values;
    for (const KScriptLine& line : SoundLines(productData)) {
        const auto parts = Parts(line);
        const std::string& name = parts.first;
        auto known = std::find_if(values.begin(), values.end(), [&](const auto& one) {
            return one.name == name;
        });
        if (known == values.end()) {
            known = values.insert(known, {name, name, std::nullopt, "", false, true, line.number});
        }
        Take(*known, parts.second, line.value);
    }
    return values;
}

std::vector<KProductMistake> FindValueMistakes(const KScript& productData) {
    std::vector<KProductMistake> found;
    std::vector<std::string> keys;
    const auto tell = [&](const KScriptLine& line, std::pair<KText, KText> mistake) {
        if (!mistake.first.empty()) {
            found.push_back(
                {line.number, 1, line.type, std::move(mistake.first), std::move(mistake.second)}
            );
        }
    };
    const std::vector<KDeclaredValue> values = ReadDeclaredValues(productData);
    for (const KScriptLine& line : DeclaringLines(productData)) {
        if (std::find(keys.begin(), keys.end(), line.type) != keys.end()) {
            tell(line, {Text("\"%s\" stands here twice", line.type), Text("take one out")});
        }
        keys.push_back(line.type);
        tell(line, MistakeOf(line));
        const auto value = std::find_if(values.begin(), values.end(), [&](const auto& one) {
            return one.name == line.type;
        });
        if (value != values.end()) {
            tell(line, MistakeOf(*value));
        }
    }
    if (const auto all = productData.GetLines(valuesSection); all.size() > mostLines) {
        tell(
            all[mostLines],
            {Text("section [values] has more than %s lines", mostLines),
             Text("declare fewer values")}
        );
    }
    return found;
}

KText WhyNotValue(const KDeclaredValue& value, std::string_view text) {
    const std::size_t most = value.pattern.empty() ? mostValueBytes : mostMatchedBytes;
    if (text.size() > most) {
        return Text("it is longer than %s bytes", most);
    }
    if (HasControlCharacter(text)) {
        return Text("it has a control character");
    }
    if (!value.isOptionOnly && text.find_first_of(",$") != std::string_view::npos) {
        return Text("it has a comma or a dollar sign, which the rules that use it cannot hold");
    }
    if (!value.pattern.empty() && !MatchesPattern(std::string(text), value.pattern)) {
        return Text("it has to match %s", value.pattern);
    }
    return {};
}

std::vector<KValueUse>
FindValueUses(const KScript& script, const std::vector<KDeclaredValue>& values) {
    std::vector<KValueUse> uses;
    if (values.empty()) {
        return uses;
    }
    std::set<std::string_view> seen; // a section may have several headers
    for (const KScript::Header& header : script.GetHeaders()) {
        if (!seen.insert(header.name).second) {
            continue;
        }
        for (const KScriptLine& line : script.GetLines(header.name)) {
            const std::vector<std::string> fields = WrittenFields(line.value);
            const bool isPut = line.type == "profile" && fields.size() == optionFields &&
                               Lowered(std::string(Trimmed(fields.front()))) == "put" &&
                               std::find(fields.begin(), fields.end(), "") == fields.end();
            for (const KDeclaredValue& value : values) {
                const std::string macro = "$" + value.name + "$";
                for (std::size_t field = 0; field < fields.size(); ++field) {
                    const std::size_t at = fields[field].find(macro);
                    if (at != std::string::npos) {
                        uses.push_back({&value, line, field, at, isPut && field + 1 == optionFields}
                        );
                    }
                }
            }
        }
    }
    return uses;
}

KText WhyNotUse(const KValueUse& use) {
    if (use.line.type == KINS::Names::defaultPathKey) {
        return Text("the product path is chosen before the value is known");
    }
    if (use.value->isSecret && !use.isOption) {
        return Text(
            "$%s$ is a secret, and all but the value of profile=put is shown", use.value->name
        );
    }
    return {};
}

} // namespace KSETUP
