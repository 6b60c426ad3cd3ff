// SPDX-License-Identifier: MIT
// What a bundle begins with: unpacks the rest of the file and runs the ins-setup that is in it, by the
// loader and the libraries that are in it too.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string_view>

#include <bundle/Architecture.h>
#include <bundle/JoinedHead.h>
#include <bundle/KBundleError.h>
#include <bundle/KWorkPlace.h>
#include <bundle/UnpackBundle.h>
#include <bundle/UnpackedTable.h>
#include <bundle/head/HeadArguments.h>
#include <bundle/head/OwnBundle.h>
#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileCalls.h>
#include <sys/files/FileContent.h>
#include <sys/files/FileStatus.h>
#include <sys/processes/KHeldSignals.h>
#include <unistd.h>

namespace {

using KBUNDLE::KBundleError;
using KBUNDLE::KHeadArguments;

// As ins-setup answers.
constexpr int done = 0;
constexpr int usageCode = 64;
constexpr int damagedCode = 65;
constexpr int unreadableCode = 66;
constexpr int internalCode = 70;
constexpr int cannotWriteCode = 73;
constexpr int notRootCode = 77;
constexpr int signalBase = 128;

constexpr const char* program = "ins-setup";

constexpr const char* help =
    "\nThis is a bundle, which unpacks itself for a run and deletes that again. In front of a "
    "command:\n"
    "  --work DIR     unpack there; else beside where the product goes, or in /var/tmp\n"
    "In place of one:\n"
    "  --list         list what is in it\n"
    "  --extract DIR  unpack it to a new or empty directory, and run nothing\n"
    "  --verify       tell whether the file is whole; who made it tells \"ins-setup verify "
    "FILE\"\n";

/// By these a loader, and the libraries that are loaded, would take in files of the host.
constexpr std::array hostsVariables = std::to_array<std::string_view>(
    {"LD_", "GLIBC_TUNABLES=", "GCONV_PATH=", "LOCPATH=", "NLSPATH=", "OPENSSL_", "MALLOC_"}
);

struct KFailure {
    int exitCode;
    std::string text;
};

int CodeOf(const KBundleError& error) {
    switch (error.GetKind()) {
    case KBundleError::Kind::NoBundle: // this file has begun as one
    case KBundleError::Kind::Damaged:
        return damagedCode;
    case KBundleError::Kind::CannotRead:
    case KBundleError::Kind::OtherArchitecture:
        return unreadableCode;
    case KBundleError::Kind::CannotWrite:
        return cannotWriteCode;
    case KBundleError::Kind::Stopped:
        break;
    }
    return internalCode;
}

std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char letter : text) {
        constexpr char firstPrintable = ' ';
        if (letter == '"' || letter == '\\') {
            quoted += '\\';
            quoted += letter;
        } else if (letter == '\n') {
            quoted += "\\n";
        } else {
            quoted += static_cast<unsigned char>(letter) < firstPrintable ? '?' : letter;
        }
    }
    return quoted + "\"";
}

/// In the form that the answer of ins-setup was asked for.
int Tell(const KHeadArguments& arguments, const KFailure& failure) {
    static_cast<void>(std::fprintf(stderr, "ins-setup: %s\n", failure.text.c_str()));
    const std::vector<std::string>& words = arguments.words;
    const bool isJson = std::find(words.begin(), words.end(), "--json") != words.end();
    if (isJson && arguments.task == KHeadArguments::Task::Run) {
        const bool changes = words[0] == "install" || words[0] == "remove" || words[0] == "restore";
        const std::string answer =
            "{\"schema\":1,\"command\":" + Quoted(words[0]) +
            ",\"result\":\"refused\",\"exitCode\":" + std::to_string(failure.exitCode) +
            (changes ? ",\"changed\":false" : "") + ",\"error\":{\"text\":" + Quoted(failure.text) +
            "}}\n";
        static_cast<void>(std::fputs(answer.c_str(), stdout));
        static_cast<void>(std::fflush(stdout));
    }
    return failure.exitCode;
}

/// Those that an entry is for, in a column.
std::string ArchitecturesOf(
    const KBUNDLE::KBundleEntry& entry, const std::vector<KBUNDLE::KBundleHead>& heads
) {
    std::string names;
    unsigned count = 0;
    for (std::size_t at = 0; at < heads.size(); ++at) {
        if ((entry.architectures >> at & 1U) != 0) {
            names += (names.empty() ? "" : ",") + heads[at].architecture;
            ++count;
        }
    }
    constexpr std::size_t columns = 8;
    names = count == heads.size() ? "all" : names;
    names.resize(std::max(names.size(), columns), ' ');
    return names + " ";
}

