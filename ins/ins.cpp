// SPDX-License-Identifier: MIT
#include <ins/KInstaller.h>
#include <ins/ins.h>
#include <sup++/KError.h>
#include <sup++/KErrorCode.h>
#include <sup++/KUtil.h>
#include <sup++/Svc.h>
#include <sup++/SvcData.h>

#include <cerrno>
#include <exception>
#include <new>
#include <string>

using KSUP::KString;

/// Owns what a caller in another language cannot hold.
struct ins_run {
    KINS::KInstaller installer;
    KString status;
    unsigned errorCode = 0;
    std::string errorText;
    bool isStarted = false;
};

namespace {

/// Does `work`; what it throws becomes the run's error.
template <class Work>
unsigned Guarded(ins_run& run, const Work& work) noexcept {
    try {
        try {
            work();
            return 0;
        } catch (const KSUP::KError& error) {
            run.errorCode = error.GetCode();
            run.errorText = error.GetSummary().c_str();
        } catch (const std::exception& error) {
            run.errorCode = EIO;
            run.errorText = error.what();
        }
    } catch (...) { // no memory for the words
        run.errorCode = ENOMEM;
    }
    return run.errorCode;
}

} // namespace

const char* ins_version(void) {
    return INSPP_VERSION;
}

unsigned ins_load_product(const char* productFile) {
    if (productFile == nullptr) {
        return KSUP::ErrorCode::invalidArgument;
    }
    try {
        KSUP::KUtil::SetPathMap(2, KSUP::KUtil::RemoveFileFromPath(productFile, "/"));
    } catch (const KSUP::KError& error) {
        return error.GetCode();
    } catch (const std::exception&) {
        return ENOMEM;
    }
    return SvcLoadProductData(productFile);
}

unsigned ins_open(const char* script, ins_run** opened) {
    if (script == nullptr || opened == nullptr) {
        return KSUP::ErrorCode::invalidArgument;
    }
    try {
        *opened = new ins_run;
    } catch (...) {
        *opened = nullptr;
        return ENOMEM;
    }
    return Guarded(**opened, [&] { (*opened)->installer.Initialize(script); });
}

void ins_set_callback(ins_run* run, ins_callback callback, void* context) {
    Guarded(*run, [&] {
        if (callback == nullptr) {
            run->installer.SetCallback({});
            return;
        }
        run->installer.SetCallback([callback, context](const KString& status, double percentage) {
            callback(status.c_str(), percentage == KINS::noPercentage ? -1 : percentage, context);
        });
    });
}

unsigned ins_start_install(ins_run* run, const char* path) {
    return Guarded(*run, [&] {
        KINS::KInstaller& installer = run->installer;
        installer.StartInstall(
            path != nullptr                  ? KString(path)
            : installer.IsProductInstalled() ? installer.GetInstalledProductPath()
                                             : installer.GetDefaultProductPath()
        );
        run->isStarted = true;
    });
}

unsigned ins_start_removal(ins_run* run) {
    return Guarded(*run, [&] {
        run->installer.StartUninstall(run->installer.GetInstalledProductPath());
        run->isStarted = true;
    });
}

int ins_poll(ins_run* run, unsigned* rulesDone, unsigned* rulesAll) {
    int answer = INS_FAILED;
    const unsigned failed = Guarded(*run, [&] {
        if (run->isStarted) {
            SvcPollingDispatch();
            answer = run->installer.IsComplete() ? INS_DONE : INS_RUNNING;
        }
    });
    Guarded(*run, [&] {
        if (rulesDone != nullptr) {
            *rulesDone = run->installer.GetCompletedCount();
        }
        if (rulesAll != nullptr) {
            *rulesAll = run->installer.GetMaxCount();
        }
    });
    return failed != 0 ? INS_FAILED : answer;
}

void ins_stop(ins_run* run) {
    try {
        run->installer.Stop();
    } catch (...) { // NOLINT(bugprone-empty-catch): the run's own thread tells what ends it
    }
}

const char* ins_status(ins_run* run) {
    Guarded(*run, [&] { run->status = run->installer.GetStatus(); });
    return run->status.c_str();
}

unsigned ins_error_code(const ins_run* run) {
    return run == nullptr ? ENOMEM : run->errorCode;
}

const char* ins_error_text(const ins_run* run) {
    return run == nullptr ? "no memory" : run->errorText.c_str();
}

void ins_close(ins_run* run) {
    if (run == nullptr) {
        return;
    }
    if (run->isStarted) {
        run->installer.Stop();
        while (ins_poll(run, nullptr, nullptr) == INS_RUNNING) {
        }
    }
    delete run;
}
