// SPDX-License-Identifier: MIT
// Segments. The searches that go through an index are compared with the walks they stand in for.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/alloc.h"
#include "common/stringcache.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "tests/unit/tarnwick/random_numbers.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

constexpr std::uint32_t CODE = 1;
constexpr std::uint32_t DATA = 2;

class ModelSegments : public testing::Test {
protected:
    void SetUp() override
    {
        model_create();
        set_add(code_spaces, CODE);
        set_add(data_spaces, DATA);
    }
};

tarn_segment record_of(const char *name, std::uint32_t load, std::uint32_t size, std::uint32_t space = CODE)
{
    tarn_segment record;
    record.sg_index = seg_list.count() + 1;
    record.sg_name = name;
    record.sg_addr = load;
    record.sg_load = load;
    record.sg_size = size;
    record.sg_delta = 1;
    record.sg_space = space;
    return record;
}

tarn_segment *add_segment(const char *name, std::uint32_t load, std::uint32_t size, std::uint32_t space = CODE)
{
    tarn_add_segment(record_of(name, load, size, space));
    return tarn_find_segment(name);
}

// A range of a psect; link and load address in bytes.
tarn_psect *add_range(const char *name, std::uint32_t link, std::uint32_t size, std::uint32_t load,
                      std::uint32_t flags = PDB_WRITE, std::uint32_t space = CODE)
{
    tarn_psect *pp = tarn_add_psect(name, space, 1);
    pp->ps_flags = flags;
    tarn_add_psect_range(pp, {.pr_lo = link, .pr_hi = link + size, .pr_load = load});
    return pp;
}

std::string ranges_text(const tarn_segment *seg)
{
    std::string text;
    for (const tarn_segment_range *sr : each(seg->sg_ranges)) {
        text += std::string(sr->sr_psect->ps_name) + "#" + std::to_string(sr->sr_index) + " ";
    }
    return text;
}

// "name number addr load size flags: ranges" of each segment.
std::vector<std::string> list_text()
{
    std::vector<std::string> result;
    for (const tarn_segment *seg : each(seg_list)) {
        char head[200];
        std::snprintf(head, sizeof head, "%s %u %X %X %X %X: ", seg->sg_name, seg->sg_index, seg->sg_addr, seg->sg_load,
                      seg->sg_size, seg->sg_flags);
        result.push_back(head + ranges_text(seg));
    }
    return result;
}

std::uint32_t place_of(const tarn_segment_range *sr)
{
    const tarn_psect_range *range = sr->sr_psect->ps_ranges.get(sr->sr_index);
    return sr->sr_psect->ps_use_link ? range->pr_lo : range->pr_load;
}

int compare_places(const tarn_segment_range *left, const tarn_segment_range *right)
{
    return static_cast<std::int32_t>(place_of(left) - place_of(right));
}

// As the map's words tell it: every psect is offered, in the order of the table.
std::string plain_ranges(const tarn_segment &record)
{
    tarn_segment seg = record;
    seg.sg_ranges = vector_of<tarn_segment_range *>::make();
    vector_of<tarn_psect *> psects = psect_table.values();
    for (tarn_psect *pp : each(psects)) {
        add_seg_range(&seg, pp);
    }
    psects.free();
    seg.sg_ranges.sort<compare_places>();
    std::string text = ranges_text(&seg);
    seg.sg_ranges.free();
    return text;
}

std::uint32_t plain_youngest(std::uint32_t space, std::uint32_t load)
{
    for (std::uint32_t position = seg_list.count(); position > 0; --position) {
        const tarn_segment *seg = seg_list.get(position - 1);
        if (position != fake_abs_segment && seg->sg_space == space && seg->sg_load <= load &&
            load < seg->sg_load + seg->sg_size) {
            return position;
        }
    }
    return 0;
}

std::uint32_t plain_segment_of(std::uint32_t address, std::uint32_t number, std::uint32_t delta)
{
    for (std::uint32_t position = 1; position <= seg_list.count(); ++position) {
        const tarn_segment *seg = seg_list.get(position - 1);
        const std::uint32_t byte = address * delta;
        if (seg->sg_index == number && seg->sg_addr <= byte && byte < seg->sg_addr + seg->sg_size) {
            return position;
        }
    }
    return number;
}

