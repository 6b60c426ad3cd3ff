// SPDX-License-Identifier: MIT
#include "GivenKit.h"

#include <gmock/gmock.h>

namespace {

class OwnRuleChecksTest : public KTEST::GivenKitWithMistake {
  protected:
    OwnRuleChecksTest() { File("one/a"); }
};

TEST_P(OwnRuleChecksTest, TellsTheMistakeAndNotTheNearMiss) {
    ExpectTheFindingOrNone();
}

INSTANTIATE_TEST_SUITE_P(
    Lines,
    OwnRuleChecksTest,
    ::testing::Values(
        KTEST::FindingRow{"WrongMode", "invalid-rule", 2, "mode=set,$pathTarget$,0798"},
        KTEST::FindingRow{"EmptyField", "invalid-rule", 2, "mode=set,,0755"},
        KTEST::FindingRow{"UnknownWord", "invalid-rule", 2, "link=symlink,a,$pathTarget$b"},
        KTEST::FindingRow{"RightMode", "invalid-rule", 0, "mode=set,/opt,0755"},
        KTEST::FindingRow{"OwnTypeIsKnown", "unknown-type", 0, "command=run,true"},
        KTEST::FindingRow{"KeyOfADefaultPath", "default-path", 0, "entry=create,$pathTarget$a"},
        KTEST::FindingRow{
            "ModeOfNothing",
            "mode-of-nothing",
            2,
            "mode=set,$pathTarget$doc,0700\ndirectory=create,$pathTarget$doc"},
        KTEST::FindingRow{
            "ModeOfWhatWasMade",
            "mode-of-nothing",
            0,
            "directory=create,$pathTarget$doc\nmode=set,$pathTarget$doc,0700"},
        KTEST::FindingRow{
            "ModeOfWhatACommandMayMake",
            "mode-of-nothing",
            0,
            "command=run,mkdir /opt/svc/doc\nmode=set,$pathTarget$doc,0700"},
        KTEST::FindingRow{"UnknownOwner", "unknown-owner", 2, "mode=set,/opt,0755,svcuser"},
        KTEST::FindingRow{"UnknownGroup", "unknown-owner", 2, "mode=set,/opt,0755,root,svcuser"},
        KTEST::FindingRow{
            "OwnerThatARuleMakes",
            "unknown-owner",
            0,
            "user=create,svcuser\nmode=set,/opt,0755,svcuser,svcuser"},
        KTEST::FindingRow{"OwnerOfEachSystem", "unknown-owner", 0, "mode=set,/opt,0755,daemon,adm"},
        KTEST::FindingRow{
            "SetUserIdOfNobody",
            "set-id-owner",
            3,
            "directory=create,$pathTarget$\nmode=set,$pathTargetBinX86_64$svc,4755"},
        KTEST::FindingRow{
            "SetGroupIdWithoutAGroup",
            "set-id-owner",
            2,
            "mode=set,$pathTargetBinX86_64$svc,2755,daemon"},
        KTEST::FindingRow{
            "SetIdsWithOwnerAndGroup",
            "set-id-owner",
            0,
            "mode=set,$pathTargetBinX86_64$svc,6755,root,root"},
        KTEST::FindingRow{
            "SetGroupIdOfADirectory",
            "set-id-owner",
            0,
            "directory=create,$pathTarget$d\nmode=set,$pathTarget$d,2755"},
        KTEST::FindingRow{"OwnerByNumber", "unknown-owner", 0, "mode=set,/opt,0755,1234,1234"},
        KTEST::FindingRow{
            "LinkOutOfTheProduct", "link-out-of-product", 2, "link=create,../usr,$pathTarget$a"},
        KTEST::FindingRow{
            "LinkWithin", "link-out-of-product", 0, "link=create,../svc/./b,$pathTarget$a"},
        KTEST::FindingRow{
            "AbsoluteLink", "link-out-of-product", 0, "link=create,/usr/bin/env,$pathTarget$a"},
        KTEST::FindingRow{
            "LinkElsewhere", "link-out-of-product", 0, "link=create,../opt,/etc/svc/a"},
        KTEST::FindingRow{
            "ConfigurationThatIsMissing",
            "missing-source",
            2,
            "config=copy,b,$pathSource$one,$pathTarget$"},
        KTEST::FindingRow{
            "ConfigurationThatIsThere",
            "missing-source",
            0,
            "config=copy,a,$pathSource$one,$pathTarget$"},
        KTEST::FindingRow{
            "PatternOfNothing",
            "empty-wildcard",
            2,
            "config=copy,*.conf,$pathSource$one,$pathTarget$"},
        KTEST::FindingRow{
            "EntryThatIsMissing",
            "missing-source",
            2,
            "entry=copy,$pathSource$one/b,$pathTarget$b"},
        KTEST::FindingRow{
            "EntryBeforeItsDirectory",
            "copy-before-create",
            2,
            "entry=copy,$pathSource$one/a,$pathTarget$d/a\ndirectory=create,$pathTarget$d"},
        KTEST::FindingRow{
            "EntryThatStays", "not-removed", 2, "entry=copy,$pathSource$one/a,/opt/svc.a"},
        KTEST::FindingRow{"UsersFileThatStays", "not-removed", 2, "user=create,svcuser"},
        KTEST::FindingRow{"DeletionInTheSystem", "system-deletion", 2, "entry=delete,/usr/bin/env"},
        KTEST::FindingRow{"SecretInACommand", "secret", 2, "command=run,tool --password=hunter2"},
        KTEST::FindingRow{
            "UnquotedMacroBehindAComma", "unquoted-macro", 2, "command=run,echo a, $pathTarget$b"},
        KTEST::FindingRow{
            "CommandsHaveBlanksBehindCommas", "blank-after-comma", 0, "command=run,echo a, b"}
    ),
    KTEST::NameOfRow()
);

} // namespace
