// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include <sys/services/ServiceJournal.h>
#include <systemd/sd-journal.h>

namespace KSYS {

namespace {

struct Close {
    void operator()(sd_journal* journal) const noexcept { ::sd_journal_close(journal); }
};
using Journal = std::unique_ptr<sd_journal, Close>;

Journal OpenFor(const std::string& unit) {
    sd_journal* opened = nullptr;
    if (::sd_journal_open(&opened, SD_JOURNAL_LOCAL_ONLY) < 0) {
        return nullptr;
    }
    Journal journal(opened);
    const bool isMatched =
        ::sd_journal_add_match(opened, ("_SYSTEMD_UNIT=" + unit).c_str(), 0) >= 0 &&
        ::sd_journal_add_disjunction(opened) >= 0 &&
        ::sd_journal_add_match(opened, "_PID=1", 0) >= 0 &&
        ::sd_journal_add_match(opened, ("UNIT=" + unit).c_str(), 0) >= 0 &&
        ::sd_journal_seek_tail(opened) >= 0;
    return isMatched ? std::move(journal) : nullptr;
}

} // namespace

std::vector<std::string> ReadServiceJournal(
    const std::string& service, std::chrono::system_clock::time_point since, std::size_t most
) {
    std::vector<std::string> lines;
    const Journal journal = OpenFor(service + ".service");
    const auto first = static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(since.time_since_epoch()).count()
    );
    while (journal && lines.size() < most && ::sd_journal_previous(journal.get()) > 0) {
        std::uint64_t time = 0;
        const void* data = nullptr;
        std::size_t size = 0;
        if (::sd_journal_get_realtime_usec(journal.get(), &time) < 0 || time < first) {
            break;
        }
        if (::sd_journal_get_data(journal.get(), "MESSAGE", &data, &size) >= 0) {
            const std::string_view field(static_cast<const char*>(data), size);
            lines.emplace_back(field.substr(std::min(field.find('=') + 1, field.size())));
        }
    }
    std::reverse(lines.begin(), lines.end());
    return lines;
}

} // namespace KSYS
