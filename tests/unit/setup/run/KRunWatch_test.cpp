// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/run/KRunWatch.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace KSETUP;
using KINS::KRunEvent;
using ::testing::ElementsAre;
using ::testing::StartsWith;

/// A watch over a run that has ended, of which everything is still to be told: as one of a slow
/// reader.
class KRunWatchTest : public ::testing::Test {
  protected:
    KRunWatchTest() {
        tree.Write(
            "kit/product.ini",
            "[product]\nname=T\nserviceName=t\niniFile=t.ini\nversion=1\nbuildNumber=1\n"
        );
        tree.Write("kit/install.ini", "[install]\n");
        descriptor = ::open(tree.Path("events").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        arguments.jsonEvents = true;
        arguments.progressDescriptor = descriptor;
    }
    ~KRunWatchTest() override { ::close(descriptor); }

    void Push(KRunWatch& watch, KRunEvent::Kind kind, unsigned rule, const char* text) {
        const KSUP::KString words(text);
        const KSUP::KString path(kind == KRunEvent::Kind::Status ? "/target" : "");
        watch.Take({kind, rule, words, KINS::noPercentage, KSUP::KOperation::Write, path});
    }
    /// "rule started 1 Copying a", a line an event, without their percentages.
    std::vector<std::string> Told() {
        std::vector<std::string> lines;
        std::string text = tree.Read("events");
        for (std::size_t at = 0, end = 0; (end = text.find('\n', at)) != std::string::npos;
             at = end + 1) {
            const std::string line = text.substr(at, end - at);
            const std::size_t name = line.find(R"("event":")") + 9;
            lines.push_back(line.substr(name, line.find('"', name) - name));
            if (const std::size_t rule = line.find(R"("rule":)"); rule != std::string::npos) {
                lines.back() += " " + line.substr(rule + 7, 1);
            }
            if (const std::size_t words = line.find(R"("text":")"); words != std::string::npos) {
                lines.back() += " " + line.substr(words + 8, line.find('"', words + 8) - words - 8);
            }
        }
        return lines;
    }

    KTEST::TemporaryTree tree;
    KSetupArguments arguments;
    int descriptor = -1;
};

TEST_F(KRunWatchTest, NoStatusIsToldBeforeItsRuleBegan) {
    const KSetupKit kit(tree.Path("kit"));
    KReporter reporter(arguments);
    KSYS::KStopSignals signals;
    KRunReport report;
    const KRunContext context{kit, arguments, reporter, signals, report};
    KINS::KInstaller installer; // not started: it counts as ended
    KRunWatch watch(
        installer,
        context,
        {{"a:1", "file=1"}, {"a:2", "file=2", false, "Making link b"}, {"a:3", "file=3"}}
    );
    Push(watch, KRunEvent::Kind::RuleStarted, 0, "first");
    Push(watch, KRunEvent::Kind::Status, 0, "Copying one");
    Push(watch, KRunEvent::Kind::RuleDone, 0, "first");
    Push(watch, KRunEvent::Kind::RuleStarted, 1, "second");
    Push(watch, KRunEvent::Kind::RuleDone, 1, "second");
    Push(watch, KRunEvent::Kind::RuleStarted, 2, "third");
    Push(watch, KRunEvent::Kind::Status, 2, "Copying three");
    EXPECT_FALSE(watch.Wait().has_value());
    EXPECT_THAT(
        Told(),
        ElementsAre(
            StartsWith("rule started 1 Copying one"),
            StartsWith("rule done 1"),
            StartsWith("rule started 2 Making link b"), // which said nothing of itself
            StartsWith("rule done 2"),
            StartsWith("rule started 3 Copying three"),
            StartsWith("status Copying three")
        )
    );
    EXPECT_EQ(watch.GetCopied(2), "/target");
    EXPECT_EQ(watch.GetCopied(1), "");
}

} // namespace
