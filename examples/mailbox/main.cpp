// SPDX-License-Identifier: MIT
//
// Progress on a thread of the program's own choice, as a user interface needs it: the callback, which
// runs on the engine's thread, only drops what it hears into a mailbox.

#include <ins/KInstaller.h>
#include <sup++/KError.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>
#include <sup++/SvcDispatch.h>

#include <iostream>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace {

struct Progress {
    KSUP::KString status;
    double percent = KINS::noPercentage;
};

/// Holds the newest report only: who shows progress never lags behind, however slow the display is,
/// and the engine never waits for it.
class Mailbox {
  public:
    void Put(Progress progress) {
        const std::lock_guard hold(guard);
        newest = std::move(progress);
    }

    /// The newest report if it was not taken yet.
    std::optional<Progress> Take() {
        const std::lock_guard hold(guard);
        return std::exchange(newest, std::nullopt);
    }

  private:
    std::mutex guard;
    std::optional<Progress> newest; // guarded by guard
};

void Show(const Progress& progress) {
    std::cout << progress.status.c_str();
    if (progress.percent != KINS::noPercentage) {
        std::cout << ", " << progress.percent << "%";
    }
    std::cout << "\n";
}

} // namespace

int main(int argc, char** argv) try {
    const KSUP::KString kit = KSUP::KUtil::AppendPathSep(argc > 1 ? argv[1] : ".", "/");
    if (SvcLoadProductData((kit + "product.ini").c_str()) != 0) {
        return 66;
    }
    KSUP::KUtil::SetPathMap(2, kit);

    Mailbox mailbox; // before the installer: the callback uses it until the installer is gone
    KINS::KInstaller installer;
    bool otherThread = true;
    installer.SetCallback(
        [&, home = std::this_thread::get_id()](const KSUP::KString& status, double percent) {
            otherThread = otherThread && std::this_thread::get_id() != home;
            mailbox.Put({status, percent});
        }
    );
    installer.Initialize(kit + "install.ini");
    installer.StartInstall(installer.GetDefaultProductPath()); // returns while the run goes on
    for (bool ended = false; !ended;) {
        ended = installer.IsComplete(); // throws what ended the run
        if (const std::optional<Progress> progress = mailbox.Take()) {
            Show(*progress);
        }
        if (!ended) {
            SvcPollingDispatch(); // up to 10 ms, and no longer than the run
        }
    }
    std::cout << installer.GetCompletedCount() << " rules, reported "
              << (otherThread ? "on the engine's thread" : "here") << "\n";
} catch (const KSUP::KError& error) {
    std::cerr << error.GetSummary().c_str() << "\n";
    return 1;
}