tarn_segment *plain_find(const char *name)
{
    for (std::uint32_t i = 0; i < seg_list.count(); ++i) {
        if (std::strcmp(seg_list.get(i)->sg_name, name) == 0) {
            return seg_list.get(i);
        }
    }
    return nullptr;
}

// A piece of the segment at `place` takes that place, as consolidation does it.
void put_piece(const char *name, std::uint32_t place)
{
    add_seg_internal(record_of(name, 0, 0), false);
    tarn_segment *piece = seg_list.pop();
    seg_list.set(piece, place);
    tarn_segments_changed();
}

std::string plain_unique(const char *name)
{
    std::string candidate = name;
    for (std::uint32_t n = 1; plain_find(candidate.c_str()) != nullptr; ++n) {
        candidate = std::string(name) + "_" + std::to_string(n);
    }
    return candidate;
}

} // namespace

TEST_F(ModelSegments, WithoutRangesKeepsSizeAndFlags)
{
    tarn_segment record = record_of("text", 0x100, 0x80);
    record.sg_flags = PDB_EXEC;
    tarn_add_segment(record);
    EXPECT_EQ(list_text(), std::vector<std::string>{"text 1 100 100 80 2: "});
}

TEST_F(ModelSegments, SecondOfANameIsDropped)
{
    add_segment("text", 0, 0x10);
    add_segment("data", 0x10, 0x10);
    add_segment("text", 0x20, 0x10);
    EXPECT_EQ(list_text(), (std::vector<std::string>{"text 1 0 0 10 0: ", "data 2 10 10 10 0: "}));
    add_segment("Text", 0x20, 0x10);
    EXPECT_EQ(seg_list.get(2)->sg_index, 3U); // its number was not reserved
}

TEST_F(ModelSegments, RangesWhollyInside)
{
    add_range("at", 0, 0x10, 0x100);
    add_range("end", 0, 0x10, 0x170);
    add_range("before", 0, 0x10, 0xFF);
    add_range("behind", 0, 0x10, 0x171); // straddles the end
    add_range("whole", 0, 0x80, 0x100);
    add_range("empty", 0, 0, 0x120);
    add_range("fake", 0, 0x10, 0x120, PDB_WRITE | PDB_FAKE);
    add_range("elsewhere", 0, 0x10, 0x120, PDB_WRITE, DATA);
    const tarn_segment *seg = add_segment("text", 0x100, 0x80);
    std::string text = ranges_text(seg);
    EXPECT_NE(text.find("at#0"), std::string::npos);
    EXPECT_NE(text.find("whole#0"), std::string::npos);
    EXPECT_TRUE(text.ends_with("end#0 "));
    EXPECT_EQ(seg->sg_ranges.count(), 3U);
    // The size is the sum of the ranges' sizes, whatever was given.
    EXPECT_EQ(seg->sg_size, 0xA0U);
    EXPECT_EQ(seg->sg_flags, PDB_WRITE);
}

TEST_F(ModelSegments, RangesAreSortedByPlace)
{
    add_range("c", 0, 0x10, 0x130);
    add_range("a", 0, 0x10, 0x110);
    tarn_psect *pp = add_range("b", 0x120, 0x10, 0);
    pp->ps_use_link = true;
    tarn_psects_changed();
    add_range("a", 0, 8, 0x140);
    EXPECT_EQ(ranges_text(add_segment("text", 0x100, 0x80)), "a#0 b#0 c#0 a#1 ");
}

TEST_F(ModelSegments, InterleavedRangesOfTwoPsects)
{
    constexpr std::uint32_t COUNT = 20000; // half a minute for a sort that takes the wrong pivot at each step
    for (std::uint32_t i = 0; i < COUNT; ++i) {
        add_range("even", 0, 8, i * 16);
        add_range("odd", 0, 8, i * 16 + 8);
    }
    const tarn_segment *seg = add_segment("text", 0, COUNT * 16);
    ASSERT_EQ(seg->sg_ranges.count(), COUNT * 2);
    for (std::uint32_t i = 0; i < COUNT * 2; ++i) {
        const tarn_segment_range *sr = seg->sg_ranges.get(i);
        ASSERT_STREQ(sr->sr_psect->ps_name, i % 2 == 0 ? "even" : "odd");
        ASSERT_EQ(sr->sr_index, i / 2);
    }
}

