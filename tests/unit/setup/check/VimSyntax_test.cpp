// SPDX-License-Identifier: MIT
//
// The syntax file for vim: it knows the words that the checker knows, and vim sees them.
#include "GivenKit.h"

#include <setup/script/KSetupRuleLine.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>

#include <sys/wait.h>

namespace {

using Words = std::set<std::string>;

constexpr char syntaxFile[] = INSPP_SOURCE "/docs/vim/syntax/ins-script.vim";

class VimSyntaxTest : public KTEST::GivenKit {
  protected:
    static Words Matches(const std::string& text, const std::string& pattern) {
        const std::regex expression(pattern);
        Words words;
        for (std::sregex_iterator at(text.begin(), text.end(), expression), end; at != end; ++at) {
            words.insert((*at)[1].str());
        }
        return words;
    }

    /// The words between which a group of the syntax file chooses.
    static Words WordsOf(const std::string& group) {
        std::ifstream file(syntaxFile);
        for (std::string line; std::getline(file, line);) {
            const std::size_t begin = line.find("\\%(");
            if (line.starts_with("syntax match " + group + " ") && begin != std::string::npos) {
                const std::size_t end = line.find("\\)", begin);
                return Matches(line.substr(begin + 2, end - begin - 2), "([a-z_]+)");
            }
        }
        return {};
    }

    /// The words that the checker proposes in the place of those that nobody knows.
    Words Proposed(const std::string& rule, std::size_t count) {
        const std::vector<std::string> findings = Findings(rule);
        EXPECT_EQ(findings.size(), count) << rule;
        Words words;
        for (const std::string& finding : findings) {
            words.merge(Matches(finding.substr(finding.rfind("; write ")), "\"([^\"]+)\""));
        }
        return words;
    }

    /// The lines of a script as vim sees them: "insType[file]" for what has a group.
    std::string Seen(const std::string& text) {
        tree.Write("install.ini", text);
        tree.Write("look.vim", R"(
for number in range(1, line('$'))
  let seen = ''
  let former = ''
  for column in range(1, strlen(getline(number)))
    let group = synIDattr(synID(number, column, 1), 'name')
    if group != former
      let seen .= (former == '' ? '' : ']') . (group == '' ? '' : group . '[')
      let former = group
    endif
    let seen .= getline(number)[column - 1]
  endfor
  call writefile([seen . (former == '' ? '' : ']')], 'seen', 'a')
endfor
qall!
)");
        const std::string line =
            "cd '" + tree.Path() +
            "' && vim -u NONE -i NONE -n -N -es --cmd 'set runtimepath^=" INSPP_SOURCE
            "/docs/vim' -c 'filetype on' -c 'syntax on' -c 'edit install.ini' -S look.vim "
            "> out 2>&1 < /dev/null";
        const int status = std::system(line.c_str()); // NOLINT: what starts vim
        EXPECT_EQ(WEXITSTATUS(status), 0)
            << "vim is from the package of that name (tools/packages test): " << tree.Read("out");
        return tree.Exists("seen") ? tree.Read("seen") : "";
    }
};

TEST_F(VimSyntaxTest, ItsRuleTypesAreThoseOfTheChecker) {
    Install("qqqqqqqq=a,b");
    const Words types = Proposed("unknown-type", 1);
    EXPECT_EQ(types.size(), 12U);
    EXPECT_EQ(WordsOf("insType"), types);
}

TEST_F(VimSyntaxTest, ItsOperationsAreThoseOfTheChecker) {
    Install("file=qqqqqqqq,a,/b,/c\ndirectory=qqqqqqqq,/a\nprocess=qqqqqqqq,a\n"
            "service=qqqqqqqq,a\nprofile=qqqqqqqq,/a");
    Words operations = Proposed("ignored-operation", 3);
    operations.merge(Proposed("failing-operation", 2));
    for (const KSETUP::KSetupOperationInfo& own : KSETUP::KSetupRuleLine::GetOperations()) {
        operations.insert(own.word);
    }
    EXPECT_EQ(WordsOf("insOperation"), operations);
}

TEST_F(VimSyntaxTest, RulesHaveTheirParts) {
    EXPECT_EQ(
        Seen("[install]\n"
             "file=copy,a,$pathSource$lib,/b\n"
             "process = start,true\n"
             "defaultPath.$os$=/opt/it\n"
             "section=more\n"),
        "insSection[[install]]\n"
        "insType[file]insEquals[=]insOperation[copy]insComma[,]ainsComma[,]"
        "insMacro[$pathSource$]libinsComma[,]/b\n"
        "insType[process ]insEquals[= ]insOperation[start]insComma[,]true\n"
        "insDefault[defaultPath.$os$]insEquals[=]/opt/it\n"
        "insType[section]insEquals[=]more\n"
    );
}

TEST_F(VimSyntaxTest, CommentsAreComments) {
    EXPECT_EQ(
        Seen("; file=copy,$a$\n  # File=copy\n"),
        "insComment[; file=copy,$a$]\ninsComment[  # File=copy]\n"
    );
}

TEST_F(VimSyntaxTest, WhatTheEngineDoesNotTakeIsAnError) {
    EXPECT_EQ(
        Seen("File=copy,a\nfiles=copy,a\ndefaultPath=/a\nfile\n"),
        "insError[File]=copyinsComma[,]a\n"
        "insError[files]=copyinsComma[,]a\n"
        "insError[defaultPath]=/a\n"
        "insError[file]\n"
    );
}

TEST_F(VimSyntaxTest, AnUnknownOperationAndABlankAfterACommaStandOut) {
    EXPECT_EQ(
        Seen("file=Copy,a\ndirectory=remove_all,a\nfile=delete, a\n"),
        "insType[file]insEquals[=]CopyinsComma[,]a\n"
        "insType[directory]insEquals[=]remove_allinsComma[,]a\n"
        "insType[file]insEquals[=]insOperation[delete]insComma[,]insBlank[ ]a\n"
    );
}

} // namespace
