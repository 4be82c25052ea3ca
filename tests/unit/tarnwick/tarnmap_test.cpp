// SPDX-License-Identifier: MIT
// The import of map files into the program model. A run can read databases only once, so most tests are scenarios.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/stringcache.h"
#include "compiler/common/tmf.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/machine.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "compiler/tarnwick/sdb.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/fresh_model.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

// The sections of a map file, in the order of the file.
struct map_text {
    std::string psects = {};
    std::string lines = {};
    std::string symbols = {};
    std::string splits = {};
    std::string dabs = {};
    std::string segments = {};

    std::string text() const
    {
        return "%TMF\n%PSECTS\n" + psects + "%UNUSED\n%LINETAB\n" + lines + "%SYMTAB\n" + symbols + "%SPLITSTAB\n" +
               splits + "%DABS\n" + dabs + "%SEGMENTS\n" + segments + "%NOTES\n";
    }
};

void start_model()
{
    fresh_model();
    opt_verbose = 0;
    opt_fake_abs = false;
    fake_abs_segment = 0;
    code_delta = 1;
    processor_name = "KOR"; // instructions of one unit
    set_add(code_spaces, 1);
    set_add(data_spaces, 2);
}

bool read_map(const map_text &map)
{
    std::FILE *stream = std::tmpfile(); // the reader closes it
    std::fputs(map.text().c_str(), stream);
    std::rewind(stream);
    return format_tarnsym.read(stream, "x.tmf");
}

void print_segments()
{
    std::uint32_t position = 0;
    for (const tarn_segment *seg : each(seg_list)) {
        note("%u: %s number %u addr %X load %X size %X flags %u delta %u space %u ranges %u%s", ++position,
             seg->sg_name, seg->sg_index, seg->sg_addr, seg->sg_load, seg->sg_size, seg->sg_flags, seg->sg_delta,
             seg->sg_space, seg->sg_ranges.count(), seg->sg_noranges ? " none looked for" : "");
    }
}

const char *name_or_dash(const tarn_psect *pp)
{
    return pp != nullptr ? pp->ps_name : "-";
}

void print_symbol(const char *name)
{
    const tarn_symbol *sp = tarn_find_symbol(name);
    if (sp == nullptr) {
        note("%s is no symbol", name);
        return;
    }
    note("%s value %X load %X segment %u space %u flags %u psect %s file %s", name, sp->sy_value, sp->sy_load,
         sp->sy_seg, sp->sy_space, sp->sy_flags, name_or_dash(sp->sy_psect),
         sp->sy_file != 0 ? file_list.get(sp->sy_file - 1)->fl_name : "none");
}

void print_lines()
{
    for (const tarn_line *lp : each(line_list)) {
        note("%s:%u at %X psect %s segment %u flags %u", file_list.get(lp->ln_file - 1)->fl_name, lp->ln_line,
             lp->ln_addr, name_or_dash(lp->ln_psect), lp->ln_seg, lp->ln_flags);
    }
}

// Modules of the database with the source files marked in them.
void print_modules()
{
    for (std::uint32_t i = 0; i < sdb_global->block.bl_count; ++i) {
        const sdb_node *node = sdb_global->block.bl_members[i];
        if (node->sdb_sclass != sc_module && node->sdb_sclass != sc_asmodule) {
            continue;
        }
        note("%s %s", node->sdb_sclass == sc_module ? "module" : "asmodule", node->sdb_name);
        for (std::uint32_t k = 0; k < node->block.bl_count; ++k) {
            const sdb_node *member = node->block.bl_members[k];
            if (member->sdb_sclass == sc_filename) {
                note("  file %s line %u", member->sdb_name, member->sdb_line);
            }
        }
    }
}

