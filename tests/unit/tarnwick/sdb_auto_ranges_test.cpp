// SPDX-License-Identifier: MIT
// Address ranges of variables, and the whole calculation against a plain one.
#include <algorithm>
#include <string>
#include <vector>

#include "compiler/common/lists.h"
#include "tests/unit/tarnwick/random_numbers.h"
#include "tests/unit/tarnwick/sdb_ranges_testing.h"

namespace {

// A function of the lines 10 to 90 in the addresses 0x1000 to 0x10FF, ten addresses a line; 75 has no code behind it.
class auto_ranges : public code_ranges {
protected:
    auto_ranges()
    {
        function = add_function(module, "_f", 10, 90, {{0x1000, 0x10FF}});
        add_lines({{10, 0x1000},
                   {20, 0x1010},
                   {30, 0x1020},
                   {40, 0x1030},
                   {50, 0x1040},
                   {60, 0x1050},
                   {70, 0x1060},
                   {95, 0x9000}});
    }

    sdb_node *function;
};

} // namespace

TEST_F(auto_ranges, with_one_location_keep_it_untouched)
{
    sdb_node *variable = add_auto(function, {30});
    const sdb_location *before = location(variable);
    sdb_node *none = add(function, sc_auto, "none"); // has no vector even
    traced();
    EXPECT_EQ(location(variable), before);
    EXPECT_EQ(places_of(variable), (place_list{{0, 0, 0}}));
    EXPECT_EQ(before->lo_id, 0U);
    EXPECT_FALSE(none->var.va_locations);
    EXPECT_EQ(std::count(all.begin(), all.end(), "ENTER calc_auto_ranges"), 2);
    EXPECT_EQ(std::count(all.begin(), all.end(), "EXIT calc_auto_ranges"), 2);
}

TEST_F(auto_ranges, are_divided_between_their_locations)
{
    sdb_node *variable = add_auto(function, {20, 40});
    const sdb_location old = *location(variable);
    traced();
    EXPECT_EQ(places_of(variable), (place_list{{0, 0x1010, 0x102F}, {1, 0x1030, 0x10FF}}));
    EXPECT_EQ(location(variable)->lo_file, old.lo_file);
    EXPECT_EQ(location(variable)->lo_name, old.lo_name);
    EXPECT_EQ(location(variable)->lo_line, 20U);
    EXPECT_EQ(location(variable)->lo_kind, static_cast<std::uint32_t>(LO_OFFSET));
    EXPECT_EQ(lines_from("first_addr"), (log_lines{
                                            "first_addr[0x1010] from loc start line",
                                            "last_addr[0x1030] from next loc start line",
                                            "start_range: 0x1000-0x10FF",
                                            "curr_range: 0x1000-0x10FF",
                                            "all in start range: 0x1010-0x102F",
                                            "first_addr[0x1030] from loc start line",
                                            "last_addr[0x10FF] from function end",
                                            "start_range: 0x1000-0x10FF",
                                            "curr_range: 0x1000-0x10FF",
                                            "all in start range: 0x1030-0x10FF",
                                        }));
    EXPECT_TRUE(failed.empty());
}

TEST_F(auto_ranges, that_are_parameters_start_with_the_function)
{
    sdb_node *variable = add_auto(function, {20, 40}, sc_param);
    traced();
    EXPECT_EQ(places_of(variable), (place_list{{0, 0x1000, 0x102F}, {1, 0x1030, 0x10FF}}));
    EXPECT_EQ(lines_from("first_addr").front(), "first_addr[0x1000] from function start");
}

TEST_F(auto_ranges, at_or_before_the_first_line_start_with_the_function)
{
    sdb_node *at = add_auto(function, {10, 40});
    sdb_node *before = add_auto(function, {3, 40});
    sdb_calc_ranges();
    EXPECT_EQ(places_of(at), (place_list{{0, 0x1000, 0x102F}, {1, 0x1030, 0x10FF}}));
    EXPECT_EQ(places_of(before), places_of(at));
}

TEST_F(auto_ranges, in_any_order_are_sorted_by_line)
{
    sdb_node *variable = add_auto(function, {60, 20, 40});
    sdb_calc_ranges();
    EXPECT_EQ(places_of(variable), (place_list{{1, 0x1010, 0x102F}, {2, 0x1030, 0x104F}, {0, 0x1050, 0x10FF}}));
}

