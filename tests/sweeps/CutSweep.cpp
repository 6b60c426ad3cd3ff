// SPDX-License-Identifier: MIT
//
// The power goes: what is on the disk then is what later runs find. Each run goes on disks of its own,
// whose content is taken after each call that changes a file or flushes; the kernel may have written
// back more than was asked for by then, so each run goes several times, with more or less of it.
// Every content that leaves other files than those before it is mounted, and judged.
#include "Files.h"
#include "KAftermath.h"
#include "KDiskMachine.h"
#include "Sweeps.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <set>
#include <stdexcept>
#include <system_error>

#include <sched.h>

namespace KSWEEP {

namespace {

namespace fs = std::filesystem;

/// What the kernel wrote back of its own accord, one letter for each disk.
///
///   a   nothing
///   b   as much as an unrelated flush draws along: names and sizes, but no bytes of files
///   c   all
constexpr std::array<const char*, 3> writtenBackTogether = {"a", "b", "c"};
constexpr std::array<const char*, 5> writtenBackApart = {"aa", "bb", "cc", "ac", "ca"};

const std::vector<KFileSystem>& FileSystems() {
    static const std::vector<KFileSystem> all = {
        // Nothing is written back in time, and nothing just because a file takes another's name.
        {"ext4-late",
         "ext4",
         "mkfs.ext4 -q -F -b 4096 -J size=4 -E lazy_itable_init=0,lazy_journal_init=0",
         "noauto_da_alloc,commit=300"},
        {"ext4",
         "ext4",
         "mkfs.ext4 -q -F -b 4096 -J size=4 -E lazy_itable_init=0,lazy_journal_init=0",
         ""},
        {"xfs", "xfs", "mkfs.xfs -q -f", ""},
        {"btrfs", "btrfs", "mkfs.btrfs -q -f", ""}};
    return all;
}

/// Empty when this machine can have such disks, else why not.
std::string WhyNot(const KFileSystem& fileSystem) {
    std::ifstream file("/proc/filesystems");
    const std::string known{std::istreambuf_iterator<char>(file), {}};
    if (known.find("\t" + fileSystem.type + "\n") == std::string::npos) {
        return "this kernel cannot mount it";
    }
    const std::string maker = fileSystem.make.substr(0, fileSystem.make.find(' '));
    const std::string find = "command -v " + maker + " >/dev/null";
    return std::system(find.c_str()) == 0
               ? ""
               : "there is no " + maker; // NOLINT(cert-env33-c): as in Shell
}

/// What the disks held at a moment of a run.
struct KMoment {
    std::string name;
    std::string at;
    KDisksContent content;
};

/// One way on one layout.
class KCutWay {
  public:
    KCutWay(
        const KSubject& itsSubject,
        const KWay& itsWay,
        KDiskMachine& itsMachine,
        std::string itsLayout
    )
        : subject(itsSubject),
          way(itsWay),
          aftermath(itsSubject, itsWay),
          machine(itsMachine),
          layout(std::move(itsLayout)) {}

    void Sweep(const KFileSystem& fileSystem, const KSelection& selection, KReport& report);
    /// How the names of its points begin.
    std::string NameOf(const KFileSystem& fileSystem) const {
        return way.name + ":" + layout + "/" + fileSystem.name + "/";
    }

  private:
    std::vector<KMoment> Run(const KFileSystem& fileSystem, const std::string& writtenBack);
    void WriteBack(const std::string& writtenBack);
    void Judge(const KFileSystem& fileSystem, const KMoment& moment, KReport& report);
    std::string FindWrong(const KFileSystem& fileSystem, const KDisksContent& content);
    std::string
    FindWrongAfterEnd(const KFileSystem& fileSystem, const KDisksContent& content) const;
    std::string FindUnreadable(const std::string& said) const;