TEST(tarnmap, says_which_operations_the_format_has)
{
    EXPECT_STREQ(format_tarnsym.name, "Kelvar ZRT Tarnwick Map File");
    EXPECT_STREQ(format_tarnsym.key, "tarnsym");
    EXPECT_STREQ(format_tarnsym.ext, "tmf");
    EXPECT_FALSE(format_tarnsym.binary);
    EXPECT_EQ(format_tarnsym.identify, tmf_isTMF);
    EXPECT_FALSE(format_tarnsym.dump(nullptr));
}

TEST(tarnmap, a_file_that_cannot_be_parsed_touches_nothing)
{
    expect_run(
        [] {
            start_model();
            std::FILE *stream = std::tmpfile();
            std::fputs("%TMF\n%PSECTS\n$a.obj\ntext CODE 1 100 100 10 1 1\n%SYMTAB\n", stream);
            const bool result = format_tarnsym.read(stream, "x.tmf");
            note("%d files %u psects %u", result ? 1 : 0, file_list.count(), psect_table.count());
        },
        "x.tmf: 5: (1437) TMF error: Did not find section %UNUSED\n0 files 0 psects 0\n");
}

// --- psects and segments ------------------------------------------------------------------------------------------------

TEST(tarnmap_psects, of_one_name_become_one_with_several_ranges)
{
    start_model();
    EXPECT_TRUE(read_map({.psects = "$a.obj\n"
                                    "text CODE 1 100 180 10 2 4\n"
                                    "$b.obj\n"
                                    "text CODE 1 110 190 8 2 8\n"}));
    const tarn_psect *pp = tarn_find_psect("text");
    ASSERT_NE(pp, nullptr);
    EXPECT_EQ(pp->ps_space, 1U);
    EXPECT_EQ(pp->ps_delta, 2U);
    EXPECT_EQ(pp->ps_flags, PDB_WRITE);
    ASSERT_EQ(pp->ps_ranges.count(), 2U);
    for (const tarn_psect_range *range : each(pp->ps_ranges)) {
        const bool first = std::string(range->pr_object) == "a.obj";
        EXPECT_EQ(range->pr_lo, first ? 0x200U : 0x220U);
        EXPECT_EQ(range->pr_hi, first ? 0x21FU : 0x22FU);
        EXPECT_EQ(range->pr_load, first ? 0x300U : 0x320U);
    }
    EXPECT_NE(tarn_find_file("a.obj"), nullptr);
    EXPECT_NE(tarn_find_file("b.obj"), nullptr);
    EXPECT_EQ(psect_table.count(), 1U);
}

TEST(tarnmap_psects, keep_the_alignment_of_the_last_object)
{
    start_model();
    read_map({.psects = "$a.obj\ntext CODE 1 100 100 10 1 4\n"});
    EXPECT_EQ(tarn_find_psect("text")->ps_reloc, 4U);
    read_map({.psects = "$c.obj\ntext CODE 1 200 200 10 1 16\n"});
    EXPECT_EQ(tarn_find_psect("text")->ps_reloc, 16U);
    EXPECT_EQ(tarn_find_psect("text")->ps_ranges.count(), 2U);
}

TEST(tarnmap_psects, without_class_are_always_writable)
{
    start_model();
    psect_flags_given = true;
    psect_flags_table.insert(str_cache("noclass"), PDB_EXEC);
    psect_flags_table.insert(str_cache("classy"), PDB_EXEC);
    read_map({.psects = "$a.obj\n"
                        "noclass - 1 100 100 10 1 1\n"
                        "classy CODE 1 200 200 10 1 1\n"});
    EXPECT_EQ(tarn_find_psect("noclass")->ps_flags, PDB_EXEC | PDB_WRITE);
    EXPECT_EQ(tarn_find_psect("classy")->ps_flags, PDB_EXEC);
}

TEST(tarnmap_segments, turn_delta_units_into_bytes_but_for_the_file_address)
{
    expect_run(
        [] {
            start_model();
            read_map({.segments = "code 1 100 1000 20 2\n"});
            print_segments();
        },
        "1: code number 1 addr 200 load 1000 size 40 flags 0 delta 2 space 1 ranges 0\n");
}