TEST_F(auto_ranges, of_one_line_keep_their_order_of_creation)
{
    sdb_node *variable = add(function, sc_auto, "x");
    sdb_location *first = add_location(variable, 40, 7);
    sdb_location *second = add_location(variable, 40, 8);
    sdb_location *third = add_location(variable, 40, 9);
    second->lo_id = 20;
    first->lo_id = 30;
    third->lo_id = 25;
    traced();
    // An earlier one has no bytes: it ends just before its start.
    EXPECT_EQ(places_of(variable), (place_list{{8, 0x1030, 0x102F}, {9, 0x1030, 0x102F}, {7, 0x1030, 0x10FF}}));
    EXPECT_TRUE(failed.empty());
}

TEST_F(auto_ranges, that_cannot_be_told_apart_fail_an_assertion)
{
    sdb_node *variable = add(function, sc_auto, "x");
    add_location(variable, 40, 7)->lo_id = 5;
    add_location(variable, 40, 8)->lo_id = 5;
    traced();
    ASSERT_FALSE(failed.empty());
    EXPECT_EQ(failed[0], "diff != 0 || (*rght.loc) == (*left.loc)");
    EXPECT_EQ(places_of(variable), (place_list{{7, 0x1030, 0x102F}, {8, 0x1030, 0x10FF}}));
}

TEST_F(auto_ranges, overlapped_by_the_next_end_at_the_low_address)
{
    sdb_node *variable = add_auto(function, {3, 10});
    traced();
    EXPECT_EQ(places_of(variable), (place_list{{0, 0x1000, 0x1000}, {1, 0x1000, 0x10FF}}));
    EXPECT_EQ(lines_from("first_addr")[1], "last_addr[0x1000] from next loc start line overlaps");
}

TEST_F(auto_ranges, whose_next_line_has_no_code_run_to_the_end)
{
    sdb_node *variable = add_auto(function, {20, 40, 75, 20});
    traced();
    // By line: 0 and 3 at 20, 1 at 40, 2 at 75. That of line 75 is dropped.
    EXPECT_EQ(places_of(variable), (place_list{{0, 0x1010, 0x100F}, {3, 0x1010, 0x102F}, {1, 0x1030, 0x10FF}}));
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         "last_addr[0x10FF] cannot find address from next loc start line, use last addr in function"),
              1);
    EXPECT_TRUE(failed.empty());
}

TEST_F(auto_ranges, behind_a_line_without_code_disappear)
{
    sdb_node *variable = add_auto(function, {20, 75, 76, 77});
    sdb_calc_ranges();
    EXPECT_EQ(places_of(variable), (place_list{{0, 0x1010, 0x10FF}}));
}

TEST_F(auto_ranges, of_an_inner_block_end_with_it)
{
    sdb_node *block = add_block(function, 20, 60);
    sdb_node *variable = add_auto(block, {20, 40});
    traced();
    EXPECT_EQ(places_of(variable), (place_list{{0, 0x1010, 0x102F}, {1, 0x1030, 0x1050}}));
    EXPECT_EQ(lines_from("first_addr[0x1030] from")[1], "last_addr[0x1050] from var end line");
}

TEST_F(auto_ranges, of_an_inner_block_that_ends_with_the_function)
{
    for (const std::uint32_t last : {90U, 91U}) {
        sdb_node *block = add_block(function, 20, last);
        sdb_node *variable = add_auto(block, {20, 40});
        sdb_calc_ranges();
        EXPECT_EQ(places_of(variable), (place_list{{0, 0x1010, 0x102F}, {1, 0x1030, 0x10FF}}));
    }
}

TEST_F(auto_ranges, of_a_block_whose_last_line_has_no_code)
{
    sdb_node *block = add_block(function, 20, 75);
    sdb_node *variable = add_auto(block, {20, 40});
    traced();
    // The address 0 lies in no range: the location runs on to the end.
    EXPECT_EQ(places_of(variable), (place_list{{0, 0x1010, 0x102F}, {1, 0x1030, 0x10FF}}));
    EXPECT_EQ(failed, (log_lines{"find_line_address_retv != 0", "mr != NULL"}));
    EXPECT_NE(std::find(lines.begin(), lines.end(), "last_addr[0x0] from var end line"), lines.end());
    EXPECT_NE(std::find(lines.begin(), lines.end(), "start range: 0x1030-0x10FF"), lines.end());
}

