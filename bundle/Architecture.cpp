// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>

#include <bundle/Architecture.h>
#include <elf.h>

namespace KBUNDLE {

namespace {

struct KKnown {
    KArchitecture architecture;
    unsigned char wordSize;
    unsigned machine;
};

/// All have the lowest byte of a number first.
constexpr auto known = std::to_array<KKnown>({
    {{"x86_64", "ld-linux-x86-64.so.2"}, ELFCLASS64, EM_X86_64},
    {{"x86", "ld-linux.so.2"}, ELFCLASS32, EM_386},
    {{"aarch64", "ld-linux-aarch64.so.1"}, ELFCLASS64, EM_AARCH64},
    {{"riscv64", "ld-linux-riscv64-lp64d.so.1"}, ELFCLASS64, EM_RISCV},
});

#if defined(__x86_64__) && defined(__LP64__)
constexpr unsigned ownMachine = EM_X86_64;
#elif defined(__i386__)
constexpr unsigned ownMachine = EM_386;
#elif defined(__aarch64__) && defined(__AARCH64EL__)
constexpr unsigned ownMachine = EM_AARCH64;
#elif defined(__riscv) && __riscv_xlen == 64
constexpr unsigned ownMachine = EM_RISCV;
#else
constexpr unsigned ownMachine = EM_NONE;
#endif

} // namespace

const KArchitecture* FindArchitecture(std::string_view elf) {
    constexpr std::size_t machineAt = offsetof(Elf64_Ehdr, e_machine); // the same in both classes
    if (elf.size() < machineAt + sizeof(Elf64_Half) || !elf.starts_with(ELFMAG) ||
        elf[EI_DATA] != ELFDATA2LSB) {
        return nullptr;
    }
    const unsigned machine = static_cast<unsigned char>(elf[machineAt]) |
                             static_cast<unsigned>(static_cast<unsigned char>(elf[machineAt + 1]))
                                 << static_cast<unsigned>(CHAR_BIT);
    const auto found = std::find_if(known.begin(), known.end(), [&](const KKnown& each) {
        return each.machine == machine && each.wordSize == elf[EI_CLASS];
    });
    return found != known.end() ? &found->architecture : nullptr;
}

const KArchitecture& OwnArchitecture() {
    static constexpr KArchitecture other{"", "ld.so"};
    const auto* const own = std::find_if(known.begin(), known.end(), [](const KKnown& each) {
        return each.machine == ownMachine;
    });
    return own != known.end() ? own->architecture : other;
}

} // namespace KBUNDLE
