// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace KSYS {

/// The unit files of a system: where they lie, which are ours, and the links that enable them, as
/// far as the disk goes. The service manager has to be told of what changes here.
///
/// Paths that are asked for or answered are those of the system whose root directory was given.
///
/// All throw KServiceError with an errno, the path and the reason when the disk refuses, and
/// std::bad_alloc.
///
///     const KUnitFiles files("");
///     if (files.Find("dps.service").empty()) { … }
class KUnitFiles {
  public:
    /// Takes a sentence about what is left as it is, and why.
    using Notice = std::function<void(const std::string&)>;

    /// `rootDirectory` without a separator at its end; empty for the running system.
    explicit KUnitFiles(std::string rootDirectory, Notice takerOfNotices = {});

    /// Puts a unit file in the place of an administrator's, replacing a former one in one step.
    void Write(const std::string& unit, const std::string& text) const;
    /// Deletes it. One that is gone is fine.
    void Remove(const std::string& unit) const;

    /// Lays the links that section [Install] of the unit's file asks for; those of its "Also" units
    /// too.
    ///
    /// Throws   KServiceError 180 without such a file, 181 when an alias is another unit's, 182 when
    ///          the file is masked
    void Enable(const std::string& unit) const;
    /// Takes all links to the unit away, and directories of links that are empty then.
    void Disable(const std::string& unit) const;

    /// The path of the unit's file in the first of systemd's directories that has one; else empty.
    std::string Find(const std::string& unit) const;
    /// Whether the file is one that Write put there: then it may be replaced and removed.
    bool IsOurs(const std::string& unit) const;
    /// Whether a link stands in the place of an administrator's unit file.
    bool IsLink(const std::string& unit) const;
    /// Whether anything, a dangling link too, stands at the path.
    bool Exists(const std::string& path) const;

  private:
    std::string Read(const std::string& path) const;
    void EnableWithOthers(const std::string& unit, std::vector<std::string>& seen) const;
    void LayLinks(const std::string& unit, const std::string& path, const std::string& text) const;
    void LayAlias(const std::string& alias, const std::string& path) const;
    void DisableWithOthers(const std::string& unit, std::vector<std::string>& seen) const;
    void RemoveLinks(const std::string& directory, const std::string& unit) const;
    std::vector<std::string>
    InstallNames(std::string_view text, const char* key, const std::string& unit) const;

    std::string root;
    Notice notice;
};

} // namespace KSYS
