// SPDX-License-Identifier: MIT
#include "PageSteps.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <utility>

#include <sys/wait.h>

namespace KTEST {

namespace {

constexpr std::string_view answersMark = " # answers ";

PageStep StepOf(std::string command) {
    PageStep step{{}, {}, 0, std::move(command), 0, {}};
    const std::size_t answers = step.command.find(answersMark);
    if (answers != std::string::npos) {
        step.answers = std::stoi(step.command.substr(answers + answersMark.size()));
    }
    return step;
}

/// Programs of this build first, as after an installation.
void PutProgramsIntoPath() {
    const std::string programs =
        std::filesystem::canonical("/proc/self/exe").parent_path().string();
    const std::string path = std::getenv("PATH"); // NOLINT(concurrency-mt-unsafe): one thread
    if (!path.starts_with(programs)) {
        ::setenv(
            "PATH", (programs + ":" + path).c_str(), 1
        ); // NOLINT(concurrency-mt-unsafe): one thread
    }
}

} // namespace

std::vector<PageStep> ReadPageSteps(const std::string& page) {
    std::ifstream file(INSPP_SOURCE "/" + page);
    std::vector<PageStep> steps;
    std::string text;
    std::string part;
    bool isOutput = false; // not the lines of a script, which prose comes before
    for (unsigned number = 1; std::getline(file, text); ++number) {
        if (text.starts_with("    $ ")) {
            PageStep step = StepOf(text.substr(6));
            step.page = page;
            step.part = part;
            step.line = number;
            steps.push_back(std::move(step));
            isOutput = true;
        } else if (text.starts_with("    ") && isOutput) {
            steps.back().shown.push_back(text.substr(4));
        } else if (!text.empty()) {
            isOutput = false;
            part = text.starts_with("## ") ? text.substr(3) : part;
        }
    }
    return steps;
}

void ExpectPageSteps(TemporaryTree& tree, const std::vector<PageStep>& steps) {
    PutProgramsIntoPath();
    for (const PageStep& step : steps) {
        SCOPED_TRACE(step.page + ":" + std::to_string(step.line) + ": " + step.command);
        // A file of its own: no quoting of the page's commands by the test.
        tree.Write("step", step.command + "\n");
        const std::string line =
            "cd '" + tree.Path("work") + "' && sh ../step > ../out 2>&1 < /dev/null";
        const int status = std::system(line.c_str()); // NOLINT(concurrency-mt-unsafe): one thread
        const std::string out = tree.Read("out");
        ASSERT_EQ(WEXITSTATUS(status), step.answers) << out;
        for (const std::string& shown : step.shown) {
            ASSERT_THAT(out, ::testing::HasSubstr(shown));
        }
    }
}

} // namespace KTEST