TEST(tarnmap_segments, take_the_psect_ranges_inside_and_split_by_their_flags)
{
    expect_run(
        [] {
            start_model();
            psect_flags_given = true;
            psect_flags_table.insert(str_cache("vectors"), PDB_EXEC);
            read_map({.psects = "$a.obj\n"
                                "vectors CODE 1 0 0 8 1 1\n"
                                "text CODE 1 8 8 10 1 1\n"
                                "far CODE 1 1000 1000 10 1 1\n",
                      .segments = "code 1 0 0 100 1\n"});
            print_segments();
        },
        "1: code number 1 addr 0 load 0 size 8 flags 2 delta 1 space 1 ranges 1\n"
        "2: text number 2 addr 8 load 8 size 10 flags 1 delta 1 space 1 ranges 1\n");
}

TEST(tarnmap_segments, are_traced_under_their_name)
{
    start_model();
    const trace_log log;
    read_map({});
    std::vector<std::string> found;
    for (const std::string &line : log.lines()) {
        if (line.find("process_tmf_segments") != std::string::npos) {
            found.push_back(line);
        }
    }
    EXPECT_EQ(found, (std::vector<std::string>{"ENTER process_tmf_segments", "EXIT process_tmf_segments"}));
}

// --- symbols ------------------------------------------------------------------------------------------------------------

// Two segments of space 1 share the addresses from 80; the store hands them out as its list has them.
const map_text SYMBOL_SAMPLE = {
    .psects = "$a.obj\n"
              "text CODE 1 100 100 10 2 2\n"
              "zero CODE 1 500 500 10 0 1\n",
    .symbols = "_main 204 0 CODE 1 text a.obj\n"
               "_moved 204 -4 CODE 1 text a.obj\n"
               "_classless 204 0 - 1 text a.obj\n"
               "_limit 8 0 ABS 1 text a.obj\n"
               "_psectless 204 0 CODE 1 - -\n"
               "_strange 204 0 CODE 1 nowhere b.obj\n"
               "_outside 500 0 CODE 1 text a.obj\n"
               "_delta0 500 0 CODE 1 zero a.obj\n"
               "_dabs 204 0 - 1 - -\n"
               "_dabs2 40 0 - 2 - -\n",
    .dabs = "_dabs 2 204 4\n"
            "_dabs2 2 40 4\n",
    .segments = "code 1 100 200 10 2\n",
};

TEST(tarnmap_symbols, get_psect_value_load_address_and_segment)
{
    expect_run(
        [] {
            start_model();
            tmf_fp = nullptr;
            read_map(SYMBOL_SAMPLE);
            for (const char *name : {"_main", "_moved", "_classless", "_limit", "_psectless", "_strange", "_outside",
                                     "_delta0", "_dabs", "_dabs2"}) {
                print_symbol(name);
            }
        },
        "x.tmf: 5: (1437) TMF error: psect with a zero delta\n"
        "_main value 102 load 204 segment 1 space 1 flags 0 psect text file a.obj\n"
        "_moved value 102 load 200 segment 1 space 1 flags 0 psect text file a.obj\n"
        "_classless value 204 load 204 segment 0 space 1 flags 0 psect - file a.obj\n"
        "_limit value 8 load 8 segment 0 space 1 flags 1 psect - file a.obj\n"
        "_psectless value 204 load 204 segment 0 space 1 flags 0 psect - file -\n"
        "_strange value 204 load 204 segment 0 space 1 flags 0 psect - file b.obj\n"
        "_outside value 280 load 500 segment 0 space 1 flags 0 psect text file a.obj\n"
        "_delta0 value 500 load 500 segment 0 space 1 flags 0 psect zero file a.obj\n"
        // Labels of dabs records are searched for, among the segments of before the dabs records.
        "_dabs value 204 load 204 segment 1 space 1 flags 16 psect - file -\n"
        "_dabs2 value 40 load 40 segment 0 space 2 flags 16 psect - file -\n");
}