TEST_F(ModelSegments, UseLinkPlacesByLinkAddress)
{
    tarn_psect *pp = add_range("p", 0x100, 0x10, 0x500);
    EXPECT_EQ(ranges_text(add_segment("by_link", 0x100, 0x10)), "");
    pp->ps_use_link = true;
    tarn_psects_changed();
    EXPECT_EQ(ranges_text(add_segment("by_link2", 0x100, 0x10)), "p#0 ");
    EXPECT_EQ(ranges_text(add_segment("by_load", 0x500, 0x10)), "");
}

TEST_F(ModelSegments, LaterRangesAreSeen)
{
    tarn_psect *pp = add_range("p", 0, 0x10, 0x100);
    EXPECT_EQ(ranges_text(add_segment("one", 0x100, 0x100)), "p#0 ");
    tarn_add_psect_range(pp, {.pr_lo = 0, .pr_hi = 0x10, .pr_load = 0x110});
    EXPECT_EQ(ranges_text(add_segment("two", 0x100, 0x100)), "p#0 p#1 ");
    tarn_psect *other = tarn_add_psect("q", CODE, 1);
    tarn_psect_set_lo(other, 0x120);
    tarn_psect_set_hi(other, 0x12F);
    tarn_psect_set_load(other, 0x120);
    EXPECT_EQ(ranges_text(add_segment("three", 0x120, 0x100)), "q#0 ");
}

TEST_F(ModelSegments, NoRangesLooksForNone)
{
    add_range("p", 0, 0x10, 0x100);
    tarn_segment record = record_of("dabs$0", 0x100, 0x10);
    record.sg_noranges = true;
    tarn_add_segment(record);
    add_seg_internal(record_of("not_looked", 0x100, 0x10), false);
    EXPECT_EQ(list_text(), (std::vector<std::string>{"dabs$0 1 100 100 10 0: ", "not_looked 2 100 100 10 0: "}));
}

TEST_F(ModelSegments, SplitByFlags)
{
    add_range("text", 0x1000, 0x10, 0x100, PDB_EXEC);
    add_range("const", 0x2000, 0x20, 0x110, PDB_WRITE);
    add_range("text", 0x1010, 0x08, 0x140, PDB_EXEC); // behind a hole, which is not counted
    add_range("init", 0x3000, 0x04, 0x148, PDB_EXEC);
    tarn_segment record = record_of("rom", 0x100, 0x100);
    record.sg_delta = 2;
    tarn_add_segment(record);
    EXPECT_EQ(list_text(), (std::vector<std::string>{
                               "rom 1 100 100 10 2: text#0 ",
                               "const 2 2000 110 20 1: const#0 ",
                               "text 3 1010 140 C 2: text#1 init#0 ",
                           }));
    EXPECT_EQ(seg_list.get(2)->sg_delta, 2U);
    EXPECT_EQ(seg_list.get(2)->sg_space, CODE);
}

TEST_F(ModelSegments, SplitNamesAreUnique)
{
    add_segment("const", 0, 0);
    add_segment("const_1", 0, 0);
    add_range("text", 0, 0x10, 0x100, PDB_EXEC);
    add_range("const", 0, 0x10, 0x110, PDB_WRITE);
    add_segment("rom", 0x100, 0x100);
    EXPECT_EQ(seg_list.count(), 4U);
    EXPECT_STREQ(seg_list.get(3)->sg_name, "const_2");
    EXPECT_EQ(seg_list.get(3)->sg_index, 4U);
}

TEST_F(ModelSegments, TracesOfRanges)
{
    add_range("p", 0x20, 0x10, 0x100);
    const trace_log log;
    add_segment("text", 0x100, 0x80);
    EXPECT_EQ(trace_log::lines(), std::vector<std::string>{"  ADD RANGE: \"p\" @[20-2F][100+10]"});
}

TEST_F(ModelSegments, NullsAreAssertions)
{
    const trace_log log;
    tarn_segment seg = record_of("s", 0, 0);
    add_seg_range(&seg, nullptr);
    tarn_psect pp;
    add_seg_range(nullptr, &pp);
    EXPECT_EQ(trace_log::failed(), (std::vector<std::string>{"pp != NULL", "seg != NULL"}));
}

