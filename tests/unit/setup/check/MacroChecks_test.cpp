// SPDX-License-Identifier: MIT
#include "GivenKit.h"

#include <gmock/gmock.h>

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using KTEST::ScriptLine;
using MacroChecksTest = KTEST::GivenKit;

TEST_F(MacroChecksTest, AMisspeltMacroIsUnknown) {
    Install("directory=create,$pathTarger$data");
    EXPECT_EQ(
        TheFinding("unknown-macro"),
        "install.ini:2:18 error [$pathTarger$] unknown macro \"$pathTarger$\", which stays as it "
        "stands; write \"$pathTarget$\""
    );
}

TEST_F(MacroChecksTest, TheCaseOfAMacroMatters) {
    Install("directory=create,$PATHTARGET$data");
    EXPECT_THAT(TheFinding("unknown-macro"), EndsWith("write \"$pathTarget$\""));
}

TEST_F(MacroChecksTest, AMacroThatIsLikeNoneIsUnknown) {
    Install("directory=create,/opt/$something else$");
    EXPECT_THAT(
        TheFinding("unknown-macro"), EndsWith("\"ins-setup macros\" lists those that there are")
    );
}

TEST_F(MacroChecksTest, AMacroThatIsNotClosedIsNone) {
    Install("directory=create,$pathTarget/data");
    EXPECT_EQ(
        TheFinding("unknown-macro"),
        "install.ini:2:18 error [$pathTarget] \"$pathTarget\" is no macro without a dollar sign at "
        "its end; write \"$pathTarget$\""
    );
}

TEST_F(MacroChecksTest, AMacroThatEndsWithTheLineIsNone) {
    Install("directory=create,/opt/$product");
    EXPECT_THAT(TheFinding("unknown-macro"), StartsWith("install.ini:2:23 error [$product]"));
}

TEST_F(MacroChecksTest, AMacroThatTheNextOneClosesIsNone) {
    Install("file=delete,old$os,$pathTarget$");
    EXPECT_THAT(TheFinding("unknown-macro"), StartsWith("install.ini:2:16 error [$os]"));
}

TEST_F(MacroChecksTest, KnownMacrosAndLoneDollarsAreNone) {
    Install("directory=create,$pathTarget$$product$-$targetVerInfo$\n"
            "directory=create,/opt/svc/5$\ndirectory=create,/opt/svc/$1$\n"
            "process=start,awk '{print $1$2}' </dev/null");
    EXPECT_FALSE(Finds("unknown-macro"));
}

TEST_F(MacroChecksTest, AVariableOfTheShellIsNoMacro) {
    Install("process=start,echo $HOME/$USER; echo \"$PATH\"");
    EXPECT_FALSE(Finds("unknown-macro"));
}

TEST_F(MacroChecksTest, AMacroOfACommandMayBeMisspelt) {
    Install("process=start,\"$pathTargetBim$svc\"");
    EXPECT_THAT(
        TheFinding("unknown-macro"),
        EndsWith("write \"$pathTargetBin$\"; a variable of the shell is ${pathTargetBim}")
    );
}

TEST_F(MacroChecksTest, ACommaInAUsedValueSplitsFields) {
    ProductName("Svc,too");
    EXPECT_EQ(
        TheFinding("macro-value"),
        "product.ini:2:9 warning [Svc,too] $product$ has a comma in its value, and rules use it: "
        "commas separate their fields; choose a value without a comma"
    );
}

TEST_F(MacroChecksTest, ABlankInAUsedValueSplitsCommands) {
    ProductName("My Svc");
    Install("directory=create,$pathTarget$$product$");
    EXPECT_EQ(
        TheFinding("macro-value"),
        "product.ini:2:8 warning [My Svc] $product$ has a blank in its value, and rules use it: "
        "commands and arguments are split there; choose a value without a blank"
    );
}

TEST_F(MacroChecksTest, ABlankInTheValueOfAnOptionIsJustText) {
    ProductName("My Svc");
    EXPECT_FALSE(Finds("macro-value"));
}

TEST_F(MacroChecksTest, TheProposedPathMayHaveABlank) {
    Script("[install]\n  defaultPath.$os$ = /opt/my svc\ndirectory=create,$pathTargetLog$");
    EXPECT_THAT(
        TheFinding("macro-value"), StartsWith("install.ini:2:29 warning [/opt/my svc] $pathTarget$")
    );
}

