// SPDX-License-Identifier: MIT
// Legacy symbol files. Symbols that were parked, and the names that were written, stay for the whole of a run: tests
// that park or write run in processes of their own.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "common/stringcache.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "compiler/tarnwick/sdb.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/image_testing.h"

namespace {

constexpr const char *PATH = "in.sym";
constexpr std::uint32_t DATA_SPACE = 2;

std::string text_of(const char *format, ...) PRINTF_LIKE(1, 2);
std::string text_of(const char *format, ...)
{
    char text[300];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

std::string files_text()
{
    std::string text;
    for (const tarn_file *fp : each(file_list)) {
        text += text_of("file %s\n", fp->fl_name);
    }
    return text;
}

// Number as stored, link and load address, size.
std::string segments_text()
{
    std::string text;
    for (const tarn_segment *seg : each(seg_list)) {
        text += text_of("seg %s #%u %X@%X+%X space %u\n", seg->sg_name, seg->sg_index, seg->sg_addr, seg->sg_load,
                        seg->sg_size, seg->sg_space);
    }
    return text;
}

std::string flags_text(std::uint32_t flags)
{
    return std::string((flags & SYM_LOCAL) != 0 ? " local" : "") + ((flags & SYM_ABS) != 0 ? " abs" : "") +
           ((flags & ~(SYM_LOCAL | SYM_ABS)) != 0 ? " ?" : "");
}

std::string symbols_text()
{
    std::string text;
    for (const tarn_symbol *sp : each(symbol_list)) {
        text += text_of("sym %s %X file %u seg %u space %u%s", sp->sy_name, sp->sy_value, sp->sy_file, sp->sy_seg,
                        sp->sy_space, flags_text(sp->sy_flags).c_str());
        text += sp->sy_psect != nullptr ? text_of(" in %s\n", sp->sy_psect->ps_name) : "\n";
    }
    return text;
}

std::string lines_text()
{
    std::string text;
    for (const tarn_line *lp : each(line_list)) {
        text += text_of("line %u %X file %u seg %u%s\n", lp->ln_line, lp->ln_addr, lp->ln_file, lp->ln_seg,
                        lp->ln_flags == LN_SOURCE && lp->ln_psect == nullptr ? "" : " ?");
    }
    return text;
}

std::string psects_text()
{
    std::string text;
    vector_of<tarn_psect *> psects = psect_table.values();
    for (const tarn_psect *pp : each(psects)) {
        text += text_of("psect %s space %u delta %u%s", pp->ps_name, pp->ps_space, pp->ps_delta,
                        pp->ps_use_link ? " link" : "");
        text += pp->ps_lib_reloc != 0 ? text_of(" lib %X", pp->ps_lib_reloc) : "";
        for (const tarn_psect_range *rp : each(pp->ps_ranges)) {
            text += text_of(" %X-%X@%X", rp->pr_lo, rp->pr_hi, rp->pr_load);
        }
        text += '\n';
    }
    psects.free();
    return text;
}

std::string model_text()
{
    return files_text() + segments_text() + symbols_text() + lines_text() + psects_text();
}

// Into the model as it stands.
void read_more(const std::string &content, const char *path = PATH)
{
    const image_file file(content);
    EXPECT_TRUE(format_orbell.read(file.stream(), path));
}

void start_model()
{
    model_create();
    set_add(data_spaces, DATA_SPACE);
    opt_strip_ext = false;
}

// Into a new model.
void read_text(const std::string &content)
{
    start_model();
    read_more(content);
}

bool identify(const std::string &content)
{
    return identify_image(format_orbell, content);
}

// --- the row ---------------------------------------------------------------------------------------------------------

TEST(orbell, is_a_text_format_without_dump)
{
    EXPECT_STREQ(format_orbell.name, "Orbell Software");
    EXPECT_STREQ(format_orbell.key, "orbell");
    EXPECT_STREQ(format_orbell.ext, "sym");
    EXPECT_FALSE(format_orbell.binary);
    EXPECT_FALSE(format_orbell.dump(image_file("foo 100 0\n").stream()));
}

// --- identification --------------------------------------------------------------------------------------------------

TEST(orbell_identify, headings)
{
    EXPECT_TRUE(identify("%locals\n"));
    EXPECT_TRUE(identify("%segments\r\n"));
    EXPECT_FALSE(identify("%local\n"));
    EXPECT_FALSE(identify("%locals \n"));
    EXPECT_FALSE(identify("%LOCALS\n"));
}

TEST(orbell_identify, three_fields_of_which_two_are_hexadecimal)
{
    EXPECT_TRUE(identify("foo 100 2\n"));
    EXPECT_TRUE(identify("foo 100 2 and anything else\n"));
    EXPECT_TRUE(identify("12 0aF 1 text\r\n"));
    EXPECT_TRUE(identify("  foo   1  2  \n"));
    EXPECT_FALSE(identify("foo 100\n"));
    EXPECT_FALSE(identify("foo 10G 2\n"));
    EXPECT_FALSE(identify("foo 100 2x\n"));
    EXPECT_FALSE(identify("foo 0x100 2\n"));
    EXPECT_FALSE(identify("foo\t100\t2\n"));
    EXPECT_FALSE(identify("\n"));
}

TEST(orbell_identify, signs)
{
    EXPECT_TRUE(identify("foo +1 -1\n"));
    EXPECT_TRUE(identify("foo + -\n")); // a sign alone passes too
    EXPECT_FALSE(identify("foo ++1 1\n"));
    EXPECT_FALSE(identify("foo 1- 1\n"));
}

TEST(orbell_identify, the_first_line_must_end_in_a_newline)
{
    EXPECT_FALSE(identify(""));
    EXPECT_FALSE(identify("foo 100 2"));
    EXPECT_FALSE(identify("%locals"));
    EXPECT_TRUE(identify("foo 100 2\nrest"));
    EXPECT_FALSE(identify(std::string("foo 100 2\0\n", 11)));
}

TEST(orbell_identify, the_first_line_has_at_most_255_characters)
{
    const std::string fields = "foo 1 2 ";
    EXPECT_TRUE(identify(fields + std::string(255 - fields.size() - 1, 'x') + "\n"));
    EXPECT_FALSE(identify(fields + std::string(255 - fields.size(), 'x') + "\n"));
}

// --- lines -----------------------------------------------------------------------------------------------------------

TEST(orbell_read, a_symbol_without_segment_is_absolute)
{
    read_text("foo 100\nbar 2F 7\nbaz fFfF 1 ABS\n");
    EXPECT_EQ(model_text(), "file in.sym\n"
                            "sym foo 100 file 1 seg 0 space 0 abs\n"
                            "sym bar 2F file 1 seg 0 space 0 abs\n"
                            "sym baz FFFF file 1 seg 0 space 0 abs\n");
}

TEST(orbell_read, a_symbol_names_its_segment_which_is_made_when_absent)
{
    read_text("foo 100 2 text\nbar 104 9 data\nbaz 108 0 text\n");
    EXPECT_EQ(model_text(), "file in.sym\n"
                            "seg text #1 0@0+0 space 0\n"
                            "seg data #2 0@0+0 space 0\n"
                            "sym foo 100 file 1 seg 1 space 0\n"
                            "sym bar 104 file 1 seg 2 space 0\n"
                            "sym baz 108 file 1 seg 1 space 0\n");
}

TEST(orbell_read, a_digit_in_front_makes_a_line_record)
{
    read_text("12 3A0 1 text\n7 10\n3x 20 0 ABS\n");
    EXPECT_EQ(model_text(), "file in.sym\n"
                            "seg text #1 0@0+0 space 0\n"
                            "line 12 3A0 file 1 seg 1\n"
                            "line 7 10 file 1 seg 0\n"
                            "line 3 20 file 1 seg 0\n");
}

TEST(orbell_read, the_segment_number_is_its_place_and_not_the_third_field)
{
    start_model();
    tarn_segment fake;
    fake.sg_name = "$FAKE_ABS2"; // its stored number is 0
    tarn_add_segment(fake);
    fake_abs_segment = 1;
    read_more("foo 1 1 text\nbar 2 7 $FAKE_ABS2\n");
    EXPECT_EQ(symbols_text(), "sym foo 1 file 1 seg 2 space 0\n"
                              "sym bar 2 file 1 seg 1 space 0\n");
}

TEST(orbell_read, any_number_of_blanks_separates_fields)
{
    read_text("  foo   100  1   text    3  \n");
    EXPECT_EQ(symbols_text(), "sym foo 100 file 1 seg 1 space 3\n");
}

TEST(orbell_read, the_space_of_a_symbol_becomes_that_of_its_segment)
{
    read_text("foo 1 1 text 5\n");
    EXPECT_EQ(segments_text(), "seg text #1 0@0+0 space 5\n");
    EXPECT_EQ(symbols_text(), "sym foo 1 file 1 seg 1 space 5\n");
    // A later symbol without space sets it back; an absolute one sets nothing, nor does a line record.
    read_text("foo 1 1 text 5\nbar 1 1 text\n");
    EXPECT_EQ(segments_text(), "seg text #1 0@0+0 space 0\n");
    read_text("foo 1 1 text 5\nbar 1 0 ABS 4\n9 1 1 text 6\n");
    EXPECT_EQ(segments_text(), "seg text #1 0@0+0 space 5\n");
    EXPECT_EQ(symbols_text(), "sym foo 1 file 1 seg 1 space 5\nsym bar 1 file 1 seg 0 space 4 abs\n");
}

TEST(orbell_read, searches_of_segments_see_a_changed_space)
{
    start_model();
    tarn_segment text;
    text.sg_index = 1;
    text.sg_name = "text";
    text.sg_size = 0x100;
    tarn_add_segment(text);
    EXPECT_EQ(tarn_youngest_segment_at(0, 0x10), 1U);
    read_more("foo 1 1 text 5\n");
    EXPECT_EQ(tarn_youngest_segment_at(0, 0x10), 0U);
    EXPECT_EQ(tarn_youngest_segment_at(5, 0x10), 1U);
}

TEST(orbell_read, numbers_saturate_at_32_bits_and_may_have_signs_and_a_prefix)
{
    read_text("a 1FFFFFFFFF\nb -1\nc +1F\nd 0x2A\ne 12xyz\n");
    EXPECT_EQ(symbols_text(), "sym a FFFFFFFF file 1 seg 0 space 0 abs\n"
                              "sym b FFFFFFFF file 1 seg 0 space 0 abs\n"
                              "sym c 1F file 1 seg 0 space 0 abs\n"
                              "sym d 2A file 1 seg 0 space 0 abs\n"
                              "sym e 12 file 1 seg 0 space 0 abs\n");
}

TEST(orbell_read, a_bad_number_leaves_the_value_of_the_line_before)
{
    read_text("a 100\nb zz\n5 zz\nc 0 1 text x\n");
    EXPECT_EQ(symbols_text(), "sym a 100 file 1 seg 0 space 0 abs\n"
                              "sym b 100 file 1 seg 0 space 0 abs\n"
                              "sym c 0 file 1 seg 1 space 0\n");
    EXPECT_EQ(lines_text(), "line 5 100 file 1 seg 0\n");
}

TEST(orbell_read, lines_of_fewer_than_two_fields_are_passed_over)
{
    read_text("\nfoo\n   \nbar 1\n");
    EXPECT_EQ(model_text(), "file in.sym\nsym bar 1 file 1 seg 0 space 0 abs\n");
}

TEST(orbell_read, even_an_empty_line_has_a_file)
{
    read_text("\n");
    EXPECT_EQ(model_text(), "file in.sym\n");
}

TEST(orbell_read, an_empty_file_adds_nothing)
{
    read_text("");
    EXPECT_EQ(model_text(), "");
    read_text("%locals\n%segments\n"); // headings belong to no file
    EXPECT_EQ(model_text(), "");
}

// --- ends of lines ---------------------------------------------------------------------------------------------------

TEST(orbell_read, a_carriage_return_in_front_of_the_newline_is_cut)
{
    read_text("%locals\r\nmain.c\r\nfoo 1 0 ABS\r\nbar 2 1 text\r\n");
    EXPECT_EQ(model_text(), "file main.c\n"
                            "seg text #1 0@0+0 space 0\n"
                            "sym foo 1 file 1 seg 0 space 0 local abs\n"
                            "sym bar 2 file 1 seg 1 space 0 local\n");
    read_text("foo 1 1 text\r\r\n"); // one of them
    EXPECT_EQ(segments_text(), "seg text\r #1 0@0+0 space 0\n");
}

TEST(orbell_read, a_last_line_without_newline_is_dropped)
{
    read_text("foo 1\nbar 2");
    EXPECT_EQ(symbols_text(), "sym foo 1 file 1 seg 0 space 0 abs\n");
}

TEST(orbell_read, a_line_of_more_than_255_characters_ends_the_file)
{
    const std::string longest = "foo 1 0 ABS 0 " + std::string(255 - 14 - 1, 'x') + "\n";
    ASSERT_EQ(longest.size(), 255U);
    read_text("a 1\n" + longest + "b 2\n");
    EXPECT_EQ(symbols_text(), "sym a 1 file 1 seg 0 space 0 abs\n"
                              "sym foo 1 file 1 seg 0 space 0 abs\n"
                              "sym b 2 file 1 seg 0 space 0 abs\n");
    read_text("a 1\nx" + longest + "b 2\n");
    EXPECT_EQ(symbols_text(), "sym a 1 file 1 seg 0 space 0 abs\n");
}

TEST(orbell_read, a_nul_ends_the_file)
{
    read_text(std::string("a 1\nb\0 2\nc 3\n", 13));
    EXPECT_EQ(symbols_text(), "sym a 1 file 1 seg 0 space 0 abs\n");
}

// --- files -----------------------------------------------------------------------------------------------------------

TEST(orbell_read, a_source_takes_what_follows)
{
    read_text("a 1\nmain.c\nb 2\n5 2\nstart.as\nc 3\nmain.c\nd 4\n");
    EXPECT_EQ(model_text(), "file in.sym\nfile main.c\nfile start.as\n"
                            "sym a 1 file 1 seg 0 space 0 abs\n"
                            "sym b 2 file 2 seg 0 space 0 abs\n"
                            "sym c 3 file 3 seg 0 space 0 abs\n"
                            "sym d 4 file 2 seg 0 space 0 abs\n"
                            "line 5 2 file 2 seg 0\n");
}

TEST(orbell_read, sources_are_those_of_c_and_of_assembly)
{
    read_text("a.c\nb.C\nc.usb\nd.as\ne.asm\nf.s\ng.S\nh.sx\ndir\\i j.c\n"
              "x.h\nx.i\nx.inc\nx.p1\nx.pre\nx.lib\nx.txt\nx.\nx\n");
    EXPECT_EQ(files_text(), "file a.c\nfile b.C\nfile c.usb\nfile d.as\nfile e.asm\nfile f.s\nfile g.S\nfile h.sx\n"
                            "file dir\\i j.c\n");
}

TEST(orbell_read, a_line_that_ends_in_a_source_extension_is_a_file_line_whatever_it_means)
{
    read_text("foo 100 1 seg.c\n");
    EXPECT_EQ(model_text(), "file foo 100 1 seg.c\n");
}

TEST(orbell_read, an_object_file_that_does_not_exist_is_no_file_line)
{
    read_text("no-such-file.obj\nno-such-file.o\na 1\n");
    EXPECT_EQ(model_text(), "file in.sym\nsym a 1 file 1 seg 0 space 0 abs\n");
}

// An object file is a chain of records up to the one of type 6.
const std::string OBJECT("\0\0\6", 3);

std::string modules_text()
{
    std::string text;
    for (std::uint32_t i = 0; sdb_global != nullptr && i < sdb_global->block.bl_count; ++i) {
        const sdb_node *module = sdb_global->block.bl_members[i];
        if (module->sdb_sclass != sc_module && module->sdb_sclass != sc_asmodule) {
            continue;
        }
        text += text_of("%s %s:", module->sdb_sclass == sc_module ? "module" : "asmodule", module->sdb_name);
        for (std::uint32_t k = 0; k < module->block.bl_count; ++k) {
            const sdb_node *node = module->block.bl_members[k];
            text += text_of(" %s%s@%u", node->sdb_sclass == sc_filename ? "" : "?", node->sdb_name, node->sdb_line);
        }
        text += '\n';
    }
    return text;
}

TEST(orbell_read, an_object_file_brings_its_database)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("c.obj", OBJECT);
            write_file("c.sdb", "[p AVOCET KORM ]\n");
            write_file("a.o", OBJECT);
            write_file("bad.obj", "no object");
            processor_name = "KOR18";
            // A source ahead of all objects has no module; one behind a module with database is known there already.
            read_text("early.as\nc.obj\nx 1\nmain.c\ny 2\na.o\nstart.as\nsub.c\nz 3\nbad.obj\n");
            note("%s%s%s", files_text().c_str(), symbols_text().c_str(), modules_text().c_str());
        },
        "file early.as\nfile c.obj\nfile main.c\nfile a.o\nfile start.as\nfile sub.c\n"
        "sym x 1 file 2 seg 0 space 0 abs\n"
        "sym y 2 file 3 seg 0 space 0 abs\n"
        "sym z 3 file 6 seg 0 space 0 abs\n"
        "module c.obj:\n"
        "asmodule a.o: start.as@0 sub.c@0\n"
        "\n");
}

