// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/KSetupStop.h>
#include <setup/files/KFileDigest.h>
#include <setup/kit/KitFiles.h>
#include <setup/kit/KitLinks.h>
#include <setup/kit/KitSeal.h>
#include <setup/output/TextFormat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t digestLetters = 64;
constexpr std::size_t changesShown = 20;
/// A comment to sha256sum, in front of the line of the file that it is about.
constexpr std::string_view commentMark = "#";
constexpr char modeMark[] = "mode ";
constexpr char linkMark[] = "link ";
/// A run refuses a kit that group or others can write to, so a copy without these bits is the same kit.
constexpr unsigned sealedBits = 07755;

/// What a seal says of a file.
struct KSealedFile {
    std::string sha256;
    std::string kind; ///< "mode 0755", or "link TARGET"; empty in one that sha256sum wrote
};

/// A file as it is now.
struct KReadFile {
    std::string path; ///< without a link at its end; empty for a link that leads out of the kit
    KFileDigest digest;
    std::string kind; ///< as the seal has it
};

/// Where a link in a kit leads to; empty when that is out of the kit.
std::string FindInKit(const fs::path& kit, const std::string& name) {
    std::error_code unknown; // then reading it tells
    const std::string whole = fs::canonical(kit, unknown).string();
    const KLinkWay way = FollowLink((fs::path(whole) / name).string());
    return way.StaysIn(whole) ? way.end : "";
}

/// Reads a file of a kit, or the one there that a link leads to. What a link out of the kit leads to
/// is nothing that a seal can vouch for, and is not read.
KReadFile ReadFile(
    const fs::path& kit, const std::string& name, const std::function<bool()>& shallStop = {}
) {
    KReadFile file{(kit / name).string(), {}, {}};
    std::error_code isNoLink;
    const fs::path target = fs::read_symlink(file.path, isNoLink);
    if (!isNoLink) {
        file.kind = linkMark + target.string();
        file.path = FindInKit(kit, name);
        if (file.path.empty()) {
            return file;
        }
    }
    file.digest = DigestFile(file.path, shallStop);
    if (file.digest.errorNumber == ECANCELED) {
        throw KSetupStop(Text("Stopped on request. Nothing was changed."));
    }
    if (file.digest.errorNumber != 0) {
        FailOn(file.path, static_cast<int>(file.digest.errorNumber));
    }
    if (isNoLink) {
        file.kind = modeMark + ModeText(file.digest.mode & sealedBits);
    }
    return file;
}

/// sha256sum marks a name with such letters by a backslash before the line.
std::string SumLineText(const std::string& name) {
    std::string text;
    for (const char letter : name) {
        text += letter == '\\'   ? "\\\\"
                : letter == '\n' ? "\\n"
                : letter == '\r' ? "\\r"
                                 : std::string(1, letter);
    }
    return text;
}

/// False for what sha256sum would not have written.
bool Unescape(std::string& name) {
    std::string text;
    for (std::size_t at = 0; at < name.size(); ++at) {
        if (name[at] != '\\') {
            text += name[at];
            continue;
        }
        ++at;
        const char letter = at < name.size() ? name[at] : '\0';
        if (letter != '\\' && letter != 'n' && letter != 'r') {
            return false;
        }
        text += letter == 'n' ? '\n' : letter == 'r' ? '\r' : '\\';
    }
    name = text;
    return true;
}

/// Whether a path stays in the kit and is written as a listing writes it.
bool IsPlain(const std::string& path) {
    return !path.empty() && path.front() != '/' && fs::path(path).lexically_normal() == path &&
           !path.starts_with("..");
}

bool IsKind(std::string_view text) {
    return text.starts_with(modeMark) || text.starts_with(linkMark);
}

/// By path. Throws KSetupFailure for a line that is none.
std::map<std::string, KSealedFile> ReadSeal(const fs::path& seal, const std::string& bytes) {
    std::map<std::string, KSealedFile> digests;
    std::string kind; // of the next file
    std::size_t number = 0;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t end = std::min(bytes.find('\n', at), bytes.size());
        std::string_view line = std::string_view(bytes).substr(at, end - at);
        at = end + 1;
        ++number;
        if (line.starts_with(commentMark)) {
            line.remove_prefix(commentMark.size());
            kind = line;
            if (IsKind(line) && Unescape(kind)) {
                continue;
            }
            kind.clear(); // anybody's commentMark
            continue;
        }
        const bool escaped = line.starts_with('\\');
        line.remove_prefix(escaped ? 1 : 0);
        const std::string digest(line.substr(0, std::min(digestLetters, line.size())));
        const bool isDigest = digest.size() == digestLetters &&
                              digest.find_first_not_of("0123456789abcdef") == std::string::npos;
        const std::string_view rest = line.substr(digest.size());
        std::string name(rest.size() > 2 ? rest.substr(2) : "");
        if (!isDigest || (!rest.starts_with("  ") && !rest.starts_with(" *")) ||
            (escaped && !Unescape(name)) || !IsPlain(name) ||
            !digests.emplace(name, KSealedFile{digest, std::exchange(kind, {})}).second) {
            throw KSetupFailure(
                ExitCode::malformedScript,
                Text(
                    "%s:%s: not a line of check sums. Get the kit again, or seal it with "
                    "\"ins-setup kit seal\" if it is your own.",
                    seal.string(),
                    number
                )
            );
        }
    }
    return digests;
}

void Complain(std::vector<KText>& wrong, const std::string& name, const KText& what) {
    wrong.push_back(Printable(name) + ": " + what);
}

