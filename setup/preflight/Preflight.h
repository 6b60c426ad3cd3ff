// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlan.h>

#include <functional>
#include <string>
#include <vector>

namespace KSETUP {

/// \file
/// What is looked at before anything changes. Each of these returns when all is well.

/// Throws   KSetupFailure with ExitCode::notRoot for anybody else
void RequireRoot();

/// Throws   KSetupFailure with ExitCode::cannotWrite when a file system lacks bytes or inodes, also
///          one of the directories that are written to whatever the plan says. The rest is
///          KPlan::ReadSpace's
void RequireSpace(
    const KPlan& plan,
    const std::vector<std::string>& alsoWritten = {},
    const std::function<bool(const std::string& path)>& isThere = {}
);
/// The same of one file system.
void RequireSpace(const KPlan::Space& space);

/// Throws   KSetupFailure with ExitCode::cannotWrite when something is to be made or deleted on a file
///          system that is mounted read-only, in a directory that is immutable, or below what is no
///          directory; or what is to be changed or deleted is immutable or append-only
void RequireWritable(const KPlan& plan);

/// Throws   KSetupFailure with ExitCode::noService when the plan needs a service manager and none
///          runs
void RequireServiceManager(const KPlan& plan);

struct KVersion {
    std::string text;
    unsigned buildNumber = 0;
};

/// Throws   KSetupFailure with ExitCode::usage when `installed` is newer than `wanted`, or a later
///          build of it
void RequireNoDowngrade(
    const std::string& product, const KVersion& installed, const KVersion& wanted
);

} // namespace KSETUP
