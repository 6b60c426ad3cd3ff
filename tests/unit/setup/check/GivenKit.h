// SPDX-License-Identifier: MIT
#pragma once

#include "../../../support/NameOfRow.h"
#include "../../../support/TemporaryTree.h"

#include <setup/check/KCheck.h>
#include <setup/kit/KSetupKit.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace KTEST {

/// A kit whose script nothing is wrong with, to which a test adds what it is about.
///
///     Install("file=Copy,a,/b,/c");
///     EXPECT_EQ(TheFinding("ignored-operation"), "install.ini:2:6 …");
class GivenKit : public ::testing::Test {
  protected:
    /// Lines of [install], from the script's second line on, before those that make it sound.
    void Install(const std::string& lines) { install += lines + "\n"; }
    /// Lines of [remove], before those that remove what the sound lines install.
    void Remove(const std::string& lines) { remove += lines + "\n"; }
    /// Further sections, at the end.
    void Sections(const std::string& lines) { sections += lines + "\n"; }
    void File(const std::string& name) { tree.Write("kit/" + name, "bytes"); }
    void ProductName(const std::string& name) { productName = name; }
    /// Lines of [values] in the product data.
    void Values(const std::string& lines) { values += lines; }
    /// A script as it stands, in the place of all this.
    void Script(const std::string& text) { script = text; }

    void WriteKit() {
        tree.Write(
            "kit/product.ini",
            "[product]\nname=" + productName +
                "\nserviceName=svc\niniFile=svc.ini\nversion=2.1\nbuildNumber=37\n" +
                (values.empty() ? "" : "[values]\n" + values)
        );
        tree.Write("kit/lin/x86_64/svc", "bytes", 0755);
        tree.Write(
            "kit/install.ini",
            !script.empty() ? script
                            : "[install]\n" + install + soundInstall + "[remove]\n" + remove +
                                  soundRemove + sections
        );
    }

    KSETUP::KCheckResult Check(const std::string& productPath = "") {
        WriteKit();
        return KSETUP::CheckKit(KSETUP::KSetupKit(tree.Path("kit")), productPath);
    }

    /// What one check found, each as "FILE:LINE:COLUMN SEVERITY [TEXT] MESSAGE; ADVICE".
    std::vector<std::string> Findings(const std::string& rule) {
        std::vector<std::string> found;
        for (const KSETUP::KFinding& finding : Check().findings) {
            if (finding.rule == rule) {
                const bool isError = finding.severity == KSETUP::KSeverity::Error;
                found.push_back(
                    finding.file + ":" + std::to_string(finding.line) + ":" +
                    std::to_string(finding.column) + (isError ? " error" : " warning") + " [" +
                    finding.text + "] " + finding.message.English() + "; " +
                    finding.advice.English()
                );
            }
        }
        return found;
    }

    std::string TheFinding(const std::string& rule) {
        const std::vector<std::string> found = Findings(rule);
        return found.size() == 1 ? found.front() : std::to_string(found.size()) + " findings";
    }

    bool Finds(const std::string& rule) { return !Findings(rule).empty(); }

    TemporaryTree tree;

  private:
    static constexpr char soundInstall[] =
        "defaultPath.$os$=/opt/svc\n"
        "directory=create,$pathTargetBinX86_64$\n"
        "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
        "directory=create,$pathTargetConfig$\n"
        "profile=put,$pathTargetConfig$$iniFile$,Product,Name,$product$\n"
        "directory=create,/etc/$serviceName$\n"
        "file=symlink,svc,$pathTargetBinX86_64$,/etc/$serviceName$,$serviceName$\n";
    static constexpr char soundRemove[] = "file=delete,$iniFile$,$pathTargetConfig$\n"
                                          "directory=delete,$pathTargetConfig$\n"
                                          "file=delete,svc,$pathTargetBinX86_64$\n"
                                          "directory=delete,$pathTargetBinX86_64$\n"
                                          "directory=delete,$pathTargetLin$\n"
                                          "directory=delete,$pathTarget$\n"
                                          "file=delete,$serviceName$,/etc/$serviceName$\n"
                                          "directory=delete,/etc/$serviceName$\n";

    std::string productName = "Svc";
    std::string values;
    std::string install;
    std::string remove;
    std::string sections;
    std::string script;
};

/// A row of a table of script lines.
struct ScriptLine {
    const char* name;
    const char* line;

    friend void PrintTo(const ScriptLine& row, std::ostream* out) { *out << row.name; }
};

/// The same kit, once for each row; its suites take KTEST::NameOfRow() for the rows' names.
class GivenKitWithLine : public GivenKit, public ::testing::WithParamInterface<ScriptLine> {};

/// A row of a table of mistakes and near misses: lines of [install], and the line in which a rule of
/// the check finds something, or 0 for none.
struct FindingRow {
    const char* name;
    const char* rule;
    unsigned line;
    const char* lines;

    friend void PrintTo(const FindingRow& row, std::ostream* out) { *out << row.name; }
};

/// The same kit, once for each such row.
class GivenKitWithMistake : public GivenKit, public ::testing::WithParamInterface<FindingRow> {
  protected:
    void ExpectTheFindingOrNone() {
        Install(GetParam().lines);
        if (GetParam().line == 0) {
            EXPECT_THAT(Findings(GetParam().rule), ::testing::IsEmpty());
        } else {
            EXPECT_THAT(
                TheFinding(GetParam().rule),
                ::testing::StartsWith("install.ini:" + std::to_string(GetParam().line) + ":")
            );
        }
    }
};

} // namespace KTEST
