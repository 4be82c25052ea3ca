// SPDX-License-Identifier: MIT
// The growing buffer in which one debugging section is built: written at its top and patched behind it. All values go
// through the accessors in force, so that lengths and offsets are counted in target units.
#pragma once

#include <cstddef>
#include <cstdint>

struct section_info {
    std::uint8_t *ds_start = nullptr;
    std::uint32_t ds_alloc_size = 0;     // bytes
    std::uint8_t *ds_top = nullptr;      // next byte to write
    std::uint32_t realloc_threshold = 0; // room that stays free above the top after every check
    bool initialised = false;
};

// A finished section. The name is not owned; the bytes live until the process ends.
struct dwarf_output_section {
    const char *name = nullptr;
    std::uint32_t size = 0; // bytes
    std::uint8_t *data = nullptr;
};

// Raises fatal message 1521; every state that should not arise ends here, behind a trace line that names the cause.
void dwarf_internal_error();

// Does nothing for a section that is open already.
void dwarf_section_init(section_info *sec, std::uint32_t alloc_size, std::uint32_t realloc_threshold);
void *dwarf_section_alloc_memory(std::size_t size); // zero-filled
void dwarf_section_ensure_enough_memory(section_info *sec);
void dwarf_section_ensure_initalisation_and_enough_memory(section_info *sec);

// Each put makes room, writes at the top, and returns the number of bytes written.
std::uint32_t dwarf_section_put_string(section_info *sec, const char *str); // null counts as empty
std::uint32_t dwarf_section_put1(section_info *sec, std::uint8_t v);
std::uint32_t dwarf_section_put2(section_info *sec, std::uint16_t v);
std::uint32_t dwarf_section_put4(section_info *sec, std::uint32_t v);
std::uint32_t dwarf_section_put8(section_info *sec, std::uint64_t v);
// 1, 2, 4 or 8 bytes; any other width writes nothing and gives 0.
std::uint32_t dwarf_section_put(section_info *sec, std::uint64_t v, std::uint32_t bytes);
std::uint32_t dwarf_section_put_uleb(section_info *sec, std::uint64_t v);
std::uint32_t dwarf_section_put_sleb(section_info *sec, std::int64_t v);
// Moves the top over `units` without writing; the bytes moved over must be patched later. Returns the scaled size.
std::uint32_t dwarf_section_reserve(section_info *sec, std::uint32_t units);
void dwarf_section_patch1(section_info *sec, std::uint8_t v, std::uint32_t offset);
void dwarf_section_patch2(section_info *sec, std::uint16_t v, std::uint32_t offset);
void dwarf_section_patch4(section_info *sec, std::uint32_t v, std::uint32_t offset);
std::uint32_t dwarf_section_get_size(const section_info *sec); // bytes, unscaled
std::uint8_t *dwarf_section_get_ptr(const section_info *sec, std::uint32_t offset);
void dwarf_section_finish(const section_info *sec, std::uint8_t **data, std::uint32_t *size);

// A value of 1, 2, 4 or 8 bytes; 0 for any other width.
std::uint64_t dwarf_get(const std::uint8_t *p, std::uint32_t bytes);
