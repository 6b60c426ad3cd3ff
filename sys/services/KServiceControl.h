// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <string>

#include <sys/services/KSystemdUnit.h>
#include <sys/services/KUnitFiles.h>

namespace KSYS {

/// What a service call does: the unit's file on the disk and the unit in systemd, brought together.
/// SvcService.h says what each operation means to its caller; all throw KServiceError where it
/// speaks of a status, and std::bad_alloc.
///
/// Thread   one; each call makes its own
///
///     KServiceControl("dps").Start();
class KServiceControl {
  public:
    using Clock = KBus::Clock;
    using Notice = KUnitFiles::Notice;

    /// How long is waited. Tests shorten it.
    struct Limits {
        std::chrono::milliseconds start = std::chrono::seconds(120);
        std::chrono::milliseconds stop = std::chrono::seconds(120);
        /// For what only asks systemd or has it read its files.
        std::chrono::milliseconds ask = std::chrono::seconds(30);
        /// How long a program that was started has to last. systemd says that a program of the types
        /// "exec" and "simple" has started once it runs; one that misses its configuration or
        /// its port ends some tenths of a second later, and this is when the installation can
        /// still tell. Longer would hold up each installation for the sake of the few that fail.
        std::chrono::milliseconds settle = std::chrono::seconds(1);
        /// For the end of processes that got SIGKILL.
        std::chrono::milliseconds kill = std::chrono::seconds(10);
    };

    /// Throws   KServiceError 36 for what cannot be a service's name
    explicit KServiceControl(const std::string& serviceName, Notice takerOfNotices = {});
    KServiceControl(
        const std::string& serviceName,
        const std::string& rootDirectory,
        const Limits& waits,
        Notice takerOfNotices = {}
    );

    void Create(
        const std::string& displayName, const std::string& program, const std::string& arguments
    );
    void Delete();
    void Start();
    void Stop();
    void Stop(std::chrono::milliseconds limit);

    /// Has systemd read all unit files again.
    void Reload();

    /// 1 stopped, 2 starting, 3 stopping, 4 running.
    unsigned GetState();

    /// Whether systemd runs this system. It does not in containers and while images are built.
    bool IsSystemdRunning() const;
    /// Throws   KServiceError 180 unless there is a unit file for the service
    void RequireFile() const;

  private:
    /// What there was before a start was asked for.
    struct KFormerRun {
        bool isActive = false;
        bool isSettled = false; // and so not watched again
        KSystemdUnit::Program program;
    };

    std::string ChooseProgram(const std::string& program) const;
    void RefuseForeign() const;
    void WriteFile(
        const std::string& displayName, const std::string& program, const std::string& arguments
    ) const;
    void RequireSystemd(const char* action) const;
    void DeleteOffline() const;
    void RemoveFileIfOurs() const;
    void StopForDeletion(KSystemdUnit& asked) const;
    bool IsSettled(const KSystemdUnit::Program& program) const;
    void
    CheckStarted(KSystemdUnit& asked, const std::string& jobResult, const KFormerRun& former) const;
    void AwaitSettled(KSystemdUnit& asked, unsigned restarts) const;
    [[noreturn]] void RaiseUnknown() const;
    [[noreturn]] void Raise(unsigned code, const std::string& words) const;

    template <class Work>
    void WithUnit(std::chrono::milliseconds limit, Work work) const;

    const std::string name;
    const std::string unit;
    const std::string root;
    const Limits limits;
    const Notice notice;
    const KUnitFiles files;
};

} // namespace KSYS
