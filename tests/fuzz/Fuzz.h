// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace KTEST {

/// Ends the program, as a crash, unless it holds: a reader did what it never should.
void Require(bool holds, const char* what);

/// The input's pieces, which a byte separates that texts seldom have.
std::vector<std::string> PiecesOf(std::string_view input, char separator = '\x1E');

/// As many pieces, the missing ones empty, those that are too many left out.
std::vector<std::string> PiecesOf(std::string_view input, std::size_t count);

/// What a text is up to its first NUL: readers that take NUL-terminated texts see no more.
std::string UpToNul(const std::string& text);

/// A directory of this process in TMPDIR, which is to be one in memory. It is gone when the program
/// ends in peace.
class KScratchDirectory {
  public:
    KScratchDirectory();
    ~KScratchDirectory();
    KScratchDirectory(const KScratchDirectory&) = delete;
    KScratchDirectory& operator=(const KScratchDirectory&) = delete;

    /// Without a separator at its end.
    const std::string& GetPath() const noexcept { return path; }
    /// Writes a file over the former one; makes the directories above it.
    void Write(const std::string& name, std::string_view bytes, unsigned mode = 0644) const;
    /// Names, kinds and contents of all that is in it, to be compared.
    std::string Describe() const;

  private:
    std::string path;
};

/// Takes what the program prints while it lives, and throws it away.
class KMutedOutput {
  public:
    KMutedOutput();
    ~KMutedOutput();
    KMutedOutput(const KMutedOutput&) = delete;
    KMutedOutput& operator=(const KMutedOutput&) = delete;

  private:
    std::streambuf* output;
    std::streambuf* errors;
};

/// What a target does with one input.
using FuzzBody = void (*)(std::string_view input);

/// A target of the program that feeds the inputs which are kept.
struct KFuzzTarget {
    KFuzzTarget(const char* targetName, FuzzBody targetBody);

    const char* name;
    FuzzBody body;
    static std::vector<const KFuzzTarget*>& GetAll();
};

} // namespace KTEST

/// Begins a target, of which each source has one: what it does with `input`. With libFuzzer it is
/// the program's only one; without, one of those of the program that feeds what is kept.
#ifdef INSPP_FUZZ
#define FUZZ_TARGET(target)                                                                        \
    static void target(std::string_view input);                                                    \
    extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);             \
    extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {            \
        target({reinterpret_cast<const char*>(data), size});                                       \
        return 0;                                                                                  \
    }                                                                                              \
    static void target(std::string_view input)
#else
#define FUZZ_TARGET(target)                                                                        \
    static void target(std::string_view input);                                                    \
    static const KTEST::KFuzzTarget target##Registered(#target, &target);                          \
    static void target(std::string_view input)
#endif