TEST(tarnmap_symbols, of_no_psect_are_in_the_fake_segment_when_there_is_one)
{
    expect_run(
        [] {
            start_model();
            opt_fake_abs = true;
            fake_abs_segment = 1;
            tarn_segment fake;
            fake.sg_name = "$FAKE_ABS2";
            fake.sg_space = 2;
            fake.sg_flags = PDB_WRITE | PDB_NOSPACE;
            tarn_add_segment(fake);
            seg_list.get(0)->sg_size = 0x10000; // it still takes no part in searches
            read_map({.symbols = "_limit 8 0 ABS 2 - -\n"
                                 "_none 9 0 - 2 - -\n"
                                 "_dabs A 0 - 2 - -\n",
                      .dabs = "_dabs 2 A 4\n"});
            print_symbol("_limit");
            print_symbol("_none");
            print_symbol("_dabs");
        },
        "_limit value 8 load 8 segment 1 space 2 flags 1 psect - file -\n"
        "_none value 9 load 9 segment 1 space 2 flags 0 psect - file -\n"
        "_dabs value A load A segment 0 space 2 flags 16 psect - file -\n");
}

TEST(tarnmap_symbols, the_younger_of_two_segments_wins)
{
    start_model();
    read_map({.psects = "$a.obj\nfar CODE 1 1000 1000 10 1 1\n",
              .symbols = "_x 1004 0 CODE 1 far a.obj\n",
              .segments = "one 1 0 0 2000 1\ntwo 1 0 0 2000 1\n"});
    // The first one has taken the psect's range and shrunk to it; both hold their load address of 0 only.
    EXPECT_EQ(tarn_find_symbol("_x")->sy_seg, 0U);
    start_model();
    read_map({.psects = "$a.obj\nfar CODE 1 1000 1000 10 1 1\n",
              .symbols = "_x 1004 0 CODE 1 far a.obj\n",
              .segments = "one 1 FF0 1001 20 1\ntwo 1 FF0 1002 20 1\n"});
    EXPECT_EQ(tarn_find_symbol("_x")->sy_seg, 2U);
}

// --- bound symbols ------------------------------------------------------------------------------------------------------

std::string kept(const std::string &symbols)
{
    start_model();
    read_map({.psects = "$a.obj\ntext CODE 1 100 100 10 1 1\n", .symbols = symbols});
    std::string result;
    for (const char *name : {"__Ltext", "__Htext", "__Btext", "__Itext", "__Gtext", "__Lother", "__Hother", "__L",
                             "__H", "__LOGGER", "__LOG", "_Ltext", "__Lx", "__Hx"}) {
        if (tarn_find_symbol(name) != nullptr) {
            result += std::string(result.empty() ? "" : " ") + name;
        }
    }
    return result;
}

std::string symbol(const std::string &name, const std::string &value)
{
    return name + ' ' + value + " 0 - 1 - -\n";
}

TEST(tarnmap_bounds, of_a_known_psect_are_dropped)
{
    EXPECT_EQ(
        kept(symbol("__Ltext", "100") + symbol("__Htext", "110") + symbol("__Btext", "100") + symbol("__Itext", "100")),
        "");
}

TEST(tarnmap_bounds, stay_when_one_of_the_pair_is_missing)
{
    EXPECT_EQ(kept(symbol("__Ltext", "100")), "__Ltext");
    EXPECT_EQ(kept(symbol("__Htext", "100") + symbol("__Btext", "0")), "__Htext __Btext");
}

TEST(tarnmap_bounds, of_an_unknown_psect_are_dropped_when_their_values_add_up_to_0)
{
    EXPECT_EQ(kept(symbol("__Lother", "0") + symbol("__Hother", "0")), "");
    EXPECT_EQ(kept(symbol("__Lother", "FFFFFFF0") + symbol("__Hother", "10")), ""); // in 32 bits
    EXPECT_EQ(kept(symbol("__Lother", "0") + symbol("__Hother", "1")), "__Lother __Hother");
}

