// SPDX-License-Identifier: MIT
// A whole kit is checked and planned, as anybody may do with a kit of a stranger's: there is an
// answer, and nothing is written.
#include "Fuzz.h"

#include <setup/KSetupFailure.h>
#include <setup/check/FindingText.h>
#include <setup/check/KCheck.h>
#include <setup/kit/KSetupKit.h>
#include <setup/plan/RunPlan.h>
#include <sup++/KError.h>
#include <sup++/SvcFile.h>

namespace {

using KTEST::Require;

void RefuseWrites(void* /*context*/, unsigned /*what*/, const char* /*path*/) noexcept {
    Require(false, "a question writes nothing");
}

void Check(const std::string& kit) {
    const KSETUP::KSetupKit read(kit, KSETUP::KSetupKit::Mistakes::Told);
    for (const KSETUP::KFinding& finding : KSETUP::CheckKit(read).findings) {
        Require(!finding.message.empty() && !finding.advice.empty(), "a finding has words");
        const std::string line = KSETUP::ToLine(finding, kit).English();
        Require(line.find_first_of("\n\x1B") == std::string::npos, "a finding is one line");
    }
}

void Plan(const std::string& kit, bool installs, bool json) {
    KSETUP::KSetupArguments arguments;
    arguments.command = installs ? KSETUP::Command::PlanInstall : KSETUP::Command::PlanRemove;
    arguments.kit = kit;
    arguments.productPath = installs ? "" : "/opt/fuzz";
    arguments.json = json;
    const KTEST::KMutedOutput muted;
    static_cast<void>(KSETUP::RunPlan(arguments));
}

void Try(void (*work)(const std::string& kit), const std::string& kit) {
    try {
        work(kit);
    } catch (const KSETUP::KSetupFailure& failure) {
        Require(*failure.what() != '\0', "a refusal has words");
    } catch (const KSUP::KError& error) {
        Require(!error.GetSummary().IsEmpty(), "an error has words");
    }
}

const KTEST::KScratchDirectory& Scratch() {
    static const KTEST::KScratchDirectory directory;
    static const bool isMade = [] {
        directory.Write("kit/lin/x86_64/prog", "#!/bin/sh\n", 0755);
        directory.Write("kit/lin/a.conf", "[a]\nb=c\n");
        directory.Write("kit/sub/empty", "");
        return SvcSetWriteListener(&RefuseWrites, nullptr) == 0;
    }();
    static_cast<void>(isMade);
    return directory;
}

} // namespace

/// install.ini and product.ini. Without the second a sound one is taken.
FUZZ_TARGET(Kit) {
    static unsigned count = 0;
    const KTEST::KScratchDirectory& scratch = Scratch();
    const std::vector<std::string> files = KTEST::PiecesOf(input, std::size_t{2});
    scratch.Write("kit/install.ini", files[0]);
    scratch.Write(
        "kit/product.ini",
        !files[1].empty() ? files[1]
                          : "[product]\nname=Fuzz\nserviceName=fuzz\niniFile=fuzz.ini\n"
                            "version=2.1\nbuildNumber=37\n"
    );
    const std::string kit = scratch.GetPath() + "/kit";
    const std::string before = count % 64 == 0 ? scratch.Describe() : "";
    Try(&Check, kit);
    Try([](const std::string& one) { Plan(one, true, false); }, kit);
    Try([](const std::string& one) { Plan(one, true, true); }, kit);
    Try([](const std::string& one) { Plan(one, false, false); }, kit);
    Require(count++ % 64 != 0 || scratch.Describe() == before, "the kit is as it was");
}
