// SPDX-License-Identifier: MIT
#pragma once

#include <setup/run/KRunContext.h>
#include <setup/text/KText.h>

#include <optional>
#include <string>

#include <sys/files/KDescriptor.h>

namespace KSETUP {

/// Asks whoever sits at the terminal of a run. Only where somebody sits: a run that nobody watches is never
/// held up. Who watches through a pipe is asked all the same, on the terminal itself.
///
/// Borrows the context.
/// Thread   the main thread's
class KQuestion {
  public:
    enum class Echo { On, Off };

    explicit KQuestion(const KRunContext& runContext);

    /// Whether somebody is to be asked.
    bool IsWanted() const noexcept { return isWanted; }
    /// Whether there is a terminal to ask on.
    bool CanAsk() const noexcept;
    /// What is typed, without the line's end; nothing at the end of input, or for a signal.
    std::optional<std::string> Ask(const KText& words, Echo echo = Echo::On) const;
    /// Says something on that terminal.
    void Tell(const KText& words) const;

  private:
    int Output() const noexcept;

    const KRunContext& context;
    bool isWanted;
    KSYS::KDescriptor terminal; // the run's own
};

} // namespace KSETUP
