// SPDX-License-Identifier: MIT
#include "dps/core/KPlugins.h"

#include <sup++/KProfile.h>

#include <array>
#include <stdexcept>
#include <utility>

#include <dlfcn.h>

namespace DPS {

namespace {

constexpr std::size_t mostBytes = 128; // that a plug-in tells

void Append(std::string& list, const std::string& entry) {
    list += (list.empty() ? "" : ", ") + entry;
}

} // namespace

KPlugins::KPlugins(const KSUP::KString& list) {
    if (list.IsEmpty()) {
        return;
    }
    KSUP::KProfile profile;
    profile.Open(list);
    profile.BeginKeyEnum("plugins", nullptr);
    while (profile.EnumKey(nullptr, false)) {
        Load(profile.GetKeyName().c_str(), profile.GetKeyValue().c_str());
    }
}

std::string KPlugins::GetNames() const {
    std::string names;
    for (const Plugin& plugin : plugins) {
        Append(names, plugin.name);
    }
    return names.empty() ? "none" : names;
}

std::string KPlugins::Tell() const {
    std::string told;
    std::array<char, mostBytes> words{};
    for (const Plugin& plugin : plugins) {
        Append(told, plugin.tell(words.data(), words.size()) ? words.data() : plugin.name + " ?");
    }
    return told;
}

void KPlugins::Load(const std::string& name, const std::string& file) {
    // The loader would look for anything else in directories of its own.
    if (!file.starts_with('/')) {
        throw std::runtime_error("plug-in " + name + ": \"" + file + "\" is no absolute path");
    }
    Plugin plugin{name, {}, nullptr};
    plugin.library.reset(::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL));
    void* const tell =
        plugin.library != nullptr ? ::dlsym(plugin.library.get(), "DpsPluginTell") : nullptr;
    if (tell == nullptr) {
        throw std::runtime_error("plug-in " + name + ": " + ::dlerror());
    }
    plugin.tell = reinterpret_cast<decltype(plugin.tell)>(tell);
    plugins.push_back(std::move(plugin));
}

void KPlugins::Unload::operator()(void* library) const noexcept {
    ::dlclose(library);
}

} // namespace DPS