TEST_F(MacroChecksTest, AMacroIsUnquotedInACommand) {
    Install("process=start,\"$pathTargetBin$svc\" --log $pathTargetLog$svc");
    EXPECT_EQ(
        TheFinding("unquoted-macro"),
        "install.ini:2:42 warning [$pathTargetLog$] the shell splits the value of $pathTargetLog$ "
        "at "
        "blanks; put double quotes around the word that it stands in"
    );
}

TEST_F(MacroChecksTest, QuotedMacrosAreFine) {
    Install("process=start,\"$pathTargetBin$svc\" --log '$pathTargetLog$svc' \"it's $product$\"\n"
            "process=stop,$pathTargetBin$svc");
    EXPECT_FALSE(Finds("unquoted-macro"));
}

TEST_F(MacroChecksTest, AnEscapedQuoteQuotesNothing) {
    Install("process=start,echo \\\"$product$");
    EXPECT_THAT(TheFinding("unquoted-macro"), StartsWith("install.ini:2:22"));
}

TEST_F(MacroChecksTest, ALongLineIsReadToItsEnd) {
    Install("process=start,echo " + std::string(1'000'000, 'x') + " token=0815");
    EXPECT_TRUE(Finds("secret"));
}

TEST_F(MacroChecksTest, APasswordLooksLikeASecret) {
    Install("profile=put,$pathTargetConfig$$iniFile$,Database,Password,hunter2");
    EXPECT_EQ(
        TheFinding("secret"),
        "install.ini:2:59 warning [hunter2] this looks like a secret, and the kit shows it to all "
        "who read it; let the administrator set it (install --values), or a program of the kit "
        "make it"
    );
}

using SecretTest = KTEST::GivenKitWithLine;
TEST_P(SecretTest, IsAFinding) {
    Install(GetParam().line);
    EXPECT_THAT(TheFinding("secret"), StartsWith("install.ini:2:"));
}
INSTANTIATE_TEST_SUITE_P(
    Lines,
    SecretTest,
    ::testing::Values(
        ScriptLine{"ApiKey", "profile=put,/opt/svc/a,S,api_key,0815"},
        ScriptLine{"Key", "profile=put,/opt/svc/a,S,key,0815"},
        ScriptLine{"PartOfAnOption", "process=start,register --db-password hunter2"},
        ScriptLine{"TokenInACommand", "process=start,register --token=0815"},
        ScriptLine{"OptionOfACommand", "process=start,register --password \"x y\""},
        ScriptLine{"KeyInACommand", "process=start,KEY=0815 register"},
        ScriptLine{"Argument", "service=install,svc,Service,/bin/true,--secret:0815"},
        ScriptLine{"SecondPassword", "profile=put,/opt/svc/a,S,DbPassword2,hunter2"}
    ),
    KTEST::NameOfRow()
);

using NoSecretTest = KTEST::GivenKitWithLine;
TEST_P(NoSecretTest, IsNone) {
    Install(GetParam().line);
    EXPECT_FALSE(Finds("secret"));
}
INSTANTIATE_TEST_SUITE_P(
    Lines,
    NoSecretTest,
    ::testing::Values(
        ScriptLine{"FileOfATokenByName", "profile=put,/opt/svc/a,S,TokenFile,secret.ini"},
        ScriptLine{"PathOfAToken", "profile=put,/opt/svc/a,S,Token,/etc/svc/token"},
        ScriptLine{"Keyboard", "profile=put,/opt/svc/a,S,Keyboard,de"},
        ScriptLine{"Monkey", "process=start,echo monkey=1"},
        ScriptLine{"FileOfAKey", "process=start,register --key=/etc/svc/key"},
        ScriptLine{"OptionWithoutAValue", "process=start,register --token --now"},
        ScriptLine{"FileOfAPassword", "process=start,register --password-file x"},
        ScriptLine{"LongerOption", "process=start,register --passwordless x"},
        ScriptLine{"LastWord", "process=start,register --password"},
        ScriptLine{"KeyIsAnyWord", "profile=put,/opt/svc/a,S,Key,Value"},
        ScriptLine{"TimeOfAToken", "profile=put,/opt/svc/a,S,TokenTimeout,30"},
        ScriptLine{"NoCredential", "profile=put,/opt/svc/a,S,Credential,none"},
        ScriptLine{"NoCredentialInACommand", "process=start,register --credential none"},
        ScriptLine{"WordOfACommand", "process=start,register key=value"},
        ScriptLine{"ColumnOfACommand", "process=start,sort --key=2 /opt/svc/list"},
        ScriptLine{"TimeInACommand", "process=start,register token_timeout=30"},
        ScriptLine{"WordInText", "process=start,echo the key is lost"}
    ),
    KTEST::NameOfRow()
);

} // namespace