TEST(tarnmap_bounds, are_told_by_four_letters_and_at_least_four_characters)
{
    EXPECT_EQ(kept(symbol("__Gtext", "0") + symbol("__Ltext", "0") + symbol("__Htext", "0")), "__Gtext");
    EXPECT_EQ(kept(symbol("_Ltext", "0") + symbol("__Ltext", "0") + symbol("__Htext", "0")), "_Ltext");
    EXPECT_EQ(kept(symbol("__L", "0") + symbol("__H", "0")), "__L __H");
    EXPECT_EQ(kept(symbol("__Lx", "0") + symbol("__Hx", "0")), "");
}

TEST(tarnmap_bounds, names_that_begin_with_log_are_ordinary)
{
    EXPECT_EQ(kept(symbol("__LOGGER", "0") + symbol("__HOGGER", "0")), "__LOGGER");
    EXPECT_EQ(kept(symbol("__LOG", "0") + symbol("__HOG", "0")), "__LOG");
}

// --- splits -------------------------------------------------------------------------------------------------------------

std::string chain_of(const char *name)
{
    std::string result = name;
    for (const tarn_psect *pp = tarn_find_psect(name)->ps_next; pp != nullptr; pp = pp->ps_next) {
        result += std::string(" ") + pp->ps_name + "<" + pp->ps_prev->ps_name;
    }
    return result;
}

TEST(tarnmap_splits, put_the_newest_child_first)
{
    start_model();
    read_map({.psects = "$a.obj\n"
                        "p CODE 1 100 100 10 1 1\n"
                        "c1 CODE 1 110 110 10 1 1\n"
                        "c2 CODE 1 120 120 10 1 1\n"
                        "c3 CODE 1 130 130 10 1 1\n",
              .splits = "p c1\np c2\np c3\n"});
    EXPECT_EQ(chain_of("p"), "p c3<p c2<c3 c1<c2");
    EXPECT_EQ(tarn_find_psect("p")->ps_prev, nullptr);
}

TEST(tarnmap_splits, need_both_psects)
{
    start_model();
    const map_text map = {.psects = "$a.obj\np CODE 1 100 100 10 1 1\n", .splits = "p lost\ngone p\n"};
    {
        const trace_log log;
        read_map(map);
        EXPECT_EQ(log.failed(), (std::vector<std::string>{"child_ps != NULL", "parent_ps != NULL"}));
    }
    EXPECT_EQ(chain_of("p"), "p");
}

// --- dabs records -------------------------------------------------------------------------------------------------------

TEST(tarnmap_dabs, in_data_spaces_get_segments_of_their_own)
{
    expect_run(
        [] {
            start_model();
            read_map({.psects = "$a.obj\nram DATA 2 20 20 10 1 1\n",
                      .symbols = "_port 20 0 - 2 - -\n"
                                 "_rom 20 0 - 1 - -\n"
                                 "_empty 20 0 - 2 - -\n",
                      .dabs = "- 2 20 4\n"
                              "_port 2 30 2\n"
                              "- 1 40 4\n" // not a data space
                              "- 2 50 0\n" // nothing of it
                              "_rom 1 60 1\n"
                              "_empty 2 70 0\n"
                              "- 2 80 10\n"});
            print_segments();
            for (const char *name : {"_port", "_rom", "_empty"}) {
                note("%s flags %u", name, tarn_find_symbol(name)->sy_flags);
            }
        },
        "1: dabs$0 number 1 addr 20 load 20 size 4 flags 5 delta 1 space 2 ranges 0 none looked for\n"
        "2: dabs$1 number 2 addr 80 load 80 size 10 flags 5 delta 1 space 2 ranges 0 none looked for\n"
        "3: dabs$_port number 3 addr 30 load 30 size 2 flags 5 delta 1 space 2 ranges 0 none looked for\n"
        "_port flags 16\n"
        "_rom flags 16\n"
        "_empty flags 16\n");
}

