// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/state/KJsonLine.h>
#include <setup/state/KRunState.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <limits>
#include <stdexcept>

#include <sys/files/FileContent.h>
#include <sys/files/PathWalk.h>

namespace KSETUP {

namespace {

constexpr std::size_t ruleDigits = 10;
constexpr const char* installs = "install";
constexpr const char* removes = "remove";
constexpr const char* restores = "restore";

/// The command that does it, and that goes on.
const char* CommandOf(KRunDescription::Action action) noexcept {
    return action == KRunDescription::Action::Install  ? installs
           : action == KRunDescription::Action::Remove ? removes
                                                       : restores;
}

std::array<char, ruleDigits + 1> RuleText(unsigned number) noexcept {
    std::array<char, ruleDigits + 1> text{};
    std::snprintf(text.data(), text.size(), "%010u", number);
    return text;
}

unsigned ToNumber(std::uint64_t number) {
    if (number > std::numeric_limits<unsigned>::max()) {
        throw std::invalid_argument("a number that is too large");
    }
    return static_cast<unsigned>(number);
}

KInterruptedRun Understood(const std::string& text) {
    KInterruptedRun run;
    const char* const end = text.data() + ruleDigits;
    if (text.size() <= ruleDigits || text[ruleDigits] != '\n' ||
        std::from_chars(text.data(), end, run.rule).ptr != end) {
        throw std::invalid_argument("no number in its first line");
    }
    const KJsonLine line(std::string_view(text).substr(ruleDigits + 1));
    const std::string action = line.GetText("action");
    if (action != installs && action != removes && action != restores) {
        throw std::invalid_argument("an unknown action");
    }
    run.action = action == installs  ? KRunDescription::Action::Install
                 : action == removes ? KRunDescription::Action::Remove
                                     : KRunDescription::Action::Restore;
    run.product = line.GetText("product");
    run.version = line.GetText("version");
    run.buildNumber = line.Has("buildNumber") ? ToNumber(line.GetNumber("buildNumber")) : 0;
    run.path = line.GetText("path");
    run.ruleCount = ToNumber(line.GetNumber("rules"));
    run.run = line.Has("run") ? line.GetText("run") : "";
    run.services = line.Has("services") ? line.GetText("services") : "";
    run.temporaries = line.Has("temporaries") ? ToNumber(line.GetNumber("temporaries")) : 0;
    return run;
}

} // namespace

KText KInterruptedRun::ToWords() const {
    if (!damage.empty()) {
        return Text(
            "%s: a run was interrupted, but which one is not known. Run \"ins-setup %s\" or \"%s\" "
            "again to go on.",
            damage,
            installs,
            removes
        );
    }
    if (action == Action::Restore) {
        return Text(
            "restoring %s was interrupted. Run \"ins-setup %s\" again to go on.", product, restores
        );
    }
    const bool install = action == Action::Install;
    const KText place = ruleCount == 0 ? ""
                        : rule == 0
                            ? Counted(
                                  ruleCount,
                                  " before the first of its %s rules",
                                  " before the first of its %s rules"
                              )
                            : Text(" at rule %s of %s", std::min(rule, ruleCount), ruleCount);
    return Text(
        install ? TextFormat("installing %s %s in %s was interrupted%s. Run \"ins-setup %s\" again "
                             "to go on.")
                : TextFormat("removing %s %s from %s was interrupted%s. Run \"ins-setup %s\" again "
                             "to go on."),
        product,
        version,
        path,
        place,
        CommandOf(action)
    );
}

KRunState::KRunState(const std::string& serviceName, const std::string& base)
    : directory(base, serviceName) {}

void KRunState::Begin(const KRunDescription& run) {
    KJsonLine line;
    line.Put("action", CommandOf(run.action));
    line.Put("product", run.product);
    line.Put("version", run.version);
    line.Put("buildNumber", std::uint64_t{run.buildNumber});
    line.Put("path", run.path);
    line.Put("rules", std::uint64_t{run.ruleCount});
    if (!run.services.empty()) {
        line.Put("services", run.services);
    }
    line.Put("run", run.run);
    line.Put("temporaries", std::uint64_t{KSYS::TemporaryKey()});
    directory.WriteDurably(fileName, std::string(RuleText(0).data()) + "\n" + line.ToText());
    rule = 0;
    file = directory.Open(fileName, O_WRONLY);
}

void KRunState::SetRule(unsigned number) noexcept {
    if (file.IsOpen() && number != rule) {
        const auto text = RuleText(number);
        // A number that cannot be written makes the report less exact; the run need not end for it.
        static_cast<void>(KSYS::WriteAt(file.Get(), text.data(), ruleDigits, 0));
        rule = number;
    }
}

void KRunState::End() {
    file.Reset();
    directory.Delete(fileName);
}

std::optional<KInterruptedRun> KRunState::Read(
    const std::string& serviceName, const std::string& base, const KSYS::LockPlaces& locks
) {
    const auto found = KPrivateDirectory::OpenExisting(base, serviceName);
    if (!found || KRunLock::FindHolder(serviceName, locks)) {
        return std::nullopt;
    }
    const std::optional<std::string> text = found->Read(fileName);
    if (!text) {
        return std::nullopt;
    }
    try {
        return Understood(*text);
    } catch (const std::invalid_argument& what) {
        KInterruptedRun unknown;
        unknown.damage =
            Text("%s/%s cannot be understood (%s)", found->GetPath(), fileName, what.what());
        return unknown;
    }
}

} // namespace KSETUP