// --- local symbols and segments --------------------------------------------------------------------------------------

TEST(orbell_read, symbols_behind_the_locals_heading_are_local_to_the_end_of_the_file)
{
    read_text("a 1\n%locals\nb 2 1 text\nc 3\n%segments\n%locals\nd 4\n");
    EXPECT_EQ(symbols_text(), "sym a 1 file 1 seg 0 space 0 abs\n"
                              "sym b 2 file 1 seg 1 space 0 local\n"
                              "sym c 3 file 1 seg 0 space 0 local abs\n"
                              "sym d 4 file 1 seg 0 space 0 local abs\n");
    read_more("e 5\n", "next.sym"); // the next file begins without
    EXPECT_NE(symbols_text().find("sym e 5 file 2 seg 0 space 0 abs\n"), std::string::npos);
}

TEST(orbell_read, the_segment_section)
{
    read_text("%segments\n"
              "text 100 1FF ABS 8000 1\n"
              "bss 0 F\n"
              "12 20 2F ABS\n" // a name that begins with a digit is a name here
              "one 5 5 ABS 7\n");
    EXPECT_EQ(model_text(), "file in.sym\n"
                            "seg text #0 100@8000+100 space 1\n"
                            "seg bss #0 0@0+10 space 0\n"
                            "seg 12 #0 20@20+10 space 0\n"
                            "seg one #0 5@7+1 space 0\n");
}

