// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/KSetupFailure.h>
#include <setup/files/TrustedPath.h>
#include <setup/plan/KPlannedTree.h>
#include <setup/plan/ValueMacros.h>
#include <setup/script/SecretNames.h>
#include <setup/state/KKeptKit.h>
#include <sup++/SvcData.h>

#include <algorithm>
#include <new>
#include <optional>
#include <vector>

namespace KSETUP {

namespace {

constexpr std::string_view secretMark = "$--secret ";
constexpr std::string_view optionMark = "$--value ";

void SetValueMacro(const std::string& name, const std::string& value) {
    if (SvcSetCustomKey(0, 0, name.c_str(), value.c_str()) != 0) {
        throw std::bad_alloc(); // the one thing that can be wrong
    }
}

/// The engine expands a line of a profile, splits it at its commas, and expands each part once more. So what
/// stands behind another macro comes through as it is, and can be told from what anybody may see.
void SetHidden(const KDeclaredValue& value, std::string_view mark, const std::string& text) {
    const std::string inner = std::string(mark) + value.name + "$";
    SetValueMacro(inner.substr(1, inner.size() - 2), text);
    SetValueMacro(value.name, inner);
}

/// Where the script puts a value.
struct Put {
    const KDeclaredValue* value;
    std::string path;
    std::string section;
    std::string key;
    bool isWhole; ///< nothing stands beside the value
};

std::vector<Put> FindPuts(const KSetupKit& kit, const KMacroContext& macros) {
    std::vector<Put> puts;
    for (const KValueUse& use : FindValueUses(KScript(kit.GetScript()), kit.GetValues())) {
        const std::vector<std::string> fields = WrittenFields(use.line.value);
        if (use.isOption) { // expanded as the engine does it: a path once, all else twice
            puts.push_back(
                {use.value,
                 macros.Expand(fields[1]),
                 macros.Expand(macros.Expand(fields[2])),
                 macros.Expand(macros.Expand(fields[3])),
                 fields[use.field] == "$" + use.value->name + "$"}
            );
        }
    }
    return puts;
}

/// Others than root may write to a configuration. What they write is theirs to choose as long as it comes back to
/// that file only, and does not get into another one or into a command.
bool MayBelieve(const Put& put, const std::vector<Put>& all) {
    const bool isOfOneFile =
        put.value->isOptionOnly && std::all_of(all.begin(), all.end(), [&](const Put& one) {
            return one.value != put.value || one.path == put.path;
        });
    return isOfOneFile || WhyOthersCanExchange(put.path).empty();
}

/// The options of the installed product that the script sets to a value and nothing else.
void ReadStanding(
    const KSetupKit& kit,
    const KMacroContext& macros,
    const std::shared_ptr<KDiskView>& view,
    KValueTexts& texts
) {
    const KPlannedTree tree(KPlannedTree::Below::Disk, kit.GetDirectory(), view);
    const std::vector<Put> puts = FindPuts(kit, macros);
    for (const Put& put : puts) {
        if (!put.isWhole || tree.FindTarget(put.path).kind != KEntryKind::File ||
            !MayBelieve(put, puts)) {
            continue;
        }
        for (const KPlannedTree::Option& option : tree.ReadOptions(put.path, put.section)) {
            if (option.key == put.key) {
                texts.emplace(put.value->name, option.value); // the first one, as it is read
            }
        }
    }
}

} // namespace

void SetValueMacros(const std::vector<KDeclaredValue>& values, const KValueTexts& texts) {
    for (const KDeclaredValue& value : values) {
        const auto text = texts.find(value.name);
        if (text == texts.end()) {
            continue;
        }
        if (value.isSecret) {
            SetHidden(value, secretMark, maskedValue);
        } else if (value.isOptionOnly) {
            SetHidden(value, optionMark, text->second);
        } else {
            SetValueMacro(value.name, text->second);
        }
    }
}

void RevealSecrets(const std::vector<KDeclaredValue>& values, const KValueTexts& texts) {
    for (const KDeclaredValue& value : values) {
        const auto text = texts.find(value.name);
        if (value.isSecret && text != texts.end()) {
            SetHidden(value, secretMark, text->second);
        }
    }
}

bool HidesValue(std::string_view field) noexcept {
    return field.find(secretMark) != std::string_view::npos;
}

std::string KeptValuesText(const std::vector<KDeclaredValue>& values, const KValueTexts& texts) {
    std::string kept;
    for (const KDeclaredValue& value : values) {
        const auto text = texts.find(value.name);
        if (!value.isSecret && text != texts.end()) {
            kept += value.name + "=" + text->second + "\n";
        }
    }
    return kept;
}

KValueTexts ReadKeptValues(const std::string& service) {
    KValueTexts texts;
    try {
        const std::string text = KKeptKit::ReadFile(service, keptValuesFile).value_or("");
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = std::min(text.find('\n', at), text.size());
            const std::size_t equals = text.find('=', at);
            if (equals < end) {
                texts.emplace(
                    text.substr(at, equals - at), text.substr(equals + 1, end - equals - 1)
                );
            }
            at = end + 1;
        }
    } catch (const KSetupFailure&) { // who may not look plans by what can be known
        return {};
    }
    return texts;
}

KKnownValues FindKnownValues(
    const KSetupKit& kit,
    const KMacroContext& macros,
    const KValueTexts& given,
    bool isInstalled,
    const std::shared_ptr<KDiskView>& view
) {
    KKnownValues known;
    if (kit.GetValues().empty()) {
        return known;
    }
    KValueTexts former;
    if (isInstalled) {
        ReadStanding(kit, macros, view, former);
        former.merge(ReadKeptValues(macros.Expand("$serviceName$")));
    }
    for (const KDeclaredValue& value : kit.GetValues()) {
        const auto now = given.find(value.name);
        const auto before = former.find(value.name);
        if (now != given.end()) {
            known.texts.insert(*now);
        } else if (before != former.end()) {
            const KText why = WhyNotValue(value, before->second);
            if (why.empty()) {
                known.texts.insert(*before);
            } else {
                known.unfit.emplace(value.name, why);
            }
        } else if (value.standard) {
            known.texts.emplace(value.name, *value.standard);
            known.standards.insert(value.name);
        }
    }
    return known;
}

KValueTexts FindRemovalValues(const KSetupKit& kit, const std::string& service) {
    KValueTexts texts;
    const KValueTexts kept = kit.GetValues().empty() ? KValueTexts() : ReadKeptValues(service);
    for (const KDeclaredValue& value : kit.GetValues()) {
        const auto known = kept.find(value.name);
        if (known != kept.end() && WhyNotValue(value, known->second).empty()) {
            texts.insert(*known);
        } else if (value.standard) {
            texts.emplace(value.name, *value.standard);
        }
    }
    return texts;
}

} // namespace KSETUP
