// SPDX-License-Identifier: MIT
#include "../../support/TemporaryTree.h"
#include "Common.h"

#include <sup++/KLog.h>
#include <sup++/KUtil.h>
#include <sup++/SvcTrace.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <limits>
#include <memory>
#include <thread>

#include <sys/resource.h>
#include <sys/stat.h>

namespace KTEST {
namespace {

using KSUP::KError;
using KSUP::KGuid;
using KSUP::KHeapPtr;
using KSUP::KLog;
using KSUP::KLogBase;
using KSUP::KLogPrefix;
using KSUP::KLogTypes;
using KSUP::KQword;
using KSUP::KString;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string prefixText = "KINS::KFileRule:";

std::vector<std::string> LinesIn(const std::string& bytes) {
    std::vector<std::string> lines(1);
    for (const char byte : bytes) {
        if (byte == '\n') {
            lines.emplace_back();
        } else {
            lines.back() += byte;
        }
    }
    EXPECT_EQ(lines.back(), "") << "the last line is ended";
    lines.pop_back();
    return lines;
}

class KLogTest : public testing::Test {
  protected:
    KLogTest() : log(new KLog) { log->Open(Path()); }
    std::string Path() const { return tree.Path("setup.log"); }
    std::vector<std::string> Lines() const { return LinesIn(tree.Read("setup.log")); }
    /// The entries without their times.
    std::vector<std::string> Entries() const {
        std::vector<std::string> entries = Lines();
        for (std::string& entry : entries) {
            entry.resize(std::min(entry.size(), entry.rfind('\t')));
        }
        return entries;
    }
    KLogBase& Begin() { return *log << KLogPrefix(KString(prefixText)); }
    void End() { *log << KLogTypes::EndEntry; }
    /// The entry that a piece makes, without its prefix.
    template <class Piece>
    std::string Written(const Piece& piece) {
        Begin() << piece << KLogTypes::EndEntry;
        const std::string entry = Entries().back();
        EXPECT_EQ(entry.substr(0, prefixText.size() + 1), prefixText + " ");
        return entry.substr(prefixText.size() + 1);
    }