    const KSubject& subject;
    const KWay& way;
    const KAftermath aftermath;
    KDiskMachine& machine;
    const std::string layout;
    KDisksContent start;
    std::map<std::string, std::string> verdicts; ///< by what is there; the same on each file system
    std::set<std::string> judged;                ///< on the file system that it is at
};

constexpr const char* atEnd = "its end";

std::vector<KMoment> KCutWay::Run(const KFileSystem& fileSystem, const std::string& writtenBack) {
    std::vector<KMoment> moments;
    const std::string begin = NameOf(fileSystem) + writtenBack + "/";
    machine.Start(fileSystem, start);
    unsigned number = 0;
    std::string writes;
    const auto take = [&](const std::string& name, const std::string& at) {
        const KDisksContent& former = moments.empty() ? start : moments.back().content;
        if (std::string count = machine.CountWrites(); count != writes || at == atEnd) {
            writes = std::move(count);
        } else {
            return;
        }
        KDisksContent content = machine.Read(former);
        if (content != former || at == atEnd) {
            moments.push_back({begin + name, at, std::move(content)});
        }
    };
    const KTracedEnd end =
        Trace(subject.Words(way.words), {}, FileChanges(), [&](const KSeenCall& call, bool isDone) {
            if (isDone) {
                WriteBack(writtenBack);
                take(std::to_string(++number), call.ToText());
            }
        });
    take("end", atEnd); // what the run did not flush may be lost now
    const std::string difference = Difference(subject.LookOf(way.to), subject.GetMachine().Look());
    machine.Stop();
    if (end.exitCode != way.exitCode || !difference.empty()) {
        throw std::runtime_error(
            begin + " without any disturbance ended with " + std::to_string(end.exitCode) + ": " +
            end.err + difference
        );
    }
    return moments;
}

void KCutWay::WriteBack(const std::string& writtenBack) {
    for (std::size_t at = 0; at < writtenBack.size(); ++at) {
        KDisk& disk = *machine.GetDisks()[at];
        if (writtenBack[at] == 'b') {
            disk.FlushUnrelated();
        } else if (writtenBack[at] == 'c') {
            disk.FlushAll();
        }
    }
}

void KCutWay::Sweep(const KFileSystem& fileSystem, const KSelection& selection, KReport& report) {
    report.Begin(way.name + " " + layout + " " + fileSystem.name);
    judged.clear();
    start = machine.ContentOf(fileSystem, way.from);
    std::vector<std::string> variants(writtenBackTogether.begin(), writtenBackTogether.end());
    if (machine.GetDisks().size() > 1) {
        variants.assign(writtenBackApart.begin(), writtenBackApart.end());
    }
    unsigned number = 0;
    for (const std::string& writtenBack : variants) {
        if (!selection.HasBelow(NameOf(fileSystem) + writtenBack + "/")) {
            continue;
        }
        for (const KMoment& moment : Run(fileSystem, writtenBack)) {
            if (selection.Has(number++, moment.name)) {
                Judge(fileSystem, moment, report);
            }
        }
    }
    report.End();
}

void KCutWay::Judge(const KFileSystem& fileSystem, const KMoment& moment, KReport& report) {
    const bool hasEnded = moment.at == atEnd;
    std::string key;
    try {
        machine.Start(fileSystem, moment.content);
        key = (hasEnded ? "ended " : "") + machine.Look();
        if (!judged.insert(key).second) {
            machine.Stop();
            return;
        }
        const auto [known, isNew] = verdicts.try_emplace(key);
        if (isNew) {
            known->second = hasEnded ? FindWrongAfterEnd(fileSystem, moment.content)
                                     : FindWrong(fileSystem, moment.content);
        }
        machine.Stop();
        report.Add(moment.name, moment.at, known->second);
    } catch (const std::system_error& failure) { // the file system itself
        report.Add(moment.name, moment.at, failure.what());
        machine.Stop();
    }
}

std::string KCutWay::FindWrong(const KFileSystem& fileSystem, const KDisksContent& content) {
    std::string said;
    std::string wrong = aftermath.FindLie(&said);
    if (const std::string file = FindUnreadable(said); !file.empty()) {
        wrong = file;
    }
    if (wrong.empty() && !way.asksOnly) {
        wrong = aftermath.GoBackOrOn();
    }
    if (wrong.empty() && way.otherWords == subject.Restoration()) {
        machine.Stop();
        machine.Start(fileSystem, content);
        wrong = aftermath.GoElsewhere();
    }
    return wrong;
}

/// What was said to be done is there.
std::string
KCutWay::FindWrongAfterEnd(const KFileSystem& fileSystem, const KDisksContent& content) const {
    const std::string said = subject.Ask();
    std::string wrong = FindUnreadable(said);
    const std::string difference = Difference(subject.LookOf(way.to), subject.GetMachine().Look());
    if (wrong.empty() && !difference.empty()) {
        wrong = "it ended, and then it is not as it was" + difference;
    }
    if (wrong.empty() && said != subject.AnswersOf(way.to)) {
        wrong = "it ended, and then other things are told of it:\n" + said;
    }
    if (wrong.empty() && way.otherWords == subject.Restoration()) {
        machine.Stop();
        machine.Start(fileSystem, content);
        wrong = aftermath.GoElsewhere();
    }
    return wrong;
}

/// Files that ins-setup keeps for itself are whole at any moment, or not there.
std::string KCutWay::FindUnreadable(const std::string& said) const {
    static const std::array<const char*, 5> neverEmpty = {
        "state", "manifest", "key", "fingerprint", "kit/install.ini"};
    for (const char* name : neverEmpty) {
        const fs::path path = subject.GetMachine().StateDirectory() + "/" + name;
        std::error_code none;
        if (fs::exists(path, none) && fs::file_size(path, none) == 0) {
            return path.string() + " is empty";
        }
    }
    static const std::regex complaint("[^\n]*(cannot be understood|could not be understood|damaged|"
                                      "cannot be read)[^\n]*");
    std::smatch found;
    return std::regex_search(said, found, complaint) ? found.str() : "";
}

} // namespace

void HideManager() {
    if (::unshare(CLONE_NEWNS) != 0) {
        throw std::system_error(errno, std::generic_category(), "mounts of our own");
    }
    Shell("mount --make-rprivate / && mount -t tmpfs none /run/systemd");
}

void SweepCuts(const KSubject& subject, const KSelection& selection, KReport& report) {
    KSelection inWay = selection; // a machine takes whole ways, to judge the same only once
    inWay.slice = 0;
    inWay.slices = 1;
    std::vector<const KFileSystem*> fileSystems;
    for (const KFileSystem& one : FileSystems()) {
        if (const std::string why = WhyNot(one); !why.empty()) {
            report.Skip(one.name, why);
        } else {
            fileSystems.push_back(&one);
        }
    }
    unsigned number = 0;
    for (const KLayout layout : {KLayout::Together, KLayout::Apart}) {
        KDiskMachine machine(subject.GetMachine(), layout);
        const std::string name = layout == KLayout::Together ? "together" : "apart";
        for (const KWay& way : subject.GetWays()) {
            if (!selection.HasWay(way.name) || way.asksOnly ||
                number++ % selection.slices != selection.slice) {
                continue;
            }
            KCutWay cut(subject, way, machine, name);
            for (const KFileSystem* fileSystem : fileSystems) {
                if (inWay.HasBelow(cut.NameOf(*fileSystem))) {
                    cut.Sweep(*fileSystem, inWay, report);
                }
            }
        }
    }
}

} // namespace KSWEEP
