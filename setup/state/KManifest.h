// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KFileDigest.h>
#include <setup/state/KPrivateDirectory.h>
#include <setup/state/StateDirectory.h>
#include <setup/text/KText.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

class KJsonLine;

struct KManifestEntry {
    enum class Kind { File, Directory, Link };
    Kind kind = Kind::File;
    unsigned mode = 0;          ///< the bits 07777; 0 for links, which have none
    std::uint64_t size = 0;     ///< of files
    std::string digest;         ///< SHA-256 of files, in hexadecimal
    std::string target;         ///< of links
    std::uint64_t modified = 0; ///< of files: when, in nanoseconds since 1970; 0 when not known
    unsigned owner = 0;         ///< user number
    unsigned group = 0;         ///< group number
    /// A file that the administrator is meant to edit: an upgrade and a removal keep the edits.
    bool isConfiguration = false;
    /// SHA-256 of the kit's file, where what was installed is another: an edited configuration, or
    /// one that the run itself wrote options into. See GetKitDigest.
    std::string kitDigest;

    /// Of the file that the kit had for it.
    const std::string& GetKitDigest() const noexcept {
        return kitDigest.empty() ? digest : kitDigest;
    }

    bool operator==(const KManifestEntry&) const = default;
};

/// "file", "directory" or "link".
const char* KindWord(KManifestEntry::Kind kind) noexcept;

/// What stands at a path, without a digest; nothing for what is not there. `whyMissing` is errno
/// then, and 0 for what is of no kind that is installed.
std::optional<KManifestEntry> LookAtEntry(const KSYS::Entry& entry, unsigned* whyMissing = nullptr);
/// Whether what LookAtEntry did not find is not there: anything else is trouble of the moment, in
/// which nothing is known. Who is not root changes nothing, and takes what may not be seen for
/// missing.
bool CountsAsMissing(unsigned whyMissing) noexcept;

/// LookAtEntry for many paths. Behind another one of the same directory a path is looked at by the open
/// directory, which costs a fraction.
///
/// Threads  one at a time
class KEntryLook {
  public:
    std::optional<KManifestEntry> At(const std::string& normalPath, unsigned& whyMissing);

  private:
    std::string directoryPath; // of the last one
    KSYS::KDescriptor directory;
};

/// Something that is not as it was installed.
struct KManifestDifference {
    enum class Kind { Missing, Type, Content, Mode, Owner, Target, Unreadable };
    std::string path;
    Kind kind = Kind::Missing;
    KText words; ///< "has mode 0777 instead of 0755"
};

/// Which product, and where: what its record says too, in files that others may write.
struct KManifestProduct {
    std::string version;
    unsigned buildNumber = 0;
    std::string path;

    bool operator==(const KManifestProduct&) const = default;
};

/// What a product consists of: what was installed, as it stood when the run was over.
///
/// On the disk it is BASE/NAME/manifest, a JSON object a line, by path:
///
///     {"buildNumber":4,"format":"ins++ manifest","formatVersion":1,"productPath":"/opt/dps",
///      "run":"20261122T050912.123456789Z-4711","version":"2.1"} (in one line)
///     {"kind":"file","mode":493,"path":"/opt/dps/lin/dpsd","sha256":"9f86…","size":70152}
///     {"kind":"directory","mode":493,"path":"/opt/dps/lin"}
///     {"kind":"link","path":"/etc/dps/dps","target":"/opt/dps/lin/x86_64/dpsd"}
///     {"entries":3}
///
/// with "modified" (nanoseconds since 1970) of a file, "owner" and "group" where they are not 0,
/// "configuration":1 of a configuration, and "kitSha256" where the kit's file is another.
///
/// A path or target that is not UTF-8 stands in hexadecimal as "pathHex" or "targetHex".
///
/// Threads  one at a time
class KManifest {
  public:
    KManifest() = default;
    /// Looks at what stands at the paths, and reads the files. What is not there, or is neither a
    /// file nor a directory nor a link, is left out.
    ///
    /// `known` are digests, by path, of what was copied there: they are taken for files of that
    /// size, which are then not read.
    ///
    /// Throws   KSetupFailure for one that cannot be looked at or read
    explicit KManifest(const std::vector<std::string>& paths, KKeptDigests known = {});
    /// One more path, likewise. What is taken over from `known` is gone there.
    ///
    /// Throws   as above
    void Add(const std::string& path, KKeptDigests& known, KEntryLook& look);
    /// Takes an entry out.
    void Forget(const std::string& path);

    /// The file at the path is an edited one: what was installed is of these bytes, and the next run
    /// is to see that.
    void MarkEdited(const std::string& path, const std::string& digest);
    /// Without what is not there any more.
    KManifest WithoutMissing() const;
    /// Whether anything but directories is in it.
    bool HasFiles() const noexcept;

    /// Takes over what an earlier run installed and is still there, as it was installed then.
    void Merge(const KManifest& former);

    /// The run that wrote it (RunId.h); empty in one of a version that gave runs no names.
    const std::string& GetRun() const noexcept { return run; }
    void SetRun(const std::string& name) { run = name; }

    /// Nothing in one of a version that did not write it down, and once the product was removed.
    const std::optional<KManifestProduct>& GetProduct() const noexcept { return product; }
    void SetProduct(KManifestProduct installed) { product = std::move(installed); }

    const std::map<std::string, KManifestEntry>& GetEntries() const noexcept { return entries; }
    /// What is known of a path in its normal form; null for what is not the product's.
    const KManifestEntry* Find(const std::string& path) const;
    /// Takes mode and owner of what stands at the path, if it is one of these, as they are now.
    void RefreshRights(const std::string& path);
    /// The file at the path, if it is one of these, is a configuration for which the kit had a file
    /// of this digest; empty for one that the kit did not have.
    void MarkConfiguration(const std::string& path, const std::string& kitDigest);

    /// What is not as it was, by path. Of the files in `mayChange` (a configuration that is meant
    /// to be edited) the content is not looked at.
    std::vector<KManifestDifference> Verify(const std::set<std::string>& mayChange = {}) const;
    /// The paths at which something stands still: what a removal left behind.
    std::vector<std::string> FindRemaining() const;

    /// Throws   KSetupFailure, a former manifest being there still
    void Write(const std::string& serviceName, const std::string& base = stateBaseDirectory) const;
    /// Nothing when there is none.
    ///
    /// Throws   KSetupFailure: ExitCode::malformedScript when it cannot be understood,
    ///          ExitCode::notRoot for a user who may not look
    static std::optional<KManifest>
    Read(const std::string& serviceName, const std::string& base = stateBaseDirectory);
    /// GetProduct of it, without the rest of the file, which may be long.
    ///
    /// Throws   as Read
    static std::optional<KManifestProduct>
    ReadProduct(const std::string& serviceName, const std::string& base = stateBaseDirectory);
    /// Throws   KSetupFailure, the manifest being there still
    static void
    Remove(const std::string& serviceName, const std::string& base = stateBaseDirectory);

  private:
    /// `whyMissing` is 0 also for what is there and of no kind that is installed.
    using KEntryLooked = std::function<void(
        const std::string& path, const KManifestEntry& entry, bool isThere, unsigned whyMissing
    )>;

    /// What stands there now of all of it. What was in a directory that is gone is not asked for.
    void LookAtEach(const KEntryLooked& looked) const;
    void Parse(const std::string& text);
    void ParseHead(const KJsonLine& line);

    std::string run;
    std::optional<KManifestProduct> product;
    std::map<std::string, KManifestEntry> entries;
};

} // namespace KSETUP
