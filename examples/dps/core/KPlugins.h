// SPDX-License-Identifier: MIT
#pragma once

#include "dps/core/Export.h"

#include <sup++/KString.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace DPS {

/// The plug-ins that a list names: lines NAME=FILE in its section [plugins]. plugins/Plugin.h tells
/// what such a file has.
///
///     KPlugins plugins("/opt/dps/config/plugins.ini");
///     std::cout << plugins.Tell() << "\n"; // up 12 min, 345 tasks
class DPS_EXPORT KPlugins {
  public:
    /// Loads them; an empty text means that there are none.
    ///
    /// Throws   KSUP::KError when the list cannot be read, std::runtime_error for a plug-in that
    ///          cannot be loaded
    explicit KPlugins(const KSUP::KString& list);

    std::size_t GetCount() const noexcept { return plugins.size(); }
    /// As in "uptime, tasks"; "none" without any.
    std::string GetNames() const;
    /// What they have to tell, as in "up 12 min, 345 tasks".
    std::string Tell() const;

  private:
    struct Unload {
        void operator()(void* library) const noexcept;
    };
    struct Plugin {
        std::string name;
        std::unique_ptr<void, Unload> library;
        bool (*tell)(char* buffer, std::size_t size);
    };
    void Load(const std::string& name, const std::string& file);

    std::vector<Plugin> plugins;
};

} // namespace DPS
