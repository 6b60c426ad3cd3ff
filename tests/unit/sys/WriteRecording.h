// SPDX-License-Identifier: MIT
#pragma once

#include "../../support/WriteRecorder.h"

#include <string>
#include <vector>

#include <sys/files/WriteReport.h>

namespace KTEST {

/// What this program's own copy of the system layer reports, while it lives.
class WriteRecording {
  public:
    explicit WriteRecording(const std::string& rootOfPaths) : recorder(rootOfPaths) {
        KSYS::SetWriteListener(&WriteRecorder::Record, &recorder);
    }
    ~WriteRecording() { KSYS::SetWriteListener(nullptr, nullptr); }
    WriteRecording(const WriteRecording&) = delete;
    WriteRecording& operator=(const WriteRecording&) = delete;

    std::vector<std::string> Lines() const { return recorder.Lines(); }

  private:
    WriteRecorder recorder;
};

} // namespace KTEST
