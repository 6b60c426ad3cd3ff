// SPDX-License-Identifier: MIT
//
// What a terminal shows while a run goes on, held against screens/*.txt: one for each width, with
// colours and without.
#include "../../../support/NameOfRow.h"
#include "../../../support/TerminalScreen.h"

#include <setup/output/ProgressLines.h>
#include <setup/output/TextCells.h>

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

namespace {

using KSETUP::KProgressRate;
using KSETUP::KProgressView;
using std::chrono::seconds;

struct Moment {
    const char* name;
    KProgressView view;
    unsigned second = 0; ///< how long the run goes on
};

constexpr std::uint64_t large = 800ULL << 20U;

std::vector<Moment> Moments() {
    const std::string file = "/opt/big/lin/x86_64/modules/large-program";
    const std::string wide = "/opt/big/share/\xE6\x96\x87\xE6\x9B\xB8/"
                             "\xE8\xAA\xAC\xE6\x98\x8E\xE6\x9B\xB8.html";
    return {
        {"first rule", {1, 10, 0, 0, large, "Creating directory /opt/big/lin", ""}, 0},
        {"a copy that has begun", {4, 10, 5, large / 20, large, "Copying file " + file, ""}, 1},
        {"a copy at a steady rate", {4, 10, 49, large / 2, large, "Copying file " + file, ""}, 10},
        {"letters of two cells", {5, 10, 97, large, large, "Copying file " + wide, ""}, 20},
        {"a service", {9, 10, 98, large, large, "Starting service bigd", ""}, 21},
        {"nothing to copy", {3, 8, 25, 0, 0, "Deleting file /opt/big/config/big.ini", ""}, 1},
        {"done", {10, 10, 100, large, large, "Making link /etc/big/big", ""}, 21},
    };
}

struct Screen {
    const char* name;
    std::size_t columns;
    bool colour;
};

std::ostream& operator<<(std::ostream& out, const Screen& row) {
    return out << row.name;
}

std::string Show(const Screen& screen) {
    std::string text;
    for (const Moment& moment : Moments()) {
        KProgressRate rate;
        for (unsigned second = 0; second <= moment.second; ++second) {
            const std::uint64_t bytes =
                moment.second == 0 ? 0 : moment.view.bytesDone * second / moment.second;
            rate.Note(KProgressRate::Clock::time_point(seconds(second)), bytes);
        }
        KTEST::TerminalScreen terminal(screen.columns);
        const KSETUP::KTerminalLook look{screen.columns - 1, screen.colour};
        const bool isOver = moment.view.percent == 100;
        for (const std::string& line :
             isOver ? std::vector<std::string>{ProgressBar(moment.view, rate, look)}
                    : ProgressLines(moment.view, rate, look)) {
            terminal.Write(line + "\r\n");
        }
        text += std::string("== ") + moment.name + "\n";
        for (const std::string& line : terminal.GetLines()) {
            text += line + "\n";
        }
    }
    return text;
}

class ProgressScreenTest : public ::testing::TestWithParam<Screen> {};

TEST_P(ProgressScreenTest, IsWhatIsExpected) {
    const std::string path =
        std::string(INSPP_SOURCE "/tests/unit/setup/output/screens/") + GetParam().name + ".txt";
    std::ifstream file(path);
    EXPECT_EQ(Show(GetParam()), std::string(std::istreambuf_iterator<char>(file), {}));
}

INSTANTIATE_TEST_SUITE_P(
    All,
    ProgressScreenTest,
    ::testing::Values(
        Screen{"Columns40", 40, false},
        Screen{"Columns40Coloured", 40, true},
        Screen{"Columns80", 80, false},
        Screen{"Columns80Coloured", 80, true},
        Screen{"Columns200", 200, false},
        Screen{"Columns200Coloured", 200, true}
    ),
    KTEST::NameOfRow()
);

TEST(ProgressLinesTest, NoLineIsWiderThanTheTerminal) {
    for (std::size_t cells = 1; cells < 250; ++cells) {
        for (const Moment& moment : Moments()) {
            for (const std::string& line :
                 ProgressLines(moment.view, KProgressRate(), {cells, false})) {
                EXPECT_LE(KSETUP::TextCells(line), cells) << line;
            }
        }
    }
}

TEST(ProgressLinesTest, TheBarKeepsItsWidthWhileItsDetailsChange) {
    const auto widthOf = [](std::uint64_t bytesDone) {
        const KProgressView view{1, 2, 50, bytesDone, large, "a", ""};
        const std::string bar = ProgressBar(view, KProgressRate(), {79, false});
        return bar.find(']') - bar.find('[');
    };
    EXPECT_EQ(widthOf(1), widthOf(large / 3));
    EXPECT_EQ(widthOf(1), widthOf(large));
}

} // namespace