    TemporaryTree tree;
    std::unique_ptr<KLog> log;
};

// The table of virtual functions

TEST(KLogSlotTest, TheOperatorsStandInTheirOrder) {
    using Log = KLogBase;
    const std::vector<std::ptrdiff_t> slots{
        SlotOf<Log& (Log::*)(const std::type_info&)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(KLogTypes::MODIFIER)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(const KLogPrefix&)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(unsigned char)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(float)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(double)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(unsigned int)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(const KQword&)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(const KString&)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(const char*)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(std::_Setw)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(const KHeapPtr<unsigned char>&)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(int)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(unsigned long long)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(const _tagQword&)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(const unsigned short*)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(const KError&)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(const _tagGuid&)>(&Log::operator<<),
        SlotOf<Log& (Log::*)(const KGuid&)>(&Log::operator<<),
    };
    // The destructor stands first, in two slots.
    EXPECT_THAT(
        slots, ElementsAre(2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20)
    );
}

TEST(KLogSlotTest, NothingElseIsVirtual) {
    EXPECT_EQ(SlotOf(&KLogBase::Open), notVirtual);
    EXPECT_EQ(SlotOf(&KLogBase::Close), notVirtual);
    EXPECT_EQ(SlotOf(&KLogBase::GetPath), notVirtual);
    EXPECT_EQ((SlotOf<KLogBase& (KLogBase::*)(long)>(&KLogBase::operator<< <long>)), notVirtual);
}

// Entries

TEST_F(KLogTest, AnEntryIsPrefixPiecesAndTime) {
    Begin() << "Adding rule -> " << KString("File copy") << " no " << 7U << KLogTypes::EndEntry;
    EXPECT_THAT(Entries(), ElementsAre(prefixText + " Adding rule -> File copy no 7"));
}

/// Of the exact clock; std::time answers from one that lags behind it.
std::time_t Now() {
    std::timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

TEST_F(KLogTest, TheTimeIsUtcInMilliseconds) {
    const char* formerZone = std::getenv("TZ");
    const std::string former = formerZone != nullptr ? formerZone : "";
    ::setenv("TZ", "FAR-11:30", 1);
    ::tzset();
    const std::time_t before = Now();
    Begin() << "x" << KLogTypes::EndEntry;
    const std::time_t after = Now();
    formerZone != nullptr ? ::setenv("TZ", former.c_str(), 1) : ::unsetenv("TZ");
    ::tzset();
    const std::string line = Lines().back();
    const std::string stamp = line.substr(line.rfind('\t') + 1);
    std::tm time{};
    const char* rest = ::strptime(stamp.c_str(), "%Y-%m-%d", &time);
    ASSERT_TRUE(rest != nullptr && (*rest == ' ' || *rest == 'T')) << line;
    rest = ::strptime(rest + 1, "%H:%M:%S", &time);
    ASSERT_TRUE(rest != nullptr) << line;
    EXPECT_THAT(rest, testing::MatchesRegex("\\.[0-9][0-9][0-9](Z| UTC)?")) << line;
    EXPECT_GE(::timegm(&time), before);
    EXPECT_LE(::timegm(&time), after);
}

TEST_F(KLogTest, AnEntryIsInTheFileWhenItIsEnded) {
    Begin() << "one";
    EXPECT_THAT(Lines(), IsEmpty());
    End();
    EXPECT_THAT(Entries(), ElementsAre(prefixText + " one"));
}

std::uint64_t WriteCalls() {
    std::ifstream file("/proc/thread-self/io");
    std::string word;
    std::uint64_t count = 0;
    while (file >> word >> count && word != "syscw:") {
    }
    return count;
}

TEST_F(KLogTest, AnEntryIsOneWrite) {
    Begin() << "warm" << KLogTypes::EndEntry;
    const std::uint64_t before = WriteCalls();
    for (int entry = 0; entry < 100; ++entry) {
        Begin() << "piece " << entry << KString(" and more") << KLogTypes::EndEntry;
    }
    Begin() << std::string(300000, 'x').c_str() << KLogTypes::EndEntry;
    const std::uint64_t calls = WriteCalls() - before;
    // A sanitizer writes now and then to find out what is readable.
    EXPECT_GE(calls, 101U);
    EXPECT_LE(calls, isSanitized ? 120U : 101U);
}

TEST_F(KLogTest, ALongEntryIsOneLine) {
    const std::string text(300000, 'x');
    EXPECT_EQ(Written(text.c_str()), text);
    EXPECT_THAT(Lines(), testing::SizeIs(1));
}

TEST_F(KLogTest, APrefixDiscardsAnUnfinishedEntry) {
    Begin() << "unfinished";
    Begin() << "finished" << KLogTypes::EndEntry;
    EXPECT_THAT(Entries(), ElementsAre(prefixText + " finished"));
}

TEST_F(KLogTest, NothingStandsBeforeThePrefix) {
    *log << "before" << 7;
    Begin() << "entry" << KLogTypes::EndEntry;
    EXPECT_THAT(Entries(), ElementsAre(prefixText + " entry"));
}

TEST_F(KLogTest, AnEntryOfAPrefixAloneIsALine) {
    Begin() << KLogTypes::EndEntry;
    EXPECT_THAT(Lines(), ElementsAre(testing::StartsWith(prefixText)));
}

TEST_F(KLogTest, EveryOperatorReturnsTheLog) {
    KLogBase& base = *log;
    EXPECT_EQ(&(base << KLogPrefix(KString("P:"))), &base);
    EXPECT_EQ(&(base << "x" << 1 << 1.5 << KString("y")), &base);
    EXPECT_EQ(&(base << std::size_t{1} << 5L), &base);
    EXPECT_EQ(&(base << KLogTypes::EndEntry), &base);
}

TEST_F(KLogTest, APrefixIsTheClassNameOrTheWordOfALevel) {
    *log << KLogPrefix(KSUP::KUtil::GetClassNameFromTypeInfo(typeid(KString))) << "a"
         << KLogTypes::EndEntry;
    *log << KLogPrefix(TRACE_MESSAGE{48}) << "b" << KLogTypes::EndEntry;
    *log << KLogPrefix(TRACE_MESSAGE{400}) << "c" << KLogTypes::EndEntry;
    EXPECT_THAT(Entries(), ElementsAre("KString: a", "rule: b", "setup: c"));
    EXPECT_EQ(KLogPrefix(TRACE_MESSAGE{24}).GetText(), SvcMapTraceMask(24));
}

TEST_F(KLogTest, APrefixKeepsItsTextWhenTheNameIsGone) {
    KString name("KINS::KInstallRuleManager:");
    const KLogPrefix prefix(name);
    name = "Other:";
    EXPECT_EQ(prefix.GetText(), "KINS::KInstallRuleManager:");
    *log << prefix << "a" << KLogTypes::EndEntry;
    EXPECT_THAT(Entries(), ElementsAre("KINS::KInstallRuleManager: a"));
}

// Pieces

TEST_F(KLogTest, WritesTexts) {
    EXPECT_EQ(Written("text"), "text");
    EXPECT_EQ(Written(KString("a\xc3\xa9\xff")), "a\xc3\xa9\xff");
    EXPECT_EQ(Written(static_cast<const char*>(nullptr)), "");
    EXPECT_EQ(Written("%s %n $x$"), "%s %n $x$");
}

TEST_F(KLogTest, WritesWholeNumbers) {
    EXPECT_EQ(Written(static_cast<unsigned char>(200)), "200");
    EXPECT_EQ(Written(4294967295U), "4294967295");
    EXPECT_EQ(Written(-17), "-17");
    EXPECT_EQ(Written(std::numeric_limits<int>::min()), "-2147483648");
    EXPECT_EQ(Written(18446744073709551615ULL), "18446744073709551615");
    // As many digits as their type has, on every machine.
    constexpr auto size = std::numeric_limits<std::size_t>::max();
    EXPECT_EQ(Written(size), std::to_string(size));
    constexpr auto least = std::numeric_limits<long>::min();
    EXPECT_EQ(Written(least), std::to_string(least));
    EXPECT_EQ(Written(std::numeric_limits<long long>::min()), "-9223372036854775808");
    EXPECT_EQ(Written(static_cast<unsigned short>(65535)), "65535");
    EXPECT_EQ(Written(static_cast<short>(-5)), "-5");
}

TEST_F(KLogTest, WritesReals) {
    EXPECT_EQ(Written(0.5F), "0.5");
    EXPECT_EQ(Written(32.768), "32.768");
    EXPECT_EQ(Written(100.0), "100");
}

TEST_F(KLogTest, WritesQuadwordsAsOneNumber) {
    EXPECT_EQ(Written(KQword{0x0123456789ABCDEFU}), "81985529216486895");
    EXPECT_EQ(Written(_tagQword{0x89ABCDEFU, 0x01234567U}), "81985529216486895");
}

TEST_F(KLogTest, WritesIdsInTheirUsualForm) {
    const _tagGuid guid{
        0x00112233U, 0x4455U, 0x6677U, {0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff}};
    EXPECT_EQ(Written(guid), "{00112233-4455-6677-8899-aabbccddeeff}");
    EXPECT_EQ(Written(KGuid{guid}), "{00112233-4455-6677-8899-aabbccddeeff}");
}

TEST_F(KLogTest, WritesBytesInHexadecimal) {
    const unsigned char bytes[] = {0x00, 0xff, 0x1a};
    std::string text = Written(KHeapPtr<unsigned char>(bytes, 3, "test"));
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    EXPECT_EQ(text, "00ff1a");
    EXPECT_EQ(Written(KHeapPtr<unsigned char>()), "");
}

TEST_F(KLogTest, WritesUtf16AsUtf8) {
    const unsigned short text[] = {'a', 0xe9, 0x20ac, 0xd83d, 0xde00, 0};
    EXPECT_EQ(Written(&text[0]), "a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80");
    EXPECT_EQ(Written(static_cast<const unsigned short*>(nullptr)), "");
}

TEST_F(KLogTest, WritesATypeByItsName) {
    Begin();
    *log << typeid(KString) << KLogTypes::EndEntry;
    EXPECT_THAT(Entries().back(), HasSubstr("KString"));
}

TEST_F(KLogTest, WritesAnErrorsDescription) {
    KError error(48, 7000, 0, 175, "ins/KFileRule", "ParseRule", nullptr);
    error.SetInfo(KSUP::KVariant("copy,only"));
    EXPECT_EQ(error.GetSummary(), Written(error));
}

TEST_F(KLogTest, FillsTheNextPieceToItsWidth) {
    Begin() << std::setw(5) << 42 << "|" << std::setw(5) << "abc"
            << "|" << std::setw(2) << "long" << KLogTypes::EndEntry;
    EXPECT_THAT(Entries(), ElementsAre(prefixText + "    42|  abc|long"));
}

TEST_F(KLogTest, WritesAStatusInDecimalAndHexadecimal) {
    Begin() << "Failed " << KLogTypes::StatusCode << 28U << " then " << 28U << KLogTypes::EndEntry;
    const std::string entry = Entries().back();
    const std::string status = entry.substr(0, entry.find(" then "));
    EXPECT_THAT(status, HasSubstr("28"));
    EXPECT_THAT(status, testing::ContainsRegex("0x0*1[cC]"));
    EXPECT_THAT(entry, testing::EndsWith(" then 28")) << "one number only";
}

TEST_F(KLogTest, AStatusMayComeAfterAText) {
    Begin() << KLogTypes::StatusCode << "Failed to stop service dps " << 255U
            << KLogTypes::EndEntry;
    EXPECT_THAT(Entries().back(), testing::StartsWith(prefixText + " Failed to stop service dps "));
    EXPECT_THAT(Entries().back(), testing::ContainsRegex("255.*0x0*[fF][fF]"));
}

TEST_F(KLogTest, AStatusThatWasAnnouncedEndsWithItsEntry) {
    Begin() << KLogTypes::StatusCode << "none" << KLogTypes::EndEntry;
    Begin() << 28U << KLogTypes::EndEntry;
    EXPECT_THAT(Entries(), ElementsAre(prefixText + " none", prefixText + " 28"));
}

TEST_F(KLogTest, ControlCharactersAboveAsciiBecomeBlanks) {
    EXPECT_EQ(
        Written("a\xC2\x9B"
                "2Jb\x9B"
                "c\xC3\x9F\xC2\xA0\xE4"),
        "a  2Jb c\xC3\x9F\xC2\xA0\xE4"
    );
}

TEST_F(KLogTest, ControlCharactersBecomeBlanks) {
    EXPECT_EQ(
        Written("a\nb\tc\rd\x1b"
                "e\x7f"
                "f"),
        "a b c d e f"
    );
    EXPECT_EQ(
        Written(KString("fake\nKINS::KFileRule: entry\t2000")), "fake KINS::KFileRule: entry 2000"
    );
    const unsigned short wide[] = {'a', '\n', 'b', 0};
    EXPECT_EQ(Written(&wide[0]), "a b");
    *log << KLogPrefix(KString("A\nB:")) << "x" << KLogTypes::EndEntry;
    EXPECT_EQ(Entries().back(), "A B: x");
}

// The file

TEST_F(KLogTest, IsMadeForItsOwnerAndGroup) {
    EXPECT_EQ(tree.Mode("setup.log"), 0640U);
    const UmaskGuard mask(0);
    KLog other;
    other.Open(tree.Path("other.log"));
    EXPECT_EQ(tree.Mode("other.log"), 0640U);
}

TEST_F(KLogTest, ContinuesAnExistingFile) {
    tree.Write("former.log", "before\n", 0600);
    log->Open(tree.Path("former.log"));
    Begin() << "x" << KLogTypes::EndEntry;
    EXPECT_THAT(LinesIn(tree.Read("former.log")), ElementsAre("before", HasSubstr(" x\t")));
    EXPECT_EQ(tree.Mode("former.log"), 0600U);
}

TEST_F(KLogTest, SwallowsEntriesWhileItIsNotOpen) {
    KLog closed;
    closed << KLogPrefix(KString("P:")) << "x" << 1 << KLogTypes::EndEntry;
    log->Close();
    Begin() << "swallowed" << KLogTypes::EndEntry;
    log->Close();
    log->Open(Path());
    Begin() << "written" << KLogTypes::EndEntry;
    EXPECT_THAT(Entries(), ElementsAre(prefixText + " written"));
}

TEST_F(KLogTest, AnUnfinishedEntryIsLostWhenItCloses) {
    Begin() << "unfinished";
    log->Close();
    log->Open(Path());
    End();
    Begin() << "next" << KLogTypes::EndEntry;
    EXPECT_THAT(Lines(), testing::Not(testing::Contains(HasSubstr("unfinished"))));
    EXPECT_EQ(Entries().back(), prefixText + " next");
}

TEST_F(KLogTest, KnowsWhereItWasOpened) {
    EXPECT_EQ(log->GetPath(), Path());
    log->Close();
    EXPECT_EQ(log->GetPath(), Path());
    EXPECT_EQ(KLog().GetPath(), "");
}

TEST_F(KLogTest, OpeningAnotherFileClosesTheFirst) {
    const std::size_t before = OpenDescriptors().size();
    log->Open(tree.Path("second.log"));
    Begin() << "x" << KLogTypes::EndEntry;
    EXPECT_THAT(Lines(), IsEmpty());
    EXPECT_THAT(LinesIn(tree.Read("second.log")), testing::SizeIs(1));
    EXPECT_EQ(OpenDescriptors().size(), before);
}

TEST_F(KLogTest, RefusesASymbolicLink) {
    tree.Write("victim", "kept");
    tree.Link("link.log", "victim");
    tree.Link("dangling.log", "new");
    EXPECT_EQ(CodeOf([&] { log->Open(tree.Path("link.log")); }), unsigned{ELOOP});
    EXPECT_EQ(CodeOf([&] { log->Open(tree.Path("dangling.log")); }), unsigned{ELOOP});
    Begin() << "x" << KLogTypes::EndEntry;
    EXPECT_EQ(tree.Read("victim"), "kept");
    EXPECT_FALSE(tree.Exists("new"));
}

TEST_F(KLogTest, AFailedOpenIsAnErrorThatNamesTheFileAndLeavesItClosed) {
    const KError error = ErrorOf([&] { log->Open(tree.Path("no/setup.log")); });
    EXPECT_EQ(error.GetCode(), unsigned{ENOENT});
    EXPECT_THAT(error.GetInfo().GetString().c_str(), HasSubstr(tree.Path("no/setup.log")));
    Begin() << "swallowed" << KLogTypes::EndEntry;
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(KLogTest, IsNoDirectoryFifoOrDevice) {
    const HangGuard guard;
    tree.Directory("d");
    tree.Fifo("queue");
    EXPECT_NE(CodeOf([&] { log->Open(tree.Path("d")); }), 0U);
    EXPECT_NE(CodeOf([&] { log->Open(tree.Path("queue")); }), 0U);
    EXPECT_NE(CodeOf([&] { log->Open("/dev/null"); }), 0U);
}

TEST_F(KLogTest, LeavesNoDescriptor) {
    log.reset();
    const std::vector<int> before = OpenDescriptors();
    {
        KLog other;
        other.Open(tree.Path("other.log"));
        EXPECT_NE(CodeOf([&] { other.Open(tree.Path("no/x")); }), 0U);
        other.Open(tree.Path("other.log"));
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(KLogTest, AFullDiskIsSurvived) {
    const int status = InChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{100, 100};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        for (int entry = 0; entry < 10; ++entry) {
            Begin() << std::string(40, 'x').c_str() << KLogTypes::EndEntry;
        }
        return 0;
    });
    EXPECT_EQ(status, 0);
    EXPECT_LE(tree.Status("setup.log").st_size, 100);
}

TEST_F(KLogTest, AnEntryThatTheDiskCutIsNotContinuedByTheNext) {
    const int status = InChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        ::getrlimit(RLIMIT_FSIZE, &limit);
        const rlimit small{30, limit.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &small);
        Begin() << std::string(40, 'x').c_str() << KLogTypes::EndEntry;
        ::setrlimit(RLIMIT_FSIZE, &limit);
        Begin() << "next" << KLogTypes::EndEntry;
        return 0;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(Entries().back(), prefixText + " next");
}

TEST_F(KLogTest, AKilledProgramLosesNoEntryThatWasEnded) {
    const int status = InChild([&] {
        Begin() << "ended" << KLogTypes::EndEntry;
        Begin() << "not ended";
        return ::raise(SIGKILL);
    });
    EXPECT_EQ(status, 128 + SIGKILL);
    EXPECT_THAT(Entries(), ElementsAre(prefixText + " ended"));
}

// Several at once

TEST_F(KLogTest, TwoLogsHaveTheirOwnEntries) {
    KLog other;
    other.Open(tree.Path("other.log"));
    Begin() << "one";
    other << KLogPrefix(KString("O:")) << "two" << KLogTypes::EndEntry;
    *log << " more" << KLogTypes::EndEntry;
    EXPECT_THAT(Entries(), ElementsAre(prefixText + " one more"));
    EXPECT_THAT(LinesIn(tree.Read("other.log")), ElementsAre(HasSubstr("O: two")));
}

TEST_F(KLogTest, ALogInTheSamePlaceDoesNotInheritAnEntry) {
    alignas(KLog) unsigned char place[sizeof(KLog)];
    KLog* first = new (static_cast<void*>(place)) KLog;
    first->Open(tree.Path("first.log"));
    *first << KLogPrefix(KString("P:")) << "unfinished";
    first->~KLog();
    KLog* second = new (static_cast<void*>(place)) KLog;
    second->Open(tree.Path("second.log"));
    *second << KLogTypes::EndEntry;
    second->~KLog();
    EXPECT_EQ(tree.Read("first.log"), "");
    EXPECT_EQ(tree.Read("second.log").find("unfinished"), std::string::npos);
}

TEST_F(KLogTest, APrefixDiscardsNothingOfAnotherThread) {
    Begin() << "mine ";
    std::thread([&] { Begin() << "other" << KLogTypes::EndEntry; }).join();
    *log << "goes on" << KLogTypes::EndEntry;
    EXPECT_THAT(Entries(), ElementsAre(prefixText + " other", prefixText + " mine goes on"));
}

TEST_F(KLogTest, EntriesOfSeveralThreadsNeverMix) {
    std::vector<std::thread> threads;
    for (int writer = 0; writer < 4; ++writer) {
        threads.emplace_back([this, writer] {
            const std::string text(100, static_cast<char>('a' + writer));
            for (int entry = 0; entry < 300; ++entry) {
                Begin() << text.c_str() << " " << entry << " " << KString(text)
                        << KLogTypes::EndEntry;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::vector<int> next(4);
    for (const std::string& entry : Entries()) {
        const auto writer = static_cast<std::size_t>(entry[prefixText.size() + 1] - 'a');
        ASSERT_LT(writer, 4U) << entry;
        const std::string text(100, static_cast<char>('a' + writer));
        ASSERT_EQ(
            entry, prefixText + " " + text + " " + std::to_string(next[writer]++) + " " + text
        );
    }
    EXPECT_THAT(next, testing::Each(300));
}

TEST_F(KLogTest, TwoLogsOnOneFileDoNotMix) {
    KLog other;
    other.Open(Path());
    std::thread writer([&] {
        for (int entry = 0; entry < 300; ++entry) {
            other << KLogPrefix(KString(prefixText)) << "other" << KLogTypes::EndEntry;
        }
    });
    for (int entry = 0; entry < 300; ++entry) {
        Begin() << "this" << KLogTypes::EndEntry;
    }
    writer.join();
    EXPECT_THAT(
        Entries(), testing::Each(testing::AnyOf(prefixText + " this", prefixText + " other"))
    );
    EXPECT_THAT(Entries(), testing::SizeIs(600));
}

} // namespace
} // namespace KTEST
