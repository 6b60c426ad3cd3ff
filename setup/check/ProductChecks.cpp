// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/kit/ProductData.h>

#include <utility>

namespace KSETUP::Checks {

Findings ProductMistakes(const KCheckContext& context) {
    Findings found;
    for (KProductMistake& one : FindProductMistakes(context.GetProductData())) {
        KFinding finding;
        finding.file = "product.ini";
        finding.line = one.line;
        finding.column = one.column;
        finding.text = std::move(one.text);
        finding.message = std::move(one.message);
        finding.advice = std::move(one.advice);
        found.push_back(std::move(finding));
    }
    return found;
}

} // namespace KSETUP::Checks