TEST(tarnmap_dabs, labels_need_a_symbol)
{
    start_model();
    {
        const trace_log log;
        read_map({.dabs = "_lost 2 30 2\n"});
        EXPECT_EQ(log.failed(), std::vector<std::string>{"ps != NULL"});
    }
    EXPECT_STREQ(seg_list.get(0)->sg_name, "dabs$_lost"); // the segment is there all the same
    start_model();
    read_map({.dabs = "_lost 2 30 2\n"});
    EXPECT_EQ(seg_list.count(), 1U);
}

// --- consolidation and lines --------------------------------------------------------------------------------------------

TEST(tarnmap_lines, are_placed_in_the_segments_that_consolidation_leaves)
{
    expect_run(
        [] {
            enter_scratch_folder();
            start_model();
            const std::uint8_t bytes[4] = {};
            tarn_add_data(0x200, 4, bytes, 0);
            tarn_add_data(0x210, 4, bytes, 0);
            read_map({.psects = "$a.obj\ntext CODE 1 100 100 10 2 2\n",
                      .lines = "$a.obj\n"
                               "109 text CODE >12:a.c\n"
                               "101 text CODE >10:a.c\n"
                               "104 text CODE >11:a.c\n",
                      .symbols = "_late 210 0 CODE 1 text a.obj\n",
                      .segments = "code 1 100 200 10 2\n"});
            print_segments();
            print_symbol("_late");
            print_lines();
        },
        "1: code$0 number 1 addr 200 load 200 size 4 flags 1 delta 2 space 1 ranges 1\n"
        "2: code$1 number 2 addr 210 load 210 size 4 flags 1 delta 2 space 1 ranges 1\n"
        // Symbols were placed before: theirs is the number of the old segment.
        "_late value 108 load 210 segment 1 space 1 flags 0 psect text file a.obj\n"
        "a.c:10 at 101 psect text segment 1 flags 2\n"
        "a.c:11 at 104 psect text segment 0 flags 2\n"
        "a.c:12 at 109 psect text segment 2 flags 2\n");
}

TEST(tarnmap_lines, in_no_code_space_or_of_no_psect_are_dropped)
{
    expect_run(
        [] {
            enter_scratch_folder();
            start_model();
            read_map({.psects = "$a.obj\n"
                                "text CODE 1 100 100 10 1 1\n"
                                "data DATA 2 100 100 10 1 1\n",
                      .lines = "$a.obj\n"
                               "100 text CODE >1:a.c\n"
                               "101 data CODE >2:dropped.c\n"
                               "102 lost CODE >3:dropped.c\n"
                               "103 text CODE >4:a.c\n"});
            print_lines();
            print_modules();
            note("%s", tarn_find_file("dropped.c") == nullptr ? "nothing of dropped.c" : "dropped.c");
        },
        "a.c:1 at 100 psect text segment 0 flags 2\n"
        "a.c:4 at 103 psect text segment 0 flags 2\n"
        "asmodule a.obj\n"
        "  file a.c line 0\n" // once: the dropped lines were no change of file
        "nothing of dropped.c\n");
}

TEST(tarnmap_lines, between_two_instructions_leave_no_record_but_their_source_file)
{
    expect_run(
        [] {
            enter_scratch_folder();
            start_model();
            processor_name = "H1A"; // instructions of two units
            read_map({.psects = "$a.obj\ntext CODE 1 100 100 10 1 1\n",
                      .lines = "$a.obj\n"
                               "100 text CODE >1:a.c\n"
                               "101 text CODE >2:odd.c\n"
                               "102 text CODE >3:a.c\n"
                               "103 text CODE >4:a.c\n"});
            note("%s", machine->name);
            print_lines();
            print_modules();
            note("odd.c is %s", tarn_find_file("odd.c") == nullptr ? "no file of the model" : "a file");
        },
        "machkorh\n"
        "a.c:1 at 100 psect text segment 0 flags 2\n"
        "a.c:3 at 102 psect text segment 0 flags 2\n"
        "asmodule a.obj\n"
        "  file a.c line 0\n"
        "  file odd.c line 0\n"
        "  file a.c line 0\n"
        "odd.c is no file of the model\n");
}

