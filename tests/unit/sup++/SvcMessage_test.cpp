// SPDX-License-Identifier: MIT
#include "../../support/Language.h"
#include "../../support/NameOfRow.h"
#include "Common.h"

#include <sup++/SvcMessage.h>

#include <cstdlib>
#include <thread>

namespace KTEST {
namespace {

// Every test has a catalogue of its own: what one has loaded stays for the life of the process.
constexpr unsigned Id(unsigned catalogue, unsigned message) {
    return catalogue << 16U | message;
}

class SvcMessageTest : public testing::Test {
  protected:
    static std::string Text(unsigned catalogue, unsigned message) {
        const char* text = SvcGetMessagePtr(Id(catalogue, message));
        EXPECT_NE(text, nullptr);
        return text != nullptr ? text : "(null)";
    }
};

TEST_F(SvcMessageTest, GivesTheTextsOfALoadedCatalogue) {
    static const SvcBuiltInMessage messages[] = {
        {Id(201, 1), "one"}, {Id(201, 65535), "last"}, {Id(201, 2), "two"}, {0, nullptr}};
    SvcSetBuiltInMessages(201, messages);
    EXPECT_EQ(SvcLoadMessage(201, "xxxtest201"), 0U);
    EXPECT_EQ(Text(201, 1), "one");
    EXPECT_EQ(Text(201, 2), "two");
    EXPECT_EQ(Text(201, 65535), "last");
}

TEST_F(SvcMessageTest, GivesAnEmptyTextForWhatItDoesNotKnow) {
    static const SvcBuiltInMessage messages[] = {{Id(202, 1), "one"}, {0, nullptr}};
    SvcSetBuiltInMessages(202, messages);
    EXPECT_EQ(SvcLoadMessage(202, "xxxtest202"), 0U);
    EXPECT_EQ(Text(202, 3), "");
    EXPECT_EQ(Text(203, 1), "");
    EXPECT_STREQ(SvcGetMessagePtr(0), "");
    EXPECT_STREQ(SvcGetMessagePtr(4294967295U), "");
}

TEST_F(SvcMessageTest, GivesNothingOfACatalogueThatIsNotLoaded) {
    static const SvcBuiltInMessage messages[] = {{Id(204, 1), "one"}, {0, nullptr}};
    SvcSetBuiltInMessages(204, messages);
    EXPECT_EQ(Text(204, 1), "");
}

TEST_F(SvcMessageTest, CountsLoads) {
    static const SvcBuiltInMessage messages[] = {{Id(205, 1), "one"}, {0, nullptr}};
    SvcSetBuiltInMessages(205, messages);
    EXPECT_EQ(SvcLoadMessage(205, "xxxtest205"), 0U);
    EXPECT_EQ(SvcLoadMessage(205, "xxxtest205"), 0U);
    SvcUnloadMessage(205);
    EXPECT_EQ(Text(205, 1), "one");
    SvcUnloadMessage(205);
    EXPECT_EQ(Text(205, 1), "");
    EXPECT_EQ(SvcLoadMessage(205, "xxxtest205"), 0U);
    EXPECT_EQ(Text(205, 1), "one");
    SvcUnloadMessage(205);
}

TEST_F(SvcMessageTest, UnloadingWhatIsNotLoadedIsHarmless) {
    static const SvcBuiltInMessage messages[] = {{Id(206, 1), "one"}, {0, nullptr}};
    SvcSetBuiltInMessages(206, messages);
    SvcUnloadMessage(206);
    SvcUnloadMessage(206);
    EXPECT_EQ(SvcLoadMessage(206, "xxxtest206"), 0U);
    EXPECT_EQ(Text(206, 1), "one") << "the loads are counted from 0";
}

TEST_F(SvcMessageTest, TextsStayReadableAfterUnloading) {
    static const SvcBuiltInMessage messages[] = {{Id(207, 1), "one"}, {0, nullptr}};
    SvcSetBuiltInMessages(207, messages);
    EXPECT_EQ(SvcLoadMessage(207, "xxxtest207"), 0U);
    const char* text = SvcGetMessagePtr(Id(207, 1));
    SvcUnloadMessage(207);
    EXPECT_STREQ(text, "one");
}

TEST_F(SvcMessageTest, BuiltInTextsStandFromTheNextLoadOn) {
    static const SvcBuiltInMessage before[] = {{Id(208, 1), "before"}, {0, nullptr}};
    static const SvcBuiltInMessage after[] = {{Id(208, 1), "after"}, {0, nullptr}};
    SvcSetBuiltInMessages(208, before);
    EXPECT_EQ(SvcLoadMessage(208, "xxxtest208"), 0U);
    SvcUnloadMessage(208);
    SvcSetBuiltInMessages(208, after);
    EXPECT_EQ(SvcLoadMessage(208, "xxxtest208"), 0U);
    EXPECT_EQ(Text(208, 1), "after");
}

TEST_F(SvcMessageTest, ACatalogueWithoutTextsLoads) {
    EXPECT_EQ(SvcLoadMessage(209, "xxxtest209"), 0U);
    EXPECT_EQ(Text(209, 1), "");
}

TEST_F(SvcMessageTest, ANullNameIsRefused) {
    EXPECT_EQ(SvcLoadMessage(210, nullptr), 36U);
}

TEST_F(SvcMessageTest, IsUsedByThreadsAtOnce) {
    static const SvcBuiltInMessage messages[] = {{Id(211, 1), "one"}, {0, nullptr}};
    SvcSetBuiltInMessages(211, messages);
    EXPECT_EQ(SvcLoadMessage(211, "xxxtest211"), 0U);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([] {
            for (int step = 0; step < 200; ++step) {
                EXPECT_EQ(SvcLoadMessage(211, "xxxtest211"), 0U);
                EXPECT_EQ(Text(211, 1), "one");
                SvcUnloadMessage(211);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// Files. Those of the catalogue "suptest" lie beside this program, whose built-in texts it has:
// suptest.cat with 1, 2 and 5 (an empty text), suptest.de.cat with 1 and 4, suptest.de_AT.cat with 1.

class SvcMessageFileTest : public testing::Test {
  protected:
    static constexpr unsigned catalogue = 220;

    SvcMessageFileTest() { SvcSetBuiltInMessages(catalogue, messages); }

    /// All texts as they are after a load in this language.
    static std::vector<std::string> TextsIn(const char* locale) {
        const Language language(locale);
        EXPECT_EQ(SvcLoadMessage(catalogue, "suptest"), 0U);
        std::vector<std::string> texts;
        for (unsigned message = 1; message <= 6; ++message) {
            texts.emplace_back(SvcGetMessagePtr(Id(catalogue, message)));
        }
        SvcUnloadMessage(catalogue);
        return texts;
    }

  private:
    static constexpr SvcBuiltInMessage messages[] = {
        {Id(catalogue, 1), "one built in"},
        {Id(catalogue, 3), "three built in"},
        {Id(catalogue, 5), "five built in"},
        {0, nullptr}};
};

struct LanguageRow {
    const char* name;
    const char* locale;
    std::vector<std::string> texts;
};

class SvcMessageLanguageTest : public SvcMessageFileTest,
                               public testing::WithParamInterface<LanguageRow> {};

TEST_P(SvcMessageLanguageTest, TheBestFileThatHasATextGivesIt) {
    EXPECT_EQ(TextsIn(GetParam().locale), GetParam().texts);
}

const std::vector<std::string> plainTexts{
    "one of the file", "two of the file", "three built in", "", "", ""};
const std::vector<std::string> germanTexts{
    "eins", "two of the file", "three built in", "vier: größer", "", ""};
const std::vector<std::string> austrianTexts{
    "eins in Österreich", "two of the file", "three built in", "vier: größer", "", ""};

INSTANTIATE_TEST_SUITE_P(
    In,
    SvcMessageLanguageTest,
    testing::Values(
        LanguageRow{"NoLanguage", "C", plainTexts},
        LanguageRow{"NoLanguageWithACodeset", "C.UTF-8", plainTexts},
        LanguageRow{"NoLanguageByItsOtherName", "POSIX", plainTexts},
        LanguageRow{"ALanguageWithoutAFile", "fr_FR.UTF-8", plainTexts},
        LanguageRow{"ALanguage", "de", germanTexts},
        LanguageRow{"ALanguageOfACountryWithoutAFile", "de_CH.UTF-8", germanTexts},
        LanguageRow{"ALanguageOfACountry", "de_AT", austrianTexts},
        LanguageRow{"ALanguageWithCodesetAndModifier", "de_AT.UTF-8@euro", austrianTexts},
        LanguageRow{"ALanguageThatIsAPath", "../bin/suptest.de", plainTexts},
        LanguageRow{"ALanguageWithASeparator", "de/../de", plainTexts},
        LanguageRow{"ALanguageInCapitals", "DE", plainTexts}
    ),
    NameOfRow()
);

TEST_F(SvcMessageFileTest, TheFirstLoadChoosesTheLanguage) {
    const Language german("de");
    EXPECT_EQ(SvcLoadMessage(catalogue, "suptest"), 0U);
    {
        const Language none("C");
        EXPECT_EQ(SvcLoadMessage(catalogue, "suptest"), 0U);
    }
    EXPECT_STREQ(SvcGetMessagePtr(Id(catalogue, 1)), "eins");
    SvcUnloadMessage(catalogue);
    EXPECT_STREQ(SvcGetMessagePtr(Id(catalogue, 1)), "eins");
    SvcUnloadMessage(catalogue);
    EXPECT_EQ(TextsIn("C"), plainTexts);
}

TEST_F(SvcMessageFileTest, TextsOfFilesStayReadableAfterUnloading) {
    const char* text = nullptr;
    {
        const Language german("de");
        EXPECT_EQ(SvcLoadMessage(catalogue, "suptest"), 0U);
        text = SvcGetMessagePtr(Id(catalogue, 4));
        SvcUnloadMessage(catalogue);
    }
    EXPECT_EQ(TextsIn("C"), plainTexts);
    EXPECT_STREQ(text, "vier: größer");
}

TEST_F(SvcMessageFileTest, OtherSetsOfAFileAreNoMessagesOfTheCatalogue) {
    EXPECT_EQ(SvcLoadMessage(221, "nosuchfile"), 0U);
    EXPECT_STREQ(SvcGetMessagePtr(Id(221, 1)), "");
    SvcUnloadMessage(221);
}

TEST_F(SvcMessageFileTest, ACatalogueWithoutBuiltInTextsLiesBesideTheLibrary) {
    EXPECT_EQ(SvcLoadMessage(222, "suptest"), 0U) << "suptest lies elsewhere";
    EXPECT_STREQ(SvcGetMessagePtr(Id(222, 1)), "");
    SvcUnloadMessage(222);
}

TEST_F(SvcMessageFileTest, ANameThatIsAPathIsRefused) {
    EXPECT_EQ(SvcLoadMessage(223, "/bin/suptest"), 36U);
    EXPECT_EQ(SvcLoadMessage(223, "../bin/suptest"), 36U);
    EXPECT_EQ(SvcLoadMessage(223, ""), 36U);
    EXPECT_EQ(SvcLoadMessage(65536, "suptest"), 36U);
}

// The variables, in the order in which they count.

struct VariableRow {
    const char* name;
    const char* all;
    const char* messages;
    const char* lang;
    const char* first;
};

class SvcMessageVariableTest : public SvcMessageFileTest,
                               public testing::WithParamInterface<VariableRow> {
  protected:
    /// A process of its own: the test must not change the variables of this one.
    static int FirstIs(const VariableRow& row) {
        for (const auto& [variable, value] :
             {std::pair{"LC_ALL", row.all}, {"LC_MESSAGES", row.messages}, {"LANG", row.lang}}) {
            value != nullptr ? ::setenv(variable, value, 1) : ::unsetenv(variable);
        }
        if (SvcLoadMessage(catalogue, "suptest") != 0) {
            return 2;
        }
        return std::string(SvcGetMessagePtr(Id(catalogue, 1))) == row.first ? 0 : 1;
    }
};

TEST_P(SvcMessageVariableTest, TheFirstOneThatIsSetCounts) {
    EXPECT_EQ(InChild([] { return FirstIs(GetParam()); }), 0);
}

INSTANTIATE_TEST_SUITE_P(
    With,
    SvcMessageVariableTest,
    testing::Values(
        VariableRow{"None", nullptr, nullptr, nullptr, "one of the file"},
        VariableRow{"LangOnly", nullptr, nullptr, "de", "eins"},
        VariableRow{"MessagesBeforeLang", nullptr, "de", "C", "eins"},
        VariableRow{"AllBeforeMessages", "C", "de", "de", "one of the file"},
        VariableRow{"EmptyOnesPassedBy", "", "", "de_AT.UTF-8", "eins in Österreich"}
    ),
    NameOfRow()
);

} // namespace
} // namespace KTEST
