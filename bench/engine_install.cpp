// SPDX-License-Identifier: MIT
// engine_install KIT PATH: the engine alone, as a program that embeds it installs a kit, without what
// ins-setup looks at before and remembers after a run.
#include <ins/KInstaller.h>
#include <sup++/KError.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>
#include <sup++/SvcDispatch.h>

#include <cstdio>

int main(int argc, char** argv) try {
    if (argc != 3) {
        std::fprintf(stderr, "usage: engine_install KIT PATH\n");
        return 64;
    }
    const KSUP::KString kit = KSUP::KUtil::AppendPathSep(argv[1], "/");
    if (SvcLoadProductData((kit + "product.ini").c_str()) != 0) {
        return 66;
    }
    KSUP::KUtil::SetPathMap(2, kit); // the source root
    KINS::KInstaller installer;
    double last = 0;
    installer.SetCallback([&last](const KSUP::KString&, double percent) { last = percent; });
    installer.Initialize(kit + "install.ini");
    installer.StartInstall(argv[2]);
    while (!installer.IsComplete()) {
        SvcPollingDispatch();
    }
    return last < 0 ? 1 : 0;
} catch (const KSUP::KError& error) {
    std::fprintf(stderr, "%s\n", error.GetSummary().c_str());
    return 1;
}
