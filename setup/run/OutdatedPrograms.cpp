// SPDX-License-Identifier: MIT
#include <setup/run/OutdatedPrograms.h>

#include <set>

#include <sys/processes/ReplacedFilesInUse.h>

namespace KSETUP {

std::vector<std::string> DescribeOutdatedPrograms(const KManifest& manifest) {
    std::vector<std::string> sentences;
    std::set<std::string> services;
    const auto isOurs = [&](const std::string& path) { return manifest.Find(path) != nullptr; };
    for (const KSYS::ReplacedFileInUse& one : KSYS::FindReplacedFilesInUse(isOurs)) {
        if (one.service.empty()) {
            sentences.push_back(
                one.name + " (" + std::to_string(one.id) + ") still uses the former " + one.file +
                "; start it again."
            );
        } else if (services.insert(one.service).second) {
            sentences.push_back(
                "The service " + one.service + " still uses the former " + one.file +
                "; systemctl restart " + one.service + "."
            );
        }
    }
    return sentences;
}

} // namespace KSETUP
