// SPDX-License-Identifier: MIT
// A bundle as a stranger may have made it: it is refused, or all that it holds is unpacked below the
// directory, and nowhere else.
#include "Fuzz.h"

#include <algorithm>
#include <set>
#include <string>
#include <utility>

#include <bundle/KBundleError.h>
#include <bundle/UnpackBundle.h>
#include <sys/files/FileCalls.h>

// As the rest of the setup program is linked.
#include <setup/KSetupFailure.h>

namespace {

using KTEST::Require;

/// The table that a file says it has, written again.
void ReadTableAlone(std::string_view input) {
    try {
        const auto table = KBUNDLE::ReadBundleTable(input);
        Require(ToBytes(table) == input, "a table is written as it was read");
        std::set<std::pair<std::string, unsigned>> names;
        for (const KBUNDLE::KBundleEntry& entry : table.entries) {
            for (unsigned at = 0; at < std::max<std::size_t>(table.heads.size(), 1); ++at) {
                Require(
                    (entry.architectures >> at & 1U) == 0 || names.emplace(entry.name, at).second,
                    "no architecture has a name twice"
                );
            }
            const std::string name = "/" + entry.name + "/";
            Require(
                name.find("/../") == std::string::npos && name.find("/./") == std::string::npos &&
                    name.find("//") == std::string::npos,
                "a name stays below its directory"
            );
        }
    } catch (const KBUNDLE::KBundleError&) { // refused
        return;
    }
}

} // namespace

/// A file; the same is read as a table of files too.
FUZZ_TARGET(BundleFile) {
    ReadTableAlone(input);
    const KTEST::KScratchDirectory scratch;
    scratch.Write("bundle", input);
    scratch.Write("out/kit/begin", "");
    const std::string path = scratch.GetPath() + "/bundle";
    const std::string out = scratch.GetPath() + "/out/unpacked";
    std::filesystem::create_directory(out);
    KSYS::KDescriptor file;
    struct stat status {};
    Require(KSYS::OpenRegular(path.c_str(), file, status) == 0, "it can be opened");
    try {
        KBUNDLE::KBundleReader bundle(file.Get(), path);
        const auto& heads = bundle.GetTable().heads;
        if (!heads.empty()) { // the last one: its files are between those of others
            Require(bundle.Choose(heads.back().architecture), "an architecture can be chosen");
            Require(
                bundle.ReadHead(heads.back()).size() == heads.back().byteCount,
                "a program is in the file"
            );
        }
        constexpr std::uint64_t most = 1 << 20;
        if (NeedsOf(bundle.GetTable(), KBUNDLE::BundlePart::Everything, 1).bytes < most) {
            UnpackBundle(bundle, out);
        }
    } catch (const KBUNDLE::KBundleError&) { // refused
    }
    std::size_t beside = 0;
    for (const auto& entry : std::filesystem::directory_iterator(scratch.GetPath())) {
        const bool isOurs = entry.path().filename() == "bundle" || entry.path().filename() == "out";
        beside += isOurs ? 0U : 1U;
    }
    Require(beside == 0, "nothing is written beside the directory");
}
