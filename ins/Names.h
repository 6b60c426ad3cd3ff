// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// The names by which a script, a machine and the engine know each other. Macros stand in them as
/// they are: KInstaller::ExpandMacros gives what they mean for the product that is loaded.
namespace KINS::Names {

/// The script's sections of the two runs; a run loads "install.x86_64" behind "install".
inline constexpr char installSection[] = "install";
inline constexpr char removeSection[] = "remove"; ///< see installSection

/// The key of section [install] that proposes the product path, dollars and all: it is no rule.
inline constexpr char defaultPathKey[] = "defaultPath.$os$";
/// The product path of a script that proposes none.
inline constexpr char defaultProductPath[] = "/usr/local/korvane/dps";

/// The setup log's name, and its directory by its number in the path map;
/// KInstaller::GetSetupLogPath joins them.
inline constexpr char setupLogName[] = "$product$ Setup Log.txt";
inline constexpr unsigned logDirectoryId = 19; ///< see setupLogName

/// The link by which an installed product is found: its target lies three levels below the product
/// path.
inline constexpr char recordLink[] = "/etc/$serviceName$/$serviceName$";
/// The file of the record, for the product path that the path map is set to.
inline constexpr char recordFile[] = "$pathTargetConfig$$iniFile$";
inline constexpr char recordSection[] = "installControl";      ///< of the record's file
inline constexpr char recordVersionKey[] = "installedVersion"; ///< in recordSection
inline constexpr char recordBuildNumberKey[] = "buildNumber";  ///< in recordSection
inline constexpr char noRecordedVersion[] = "unknown"; ///< the version of a record that has none

/// The option of the command line whose values become profile rules that write to recordFile.
inline constexpr char addProfileLineOption[] = "addProfileLine";

/// The macro, without dollars, that holds version and build number of the installed product.
inline constexpr char installedVersionMacro[] = "targetVerInfo";
/// The macro, without dollars, of the ending of program names.
inline constexpr char programEndingMacro[] = "binext";

} // namespace KINS::Names
