// SPDX-License-Identifier: MIT
#include <setup/script/SecretNames.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using KSETUP::MaskedAddedLine;
using KSETUP::MaskedArguments;
using KSETUP::MaskedLine;
using KSETUP::MayBeSecret;
using ::testing::ElementsAre;

TEST(SecretNamesTest, NamesThatMayBeOfASecret) {
    for (const char* const key :
         {"Password",
          "DB_PASSWD",
          "smtpPwd2",
          "Passphrase",
          "client-secret",
          "AuthToken",
          "Credentials",
          "apiKey",
          "LICENSE_KEY",
          "Keys",
          " token "}) {
        EXPECT_TRUE(MayBeSecret("General", key)) << key;
    }
    EXPECT_TRUE(MayBeSecret("Credentials", "db"));
}

TEST(SecretNamesTest, NamesThatAreNone) {
    for (const char* const key : {"Level", "Name", "Keyboard", "Port", "User", ""}) {
        EXPECT_FALSE(MayBeSecret("General", key)) << key;
    }
}

TEST(SecretNamesTest, ALineIsMaskedBehindItsKey) {
    EXPECT_EQ(MaskedLine("profile", "put,$p$,Db,Password,a,b"), "profile=put,$p$,Db,Password,***");
    EXPECT_EQ(MaskedLine("profile", "PUT,,$p$,Db,Token,x"), "profile=PUT,$p$,Db,Token,***");
    EXPECT_EQ(MaskedLine("profile", "put,$p$,Db,,Level,1"), "profile=put,$p$,Db,,Level,1");
    EXPECT_EQ(MaskedLine("profile", "create,password"), "profile=create,password");
    EXPECT_EQ(MaskedLine("file", "put,a,b,token,c"), "file=put,a,b,token,c");
}

TEST(SecretNamesTest, AnAddedLineIsMaskedAlsoWhereItIsNone) {
    EXPECT_EQ(MaskedAddedLine("Db,Password,hunter2"), "Db,Password,***");
    EXPECT_EQ(MaskedAddedLine("Db,Password,hun,ter2"), "Db,Password,***");
    EXPECT_EQ(MaskedAddedLine("Db,Level,2"), "Db,Level,2");
    EXPECT_EQ(MaskedAddedLine("Db,,Password,hunter2"), "Db,,Password,***"); // none for the engine
    EXPECT_EQ(MaskedAddedLine(",Db,Password,,hunter2"), ",Db,Password,***");
    EXPECT_EQ(MaskedAddedLine("Password"), "Password");
    EXPECT_EQ(MaskedAddedLine(""), "");
}

TEST(SecretNamesTest, ACommandLineIsMaskedInBothOfItsForms) {
    EXPECT_THAT(
        MaskedArguments(
            {"ins-setup",
             "--addProfileLine",
             "Db,Token,1",
             "--addProfileLine=Db,Token,2",
             "Db,Token,3"}
        ),
        ElementsAre(
            "ins-setup",
            "--addProfileLine",
            "Db,Token,***",
            "--addProfileLine=Db,Token,***",
            "Db,Token,3"
        )
    );
}

} // namespace