TEST_F(auto_ranges, whose_first_line_has_no_code_yield_nothing)
{
    sdb_node *variable = add_auto(function, {75, 80});
    traced();
    EXPECT_TRUE(places_of(variable).empty());
    EXPECT_TRUE(static_cast<bool>(variable->var.va_locations));
    EXPECT_EQ(failed,
              (log_lines{"find_line_address_retv != 0", "start_range != NULL", "vec_size(new_locs) >= old_loc_count"}));
}

TEST_F(auto_ranges, of_a_function_without_ranges_yield_nothing)
{
    sdb_node *other = add_function(module, "_g", 10, 90, {});
    sdb_node *variable = add_auto(other, {10, 20}, sc_param);
    traced();
    EXPECT_TRUE(places_of(variable).empty());
    EXPECT_EQ(lines_from("first_addr[0x0] from function start"), (log_lines{
                                                                     "first_addr[0x0] from function start",
                                                                     "last_addr[0x1010] from next loc start line",
                                                                     "first_addr[0x1010] from loc start line",
                                                                     "last_addr[0x0] from function end",
                                                                 }));
}

TEST_F(auto_ranges, are_the_autos_and_parameters_alone)
{
    std::vector<sdb_node *> others;
    for (const sclass cls : {sc_static, sc_extern, sc_reg, sc_typedef, sc_global}) {
        others.push_back(add_auto(function, {20, 40}, cls));
    }
    sdb_calc_ranges();
    for (const sdb_node *variable : others) {
        EXPECT_EQ(places_of(variable), (place_list{{0, 0, 0}, {1, 0, 0}})) << variable->sdb_sclass;
    }
}

TEST_F(auto_ranges, take_new_serial_numbers_member_by_member)
{
    sdb_node *first = add_auto(function, {20, 40});
    sdb_node *block = add_block(function, 20, 60);
    sdb_node *inner = add_auto(add_block(block, 20, 60), {20, 40});
    sdb_node *middle = add_auto(block, {20, 40});
    sdb_node *last = add_auto(function, {20, 40});
    const sdb_location *old = location(last, 1);
    sdb_calc_ranges();
    std::uint32_t id = 8; // the four variables were given 0 to 7
    for (const sdb_node *variable : {first, inner, middle, last}) {
        EXPECT_EQ(location(variable, 0)->lo_id, id++);
        EXPECT_EQ(location(variable, 1)->lo_id, id++);
    }
    EXPECT_EQ(old->lo_id, 15U); // an old record takes the number of its latest copy
    EXPECT_EQ(sdb_next_location_id(), 16U);
}

namespace {

// As `block_ranges`, and variables in it.
class split_auto_ranges : public block_ranges {};

} // namespace

TEST_F(split_auto_ranges, crossing_ranges_are_split)
{
    sdb_node *variable = add_auto(function, {20, 50});
    traced();
    EXPECT_EQ(places_of(variable),
              (place_list{{0, 0x1010, 0x10FF}, {0, 0x3000, 0x301F}, {1, 0x3020, 0x30FF}, {1, 0x2000, 0x20FF}}));
    EXPECT_EQ(lines_from("first_addr[0x1010] from"), (log_lines{
                                                         "first_addr[0x1010] from loc start line",
                                                         "last_addr[0x3020] from next loc start line",
                                                         "start_range: 0x1000-0x10FF",
                                                         "curr_range: 0x1000-0x10FF",
                                                         "start range: 0x1010-0x10FF",
                                                         "curr_range: 0x3000-0x30FF",
                                                         "last range: 0x3000-0x301F",
                                                         "first_addr[0x3020] from loc start line",
                                                         "last_addr[0x20FF] from function end",
                                                         "start_range: 0x3000-0x30FF",
                                                         "curr_range: 0x3000-0x30FF",
                                                         "start range: 0x3020-0x30FF",
                                                         "curr_range: 0x2000-0x20FF",
                                                         "last range: 0x2000-0x20FF",
                                                     }));
    EXPECT_EQ(location(variable, 0)->lo_id, 2U);
    EXPECT_EQ(location(variable, 3)->lo_id, 5U);
}