TEST_F(ModelSegments, ComparedRangesAreInOneSpace)
{
    add_range("left", 0, 0x10, 0x100);
    add_range("rght", 0, 0x10, 0x110);
    add_range("other", 0, 0x10, 0x108, PDB_WRITE, DATA);
    const trace_log log;
    EXPECT_EQ(ranges_text(add_segment("one", 0x100, 0x100)), "left#0 rght#0 ");
    EXPECT_TRUE(trace_log::failed().empty());
}

TEST_F(ModelSegments, RangesAsThePlainWalk)
{
    random_numbers random(23);
    // Addresses that gather at a few places, the end of the address range among them.
    const auto address = [&random]() -> std::uint32_t {
        const std::uint32_t bases[] = {0, 0x100, 0x80000000, 0xFFFFFFC0};
        return bases[random() % 4] + random() % 64;
    };
    for (int round = 0; round < 200; ++round) {
        SetUp();
        for (std::uint32_t n = random() % 60; n > 0; --n) {
            const std::string name = "p" + std::to_string(random() % 25);
            tarn_psect *pp = tarn_add_psect(name.c_str(), CODE + random() % 2, 1);
            pp->ps_use_link = random() % 4 == 0;
            pp->ps_flags = random() % 8 == 0 ? PDB_FAKE : PDB_WRITE;
            const std::uint32_t low = address();
            const std::uint32_t size = random() % 20 == 0 ? 0 - random() % 64 : random() % 16;
            tarn_add_psect_range(pp, {.pr_lo = low, .pr_hi = low + size, .pr_load = address()});
        }
        for (int i = 0; i < 20; ++i) {
            const std::string name = "s" + std::to_string(i);
            const std::uint32_t size = random() % 5 == 0 ? static_cast<std::uint32_t>(random()) : random() % 128;
            const tarn_segment record = record_of(name.c_str(), address(), size, CODE + random() % 2);
            const std::string expected = plain_ranges(record);
            ASSERT_EQ(ranges_text(add_segment(name.c_str(), record.sg_load, record.sg_size, record.sg_space)),
                      expected);
            if (random() % 4 == 0) {
                add_range("late", address(), random() % 16, address());
            }
        }
    }
}

TEST_F(ModelSegments, FindAfterPiecesTookTheirPlaces)
{
    add_segment("a", 0, 1);
    add_segment("b", 1, 1);
    add_segment("c", 2, 1);
    // As consolidation does: a piece is added at the end and moved to its segment's place.
    add_seg_internal(record_of("b$0", 1, 1), false);
    tarn_segment *piece = seg_list.pop();
    seg_list.set(piece, 1);
    EXPECT_EQ(tarn_find_segment("b"), nullptr);
    EXPECT_EQ(tarn_find_segment("b$0"), piece);
    EXPECT_EQ(tarn_find_segment("a"), seg_list.get(0));
    EXPECT_EQ(tarn_find_segment("c"), seg_list.get(2));
    tarn_segments_changed();
    // The name that left can be given again.
    EXPECT_STREQ(tarn_unique_seg_name("b"), "b");
    tarn_segment *again = add_segment("b", 9, 1);
    EXPECT_EQ(again, seg_list.get(3));
}

TEST_F(ModelSegments, FindAPieceByItsNameAtOnce)
{
    add_segment("a", 0, 1);
    add_segment("b", 1, 1);
    put_piece("a$0", 0);
    EXPECT_EQ(tarn_find_segment("a$0"), seg_list.get(0));
    put_piece("b$0", 1);
    add_seg_internal(record_of("b$0", 0, 0), false); // a second one of the name is dropped
    EXPECT_EQ(seg_list.count(), 2U);
    EXPECT_EQ(tarn_find_segment("b$0"), seg_list.get(1));
}

