// SPDX-License-Identifier: MIT
#pragma once

#include "../../support/ErrorProbe.h"
#include "../../support/SlotOf.h"

#include <sup++/KError.h>
#include <sup++/KString.h>

#include <boost/function.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include <sys/types.h>

namespace KSUP {

/// For the messages of failed comparisons.
void PrintTo(const KString& text, std::ostream* out);

} // namespace KSUP

namespace KTEST {

class TemporaryTree;

/// The code of the error that `call` throws, 0 when it throws none.
template <class Call>
unsigned CodeOf(Call&& call) {
    try {
        call();
    } catch (const KSUP::KError& error) {
        return error.GetCode();
    }
    return 0;
}

/// What stands in an error that names a path: the path and the system's text.
std::string SystemInfo(const std::string& path, int errorNumber);

std::vector<std::string> TextsOf(const std::vector<KSUP::KString>& texts);

/// Ends the process by SIGALRM when a scope takes longer than any machine needs: what should be an
/// error at once must not hang the whole run.
class HangGuard {
  public:
    HangGuard();
    ~HangGuard();
    HangGuard(const HangGuard&) = delete;
    HangGuard& operator=(const HangGuard&) = delete;
};

class UmaskGuard {
  public:
    explicit UmaskGuard(mode_t mask);
    ~UmaskGuard();
    UmaskGuard(const UmaskGuard&) = delete;
    UmaskGuard& operator=(const UmaskGuard&) = delete;

  private:
    mode_t former;
};

bool IsRoot();

/// Whether this program was built with a sanitizer that watches its memory or threads.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KTEST_SANITIZED true
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KTEST_SANITIZED true
#endif
#ifndef KTEST_SANITIZED
#define KTEST_SANITIZED false
#endif
inline constexpr bool isSanitized = KTEST_SANITIZED;

/// The user and group that AsNobody takes on.
inline constexpr unsigned nobodyId = 65534;

/// Runs `body` without privileges, on a thread of its own whose credentials alone are changed; on
/// this thread where the process has none. What it throws is thrown here.
void AsNobody(const boost::function<void()>& body);

/// So that AsNobody owns it too.
void GiveToNobody(TemporaryTree& tree, const std::string& relative);

/// Runs `body` in a forked process and returns its exit status: what `body` returned, or 128 and the
/// signal that ended it.
int InChild(const boost::function<int()>& body);

/// From here on the system refuses a call with ENOSYS, as an older one does that does not know it.
/// For a forked process only: there is no way back.
///
/// Throws   std::system_error where the system cannot do that
void RefuseSystemCall(long number);

/// Runs one test of this program, a disabled one, in a process of its own, in which no other test
/// has changed anything before; `option` is put on its command line.
bool PassesAlone(const std::string& test, const std::string& option = "--");

/// Saves the process's own command line again.
void RestoreCommandLine();

/// The numbers of the descriptors that are open, sorted.
std::vector<int> OpenDescriptors();

} // namespace KTEST

/// Loud, so that a run that tests less is seen to.
#define SKIP_UNLESS_ROOT(what)                                                                     \
    if (!KTEST::IsRoot()) {                                                                        \
        GTEST_SKIP() << "NOT TESTED: only root can " << (what);                                    \
    }                                                                                              \
    static_assert(true)
