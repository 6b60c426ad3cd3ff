// SPDX-License-Identifier: MIT
#include <setup/preflight/RunningPrograms.h>

#include <sys/processes/ProgramsInUse.h>

namespace KSETUP {

std::vector<std::string> FindRunningPrograms(const KPlan& plan) {
    std::vector<std::string> running;
    for (const KSYS::ProgramInUse& one : KSYS::FindProgramsInUse(plan.FindFilesThatGo())) {
        running.push_back(one.name + " (" + std::to_string(one.id) + "), " + one.file);
    }
    return running;
}

} // namespace KSETUP
