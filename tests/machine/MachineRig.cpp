// SPDX-License-Identifier: MIT
#include "MachineRig.h"

#include <sup++/Svc.h>

#include <filesystem>
#include <stdexcept>

namespace KTEST {

MachineTest::MachineTest() {
    std::filesystem::remove_all(linkDirectory);
}

MachineTest::~MachineTest() {
    std::filesystem::remove_all(linkDirectory);
}

void MachineTest::GivenLink() {
    std::filesystem::create_directories(linkDirectory);
    std::filesystem::remove(link);
    std::filesystem::create_symlink(tree.Path("p/lin/x86/svc"), link);
}

void MachineTest::GivenRecord(const std::string& text) {
    GivenLink();
    tree.Write("p/config/dps.ini", text);
}

void MachineTest::GivenProduct(const std::string& version, unsigned buildNumber) {
    tree.Write(
        "product.ini",
        std::string("[product]\nserviceName=") + unitService + "\nversion=" + version +
            "\nbuildNumber=" + std::to_string(buildNumber) + "\n"
    );
    if (SvcLoadProductData(tree.Path("product.ini").c_str()) != 0) {
        throw std::runtime_error("the product data cannot be loaded");
    }
    tree.Remove("product.ini");
}

void MachineTest::GivenProductScript(const std::string& more) {
    tree.Write("kit/svc", "program", 0755);
    tree.Write("kit/dps.ini", "[General]\nLevel=1\n");
    GivenScript(
        "[install]\n"
        "defaultPath.$os$=@T@/p\n"
        "directory=create,$pathTargetLinX86$\n"
        "directory=create,$pathTargetConfig$\n"
        "directory=create,/etc/$serviceName$\n"
        "file=copy,svc,$pathSource$,$pathTargetLinX86$\n"
        "file=copy,dps.ini,$pathSource$,$pathTargetConfig$\n" +
        more +
        "file=symlink,svc,$pathTargetLinX86$,/etc/$serviceName$,$serviceName$\n"
        "[remove]\n"
        "directory=delete,$pathTargetLinX86$\n"
        "directory=delete,$pathTargetLin$\n"
        "directory=delete,$pathTargetConfig$\n"
        "directory=delete,$pathTarget$\n"
        "directory=delete,/etc/$serviceName$\n"
    );
}

unsigned MachineTest::CodeOfEnd() {
    failure.clear();
    try {
        WaitForEnd();
    } catch (const KSUP::KError& error) {
        failure = error.GetInfo().GetString().c_str();
        return error.GetCode();
    }
    return 0;
}

std::string MachineTest::Product() const {
    const KINS::KInstaller fresh;
    if (!fresh.IsProductInstalled()) {
        return "none";
    }
    KSUP::KString path;
    KSUP::KString version;
    unsigned buildNumber = 0;
    fresh.GetInstalledProductInformation(path, version, buildNumber);
    return std::string(version.c_str()) + ' ' + std::to_string(buildNumber) + ' ' + path.c_str();
}

void MachineTest::Renew() {
    installer = std::make_unique<KINS::KInstaller>();
    installer->SetCallback(statuses.Callback());
}

} // namespace KTEST
