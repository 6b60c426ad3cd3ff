// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// Texts as NUL-terminated bytes. The encoding is UTF-8; a byte that does not begin a well-formed
/// sequence is a character of one byte, so every text can be walked. Case folding is ASCII only, in
/// every locale. A null text is an empty text. Nothing here throws or locks unless it says so.

#include <sup++/Export.h>

#include <cstddef>

/// The size in bytes of the character at `text`; 0 at the end of the text.
SUP_EXPORT std::size_t Txtchrsize(const char* text) noexcept;

/// The character behind the one at `text`; `text` itself at its end.
SUP_EXPORT const char* Txtnext(const char* text) noexcept;

/// In characters, an invalid byte as one; 0 for null.
SUP_EXPORT std::size_t Txtlen(const char* text) noexcept;

/// In bytes, without the terminating NUL; 0 for null.
SUP_EXPORT std::size_t Txtsize(const char* text) noexcept;

/// In bytes, with the terminating NUL; 1 for null.
SUP_EXPORT std::size_t Txtbytesz(const char* text) noexcept;

/// Compares byte by byte, as unsigned bytes. Returns 0 when equal, below 0 when `left` comes first.
SUP_EXPORT int Txtcmp(const char* left, const char* right) noexcept;

/// Compares the first `count` characters, ASCII letters without regard to case; 0 when equal.
SUP_EXPORT int Txtincmp(const char* left, const char* right, std::size_t count) noexcept;

/// The first place in `text` where `part` stands as whole characters; null when there is none. An
/// empty `part` stands at the start.
SUP_EXPORT const char* Txtstr(const char* text, const char* part) noexcept;

/// As Txtstr, ASCII letters without regard to case.
SUP_EXPORT const char* Txtistr(const char* text, const char* part) noexcept;

/// The ASCII lower-case letter of an upper-case one; any other byte as it is.
SUP_EXPORT char Txttolower(char letter) noexcept;

/// Lowers the ASCII letters of `text` in place and returns it.
SUP_EXPORT char* Txtlwr(char* text) noexcept;

/// A copy of `text` on the library's heap; free it with Rel_SvcReleaseMemory. Null when there is no
/// memory.
SUP_EXPORT char* Rel_Txtdup(const char* text) noexcept;
