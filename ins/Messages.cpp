// SPDX-License-Identifier: MIT
#include <ins/KInstaller.h>
#include <sup++/SvcMessage.h>

namespace {

constexpr unsigned catalogue = 44;

// Not const: the interface of the message exports has the base name in writable memory.
char baseName[] = "xxxins";

constexpr SvcBuiltInMessage builtInMessages[] = {
    {0x2C0001, "Removing service"},
    {0x2C0002, "Installing service"},
    {0x2C0003, "Starting service"},
    {0x2C0004, "Stopping service"},
    {0, nullptr},
};

} // namespace

unsigned PrvInsLoadMessage() noexcept {
    // Before the load, which is when built-in texts take effect.
    const unsigned status = SvcSetBuiltInMessages(catalogue, builtInMessages);
    return status != 0 ? status : SvcLoadMessage(catalogue, baseName);
}

void PrvInsUnloadMessage() noexcept {
    // Fails only for a catalogue that is not loaded, and then there is nothing to take back.
    static_cast<void>(SvcUnloadMessage(catalogue));
}
