// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KString.h>
#include <sup++/Msg.h>

namespace KSUP {

/// The text that opens a log entry: the writer's class name (KUtil::GetClassNameFromTypeInfo), or
/// the word for a trace level.
class SUP_EXPORT KLogPrefix {
  public:
    /// The name itself, as it is to stand in front.
    explicit KLogPrefix(KString name) noexcept : text(static_cast<KString&&>(name)) {}
    /// The word for a trace level (SvcMapTraceMask).
    explicit KLogPrefix(TRACE_MESSAGE level);

    /// What stands in front of the entry.
    const KString& GetText() const noexcept { return text; }

  private:
    KString text;
};

} // namespace KSUP
