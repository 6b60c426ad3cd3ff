// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/plan/KeptFiles.h>

namespace KSETUP::Checks {

Findings FilesNotKept(const KCheckContext& context) {
    Findings found;
    for (const KKeptFiles::Untold& untold :
         FindKeptFiles(context.GetRemove(), context.GetKitDirectory()).untold) {
        found.push_back(context.AtValue(
            *untold.line,
            Text(
                "the removal uses the kit, and \"%s\" does not tell which file of it; without the "
                "kit this rule will not work",
                untold.text
            ),
            Text("name each file by itself, as \"$pathSource$cleanup.sh\"")
        ));
    }
    return found;
}

} // namespace KSETUP::Checks
