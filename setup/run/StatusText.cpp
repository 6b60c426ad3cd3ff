// SPDX-License-Identifier: MIT
#include <setup/run/StatusText.h>
#include <sup++/SvcMessage.h>

#include <array>
#include <string_view>

namespace KSETUP {

namespace {

struct Message {
    unsigned id; ///< of the engine's catalogue, ins/messages/xxxins.msg
    const char* english;
};

constexpr std::array messages = std::to_array<Message>({
    {0x2C0001, "Removing service"},
    {0x2C0002, "Installing service"},
    {0x2C0003, "Starting service"},
    {0x2C0004, "Stopping service"},
});

/// Each ends with what the rule works on. The longer ones first.
constexpr std::array formats = std::to_array<const char*>({
    TextFormat("Creating directory %s"),
    TextFormat("Deleting directory %s"),
    TextFormat("Deleting file %s"),
    TextFormat("Deleting %s"),
    TextFormat("Copying file %s"),
    TextFormat("Starting process %s"),
    TextFormat("Stopping process %s"),
    TextFormat("Running command %s"),
    TextFormat("Setting mode of %s"),
    TextFormat("Making link %s"),
    TextFormat("Making user %s"),
});

} // namespace

KText StatusText(const std::string& status) {
    for (const char* format : formats) {
        std::string_view begin = format;
        begin.remove_suffix(std::string_view("%s").size());
        if (status.starts_with(begin)) {
            return Text(format, status.substr(begin.size()));
        }
    }
    for (const Message& message : messages) {
        if (status == SvcGetMessagePtr(message.id) || status == message.english) {
            return {message.english, status}; // in the language of its catalogue
        }
    }
    return status;
}

} // namespace KSETUP
