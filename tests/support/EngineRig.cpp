// SPDX-License-Identifier: MIT
#include "EngineRig.h"

#include "ErrorProbe.h"
#include "SetupLog.h"

#include <sup++/KUtil.h>
#include <sup++/Svc.h>

#include <stdexcept>

#include <unistd.h>

namespace KTEST {

namespace {

void Require(unsigned status, const char* what) {
    if (status != 0) {
        throw std::runtime_error(std::string(what) + " failed with " + std::to_string(status));
    }
}

} // namespace

EngineWorld::EngineWorld(TemporaryTree& tree) {
    tree.Directory("kit");
    tree.Directory("log");
    tree.Write("product.ini", std::string("[product]\nserviceName=") + unitService + "\n");
    Require(SvcLoadProductData(tree.Path("product.ini").c_str()), "SvcLoadProductData");
    tree.Remove("product.ini");
    KSUP::KUtil::SetPathMap(2, tree.Path("kit"));
    KSUP::KUtil::SetPathMap(19, tree.Path("log"));
    GivenArguments({});
}

EngineWorld::~EngineWorld() {
    // Nothing of the next test may land in the tree that goes now, or worse, where it stood.
    KSUP::KUtil::SetPathMap(2, "/nonexistent/kit");
    KSUP::KUtil::SetPathMap(19, "/nonexistent/log");
}

void EngineWorld::GivenArguments(const std::vector<std::string>& arguments) {
    std::vector<const char*> texts{"setup"};
    for (const std::string& argument : arguments) {
        texts.push_back(argument.c_str());
    }
    Require(
        SvcSetCommandLine(static_cast<unsigned>(texts.size()), texts.data()), "SvcSetCommandLine"
    );
}

void EngineWorld::GivenKey(const std::string& name, const std::string& value) {
    Require(SvcSetCustomKey(0, 0, name.c_str(), value.c_str()), "SvcSetCustomKey");
}

EngineTest::EngineTest() {
    installer->SetCallback(statuses.Callback());
}

EngineTest::~EngineTest() = default;

std::string EngineTest::InTree(std::string_view text) const {
    static constexpr std::string_view mark = "@T@";
    std::string result(text);
    const std::string path = tree.Path();
    for (std::size_t at = result.find(mark); at != std::string::npos; at = result.find(mark, at)) {
        result.replace(at, mark.size(), path);
        at += path.size();
    }
    return result;
}

void EngineTest::GivenScript(std::string_view script) {
    tree.Write("install.ini", InTree(script));
}

void EngineTest::Initialize() {
    if (::geteuid() != 0) {
        throw std::runtime_error("this test initialises an installer and must be run as root");
    }
    installer->Initialize(tree.Path("install.ini"));
}

std::string EngineTest::LogPath() const {
    return tree.Path("log/DPS Setup Log.txt");
}

std::vector<std::string> EngineTest::LogLines() const {
    return LogEntries(LogPath());
}

std::vector<std::string> EngineTest::Added() const {
    return EntriesAfter("KINS::KInstallRuleManager: Adding rule -> ", LogLines());
}

std::vector<std::string> EngineTest::Executed() const {
    return EntriesAfter("KINS::KInstallRuleManager: Executing rule -> ", LogLines());
}

void EngineTest::WaitForEnd() {
    while (!installer->IsComplete()) {
        SvcPollingDispatch();
    }
}

RuleTest::RuleTest() {
    installer->GetLog().Open(LogPath());
    manager.SetCallback(statuses.Callback());
}

void RuleTest::Add(const char* type, std::string_view line) {
    manager.AddRule(type, InTree(line));
}

void RuleTest::Run(const char* type, std::string_view line) {
    manager.Clear();
    Add(type, line);
    manager.ExecuteRules();
}

KSUP::KError RuleTest::RefusalOf(const char* type, std::string_view line) {
    return ErrorOf([&] { Add(type, line); });
}

std::string RuleTest::DescriptionOf(const char* type, std::string_view line) {
    Add(type, line);
    return Added().back();
}

} // namespace KTEST
