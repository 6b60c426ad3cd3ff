// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace KTEST {

/// Keeps what a write listener is told, as lines: "file /a/b", "directory /a", "link …",
/// "file deleted …", "directory deleted …", "mode …". Paths below `root` stand without it.
///
///     WriteRecorder written(tree.Path());
///     SvcSetWriteListener(&WriteRecorder::Record, &written);
class WriteRecorder {
  public:
    explicit WriteRecorder(std::string rootOfPaths = "") : root(std::move(rootOfPaths)) {}

    static void Record(void* recorder, unsigned what, const char* path) noexcept {
        static constexpr std::array<const char*, 7> kinds{
            "?", "file", "directory", "link", "file deleted", "directory deleted", "mode"};
        auto& self = *static_cast<WriteRecorder*>(recorder);
        std::string text = path;
        if (!self.root.empty() && text.starts_with(self.root + '/')) {
            text.erase(0, self.root.size() + 1);
        }
        const std::lock_guard hold(self.guard);
        self.lines.push_back(std::string(kinds[what < kinds.size() ? what : 0]) + ' ' + text);
    }

    /// In the order in which they were told.
    std::vector<std::string> Lines() const {
        const std::lock_guard hold(guard);
        return lines;
    }

  private:
    const std::string root;
    mutable std::mutex guard;
    std::vector<std::string> lines; // guarded by guard
};

} // namespace KTEST
