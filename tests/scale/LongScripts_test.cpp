// SPDX-License-Identifier: MIT
// Ten times the script is to take about ten times the work: a kit of a stranger's is checked before
// anything else is known of it. And a plan of as many files is told.
#include "../unit/setup/check/GivenKit.h"

#include <setup/text/KText.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <iostream>
#include <string>

namespace {

/// Of the same length, for longer names take longer.
std::string Number(int number) {
    return std::to_string(100000 + number);
}

/// `count` times what `make` makes of a number.
std::string Repeated(int count, const std::function<std::string(int)>& make) {
    std::string text;
    for (int index = 0; index < count; ++index) {
        text += make(index);
    }
    return text;
}

std::string Includes(int count) {
    return Repeated(count, [](int index) { return "section=s" + Number(index) + "\n"; });
}

std::string Sections(int count, const std::string& name = "s") {
    return Repeated(count, [&](int index) {
        return "[" + name + Number(index) + "]\ndirectory=create,/opt/svc/" + Number(index) + "\n";
    });
}

struct ScriptShape {
    const char* name;
    int lines; ///< of the shorter script, about
    std::string (*make)(int count);

    friend void PrintTo(const ScriptShape& shape, std::ostream* out) { *out << shape.name; }
};

const ScriptShape shapes[] = {
    {"IncludedSections",
     1000,
     [](int count) { return "[install]\n" + Includes(count) + Sections(count); }},
    {"MissingSections",
     500,
     [](int count) { return "[install]\n" + Includes(count) + Sections(count, "other"); }},
    {"UnloadedSections",
     500,
     [](int count) {
         return "[install]\n" + Includes(count) + Sections(count) + Sections(count, "other");
     }},
    {"SectionsOfVersions",
     1000,
     [](int count) {
         return "[install]\n" + Repeated(count, [](int) { return "section=s$buildNumber$\n"; }) +
                Sections(count);
     }},
    {"SectionsInEachOther",
     1000,
     [](int count) {
         return "[install]\nsection=s" + Number(0) + "\n" + Repeated(count, [](int index) {
                    const bool goesOn = (index + 1) % 500 != 0;
                    return "[s" + Number(index) + "]\n" +
                           (goesOn ? "section=s" + Number(index + 1) + "\n" : "");
                });
     }},
    {"AllowedWarnings",
     1000,
     [](int count) {
         return "[install]\n" + Repeated(count, [](int index) {
                    return "; check: allow new-name missing-directory not-removed\n"
                           "directory=create,/opt/svc/" +
                           Number(index) + "\n";
                });
     }},
    {"Services",
     500,
     [](int count) {
         return "[install]\n" + Repeated(count, [](int index) {
                    const std::string name = "svc" + Number(index);
                    return "service=start," + name + "\nservice=install," + name + ",S,/opt/svc/" +
                           name + ",-a\nservice=start," + name + "\n";
                });
     }},
    {"CommandsOfTheRemoval",
     500,
     [](int count) {
         return "[install]\n" +
                Repeated(
                    count,
                    [](int index) { return "directory=create,/opt/svc/d" + Number(index) + "\n"; }
                ) +
                "[remove]\n" + Repeated(count, [](int index) {
                    return "process=start,rm -rf /opt/svc/e" + Number(index) + "\n";
                });
     }},
};

/// Processor time of this thread, in seconds: what other programs do does not count.
double TimeNow() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

/// The least of some tries.
double LeastTime(int tries, const std::function<void()>& work) {
    double least = 1e9;
    for (int index = 0; index < tries; ++index) {
        const double begin = TimeNow();
        work();
        least = std::min(least, TimeNow() - begin);
    }
    return least;
}

/// `timeOf` a number of things, and of how many tries.
void ExpectLinear(
    const std::string& name, int count, const std::function<double(int, int)>& timeOf
) {
    constexpr double most = 15;
    // A machine that others use can only make it slower: what grows as it should does so once.
    double ratio = most;
    for (int tries = 0; tries < 3 && ratio >= most; ++tries) {
        ratio = timeOf(count * 10, 1) / timeOf(count, 3);
        std::cout << name << ": ten times as much, " << ratio << " times the time\n";
    }
    EXPECT_LT(ratio, most);
}

class LongScriptsTest : public KTEST::GivenKit,
                        public ::testing::WithParamInterface<ScriptShape> {};

TEST_P(LongScriptsTest, AreCheckedInTimeThatGrowsAsTheyDo) {
    ExpectLinear(GetParam().name, GetParam().lines, [&](int count, int tries) {
        Script(GetParam().make(count));
        return LeastTime(tries, [&] { static_cast<void>(Check()); });
    });
}
INSTANTIATE_TEST_SUITE_P(Shapes, LongScriptsTest, ::testing::ValuesIn(shapes), KTEST::NameOfRow());

class ManySectionsTest : public KTEST::GivenKit {};

TEST_F(ManySectionsTest, AreSearchedForValuesInTimeThatGrowsAsTheyDo) {
    Values("port=8080\n");
    ExpectLinear("SectionsWithValues", 1000, [&](int count, int tries) {
        Script(shapes[0].make(count)); // many sections
        return LeastTime(tries, [&] { static_cast<void>(Check()); });
    });
}

TEST(LongTextTest, IsPutTogetherInTimeThatGrowsAsItDoes) {
    ExpectLinear("LongText", 5000, [](int count, int tries) {
        return LeastTime(tries, [&] {
            KSETUP::KText all;
            for (int index = 0; index < count; ++index) {
                all += KSETUP::KText("  copy /opt/svc/" + Number(index) + "\n");
            }
            EXPECT_EQ(all.English().size(), static_cast<std::size_t>(count) * 23);
        });
    });
}

} // namespace
