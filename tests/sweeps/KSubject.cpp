// SPDX-License-Identifier: MIT
#include "KSubject.h"

#include "Files.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace KSWEEP {

namespace {

namespace fs = std::filesystem;

const std::string place = "/srv/sweep";
const std::string kit1 = place + "/1.0";
const std::string kit2 = place + "/1.1";
const std::string kitThatFails = place + "/1.2";

constexpr std::size_t partLength = 90000; // more than one call copies

std::string Product(const char* version) {
    return std::string("[product]\nname=Sweep\nserviceName=sweep\niniFile=sweep.ini\nversion=") +
           version + "\nbuildNumber=7\n";
}

constexpr const char* installed =
    "[install]\n"
    "defaultPath.$os$=/opt/sweep\n"
    "directory=create,$pathTargetBin$\n"
    "directory=create,$pathTargetConfig$\n"
    "directory=create,$pathTarget$data\n"
    "directory=create,$pathTarget$old\n"
    "directory=create,/etc/$serviceName$\n"
    "file=copy,sweepd,$pathSource$,$pathTargetBin$\n"
    "file=copy,*.dat,$pathSource$data,$pathTarget$data\n"
    "file=copy,edited.conf,$pathSource$,$pathTargetConfig$\n"
    "file=copy,plain.conf,$pathSource$,$pathTargetConfig$\n"
    "profile=put,$pathTargetConfig$$iniFile$,General,Level,$verInfo$\n"
    "profile=create,$pathTargetConfig$made.ini\n"
    "profile=put,$pathTargetConfig$list.ini,Files,One,$pathTarget$data/listed.dat\n"
    "profile=remove_file,$pathTargetConfig$list.ini,Files,listed\n"
    "file=symlink,a.dat,$pathTarget$data,$pathTarget$,newest\n"
    "link=create,../../opt/sweep/lin,/srv/elsewhere/sweep-programs\n"
    "user=create,sweepuser,/opt/sweep\n"
    "mode=set,$pathTarget$data,0750,sweepuser,sweepuser\n"
    "service=install,$serviceName$,Sweep,$pathTargetBin$sweepd,-x\n";

constexpr const char* link =
    "file=symlink,sweepd,$pathTargetBin$,/etc/$serviceName$,$serviceName$\n";

constexpr const char* removed = "[remove]\n"
                                "service=remove,$serviceName$\n"
                                "file=delete,sweep-programs,/srv/elsewhere\n"
                                "file=delete,newest,$pathTarget$\n"
                                "file=delete,*,$pathTarget$data\n"
                                "directory=delete,$pathTarget$data\n"
                                "directory=delete,$pathTarget$old\n"
                                "file=delete,*,$pathTargetBin$\n"
                                "directory=delete,$pathTargetBin$\n"
                                "directory=delete,$pathTargetLin$\n"
                                "file=delete,*,$pathTargetConfig$\n"
                                "directory=delete,$pathTargetConfig$\n"
                                "directory=delete,$pathTarget$\n"
                                "file=delete,$serviceName$.conf,/usr/lib/sysusers.d\n"
                                "file=delete,$serviceName$,/etc/$serviceName$\n"
                                "directory=delete,/etc/$serviceName$\n";

/// To ask for the packages of this machine, and to have its service manager read all units again at
/// each reload, takes longer than all else that a run does.
void HurryMachine() {
    Shell("mount -t tmpfs none /var/lib/dpkg && mkdir /var/lib/dpkg/info && "
          ": > /var/lib/dpkg/status");
    Shell("mount -t tmpfs none /usr/lib/systemd/system-generators");
    const std::string units = "/usr/lib/systemd/system";
    Shell(
        "mkdir " + place + ".units && cd " + units +
        " && cp -a *.target dbus* systemd-journald* systemd-exit* systemd-poweroff* " + place +
        ".units && mount --bind " + place + ".units " + units
    );
}

void WriteFiles(const std::string& kit, char mark) {
    Write(kit + "/sweepd", "#!/bin/sh\nexec sleep 1000 # " + std::string(1, mark) + "\n", 0755);
    Write(kit + "/edited.conf", std::string("offered=") + mark + "\n");
    Write(kit + "/plain.conf", std::string("plain=") + mark + "\n");
    Write(kit + "/data/a.dat", std::string(partLength, mark));
    Write(kit + "/data/b.dat", "the same in each\n");
    Write(kit + "/data/listed.dat", std::string(10, mark));
}

} // namespace

KSubject::KSubject(std::string itsProgram)
    : program(std::move(itsProgram)),
      machine("sweep", "Sweep", place + "/states") {
    HurryMachine();
    MakeKits();
    MakeStates();
}

void KSubject::MakeKits() const {
    fs::create_directories("/srv/elsewhere"); // where others have something too
    WriteFiles(kit1, '1');
    Write(kit1 + "/product.ini", Product("1.0"));
    Write(kit1 + "/data/obsolete.dat", "gone in the next one\n");
    Write(kit1 + "/gone", "gone too\n");
    const std::string once = "file=copy,gone,$pathSource$,$pathTarget$old\n";
    Write(kit1 + "/install.ini", installed + once + link + removed);
    for (const std::string& kit : {kit2, kitThatFails}) {
        WriteFiles(kit, '2');
        Write(kit + "/data/new.dat", "new\n");
        Write(kit + "/product.ini", Product(kit == kit2 ? "1.1" : "1.2"));
        const std::string more = "profile=put,$pathTargetConfig$$iniFile$,More,Key,value\n"
                                 "file=delete,gone,$pathTarget$old\n";
        const char* const fails = kit == kit2 ? "" : "command=run,false\n";
        Write(kit + "/install.ini", installed + more + link + fails + removed);
    }
    Shell(
        "cd " + place + " && rm -f maker.* && minisign -G -W -s maker.key -p maker.pub >maker.out"
    );
    for (const std::string& kit : {kit1, kit2, kitThatFails}) {
        Shell(program + " kit seal --sign " + place + "/maker.key --kit " + kit + " >maker.out");
    }
}

