// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KBase.h>
#include <sup++/KString.h>

#include <map>
#include <string>
#include <vector>

namespace KSUP {

/// A set of macros and the expansion of texts by it. A macro is a name between two dollar signs;
/// macros may touch ("$pathTargetConfig$$iniFile$").
///
/// A name is looked up in this set, then among the directories of the path map (KUtil::GetPathMap),
/// the product data (`product`, `serviceName`, `iniFile`, `verInfo`, `buildNumber`, `os`, `arch`),
/// and the custom keys (SvcSetCustomKey), all read at each expansion. Texts are expanded once, from
/// left to right: values are not looked at again. An unknown name stays, dollars and all, and the
/// search goes on at its second dollar.
///
/// Thread   the set is not to be changed while it expands
class SUP_EXPORT KCustomMacro : public KBase {
  public:
    KCustomMacro();
    ~KCustomMacro() override;
    KCustomMacro(const KCustomMacro&) = delete;
    KCustomMacro& operator=(const KCustomMacro&) = delete;

    /// Adds a macro, or replaces the one of that name. An empty value is a value.
    void AddCustomMacro(const KString& name, const KString& value);

    /// A copy with every known macro replaced, as told above.
    KString ExpandMacros(const KString& text) const;

    /// The names, without dollars, of the directories and the product data that every set knows; a
    /// directory is known as soon as the path map has it.
    static std::vector<KString> GetBuiltInNames();

  private:
    bool AppendValue(std::string_view name, std::string& target) const;

    std::map<std::string, std::string, std::less<>> macros;
};

} // namespace KSUP
