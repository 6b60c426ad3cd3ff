// SPDX-License-Identifier: MIT
#include <setup/run/KRunWork.h>

#include <algorithm>

namespace KSETUP {

namespace {

// What takes about as long as the copy of so many bytes.
constexpr std::uint64_t ruleCost = 1ULL << 20U;
constexpr std::uint64_t programCost = 16ULL << 20U;
constexpr std::uint64_t entryCost = 1ULL << 14U;
constexpr unsigned mostPercent = 99;
/// What a command made is in no plan; it is not looked for through all of a large one.
constexpr std::size_t mostLookedAt = 64;

bool IsEntry(KPlannedAction::Kind kind) noexcept {
    return kind == KPlannedAction::Kind::CopyFile || kind == KPlannedAction::Kind::DeleteFile ||
           kind == KPlannedAction::Kind::DeleteDirectory;
}

} // namespace

KRunWork::Sum KRunWork::SumOf(const KPlannedAction& action) noexcept {
    if (!IsEntry(action.kind)) {
        return {};
    }
    const std::uint64_t bytes = action.kind == KPlannedAction::Kind::CopyFile ? action.bytes : 0;
    return {entryCost + bytes, bytes};
}

KRunWork::KRunWork(const std::vector<Rule>& countedRules) {
    Sum sum;
    for (const Rule& rule : countedRules) {
        planned.push_back(rule.planned);
        sums.push_back(sum);
        sum.cost += rule.startsPrograms ? programCost : ruleCost;
        if (rule.planned != nullptr) {
            for (const KPlannedAction& action : rule.planned->actions) {
                const Sum its = SumOf(action);
                sum.cost += its.cost;
                sum.bytes += its.bytes;
            }
        }
    }
    sums.push_back(sum);
}

void KRunWork::BeginRule(std::size_t rule) {
    current = std::min(rule, planned.size());
    next = 0;
    before = {};
    entry = {};
    done = 0;
}

void KRunWork::BeginEntry(const std::string& path) {
    before.cost += entry.cost;
    before.bytes += entry.bytes;
    entry = {};
    done = 0;
    if (current >= planned.size() || planned[current] == nullptr) {
        return;
    }
    const std::vector<KPlannedAction>& actions = planned[current]->actions;
    const std::size_t end = std::min(actions.size(), next + mostLookedAt);
    for (std::size_t at = next; at < end; ++at) {
        if (IsEntry(actions[at].kind) && *actions[at].path == path) {
            for (; next < at; ++next) {
                const Sum its = SumOf(actions[next]);
                before.cost += its.cost;
                before.bytes += its.bytes;
            }
            entry = SumOf(actions[at]);
            next = at + 1;
            return;
        }
    }
}

void KRunWork::SetPart(double part) noexcept {
    done = std::clamp(part, 0.0, 1.0);
}

unsigned KRunWork::GetPercent() noexcept {
    const double all = static_cast<double>(sums.back().cost);
    const double reached = static_cast<double>(sums[current].cost + before.cost) +
                           done * static_cast<double>(entry.cost);
    const auto whole = all > 0 ? static_cast<unsigned>(reached / all * 100) : 0U;
    percent = std::max(percent, std::min(whole, mostPercent));
    return percent;
}

std::uint64_t KRunWork::GetBytesDone() const noexcept {
    return sums[current].bytes + before.bytes +
           static_cast<std::uint64_t>(done * static_cast<double>(entry.bytes));
}

} // namespace KSETUP
