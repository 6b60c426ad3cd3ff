// SPDX-License-Identifier: MIT
#pragma once

#include <ins/Export.h>
#include <sup++/KBase.h>
#include <sup++/KCustomMacro.h>
#include <sup++/KMutex.h>
#include <sup++/KString.h>
#include <sup++/ThreadSafety.h>

namespace KINS {

class KInstaller;

/// Fills the process-wide table of install paths and expands macros; the platform's class behind it
/// knows the default product path and the installed-product record.
///
/// The installer owns it. The table belongs to the process: it stays when the manager goes, and a
/// second installer's replaces it.
///
/// Thread   ExpandMacros any, under its own lock, at any time; Initialize before the worker thread
///          starts
class INS_EXPORT KInstallPathManagerBase : public KSUP::KBase {
  public:
    /// `installer` owns this manager, and outlives it.
    explicit KInstallPathManagerBase(KInstaller* installer);
    ~KInstallPathManagerBase() override;
    KInstallPathManagerBase(const KInstallPathManagerBase&) = delete;
    KInstallPathManagerBase& operator=(const KInstallPathManagerBase&) = delete;

    /// Sets entries 39 to 60 of the path map for a product below `installPath`.
    virtual void Initialize(const KSUP::KString& installPath);

    /// Expands every known macro (KSUP::KCustomMacro).
    virtual KSUP::KString ExpandMacros(const KSUP::KString& text) const;

    /// Finds the installed product.
    ///
    /// Throws   KSUP::KError when there is none; see the platform's class
    virtual void GetInstalledProductInformation(
        KSUP::KString& path, KSUP::KString& version, unsigned int& buildNumber
    ) const = 0;

    /// Records what was installed.
    virtual void PutInstalledProductInformation(
        const KSUP::KString& version, unsigned int buildNumber
    ) const = 0;

    /// The path that is proposed for a first install, unexpanded.
    virtual KSUP::KString GetDefaultProductPath() const = 0;

  protected:
    /// Adds a macro of the platform's, or replaces the one of that name, while others expand.
    void AddCustomMacro(const KSUP::KString& name, const KSUP::KString& value);

    KInstaller* owner; ///< the installer, which owns this manager
    KSUP::KCustomMacro customMacros SUP_GUARDED_BY(lock); ///< changed by AddCustomMacro only

  private:
    KSUP::KMutex lock; // serialises ExpandMacros and AddCustomMacro
};

} // namespace KINS
