// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/plan/KeptFiles.h>
#include <setup/script/CommandWords.h>

#include <filesystem>
#include <system_error>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;

/// Goes through the rules of a removal.
class Search {
  public:
    explicit Search(const std::string& kitDirectory) : kit(NormalPath(kitDirectory)) {}

    void LookAt(const KPlannedRule& planned) {
        bool isUnderstood = planned.rule.line.type == "section";
        for (const KPlannedAction& action : planned.actions) {
            if (action.kind == Kind::CopyFile) {
                isUnderstood = true;
                KeepIfInKit(NormalPath(*action.source));
            } else if (action.kind == Kind::StartCommand) {
                isUnderstood = true;
                LookAtCommand(planned.rule.line, *action.path);
            }
        }
        if (!isUnderstood && !planned.actions.empty()) {
            LookAtFields(planned.rule);
        }
    }

    KKeptFiles found;

  private:
    /// Whether it is a file of the kit. One that is not there is another finding.
    bool KeepIfInKit(const std::string& path) {
        std::error_code error;
        if (path == kit || !IsAtOrBelow(path, kit) ||
            !std::filesystem::is_regular_file(path, error)) {
            return false;
        }
        found.files.insert(path.substr(kit.size() + 1));
        return true;
    }

    /// Where the kit's path begins in a text; npos where it is not in it.
    std::size_t FindKit(const std::string& text) const {
        std::size_t at = text.find(kit);
        while (at != std::string::npos) {
            const std::size_t end = at + kit.size();
            const bool begins = at == 0 || text.find_last_of("=:,@", at - 1) == at - 1;
            if (begins && (end == text.size() || text[end] == '/')) {
                return at;
            }
            at = text.find(kit, at + 1);
        }
        return at;
    }

    void LookAtCommand(const KScriptLine& line, const std::string& command) {
        for (const KCommandWord& word : WordsOf(command)) {
            const std::size_t at = FindKit(word.text);
            if (at != std::string::npos &&
                (word.isExpanded || !KeepIfInKit(NormalPath(word.text.substr(at))))) {
                found.untold.push_back({&line, word.text});
            }
        }
    }

    /// Of the other rules those with a directory have a name before it.
    void LookAtFields(const KScriptRule& rule) {
        for (std::size_t at = 1; at < rule.fields.size(); ++at) {
            const std::string& field = rule.fields[at];
            if (FindKit(field) == 0 && !KeepIfInKit(NormalPath(field)) &&
                !KeepIfInKit(NormalPath(JoinPath(field, rule.fields[1])))) {
                found.untold.push_back({&rule.line, field});
            }
        }
    }

    const std::string kit;
};

} // namespace

KKeptFiles FindKeptFiles(const KPlan& remove, const std::string& kitDirectory) {
    Search search(kitDirectory);
    for (const KPlannedRule& rule : remove.GetRules()) {
        search.LookAt(rule);
    }
    return std::move(search.found);
}

} // namespace KSETUP
