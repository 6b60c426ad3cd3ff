// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlannedTree.h>
#include <setup/text/KText.h>

#include <map>
#include <set>
#include <string>
#include <string_view>

namespace KSETUP {

enum class KServiceFate : std::uint8_t;

/// What service rules would do to the units that a planned tree shows, as far as that can be known
/// without asking systemd: which calls would fail, and which unit files come and go.
///
/// Borrows the tree. The answers are why a call would fail, empty when nothing is known against it.
///
/// Thread   one at a time
class KPlannedServices {
  public:
    KPlannedServices(KPlannedTree& plannedTree, KServiceFate servicesFate);

    KText Install(
        const std::string& name,
        const std::string& displayName,
        const std::string& program,
        const std::string& arguments
    );
    KText Start(const std::string& name);
    KText Stop(const std::string& name);
    /// Never fails: a removal goes on.
    void Remove(const std::string& name);
    /// A command ran: what it made, or made executable, is not known.
    void NoteCommand() noexcept { commandRan = true; }

  private:
    std::string FindUnit(const std::string& name) const;
    bool IsOurs(const std::string& name) const;
    KText WhyUnknown(const std::string& name) const;
    KText WhyProgramCannotRun(const std::string& name) const;

    KPlannedTree& tree;
    KServiceFate fate;
    bool commandRan = false;
    std::map<std::string, std::string> programs; ///< of services that were installed, by name
    std::set<std::string> atRest;                ///< services that certainly do not run now
};

/// Why no unit file can be made of these: what systemd would refuse to read. Empty when one can.
KText WhyNotAUnit(
    const std::string& displayName, const std::string& program, const std::string& arguments
);

} // namespace KSETUP
