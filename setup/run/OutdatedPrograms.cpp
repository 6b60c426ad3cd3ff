// SPDX-License-Identifier: MIT
#include <setup/run/OutdatedPrograms.h>

#include <set>

#include <sys/processes/ReplacedFilesInUse.h>

namespace KSETUP {

std::vector<KText>
DescribeOutdatedPrograms(const std::function<bool(const std::string& path)>& isOurs) {
    std::vector<KText> sentences;
    std::set<std::string> services;
    for (const KSYS::ReplacedFileInUse& one : KSYS::FindReplacedFilesInUse(isOurs)) {
        if (one.service.empty()) {
            sentences.push_back(Text(
                "%s (%s) still uses the former %s; start it again.", one.name, one.id, one.file
            ));
        } else if (services.insert(one.service).second) {
            sentences.push_back(Text(
                "The service %s still uses the former %s; systemctl restart %s.",
                one.service,
                one.file,
                one.service
            ));
        }
    }
    return sentences;
}

} // namespace KSETUP
