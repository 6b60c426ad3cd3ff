// SPDX-License-Identifier: MIT
#include <sup++/PathMap.h>
#include <sup++/ThreadSafety.h>

#include <algorithm>
#include <array>
#include <map>
#include <mutex>

#include <sys/KAnnotatedMutex.h>
#include <sys/NeverDestroyed.h>
#include <sys/processes/OwnProcess.h>

namespace KSUP::PathMap {

namespace {

struct Name {
    std::string_view macro;
    unsigned id;
};

/// Shorter ones first, and those of one length in the order of their letters: for a search that
/// hardly compares letters.
constexpr std::array names = std::to_array<Name>({
    {"pathLog", 19},
    {"pathSource", 2},
    {"pathTarget", 57},
    {"pathTargetBin", 54},
    {"pathTargetLin", 44},
    {"pathTargetLog", 59},
    {"pathTargetMac", 47},
    {"pathTargetWin", 42},
    {"pathTargetTemp", 60},
    {"pathSourceBinX86", 50},
    {"pathSourceWinX86", 39},
    {"pathTargetBinX86", 53},
    {"pathTargetConfig", 55},
    {"pathTargetLinX86", 46},
    {"pathTargetMacX86", 49},
    {"pathTargetWinX86", 43},
    {"pathTargetDatabase", 58},
    {"pathTargetResource", 56},
    {"pathSourceBinX86_64", 51},
    {"pathSourceWinX86_64", 40},
    {"pathTargetBinX86_64", 52},
    {"pathTargetLinX86_64", 45},
    {"pathTargetMacX86_64", 48},
    {"pathTargetWinX86_64", 41},
});

constexpr bool Before(const Name& left, const Name& right) {
    return left.macro.size() != right.macro.size() ? left.macro.size() < right.macro.size()
                                                   : left.macro < right.macro;
}
static_assert(std::is_sorted(names.begin(), names.end(), Before));

using Entries = std::map<unsigned, KString>;

struct Table {
    KSYS::KAnnotatedMutex<std::mutex> guard;
    Entries entries SUP_GUARDED_BY(guard) = {{2, KSYS::ProgramDirectory()}, {19, "/var/log/"}};
};

Table& TheTable() {
    static KSYS::NeverDestroyed<Table> table;
    return table.Get();
}

} // namespace

KString Get(unsigned id) {
    Table& table = TheTable();
    const KSYS::KScopedLock hold(table.guard);
    const auto entry = table.entries.find(id);
    return entry != table.entries.end() ? entry->second : KString();
}

void Set(unsigned id, const KString& path) {
    Table& table = TheTable();
    const KSYS::KScopedLock hold(table.guard);
    table.entries[id] = path;
}

bool AppendByMacro(std::string_view name, std::string& target) {
    const auto* known = std::lower_bound(names.begin(), names.end(), Name{name, 0}, Before);
    if (known == names.end() || known->macro != name) {
        return false;
    }
    Table& table = TheTable();
    const KSYS::KScopedLock hold(table.guard);
    const auto entry = table.entries.find(known->id);
    if (entry == table.entries.end()) {
        return false;
    }
    target.append(entry->second.c_str(), entry->second.GetSize());
    return true;
}

void AppendNames(std::vector<KString>& appendTo) {
    for (const Name& name : names) {
        appendTo.emplace_back(std::string(name.macro));
    }
}

} // namespace KSUP::PathMap