int List(const KBUNDLE::KBundleReader& bundle) {
    const std::vector<KBUNDLE::KBundleHead>& heads = bundle.GetTable().heads;
    for (const KBUNDLE::KBundleEntry& entry : bundle.GetTable().entries) {
        std::string name = entry.name + (entry.isDirectory ? "/" : "");
        std::replace_if(
            name.begin(), name.end(), [](unsigned char letter) { return letter < ' '; }, '?'
        );
        std::printf(
            "%04o %12llu %s%s\n",
            static_cast<unsigned>(entry.mode),
            static_cast<unsigned long long>(entry.byteCount),
            heads.empty() ? "" : ArchitecturesOf(entry, heads).c_str(),
            name.c_str()
        );
    }
    return std::fflush(stdout) == 0 ? done : cannotWriteCode;
}

int Extract(
    const KBUNDLE::KBundleReader& bundle,
    const std::string& directory,
    const std::function<bool()>& shallStop
) {
    std::vector<std::string> names;
    constexpr unsigned open = 0755;
    const unsigned failed = KSYS::MakeDirectoryEntry(directory, open);
    if (failed != 0 && (failed != EEXIST || KSYS::ListEntries(directory, names) != 0)) {
        KBUNDLE::FailOnWrite(directory, failed);
    }
    if (!names.empty()) {
        throw KBundleError(
            KBundleError::Kind::CannotWrite,
            directory + ": this directory is not empty. Name a new one."
        );
    }
    try {
        KBUNDLE::UnpackBundle(bundle, directory, KBUNDLE::BundlePart::Everything, shallStop);
    } catch (...) {
        std::error_code stays; // what is wrong is told
        if (failed == 0) {
            std::filesystem::remove_all(directory, stays);
        } else {
            for (const auto& entry : std::filesystem::directory_iterator(directory, stays)) {
                std::filesystem::remove_all(entry.path(), stays);
            }
        }
        throw;
    }
    return done;
}

std::string LoaderName() {
    return std::string(KBUNDLE::OwnArchitecture().loader);
}

/// The program itself, or a script, which the host runs.
bool IsForLoader(const std::string& directory) {
    KSYS::KDescriptor file;
    struct stat status {};
    std::array<char, 4> begin{};
    std::size_t count = 0;
    const std::string loader = directory + "/" + LoaderName();
    return KSYS::OpenRegularEntry(loader, O_RDONLY, file, status) == 0 &&
           KSYS::OpenRegularEntry(directory + "/" + program, O_RDONLY, file, status) == 0 &&
           KSYS::ReadSome(file.Get(), begin.data(), begin.size(), count) == 0 &&
           std::string_view(begin.data(), count) == "\x7F"
                                                    "ELF";
}

std::vector<std::string> EnvironmentFor(bool isForLoader) {
    std::vector<std::string> variables;
    for (char** each = environ; *each != nullptr; ++each) {
        const std::string_view variable = *each;
        const bool isHosts =
            std::any_of(hostsVariables.begin(), hostsVariables.end(), [&](std::string_view name) {
                return variable.starts_with(name);
            });
        if (!isForLoader || !isHosts) {
            variables.emplace_back(variable);
        }
    }
    return variables;
}

std::vector<std::string>
PlacesFor(const KBUNDLE::KBundleReader& bundle, const KHeadArguments& arguments) {
    if (!arguments.work.empty()) {
        std::error_code missing; // making a directory in it tells
        const auto real = std::filesystem::canonical(arguments.work, missing);
        return {missing ? arguments.work : real.string()};
    }
    const std::string given = KBUNDLE::PlaceIn(arguments.words);
    return KBUNDLE::WorkPlacesFor(
        KBUNDLE::WorksInTree(arguments.words) ? ""
        : given.empty()                       ? bundle.GetTable().place
                                              : given
    );
}

/// A run may have been killed that had other arguments than this one.
void ClearPlaces(const KBUNDLE::KBundleReader& bundle, const KHeadArguments& arguments) {
    std::vector<std::string> places = KBUNDLE::WorkPlacesFor(bundle.GetTable().place);
    for (const std::string& place : PlacesFor(bundle, arguments)) {
        if (std::find(places.begin(), places.end(), place) == places.end()) {
            places.push_back(place);
        }
    }
    KBUNDLE::RemoveLeftovers(places);
}

