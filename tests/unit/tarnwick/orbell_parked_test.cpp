// SPDX-License-Identifier: MIT
// Symbols that a legacy symbol file parks, and the psects that come of them. Parked symbols stay for the whole of a run:
// each test parks in a process of its own.
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "common/linereader.h"
#include "tests/unit/tarnwick/orbell_testing.h"
#include "tests/unit/tarnwick/random_numbers.h"

namespace {

using namespace orbell_testing;

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

// The model after reading these files, in a process of its own.
std::string model_after(const std::vector<std::string> &contents)
{
    std::FILE *shared = std::tmpfile();
    const pid_t child = ::fork();
    if (child == 0) {
        start_model();
        for (const std::string &content : contents) {
            read_more(content);
        }
        std::fputs(model_text().c_str(), shared);
        std::fflush(shared);
        ::_exit(0);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    std::rewind(shared);
    const std::vector<char> text = read_rest(shared, nullptr);
    std::fclose(shared);
    return {text.begin(), text.end()};
}

// A heading settles what was parked since the one before, and the bounds that it bears on. The first heading of a file
// settles all that is parked, so that a file in pieces goes the plain way.
TEST(orbell_parked, a_file_is_settled_as_its_pieces_are)
{
    constexpr int ROUNDS = 40;
    constexpr int PIECES = 8;
    constexpr const char *NAMES[] = {"foo", "bss",
                                     "bar"}; // in the table __Bfoo is ahead of __Lfoo, and __Lbss of __Bbss
    random_numbers next(1);
    std::size_t psects = 0;
    for (int round = 0; round < ROUNDS; ++round) {
        std::vector<std::string> pieces;
        std::string whole;
        for (int piece = 0; piece < PIECES; ++piece) {
            std::string text = "%locals\nmain.c\n";
            for (std::uint32_t left = next() % 8; left > 0; --left) {
                const char letter = "BHIL"[next() % 4];
                text += text_of("__%c%s %X 1 text %u\n", letter, NAMES[next() % 3], next() % 1000, next() % 3);
            }
            pieces.push_back(text + (next() % 4 != 0 ? "%segments\n" : ""));
            whole += pieces.back();
        }
        const std::string expected = model_after(pieces);
        EXPECT_EQ(model_after({whole}), expected) << whole;
        psects += expected.find("psect ") != std::string::npos ? 1 : 0;
    }
    EXPECT_GT(psects, ROUNDS / 2U);
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

} // namespace
