// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace KSYS {

/// What a walk along a path has still to enter: the components of the path, and in front of them those
/// of each link that is followed. Empty ones and "." are left out; ".." is one.
///
/// Throws   std::bad_alloc
class KPendingPath {
  public:
    /// The components of this path come before those that wait.
    void PushFront(std::string_view path) {
        while (!path.empty()) {
            const std::size_t slash = path.rfind('/');
            const std::string_view part =
                slash == std::string_view::npos ? path : path.substr(slash + 1);
            if (!part.empty() && part != ".") {
                parts.emplace_back(part);
            }
            path = slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
        }
    }
    bool IsEmpty() const noexcept { return parts.empty(); }
    /// The next component; there has to be one.
    std::string Pop() {
        std::string part = std::move(parts.back());
        parts.pop_back();
        return part;
    }

  private:
    std::vector<std::string> parts; // the next one last
};

} // namespace KSYS
