// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstallPathManagerBase.h>

namespace KINS {

/// The path manager for Linux. The installed-product record is a symbolic link,
/// /etc/SERVICE/SERVICE, whose absolute target lies three levels below the product path, and
/// section [installControl] of the product's configuration file, config/INIFILE below the product
/// path. Separators that are doubled in the target count as one. (Names.h has all these names.)
class INS_EXPORT KInstallPathManager : public KInstallPathManagerBase {
  public:
    /// `installer` owns this manager, and outlives it.
    explicit KInstallPathManager(KInstaller* installer);
    ~KInstallPathManager() override;

    /// Also sets the macro `binext`, the ending of program names, which is empty here.
    void Initialize(const KSUP::KString& installPath) override;

    /// Whether there is a record: its link, with an absolute target. Raises nothing.
    bool IsProductInstalled() const;

    /// Without a record file, the version is "unknown" and the build number 0.
    ///
    /// Throws   KSUP::KError 64 when there is no link, 16 when its target is not absolute; the
    ///          arguments are then unchanged
    void GetInstalledProductInformation(
        KSUP::KString& path, KSUP::KString& version, unsigned int& buildNumber
    ) const override;

    /// First brings what the run wrote to the disk (SvcFlushWrites), so that the record never says
    /// more than the disk holds; then writes version and build number.
    ///
    /// Throws   KSUP::KError 64 and 16 as above, 36 without a record file, errno when the disk
    ///          fails; the record is then as it was, or holds the version only
    void PutInstalledProductInformation(const KSUP::KString& version, unsigned int buildNumber)
        const override;

    /// The value of Names::defaultPathKey in section [install], as it stands there, or
    /// Names::defaultProductPath.
    KSUP::KString GetDefaultProductPath() const override;
};

} // namespace KINS