TEST_F(ModelSegments, ManyPieces)
{
    constexpr std::uint32_t COUNT = 20000; // minutes, if each piece cost a walk over all segments
    for (std::uint32_t i = 0; i < COUNT; ++i) {
        add_segment(str_printf("s%u", i), i, 1);
    }
    for (std::uint32_t i = 0; i < COUNT; ++i) {
        put_piece(str_printf("s%u$0", i), i);
    }
    for (std::uint32_t i = 0; i < COUNT; ++i) {
        ASSERT_EQ(tarn_find_segment(str_printf("s%u", i)), nullptr);
        ASSERT_EQ(tarn_find_segment(str_printf("s%u$0", i)), seg_list.get(i));
    }
}

TEST_F(ModelSegments, FindOfDoubleNames)
{
    // Stray segments are pushed without a test of their name; the first one counts.
    add_segment("a", 0, 1);
    tarn_segment twin = record_of("a", 5, 1);
    seg_list.push(&twin);
    EXPECT_EQ(tarn_find_segment("a"), seg_list.get(0));
    tarn_segment other = record_of("z", 5, 1);
    seg_list.set(&other, 0);
    tarn_segments_changed();
    EXPECT_EQ(tarn_find_segment("a"), &twin);
}

TEST_F(ModelSegments, FindAsThePlainWalk)
{
    random_numbers random(29);
    for (int round = 0; round < 50; ++round) {
        SetUp();
        for (int step = 0; step < 200; ++step) {
            const std::string name = "n" + std::to_string(random() % 40);
            switch (random() % 6) {
            case 0:
            case 1:
                add_segment(name.c_str(), 0, 0);
                break;
            case 2:
                ASSERT_EQ(tarn_find_segment(name.c_str()), plain_find(name.c_str()));
                break;
            case 3:
                ASSERT_EQ(tarn_unique_seg_name(name.c_str()), plain_unique(name.c_str()));
                if (random() % 2 == 0) {
                    add_segment(tarn_unique_seg_name(name.c_str()), 0, 0);
                }
                break;
            case 4:
                if (!seg_list.empty()) { // a piece takes the place of its segment
                    const std::uint32_t place = random() % seg_list.count();
                    const char *piece = str_printf("%s$%d", seg_list.get(place)->sg_name, step);
                    put_piece(piece, place);
                    if (random() % 2 == 0) {
                        ASSERT_EQ(tarn_find_segment(piece), seg_list.get(place));
                    }
                }
                break;
            default:
                seg_list.push(xnew<tarn_segment>(record_of(str_cache(name.c_str()), 0, 0)));
                break;
            }
        }
    }
}

TEST_F(ModelSegments, UniqueNames)
{
    EXPECT_STREQ(tarn_unique_seg_name("x"), "x");
    add_segment("x", 0, 0);
    EXPECT_STREQ(tarn_unique_seg_name("x"), "x_1");
    EXPECT_STREQ(tarn_unique_seg_name("x"), "x_1"); // asking takes nothing
    add_segment("x_1", 0, 0);
    add_segment("x_3", 0, 0);
    EXPECT_STREQ(tarn_unique_seg_name("x"), "x_2");
    add_segment("x_2", 0, 0);
    EXPECT_STREQ(tarn_unique_seg_name("x"), "x_4");
    EXPECT_STREQ(tarn_unique_seg_name("x_1"), "x_1_1");
}

TEST_F(ModelSegments, YoungestSegment)
{
    add_segment("old", 0x100, 0x100);
    add_segment("young", 0x180, 0x10);
    add_segment("other", 0x180, 0x10, DATA);
    EXPECT_EQ(tarn_youngest_segment_at(CODE, 0xFF), 0U);
    EXPECT_EQ(tarn_youngest_segment_at(CODE, 0x100), 1U);
    EXPECT_EQ(tarn_youngest_segment_at(CODE, 0x180), 2U);
    EXPECT_EQ(tarn_youngest_segment_at(CODE, 0x18F), 2U);
    EXPECT_EQ(tarn_youngest_segment_at(CODE, 0x190), 1U);
    EXPECT_EQ(tarn_youngest_segment_at(CODE, 0x1FF), 1U);
    EXPECT_EQ(tarn_youngest_segment_at(CODE, 0x200), 0U);
    EXPECT_EQ(tarn_youngest_segment_at(DATA, 0x180), 3U);
    EXPECT_EQ(tarn_youngest_segment_at(9, 0x180), 0U);
    add_segment("youngest", 0x1FF, 1);
    EXPECT_EQ(tarn_youngest_segment_at(CODE, 0x1FF), 4U);
    seg_list.get(3)->sg_load = 0x200;
    tarn_segments_changed();
    EXPECT_EQ(tarn_youngest_segment_at(CODE, 0x1FF), 1U);
    EXPECT_EQ(tarn_youngest_segment_at(CODE, 0x200), 4U);
}

