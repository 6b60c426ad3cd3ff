// SPDX-License-Identifier: MIT
#include "../../../support/NameOfRow.h"
#include "../../../support/TemporaryTree.h"

#include <setup/plan/KPlan.h>
#include <setup/plan/KPlannedServices.h>
#include <sup++/SvcService.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include <sys/services/KServiceError.h>
#include <sys/services/UnitText.h>
#include <unistd.h>

namespace {

using KSETUP::KPlannedEntry;
using KSETUP::KPlannedServices;
using KSETUP::KPlannedTree;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// On a machine with nothing on it, so that this one's services do not count.
class KPlannedServicesTest : public ::testing::Test {
  protected:
    void GivenProgram(unsigned mode) {
        KPlannedEntry program;
        program.kind = KSETUP::KEntryKind::File;
        program.mode = mode;
        tree.MakeDirectory("/opt/svc");
        tree.Put("/opt/svc/svc", program);
    }
    std::string Install(const std::string& program = "/opt/svc/svc") {
        return services.Install("svc", "Service", program, "-x").English();
    }

    KTEST::TemporaryTree disk;
    KPlannedTree tree{KPlannedTree::Below::Kit, disk.Path()};
    KPlannedServices services{tree, KSETUP::KServiceFate::Managed};
};

TEST_F(KPlannedServicesTest, AServiceThatIsNotThereCannotBeStartedOrStopped) {
    EXPECT_EQ(services.Start("svc"), "there is no service svc by then");
    EXPECT_EQ(services.Stop("svc"), "there is no service svc by then");
}

TEST_F(KPlannedServicesTest, AnInstalledServiceStartsUntilItIsRemoved) {
    GivenProgram(0755);
    EXPECT_THAT(Install(), IsEmpty());
    EXPECT_TRUE(tree.Exists("/etc/systemd/system/svc.service"));
    EXPECT_THAT(services.Start("svc").English(), IsEmpty());
    services.Remove("svc");
    EXPECT_FALSE(tree.Exists("/etc/systemd/system/svc.service"));
    EXPECT_THAT(services.Start("svc").English(), HasSubstr("there is no service"));
}

TEST_F(KPlannedServicesTest, AUnitFileOfOthersIsNotReplaced) {
    KPlannedEntry unit;
    unit.kind = KSETUP::KEntryKind::File;
    tree.Put("/lib/systemd/system/svc.service", unit);
    EXPECT_THAT(Install(), HasSubstr("not ours, and it stays as it is: /lib/systemd/system/svc"));
    EXPECT_THAT(services.Install("svc", "", "", "").English(), IsEmpty()); // adopted
    EXPECT_THAT(services.Start("svc").English(), IsEmpty());
}

TEST_F(KPlannedServicesTest, WithoutAProgramThereHasToBeALink) {
    EXPECT_THAT(
        services.Install("svc", "", "", "").English(), HasSubstr("nor the link /etc/svc/svc")
    );
    KPlannedEntry link;
    link.kind = KSETUP::KEntryKind::Link;
    tree.MakeDirectory("/etc/svc");
    tree.Put("/etc/svc/svc", link);
    EXPECT_THAT(services.Install("svc", "", "", "").English(), IsEmpty());
}

TEST_F(KPlannedServicesTest, AProgramThatCannotRunIsToldAtTheStart) {
    EXPECT_THAT(Install(), IsEmpty());
    EXPECT_EQ(services.Start("svc"), "the program of svc, /opt/svc/svc, is missing by then");
    services.Stop("svc");
    GivenProgram(0644);
    EXPECT_EQ(services.Start("svc"), "the program of svc, /opt/svc/svc, is not executable");
}

TEST_F(KPlannedServicesTest, WhatACommandMadeIsNotKnown) {
    services.NoteCommand();
    EXPECT_THAT(services.Start("svc").English(), IsEmpty());
    EXPECT_THAT(Install(), IsEmpty());
    EXPECT_THAT(services.Start("svc").English(), IsEmpty());
}

TEST_F(KPlannedServicesTest, AnInstanceComesFromItsTemplate) {
    KPlannedEntry unit;
    unit.kind = KSETUP::KEntryKind::File;
    tree.Put("/lib/systemd/system/svc@.service", unit);
    EXPECT_THAT(services.Start("svc@one").English(), IsEmpty());
}

TEST_F(KPlannedServicesTest, WhatSystemdWouldNotReadIsRefused) {
    EXPECT_THAT(Install("svc"), HasSubstr("absolute path of a file: svc"));
    EXPECT_THAT(Install("/opt/sv'c"), HasSubstr("no program with a quote"));
    EXPECT_THAT(
        services.Install("svc", "a\\", "/svc", "-x").English(), HasSubstr("ends in a backslash")
    );
    EXPECT_THAT(
        services.Install("svc", "a", "/svc", "-x \"a").English(), HasSubstr("not closed: -x \"a")
    );
    EXPECT_THAT(services.Install("svc", "a", "/svc", R"(-x "a\"b" \" 'c\')").English(), IsEmpty());
}

struct NamedService {
    const char* name;
    std::string service;

    friend void PrintTo(const NamedService& row, std::ostream* out) { *out << row.name; }
};

/// The library tells its rule only when asked about a service; here the two are held together.
class ServiceNameTest : public ::testing::TestWithParam<NamedService> {};

TEST_P(ServiceNameTest, IsRefusedAsTheLibraryRefusesIt) {
    constexpr unsigned invalidArgument = 36;
    unsigned state = 0;
    const unsigned status = SvcGetServiceStatus(0, GetParam().service.c_str(), &state);
    EXPECT_EQ(!KSYS::WhyNotAServiceName(GetParam().service).empty(), status == invalidArgument);
}

INSTANTIATE_TEST_SUITE_P(
    Names,
    ServiceNameTest,
    ::testing::Values(
        NamedService{"Plain", "svc-2.1_a:b"},
        NamedService{"Instance", "svc@one"},
        NamedService{"Escaped", "a\\x20b"},
        NamedService{"Longest", std::string(247, 'a')},
        NamedService{"TooLong", std::string(248, 'a')},
        NamedService{"Empty", ""},
        NamedService{"Blank", "a b"},
        NamedService{"Slash", "a/b"},
        NamedService{"Umlaut", "\xC3\xA4"},
        NamedService{"DashInFront", "-a"},
        NamedService{"DotInFront", ".a"},
        NamedService{"AtInFront", "@a"},
        NamedService{"Template", "a@"}
    ),
    KTEST::NameOfRow()
);

} // namespace
