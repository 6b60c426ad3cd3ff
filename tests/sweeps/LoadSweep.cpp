// SPDX-License-Identifier: MIT
//
// Many runs at once, and a machine that lacks something or has too much of it: each run ends as it may,
// and when the machine is as it should be, the same command leads where it leads without all that.
#include "Files.h"
#include "LoadParts.h"
#include "Sweeps.h"

#include <csignal>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <utility>

#include <unistd.h>

namespace KSWEEP {

namespace {

namespace fs = std::filesystem;

constexpr unsigned atOnce = 20;
constexpr unsigned rounds = 20;
constexpr int anotherRun = 75;
constexpr unsigned files = 20;
constexpr std::size_t fileLength = 20000;

std::vector<KProcessEnd> RunAtOnce(const std::vector<std::vector<std::string>>& commands) {
    std::vector<KProcess> processes;
    processes.reserve(commands.size());
    for (const std::vector<std::string>& words : commands) {
        processes.emplace_back(words);
    }
    std::vector<KProcessEnd> ends;
    for (KProcess& process : processes) {
        ends.push_back(process.Wait());
    }
    return ends;
}

} // namespace

KLoadProduct::KLoadProduct(std::string itsProgram, const std::string& itsService)
    : program(std::move(itsProgram)),
      service(itsService),
      store("/srv/loads/" + itsService),
      machine(itsService, itsService, store + "/states") {
    fs::create_directories("/srv/elsewhere");
    MakeKit("1.0");
    MakeKit("1.1");
    const auto note = [&](const std::string& state, const std::string& command) {
        if (!command.empty()) {
            const KProcessEnd end = KProcess(Words(command)).Wait();
            if (end.exitCode != 0) {
                throw std::runtime_error(service + ", " + command + ": " + end.ToText());
            }
        }
        machine.Keep(state);
        looks[state] = machine.Look();
    };
    note("nothing", "");
    note("installed", "install");
    note("upgraded", "upgrade");
    machine.PutBack("installed");
    note("removed", "remove");
    machine.PutBack("nothing");
}

void KLoadProduct::MakeKit(const std::string& version) const {
    const std::string kit = store + "/" + version;
    Write(
        kit + "/product.ini",
        "[product]\nname=" + service + "\nserviceName=" + service + "\niniFile=" + service +
            ".ini\nversion=" + version + "\nbuildNumber=7\n"
    );
    for (unsigned file = 0; file < files; ++file) {
        Write(kit + "/data/" + std::to_string(file), std::string(fileLength, version.back()));
    }
    Write(kit + "/program", "#!/bin/sh\n");
    Write(
        kit + "/install.ini",
        "[install]\ndefaultPath.$os$=" + Path() +
            "\ndirectory=create,$pathTargetBin$\ndirectory=create,$pathTargetConfig$\n"
            "directory=create,$pathTarget$data\ndirectory=create,/etc/$serviceName$\n"
            "file=copy,program,$pathSource$,$pathTargetBin$\n"
            "file=copy,*,$pathSource$data,$pathTarget$data\n"
            "profile=put,$pathTargetConfig$$iniFile$,General,Level,$verInfo$\n"
            "profile=put,/srv/elsewhere/$serviceName$.ini,General,Level,$verInfo$\n"
            "file=symlink,program,$pathTargetBin$,/etc/$serviceName$,$serviceName$\n"
            "[remove]\n"
            "file=delete,$serviceName$.ini,/srv/elsewhere\n"
            "file=delete,*,$pathTarget$data\ndirectory=delete,$pathTarget$data\n"
            "file=delete,*,$pathTargetConfig$\ndirectory=delete,$pathTargetConfig$\n"
            "file=delete,*,$pathTargetBin$\ndirectory=delete,$pathTargetBin$\n"
            "directory=delete,$pathTargetLin$\ndirectory=delete,$pathTarget$\n"
            "file=delete,$serviceName$,/etc/$serviceName$\ndirectory=delete,/etc/$serviceName$\n"
    );
}

std::vector<std::string> KLoadProduct::Words(const std::string& command) const {
    const std::string after = store + "/1.1";
    if (command == "upgrade") {
        return {program, "install", "--quiet", "--kit", after};
    }
    if (command == "backup") {
        return {program, "install", "--quiet", "--backup", "--kit", after};
    }
    if (command == "remove") {
        return {program, "remove", "--quiet", "--yes", "--kit", Kit()};
    }
    if (command == "status") {
        return {program, "status", "--kit", Kit()};
    }
    return {program, command, "--quiet", "--kit", Kit()};
}

std::string KLoadProduct::DiffersFrom(const std::string& state) const {
    return Difference(LookOf(state), machine.Look());
}

std::string KLoadProduct::Converges(const std::string& command, const std::string& state) const {
    const KProcessEnd end = KProcess(Words(command)).Wait();
    return end.exitCode == 0 ? DiffersFrom(state) : command + " behind it: " + end.ToText();
}

std::string WrongEnd(const KProcessEnd& end, const std::vector<int>& exitCodes) {
    for (const int exitCode : exitCodes) {
        if (end.signal == 0 && end.exitCode == exitCode) {
            const bool isTold = exitCode == 0 || !end.err.empty();
            return isTold ? "" : "exit " + std::to_string(exitCode) + " without a text";
        }
    }
    return end.ToText();
}

void LoadSameProduct(const KLoad& load) {
    const KLoadProduct& product = load.product;
    unsigned refused = 0;
    product.GetMachine().PutBack("nothing");
    for (unsigned round = 0; round < load.Rounds(rounds); ++round) {
        const bool installs = round % 2 == 0;
        const std::string command = installs ? "install" : "remove";
        std::string wrong;
        unsigned doneHere = 0;
        for (const KProcessEnd& end :
             RunAtOnce(std::vector<std::vector<std::string>>(atOnce, product.Words(command)))) {
            const std::string one = WrongEnd(end, {0, anotherRun});
            wrong = wrong.empty() ? one : wrong;
            doneHere += end.exitCode == 0 ? 1U : 0U;
            refused += end.exitCode == anotherRun ? 1U : 0U;
        }
        wrong = wrong.empty() && doneHere == 0 ? "none was done" : wrong;
        wrong = wrong.empty() ? product.DiffersFrom(installs ? "installed" : "removed") : wrong;
        load.report.Add("same", "round " + std::to_string(round), wrong);
    }
    load.report.Add("same", "refusals", refused > 0 ? "" : "no run met another");
    load.report.Tell(std::to_string(refused) + " runs were told of another");
}

void LoadDifferentProducts(const KLoad& load) {
    std::vector<std::unique_ptr<KLoadProduct>> products;
    for (unsigned number = 0; number < atOnce; ++number) {
        const std::string service = "load" + std::to_string(number);
        products.push_back(std::make_unique<KLoadProduct>(load.product.GetProgram(), service));
    }
    for (unsigned round = 0; round < load.Rounds(rounds); ++round) {
        const std::string command = round % 2 == 0 ? "install" : "remove";
        std::vector<std::vector<std::string>> commands;
        for (const auto& product : products) {
            commands.push_back(product->Words(command));
        }
        std::string wrong;
        for (const KProcessEnd& end : RunAtOnce(commands)) {
            const std::string one = WrongEnd(end, {0});
            wrong = wrong.empty() ? one : wrong;
        }
        for (const auto& product : products) {
            const std::string place = product->Path() + "/data/";
            const bool isThere = fs::exists(place + std::to_string(files - 1));
            if (wrong.empty() && isThere != (round % 2 == 0)) {
                wrong = place + (isThere ? " is still there" : " is missing");
            }
        }
        load.report.Add("different", "round " + std::to_string(round), wrong);
    }
    load.product.GetMachine().PutBack("nothing");
}

void LoadWaiting(const KLoad& load) {
    const KLoadProduct& product = load.product;
    for (unsigned round = 0; round < load.Rounds(5); ++round) {
        product.GetMachine().PutBack("nothing");
        std::vector<std::vector<std::string>> commands;
        for (unsigned number = 0; number < 10; ++number) {
            commands.push_back(product.Words("install"));
            commands.back().insert(commands.back().end(), {"--reinstall", "--wait", "25"});
        }
        std::string wrong;
        for (const KProcessEnd& end : RunAtOnce(commands)) {
            const std::string one = WrongEnd(end, {0});
            wrong = wrong.empty() ? one : wrong;
        }
        wrong = wrong.empty() ? product.DiffersFrom("installed") : wrong;
        load.report.Add("wait", "round " + std::to_string(round), wrong);
    }
}

void LoadKilledHolders(const KLoad& load) {
    constexpr unsigned step = 3000; // microseconds
    const KLoadProduct& product = load.product;
    unsigned killed = 0;
    for (unsigned round = 0; round < load.Rounds(rounds); ++round) {
        product.GetMachine().PutBack("nothing");
        KProcess holder(product.Words("install"));
        std::vector<std::string> words = product.Words("install");
        words.insert(words.end(), {"--wait", "25"});
        ::usleep(round * step);
        KProcess waiting(words);
        ::usleep(step);
        ::kill(holder.GetId(), SIGKILL);
        killed += holder.Wait().signal == SIGKILL ? 1U : 0U;
        std::string wrong = WrongEnd(waiting.Wait(), {0});
        wrong = wrong.empty() ? product.DiffersFrom("installed") : wrong;
        load.report.Add("killed", "round " + std::to_string(round), wrong);
    }
    load.report.Add("killed", "kills", killed > 0 ? "" : "no run was killed");
}

void SweepLoads(const KSubject& subject, const KSelection& selection, KReport& report) {
    subject.GetMachine().PutBack("nothing"); // what is remembered is that of these products only
    const KLoadProduct product(subject.Words({}).front(), "load");
    const std::vector<std::pair<const char*, void (*)(const KLoad&)>> parts = {
        {"same", &LoadSameProduct},
        {"different", &LoadDifferentProducts},
        {"wait", &LoadWaiting},
        {"killed", &LoadKilledHolders},
        {"disk", &LoadFullDisks},
        {"limits", &LoadLimits},
        {"system", &LoadMissingSystem},
        {"clock", &LoadClock},
        {"stops", &LoadStops},
        {"files", &LoadManyFiles},
        {"log", &LoadLongLog},
        {"names", &LoadOddNames}};
    KSelection chosen = selection;
    chosen.every = 1;
    unsigned number = 0;
    for (const auto& [name, part] : parts) {
        if (!chosen.HasWay(name) || !chosen.Has(number++, name)) {
            continue;
        }
        product.GetMachine().PutBack("nothing");
        report.Begin(name);
        part({product, report, selection.every});
        report.End();
    }
}

} // namespace KSWEEP
