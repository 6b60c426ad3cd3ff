// SPDX-License-Identifier: MIT
//
// What a compiler says of the public headers where a program is not compiled as they need it.
#include "../../support/TemporaryTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>

namespace {

using ::testing::HasSubstr;

/// The lines with an error of a program that includes this header.
std::string ErrorsOf(const std::string& compiler, const std::string& header) {
    KTEST::TemporaryTree tree;
    tree.Write("program", "#include <" + header + ">\nint main(void) { return 0; }\n");
    const std::string command =
        compiler + " -fsyntax-only -I" INSPP_SOURCE " " + tree.Path("program") + " 2>&1";
    const std::unique_ptr<FILE, int (*)(FILE*)> output(
        ::popen(command.c_str(), "r"), // NOLINT(cert-env33-c): a compiler is what is asked
        &::pclose
    );
    std::string text;
    char buffer[4096];
    for (std::size_t got = 0; (got = std::fread(buffer, 1, sizeof(buffer), output.get())) > 0;) {
        text.append(buffer, got);
    }
    std::istringstream lines(text);
    std::string errors;
    for (std::string line; std::getline(lines, line);) {
        errors += line.find("error: ") != std::string::npos ? line + "\n" : "";
    }
    return errors;
}

TEST(PublicHeadersTest, AnOlderLanguageIsToldInOneSentence) {
    for (const char* header : {"ins/KInstaller.h", "sup++/KString.h", "sup++/Svc.h"}) {
        const std::string errors = ErrorsOf("g++ -std=c++17 -xc++", header);
        EXPECT_THAT(errors, HasSubstr("need C++20: compile with -std=c++20"));
        // That, and the include that ends it.
        EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 2) << errors;
    }
}

TEST(PublicHeadersTest, TheLanguageThatTheyNeedIsNoError) {
    EXPECT_EQ(ErrorsOf("g++ -std=c++20 -xc++", "ins/KInstaller.h"), "");
}

TEST(PublicHeadersTest, TheFunctionsForOtherLanguagesNeedCOnly) {
    EXPECT_EQ(ErrorsOf("gcc -std=c99 -Wall -Wextra -pedantic -Werror -xc", "ins/ins.h"), "");
    EXPECT_EQ(ErrorsOf("g++ -std=c++11 -Wall -Werror -xc++", "ins/ins.h"), "");
}

} // namespace