TEST(tarnmap_lines, every_object_with_lines_has_its_database_read)
{
    expect_run(
        [] {
            enter_scratch_folder();
            start_model();
            read_map({.psects = "$a.obj\ntext CODE 1 100 100 10 1 1\n",
                      .lines = "$a.obj\n"
                               "100 lost CODE >1:a.c\n"});
            print_modules();
            note("%u lines, a.obj is %s", line_list.count(), tarn_find_file("a.obj") != nullptr ? "a file" : "no file");
        },
        "asmodule a.obj\n0 lines, a.obj is a file\n");
}

// The last source file is kept from object to object.
TEST(tarnmap_lines, a_source_file_that_goes_on_in_the_next_object_is_not_marked_again)
{
    expect_run(
        [] {
            enter_scratch_folder();
            start_model();
            read_map({.psects = "$a.obj\ntext CODE 1 100 100 10 1 1\n",
                      .lines = "$a.obj\n"
                               "100 text CODE >1:x.as\n"
                               "$b.obj\n"
                               "104 text CODE >2:x.as\n"
                               "105 text CODE >2:y.as\n"
                               "106 text CODE >2:x.as\n"});
            print_modules();
        },
        "asmodule a.obj\n"
        "  file x.as line 0\n"
        "asmodule b.obj\n"
        "  file y.as line 0\n"
        "  file x.as line 0\n");
}

TEST(tarnmap_lines, assembly_sources_behind_c_lines_get_modules_of_their_own)
{
    expect_run(
        [] {
            enter_scratch_folder();
            start_model();
            write_file("a.sdb", "[p ]\n");
            read_map({.psects = "$a.obj\ntext CODE 1 100 100 10 1 1\n",
                      .lines = "$a.obj\n"
                               "100 text CODE >1:a.c\n"
                               "101 text CODE >2:start.as\n"
                               "102 text CODE >3:start.as\n"
                               "103 text CODE >4:b.c\n"
                               "104 text CODE >5:start.as\n"});
            for (std::uint32_t i = 0; i < sdb_global->block.bl_count; ++i) {
                const sdb_node *node = sdb_global->block.bl_members[i];
                if (node->sdb_sclass == sc_asmodule) {
                    note("asmodule %s with %u marks", node->sdb_name, node->block.bl_count);
                } else if (node->sdb_sclass == sc_module) {
                    note("module with %u marks", node->block.bl_count);
                }
            }
            note("%u lines", line_list.count());
        },
        "module with 0 marks\n"
        "asmodule start.as with 2 marks\n"
        "5 lines\n");
}

// Psects gain ranges, segments of known names are dropped, and consolidation is not done again.
TEST(tarnmap, a_second_map_file_repeats_the_steps)
{
    expect_run(
        [] {
            start_model();
            const map_text map = {.psects = "$a.obj\ntext CODE 1 100 100 10 1 1\n",
                                  .symbols = "_x 104 0 CODE 1 text a.obj\n",
                                  .segments = "code 1 100 100 10 1\n"};
            read_map(map);
            read_map(map);
            print_segments();
            note("%u ranges, %u symbols", tarn_find_psect("text")->ps_ranges.count(), symbol_list.count());
        },
        "1: code number 1 addr 100 load 100 size 10 flags 1 delta 1 space 1 ranges 1\n"
        "2 ranges, 2 symbols\n");
}

} // namespace