TEST(orbell_read, a_segment_is_stored_with_the_number_of_the_segment_it_names)
{
    read_text("%segments\na 0 F other\nb 10 1F other\n");
    EXPECT_EQ(segments_text(), "seg other #1 0@0+0 space 0\n"
                               "seg a #1 0@0+10 space 0\n"
                               "seg b #1 10@10+10 space 0\n");
}

TEST(orbell_read, a_segment_that_is_known_stays_as_it_was)
{
    read_text("foo 1 1 text\n%segments\ntext 0 FF\ndata 0 1F data\ndata 0 2F\n");
    // The fourth field makes the segment before the line does.
    EXPECT_EQ(segments_text(), "seg text #1 0@0+0 space 0\nseg data #2 0@0+0 space 0\n");
}

TEST(orbell_read, numbers_of_the_segment_section_that_cannot_be_read)
{
    read_text("%segments\n"
              "a 100 1FF ABS zz yy\n" // the load address is the low one, the space 0
              "b 180 zz\n"            // the high address is that of the line before
              "c 190\n"               // and so it is here
              "d zz 20F\n");          // the low address likewise
    EXPECT_EQ(segments_text(), "seg a #0 100@100+100 space 0\n"
                               "seg b #0 180@180+80 space 0\n"
                               "seg c #0 190@190+70 space 0\n"
                               "seg d #0 190@190+80 space 0\n");
}

