// SPDX-License-Identifier: MIT
// The sections of a COFF output: "ABS", one for each segment of no code space, one for each data block.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "compiler/tarnwick/coff.h"
#include "compiler/tarnwick/coff_symbols.h"
#include "compiler/tarnwick/span_index.h"

struct tarn_data;

struct coff_section {
    std::array<std::uint8_t, COFF_NAME_SIZE> name{};
    std::uint32_t paddr = 0; // address units
    std::uint32_t size = 0;
    std::uint32_t scnptr = 0;
    std::uint32_t lnnoptr = 0;
    std::uint32_t lines = 0; // the low 16 bits are written
    std::uint32_t flags = 0;
    const tarn_data *block = nullptr; // whose bytes it holds
};

// A location as the writer sees it: an address in units, and a number that is taken for that of a segment.
struct coff_location {
    std::uint32_t address = 0;
    std::uint32_t segment = 0;
};

struct coff_sections {
    std::vector<coff_section> list;
    std::uint32_t first_block = 0;            // place of the first section that was made from a data block
    std::vector<std::uint32_t> code_segments; // how many there are among the first n entries of `seg_list`
    span_index blocks;                        // places in `data_list`
};

// Makes the sections of the model's segments and blocks. Where the blocks' bytes go is not yet told.
void coff_make_sections(coff_sections *sections, coff_tables *tables);
// The number of the section that holds a location, counted from 1. One that is found nowhere gets its segment's number + 1,
// which may name a wrong section.
std::uint32_t vcoff_section_of(const coff_sections &sections, coff_location location);
