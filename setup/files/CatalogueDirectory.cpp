// SPDX-License-Identifier: MIT
#include <setup/files/CatalogueDirectory.h>
#include <setup/files/TrustedPath.h>

#include <filesystem>

#include <sys/processes/OwnProcess.h>
#include <sys/processes/ProcessIsolation.h>

namespace KSETUP {

std::string CatalogueDirectory() {
    // It may end with "/".
    const std::filesystem::path program =
        std::filesystem::path(KSYS::ProgramDirectory() + "/").lexically_normal().parent_path();
    const bool isInTree = program.filename() == "bin" || program.filename() == "sbin";
    const std::filesystem::path found =
        isInTree ? program.parent_path() / "share" / "locale" : program / cataloguesBeside;
    return KSYS::IsRoot() && !WhyOthersCanExchange(found.string()).empty() ? "" : found.string();
}

} // namespace KSETUP
