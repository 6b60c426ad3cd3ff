// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KString.h>
#include <sup++/Msg.h>

namespace KSUP {

/// The text that opens a log entry: the writer's class name (KUtil::GetClassNameFromTypeInfo), or
/// the word for a trace level. Made for one entry, so a name that lives elsewhere is not copied.
class SUP_EXPORT KLogPrefix {
  public:
    /// The name itself, as it is to stand in front.
    explicit KLogPrefix(const KString& name) noexcept : text(&name) {}
    /// The name itself, as it is to stand in front.
    explicit KLogPrefix(KString&& name) noexcept : own(static_cast<KString&&>(name)), text(&own) {}
    /// The word for a trace level (SvcMapTraceMask).
    explicit KLogPrefix(TRACE_MESSAGE level);
    KLogPrefix(const KLogPrefix&) = delete;
    KLogPrefix& operator=(const KLogPrefix&) = delete;

    /// What stands in front of the entry.
    const KString& GetText() const noexcept { return *text; }

  private:
    KString own;
    const KString* text;
};

} // namespace KSUP
