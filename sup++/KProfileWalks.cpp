// SPDX-License-Identifier: MIT
#include <sup++/KProfileWalks.h>

#include <algorithm>
#include <deque>
#include <utility>

namespace KSUP {

namespace {

/// Positions from here on stand before the first key of a section.
constexpr unsigned beginnings = 0x80000000U;

std::vector<std::uint32_t> KeyLines(const KProfileText& text, std::string_view section) {
    std::vector<std::uint32_t> lines;
    for (unsigned at = text.Next(section, 0); at != 0; at = text.Next(section, at)) {
        lines.push_back(at);
    }
    return lines;
}

/// Which lines of one section are which after others changed it.
class KMatch {
  public:
    KMatch(const KProfileText& before, const KProfileText& after) : former(before), now(after) {}

    /// `formerOf` tells for each line of `after` which one of `before` it was.
    void Match(std::string_view section, std::vector<std::uint32_t>& formerOf) const {
        const std::vector<std::uint32_t> before = KeyLines(former, section);
        const std::vector<std::uint32_t> after = KeyLines(now, section);
        if (!MatchUnchanged(before, after, formerOf)) {
            MatchWholeLines(before, after, formerOf);
            MatchOnlyKeys(before, after, formerOf);
        }
    }

  private:
    using Lines = std::vector<std::uint32_t>;

    /// Only a shortcut: most changes are in another section.
    bool MatchUnchanged(const Lines& before, const Lines& after, Lines& formerOf) const {
        const bool isSame = std::equal(
            before.begin(),
            before.end(),
            after.begin(),
            after.end(),
            [this](std::uint32_t line, std::uint32_t other) {
                return former.KeyAt(line) == now.KeyAt(other) &&
                       former.ValueAt(line) == now.ValueAt(other);
            }
        );
        for (std::size_t index = 0; isSame && index < after.size(); ++index) {
            formerOf[after[index]] = before[index];
        }
        return isSame;
    }

    void MatchWholeLines(const Lines& before, const Lines& after, Lines& formerOf) const {
        std::map<std::pair<std::string_view, std::string_view>, std::deque<std::uint32_t>> left;
        for (const std::uint32_t line : before) {
            left[{former.KeyAt(line), former.ValueAt(line)}].push_back(line);
        }
        for (const std::uint32_t line : after) {
            const auto same = left.find({now.KeyAt(line), now.ValueAt(line)});
            if (same != left.end() && !same->second.empty()) {
                formerOf[line] = same->second.front();
                same->second.pop_front();
            }
        }
    }

    /// A key that the section has once, before and after, is the same one with another value.
    void MatchOnlyKeys(const Lines& before, const Lines& after, Lines& formerOf) const {
        std::map<std::string_view, Lines> formerLines;
        std::map<std::string_view, Lines> lines;
        for (const std::uint32_t line : before) {
            formerLines[former.KeyAt(line)].push_back(line);
        }
        for (const std::uint32_t line : after) {
            lines[now.KeyAt(line)].push_back(line);
        }
        for (const auto& [key, those] : lines) {
            const auto known = formerLines.find(key);
            if (those.size() == 1 && known != formerLines.end() && known->second.size() == 1) {
                formerOf[those.front()] = known->second.front();
            }
        }
    }

