// SPDX-License-Identifier: MIT
#include <setup/output/Licences.h>

namespace KSETUP {

std::string LicencesToText() {
    constexpr std::size_t lineLetters = 79;
    std::string all;
    for (const KLicence& licence : GetLicences()) {
        all += (all.empty() ? "" : "\n" + std::string(lineLetters, '-') + "\n\n");
        all += licence.text;
    }
    return all;
}

} // namespace KSETUP