TEST_F(split_auto_ranges, over_three_ranges)
{
    sdb_node *variable = add_auto(function, {20, 80});
    traced();
    EXPECT_EQ(places_of(variable),
              (place_list{{0, 0x1010, 0x10FF}, {0, 0x3000, 0x30FF}, {0, 0x2000, 0x201F}, {1, 0x2020, 0x20FF}}));
    EXPECT_NE(std::find(lines.begin(), lines.end(), "interemdiate range: 0x3000-0x30FF"), lines.end());
}

TEST_F(split_auto_ranges, that_end_on_the_low_of_a_later_range_have_nothing_there)
{
    sdb_node *variable = add_auto(function, {20, 40});
    traced();
    EXPECT_EQ(places_of(variable), (place_list{{0, 0x1010, 0x10FF}, {1, 0x3000, 0x30FF}, {1, 0x2000, 0x20FF}}));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "skip range"), 1);
}

TEST_F(split_auto_ranges, that_run_backwards_run_to_the_end)
{
    // By line 35 comes before 45, but its code stands in the last range.
    add_lines({{35, 0x2080}, {45, 0x1080}});
    sdb_node *variable = add_auto(function, {35, 45});
    traced();
    EXPECT_EQ(places_of(variable),
              (place_list{{0, 0x2080, 0x20FF}, {1, 0x1080, 0x10FF}, {1, 0x3000, 0x30FF}, {1, 0x2000, 0x20FF}}));
    EXPECT_EQ(failed, log_lines{"mr != NULL"});
}

TEST_F(code_ranges, at_both_ends_of_the_addresses)
{
    sdb_node *function = add_function(module, "_f", 1, 99, {{0xFFFFFFF0, 0xFFFFFFFF}, {0, 0xF}});
    sdb_node *block = add_block(function, 10, 30);
    sdb_node *variable = add_auto(function, {10, 20, 30});
    sdb_node *wraps = add_auto(function, {20, 20});
    add_lines({{5, 0xFFFFFFF0}, {10, 0xFFFFFFFF}, {20, 0}, {30, 0xF}, {40, 0xF}});
    sdb_calc_ranges();
    EXPECT_EQ(ranges_of(block), (bounds_list{{0xFFFFFFFF, 0xFFFFFFFF}, {0, 0xF}}));
    EXPECT_EQ(places_of(variable), (place_list{{0, 0xFFFFFFFF, 0xFFFFFFFF}, {1, 0, 0xE}, {2, 0xF, 0xF}}));
    // One less than 0 wraps.
    EXPECT_EQ(places_of(wraps), (place_list{{0, 0, 0xFFFFFFFF}, {1, 0, 0xF}}));
}

// ---- Without location lists

namespace {

class one_location : public auto_ranges {
protected:
    one_location() { dwarf_use_loclists = DWARF_USE_NEVER; }
};

} // namespace

TEST_F(one_location, is_the_first_that_is_no_register)
{
    sdb_node *variable = add(function, sc_auto, "x");
    add_location(variable, 20, 7, LO_REGISTER);
    const sdb_location *kept = add_location(variable, 60, 8, LO_OFFSET);
    add_location(variable, 40, 9, LO_ADDRESS);
    traced();
    EXPECT_EQ(places_of(variable), (place_list{{8, 0, 0}}));
    EXPECT_EQ(location(variable), kept);
    EXPECT_EQ(kept->lo_id, 1U);
    EXPECT_TRUE(failed.empty());
}

TEST_F(one_location, is_none_when_all_are_registers)
{
    sdb_node *variable = add(function, sc_auto, "x");
    add_location(variable, 20, 7, LO_REGISTER);
    add_location(variable, 40, 8, LO_REGISTER);
    traced();
    EXPECT_TRUE(places_of(variable).empty());
    EXPECT_EQ(failed, log_lines{"vec_size(new_locs) == 1"});
}

TEST_F(one_location, stays_even_if_it_is_a_register)
{
    sdb_node *variable = add(function, sc_auto, "x");
    const sdb_location *only = add_location(variable, 20, 7, LO_REGISTER);
    traced();
    EXPECT_EQ(location(variable), only);
    EXPECT_TRUE(failed.empty());
}

TEST_F(one_location, is_not_asked_for_under_auto)
{
    dwarf_use_loclists = DWARF_USE_AUTO;
    sdb_node *variable = add_auto(function, {20, 40});
    sdb_calc_ranges();
    EXPECT_EQ(places_of(variable), (place_list{{0, 0x1010, 0x102F}, {1, 0x1030, 0x10FF}}));
}

// ---- Against the plain way

