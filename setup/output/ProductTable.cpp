// SPDX-License-Identifier: MIT
#include <setup/output/ProductTable.h>
#include <setup/output/TextCells.h>
#include <setup/output/TextFormat.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <numeric>

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

namespace {

/// A line for each field, as "STATE    as installed"; rows are apart by an empty line.
std::string ToBlocks(const std::vector<Row>& rows) {
    std::size_t width = 0;
    for (const std::string& name : rows.front()) {
        width = std::max(width, TextCells(name));
    }
    std::string text;
    for (std::size_t row = 1; row < rows.size(); ++row) {
        text += row == 1 ? "" : "\n";
        for (std::size_t at = 0; at < columns; ++at) {
            const std::string& name = rows.front()[at];
            text += name + std::string(width - TextCells(name) + 2, ' ') + rows[row][at] + "\n";
        }
    }
    return text;
}

} // namespace

std::string ToTable(const std::vector<KListedProduct>& products, std::size_t cells) {
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
    constexpr std::size_t gaps = 2 * (columns - 1);
    if (cells != 0 && std::accumulate(widths.begin(), widths.end(), gaps) > cells) {
        return ToBlocks(rows);
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
