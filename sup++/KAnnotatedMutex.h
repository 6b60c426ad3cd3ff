// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/ThreadSafety.h>

namespace KSUP {

/// A mutex of the standard library, of the same size, that clang's thread-safety analysis knows:
/// libstdc++ does not annotate its own. For classes whose headers are installed.
///
///     KAnnotatedMutex<std::mutex> guard;
///     int descriptor SUP_GUARDED_BY(guard) = -1;
template <class Mutex>
class SUP_CAPABILITY("mutex") KAnnotatedMutex : public Mutex {
  public:
    using Standard = Mutex; ///< what a condition variable takes
};

} // namespace KSUP