TEST(orbell_read, the_locals_heading_ends_the_segment_section)
{
    read_text("%segments\ntext 0 FF\n%locals\nfoo 1 1 text\n7 10 1 text\n");
    EXPECT_EQ(segments_text(), "seg text #0 0@0+100 space 0\n");
    EXPECT_EQ(symbols_text(), "sym foo 1 file 1 seg 1 space 0 local\n");
    EXPECT_EQ(lines_text(), "line 7 10 file 1 seg 1\n");
}

TEST(orbell_read, segments_that_a_split_has_made_are_counted)
{
    start_model();
    tarn_psect *code = tarn_add_psect("code", 1, 1);
    tarn_add_psect_range(code, {.pr_lo = 0, .pr_hi = 0x10, .pr_load = 0, .pr_object = nullptr, .pr_psect = nullptr});
    tarn_psect *rest = tarn_add_psect("rest", 1, 1);
    rest->ps_flags = PDB_WRITE | PDB_EXEC;
    tarn_add_psect_range(rest,
                         {.pr_lo = 0x10, .pr_hi = 0x20, .pr_load = 0x10, .pr_object = nullptr, .pr_psect = nullptr});
    read_more("%segments\ntext 0 1F ABS 0 1\n%locals\na 5 1 rest 1\nb 6 1 new\n");
    EXPECT_EQ(segments_text(), "seg text #0 0@0+10 space 1\n"
                               "seg rest #2 10@10+10 space 1\n"
                               "seg new #3 0@0+0 space 0\n");
    EXPECT_EQ(symbols_text(), "sym a 5 file 1 seg 2 space 1 local in code\n"
                              "sym b 6 file 1 seg 3 space 0 local in code\n");
}

// --- parked symbols --------------------------------------------------------------------------------------------------

// What the model holds after a new run has read these files, one after the other.
void expect_model_after(const std::vector<std::string> &contents, const std::string &expected)
{
    expect_run(
        [&contents] {
            start_model();
            for (const std::string &content : contents) {
                read_more(content);
            }
            note("%s", model_text().c_str());
        },
        expected + "\n");
}