namespace {

// The steps as they are told, with plain searches over plain lists.
class plain_way {
public:
    plain_way(const sdb_node *function, const bounds_list &list) : function_(function->block), list_(list) {}

    bounds_list block_ranges(const sdb_node *block) const
    {
        std::uint32_t first_addr = 0;
        std::uint32_t last_addr = 0;
        find(block->block.bl_file, block->block.bl_first, &first_addr);
        find(block->block.bl_file, block->block.bl_last, &last_addr);
        bounds_list result;
        const std::size_t start = holding(first_addr);
        for (std::size_t i = start; i < list_.size(); ++i) {
            const std::uint32_t low = i == start ? first_addr : list_[i].low;
            if (list_[i].low <= last_addr && last_addr <= list_[i].high) {
                result.push_back({low, last_addr});
                break;
            }
            result.push_back({low, list_[i].high});
        }
        return result;
    }

    place_list places(const sdb_node *variable, const sdb_node *block) const
    {
        std::vector<const sdb_location *> locations;
        for (const sdb_location *loc : each(variable->var.va_locations)) {
            const auto behind = std::find_if(locations.begin(), locations.end(),
                                             [&](const sdb_location *other) { return loc->lo_line < other->lo_line; });
            locations.insert(behind, loc);
        }
        place_list result;
        std::size_t count = locations.size();
        const std::uint32_t low = list_.empty() ? 0 : list_.front().low;
        const std::uint32_t high = list_.empty() ? 0 : list_.back().high;
        for (std::size_t i = 0; i < count; ++i) {
            const sdb_location *loc = locations[i];
            std::uint32_t first_addr = low;
            if (!(i == 0 && variable->sdb_sclass == sc_param) && loc->lo_line > function_.bl_first) {
                find(loc->lo_file, loc->lo_line, &first_addr);
            }
            std::uint32_t adjust = 0;
            std::uint32_t last_addr = high;
            if (i != count - 1) {
                const sdb_location *next = locations[i + 1];
                if (next->lo_line <= function_.bl_first) {
                    last_addr = low;
                } else if (find(next->lo_file, next->lo_line, &last_addr) != 0) {
                    adjust = 1;
                } else {
                    last_addr = high;
                    count = i + 1;
                }
            } else if (block->block.bl_last < function_.bl_last) {
                find(loc->lo_file, std::min(block->block.bl_last, function_.bl_last), &last_addr);
            }
            const std::size_t start = holding(first_addr);
            for (std::size_t r = start; r < list_.size(); ++r) {
                const bounds &range = list_[r];
                if (last_addr < range.low || last_addr > range.high) {
                    result.push_back({loc->lo_value, r == start ? first_addr : range.low, range.high});
                    continue;
                }
                if (range.low != last_addr || r == start) {
                    result.push_back({loc->lo_value, r == start ? first_addr : range.low, last_addr - adjust});
                }
                break;
            }
        }
        return result;
    }

private:
    std::size_t holding(std::uint32_t address) const
    {
        std::size_t i = 0;
        while (i < list_.size() && (address < list_[i].low || address > list_[i].high)) {
            ++i;
        }
        return i;
    }
    bool listed(const tarn_line *lp) const { return list_.empty() || holding(lp->ln_addr) < list_.size(); }
    // All files of this base name; there is one.
    int find(const char *, std::uint32_t line, std::uint32_t *out) const
    {
        *out = 0;
        const tarn_line *p = nullptr;
        for (const tarn_file *fp : each(file_list)) {
            for (std::uint32_t i = 0; i < fp->fl_nlines; ++i) {
                const tarn_line *c = fp->fl_lines[i];
                if (p != nullptr && p->ln_line <= line && line <= c->ln_line) {
                    if (p->ln_line == line && listed(p)) {
                        *out = p->ln_addr;
                        return 1;
                    }
                    if (listed(c)) {
                        *out = c->ln_addr;
                        return c->ln_line == line ? 1 : -1;
                    }
                }
                p = c;
            }
        }
        return 0;
    }

    const sdb_block &function_;
    bounds_list list_;
};

} // namespace