    const KProfileText& former;
    const KProfileText& now;
};

} // namespace

std::uint32_t KProfileWalks::IdOf(std::string_view section) {
    const auto known = ids.find(section);
    if (known != ids.end()) {
        return known->second;
    }
    const auto id = static_cast<std::uint32_t>(sections.size());
    sections.push_back({std::string(section), {Chain()}});
    ids.emplace(section, id);
    return id;
}

unsigned KProfileWalks::Begin(std::string_view section) {
    return beginnings + IdOf(section);
}

unsigned KProfileWalks::Next(const KProfileText& text, unsigned position) const {
    const bool begins = position >= beginnings;
    const std::size_t section = begins ? position - beginnings : 0;
    if (begins && section >= sections.size()) {
        return 0;
    }
    if (!isMade) {
        return begins ? text.Next(sections[section].name, 0) : text.NextBehind(position);
    }
    if (!begins && position >= steps.size()) {
        return 0;
    }
    unsigned next = begins ? sections[section].chains.back().head : steps[position].next;
    while (next != 0 && !text.IsKey(steps[next].line)) {
        next = steps[next].next;
    }
    return next;
}

std::uint32_t KProfileWalks::LineAt(unsigned position) const noexcept {
    if (!isMade) {
        return position < beginnings ? position : 0;
    }
    return position < steps.size() ? steps[position].line : 0;
}

bool KProfileWalks::IsIn(const KProfileText& text, unsigned position, std::string_view section)
    const {
    if (position == 0 || position >= beginnings) {
        return false;
    }
    if (!isMade) {
        return text.IsIn(position, section);
    }
    return position < steps.size() && sections[steps[position].section].name == section;
}

/// From here on positions are steps: those that were handed out are the numbers of their lines.
void KProfileWalks::MakeSteps(const KProfileText& former) {
    isMade = true;
    steps.assign(former.GetSize(), Step{0, 0, 0});
    for (const std::string_view name : former.GetSections()) {
        const std::uint32_t section = IdOf(name);
        Chain& chain = sections[section].chains.back();
        for (std::uint32_t line = former.NextOrRemoved(name, 0); line != 0;
             line = former.NextOrRemoved(name, line)) {
            steps[line] = {line, 0, section};
            (chain.head == 0 ? chain.head : steps[chain.tail].next) = line;
            chain.tail = line;
        }
    }
}

void KProfileWalks::Append(Chain& chain, std::uint32_t line, std::uint32_t section) {
    const auto step = static_cast<std::uint32_t>(steps.size());
    steps.push_back({line, 0, section});
    (chain.head == 0 ? chain.head : steps[chain.tail].next) = step;
    chain.tail = step;
}

void KProfileWalks::Add(std::string_view section, std::uint32_t line) {
    if (!isMade || line == 0) {
        return;
    }
    const std::uint32_t id = IdOf(section);
    for (Chain& chain : sections[id].chains) {
        Append(chain, line, id);
    }
}

void KProfileWalks::Follow(const KProfileText& former, const KProfileText& now) {
    if (!isMade) {
        MakeSteps(former);
    }
    LineMap rank(former.GetSize(), 0);
    LineMap formerOf(now.GetSize(), 0);
    std::uint32_t count = 0;
    for (const std::string_view name : now.GetSections()) {
        KMatch(former, now).Match(name, formerOf);
        for (const std::uint32_t line : KeyLines(former, name)) {
            rank[line] = ++count;
        }
    }
    LineMap nowOf(former.GetSize(), 0);
    for (std::uint32_t line = 1; line < formerOf.size(); ++line) {
        nowOf[formerOf[line]] = line;
    }
    nowOf[0] = 0;
    for (Step& step : steps) {
        step.line = nowOf[step.line];
    }
    for (const std::string_view name : now.GetSections()) {
        FollowSection(IdOf(name), KeyLines(now, name), formerOf, rank);
    }
}

/// What is new comes to the end of the walks that are on their way. Where that is not the order of
/// the file, or what was there changed its order, walks to come get another chain.
void KProfileWalks::FollowSection(
    std::uint32_t section,
    const std::vector<std::uint32_t>& lines,
    const LineMap& formerOf,
    const LineMap& rank
) {
    std::vector<Chain>& chains = sections[section].chains;
    std::vector<std::uint32_t> ranks;
    for (const std::uint32_t line : lines) {
        const bool isNew = formerOf[line] == 0;
        ranks.push_back(isNew ? UINT32_MAX : rank[formerOf[line]]);
        for (std::size_t index = 0; isNew && index < chains.size(); ++index) {
            Append(chains[index], line, section);
        }
    }
    if (!std::is_sorted(ranks.begin(), ranks.end())) {
        Chain chain;
        for (const std::uint32_t line : lines) {
            Append(chain, line, section);
        }
        chains.push_back(chain);
    }
}

} // namespace KSUP