std::vector<std::string> KSubject::Words(const std::vector<std::string>& words) const {
    std::vector<std::string> all = {program};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

std::vector<std::string> KSubject::Restoration() const {
    return {"restore", "--kit", kit2};
}

KTracedEnd KSubject::Run(const std::vector<std::string>& words) const {
    return RunUntraced(Words(words));
}

std::string KSubject::Ask() const {
    std::string said;
    const std::vector<std::vector<std::string>> questions = {
        {"status", "--kit", kit1}, {"status", "--verify", "--kit", kit1}, {"list"}};
    for (const std::vector<std::string>& words : questions) {
        const KTracedEnd end = Run(words);
        said += words.front() + " " + std::to_string(end.exitCode) + "\n" + end.out + end.err;
    }
    static constexpr std::string_view time = "0000-00-00 00:00:00"; // of the last run
    const auto isTime = [&](std::string_view text) {
        return text.size() == time.size() &&
               std::equal(text.begin(), text.end(), time.begin(), [](char letter, char wanted) {
                   return wanted == '0' ? letter >= '0' && letter <= '9' : letter == wanted;
               });
    };
    for (std::size_t at = 0; at + time.size() <= said.size(); ++at) {
        if (isTime(std::string_view(said).substr(at, time.size()))) {
            said.replace(at, time.size(), "TIME");
        }
    }
    return said;
}

bool KSubject::IsInterrupted() const {
    return fs::exists(machine.StateDirectory() + "/state");
}

void KSubject::Note(const std::string& state) {
    machine.Keep(state);
    looks[state] = machine.Look();
    answers[state] = Ask();
}

void KSubject::Reach(const std::string& state, const std::string& from, const KWay& way) {
    machine.PutBack(from);
    const KTracedEnd end = Run(way.words);
    if (end.exitCode != way.exitCode) {
        throw std::runtime_error(
            way.name + " without any disturbance ended with " + std::to_string(end.exitCode) +
            ": " + end.err
        );
    }
    Note(state);
}

void KSubject::MakeStates() {
    using Words = std::vector<std::string>;
    const auto run = [](const char* command, const std::string& kit, const char* more = nullptr) {
        Words words = {command, "--offline-services", "--kit", kit};
        if (more != nullptr) {
            words.emplace_back(more);
        }
        return words;
    };
    const Words install = run("install", kit1);
    const Words upgrade = run("install", kit2);
    const Words remove = run("remove", kit1, "--yes");
    Words purge = remove;
    purge.emplace_back("--purge");
    const Words restore = Restoration();

    Note("nothing");
    Reach("fresh", "nothing", {"install", "", install, 0, "", {}, {}, false});
    Write("/opt/sweep/config/edited.conf", "edited\n");
    Note("installed");
    Reach("upgraded", "installed", {"upgrade", "", upgrade, 0, "", {}, {}, false});
    const Words backup = run("install", kit2, "--backup");
    Reach("backed-up", "installed", {"backup", "", backup, 0, "", {}, {}, false});
    const Words fails = run("install", kitThatFails, "--rollback");
    Reach("rolled-back", "installed", {"rollback", "", fails, 1, "", {}, {}, false});
    Reach("removed", "installed", {"remove", "", remove, 0, "", {}, {}, false});
    Reach("purged", "installed", {"purge", "", purge, 0, "", {}, {}, false});
    Reach("restored", "backed-up", {"restore", "", restore, 0, "", {}, {}, false});

    Reach("fresh-removed", "fresh", {"remove", "", remove, 0, "", {}, {}, false});
    Reach("upgraded-removed", "upgraded", {"remove", "", remove, 0, "", {}, {}, false});
    Reach("installed-again", "removed", {"install", "", install, 0, "", {}, {}, false});

    ways = {
        {"install", "nothing", install, 0, "fresh", remove, {"nothing", "fresh-removed"}, false},
        {"again", "installed", install, 0, "installed", remove, {"removed"}, false},
        {"upgrade",
         "installed",
         upgrade,
         0,
         "upgraded",
         remove,
         {"removed", "upgraded-removed"},
         false},
        {"backup", "installed", backup, 0, "backed-up", restore, {"installed"}, false},
        {"rollback", "installed", fails, 1, "rolled-back", restore, {"installed"}, false},
        {"remove",
         "installed",
         remove,
         0,
         "removed",
         install,
         {"installed", "installed-again"},
         false},
        {"purge", "installed", purge, 0, "purged", install, {"installed", "fresh"}, false},
        {"restore", "backed-up", restore, 0, "restored", upgrade, {"upgraded"}, false},
        {"status", "installed", {"status", "--kit", kit1}, 0, "installed", {}, {}, true},
        {"verify",
         "installed",
         {"status", "--verify", "--kit", kit1},
         4,
         "installed",
         {},
         {},
         true},
        {"list", "installed", {"list"}, 0, "installed", {}, {}, true},
    };
}

} // namespace KSWEEP
