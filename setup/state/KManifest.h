// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KFileDigest.h>
#include <setup/state/KPrivateDirectory.h>
#include <setup/state/StateDirectory.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace KSETUP {

struct KManifestEntry {
    enum class Kind { File, Directory, Link };
    Kind kind = Kind::File;
    unsigned mode = 0;      ///< the bits 07777; 0 for links, which have none
    std::uint64_t size = 0; ///< of files
    std::string digest;     ///< SHA-256 of files, in hexadecimal
    std::string target;     ///< of links

    bool operator==(const KManifestEntry&) const = default;
};

/// "file", "directory" or "link".
const char* KindWord(KManifestEntry::Kind kind) noexcept;

/// What stands at a path, without a digest; nothing for what is not there. `whyMissing` is errno
/// then, and 0 for what is of no kind that is installed.
std::optional<KManifestEntry> LookAtEntry(const std::string& path, unsigned* whyMissing = nullptr);

/// Something that is not as it was installed.
struct KManifestDifference {
    enum class Kind { Missing, Type, Content, Mode, Target, Unreadable };
    std::string path;
    Kind kind = Kind::Missing;
    std::string words; ///< "has mode 0777 instead of 0755"
};

/// What a product consists of: what was installed, as it stood when the run was over.
///
/// On the disk it is BASE/NAME/manifest, a JSON object a line, by path:
///
///     {"format":"ins++ manifest","formatVersion":1,"run":"20261122T050912.123456789Z-4711"}
///     {"kind":"file","mode":493,"path":"/opt/dps/lin/dpsd","sha256":"9f86…","size":70152}
///     {"kind":"directory","mode":493,"path":"/opt/dps/lin"}
///     {"kind":"link","path":"/etc/dps/dps","target":"/opt/dps/lin/x86_64/dpsd"}
///     {"entries":3}
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
    explicit KManifest(const std::vector<std::string>& paths, const KDigests& known = {});

    /// Takes over what an earlier run installed and is still there, as it was installed then.
    void Merge(const KManifest& former);

    /// The run that wrote it (RunId.h); empty in one of a version that gave runs no names.
    const std::string& GetRun() const noexcept { return run; }
    void SetRun(const std::string& name) { run = name; }

    const std::map<std::string, KManifestEntry>& GetEntries() const noexcept { return entries; }

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
    /// Throws   KSetupFailure, the manifest being there still
    static void
    Remove(const std::string& serviceName, const std::string& base = stateBaseDirectory);

  private:
    void Parse(const std::string& text);

    std::string run;
    std::map<std::string, KManifestEntry> entries;
};

} // namespace KSETUP
