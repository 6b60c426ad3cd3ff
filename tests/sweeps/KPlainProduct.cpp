// SPDX-License-Identifier: MIT
#include "KPlainProduct.h"

#include "Files.h"

#include <filesystem>
#include <stdexcept>
#include <utility>

namespace KSWEEP {

namespace {

namespace fs = std::filesystem;

const std::string store = "/srv/plain";
const std::string kitAfter = store + "/1.1";
const std::string failingKit = store + "/1.2";

constexpr std::size_t dataLength = 300000; // takes a while
constexpr unsigned configurationParts = 12;

constexpr const char* installSection =
    "[install]\n"
    "defaultPath.$os$=/home/sweeper/deep/app\n"
    "directory=create,$pathTargetBin$\n"
    "directory=create,$pathTargetConfig$\n"
    "directory=create,$pathTarget$data\n"
    "directory=create,/etc/$serviceName$/more\n"
    "file=copy,helper,$pathSource$,$pathTargetBin$\n"
    "file=copy,*.dat,$pathSource$data,$pathTarget$data\n"
    "file=copy,edited.conf,$pathSource$,$pathTargetConfig$\n"
    "file=copy,plain.conf,$pathSource$,$pathTargetConfig$\n"
    "file=copy,plain.conf,$pathSource$,/etc/$serviceName$,shared.conf\n"
    "file=copy,plain.conf,$pathSource$,/etc/$serviceName$/more\n"
    "profile=put,$pathTargetConfig$$iniFile$,General,Level,$verInfo$\n"
    "profile=put,/etc/$serviceName$/put.ini,General,Level,$verInfo$\n"
    "profile=create,$pathTargetConfig$made.ini\n"
    "profile=put,$pathTargetConfig$list.ini,Files,One,$pathTarget$data/listed.dat\n"
    "profile=remove_file,$pathTargetConfig$list.ini,Files,listed\n"
    "file=symlink,a.dat,$pathTarget$data,$pathTarget$,newest\n"
    "link=create,data/b.dat,$pathTarget$other\n"
    "entry=create,$pathTarget$data/deep\n"
    "entry=copy,$pathSource$plain.conf,$pathTarget$data/deep/entry\n"
    "file=copy,helper,$pathSource$,$pathTarget$data\n"
    "mode=set,$pathTarget$data/helper,4755,root,root\n"
    "mode=set,$pathTarget$data/b.dat,0640,daemon,daemon\n"
    "mode=set,$pathTarget$data/deep,0750,daemon,daemon\n";

constexpr const char* removeSection = "file=symlink,helper,$pathTargetBin$,/etc/$serviceName$,"
                                      "$serviceName$\n"
                                      "[remove]\n"
                                      "entry=delete,$pathTarget$data/deep/entry\n"
                                      "entry=delete,$pathTarget$data/deep\n"
                                      "file=delete,newest,$pathTarget$\n"
                                      "file=delete,other,$pathTarget$\n"
                                      "file=delete,*,$pathTarget$data\n"
                                      "directory=delete,$pathTarget$data\n"
                                      "file=delete,*,$pathTargetBin$\n"
                                      "directory=delete,$pathTargetBin$\n"
                                      "directory=delete,$pathTargetLin$\n"
                                      "file=delete,*,$pathTargetConfig$\n"
                                      "directory=delete,$pathTargetConfig$\n"
                                      "directory=delete,$pathTarget$\n"
                                      "file=delete,*,/etc/$serviceName$/more\n"
                                      "directory=delete,/etc/$serviceName$/more\n"
                                      "file=delete,*,/etc/$serviceName$\n"
                                      "directory=delete,/etc/$serviceName$\n";

void WriteKit(const std::string& kit, const char* version, const std::string& more) {
    const char mark = version[2];
    Write(
        kit + "/product.ini",
        std::string("[product]\nname=Plain\nserviceName=plain\niniFile=plain.ini\nversion=") +
            version + "\nbuildNumber=7\n"
    );
    Write(kit + "/helper", std::string("#!/bin/sh\n# ") + mark + "\n", 0755);
    Write(kit + "/edited.conf", std::string("offered=") + mark + "\n");
    Write(kit + "/plain.conf", std::string("plain=") + mark + "\n");
    Write(kit + "/data/a.dat", std::string(dataLength, mark));
    Write(kit + "/data/b.dat", "the same in each\n");
    Write(kit + "/data/listed.dat", std::string(10, mark));
    Write(kit + "/rules", ":\n"); // of the kit that a shell would run
    std::string parts;            // each is written beside, and renamed
    for (unsigned part = 0; part < configurationParts; ++part) {
        parts += "profile=put,$pathTargetConfig$part" + std::to_string(part) +
                 ".ini,General,Level,$verInfo$\n";
    }
    Write(kit + "/install.ini", installSection + parts + more + removeSection);
}

} // namespace

KPlainProduct::KPlainProduct(std::string itsProgram)
    : program(std::move(itsProgram)),
      machine("plain", "Plain", store + "/states", Place()) {
    MakeKits();
    MakeStates();
}

void KPlainProduct::MakeKits() const {
    WriteKit(Kit(), "1.0", "");
    WriteKit(kitAfter, "1.1", "file=delete,listed.dat,$pathTarget$data\n");
    WriteKit(failingKit, "1.2", "file=copy,missing,$pathSource$,$pathTarget$\n");
    WriteKit(EvilKit(), "1.0", "entry=copy,$pathSource$plain.conf,/srv/victim/evil\n");
    Write(EvilKit() + "/rules", "echo evil > /srv/victim/evil\n");
    Shell(
        "cd " + store + " && rm -f maker.* && minisign -G -W -s maker.key -p maker.pub >maker.out"
    );
    for (const std::string& kit : {Kit(), kitAfter, failingKit}) {
        Shell(program + " kit seal --sign " + store + "/maker.key --kit " + kit + " >maker.out");
    }
    Shell("chown -R 65534:65534 " + EvilKit());
}

void KPlainProduct::Note(const std::string& state) {
    machine.Keep(state);
    looks.push_back(machine.Look());
}

void KPlainProduct::Reach(
    const std::string& state, const std::vector<std::string>& words, int exitCode
) {
    std::vector<std::string> all = {program};
    all.insert(all.end(), words.begin(), words.end());
    const KTracedEnd end = RunUntraced(all);
    if (end.exitCode != exitCode) {
        throw std::runtime_error(
            "the plain product: " + words.front() + " ended with " + std::to_string(end.exitCode) +
            ": " + end.out + end.err
        );
    }
    Note(state);
}

void KPlainProduct::MakeStates() {
    using Words = std::vector<std::string>;
    constexpr int differs = 4;
    const Words install = {"install", "--quiet", "--kit", Kit()};
    const Words upgrade = {"install", "--quiet", "--kit", kitAfter};
    const Words backup = {"install", "--quiet", "--backup", "--kit", kitAfter};
    const Words fails = {"install", "--quiet", "--no-check", "--rollback", "--kit", failingKit};
    const Words remove = {"remove", "--quiet", "--yes", "--kit", Kit()};
    const Words purge = {"remove", "--quiet", "--yes", "--purge", "--kit", Kit()};
    const Words restore = {"restore", "--quiet", "--kit", kitAfter};

    fs::remove_all(Place());
    fs::create_directories(fs::path(Path()).parent_path());
    Note("nothing");
    Reach("fresh", install, 0);
    Write(Path() + "/config/edited.conf", "edited\n");
    Note("installed");
    Reach("backed-up", backup, 0);
    Reach("restored", restore, 0);

    const auto add = [&](const char* name, const char* from, const Words& words, int exitCode) {
        ways.push_back({name, from, words, exitCode, "", {}, {}, false});
    };
    add("install", "nothing", install, 0);
    add("again", "installed", install, 0);
    add("upgrade", "installed", upgrade, 0);
    add("backup", "installed", backup, 0);
    add("rollback", "installed", fails, 1);
    add("remove", "installed", remove, 0);
    add("purge", "installed", purge, 0);
    add("restore", "backed-up", restore, 0);
    add("status", "installed", {"status", "--kit", Kit()}, 0);
    add("verify", "installed", {"status", "--verify", "--kit", Kit()}, differs);
    add("verify-kit", "installed", {"verify", Kit()}, 0);
    add("list", "installed", {"list"}, 0);
}

} // namespace KSWEEP
