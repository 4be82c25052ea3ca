// SPDX-License-Identifier: MIT
// Where the fields of a 32-bit ELF file's records stand, and the values that this program writes or looks for. Writer,
// back ends and dump share it.
#pragma once

#include <cstdint>

// The ELF header.
enum elf_header_offset : std::uint32_t {
    EH_MAGIC = 0,
    EH_CLASS = 4,
    EH_DATA = 5,
    EH_IDENT_VERSION = 6,
    EH_OSABI = 7,
    EH_TYPE = 16,      // 2 bytes
    EH_MACHINE = 18,   // 2
    EH_VERSION = 20,   // 4
    EH_ENTRY = 24,     // 4
    EH_PHOFF = 28,     // 4
    EH_SHOFF = 32,     // 4
    EH_FLAGS = 36,     // 4
    EH_EHSIZE = 40,    // 2
    EH_PHENTSIZE = 42, // 2
    EH_PHNUM = 44,     // 2
    EH_SHENTSIZE = 46, // 2
    EH_SHNUM = 48,     // 2
    EH_SHSTRNDX = 50,  // 2
};

inline constexpr std::uint8_t ELF_MAGIC[4] = {0x7F, 'E', 'L', 'F'};
inline constexpr std::uint8_t ELF_CLASS_32 = 1;
inline constexpr std::uint8_t ELF_DATA_LITTLE = 1;
inline constexpr std::uint8_t ELF_DATA_BIG = 2;
inline constexpr std::uint8_t ELF_VERSION = 1;
inline constexpr std::uint16_t ELF_TYPE_EXECUTABLE = 2;
inline constexpr std::uint16_t ELF_MACHINE = 204; // of all families

// A section header; all fields have 4 bytes.
enum elf_section_offset : std::uint32_t {
    SH_NAME = 0,
    SH_TYPE = 4,
    SH_FLAGS = 8,
    SH_ADDR = 12,
    SH_OFFSET = 16,
    SH_SIZE = 20,
    SH_LINK = 24,
    SH_INFO = 28,
    SH_ADDRALIGN = 32,
    SH_ENTSIZE = 36,
};

enum elf_section_type : std::uint32_t {
    SHT_PROGBITS = 1,
    SHT_SYMTAB = 2,
    SHT_STRTAB = 3,
    SHT_NOBITS = 8,
    SHT_USER = 0x80000000,
    SHT_CODECOV_INFO = 0x80000CC0,
    SHT_CODECOV_INFO_HDR = 0x80000CC1,
};

enum elf_section_flag : std::uint32_t {
    SHF_WRITE = 1,
    SHF_ALLOC = 2,
    SHF_EXECINSTR = 4,
    SHF_EEDATA = 0x20000000,
};

// A program header; all fields have 4 bytes.
enum elf_segment_offset : std::uint32_t {
    PH_TYPE = 0,
    PH_OFFSET = 4,
    PH_VADDR = 8,
    PH_PADDR = 12,
    PH_FILESZ = 16,
    PH_MEMSZ = 20,
    PH_FLAGS = 24,
    PH_ALIGN = 28,
};

enum elf_segment_type : std::uint32_t {
    PT_LOAD = 1,
    PT_PHDR = 6,
};

enum elf_segment_flag : std::uint32_t {
    PF_X = 1,
    PF_W = 2,
    PF_R = 4,
};

// A symbol table entry.
enum elf_symbol_offset : std::uint32_t {
    ST_NAME = 0,   // 4 bytes
    ST_VALUE = 4,  // 4
    ST_SIZE = 8,   // 4
    ST_INFO = 12,  // binding in the high four bits, type in the low ones
    ST_OTHER = 13, // 1
    ST_SHNDX = 14, // 2
};

enum elf_symbol_binding : std::uint8_t {
    STB_LOCAL = 0,
    STB_GLOBAL = 1,
};

enum elf_symbol_type : std::uint8_t {
    STT_NOTYPE = 0,
    STT_OBJECT = 1,
    STT_FUNC = 2,
    STT_SECTION = 3,
    STT_FILE = 4,
};

inline constexpr std::uint16_t SHN_ABS = 0xFFF1;
