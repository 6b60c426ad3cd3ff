// SPDX-License-Identifier: MIT
#include <setup/output/ProductTable.h>
#include <setup/output/TextCells.h>
#include <setup/output/TextFormat.h>

#include <algorithm>
#include <array>
#include <ctime>

namespace KSETUP {

namespace {

constexpr std::size_t columns = 6;
using Row = std::array<std::string, columns>;

/// In the machine's time zone.
std::string TimeInWords(std::int64_t seconds) {
    const std::time_t time = seconds;
    std::tm parts{};
    std::array<char, 32> text{};
    if (::localtime_r(&time, &parts) == nullptr) {
        return "-";
    }
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts)};
}

Row ToRow(const KListedProduct& product) {
    const std::string version = Printable(product.version);
    return {
        Printable(product.name),
        Printable(product.product),
        product.version.empty() ? "-"
        : product.buildNumber   ? Text("%s (build %s)", version, *product.buildNumber).Translated()
                                : version,
        product.path.empty() ? "-" : Printable(product.path),
        TimeInWords(product.lastRun),
        StateOf(product).Translated()};
}

} // namespace

KText StateOf(const KListedProduct& product) {
    if (product.isRunning) {
        return Text("a run goes on");
    }
    if (product.isInterrupted) {
        return Text("interrupted");
    }
    if (!product.isInstalled) {
        return product.hasConfigurationLeft ? Text("removed, configuration left")
               : product.trouble.empty()    ? Text("removed")
                                            : Text("unknown");
    }
    return !product.differs.has_value() ? Text("unknown")
           : *product.differs           ? Text("differs")
                                        : Text("as installed");
}

std::string ToTable(const std::vector<KListedProduct>& products) {
    std::vector<Row> rows{
        {Text("NAME").Translated(),
         Text("PRODUCT").Translated(),
         Text("VERSION").Translated(),
         Text("PATH").Translated(),
         Text("LAST RUN").Translated(),
         Text("STATE").Translated()}};
    std::transform(products.begin(), products.end(), std::back_inserter(rows), ToRow);
    std::array<std::size_t, columns> widths{};
    for (const Row& row : rows) {
        for (std::size_t at = 0; at < columns; ++at) {
            widths[at] = std::max(widths[at], TextCells(row[at]));
        }
    }
    std::string table;
    for (const Row& row : rows) {
        for (std::size_t at = 0; at + 1 < columns; ++at) {
            table += row[at] + std::string(widths[at] - TextCells(row[at]) + 2, ' ');
        }
        table += row.back() + "\n";
    }
    return table;
}

} // namespace KSETUP
