// SPDX-License-Identifier: MIT
// The OS ABI numbers of ELF files, with their texts. The writer searches the texts for the words of the processor
// option, the dump prints them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

struct elf_osabi_row {
    std::uint8_t number;
    const char *text;
};

inline constexpr std::size_t ELF_OSABI_ROWS = 23;
// In the order of the search: the chip families first.
extern const std::array<elf_osabi_row, ELF_OSABI_ROWS> elf_osabi_table;
