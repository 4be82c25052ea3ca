// SPDX-License-Identifier: MIT
// What the tests of .debug_info share: units that are written entry by entry.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "compiler/tarnwick/dwarf_info.h"
#include "compiler/tarnwick/dwarf_info_unit.h"
#include "compiler/tarnwick/dwarf_ranges.h"
#include "tests/unit/tarnwick/dwarf_testing.h"

namespace dwarf_info_testing {

using strings = std::vector<std::string>;

inline constexpr std::uint32_t HEADER_SIZE = 11; // of a unit
inline constexpr std::uint8_t NUMBER = 9;        // of an abbreviation

// An empty .debug_info with one open unit, or none.
class unit_writer {
public:
    explicit unit_writer(std::uint8_t address_size = 4, bool open = true)
    {
        std::free(dwarf_info_section.ds_start);
        dwarf_info_section = {};
        dwarf_info_init();
        if (open) {
            cu = dwarf_info_start_compile_unit(2, 0, address_size);
        }
    }
    ~unit_writer()
    {
        if (cu != nullptr) {
            dwarf_info_finish_compile_unit(cu);
        }
    }
    unit_writer(const unit_writer &) = delete;
    unit_writer &operator=(const unit_writer &) = delete;

    static section_bytes all()
    {
        std::uint8_t *data = nullptr;
        std::uint32_t size = 0;
        dwarf_info_finalize(&data, &size);
        return {data, size};
    }
    // What stands behind the header of the first unit.
    static section_bytes body()
    {
        const section_bytes bytes = all();
        return {bytes.data() + HEADER_SIZE, bytes.size() - HEADER_SIZE};
    }
    // Where the next byte of the unit goes.
    std::uint32_t top() const { return dwarf_section_get_size(&dwarf_info_section) - cu->unit_start; }

    compile_unit_handle cu = nullptr;
};

// In both byte orders and with all address sizes.
class debug_info : public testing::TestWithParam<std::tuple<bool, std::uint8_t>> {
protected:
    debug_info() { dwarf_ranges_init(address_size); }

    void TearDown() override { EXPECT_EQ(unit.body(), expected); }

    // The offset that the next range list gets.
    static std::uint32_t next_range_list()
    {
        std::uint8_t *data = nullptr;
        std::uint32_t size = 0;
        dwarf_ranges_finish(&data, &size);
        return size;
    }
    section_bytes &address(std::uint32_t value) { return expected.number(value, address_size); }

    dwarf_room room_{std::get<0>(GetParam())};
    const std::uint8_t address_size = std::get<1>(GetParam());
    unit_writer unit{address_size};
    compile_unit_handle cu = unit.cu;
    section_bytes expected;
};

// The smallest type entry; its offset.
inline std::uint32_t add_base_type(compile_unit_handle cu, const char *id)
{
    return dwarf_info_finish_basic_type_entry(dwarf_info_start_basic_type_entry(cu, NUMBER, "b", id, 1, 5, false, 0));
}
inline const section_bytes BASE_TYPE_BYTES = section_bytes().raw({NUMBER, 'b', 0, 1, 5});

} // namespace dwarf_info_testing
