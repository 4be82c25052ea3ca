// SPDX-License-Identifier: MIT
// The joint between the ELF writer, its back ends and the debugging sections.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "compiler/tarnwick/model.h"

// Sizes of the records of a 32-bit ELF file.
inline constexpr std::uint32_t ELF_HEADER_SIZE = 52;
inline constexpr std::uint32_t ELF_SECTION_SIZE = 40;
inline constexpr std::uint32_t ELF_SEGMENT_SIZE = 32;
inline constexpr std::uint32_t ELF_SYMBOL_SIZE = 16;

struct dwarf_accessors;

// One output.
struct elf_out {
    std::uint8_t eo_header[ELF_HEADER_SIZE] = {};
    std::vector<std::uint8_t> eo_symbols;  // symbol table entries in output form
    std::vector<std::uint8_t> eo_sections; // section headers in output form
    std::vector<std::uint8_t> eo_segments; // program headers in output form
    std::string eo_strtab;
    std::string eo_shstrtab;
    std::FILE *eo_stream = nullptr;
};

// What a target family does differently.
struct extension {
    bool (*is_for)(std::uint32_t osabi);
    bool (*fix_header)(elf_out *elf); // sets e_flags
    bool (*slot_always_true)();
    std::uint32_t (*section_flags)(const tarn_segment *seg, std::uint32_t size, std::uint32_t flags);
    std::uint8_t (*symbol_other)(const tarn_symbol *symbol, std::uint8_t info);
    const dwarf_accessors *(*accessors)();
    std::uint32_t (*slot_always_zero)();
    std::uint32_t (*sp_register)();
    std::uint32_t debug_section_type; // section type of the debugging sections
};

extern const extension elf_korh;
extern const extension elf_kor;
extern const extension elf_default;

// The extension in force; null before one was selected.
extern const extension *elf_extension;

// The OS ABI number by the words of the processor option, 0 when none occurs in a family's text.
std::uint32_t elf_find_osabi();
// Selects the extension; false when none accepts.
bool elf_select_extension();
// Appends entries to the symbol table; a section index of 0 marks them absolute.
void elf_add_symbols(elf_out *elf, std::uint32_t section, const std::vector<tarn_symbol *> &symbols);
