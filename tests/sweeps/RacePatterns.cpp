// SPDX-License-Identifier: MIT
#include "RacePatterns.h"

#include "KPlainProduct.h"

namespace KSWEEP {

namespace {

const std::string app = KPlainProduct::Path();
const std::string home = KPlainProduct::Place();
const std::string kit = KPlainProduct::Kit();
const std::string kits = home + "/kits";
const std::string state = "/var/lib/ins++/plain";
const std::string units = "/etc/systemd/system";

/// As an install script would: lay files there, give them rights and an owner, and take them away.
const std::string layFiles = "mkdir -p " + app + "/data; cp -r " + kit + "/data/. " + app +
                             "/data/; chmod -R a+r " + app + "/data; chown -R daemon " + app +
                             "/data; for i in 1 2 3 4 5 6 7 8 9; do chmod 644 " + app +
                             "/data/b.dat; done; rm -rf " + app + "/data/*";

KRaceSetUp Owned(const std::string& directory, const std::vector<std::string>& names) {
    KRaceSetUp setUp;
    setUp.name = "owned";
    setUp.opened = {directory};
    for (const std::string& name : names) {
        setUp.swapped.push_back(directory + "/" + name);
    }
    return setUp;
}

KRaceSetUp Shared(const std::string& directory, const std::vector<std::string>& names) {
    KRaceSetUp setUp = Owned(directory, names);
    setUp.name = "shared";
    setUp.isOfGroup = true;
    return setUp;
}

KRaceSetUp Late(KRaceSetUp setUp) {
    setUp.name += "-late";
    setUp.isLate = true;
    return setUp;
}

/// The user's kit in the place of root's.
KRaceSetUp OtherKit(const std::string& name) {
    KRaceSetUp setUp = Owned(kits, {name});
    setUp.name = name;
    setUp.kit = kits + "/" + name;
    setUp.target = KPlainProduct::EvilKit();
    return setUp;
}

KRaceSetUp Temporaries(const std::string& directory, const std::string& name) {
    KRaceSetUp setUp = Owned(directory, {name});
    setUp.watched = {directory};
    setUp.isSlow = true;
    return setUp;
}

/// The directory of what is remembered is root's alone; this is what it is not.
KRaceSetUp OpenState(const std::vector<std::string>& names) {
    KRaceSetUp setUp = Late(Owned(state, names));
    setUp.name = "inner-late";
    setUp.opened.insert(setUp.opened.begin(), "/var/lib/ins++");
    return setUp;
}

/// What gets rights and an owner: of what is the user's own they would be given away.
KRaceSetUp Rights() {
    KRaceSetUp setUp = Owned(app + "/data", {"helper", "b.dat"});
    setUp.name = "rights";
    setUp.control = "for i in 1 2 3 4 5 6 7 8 9; do chmod 644 " + app + "/data/b.dat; done";
    setUp.isSlow = true;
    return setUp;
}

KRaceSetUp Units() {
    KRaceSetUp setUp = Shared(units, {"sweep.service"});
    setUp.byPipe = false;
    return setUp;
}

} // namespace

const std::vector<KRacePattern>& RacePatterns() {
    const std::vector<std::string> configuration = {
        "edited.conf", "plain.conf", "plain.ini", "list.ini", "made.ini"};
    const std::vector<std::string> inEtc = {"plain", "shared.conf", "put.ini", "more"};
    const std::vector<std::string> inState = {
        "manifest", "state", "written", "backup", "kit", "fingerprint", "key"};
    const std::vector<std::string> logs = {"Plain Setup Log.txt", "Plain Setup Commands.txt"};
    const std::string log = "'/var/log/Plain Setup Log.txt'";
    static const std::vector<KRacePattern> patterns = {
        {"path", true, {Owned(home + "/deep", {"app"})}, layFiles},
        {"parent", true, {Owned(home, {"deep"})}, layFiles},
        {"data", true, {Owned(app, {"data", "config", "lin", "newest"}), Rights()}, layFiles},
        {"config",
         true,
         {Owned(app + "/config", configuration)},
         "echo more >> " + app + "/config/edited.conf"},
        {"etc",
         true,
         {Owned("/etc/plain", inEtc), Late(Owned("/etc/plain", inEtc))},
         "cat " + kit + "/plain.conf > /etc/plain/shared.conf"},
        {"log", true, {Shared("/var/log", logs)}, "echo line >> " + log + "; chmod 640 " + log},
        {"state",
         true,
         {Owned("/var/lib/ins++", {"plain"}),
          Late(Owned("/var/lib/ins++", {"plain"})),
          OpenState(inState)},
         "echo line > " + state + "/manifest"},
        {"kit",
         true,
         {OtherKit("copy"), OtherKit("link")},
         "for at in link copy; do cd " + kits + " && [ \"$(stat -Lc %u $at/rules)\" = 0 ] && " +
             ". ./$at/rules; done"},
        {"temporaries",
         true,
         {Temporaries(app + "/config", "edited.conf"),
          Late(Temporaries("/etc/plain", "shared.conf"))},
         "for at in " + app + "/config /etc/plain; do cat " + kit + "/plain.conf > $at/.inspp-1 " +
             "&& chown daemon $at/.inspp-1 && mv $at/.inspp-1 $at/made.ini; done"},
        {"units",
         false,
         {Units(), Late(Units())},
         "cat /srv/sweep/1.0/edited.conf > " + units + "/sweep.service"},
    };
    return patterns;
}

} // namespace KSWEEP
