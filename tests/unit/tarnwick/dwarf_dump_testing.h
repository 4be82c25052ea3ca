// SPDX-License-Identifier: MIT
// What the dumps of the debugging sections are tested with: sections made of bytes, and the text that comes out.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "compiler/tarnwick/dwarf_dump_sections.h"
#include "tests/unit/tarnwick/dwarf_testing.h"

// All that a dump prints.
inline std::string printed_by(const std::function<void(dwarf_text &out)> &dump)
{
    std::FILE *file = std::tmpfile();
    {
        dwarf_text out(file);
        dump(out);
    }
    std::string text(static_cast<std::size_t>(std::ftell(file)), '\0');
    std::rewind(file);
    const std::size_t size = std::fread(text.data(), 1, text.size(), file);
    std::fclose(file);
    EXPECT_EQ(text.size(), size);
    return text;
}

// A target whose memory unit has two bytes, with the values of the byte-addressed one.
class word_room {
public:
    word_room()
    {
        static const dwarf_accessors WORD_ACCESSORS = [] {
            dwarf_accessors table = dwarf_byte_accessors;
            table.dwarf_scale_offset = [](std::uint32_t units) { return units * 2; };
            table.dwarf_unscale_offset = [](std::uint32_t bytes) { return bytes / 2; };
            return table;
        }();
        dwarf_access = &WORD_ACCESSORS;
    }

private:
    dwarf_room room_; // puts everything back
};

// A unit's bytes behind their length.
inline section_bytes with_length(const section_bytes &unit)
{
    section_bytes all;
    all.b4(unit.size());
    return all.bytes(unit);
}
