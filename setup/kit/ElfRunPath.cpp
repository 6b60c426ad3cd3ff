// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/ElfRunPath.h>

#include <cstring>
#include <string_view>

#include <elf.h>
#include <link.h>

namespace KSETUP {

namespace {

constexpr std::string_view origin = "$ORIGIN";

/// The parts of an ELF file of the machine's own kind, each access held to the file's size.
class ElfFile {
  public:
    ElfFile(std::string& fileBytes, const std::string& fileName)
        : bytes(fileBytes),
          name(fileName) {}

    template <class Part>
    Part Get(std::size_t offset) const {
        if (offset > bytes.size() || sizeof(Part) > bytes.size() - offset) {
            Fail();
        }
        Part part;
        std::memcpy(&part, bytes.data() + offset, sizeof(Part));
        return part;
    }
    /// Where in the file that address lies.
    std::size_t OffsetOf(std::size_t address) const;
    [[noreturn]] void Fail() const {
        throw KSetupFailure(
            ExitCode::noKit,
            Text("%s: not a program or library of this machine's architecture.", name)
        );
    }
    std::string& bytes;

  private:
    const std::string& name;
};

std::size_t ElfFile::OffsetOf(std::size_t address) const {
    const auto header = Get<ElfW(Ehdr)>(0);
    for (std::size_t index = 0; index < header.e_phnum; ++index) {
        const auto segment = Get<ElfW(Phdr)>(header.e_phoff + index * header.e_phentsize);
        if (segment.p_type == PT_LOAD && address >= segment.p_vaddr &&
            address - segment.p_vaddr < segment.p_filesz) {
            return segment.p_offset + (address - segment.p_vaddr);
        }
    }
    Fail();
}

/// Overwrites a path with a shorter one. Nothing to do for one that is right.
bool Overwrite(const ElfFile& file, std::size_t offset) {
    const std::size_t end = file.bytes.find('\0', offset);
    if (end == std::string::npos) {
        file.Fail();
    }
    if (end - offset < origin.size()) {
        return false;
    }
    file.bytes.replace(offset, end - offset, std::string(end - offset, '\0'));
    file.bytes.replace(offset, origin.size(), origin);
    return true;
}

/// Throws for what is none.
ElfW(Ehdr) RequireElf(const ElfFile& file) {
    const auto header = file.Get<ElfW(Ehdr)>(0);
    const unsigned char ownClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ownClass ||
        header.e_phentsize != sizeof(ElfW(Phdr))) {
        file.Fail();
    }
    return header;
}

/// The first one is the one that counts; a segment without bytes where there is none.
ElfW(Phdr) FindDynamic(const ElfFile& file, const ElfW(Ehdr) & header) {
    for (std::size_t index = 0; index < header.e_phnum; ++index) {
        const auto segment = file.Get<ElfW(Phdr)>(header.e_phoff + index * header.e_phentsize);
        if (segment.p_type == PT_DYNAMIC) {
            return segment;
        }
    }
    return {};
}

} // namespace

bool SetRunPathToOrigin(std::string& bytes, const std::string& nameForErrors) {
    const ElfFile file(bytes, nameForErrors);
    const auto dynamic = FindDynamic(file, RequireElf(file));
    std::size_t strings = 0;
    std::size_t runPath = 0;
    bool found = false;
    for (std::size_t at = 0; at < dynamic.p_filesz; at += sizeof(ElfW(Dyn))) {
        const auto entry = file.Get<ElfW(Dyn)>(dynamic.p_offset + at);
        if (entry.d_tag == DT_STRTAB) {
            strings = entry.d_un.d_ptr;
        } else if (entry.d_tag == DT_RUNPATH || entry.d_tag == DT_RPATH) {
            runPath = entry.d_un.d_val;
            found = true;
        }
    }
    return found && Overwrite(file, file.OffsetOf(strings) + runPath);
}

bool SetNoDefaultLibraries(std::string& bytes, const std::string& nameForErrors) {
    const ElfFile file(bytes, nameForErrors);
    const auto dynamic = FindDynamic(file, RequireElf(file));
    for (std::size_t at = 0; at < dynamic.p_filesz; at += sizeof(ElfW(Dyn))) {
        auto entry = file.Get<ElfW(Dyn)>(dynamic.p_offset + at);
        // Linkers leave room for some entries: one is taken where another ends the list behind it.
        const bool isRoom = entry.d_tag == DT_NULL;
        if (isRoom &&
            (at + 2 * sizeof(entry) > dynamic.p_filesz ||
             file.Get<ElfW(Dyn)>(dynamic.p_offset + at + sizeof(entry)).d_tag != DT_NULL)) {
            return false;
        }
        if (isRoom || entry.d_tag == DT_FLAGS_1) {
            entry.d_un.d_val = (isRoom ? 0 : entry.d_un.d_val) | DF_1_NODEFLIB;
            entry.d_tag = DT_FLAGS_1;
            std::memcpy(bytes.data() + dynamic.p_offset + at, &entry, sizeof(entry));
            return true;
        }
    }
    return false;
}

} // namespace KSETUP