KKitListing ListSealable(const fs::path& kit) {
    KKitListing listing = ListKit(kit);
    std::erase(listing.files, sealName);
    std::erase(listing.files, sealSignatureName); // signs the seal, so it comes after it
    return listing;
}

/// The seal and its signature, which it cannot list; a wildcard may copy them with the rest.
void AddUnlisted(KDigests& read, const fs::path& kit, const std::string& seal) {
    read.insert_or_assign(
        (kit / sealName).string(), KFileDigest{0, seal.size(), DigestBytes(seal)}
    );
    const fs::path signature = kit / sealSignatureName;
    if (KFileDigest digest = DigestFile(signature.string()); digest.errorNumber == 0) {
        read.insert_or_assign(signature.string(), std::move(digest));
    }
}

} // namespace

std::size_t WriteSeal(const std::string& kitDirectory) {
    const fs::path kit(kitDirectory);
    const KKitListing listing = ListSealable(kit);
    if (!listing.others.empty()) {
        std::string all;
        for (const std::string& name : listing.others) {
            all += "\n    " + Printable(name);
        }
        throw KSetupFailure(
            ExitCode::noKit,
            Text(
                "%s: these are neither files nor links to files, so nothing can vouch for them. "
                "Take them out of the kit:%s",
                kitDirectory,
                all
            )
        );
    }
    std::string sums;
    for (const std::string& name : listing.files) {
        const std::string escaped = SumLineText(name);
        const KReadFile file = ReadFile(kit, name);
        if (file.path.empty()) {
            throw KSetupFailure(
                ExitCode::noKit,
                Text(
                    "%s/%s: this link leads out of the kit, so nothing can vouch for what it leads "
                    "to. Put the file itself in its place (cp -L LINK COPY, mv COPY LINK).",
                    kitDirectory,
                    Printable(name)
                )
            );
        }
        sums += std::string(commentMark) + SumLineText(file.kind) + "\n" +
                (escaped == name ? "" : "\\") + file.digest.sha256 + "  " + escaped + "\n";
    }
    WriteBytes(kit / sealName, sums, 0644);
    return listing.files.size();
}

bool IsSealed(const std::string& kitDirectory) {
    // Also a link that leads nowhere is a seal: one that cannot be right.
    std::error_code error;
    const fs::file_status status = fs::symlink_status(fs::path(kitDirectory) / sealName, error);
    if (status.type() != fs::file_type::not_found && error) {
        FailOn(fs::path(kitDirectory) / sealName, error.value());
    }
    return status.type() != fs::file_type::not_found;
}

std::string ReadSealText(const std::string& kitDirectory) {
    const fs::path seal = fs::path(kitDirectory) / sealName;
    std::error_code unknown; // then reading it tells
    if (fs::is_symlink(seal, unknown) && FindInKit(kitDirectory, sealName).empty()) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            Text(
                "%s: this link leads out of the kit, so the seal could be another one each time. "
                "Get the kit again.",
                seal.string()
            )
        );
    }
    return ReadBytes(seal);
}

KDigests VerifySeal(
    const std::string& kitDirectory, KSealExtent extent, const std::function<bool()>& shallStop
) {
    KDigests read;
    if (!IsSealed(kitDirectory)) {
        return read;
    }
    const fs::path kit(kitDirectory);
    const std::string seal = ReadSealText(kit);
    std::map<std::string, KSealedFile> digests = ReadSeal(kit / sealName, seal);
    const KKitListing listing = ListSealable(kit);
    std::vector<KText> wrong;
    for (const std::string& name : listing.files) {
        const auto sealed = digests.find(name);
        if (sealed == digests.end()) {
            Complain(wrong, name, Text("not listed"));
            continue;
        }
        KReadFile file = ReadFile(kit, name, shallStop);
        const std::string& kind = sealed->second.kind;
        if (file.path.empty()) {
            Complain(wrong, name, Text("a link that leads out of the kit"));
        } else if (file.digest.sha256 != sealed->second.sha256) {
            Complain(wrong, name, Text("changed"));
        } else if (!kind.empty() && file.kind != kind) {
            Complain(
                wrong, name, Text("sealed as %s, now %s", Printable(kind), Printable(file.kind))
            );
        }
        if (!file.path.empty()) {
            read.insert_or_assign((kit / name).string(), file.digest);
            read.insert_or_assign(std::move(file.path), std::move(file.digest));
        }
        digests.erase(sealed);
    }
    for (const std::string& name : listing.others) {
        Complain(wrong, name, Text("neither a file nor a link to one"));
        digests.erase(name);
    }
    if (extent == KSealExtent::Whole) {
        for (const auto& [name, digest] : digests) {
            Complain(wrong, name, Text("missing"));
        }
    }
    if (wrong.empty()) {
        AddUnlisted(read, kit, seal);
        return read;
    }
    KText all;
    for (std::size_t index = 0; index < std::min(wrong.size(), changesShown); ++index) {
        all += "\n    " + wrong[index];
    }
    if (wrong.size() > changesShown) {
        all += "\n    " + Text("and %s more", wrong.size() - changesShown);
    }
    throw KSetupFailure(
        ExitCode::malformedScript,
        Text(
            "%s: the kit is not what was sealed with %s. Get it again; if it is your own, seal it "
            "again with \"ins-setup kit seal\".%s",
            kitDirectory,
            sealName,
            all
        )
    );
}

} // namespace KSETUP
