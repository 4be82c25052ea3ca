// SPDX-License-Identifier: MIT
// Legacy symbol files: identification and reading. Tests that park or write are in processes of their own, since symbols
// that were parked, and the names that were written, stay for the whole of a run.
#include <cstdint>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "compiler/tarnwick/sdb.h"
#include "tests/unit/tarnwick/orbell_testing.h"

namespace {

using namespace orbell_testing;

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

// --- anything ----------------------------------------------------------------------------------------------------------

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