TEST(orbell_parked, a_pair_of_bounds_makes_a_psect)
{
    expect_model_after({"__Lfoo 100\n__Hfoo 1FF\n%segments\n"},
                       "file in.sym\npsect foo space 0 delta 1 link 100-1FF@100\n");
    // With a segment the low bound is not absolute.
    expect_model_after({"__Hfoo 1FF\n__Lfoo 100 1 text 3\n%segments\n"},
                       "file in.sym\nseg text #1 0@0+0 space 3\npsect foo space 3 delta 1 100-1FF@100\n");
}

TEST(orbell_parked, a_bound_without_its_pair_is_an_ordinary_symbol)
{
    expect_model_after({"__Lbar 100\n__Hbaz 5 1 text 4\n%locals\nmain.c\n__Bfoo 7\n__Ix 8\nplain 9\n%segments\n"},
                       "file in.sym\nfile main.c\n"
                       "seg text #1 0@0+0 space 4\n"
                       "sym plain 9 file 2 seg 0 space 0 local abs\n"
                       // In the order of the table: __Hbaz 18, __Bfoo 23, __Ix 70, __Lbar 121 of its 127 buckets.
                       "sym __Hbaz 5 file 1 seg 1 space 4\n"
                       "sym __Bfoo 7 file 2 seg 0 space 0 local abs\n"
                       "sym __Ix 8 file 2 seg 0 space 0 local abs\n"
                       "sym __Lbar 100 file 1 seg 0 space 0 abs\n");
}

TEST(orbell_parked, the_load_address_is_that_of_the_later_bound_of_the_table)
{
    // __Bfoo is in bucket 23 and __Lfoo in 110; __Bbss is in 121 and __Lbss in 81.
    expect_model_after({"__Lfoo 100\n__Hfoo 1FF\n__Bfoo 8000\n__Lbss 200\n__Hbss 2FF\n__Bbss 9000\n%segments\n"},
                       "file in.sym\n"
                       "psect bss space 0 delta 1 link 200-2FF@9000\n"
                       "psect foo space 0 delta 1 link 100-1FF@100\n");
}

TEST(orbell_parked, the_letter_i_gives_the_library_relocation)
{
    expect_model_after({"__Lfoo 100\n__Hfoo 1FF\n__Ifoo AB\n%segments\n"},
                       "file in.sym\npsect foo space 0 delta 1 link lib AB 100-1FF@100\n");
}

TEST(orbell_parked, bounds_vanish_without_a_segments_heading)
{
    expect_model_after({"__Lfoo 100\n__Hfoo 1FF\n__Lbar 5\nplain 1\n"},
                       "file in.sym\nsym plain 1 file 1 seg 0 space 0 abs\n");
}

TEST(orbell_parked, what_is_parked_is_told_by_the_name)
{
    expect_model_after({"__L 1\n__Xfoo 2\n_Lfoo 3\n__LOG 4\n__LOGfoo 5\n__lfoo 6\n__LO 7\n__Hx 8\n__Bx 9\n__Ix A\n"},
                       "file in.sym\n"
                       "sym __L 1 file 1 seg 0 space 0 abs\n"
                       "sym __Xfoo 2 file 1 seg 0 space 0 abs\n"
                       "sym _Lfoo 3 file 1 seg 0 space 0 abs\n"
                       "sym __LOG 4 file 1 seg 0 space 0 abs\n"
                       "sym __LOGfoo 5 file 1 seg 0 space 0 abs\n"
                       "sym __lfoo 6 file 1 seg 0 space 0 abs\n");
}

TEST(orbell_parked, the_first_of_a_name_stays)
{
    expect_model_after({"__Lfoo 100\n__Hfoo 1FF\n__Lfoo 180\n%segments\n"},
                       "file in.sym\npsect foo space 0 delta 1 link 100-1FF@100\n");
    // It stays at a later heading too, while a symbol that was no bound has left the table.
    expect_model_after({"__Lfoo 100\n__Hfoo 1FF\n__Lbar 1\n%segments\n%locals\n__Lfoo 180\n__Lbar 2\n%segments\n"},
                       "file in.sym\n"
                       "sym __Lbar 1 file 1 seg 0 space 0 abs\n"
                       "sym __Lbar 2 file 1 seg 0 space 0 local abs\n"
                       "psect foo space 0 delta 1 link 100-1FF@100\n");
}

TEST(orbell_parked, each_heading_settles)
{
    // The library relocation finds its pair still there.
    expect_model_after({"__Lfoo 100\n__Hfoo 1FF\n%segments\n%locals\n__Ifoo 7\n%segments\n%segments\n"},
                       "file in.sym\npsect foo space 0 delta 1 link lib 7 100-1FF@100\n");
    // What the first heading made an ordinary symbol is no half of a pair any more.
    expect_model_after({"__Lfoo 100\n%segments\n%locals\n__Hfoo 1FF\n%segments\n"},
                       "file in.sym\n"
                       "sym __Lfoo 100 file 1 seg 0 space 0 abs\n"
                       "sym __Hfoo 1FF file 1 seg 0 space 0 local abs\n");
}

TEST(orbell_parked, symbols_wait_for_the_heading_of_a_later_file)
{
    expect_model_after({"__Lfoo 100\n", "__Hfoo 1FF\n%segments\n"},
                       "file in.sym\npsect foo space 0 delta 1 link 100-1FF@100\n");
}

TEST(orbell_parked, bounds_are_settled_again_by_the_next_file)
{
    expect_run(
        [] {
            start_model();
            read_more("__Lfoo 100\n__Hfoo 1FF\n%segments\n");
            tarn_find_psect("foo")->ps_space = 9;
            read_more("%segments\n");
            note("%s", psects_text().c_str());
        },
        "psect foo space 0 delta 1 link 100-1FF@100\n\n");
}

