// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/dwarf_loc.h"

#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/dwarf_bytes.h"

namespace {

// --- expressions --------------------------------------------------------------------------------------------------------

struct expression_case {
    std::uint32_t kind;
    std::uint32_t value;
    std::uint8_t address_size;
    bytes expected;
};

const expression_case EXPRESSIONS[] = {
    {LO_REGISTER, 0, 4, {1, 0, 0x50}},
    {LO_REGISTER, 1, 4, {1, 0, 0x51}},
    {LO_REGISTER, 30, 4, {1, 0, 0x6E}},
    {LO_REGISTER, 31, 4, {2, 0, 0x90, 0x1F}},
    {LO_REGISTER, 32, 4, {2, 0, 0x90, 0x20}},
    {LO_REGISTER, 128, 4, {3, 0, 0x90, 0x80, 0x01}},
    {LO_REGISTER, 0xFFFFFFFF, 4, {6, 0, 0x90, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F}},
    {LO_ADDRESS, 0x12345678, 1, {2, 0, 0x03, 0x78}},
    {LO_ADDRESS, 0x12345678, 2, {3, 0, 0x03, 0x78, 0x56}},
    {LO_ADDRESS, 0x12345678, 4, {5, 0, 0x03, 0x78, 0x56, 0x34, 0x12}},
    {LO_ADDRESS, 0x87654321, 8, {9, 0, 0x03, 0x21, 0x43, 0x65, 0x87, 0, 0, 0, 0}},
    {LO_OFFSET, 0, 4, {2, 0, 0x91, 0x00}},
    {LO_OFFSET, 63, 4, {2, 0, 0x91, 0x3F}},
    {LO_OFFSET, 64, 4, {3, 0, 0x91, 0xC0, 0x00}},
    {LO_OFFSET, static_cast<std::uint32_t>(-1), 4, {2, 0, 0x91, 0x7F}},
    {LO_OFFSET, static_cast<std::uint32_t>(-6), 4, {2, 0, 0x91, 0x7A}},
    {LO_OFFSET, static_cast<std::uint32_t>(-64), 4, {2, 0, 0x91, 0x40}},
    {LO_OFFSET, static_cast<std::uint32_t>(-65), 4, {3, 0, 0x91, 0xBF, 0x7F}},
    {LO_OFFSET, 0x80000000, 4, {6, 0, 0x91, 0x80, 0x80, 0x80, 0x80, 0x78}},
    {LO_OFFSET, 0x7FFFFFFF, 4, {6, 0, 0x91, 0xFF, 0xFF, 0xFF, 0xFF, 0x07}},
    {LO_NAME, 0x1234, 2, {3, 0, 0x03, 0x34, 0x12}},
    {99, 0x1234, 2, {3, 0, 0x03, 0x34, 0x12}},
};

// A section of the test's own, with something in it already.
class own_section {
public:
    own_section()
    {
        dwarf_section_init(&section_, 64, 20);
        dwarf_section_put1(&section_, 0xEE);
    }
    ~own_section() { std::free(section_.ds_start); }
    own_section(const own_section &) = delete;
    own_section &operator=(const own_section &) = delete;

    section_info *get() { return &section_; }
    bytes content() const { return {section_.ds_start, section_.ds_top}; }

private:
    section_info section_;
};

class dwarf_locations : public testing::Test {
protected:
    ~dwarf_locations() override
    {
        for (vector_of<sdb_location *> list : lists_) {
            list.free();
        }
    }