TEST_F(ModelSegments, YoungestSegmentLeavesTheFakeOneOut)
{
    fake_abs_segment = 1;
    add_segment("$FAKE_ABS2", 0, 0, DATA);
    seg_list.get(0)->sg_size = 0x100;
    tarn_segments_changed();
    EXPECT_EQ(tarn_youngest_segment_at(DATA, 5), 0U);
    fake_abs_segment = 0;
    tarn_segments_changed();
    EXPECT_EQ(tarn_youngest_segment_at(DATA, 5), 1U);
}

TEST_F(ModelSegments, YoungestSegmentWhoseEndWrapsIsEmpty)
{
    add_segment("to_the_end", 0xFFFFFF00, 0x100);
    add_segment("beyond", 0xFFFFFF00, 0x200);
    EXPECT_EQ(tarn_youngest_segment_at(CODE, 0xFFFFFF10), 0U);
    EXPECT_EQ(tarn_youngest_segment_at(CODE, 0xFFFFFFFF), 0U);
    EXPECT_EQ(tarn_youngest_segment_at(CODE, 0x10), 0U);
    add_segment("nearly", 0xFFFFFF00, 0xFF);
    EXPECT_EQ(tarn_youngest_segment_at(CODE, 0xFFFFFFFE), 3U);
    EXPECT_EQ(tarn_youngest_segment_at(CODE, 0xFFFFFFFF), 0U);
}

TEST_F(ModelSegments, SegmentOf)
{
    add_segment("a", 0x100, 0x10);
    add_segment("a$1", 0x110, 0x10)->sg_index = 1; // a stored number that is not the place
    add_segment("b", 0x120, 0x10);
    tarn_segments_changed();
    EXPECT_EQ(tarn_segment_of(0x100, 1, 1), 1U);
    EXPECT_EQ(tarn_segment_of(0x110, 1, 1), 2U);
    EXPECT_EQ(tarn_segment_of(0x88, 1, 2), 2U); // units become bytes
    EXPECT_EQ(tarn_segment_of(0x11F, 1, 1), 2U);
    EXPECT_EQ(tarn_segment_of(0x120, 1, 1), 1U); // in none of that number: the number itself
    EXPECT_EQ(tarn_segment_of(0x120, 3, 1), 3U);
    EXPECT_EQ(tarn_segment_of(0x120, 2, 1), 2U);
    EXPECT_EQ(tarn_segment_of(0x120, 0, 1), 0U);
}

TEST_F(ModelSegments, AddressSearchesAsThePlainWalks)
{
    random_numbers random(31);
    const auto address = [&random]() -> std::uint32_t {
        return (random() % 3 == 0 ? 0xFFFFFFE0 : 0x100) + random() % 64;
    };
    for (int round = 0; round < 50; ++round) {
        SetUp();
        fake_abs_segment = random() % 2;
        for (int i = 0; i < 60; ++i) {
            const std::uint32_t size = random() % 8 == 0 ? 0 - random() % 128 : random() % 32;
            add_segment(("s" + std::to_string(i)).c_str(), address(), size, CODE + random() % 2);
            if (random() % 3 == 0) {
                tarn_segment *seg = seg_list.get(random() % seg_list.count());
                seg->sg_load = address();
                seg->sg_addr = address();
                seg->sg_index = random() % 6;
                tarn_segments_changed();
            }
            for (int query = 0; query < 20; ++query) {
                const std::uint32_t space = CODE + random() % 3;
                const std::uint32_t load = address();
                ASSERT_EQ(tarn_youngest_segment_at(space, load), plain_youngest(space, load));
                const std::uint32_t number = random() % 62;
                const std::uint32_t delta = 1 + random() % 2;
                ASSERT_EQ(tarn_segment_of(load / delta, number, delta), plain_segment_of(load / delta, number, delta));
            }
        }
    }
}
