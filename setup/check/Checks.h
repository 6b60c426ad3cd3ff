// SPDX-License-Identifier: MIT
#pragma once

#include <setup/check/KCheckContext.h>
#include <setup/check/KFinding.h>

#include <vector>

/// The checks of the table in KCheck.cpp, each for one kind of finding.
namespace KSETUP::Checks {

using Findings = std::vector<KFinding>;

// What product.ini says. ProductChecks.cpp
Findings ProductMistakes(const KCheckContext& context);

// What a line says. LineChecks.cpp, WordChecks.cpp
Findings UnknownTypes(const KCheckContext& context);
Findings FieldCounts(const KCheckContext& context);
Findings IgnoredOperations(const KCheckContext& context);
Findings FailingOperations(const KCheckContext& context);
Findings EmptyFields(const KCheckContext& context);
Findings EmptyKeys(const KCheckContext& context);
Findings DefaultPaths(const KCheckContext& context);
Findings BlanksAfterCommas(const KCheckContext& context);
Findings CopiesToRoot(const KCheckContext& context);
Findings SectionsInBrackets(const KCheckContext& context);

// Macros and what commands make of them. MacroChecks.cpp
Findings UnknownMacros(const KCheckContext& context);
Findings MacroValues(const KCheckContext& context);
Findings UnquotedMacros(const KCheckContext& context);

// SecretChecks.cpp
Findings Secrets(const KCheckContext& context);

// Sections. IncludeChecks.cpp
Findings IncludeCycles(const KCheckContext& context);
Findings MissingSections(const KCheckContext& context);
Findings UnloadedSections(const KCheckContext& context);

// What is copied. CopyChecks.cpp
Findings MissingSources(const KCheckContext& context);
Findings EmptyWildcards(const KCheckContext& context);
Findings SkippedDirectories(const KCheckContext& context);
Findings CopiesOntoThemselves(const KCheckContext& context);
Findings CopiedSetIds(const KCheckContext& context);
Findings OverwrittenConfigurations(const KCheckContext& context);

// Paths that mean something else than they seem to. PathChecks.cpp
Findings RelativePaths(const KCheckContext& context);
Findings NewNames(const KCheckContext& context);
Findings WildcardLinks(const KCheckContext& context);
Findings LinksOntoFiles(const KCheckContext& context);
Findings MissingSeparators(const KCheckContext& context);
Findings ChangedKits(const KCheckContext& context);
Findings SharedProductPaths(const KCheckContext& context);

// What comes too early, or twice. OrderChecks.cpp
Findings LateDirectories(const KCheckContext& context);
Findings MissingDirectories(const KCheckContext& context);
Findings DoubleCopies(const KCheckContext& context);
Findings DeletionsOfNewFiles(const KCheckContext& context);

// ServiceChecks.cpp
Findings FailingServices(const KCheckContext& context);
Findings UnknownServices(const KCheckContext& context);
Findings ServicePrograms(const KCheckContext& context);
Findings RunningServices(const KCheckContext& context);
Findings UnconfinedServices(const KCheckContext& context);

// Rules of ins-setup's own types. OwnRuleChecks.cpp
Findings InvalidRules(const KCheckContext& context);
Findings UnknownOwners(const KCheckContext& context);
Findings SetIdsWithoutOwner(const KCheckContext& context);
Findings ModesOfNothing(const KCheckContext& context);
Findings LinksOutOfTheProduct(const KCheckContext& context);

// What the machine is left with. RecordChecks.cpp, RemovalChecks.cpp
Findings MissingRecordLinks(const KCheckContext& context);
Findings MissingRecordProfiles(const KCheckContext& context);
Findings DanglingRecordLinks(const KCheckContext& context);
Findings LeftRecordLinks(const KCheckContext& context);
Findings SystemDeletions(const KCheckContext& context);
Findings LeftBehind(const KCheckContext& context);

// Values that the kit declares. ValueChecks.cpp
Findings WrongValueUses(const KCheckContext& context);
Findings UnusedValues(const KCheckContext& context);

// What a removal without the kit lacks. KeepChecks.cpp
Findings FilesNotKept(const KCheckContext& context);

} // namespace KSETUP::Checks
