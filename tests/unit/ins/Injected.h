// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/KString.h>

#include <functional>

namespace KTEST {

/// Support-library calls that this test program answers itself where a test asks for it; an empty
/// function lets the library answer. The engine meets them because a program's own definition of a
/// name wins over a library's.
///
/// Thread   to be set before a run starts and kept until it has ended
///
///     Injection inject;
///     inject.SvcDeleteFile = [](unsigned, const char*) { return 5U; };
struct Injections {
    std::function<unsigned(unsigned, const char*)> SvcLoadMessage;
    std::function<unsigned(unsigned)> SvcUnloadMessage;
    std::function<unsigned(unsigned, const char*)> SvcDeleteFile;
    std::function<unsigned(unsigned, const char*, unsigned)> SvcCreateDirectory;
    std::function<unsigned(unsigned, const char*, unsigned)> SvcDeleteDirectory;
    std::function<unsigned()> SvcFlushWrites;
    std::function<unsigned()> SvcPollingDispatch;
    std::function<unsigned(const char*, const char*, unsigned, unsigned*, char*)>
        SvcEnumerateStringFromCommandLine;
    std::function<unsigned(unsigned, const char*, const char*, const char*, const char*)>
        SvcCreateService;
    std::function<unsigned(unsigned, const char*)> SvcDeleteService;
    std::function<unsigned(unsigned, const char*)> SvcStartService;
    std::function<unsigned(unsigned, const char*)> SvcStopService;
    std::function<unsigned(unsigned, const char*, unsigned)> SvcStopServiceEx;
    std::function<unsigned(unsigned, const char*, unsigned*)> SvcGetServiceStatus;
    /// Called before the library's own, which is not called when this throws.
    std::function<void(unsigned, const KSUP::KString&)> BeforeSetPathMap;
};

/// In force from its construction to its end; one at a time.
class Injection : public Injections {
  public:
    Injection();
    ~Injection();
    Injection(const Injection&) = delete;
    Injection& operator=(const Injection&) = delete;

    /// What is in force, null when nothing is.
    static const Injections* Current() noexcept;
};

} // namespace KTEST
