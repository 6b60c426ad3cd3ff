// SPDX-License-Identifier: MIT
//
// The engine in a program of one's own: installs the kit in the directory that it is given.

#include <ins/KInstaller.h>
#include <sup++/KError.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>

#include <iostream>

int main(int argc, char** argv) try {
    const KSUP::KString kit = KSUP::KUtil::AppendPathSep(argc > 1 ? argv[1] : ".", "/");
    if (SvcLoadProductData((kit + "product.ini").c_str()) != 0) {
        return 66;
    }
    KSUP::KUtil::SetPathMap(2, kit); // what the script calls $pathSource$
    KINS::KInstaller installer;
    installer.SetCallback([](const KSUP::KString& status, double) {
        std::cout << status.c_str() << "\n";
    });
    installer.Initialize(kit + "install.ini");
    installer.AutoInstall(); // returns when all is done
} catch (const KSUP::KError& error) {
    std::cerr << error.GetSummary().c_str() << "\n";
    return 1;
}