TEST(orbell_parked, bounds_are_bytes_whatever_the_delta)
{
    expect_run(
        [] {
            start_model();
            tarn_add_psect("foo", DATA_SPACE, 2); // a psect that is known is not made
            read_more("__Lfoo 100 1 text 7\n__Hfoo 1FF\na 80\nb FF\nc 100\n%segments\n");
            note("%s%s", psects_text().c_str(), symbols_text().c_str());
        },
        "psect foo space 7 delta 2 100-1FF@100\n"
        "sym a 80 file 1 seg 0 space 0 abs in foo\n"
        "sym b FF file 1 seg 0 space 0 abs in foo\n" // byte 1FE
        "sym c 100 file 1 seg 0 space 0 abs\n"
        "\n");
}

TEST(orbell_parked, with_psect_flags_the_names_given_there_are_the_psects)
{
    expect_run(
        [] {
            start_model();
            psect_flags_given = true;
            psect_flags_table.insert("foo", PDB_EXEC);
            psect_flags_table.insert("low", 0);
            read_more("__Hfoo 1FF\n__Llow 30\n__Lbar 1\n__Hbar 2\n%segments\n");
            note("%s%s", psects_text().c_str(), symbols_text().c_str());
            note("flags %u", tarn_find_psect("foo")->ps_flags);
        },
        // A lone high bound begins at 0; a lone low one ends at the last byte. Of 123 buckets foo has 57, and low 80.
        "psect foo space 0 delta 1 0-1FF@0\n"
        "psect low space 0 delta 1 link 30-FFFFFFFF@30\n"
        "sym __Hbar 2 file 1 seg 0 space 0 abs in foo\n"
        "sym __Lbar 1 file 1 seg 0 space 0 abs in foo\n"
        "\n"
        "flags 2\n");
}

TEST(orbell_parked, segments_behind_the_heading_take_the_ranges_of_the_psects)
{
    expect_run(
        [] {
            start_model();
            read_more("__Lfoo 100\n__Hfoo 1FF\n%segments\ntext 0 FFF\n");
            note("%s%u", segments_text().c_str(), seg_list.get(0)->sg_ranges.count());
        },
        "seg text #0 0@0+100 space 0\n1\n"); // the size is that of the ranges
}

// --- psects of symbols -----------------------------------------------------------------------------------------------

tarn_psect *add_range(const char *name, std::uint32_t delta, std::uint32_t low, std::uint32_t high)
{
    tarn_psect *pp = tarn_find_psect(name);
    if (pp == nullptr) {
        pp = tarn_add_psect(name, 1, delta);
    }
    tarn_psect_range *rp = tarn_add_psect_range(pp, {});
    rp->pr_lo = low;
    rp->pr_hi = high;
    return pp;
}

TEST(orbell_psects, the_last_psect_of_the_table_wins)
{
    start_model();
    // The hash of "a" is 5381 * 33 + 97, which is 123 * 1444 + 58: its bucket is the 58th, and that of "b" the next.
    add_range("b", 1, 0x100, 0x1FF);
    add_range("a", 1, 0x180, 0x2FF);
    read_more("s 17F\nt 180\nu 1FF\nv 200\n");
    EXPECT_EQ(symbols_text(), "sym s 17F file 1 seg 0 space 0 abs in b\n"
                              "sym t 180 file 1 seg 0 space 0 abs in b\n"
                              "sym u 1FF file 1 seg 0 space 0 abs in b\n"
                              "sym v 200 file 1 seg 0 space 0 abs in a\n");
}

TEST(orbell_psects, the_address_behind_a_psect_does_not_belong_to_it)
{
    start_model();
    add_range("a", 1, 0x100, 0x1FF);
    read_more("s FF\nt 100\nu 1FF\nv 200\n");
    EXPECT_EQ(symbols_text(), "sym s FF file 1 seg 0 space 0 abs\n"
                              "sym t 100 file 1 seg 0 space 0 abs in a\n"
                              "sym u 1FF file 1 seg 0 space 0 abs in a\n"
                              "sym v 200 file 1 seg 0 space 0 abs\n");
}

TEST(orbell_psects, symbols_of_other_inputs_take_part_and_keep_what_they_had)
{
    start_model();
    tarn_psect *old = add_range("old", 1, 0, 0xF);
    tarn_symbol far;
    far.sy_name = "far";
    far.sy_value = 0x5000;
    far.sy_psect = old;
    tarn_add_symbol(far);
    tarn_symbol inside = far;
    inside.sy_name = "inside";
    inside.sy_value = 0x105;
    tarn_add_symbol(inside);
    add_range("a", 1, 0x100, 0x1FF);
    read_more("");
    EXPECT_EQ(symbols_text(), "sym far 5000 file 0 seg 0 space 0 in old\n"
                              "sym inside 105 file 0 seg 0 space 0 in a\n");
}

