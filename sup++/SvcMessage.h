// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// Message catalogues, by number. A message id is the catalogue's number in its upper and the
/// message's number in its lower 16 bits: 0x2C0002 is message 2 of catalogue 44. In the catalogue's
/// files, which gencat(1) makes, that is message 2 of set 44.
///
/// The files of the catalogue "xxxins" lie beside the library or program that holds its built-in
/// texts: xxxins.cat, and xxxins.de.cat for German, xxxins.de_AT.cat for that of Austria. The language
/// is that of LC_MESSAGES when the catalogue is loaded. Where there is no file for it, xxxins.cat
/// serves; where a text is in no file, the built-in one.

#include <sup++/Export.h>

/// The texts that a catalogue has where no file has them.
struct SvcBuiltInMessage {
    unsigned id;      ///< catalogue and message
    const char* text; ///< null at the end of the table
};

/// Names the built-in texts of a catalogue, up to an entry whose text is null. They stand, and tell
/// where its files are, from the next SvcLoadMessage on.
///
/// Lifetime the table is kept as a pointer for the life of the process
SUP_EXPORT unsigned
SvcSetBuiltInMessages(unsigned catalogue, const SvcBuiltInMessage* messages) noexcept;

/// Loads a catalogue by its base name; loads are counted, and the first one chooses the language. A
/// catalogue without files is no failure.
///
/// Returns  0, 36 for an invalid argument, or ENOMEM
/// Thread   any; the environment and the program's locale must not change meanwhile
[[nodiscard]] SUP_EXPORT unsigned SvcLoadMessage(unsigned catalogue, const char* baseName) noexcept;

/// Takes back one load; harmless for a catalogue that is not loaded. Texts stay readable.
SUP_EXPORT unsigned SvcUnloadMessage(unsigned catalogue) noexcept;

/// The text of a message of a loaded catalogue; an empty text for an unknown one, never null.
///
/// Lifetime of the process
/// Thread   any
SUP_EXPORT const char* SvcGetMessagePtr(unsigned id) noexcept;
