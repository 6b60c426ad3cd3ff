// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstallRule.h>

namespace KINS {

/// `profile=create,path`, `profile=put,path,section,key,value`,
/// `profile=remove_file,path,section,match`: makes a profile file, writes an option, or deletes the
/// files that the keys of a section name and whose names contain `match`, together with their keys.
/// Case of the operation does not matter. The line is expanded by the constructor; section, key and
/// value once more by ParseRule, so that a macro may hold the name of another.
class INS_EXPORT KProfileRule : public KInstallRule {
  public:
    /// Expands the line. See KInstallRuleBase.
    KProfileRule(KInstallRuleManagerBase* owner, const KSUP::KString& line);
    ~KProfileRule() override;

    /// Throws   KSUP::KError when the profile cannot be made, read or written
    void Execute() override;
    KSUP::KString Description() const override;
    /// Throws   KSUP::KError 7000 unless there are 2, 4 or 5 fields (with the line), or for an
    ///          unknown operation (with the operation). A count that does not suit the operation is
    ///          let pass; what is missing stays empty
    void ParseRule(const std::vector<KSUP::KString>& fields) override;

  private:
    KSUP::KString operation;
    KSUP::KString profilePath;
    KSUP::KString section;
    KSUP::KString key;
    KSUP::KString value;
};

} // namespace KINS