TEST(orbell_psects, are_those_that_a_walk_finds)
{
    std::mt19937 random(11);
    const auto below = [&random](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
    constexpr std::uint32_t DELTAS[] = {1, 2, 3, 0x10001, 0};
    for (const std::uint32_t base : {0U, 0xFFFFFF00U}) {
        start_model();
        for (std::uint32_t i = 0; i < 200; ++i) {
            const std::string name = "p" + std::to_string(below(120));
            const std::uint32_t low = base + below(0x100);
            // Some are empty, and some go up to the last address.
            const std::uint32_t high = below(10) == 0 ? 0xFFFFFFFF : low + below(12) - 1;
            add_range(name.c_str(), DELTAS[below(5)], low, high);
        }
        std::string content;
        for (std::uint32_t i = 0; i < 0x140; ++i) {
            content += text_of("s%u %X\n", i, base + i - 0x20);
            content += text_of("h%u %X\n", i, (base + i) / 2);
        }
        content += "last FFFFFFFF\n";
        read_more(content);

        std::uint32_t with_psect = 0;
        vector_of<tarn_psect *> psects = psect_table.values();
        for (const tarn_symbol *sp : each(symbol_list)) {
            const tarn_psect *expected = nullptr;
            for (tarn_psect *pp : each(psects)) {
                if (tarn_psect_range_at(pp, sp->sy_value, false) != nullptr) {
                    expected = pp;
                }
            }
            ASSERT_EQ(sp->sy_psect, expected) << sp->sy_name << ' ' << sp->sy_value;
            with_psect += expected != nullptr ? 1 : 0;
        }
        psects.free();
        EXPECT_GT(with_psect, 100U);
        EXPECT_LT(with_psect, symbol_list.count());
    }
}

// --- writing ---------------------------------------------------------------------------------------------------------

void add_symbol(const char *name, std::uint32_t file, std::uint32_t segment, std::uint32_t value,
                std::uint32_t flags = 0)
{
    tarn_symbol symbol;
    symbol.sy_name = name;
    symbol.sy_file = file;
    symbol.sy_seg = segment;
    symbol.sy_value = value;
    symbol.sy_flags = flags;
    tarn_add_symbol(symbol);
}

void add_line(std::uint32_t number, std::uint32_t file, std::uint32_t segment, std::uint32_t address)
{
    tarn_line line;
    line.ln_line = number;
    line.ln_file = file;
    line.ln_seg = segment;
    line.ln_addr = address;
    tarn_add_line(line);
}

void add_segment(const char *name)
{
    tarn_segment segment;
    segment.sg_index = seg_list.count() + 1;
    segment.sg_name = name;
    tarn_add_segment(segment);
}

std::string written()
{
    char *text = nullptr;
    std::size_t size = 0;
    std::FILE *stream = open_memstream(&text, &size);
    const bool result = format_orbell.write(stream, "out.sym");
    std::fclose(stream);
    const std::string content(text, size);
    std::free(text);
    return result ? content : "false";
}

// What a new run writes of a model with two segments, "text" and "data", and whatever `fill` adds to it.
template <typename Fill>
void expect_written(Fill fill, const std::string &expected)
{
    expect_run(
        [&fill] {
            start_model();
            add_segment("text");
            add_segment("data");
            fill();
            note("%s", written().c_str());
        },
        expected + "\n");
}

TEST(orbell_write, nothing_of_nothing)
{
    expect_written([] { tarn_add_file("main.c"); }, "");
}

TEST(orbell_write, each_kind_of_item)
{
    expect_written(
        [] {
            tarn_add_file("main.c");
            add_symbol("segment", 1, 1, 0xABCDEF01);
            add_symbol("nowhere", 1, 0, 0);
            add_symbol("absolute", 1, 0, 0x10, SYM_ABS | SYM_LOCAL);
            add_symbol("both", 1, 2, 0x20, SYM_ABS); // without its segment
            add_line(12, 1, 2, 0x3A0);
            add_line(7, 1, 0, 0xFFFFFFFF);
            add_line(0xFFFFFFFE, 1, 0, 0x30);
        },
        "%locals\n"
        "main.c\n"
        "nowhere 0 0\n"
        "absolute 10\n"
        "-2 30 0\n"
        "7 FFFFFFFF 0\n"
        "segment ABCDEF01 1 text\n"
        "both 20\n"
        "12 3A0 2 data\n");
}

TEST(orbell_write, items_come_by_file_then_segment_then_address)
{
    expect_written(
        [] {
            tarn_add_file("a.c");
            tarn_add_file("b.c");
            add_line(1, 2, 1, 0x100);
            add_symbol("b_data", 2, 2, 0x10);
            add_line(3, 1, 1, 0x20);
            add_symbol("a_data", 1, 2, 0x5);
            add_line(2, 1, 1, 0x10);
            add_symbol("a_high", 1, 1, 0x80000000);
            add_symbol("a_mid", 1, 1, 0x18);
            add_line(4, 1, 2, 0x4);
        },
        "%locals\n"
        "a.c\n"
        "2 10 1 text\n"
        "a_mid 18 1 text\n"
        "3 20 1 text\n"
        "a_high 80000000 1 text\n" // addresses have no sign
        "4 4 2 data\n"
        "a_data 5 2 data\n"
        "b.c\n"
        "1 100 1 text\n"
        "b_data 10 2 data\n");
}

TEST(orbell_write, symbols_stand_in_front_of_lines_of_the_same_address)
{
    expect_written(
        [] {
            tarn_add_file("a.c");
            add_line(1, 1, 1, 0x10);
            add_symbol("one", 1, 1, 0x10);
            add_line(2, 1, 1, 0x11);
            add_symbol("two", 1, 1, 0x12);
        },
        "%locals\na.c\none 10 1 text\n1 10 1 text\n2 11 1 text\ntwo 12 1 text\n");
}

TEST(orbell_write, equal_items_come_as_the_programs_sort_leaves_them)
{
    // Elements that equal the pivot are exchanged as well: three of them end up turned round.
    expect_written(
        [] {
            tarn_add_file("a.c");
            add_symbol("first", 1, 1, 0x10);
            add_symbol("second", 1, 1, 0x10);
            add_symbol("third", 1, 1, 0x10);
            add_line(1, 1, 1, 0x20);
            add_line(2, 1, 1, 0x20);
        },
        "%locals\na.c\nthird 10 1 text\nsecond 10 1 text\nfirst 10 1 text\n2 20 1 text\n1 20 1 text\n");
}

TEST(orbell_write, what_has_no_file_stands_ahead_of_the_locals_heading)
{
    expect_written(
        [] {
            tarn_add_file("a.c");
            add_symbol("local", 1, 1, 0x10);
            add_symbol("global", 0, 1, 0x20);
            add_line(9, 0, 1, 0x30);
        },
        "global 20 1 text\n9 30 1 text\n%locals\na.c\nlocal 10 1 text\n");
    expect_written([] { add_symbol("global", 0, 0, 1, SYM_ABS); }, "global 1\n"); // and then there is no heading
}

TEST(orbell_write, files_without_items_are_named_up_to_the_last_with_one)
{
    expect_written(
        [] {
            for (const char *name : {"a.c", "b.c", "c.c", "d.c", "e.c"}) {
                tarn_add_file(name);
            }
            add_symbol("x", 2, 1, 1);
            add_line(5, 4, 1, 2);
        },
        "%locals\na.c\nb.c\nx 1 1 text\nc.c\nd.c\n5 2 1 text\n");
}

TEST(orbell_write, numbers_that_are_no_file_and_no_segment_have_no_name)
{
    expect_written([] { add_symbol("x", 7, 9, 1); }, "%locals\nx 1 9\n");
}

TEST(orbell_write, sorts_the_tables_themselves)
{
    expect_run(
        [] {
            start_model();
            tarn_add_file("a.c");
            add_symbol("high", 1, 0, 2, SYM_ABS);
            add_symbol("low", 1, 0, 1, SYM_ABS);
            add_line(8, 1, 0, 4);
            add_line(9, 1, 0, 3);
            written();
            note("%s%s", symbols_text().c_str(), lines_text().c_str());
        },
        "sym low 1 file 1 seg 0 space 0 abs\nsym high 2 file 1 seg 0 space 0 abs\n"
        "line 9 3 file 1 seg 0 ?\nline 8 4 file 1 seg 0 ?\n\n"); // lines of a test have no flags
}

TEST(orbell_write, names_are_written_once_in_a_run)
{
    expect_run(
        [] {
            start_model();
            tarn_add_file("a.c");
            add_symbol("x", 1, 0, 1, SYM_ABS);
            note("%s", written().c_str());
            note("%s", written().c_str());
        },
        "%locals\na.c\nx 1\n\nx 1\n\n");
}

TEST(orbell_write, large_outputs_are_whole)
{
    expect_run(
        [] {
            start_model();
            tarn_add_file("a.c");
            std::string expected = "%locals\na.c\n";
            for (std::uint32_t i = 0; i < 100000; ++i) {
                const std::string name = text_of("symbol_%05u", i);
                add_symbol(name.c_str(), 1, 0, i, SYM_ABS);
                expected += text_of("%s %X\n", name.c_str(), i);
            }
            note("%s", expected.size() > 1500000 && written() == expected ? "same" : "other");
        },
        "same\n");
}

// --- both ways -------------------------------------------------------------------------------------------------------

// A model that the format can hold: all items have a file, and all but absolute symbols a segment. Segments are
// numbered as the output comes to name them, and have no space.
void make_random_model(std::mt19937 *random)
{
    const auto below = [random](std::uint32_t limit) { return static_cast<std::uint32_t>((*random)() % limit); };
    constexpr std::uint32_t FILES = 12;
    for (std::uint32_t i = 1; i <= FILES; ++i) {
        tarn_add_file(text_of(i % 3 == 0 ? "dir\\f%u.as" : "f%u.c", i).c_str());
    }
    add_segment("text");
    add_segment("data");
    for (std::uint32_t segment = 1; segment <= 2; ++segment) {
        add_symbol(segment == 1 ? "start" : "start_data", 1, segment, 0, SYM_LOCAL);
    }
    for (std::uint32_t i = 0; i < 400; ++i) {
        const std::string name = text_of("s%u", i);
        const std::uint32_t segment = below(3);
        add_symbol(name.c_str(), 1 + below(FILES), segment, below(0xFFFFFFFF),
                   SYM_LOCAL | (segment == 0 ? SYM_ABS : 0U));
        tarn_line line;
        line.ln_file = 1 + below(FILES);
        line.ln_seg = 1 + below(2);
        line.ln_addr = below(50);
        line.ln_line = below(0x80000000);
        line.ln_flags = LN_SOURCE;
        tarn_add_line(line);
    }
    add_symbol("end", FILES, 1, 0xFFFFFFFF, SYM_LOCAL);
}

TEST(orbell, what_was_written_reads_back_as_it_was)
{
    for (std::uint32_t seed = 1; seed <= 5; ++seed) {
        expect_run(
            [seed] {
                std::mt19937 random(seed);
                start_model();
                make_random_model(&random);
                const std::string output = written();
                const std::string before = model_text(); // of the sorted tables
                read_text(output);
                note("%s", model_text() == before ? "same" : (before + "---\n" + model_text()).c_str());
            },
            "same\n");
    }
}

TEST(orbell_read, bytes_at_random_come_to_an_end)
{
    expect_run(
        [] {
            constexpr const char *PIECES[] = {"%segments", "%locals", "__L", "__H",  "a",       "\n",   "\n",
                                              " ",         " ",       "1F",  "text", "ABS",     "\r\n", "-",
                                              "+",         "x.c",     "7",   "\t",   "FFFFFFFF"};
            std::mt19937 random(3);
            start_model();
            for (int round = 0; round < 300; ++round) {
                std::string content;
                for (std::size_t i = random() % 200; i > 0; --i) {
                    content += PIECES[random() % std::size(PIECES)];
                }
                identify(content);
                read_more(content);
            }
            written();
            note("%s", symbol_list.count() > 100 && line_list.count() > 100 && seg_list.count() > 100 ? "done" : "few");
        },
        "done\n");
}

} // namespace
