// SPDX-License-Identifier: MIT
//
// A setup program as somebody else would write it: installs the kit in the directory that it is
// given, or removes what the kit has installed, and tells what it has done.

#include <ins/KInstaller.h>
#include <sup++/KError.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>
#include <sup++/SvcMessage.h>

#include <iostream>
#include <string_view>

int main(int argc, char** argv) try {
    if (argc != 3) {
        return 64;
    }
    const KSUP::KString kit = KSUP::KUtil::AppendPathSep(argv[2], "/");
    if (SvcLoadProductData((kit + "product.ini").c_str()) != 0) {
        return 66;
    }
    KSUP::KUtil::SetPathMap(2, kit);
    KINS::KInstaller installer;
    installer.Initialize(kit + "install.ini");
    if (std::string_view(argv[1]) == "remove") {
        installer.AutoUninstall();
    } else {
        installer.AutoInstall();
    }
    std::cout << SvcGetMessagePtr(0x2C0002) << "\n"; // from a catalogue beside the library
    std::cout << installer.GetCompletedCount() << " of " << installer.GetMaxCount() << "\n";
} catch (const KSUP::KError& error) {
    // Thrown by one library, through another, caught here: their type information must be one.
    std::cout << "error " << error.GetCode() << "\n";
    return 1;
}
