// SPDX-License-Identifier: MIT
#include "../../../support/NameOfRow.h"

#include <setup/ExitCode.h>
#include <setup/output/EarlyRefusal.h>
#include <setup/output/KSetupArguments.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <unistd.h>

namespace KTEST {
namespace {

using Json = nlohmann::json;

/// A command line, as its words.
class Words {
  public:
    explicit Words(const std::string& line) : words{"ins-setup"} {
        std::istringstream stream(line);
        for (std::string word; stream >> word;) {
            words.push_back(word);
        }
        for (std::string& word : words) {
            pointers.push_back(word.data());
        }
    }
    int Count() const { return static_cast<int>(pointers.size()); }
    char** Get() { return pointers.data(); }

  private:
    std::vector<std::string> words;
    std::vector<char*> pointers;
};

struct RefusalRow {
    const char* name;
    const char* line;
    const char* command;
    bool isObject;
    bool isEvent;
};

class EarlyRefusalTest : public ::testing::TestWithParam<RefusalRow> {
  protected:
    /// Whether it is a line of JSON that tells of the refusal.
    static void ExpectRefusal(const std::string& text, int exitCode) {
        const Json told = Json::parse(text, nullptr, false);
        ASSERT_FALSE(told.is_discarded()) << text;
        EXPECT_EQ(told["result"], "refused");
        EXPECT_EQ(told["exitCode"], exitCode);
        EXPECT_EQ(told["command"], GetParam().command);
    }
    static void ExpectOutput(const std::string& out, int exitCode) {
        if (GetParam().isObject || GetParam().isEvent) {
            ExpectRefusal(out, exitCode);
            EXPECT_EQ(out.find("\"event\"") != std::string::npos, GetParam().isEvent) << out;
        } else {
            EXPECT_EQ(out, "");
        }
    }
};

TEST_P(EarlyRefusalTest, AnswersInTheWayThatWasAskedFor) {
    Words words(GetParam().line);
    int exitCode = 0;
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(KSETUP::ReadArguments(words.Count(), words.Get(), exitCode));
    EXPECT_NE(::testing::internal::GetCapturedStderr(), "");
    ExpectOutput(::testing::internal::GetCapturedStdout(), KSETUP::ExitCode::usage);
    EXPECT_EQ(exitCode, KSETUP::ExitCode::usage);
}

INSTANTIATE_TEST_SUITE_P(
    OfALine,
    EarlyRefusalTest,
    ::testing::Values(
        RefusalRow{"Text", "check --bogus", "check", false, false},
        RefusalRow{"Quiet", "install --quiet --bogus", "install", false, false},
        RefusalRow{"Object", "check --json --bogus", "check", true, false},
        RefusalRow{"ObjectThatIsTrue", "check --json=true --bogus", "check", true, false},
        RefusalRow{"ObjectThatIsFalse", "check --json=false --bogus", "check", false, false},
        RefusalRow{
            "ObjectAskedForLast", "plan install --bogus --json", "plan install", true, false},
        RefusalRow{"ObjectBeforeALackingValue", "install --json --kit", "install", true, false},
        RefusalRow{"ObjectAfterAWrongFlag", "install --quiet=x --json", "install", true, false},
        RefusalRow{"ObjectAsAValue", "install --kit --json --bogus", "install", false, false},
        RefusalRow{"ObjectOfNoCommand", "--json", "", true, false},
        RefusalRow{"ObjectAfterAWrongValue", "install --wait x --json", "install", true, false},
        RefusalRow{"ObjectOfACommandWithout", "kit seal --json", "kit seal", true, false},
        RefusalRow{"ObjectAsAWord", "install --bogus -- --json", "install", false, false},
        RefusalRow{"Events", "remove --json-events --bogus", "remove", false, true},
        RefusalRow{"EventsThatAreTrue", "remove --json-events=true --bogus", "remove", false, true},
        RefusalRow{"EventsToNoNumber", "install --progress-fd x", "install", false, false},
        RefusalRow{"EventsToInput", "install --progress-fd 0", "install", false, false},
        RefusalRow{"EventsToAClosedOne", "install --progress-fd 999 --no", "install", false, false},
        RefusalRow{"EventsToOutput", "install --progress-fd=1 --bogus", "install", false, true}
    ),
    NameOfRow()
);

TEST(EarlyRefusalDescriptorTest, AnOpenDescriptorGetsTheEvent) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe(ends), 0);
    Words words("install --progress-fd " + std::to_string(ends[1]));
    KSETUP::TellEarlyRefusal(words.Count(), words.Get(), 70, "why");
    ::close(ends[1]);
    std::string text(4096, '\0');
    const ssize_t count = ::read(ends[0], text.data(), text.size());
    ::close(ends[0]);
    ASSERT_GT(count, 0);
    text.resize(static_cast<std::size_t>(count));
    const Json told = Json::parse(text);
    EXPECT_EQ(told["event"], "result");
    EXPECT_EQ(told["command"], "install");
    EXPECT_EQ(told["exitCode"], 70);
    EXPECT_EQ(told["error"]["text"], "why");
}

} // namespace
} // namespace KTEST