int Run(
    const KBUNDLE::KBundleReader& bundle,
    const KHeadArguments& arguments,
    KSYS::KHeldSignals& signals,
    const std::string& name
) {
    const KBUNDLE::BundlePart part = KBUNDLE::PartFor(arguments.words);
    std::optional<KBUNDLE::KWorkPlace> place;
    place.emplace(PlacesFor(bundle, arguments), [&](std::uint64_t blockBytes) {
        return KBUNDLE::NeedsOf(bundle.GetTable(), part, blockBytes);
    });
    const std::string& directory = place->GetPath();
    int signal = 0;
    try {
        KBUNDLE::UnpackBundle(bundle, directory, part, [&] {
            signal = signal != 0 ? signal : signals.Take();
            return signal != 0;
        });
    } catch (const KBundleError& error) {
        if (error.GetKind() != KBundleError::Kind::Stopped) {
            throw;
        }
        return Tell(arguments, {signalBase + signal, "Stopped on request. Nothing was changed."});
    }
    KSYS::KDescriptor table;
    if (part == KBUNDLE::BundlePart::Everything) {
        table = KBUNDLE::KeepTable(bundle.GetTable(), directory);
    }
    const bool isForLoader = IsForLoader(directory);
    const std::string own = directory + "/" + program;
    std::vector<std::string> words{own, own};
    if (isForLoader) {
        const std::string by = directory + "/" + LoaderName();
        words = {by, by, "--inhibit-cache", "--library-path", directory, "--argv0", name, own};
    }
    words.insert(words.end(), arguments.words.begin(), arguments.words.end());
    int status = 0;
    const unsigned failed =
        signals.Run(words, EnvironmentFor(isForLoader), {place->GetLock(), table.Get()}, status);
    place.reset();
    if (failed != 0) {
        KBUNDLE::FailOnRead(own, failed);
    }
    if (KBUNDLE::AsksForHelp(arguments.words)) {
        static_cast<void>(std::fputs(help, stdout));
        static_cast<void>(std::fflush(stdout));
    }
    KSYS::EndAs(status);
}

/// Takes of a bundle of several architectures what is for this one.
void Choose(KBUNDLE::KBundleReader& bundle) {
    const std::string_view own = KBUNDLE::OwnArchitecture().name;
    if (!bundle.Choose(own)) {
        throw KBundleError(
            KBundleError::Kind::OtherArchitecture,
            bundle.GetPath() + ": the bundle is for " + KBUNDLE::NamesOf(bundle.GetTable().heads) +
                ", and this program for " + std::string(own) + ". Get one for that."
        );
    }
}

int Answer(const KHeadArguments& arguments, const KBUNDLE::KOwnBundle& own) {
    if (!arguments.mistake.empty()) {
        return Tell(arguments, {usageCode, arguments.mistake});
    }
    if (::getauxval(AT_SECURE) != 0) {
        return Tell(
            arguments,
            {notRootCode,
             "a bundle does not run set-uid or set-gid. Take the bit away and start it as root."}
        );
    }
    KSYS::KHeldSignals signals;
    const std::string& path = own.path;
    const KSYS::KDescriptor file = KBUNDLE::OpenBundle(own);
    KBUNDLE::KBundleReader bundle(file.Get(), path);
    Choose(bundle);
    ClearPlaces(bundle, arguments);
    int signal = 0;
    const auto shallStop = [&] {
        signal = signal != 0 ? signal : signals.Take();
        return signal != 0;
    };
    try {
        switch (arguments.task) {
        case KHeadArguments::Task::List:
            return List(bundle);
        case KHeadArguments::Task::Extract:
            return Extract(bundle, arguments.directory, shallStop);
        case KHeadArguments::Task::Verify:
            KBUNDLE::VerifyBundle(bundle, shallStop);
            std::printf("%s is whole.\n", path.c_str());
            return std::fflush(stdout) == 0 ? done : cannotWriteCode;
        case KHeadArguments::Task::Run:
            return Run(bundle, arguments, signals, path);
        }
    } catch (const KBundleError& error) {
        if (error.GetKind() == KBundleError::Kind::Stopped) {
            return Tell(arguments, {signalBase + signal, "Stopped on request."});
        }
        throw;
    }
    return internalCode;
}

} // namespace

int main(int argc, char** argv) {
    // What is opened must not become somebody's output.
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
        KSYS::KDescriptor opened;
        if (!KSYS::IsOpenDescriptor(number) && KSYS::OpenEntry("/dev/null", O_RDWR, opened) == 0) {
            static_cast<void>(opened.Release());
        }
    }
    std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
    const KBUNDLE::KOwnBundle own = KBUNDLE::FindOwnBundle(words);
    if (!own.isWanted) {
        return done;
    }
    const KHeadArguments arguments = KBUNDLE::ReadHeadArguments(words);
    try {
        return Answer(arguments, own);
    } catch (const KBundleError& error) {
        // This file is one, as its begin runs.
        const bool isCut = error.GetKind() == KBundleError::Kind::NoBundle;
        const std::string why =
            isCut
                ? own.path + ": the bundle is damaged (its end is missing or was changed). Get it "
                             "again."
                : error.what();
        return Tell(arguments, {CodeOf(error), why});
    } catch (const std::exception& error) {
        return Tell(arguments, {internalCode, error.what()});
    }
}
