// SPDX-License-Identifier: MIT
#include "RandomKit.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <sys/stat.h>

namespace KTEST {

namespace fs = std::filesystem;

namespace {

constexpr const char* serviceDirectory = "/etc/setuptest";
constexpr const char* units = "/etc/systemd/system/";

void Write(const fs::path& path, const std::string& bytes, mode_t mode = 0644) {
    std::error_code there;
    fs::create_directories(path.parent_path(), there);
    std::ofstream(path, std::ios::binary) << bytes;
    ::chmod(path.c_str(), mode);
}

std::string Join(const std::string& directory, const std::string& name) {
    return directory + "/" + name;
}

} // namespace

RandomKit::RandomKit(std::uint32_t seed, std::string kitDirectory)
    : numbers(seed),
      kit(std::move(kitDirectory)) {
    MakeMachine();
    MakeScript();
}

/// Not a distribution of the standard's, whose numbers differ from library to library.
unsigned RandomKit::Below(unsigned end) {
    return static_cast<unsigned>(numbers() % end);
}

std::string RandomKit::Name() {
    return OneIn(40) ? std::string(256, 'n') : OneOf({"a", "b", "c", "d", "x y"});
}

/// In the product, sometimes through "..", and sometimes relative, which counts from "/".
std::string RandomKit::Directory() {
    std::string path = product;
    for (unsigned depth = Below(3); depth > 0; --depth) {
        path += "/" + OneOf({"a", "b", "dir", "dir", "other"});
    }
    if (OneIn(15)) {
        path += "/../" + OneOf({"a", "dir"});
    }
    if (OneIn(60)) {
        path += "/" + std::string(4100, 'p');
    }
    return OneIn(25) ? path.substr(1) : path + (OneIn(5) ? "/" : "");
}

std::string RandomKit::KitDirectory() {
    return "$pathSource$" + OneOf({"", "", "sub", "sub/", "links", "nowhere"});
}

std::string RandomKit::KitName() {
    return OneOf({"one", "one", "two", "two", "list.ini", "sub", "to one", "missing"});
}

std::string RandomKit::Profile() {
    return OneIn(3) ? "$pathTargetConfig$$iniFile$"
                    : Join(Directory(), OneOf({"a.ini", "b.ini", "a"}));
}

std::string RandomKit::AnyPath() {
    return Join(Directory(), Name());
}

std::string RandomKit::Copy() {
    const bool ofTheProduct = OneIn(4);
    const std::string from = ofTheProduct ? Directory() : KitDirectory();
    const std::string name = OneIn(3)       ? OneOf({"*", "o*", "?wo", "*.ini", "none*"})
                             : ofTheProduct ? Name()
                                            : KitName();
    std::string line = "file=copy," + name + "," + from;
    if (!OneIn(60)) {
        line += "," + Directory() + (OneIn(3) ? "," + OneOf({"new", "a", "a.ini", "b/c"}) : "");
    }
    return line;
}

std::string RandomKit::Delete() {
    return "file=delete," + (OneIn(3) ? OneOf({"*", "a*", "?"}) : Name()) + "," + Directory();
}

std::string RandomKit::Symlink() {
    const std::string target = OneIn(4) ? OneOf({"..", ".", "dir", "/"}) : Directory();
    return "file=symlink," + Name() + "," + target + "," + Directory() +
           (OneIn(2) ? "," + OneOf({"link", "a", "dir"}) : "");
}

std::string RandomKit::DirectoryRule() {
    return OneIn(3) ? "directory=delete," + OneOf(
                                                {product,
                                                 std::string(product) + "/dir",
                                                 std::string(product) + "/a/dir/",
                                                 std::string(product) + "/nowhere"}
                                            )
                    : "directory=create," + Directory();
}

std::string RandomKit::ProfileRule() {
    switch (Below(6)) {
    case 0:
        return "profile=create," + Profile();
    case 1:
        return "profile=remove_file," + Profile() + "," + OneOf({"files", "other"}) + "," +
               OneOf({"a", "/", "zzz"});
    case 2:
        return "profile=put," + Profile();
    default:
        return "profile=put," + Profile() + "," + OneOf({"files", "other"}) + "," +
               (OneIn(20) ? OneOf({"a=b", ";k", "[k"}) : OneOf({"k", "l", "m"})) + "," + AnyPath();
    }
}

std::string RandomKit::Service() {
    const std::string name =
        OneOf({"inspp-random", "inspp-random", "inspp-random-2", "-x", "a b", "no-such-thing"});
    switch (Below(6)) {
    case 0:
    case 1:
        return "service=install," + name + "," + OneOf({"Random", "Random\\"}) + "," +
               OneOf(
                   {std::string(product) + "/program",
                    std::string(product) + "/program",
                    std::string(product) + "/a",
                    "program"}
               ) +
               "," + OneOf({"-x", "'open"});
    case 2:
        return "service=install," + name;
    case 3:
        return "service=stop," + name;
    case 4:
        return "service=remove," + name;
    default:
        return "service=start," + name;
    }
}

std::string RandomKit::Rule() {
    if (hasServices && OneIn(2)) {
        return Service();
    }
    switch (Below(12)) {
    case 0:
    case 1:
    case 2:
    case 3:
        return Copy();
    case 4:
    case 5:
        return Delete();
    case 6:
        return Symlink();
    case 7:
    case 8:
    case 9:
        return DirectoryRule();
    default:
        return ProfileRule();
    }
}

/// Mostly what a record needs.
std::string RandomKit::Record() {
    const std::string link =
        "file=symlink,two," +
        (OneIn(12) ? OneOf({"lin/x86_64", "/opt", std::string(product) + "/bin"})
                   : std::string("$pathTargetBin$")) +
        ",/etc/$serviceName$,$serviceName$\n";
    return "directory=create,$pathTargetConfig$\n" +
           (OneIn(12) ? "" : std::string("profile=put,$pathTargetConfig$$iniFile$,S,K,V\n")) +
           (OneIn(20) ? "" : "directory=create,/etc/$serviceName$\n") + (OneIn(15) ? "" : link);
}

void RandomKit::MakeMachine() {
    if (!OneIn(4)) {
        machine += "d " + std::string(product) + "\n";
    }
    for (unsigned count = Below(7); count > 0; --count) {
        const std::string directory =
            product + OneOf({"", "", "/dir", "/a", "/dir/dir", "/config"});
        const std::string path =
            Join(directory, OneOf({"a", "b", "dir", "a.ini", "other", "st.ini"}));
        switch (Below(8)) {
        case 0:
        case 1:
            machine += "d " + path + "\n";
            break;
        case 2:
            machine += "l " + path + " " +
                       OneOf(
                           {"a",
                            "b",
                            "../dir",
                            "nowhere",
                            std::string(product) + "/dir",
                            "dir",
                            std::string(product),
                            "b"}
                       ) +
                       "\n";
            break;
        case 3:
            machine += OneIn(3) ? "p " + path + "\n" : "w " + directory + "\n";
            break;
        default:
            machine += "f " + path + "\n";
            break;
        }
    }
    hasServices = OneIn(5);
    programMode = OneIn(8) ? 0644 : 0755;
    if (hasServices && OneIn(4)) {
        machine += "u inspp-random\n";
    }
}

void RandomKit::MakeScript() {
    script = "[install]\ndefaultPath.$os$=" + std::string(product) + "\n";
    if (hasServices) {
        script += "directory=create," + std::string(product) +
                  "\nfile=copy,program,$pathSource$,$pathTarget$\n";
    }
    if (!OneIn(3)) { // else most end at the first directory that is missing
        for (const char* directory : {"dir/dir", "a/dir", "b", "other"}) {
            script += "directory=create,$pathTarget$" + std::string(directory) + "\n";
        }
    }
    std::string rules;
    for (unsigned count = Below(7); count > 0; --count) {
        rules += Rule() + "\n";
    }
    script += OneIn(2) ? rules + Record() : Record() + rules;
}

void RandomKit::WriteKit() const {
    Write(
        kit + "/product.ini",
        "[product]\nname=Setup Test\nserviceName=setuptest\niniFile=st.ini\nversion=1.5\n"
        "buildNumber=9\n"
    );
    Write(kit + "/install.ini", script);
    Write(kit + "/one", "one", 0640);
    Write(kit + "/two", std::string(70'000, '2'), 0755);
    Write(kit + "/list.ini", "[files]\nk=" + std::string(product) + "/a\nl=nowhere\n");
    Write(kit + "/program", "#!/bin/sh\nexec sleep 1000\n", programMode);
    Write(kit + "/sub/one", "sub", 0600);
    Write(kit + "/sub/three", "");
    fs::create_directories(kit + "/links");
    std::error_code there;
    fs::create_symlink("../one", kit + "/links/to one", there);
    fs::create_symlink("one", kit + "/to one", there);
    fs::create_symlink("../sub", kit + "/links/sub", there);
}

void RandomKit::WriteMachine() const {
    std::istringstream lines(machine);
    std::string line;
    std::error_code inTheWay; // then it is not made, each time
    while (std::getline(lines, line)) {
        const std::size_t blank = line.find(' ', 2);
        const std::string path = line.substr(2, blank == std::string::npos ? blank : blank - 2);
        const bool isFree = !fs::exists(fs::symlink_status(path, inTheWay));
        if (line[0] == 'd') {
            fs::create_directories(path, inTheWay);
        } else if (line[0] == 'w') {
            fs::create_directories(path, inTheWay);
            if (fs::is_directory(path, inTheWay)) {
                ::chmod(path.c_str(), 0777);
            }
        } else if (line[0] == 'u') {
            Write(
                units + path + ".service",
                "[Service]\nExecStart=/bin/sleep 1000\n[Install]\nWantedBy=multi-user.target\n"
            );
        } else if (isFree && fs::is_directory(fs::path(path).parent_path(), inTheWay)) {
            if (line[0] == 'f') {
                Write(
                    path,
                    path.ends_with(".ini") ? "[files]\nk=" + std::string(product) + "/b\n"
                                           : "old " + path
                );
            } else if (line[0] == 'p') {
                ::mkfifo(path.c_str(), 0600);
            } else {
                fs::create_symlink(line.substr(blank + 1), path, inTheWay);
            }
        }
    }
}

void RandomKit::Wipe() {
    fs::remove_all(product);
    fs::remove_all(serviceDirectory);
}

} // namespace KTEST
