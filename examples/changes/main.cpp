// SPDX-License-Identifier: MIT
//
// What an installation did to the disk, as the library's calls tell it: the ground of a manifest.

#include <ins/KInstaller.h>
#include <sup++/KError.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>
#include <sup++/SvcFile.h>

#include <iostream>
#include <mutex>
#include <set>
#include <string>

namespace {

/// What is left on the disk of what was made while this lives.
class Changes {
  public:
    Changes() { static_cast<void>(SvcSetWriteListener(&Note, this)); } // always 0
    ~Changes() { static_cast<void>(SvcSetWriteListener(nullptr, nullptr)); }
    Changes(const Changes&) = delete;
    Changes& operator=(const Changes&) = delete;

    void Print() const {
        const std::lock_guard hold(guard);
        for (const std::string& path : made) {
            std::cout << path << "\n";
        }
    }

  private:
    static void Note(void* context, unsigned what, const char* path) noexcept {
        auto& changes = *static_cast<Changes*>(context);
        const std::lock_guard hold(changes.guard);
        if (what == SvcDeletedFile || what == SvcDeletedDirectory) {
            changes.made.erase(path);
        } else if (what != SvcChangedMode) {
            changes.made.insert(path);
        }
    }

    mutable std::mutex guard;
    std::set<std::string> made; // guarded by guard
};

} // namespace

int main(int argc, char** argv) try {
    const KSUP::KString kit = KSUP::KUtil::AppendPathSep(argc > 1 ? argv[1] : ".", "/");
    if (SvcLoadProductData((kit + "product.ini").c_str()) != 0) {
        return 66;
    }
    KSUP::KUtil::SetPathMap(2, kit);
    KINS::KInstaller installer;
    installer.Initialize(kit + "install.ini");
    Changes changes;
    installer.AutoInstall();
    changes.Print();
} catch (const KSUP::KError& error) {
    std::cerr << error.GetSummary().c_str() << "\n";
    return 1;
}