TEST(function_ranges, agree_with_the_plain_way)
{
    random_numbers random(64);
    for (int round = 0; round < 400; ++round) {
        const world w;
        std::vector<line_address> lines;
        for (std::uint32_t n = 2 + random() % 60; n > 0; --n) {
            lines.push_back({random() % 40, random() % 128});
        }
        world::add_lines(lines);
        bounds_list list; // in any order, and overlapping now and then
        for (std::uint32_t n = random() % 6; n > 0; --n) {
            const std::uint32_t low = random() % 128;
            list.push_back({low, low + random() % 30});
        }
        sdb_node *function = world::add_function(w.module, "_f", 5 + random() % 5, 20 + random() % 20, list);
        std::vector<sdb_node *> blocks = {function};
        std::vector<sdb_node *> variables;
        for (std::uint32_t n = random() % 20; n > 0; --n) {
            sdb_node *parent = blocks[random() % blocks.size()];
            if (random() % 2 == 0) {
                blocks.push_back(world::add_block(parent, random() % 42, random() % 42));
                continue;
            }
            std::vector<std::uint32_t> places;
            for (std::uint32_t count = random() % 5; count > 0; --count) {
                places.push_back(random() % 42);
            }
            variables.push_back(world::add_auto(parent, places, random() % 3 == 0 ? sc_param : sc_auto));
        }
        const plain_way plain(function, list);
        std::vector<bounds_list> expected_ranges;
        std::vector<place_list> expected_places;
        for (const sdb_node *block : blocks) {
            expected_ranges.push_back(block == function && !list.empty() ? list : plain.block_ranges(block));
        }
        for (const sdb_node *variable : variables) {
            const bool alone = variable->var.va_locations.count() < 2;
            expected_places.push_back(alone ? places_of(variable) : plain.places(variable, variable->sdb_parent));
        }
        memory_range *whole = nullptr;
        for (const bounds &range : list) {
            range_add(&whole, range.low, range.high, true);
        }
        bounds_list expected_module;
        for (const memory_range *range = whole; range != nullptr; range = range->next) {
            expected_module.push_back({range->lo, range->hi});
        }
        range_free(&whole);

        sdb_calc_ranges();
        for (std::size_t i = 0; i < blocks.size(); ++i) {
            ASSERT_EQ(ranges_of(blocks[i]), expected_ranges[i]) << "round " << round << " block " << i;
            ASSERT_EQ(blocks[i]->block.bl_nranges, expected_ranges[i].size());
        }
        for (std::size_t i = 0; i < variables.size(); ++i) {
            ASSERT_EQ(places_of(variables[i]), expected_places[i]) << "round " << round << " variable " << i;
        }
        ASSERT_EQ(ranges_of(w.module), expected_module);
        sdb_reset();
    }
    dwarf_use_loclists = DWARF_USE_NEVER;
}

// ---- Large trees

TEST_F(auto_ranges, nest_deeply)
{
    constexpr int DEPTH = 100000;
    sdb_node *block = function;
    for (int i = 0; i < DEPTH; ++i) {
        block = add_block(block, 20, 60);
    }
    sdb_node *variable = add_auto(block, {20, 40});
    sdb_calc_ranges();
    EXPECT_EQ(ranges_of(block), (bounds_list{{0x1010, 0x1050}}));
    EXPECT_EQ(places_of(variable), (place_list{{0, 0x1010, 0x102F}, {1, 0x1030, 0x1050}}));
}

// A function in many pieces with many short blocks, and one over all of them.
TEST_F(code_ranges, of_a_function_in_many_pieces)
{
    constexpr std::uint32_t PIECES = 50000;
    bounds_list list;
    std::vector<line_address> entries;
    for (std::uint32_t i = 0; i < PIECES; ++i) {
        list.push_back({i * 16, i * 16 + 8});
        entries.push_back({i + 1, i * 16});
    }
    sdb_node *function = add_function(module, "_f", 1, PIECES, list);
    sdb_node *whole = add_block(function, 1, PIECES);
    for (std::uint32_t i = 1; i < PIECES; ++i) {
        add_block(function, i, i);
    }
    sdb_node *variable = add_auto(function, {1, PIECES / 2});
    add_lines(entries);
    sdb_calc_ranges();
    EXPECT_EQ(whole->block.bl_nranges, PIECES);
    EXPECT_EQ(ranges_of(member(function, PIECES - 1)), (bounds_list{{(PIECES - 2) * 16, (PIECES - 2) * 16}}));
    EXPECT_EQ(variable->var.va_locations.count(), PIECES);
    EXPECT_EQ(module->block.bl_nranges, PIECES);
}
