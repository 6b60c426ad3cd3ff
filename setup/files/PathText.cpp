// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>

#include <algorithm>
#include <filesystem>

namespace KSETUP {

bool IsNormalPath(std::string_view path) noexcept {
    if (path.empty() || path.front() != '/' || (path.size() > 1 && path.back() == '/')) {
        return false;
    }
    for (std::size_t at = 0; at < path.size() - 1; at = path.find('/', at + 1)) {
        if (path[at + 1] == '/' || path[at + 1] == '.') {
            return false;
        }
    }
    return true;
}

std::string NormalPath(const std::string& path) {
    if (IsNormalPath(path)) {
        return path;
    }
    std::string normal = std::filesystem::path(path).lexically_normal().string();
    while (normal.size() > 1 && normal.back() == '/') {
        normal.pop_back();
    }
    return normal;
}

std::string_view DirectoryOfPath(std::string_view path) noexcept {
    const std::size_t slash = path.rfind('/');
    return path.substr(0, slash == std::string_view::npos ? 0 : slash == 0 ? 1 : slash);
}

std::string ParentPath(std::string_view path) {
    return std::string(DirectoryOfPath(path));
}

std::string_view NameOfPath(std::string_view path) noexcept {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string JoinPath(std::string_view directory, std::string_view name) {
    std::string path;
    path.reserve(directory.size() + 1 + name.size());
    path.append(directory, 0, directory.find_last_not_of('/') + 1);
    return path.append(1, '/').append(name);
}

bool HasParentStep(std::string_view path) noexcept {
    for (std::size_t at = 0; at < path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        if (path.substr(at, end - at) == "..") {
            return true;
        }
        at = end + 1;
    }
    return false;
}

bool IsAtOrBelow(std::string_view path, std::string_view directory) noexcept {
    return path.starts_with(directory) &&
           (path.size() == directory.size() || directory == "/" || path[directory.size()] == '/');
}

} // namespace KSETUP
