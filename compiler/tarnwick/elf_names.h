// SPDX-License-Identifier: MIT
// What the numbers of an ELF file are called in its dump.
#pragma once

#include <cstdint>
#include <span>

struct elf_name {
    std::uint32_t number;
    const char *text;
};

extern const std::span<const elf_name> elf_class_names;
extern const std::span<const elf_name> elf_data_names;
extern const std::span<const elf_name> elf_file_type_names;
extern const std::span<const elf_name> elf_machine_names;
extern const std::span<const elf_name> elf_section_type_names;
extern const std::span<const elf_name> elf_segment_type_names;
extern const std::span<const elf_name> elf_binding_names;
extern const std::span<const elf_name> elf_symbol_type_names;
extern const std::span<const elf_name> elf_section_number_names; // those with a meaning of their own