    // A variable at these places.
    sdb_node variable(std::vector<sdb_location> *places)
    {
        sdb_node node;
        node.sdb_sclass = sc_auto;
        node.var = {};
        node.var.va_locations = vector_of<sdb_location *>::make();
        lists_.push_back(node.var.va_locations);
        for (sdb_location &place : *places) {
            node.var.va_locations.push(&place);
        }
        return node;
    }

private:
    dwarf_room room_;
    std::vector<vector_of<sdb_location *>> lists_;
};

TEST_F(dwarf_locations, expression_stands_behind_its_length)
{
    for (const expression_case &row : EXPRESSIONS) {
        own_section section;
        const sdb_location location = {.lo_kind = row.kind, .lo_value = row.value};
        EXPECT_EQ(dwarf_loc_put_block2_location(section.get(), &location, row.address_size), row.expected.size());
        EXPECT_EQ(section.content(), joined({{0xEE}, row.expected})) << "kind " << row.kind << ", value " << row.value;
    }
}

TEST_F(dwarf_locations, expression_follows_the_byte_order)
{
    opt_big_endian = true;
    own_section section;
    const sdb_location location = {.lo_kind = LO_ADDRESS, .lo_value = 0x12345678};
    EXPECT_EQ(dwarf_loc_put_block2_location(section.get(), &location, 4), 7U);
    EXPECT_EQ(section.content(), (bytes{0xEE, 0, 5, 0x03, 0x12, 0x34, 0x56, 0x78}));
}

TEST_F(dwarf_locations, length_of_an_expression_counts_target_units)
{
    dwarf_access = &word_accessors;
    own_section section;
    const sdb_location location = {.lo_kind = LO_ADDRESS, .lo_value = 0x1234};
    EXPECT_EQ(dwarf_loc_put_block2_location(section.get(), &location, 2), 10U);
    EXPECT_EQ(section.content(), spread({0xEE, 3, 0, 0x03, 0x34, 0x12}));
}

// --- lists --------------------------------------------------------------------------------------------------------------

TEST_F(dwarf_locations, largest_address)
{
    EXPECT_EQ(dwarf_largest_address(1), 0xFFU);
    EXPECT_EQ(dwarf_largest_address(2), 0xFFFFU);
    EXPECT_EQ(dwarf_largest_address(4), 0xFFFFFFFFU);
    EXPECT_EQ(dwarf_largest_address(8), 0U);
}

std::vector<sdb_location> two_places()
{
    return {{.lo_low = 0x10, .lo_high = 0x1F, .lo_kind = LO_REGISTER, .lo_value = 3},
            {.lo_low = 0x20, .lo_high = 0x2F, .lo_kind = LO_ADDRESS, .lo_value = 0x55}};
}

TEST_F(dwarf_locations, list_has_the_address_size)
{
    std::vector<sdb_location> places = two_places();
    const sdb_node node = variable(&places);

    dwarf_loc_init(1);
    const section_mark one(dwarf_loc_finish);
    EXPECT_EQ(dwarf_loc_add_list(&node), one.start());
    EXPECT_EQ(one.added(), (bytes{0xFF, 0,                      //
                                  0x10, 0x20, 1, 0, 0x53,       //
                                  0x20, 0x30, 2, 0, 0x03, 0x55, //
                                  0, 0}));

    dwarf_loc_init(2);
    const section_mark two(dwarf_loc_finish);
    EXPECT_EQ(dwarf_loc_add_list(&node), two.start());
    EXPECT_EQ(two.added(), (bytes{0xFF, 0xFF, 0,    0,                         //
                                  0x10, 0,    0x20, 0, 1, 0, 0x53,             //
                                  0x20, 0,    0x30, 0, 3, 0, 0x03, 0x55, 0x00, //
                                  0,    0,    0,    0}));

    dwarf_loc_init(4);
    const section_mark four(dwarf_loc_finish);
    EXPECT_EQ(dwarf_loc_add_list(&node), four.start());
    EXPECT_EQ(four.added(), (bytes{0xFF, 0xFF, 0xFF, 0xFF, 0,    0, 0, 0,                            //
                                   0x10, 0,    0,    0,    0x20, 0, 0, 0, 1, 0, 0x53,                //
                                   0x20, 0,    0,    0,    0x30, 0, 0, 0, 5, 0, 0x03, 0x55, 0, 0, 0, //
                                   0,    0,    0,    0,    0,    0, 0, 0}));
}

TEST_F(dwarf_locations, list_of_8_byte_addresses_opens_with_zeros)
{
    std::vector<sdb_location> places = two_places();
    places.pop_back();
    const sdb_node node = variable(&places);
    dwarf_loc_init(8);
    const section_mark mark(dwarf_loc_finish);
    dwarf_loc_add_list(&node);
    EXPECT_EQ(mark.added(),
              joined({bytes(16), {0x10, 0, 0, 0, 0, 0, 0, 0, 0x20, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0x53}, bytes(16)}));
}

TEST_F(dwarf_locations, address_behind_the_last_one_is_0)
{
    std::vector<sdb_location> places = {
        {.lo_low = 0xFFFFFFF0, .lo_high = 0xFFFFFFFF, .lo_kind = LO_REGISTER, .lo_value = 0}};
    const sdb_node node = variable(&places);
    dwarf_loc_init(8);
    const section_mark mark(dwarf_loc_finish);
    dwarf_loc_add_list(&node);
    EXPECT_EQ(mark.added(),
              joined({bytes(16), {0xF0, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}, bytes(8), {1, 0, 0x50}, bytes(16)}));
}

TEST_F(dwarf_locations, list_without_places)
{
    sdb_node node;
    node.var = {};
    dwarf_loc_init(2);
    const section_mark mark(dwarf_loc_finish);
    EXPECT_EQ(dwarf_loc_add_list(&node), mark.start());
    EXPECT_EQ(mark.added(), (bytes{0xFF, 0xFF, 0, 0, 0, 0, 0, 0}));
}

TEST_F(dwarf_locations, lists_follow_each_other)
{
    std::vector<sdb_location> places = two_places();
    const sdb_node node = variable(&places);
    dwarf_loc_init(2);
    const std::uint32_t first = dwarf_loc_add_list(&node);
    EXPECT_EQ(dwarf_loc_add_list(&node), first + 24);
    EXPECT_EQ(dwarf_loc_add_list(&node), first + 48);
}

TEST_F(dwarf_locations, lengths_are_right_when_the_buffer_grows)
{
    constexpr std::uint32_t COUNT = 5000;
    std::vector<sdb_location> places;
    bytes expected = {0xFF, 0xFF, 0, 0};
    for (std::uint32_t i = 0; i < COUNT; i++) {
        places.push_back({.lo_low = 2 * i, .lo_high = 2 * i + 1, .lo_kind = LO_REGISTER, .lo_value = i % 31});
        const std::uint32_t low = 2 * i;
        const std::uint32_t behind = low + 2;
        expected = joined(
            {std::move(expected),
             {static_cast<std::uint8_t>(low), static_cast<std::uint8_t>(low >> 8), static_cast<std::uint8_t>(behind),
              static_cast<std::uint8_t>(behind >> 8), 1, 0, static_cast<std::uint8_t>(0x50 + i % 31)}});
    }
    expected.insert(expected.end(), 4, 0);
    const sdb_node node = variable(&places);
    dwarf_loc_init(2);
    const section_mark mark(dwarf_loc_finish);
    dwarf_loc_add_list(&node);
    EXPECT_EQ(mark.added(), expected);
}

TEST_F(dwarf_locations, offset_of_a_list_counts_target_units)
{
    std::vector<sdb_location> places = two_places();
    const sdb_node node = variable(&places);
    dwarf_loc_init(2);
    const section_mark mark(dwarf_loc_finish);
    dwarf_access = &word_accessors;
    EXPECT_EQ(dwarf_loc_add_list(&node), mark.start() / 2);
    EXPECT_EQ(mark.added(), spread({0xFF, 0xFF, 0,    0,                         //
                                    0x10, 0,    0x20, 0, 1, 0, 0x53,             //
                                    0x20, 0,    0x30, 0, 3, 0, 0x03, 0x55, 0x00, //
                                    0,    0,    0,    0}));
}

TEST(dwarf_location_order, a_section_that_was_not_opened_is_an_internal_error)
{
    expect_run(
        [] {
            const dwarf_room room;
            const sdb_node node;
            dwarf_loc_add_list(&node);
            note("not reached");
        },
        INTERNAL_ERROR_LINE, INTERNAL_ERROR_STATUS);
}

} // namespace
