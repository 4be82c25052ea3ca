// SPDX-License-Identifier: MIT
// The store of the map file: what each kind of record is checked for, the order in which records are handed out, and the
// ranges of functions. The order is that of the hash of the name (5381, times 33 plus each byte), then of the name.
#include "compiler/common/tmf.h"

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/compiler/tmf_testing.h"

namespace {

using TmfStore = MapFile;

using ranges = std::vector<tmf_range>;

// ---- Psects

TEST_F(TmfStore, PsectIsStoredAsGiven)
{
    tmf_psect record = make_psect("a.obj", "text", 0x10, 0x20, 2);
    record.tmfps_space = 3;
    record.tmfps_load = 0x40;
    record.tmfps_reloc = 8;
    const tmf_psect *psect = nullptr;
    EXPECT_EQ(errors_of([&] { psect = tmf_add_psect(record); }), texts{});
    ASSERT_NE(psect, nullptr);
    EXPECT_STREQ(psect->tmfps_obj, "a.obj");
    EXPECT_STREQ(psect->tmfps_name, "text");
    EXPECT_STREQ(psect->tmfps_class, "CODE");
    EXPECT_EQ(psect->tmfps_space, 3U);
    EXPECT_EQ(psect->tmfps_link, 0x10U);
    EXPECT_EQ(psect->tmfps_load, 0x40U);
    EXPECT_EQ(psect->tmfps_length, 0x20U);
    EXPECT_EQ(psect->tmfps_delta, 2U);
    EXPECT_EQ(psect->tmfps_reloc, 8U);
    EXPECT_EQ(psect->tmfps_split.next, nullptr);
    EXPECT_EQ(psect->tmfps_split.parent, nullptr);
}

TEST_F(TmfStore, PsectChecksGoOnInOrder)
{
    const tmf_psect bad = {.tmfps_obj = "", .tmfps_name = "", .tmfps_class = "", .tmfps_split = {}};
    const tmf_psect *psect = nullptr;
    EXPECT_EQ(errors_of([&] { psect = tmf_add_psect(bad); }), (texts{
                                                                  "psect name is NULL or an empty string",
                                                                  "psect object file name is NULL or an empty string",
                                                                  "psect's class name is an empty string",
                                                                  "psect with a zero length",
                                                                  "psect with a zero delta",
                                                                  "psect reloc is not a power of 2",
                                                              }));
    ASSERT_NE(psect, nullptr);
    EXPECT_STREQ(psect->tmfps_class, "");
    EXPECT_EQ(count_of(tmf_psects()), 1U);
}

TEST_F(TmfStore, PsectWithNullTexts)
{
    const tmf_psect *psect = nullptr;
    const texts errors = errors_of(
        [&] { psect = tmf_add_psect({.tmfps_length = 1, .tmfps_delta = 1, .tmfps_reloc = 1, .tmfps_split = {}}); });
    EXPECT_EQ(errors,
              (texts{"psect name is NULL or an empty string", "psect object file name is NULL or an empty string"}));
    ASSERT_NE(psect, nullptr);
    EXPECT_STREQ(psect->tmfps_class, "-"); // no class is no mistake
    EXPECT_STREQ(psect->tmfps_name, "");
    EXPECT_STREQ(psect->tmfps_obj, "");
}

TEST_F(TmfStore, PsectIsOneOfItsObject)
{
    EXPECT_EQ(errors_of([] {
                  EXPECT_NE(tmf_add_psect(make_psect("a.obj", "text")), nullptr);
                  EXPECT_NE(tmf_add_psect(make_psect("b.obj", "text")), nullptr);
                  EXPECT_NE(tmf_add_psect(make_psect("a.obj", "data")), nullptr);
                  EXPECT_EQ(tmf_add_psect(make_psect("a.obj", "text", 5, 0, 0)), nullptr);
              }),
              (texts{"psect (text) from object file \"a.obj\" already defined"})); // and no further check
    EXPECT_EQ(count_of(tmf_psects()), 3U);
}

TEST_F(TmfStore, PsectRelocIsAPowerOfTwo)
{
    std::uint32_t number = 0;
    for (const std::uint32_t reloc : {1U, 2U, 4U, 0x1000U, 0x80000000U}) {
        tmf_psect record = make_psect("a.obj", str_printf("good%u", number++));
        record.tmfps_reloc = reloc;
        EXPECT_EQ(errors_of([&] { tmf_add_psect(record); }), texts{}) << reloc;
    }
    for (const std::uint32_t reloc : {0U, 3U, 6U, 0xFFFFFFFFU}) {
        tmf_psect record = make_psect("a.obj", str_printf("bad%u", number++));
        record.tmfps_reloc = reloc;
        EXPECT_EQ(errors_of([&] { tmf_add_psect(record); }), texts{"psect reloc is not a power of 2"}) << reloc;
    }
}

TEST_F(TmfStore, PsectsComeObjectByObjectInListOrder)
{
    // The hash of "b" is below that of "aa"; "ab" and "bA" have one hash.
    for (const char *object : {"aa", "b"}) {
        for (const char *name : {"bA", "aa", "ab", "b"}) {
            tmf_add_psect(make_psect(object, name));
        }
    }
    EXPECT_EQ(texts_of(tmf_psects(),
                       [](const tmf_psect *psect) { return std::string(psect->tmfps_obj) + "." + psect->tmfps_name; }),
              (texts{"b.b", "b.aa", "b.ab", "b.bA", "aa.b", "aa.aa", "aa.ab", "aa.bA"}));
}

// ---- Unused memory

TEST_F(TmfStore, UnusedClassKeepsItsFirstDelta)
{
    tmf_unused *first = nullptr;
    tmf_unused *second = nullptr;
    EXPECT_EQ(errors_of([&] {
                  first = tmf_add_unused(str_cache("RAM"), 2, 0x10, 0x1F);
                  second = tmf_add_unused(str_cache("RAM"), 4, 0x30, 0x30);
                  tmf_add_unused(str_cache("ROM"), 1, 0, 0xFFFFFFFF);
              }),
              texts{});
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    EXPECT_STREQ(first->tmfun_class, "RAM");
    EXPECT_EQ(first->tmfun_delta, 2U);
    ASSERT_EQ(first->tmfun_ranges.count(), 2U);
    EXPECT_EQ(*first->tmfun_ranges.get(0), (tmf_range{0x10, 0x1F}));
    EXPECT_EQ(*first->tmfun_ranges.get(1), (tmf_range{0x30, 0x30}));
}

TEST_F(TmfStore, UnusedChecks)
{
    EXPECT_EQ(errors_of([] {
                  EXPECT_EQ(tmf_add_unused("", 0, 5, 4), nullptr);
                  EXPECT_EQ(tmf_add_unused(nullptr, 0, 5, 4), nullptr);
              }),
              (texts(2, "unused memory in a class with a NULL name or empty string")));
    tmf_unused *unused = nullptr;
    EXPECT_EQ(errors_of([&] { unused = tmf_add_unused(str_cache("RAM"), 0, 0xABCDEF01, 0xAB); }),
              (texts{"unused memory low address (0xABCDEF01) is > high address (0xAB)",
                     "unused memory range with a delta of 0"}));
    ASSERT_NE(unused, nullptr);
    EXPECT_EQ(unused->tmfun_ranges.count(), 1U);
    EXPECT_EQ(errors_of([] { tmf_add_unused(str_cache("RAM"), 0, 1, 1); }),
              (texts{"unused memory range with a delta of 0"})); // checked, though it is dropped
}

// ---- Lines

TEST_F(TmfStore, LineRefusalsAreSilentButTraced)
{
    const tmf_line good = make_line("a.obj", 0);
    const auto without = [&](auto change) {
        tmf_line line = good;
        change(line);
        return line;
    };
    const auto add_bad_lines = [&] {
        EXPECT_EQ(tmf_add_line(without([](tmf_line &line) { line = tmf_line{}; })), nullptr);
        EXPECT_EQ(tmf_add_line(without([](tmf_line &line) { line.tmfln_obj = ""; })), nullptr);
        EXPECT_EQ(tmf_add_line(without([](tmf_line &line) { line.tmfln_file = ""; })), nullptr);
        EXPECT_EQ(tmf_add_line(without([](tmf_line &line) { line.tmfln_psect = nullptr; })), nullptr);
        EXPECT_EQ(tmf_add_line(without([](tmf_line &line) { line.tmfln_class = ""; })), nullptr);
        EXPECT_EQ(tmf_add_line(without([](tmf_line &line) { line.tmfln_line = 0; })), nullptr);
    };
    EXPECT_EQ(errors_of(add_bad_lines), texts{});
    const trace_log log(TRACE_ON);
    add_bad_lines();
    EXPECT_EQ(trace_log::lines(), (texts{"no object file defined for the line", "no object file defined for the line",
                                         "no source file defined for the line", "no psect defined for the line",
                                         "no class defined for the line", "zero line number"}));
    EXPECT_EQ(count_of(tmf_line_objects()), 0U);
}

texts lines_of(const char *object)
{
    return texts_of(tmf_lines_of(object), [](const tmf_line *line) {
        return std::to_string(line->tmfln_addr) + " " + line->tmfln_file + " " + std::to_string(line->tmfln_line) +
               " " + line->tmfln_psect;
    });
}

TEST_F(TmfStore, LinesGoToTheGroupOfTheirObject)
{
    for (const char *object : {"c", "a", "c", "b", "a"}) {
        ASSERT_NE(tmf_add_line(make_line(object, 1)), nullptr);
    }
    EXPECT_EQ(texts_of(tmf_line_objects(), [](const char *object) { return std::string(object); }),
              (texts{"a", "b", "c"}));
    EXPECT_EQ(lines_of("a").size(), 2U);
    EXPECT_EQ(lines_of("b").size(), 1U);
    EXPECT_EQ(lines_of("c").size(), 2U);
    EXPECT_EQ(lines_of("d").size(), 0U);
}

TEST_F(TmfStore, LinesSortByAddressFileLineAndPsect)
{
    tmf_add_line(make_line("o", 0xFFFFFFFF, "a.c", 1, "text"));
    tmf_add_line(make_line("o", 16, "b.c", 1, "text"));
    tmf_add_line(make_line("o", 16, "a.c", 0xFFFFFFFF, "text"));
    tmf_add_line(make_line("o", 16, "a.c", 2, "text"));
    tmf_add_line(make_line("o", 16, "a.c", 2, "data"));
    tmf_add_line(make_line("o", 3, "z.c", 9, "text"));
    EXPECT_EQ(lines_of("o"), (texts{"3 z.c 9 text", "16 a.c 2 data", "16 a.c 2 text", "16 a.c 4294967295 text",
                                    "16 b.c 1 text", "4294967295 a.c 1 text"}));
}

TEST_F(TmfStore, EqualLinesStandAsTheQuicksortLeavesThem)
{
    // Of three equal elements it exchanges the outer two.
    for (const char *cls : {"C1", "C2", "C3"}) {
        tmf_add_line(make_line("o", 5, "a.c", 1, "text", cls));
    }
    EXPECT_EQ(texts_of(tmf_lines_of("o"), [](const tmf_line *line) { return std::string(line->tmfln_class); }),
              (texts{"C3", "C2", "C1"}));
}

TEST_F(TmfStore, GroupIsSortedOnceUntilALineIsAdded)
{
    tmf_add_line(make_line("o", 2));
    tmf_add_line(make_line("o", 1));
    vector_of<tmf_line *> copy = tmf_lines_of("o");
    ASSERT_EQ(copy.count(), 2U);
    // Neither what is done to the copy nor a change to a record is seen: the group counts as sorted.
    copy.get(0)->tmfln_addr = 7;
    copy.clear();
    copy.free();
    EXPECT_EQ(lines_of("o"), (texts{"7 m.c 1 text", "2 m.c 1 text"}));
    tmf_add_line(make_line("o", 5));
    EXPECT_EQ(lines_of("o"), (texts{"2 m.c 1 text", "5 m.c 1 text", "7 m.c 1 text"}));
}

TEST_F(TmfStore, LinesOfOneGroupBelongToOneObject)
{
    tmf_line *line = tmf_add_line(make_line("o", 1));
    tmf_add_line(make_line("o", 2));
    line->tmfln_obj = str_cache("p");
    const trace_log log(0);
    tmf_lines_of("o").free();
    EXPECT_EQ(trace_log::lines(), (texts{"ASSERT left->tmfln_obj == rght->tmfln_obj"}));
}

// ---- Symbols

TEST_F(TmfStore, SymbolIsStoredAsGiven)
{
    tmf_symbol record = make_symbol("_main", 0x123, "maintext");
    record.tmfsy_loadadj = -16;
    record.tmfsy_space = 2;
    const tmf_symbol *symbol = nullptr;
    EXPECT_EQ(errors_of([&] { symbol = tmf_add_symbol(record); }), texts{});
    ASSERT_NE(symbol, nullptr);
    EXPECT_EQ(tmf_find_symbol("_main"), symbol);
    EXPECT_EQ(tmf_find_symbol("_Main"), nullptr);
    EXPECT_EQ(symbol->tmfsy_value, 0x123U);
    EXPECT_EQ(symbol->tmfsy_loadadj, -16);
    EXPECT_EQ(symbol->tmfsy_space, 2U);
    EXPECT_STREQ(symbol->tmfsy_class, "CODE");
    EXPECT_STREQ(symbol->tmfsy_psect, "maintext");
    EXPECT_STREQ(symbol->tmfsy_file, "m.obj");
}

TEST_F(TmfStore, SymbolChecks)
{
    EXPECT_EQ(errors_of([] {
                  EXPECT_EQ(tmf_add_symbol({}), nullptr);
                  EXPECT_EQ(tmf_add_symbol({.tmfsy_name = ""}), nullptr);
                  EXPECT_NE(tmf_add_symbol(make_symbol("twice")), nullptr);
                  EXPECT_EQ(tmf_add_symbol({.tmfsy_name = str_cache("twice"), .tmfsy_class = ""}), nullptr);
              }),
              (texts{"symbol name is NULL or an empty string", "symbol name is NULL or an empty string",
                     "symbol with the same name (twice) already in the table"}));
    const tmf_symbol *symbol = nullptr;
    EXPECT_EQ(errors_of([&] {
                  symbol = tmf_add_symbol(
                      {.tmfsy_name = str_cache("x"), .tmfsy_class = "", .tmfsy_psect = "", .tmfsy_file = ""});
              }),
              (texts{"symbol's (x) linker class is an empty string", "symbol's (x) psect is an empty string",
                     "symbol's (x) object file name is an empty string"}));
    EXPECT_NE(symbol, nullptr);
}

TEST_F(TmfStore, SymbolWithNullTextsHasNone)
{
    const tmf_symbol *symbol = nullptr;
    EXPECT_EQ(errors_of([&] { symbol = tmf_add_symbol({.tmfsy_name = str_cache("abs")}); }), texts{});
    ASSERT_NE(symbol, nullptr);
    EXPECT_STREQ(symbol->tmfsy_class, "-");
    EXPECT_STREQ(symbol->tmfsy_psect, "-");
    EXPECT_STREQ(symbol->tmfsy_file, "-");
}

TEST_F(TmfStore, SymbolsComeInListOrder)
{
    for (const char *name : {"bA", "c", "ab", "a", "aa"}) {
        tmf_add_symbol(make_symbol(name));
    }
    EXPECT_EQ(texts_of(tmf_symbols(), [](const tmf_symbol *symbol) { return std::string(symbol->tmfsy_name); }),
              (texts{"a", "c", "aa", "ab", "bA"}));
}

// ---- Splits, dabs, segments, notes

TEST_F(TmfStore, SplitChecks)
{
    EXPECT_EQ(errors_of([] {
                  tmf_add_split("", "");
                  tmf_add_split(nullptr, "c");
                  tmf_add_split("p", "");
                  tmf_add_split("p", nullptr);
                  tmf_add_split(str_cache("p2"), str_cache("c2"));
                  tmf_add_split(str_cache("p1"), str_cache("c1"));
              }),
              (texts{"parent of a psect split is NULL or an empty string",
                     "parent of a psect split is NULL or an empty string",
                     "child of a psect split is NULL or an empty string",
                     "child of a psect split is NULL or an empty string"}));
    EXPECT_EQ(
        texts_of(tmf_splits(),
                 [](const tmf_split *split) { return std::string(split->tmfsp_parent) + ">" + split->tmfsp_child; }),
        (texts{"p2>c2", "p1>c1"})); // the order of the file
}

TEST_F(TmfStore, DabsRecords)
{
    const auto add = [](const char *name, std::uint32_t addr) {
        tmf_add_dabs({.tmfda_name = name, .tmfda_space = 1, .tmfda_addr = addr, .tmfda_size = 2});
    };
    EXPECT_EQ(errors_of([&] {
                  add(str_cache("z"), 1);
                  add(nullptr, 2);
                  add(str_cache("b"), 3);
                  add(str_cache("z"), 4); // dropped without a word
                  add(str_cache("-"), 5);
                  add(str_cache("--"), 6);
                  add(str_cache(""), 7); // stored all the same
              }),
              (texts{"dabs label is an empty string"}));
    EXPECT_EQ(texts_of(tmf_dabs(),
                       [](const tmf_dabs_record *dabs) {
                           return std::string(dabs->tmfda_name) + std::to_string(dabs->tmfda_addr);
                       }),
              (texts{"-2", "-5", "7", "b3", "z1", "--6"}));
    ASSERT_NE(tmf_find_dabs("z"), nullptr);
    EXPECT_EQ(tmf_find_dabs("z")->tmfda_addr, 1U);
    EXPECT_EQ(tmf_find_dabs("z")->tmfda_size, 2U);
    EXPECT_EQ(tmf_find_dabs("-"), nullptr);
    EXPECT_EQ(tmf_find_dabs("y"), nullptr);
}

TEST_F(TmfStore, SegmentChecks)
{
    const tmf_segment good = {.tmfsg_name = str_cache("b"),
                              .tmfsg_space = 1,
                              .tmfsg_link = 2,
                              .tmfsg_file = 3,
                              .tmfsg_size = 4,
                              .tmfsg_delta = 5};
    const tmf_segment *segment = nullptr;
    EXPECT_EQ(errors_of([&] {
                  EXPECT_EQ(tmf_add_segment({}), nullptr);
                  EXPECT_EQ(tmf_add_segment({.tmfsg_name = ""}), nullptr);
                  segment = tmf_add_segment(good);
                  EXPECT_EQ(tmf_add_segment({.tmfsg_name = str_cache("b")}), nullptr);
                  EXPECT_NE(tmf_add_segment({.tmfsg_name = str_cache("a")}), nullptr);
              }),
              (texts{"segment name is NULL or an empty string", "segment name is NULL or an empty string",
                     "segment (b) already defined", "segment (a) has a zero delta"}));
    ASSERT_NE(segment, nullptr);
    EXPECT_EQ(segment->tmfsg_space, 1U);
    EXPECT_EQ(segment->tmfsg_link, 2U);
    EXPECT_EQ(segment->tmfsg_file, 3U);
    EXPECT_EQ(segment->tmfsg_size, 4U);
    EXPECT_EQ(segment->tmfsg_delta, 5U);
    EXPECT_EQ(texts_of(tmf_segments(), [](const tmf_segment *s) { return std::string(s->tmfsg_name); }),
              (texts{"a", "b"}));
}

const tmf_note *only_note()
{
    vector_of<tmf_note *> notes = tmf_notes();
    EXPECT_EQ(notes.count(), 1U);
    const tmf_note *note = notes.get(0);
    notes.free();
    return note;
}

TEST_F(TmfStore, NoteGrowsPieceByPiece)
{
    std::vector<std::uint8_t> expected;
    std::uint8_t value = 0;
    for (std::uint32_t length = 1; length <= 40; length++) {
        std::vector<std::uint8_t> piece;
        for (std::uint32_t i = 0; i < length; i++) {
            piece.push_back(value++);
        }
        tmf_append_note(str_cache("cov"), length, piece.data());
        expected.insert(expected.end(), piece.begin(), piece.end());
    }
    const tmf_note *note = only_note();
    ASSERT_NE(note, nullptr);
    EXPECT_STREQ(note->tmfnp_name, "cov");
    EXPECT_EQ(std::vector<std::uint8_t>(note->tmfnp_data, note->tmfnp_data + note->tmfnp_length), expected);
}

TEST_F(TmfStore, NoteAssertions)
{
    const std::uint8_t byte = 1;
    const auto misuse = [&] {
        tmf_append_note(nullptr, 1, &byte);
        tmf_append_note("", 1, &byte);
        tmf_append_note(str_cache("n"), 0, &byte);
    };
    misuse();
    EXPECT_EQ(count_of(tmf_notes()), 0U);
    tmf_append_note(str_cache("n"), 1, &byte);
    const trace_log log(0);
    misuse();
    tmf_append_note(str_cache("n"), 1, &byte);
    EXPECT_EQ(trace_log::lines(), (texts{"ASSERT name != NULL && name[0] != '\\0'",
                                         "ASSERT name != NULL && name[0] != '\\0'", "ASSERT length != 0"}));
    EXPECT_EQ(only_note()->tmfnp_length, 2U);
}

TEST_F(TmfStore, NoteWithoutDataFailsAssertions)
{
    const std::uint8_t byte = 9;
    tmf_append_note(str_cache("n"), 1, &byte);
    vector_of<tmf_note *> notes = tmf_notes();
    tmf_note *note = notes.get(0);
    notes.free();
    std::free(note->tmfnp_data);
    note->tmfnp_data = nullptr;
    note->tmfnp_length = 0;
    const trace_log log(0);
    tmf_append_note(str_cache("n"), 1, &byte);
    EXPECT_EQ(trace_log::lines(), (texts{"ASSERT np->tmfnp_data != NULL", "ASSERT np->tmfnp_length != 0"}));
    EXPECT_EQ(note->tmfnp_length, 1U);
    EXPECT_EQ(note->tmfnp_data[0], 9U);
}

// ---- The store as a whole

void add_one_of_each()
{
    const std::uint8_t byte = 1;
    tmf_add_psect(make_psect("a.obj", "text"));
    tmf_add_unused(str_cache("RAM"), 1, 0, 1);
    tmf_add_line(make_line("a.obj", 1));
    tmf_add_symbol(make_symbol("f", 0));
    tmf_add_split(str_cache("text"), str_cache("text1"));
    tmf_add_dabs({.tmfda_name = str_cache("d")});
    tmf_add_segment({.tmfsg_name = str_cache("s"), .tmfsg_delta = 1});
    tmf_append_note(str_cache("n"), 1, &byte);
}

void expect_nothing_is_found()
{
    EXPECT_EQ(count_of(tmf_psects()), 0U);
    EXPECT_EQ(count_of(tmf_segments()), 0U);
    EXPECT_EQ(count_of(tmf_symbols()), 0U);
    EXPECT_EQ(count_of(tmf_notes()), 0U);
    EXPECT_EQ(count_of(tmf_line_objects()), 0U);
    EXPECT_EQ(count_of(tmf_lines_of("a.obj")), 0U);
    EXPECT_EQ(count_of(tmf_splits()), 0U);
    EXPECT_EQ(count_of(tmf_dabs()), 0U);
    EXPECT_EQ(tmf_find_symbol("f"), nullptr);
    EXPECT_EQ(tmf_find_dabs("d"), nullptr);
    const tmf_symbol symbol = make_symbol("f", 0);
    EXPECT_EQ(tmf_symbol_psect(&symbol), nullptr);
    EXPECT_EQ(tmf_entry_ranges("f"), ranges{});
}

TEST_F(TmfStore, QueriesFindNothingInAStoreThatIsNotValid)
{
    add_one_of_each();
    EXPECT_NE(tmf_find_symbol("f"), nullptr);
    tmf_initialised = false;
    expect_nothing_is_found();
    vector_of<tmf_split *> splits = tmf_splits();
    EXPECT_TRUE(splits); // an empty vector, not none
    splits.free();
}

TEST_F(TmfStore, NewStoreForgetsTheOld)
{
    add_one_of_each();
    EXPECT_EQ(tmf_entry_ranges("f"), ranges{}); // makes the index that must be forgotten too
    tmf_store_create();
    EXPECT_TRUE(tmf_initialised);
    expect_nothing_is_found();
    EXPECT_EQ(errors_of(add_one_of_each), texts{}); // nothing is there twice
}

TEST_F(TmfStore, AbsentNames)
{
    EXPECT_EQ(tmf_find_symbol(nullptr), nullptr);
    EXPECT_EQ(tmf_find_dabs(nullptr), nullptr);
    EXPECT_EQ(tmf_symbol_psect(nullptr), nullptr);
    EXPECT_EQ(count_of(tmf_lines_of(nullptr)), 0U);
}

TEST_F(TmfStore, ErrorsOutsideOfAReadHaveNoLine)
{
    const std::uint32_t line = 12;
    alert_set_position("some.file", &line);
    EXPECT_EQ(lines_printed_by([] { tmf_error("number %u, %s", 7U, "text"); }),
              (texts{"Non line specific message: (1437) TMF error: number 7, text"}));
    alert_set_position(nullptr, nullptr);
}

TEST_F(TmfStore, LongErrorTextIsCut)
{
    const std::string name(5000, 'n');
    const texts errors = lines_printed_by([&] { tmf_error("%s", name.c_str()); });
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(errors[0], "(1437) TMF error: " + std::string(511 - std::string("TMF error: ").size(), 'n'));
}

// ---- The psect of a symbol

const char *object_of_symbol(std::uint32_t value, const char *psect = "text")
{
    const tmf_symbol symbol = make_symbol("s", value, psect);
    const tmf_psect *found = tmf_symbol_psect(&symbol);
    return found != nullptr ? found->tmfps_obj : "none";
}

TEST_F(TmfStore, SymbolPsectIncludesTheUpperBound)
{
    tmf_add_psect(make_psect("a", "text", 0x10, 0x10));
    EXPECT_STREQ(object_of_symbol(0x0F), "none");
    EXPECT_STREQ(object_of_symbol(0x10), "a");
    EXPECT_STREQ(object_of_symbol(0x20), "a");
    EXPECT_STREQ(object_of_symbol(0x21), "none");
    EXPECT_STREQ(object_of_symbol(0x10, "data"), "none");
}

TEST_F(TmfStore, SymbolPsectIsTheFirstInTheOrderOfObjects)
{
    tmf_add_psect(make_psect("b", "text", 0x10, 0x10));
    tmf_add_psect(make_psect("a", "text", 0x20, 0x10));
    EXPECT_STREQ(object_of_symbol(0x1F), "b");
    EXPECT_STREQ(object_of_symbol(0x20), "a");        // both hold it
    tmf_add_psect(make_psect("A", "text", 0, 0x100)); // seen by later searches
    EXPECT_STREQ(object_of_symbol(0x20), "A");
}

TEST_F(TmfStore, SymbolPsectCountsInUnitsOfThePsect)
{
    tmf_add_psect(make_psect("a", "text", 0x10, 0x10, 4));
    tmf_add_psect(make_psect("b", "text", 0x40, 0x10, 1));
    EXPECT_STREQ(object_of_symbol(0x3F), "none");
    EXPECT_STREQ(object_of_symbol(0x40), "a");
    EXPECT_STREQ(object_of_symbol(0x83), "a");
    EXPECT_STREQ(object_of_symbol(0x84), "none");
    EXPECT_STREQ(object_of_symbol(0x10), "none");
}

TEST_F(TmfStore, SymbolPsectWithoutDelta)
{
    errors_of([] { tmf_add_psect(make_psect("a", "text", 0x10, 0x10, 0)); });
    EXPECT_STREQ(object_of_symbol(0x18), "a");
}

TEST_F(TmfStore, SymbolPsectAtTheTopOfMemory)
{
    tmf_add_psect(make_psect("a", "text", 0xFFFFFFF0, 0x0F));
    EXPECT_STREQ(object_of_symbol(0xFFFFFFFF), "a");
    // One unit more and the bound wraps to 0: nothing is between 0xFFFFFFF0 and 0.
    tmf_add_psect(make_psect("a", "wrap", 0xFFFFFFF0, 0x10));
    EXPECT_STREQ(object_of_symbol(0xFFFFFFF8, "wrap"), "none");
    EXPECT_STREQ(object_of_symbol(0, "wrap"), "none");
}

// The plain walk over the objects.
const tmf_psect *symbol_psect_by_walk(const tmf_symbol &symbol)
{
    vector_of<tmf_psect *> psects = tmf_psects();
    const tmf_psect *found = nullptr;
    for (const tmf_psect *psect : each(psects)) {
        if (std::string(psect->tmfps_name) != symbol.tmfsy_psect) {
            continue;
        }
        const std::uint32_t value =
            psect->tmfps_delta != 0 ? symbol.tmfsy_value / psect->tmfps_delta : symbol.tmfsy_value;
        if (psect->tmfps_link <= value && value <= psect->tmfps_link + psect->tmfps_length) {
            found = psect;
            break;
        }
    }
    psects.free();
    return found;
}

TEST_F(TmfStore, SymbolPsectIsWhatAWalkFinds)
{
    std::mt19937 random(3);
    const auto below = [&](std::uint32_t bound) { return static_cast<std::uint32_t>(random() % bound); };
    for (int round = 0; round < 100; round++) {
        tmf_store_create();
        const std::uint32_t base = round % 4 == 0 ? 0xFFFFFF80 : 0; // some at the top of memory
        errors_of([&] {
            for (std::uint32_t i = 0; i < 25; i++) {
                tmf_add_psect(make_psect(str_printf("o%u", i), below(2) != 0 ? "text" : "data", base + below(100),
                                         below(30), below(8) == 0 ? below(3) : 1));
            }
        });
        for (std::uint32_t value = 0; value < 140; value++) {
            const tmf_symbol symbol = make_symbol("s", base + value, value % 2 != 0 ? "text" : "data");
            ASSERT_EQ(tmf_symbol_psect(&symbol), symbol_psect_by_walk(symbol)) << round << " " << value;
        }
    }
}

// ---- The ranges of functions

void add_function(const char *name, std::uint32_t value, const char *psect, std::uint32_t end, const char *end_psect)
{
    tmf_add_symbol(make_symbol(name, value, psect));
    tmf_add_symbol(make_symbol(str_concat("__end_of", name), end, end_psect));
}

TEST_F(TmfStore, EntryRangesOfUnknownLabels)
{
    EXPECT_EQ(tmf_entry_ranges("_f"), ranges{});
    tmf_add_symbol(make_symbol("_f", 0x10));
    EXPECT_EQ(tmf_entry_ranges("_f"), (ranges{{0, 0}})); // no psect holds it
    tmf_add_psect(make_psect("a", "text", 0x10, 0x10));
    EXPECT_EQ(tmf_entry_ranges("_f"), ranges{}); // no end label
}

TEST_F(TmfStore, EntryRangesWithoutThePsectOfTheEnd)
{
    tmf_add_psect(make_psect("a", "text", 0x10, 0x10));
    add_function("_f", 0x10, "text", 0x18, "gone");
    EXPECT_EQ(tmf_entry_ranges("_f"), ranges{});
    const trace_log log(0);
    EXPECT_EQ(tmf_entry_ranges("_f"), ranges{});
    EXPECT_EQ(trace_log::lines(), (texts{"ASSERT end_ps != NULL"}));
}

TEST_F(TmfStore, EntryRangeInOnePsect)
{
    tmf_add_psect(make_psect("a", "text", 0x10, 0x10));
    add_function("_f", 0x12, "text", 0x18, "text");
    EXPECT_EQ(tmf_entry_ranges("_f"), (ranges{{0x12, 0x17}}));
    add_function("_empty", 0x14, "text", 0x14, "text"); // the end on the low stays
    EXPECT_EQ(tmf_entry_ranges("_empty"), (ranges{{0x14, 0x14}}));
    add_function("_last", 0x1C, "text", 0x20, "text");
    EXPECT_EQ(tmf_entry_ranges("_last"), (ranges{{0x1C, 0x1F}}));
}

TEST_F(TmfStore, EntryRangeInUnits)
{
    tmf_add_psect(make_psect("a", "text", 0, 0x100, 2));
    add_function("_f", 0x20, "text", 0x31, "text");
    EXPECT_EQ(tmf_entry_ranges("_f"), (ranges{{0x10, 0x17}}));
    add_function("_zero", 0, "text", 1, "text"); // an end value below the delta: nothing is taken off
    EXPECT_EQ(tmf_entry_ranges("_zero"), (ranges{{0, 0}}));
    add_function("_one", 0, "text", 2, "text");
    EXPECT_EQ(tmf_entry_ranges("_one"), (ranges{{0, 0}}));
    add_function("_two", 0, "text", 4, "text");
    EXPECT_EQ(tmf_entry_ranges("_two"), (ranges{{0, 1}}));
}

TEST_F(TmfStore, EntryRangeWithoutDelta)
{
    errors_of([] { tmf_add_psect(make_psect("a", "text", 0, 0x100, 0)); });
    add_function("_f", 0x20, "text", 0x30, "text");
    EXPECT_EQ(tmf_entry_ranges("_f"), (ranges{{0x20, 0x2F}}));
}

TEST_F(TmfStore, EntryRangesThroughSplits)
{
    // text was cut twice from its top: first text1, then text2. So text2 lies behind text and in front of text1.
    for (const char *object : {"a", "b"}) {
        tmf_add_psect(make_psect(object, "text", 0x00, 0x10));
    }
    tmf_add_psect(make_psect("b", "text1", 0x100, 0x10));
    tmf_add_psect(make_psect("b", "text2", 0x200, 0x10));
    tmf_add_split(str_cache("text"), str_cache("text1"));
    tmf_add_split(str_cache("text"), str_cache("text2"));
    add_function("_f", 0x08, "text", 0x104, "text1");
    // The symbols lie in the text of "a", which comes first but has no splits.
    EXPECT_EQ(tmf_entry_ranges("_f"), (ranges{{0x08, 0x0F}}));

    tmf_add_psect(make_psect("b", "ctext", 0x20, 0x10));
    tmf_add_split(str_cache("ctext"), str_cache("text1"));
    add_function("_g", 0x28, "ctext", 0x104, "text1");
    // A child that was cut from one psect and is said to be cut from another goes to the later one.
    EXPECT_EQ(tmf_entry_ranges("_g"), (ranges{{0x28, 0x2F}, {0x100, 0x103}}));
}

TEST_F(TmfStore, EntryRangesWalkTheChainUpToTheEnd)
{
    tmf_add_psect(make_psect("m", "text", 0x00, 0x10));
    tmf_add_psect(make_psect("m", "text1", 0x100, 0x10));
    tmf_add_psect(make_psect("m", "text2", 0x200, 0x20));
    tmf_add_psect(make_psect("m", "text3", 0x300, 0x10, 2));
    tmf_add_split(str_cache("text"), str_cache("text3"));
    tmf_add_split(str_cache("text"), str_cache("text2"));
    add_function("_f", 0x08, "text", 0x608, "text3");
    EXPECT_EQ(tmf_entry_ranges("_f"), (ranges{{0x08, 0x0F}, {0x200, 0x21F}, {0x300, 0x303}}));
    // A split that is added later is resolved at the next query, the old ones stay as they are.
    tmf_add_split(str_cache("text"), str_cache("text1"));
    EXPECT_EQ(tmf_entry_ranges("_f"), (ranges{{0x08, 0x0F}, {0x100, 0x10F}, {0x200, 0x21F}, {0x300, 0x303}}));
    // The end on the low of its psect takes nothing off.
    add_function("_g", 0x0C, "text", 0x200, "text2");
    EXPECT_EQ(tmf_entry_ranges("_g"), (ranges{{0x0C, 0x0F}, {0x100, 0x10F}, {0x200, 0x200}}));
}

TEST_F(TmfStore, SplitLinks)
{
    tmf_psect *text = tmf_add_psect(make_psect("m", "text", 0x00, 0x10));
    tmf_psect *text1 = tmf_add_psect(make_psect("m", "text1", 0x100, 0x10));
    tmf_psect *text2 = tmf_add_psect(make_psect("m", "text2", 0x200, 0x10));
    tmf_add_split(str_cache("text"), str_cache("text1"));
    tmf_add_split(str_cache("text"), str_cache("text2"));
    tmf_add_split(str_cache("text"), str_cache("absent"));
    add_function("_f", 0x08, "text", 0x104, "text1");
    tmf_entry_ranges("_f");
    EXPECT_EQ(text->tmfps_split.next, text2);
    EXPECT_EQ(text2->tmfps_split.next, text1);
    EXPECT_EQ(text1->tmfps_split.next, nullptr);
    EXPECT_EQ(text->tmfps_split.parent, nullptr);
    EXPECT_EQ(text2->tmfps_split.parent, text);
    EXPECT_EQ(text1->tmfps_split.parent, text2);
    EXPECT_EQ(texts_of(tmf_splits(), [](const tmf_split *s) { return std::string(s->tmfsp_done ? "done" : "open"); }),
              (texts{"done", "done", "open"}));
}

TEST_F(TmfStore, SplitBelongsToTheFirstObjectThatHasBoth)
{
    for (const char *object : {"d", "c", "b", "a"}) {
        tmf_add_psect(make_psect(object, "text", 0x00, 0x10));
    }
    tmf_add_psect(make_psect("d", "text1", 0x100, 0x10));
    tmf_add_psect(make_psect("b", "text1", 0x200, 0x10));
    tmf_add_psect(make_psect("c", "text1", 0x300, 0x10));
    tmf_add_split(str_cache("text"), str_cache("text1"));
    add_function("_f", 0x08, "text", 0x304, "text1"); // in "a" and "c": resolves the splits
    tmf_entry_ranges("_f");
    texts split = texts_of(tmf_psects(), [](const tmf_psect *psect) {
        return std::string(psect->tmfps_split.next != nullptr ? psect->tmfps_obj : "");
    });
    std::erase(split, "");
    EXPECT_EQ(split, (texts{"b"}));
}

// As above, where fewer objects have the parent than the child.
TEST_F(TmfStore, SplitOfARareParent)
{
    for (const char *object : {"d", "c", "b", "a"}) {
        tmf_add_psect(make_psect(object, "text1", 0x100, 0x10));
    }
    tmf_add_psect(make_psect("c", "text", 0x00, 0x10));
    tmf_add_psect(make_psect("b", "text", 0x20, 0x10));
    tmf_add_psect(make_psect("e", "lone", 0x40, 0x10));
    tmf_add_split(str_cache("text"), str_cache("text1"));
    tmf_add_split(str_cache("lone"), str_cache("text1")); // no object has both
    add_function("_f", 0x08, "text", 0x104, "text1");     // in "c" and "a": resolves the splits
    tmf_entry_ranges("_f");
    texts split = texts_of(tmf_psects(), [](const tmf_psect *psect) {
        return std::string(psect->tmfps_split.next != nullptr ? psect->tmfps_obj : "");
    });
    std::erase(split, "");
    EXPECT_EQ(split, (texts{"b"}));
}

TEST_F(TmfStore, ChainThatMissesTheEnd)
{
    tmf_add_psect(make_psect("m", "text", 0x00, 0x10));
    tmf_add_psect(make_psect("m", "text1", 0x100, 0x10));
    tmf_add_psect(make_psect("m", "other", 0x200, 0x10));
    tmf_add_split(str_cache("text"), str_cache("text1"));
    add_function("_f", 0x08, "text", 0x204, "other");
    const trace_log log(0);
    EXPECT_EQ(tmf_entry_ranges("_f"), (ranges{{0x08, 0x0F}, {0x100, 0x10F}})); // what there is of it
    EXPECT_EQ(trace_log::lines(), (texts{"ASSERT ps == end_ps"}));
}

TEST_F(TmfStore, ChainThatIsACircleEnds)
{
    tmf_add_psect(make_psect("m", "text", 0x00, 0x10));
    tmf_add_psect(make_psect("m", "text1", 0x100, 0x10));
    tmf_add_psect(make_psect("m", "other", 0x200, 0x10));
    tmf_add_split(str_cache("text"), str_cache("text"));
    tmf_add_split(str_cache("text1"), str_cache("text"));
    tmf_add_split(str_cache("text"), str_cache("text1"));
    add_function("_f", 0x08, "text", 0x204, "other");
    EXPECT_LE(tmf_entry_ranges("_f").size(), 4U);
}

} // namespace
