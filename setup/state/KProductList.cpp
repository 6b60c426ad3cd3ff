// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/output/TextFormat.h>
#include <setup/script/KScript.h>
#include <setup/state/KKeptKit.h>
#include <setup/state/KPrivateDirectory.h>
#include <setup/state/KProductList.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include <sys/files/DirectoryEntry.h>
#include <sys/processes/ProcessIsolation.h>

namespace KSETUP {

namespace {

std::vector<std::string> ListNames(const std::string& directory) {
    std::vector<std::string> names;
    const unsigned failed = KSYS::ListEntries(directory, names);
    if (failed == EACCES && !KSYS::IsRoot()) {
        throw KSetupFailure(ExitCode::notRoot, Text("only root can look into %s.", directory));
    }
    if (failed != 0 && failed != ENOENT) {
        throw SystemFailure(
            ExitCode::noKit,
            Text("cannot list %s", directory),
            failed,
            Text("Fix the cause and try again.")
        );
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// A product that was removed leaves the key of its kits; a run that was killed before it changed
/// anything the beginning of a journal.
bool TellsOfAProduct(const std::string& directory) {
    const std::vector<std::string> names = ListNames(directory);
    return std::any_of(names.begin(), names.end(), [](const std::string& name) {
        return name == "manifest" || name == "state" || name == "kit" || name == "backup";
    });
}

/// Nothing for what is no directory, or one that holds nothing of a product.
std::optional<KKnownProduct> Look(const std::string& base, const std::string& service) {
    struct stat status {};
    const std::string directory = base + "/" + service;
    const unsigned failed = KSYS::ReadStatus(directory, KSYS::LastLink::Keep, status);
    if (failed != 0 && failed != ENOENT) {
        throw SystemFailure(
            ExitCode::noKit,
            Text("cannot look at %s", directory),
            failed,
            Text("Fix the cause and try again.")
        );
    }
    if (failed != 0 || !S_ISDIR(status.st_mode) || !TellsOfAProduct(directory)) {
        return std::nullopt;
    }
    KKnownProduct product{service, service, "", status.st_mtim.tv_sec, ""};
    try {
        if (const auto kit = KKeptKit::FindDirectory(service, base)) {
            product.kit = *kit;
            product.name = KScript(*kit + "/product.ini").GetValue("product", "name", service);
        }
    } catch (const KSetupFailure& failure) {
        if (failure.IsDenied()) {
            throw;
        }
        product.trouble = failure.GetText();
    }
    return product;
}

std::string NamesOf(const std::vector<KKnownProduct>& products) {
    std::string names;
    for (const KKnownProduct& product : products) {
        names += (names.empty() ? "" : ", ") + product.service +
                 (product.name == product.service ? "" : " (" + product.name + ")");
    }
    return Printable(names);
}

/// By the service's name, or by a product's that is no other's.
const KKnownProduct* Choose(const std::vector<KKnownProduct>& products, const std::string& name) {
    const KKnownProduct* found = nullptr;
    for (const KKnownProduct& product : products) {
        if (product.service == name) {
            return &product;
        }
    }
    for (const KKnownProduct& product : products) {
        if (product.name == name) {
            if (found != nullptr) {
                throw KSetupFailure(
                    ExitCode::usage,
                    Text(
                        "several products are called \"%s\". Name the service of one; known: %s.",
                        Printable(name),
                        NamesOf(products)
                    )
                );
            }
            found = &product;
        }
    }
    return found;
}

} // namespace

std::vector<KKnownProduct> FindKnownProducts(const std::string& base) {
    std::vector<KKnownProduct> products;
    for (const std::string& service : ListNames(base)) {
        if (auto product = Look(base, service)) {
            products.push_back(std::move(*product));
        }
    }
    return products;
}

std::string FindKeptKit(const std::string& name, const std::string& base) {
    const std::vector<KKnownProduct> products = FindKnownProducts(base);
    const KKnownProduct* product = Choose(products, name);
    if (product == nullptr) {
        for (const KKnownProduct& one : products) { // it may be that one's name
            if (!one.trouble.empty()) {
                throw KSetupFailure(ExitCode::noKit, one.trouble);
            }
        }
        throw KSetupFailure(
            ExitCode::notInstalled,
            Text(
                "no product \"%s\" is known here. %s",
                Printable(name),
                (products.empty() ? Text("None is.") : Text("Known: %s.", NamesOf(products)))
            )
        );
    }
    if (product->kit.empty() && !product->trouble.empty()) {
        throw KSetupFailure(ExitCode::noKit, product->trouble);
    }
    if (product->kit.empty()) {
        throw KSetupFailure(
            ExitCode::noKit,
            Text(
                "no kit is kept of %s: its first install did not come to its end, or was done by a "
                "version of ins-setup that kept none. Name the kit with --kit DIR.",
                Printable(name)
            )
        );
    }
    return product->kit;
}

} // namespace KSETUP
