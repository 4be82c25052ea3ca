// SPDX-License-Identifier: MIT
// The COFF writer as a whole: chip settings, the order of the file, every byte of it, and what goes wrong.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <numeric>

#include "compiler/tarnwick/format.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/coff_testing.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

using bytes = std::vector<std::uint8_t>;

// Little-endian fields put one behind the other.
class image {
public:
    image &u8(std::uint32_t value)
    {
        data.push_back(static_cast<std::uint8_t>(value));
        return *this;
    }
    image &u16(std::uint32_t value) { return u8(value).u8(value >> 8); }
    image &u32(std::uint32_t value) { return u16(value).u16(value >> 16); }
    image &words(std::initializer_list<std::uint32_t> values)
    {
        for (const std::uint32_t value : values) {
            u32(value);
        }
        return *this;
    }
    // A field of eight bytes.
    image &name(const std::string &text)
    {
        for (std::size_t i = 0; i < 8; ++i) {
            u8(i < text.size() ? static_cast<std::uint8_t>(text[i]) : 0);
        }
        return *this;
    }
    image &long_name(std::uint32_t offset) { return words({0, offset}); }
    image &text(const char *value)
    {
        data.insert(data.end(), value, value + std::strlen(value) + 1);
        return *this;
    }
    // What follows a name.
    image &section(std::uint32_t paddr, std::uint32_t size, std::uint32_t scnptr, std::uint32_t lnnoptr,
                   std::uint32_t lines, std::uint32_t flags)
    {
        return words({paddr, 0, size, scnptr, 0, lnnoptr}).u16(0).u16(lines).u32(flags);
    }
    image &symbol(std::uint32_t value, std::uint32_t section, std::uint32_t type, std::uint32_t cls, std::uint32_t aux)
    {
        return u32(value).u16(section).u32(type).u8(cls).u8(aux);
    }
    image &aux(std::uint32_t tag, std::uint32_t line = 0, std::uint32_t size = 0, std::uint32_t end = 0)
    {
        return u32(tag).u16(line).u16(size).words({0, end, 0});
    }
    image &line(std::uint32_t srcndx, std::uint32_t line, std::uint32_t paddr, std::uint32_t fcnndx)
    {
        return u32(srcndx).u16(line).u32(paddr).u16(0).u32(fcnndx);
    }

    bytes data;
};

bytes content_of(std::FILE *stream)
{
    std::rewind(stream);
    bytes result;
    for (int c = std::fgetc(stream); c != EOF; c = std::fgetc(stream)) {
        result.push_back(static_cast<std::uint8_t>(c));
    }
    std::fclose(stream);
    return result;
}

bytes written()
{
    std::FILE *stream = std::tmpfile();
    EXPECT_TRUE(format_vcoff.write(stream, "x.cof"));
    return content_of(stream);
}

// The first difference says more than two long lists.
void expect_bytes(const bytes &actual, const bytes &expected)
{
    EXPECT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < std::min(actual.size(), expected.size()); ++i) {
        ASSERT_EQ(actual[i], expected[i]) << "at " << i;
    }
}

void set_processor(const char *name, const char *first = nullptr, const char *second = nullptr)
{
    processor_name = name;
    processor_args.fill(nullptr);
    processor_args[0] = first;
    processor_args[1] = second;
}

class coff_write_test : public coff_model {
public:
    coff_write_test() { setenv("SOURCE_DATE_EPOCH", "287454020", 1); } // 11223344
    ~coff_write_test() override { unsetenv("SOURCE_DATE_EPOCH"); }
};

// --- chip settings ------------------------------------------------------------------------------------------------------

class coff_chip : public coff_write_test {
public:
    struct optional_header {
        std::uint32_t processor;
        std::uint32_t rom_width;
        std::uint32_t ram_width;
        bool operator==(const optional_header &) const = default;
    };
    // What the file says of the chip.
    static optional_header chip()
    {
        const bytes file = written();
        EXPECT_EQ(field(file.data(), 20, 2), 5000U);
        EXPECT_EQ(field(file.data(), 22, 4), 24600U);
        return {field(file.data(), 26, 4), field(file.data(), 30, 4), field(file.data(), 34, 4)};
    }
    static std::string units() { return std::to_string(coff.rom_unit) + " " + std::to_string(coff.ram_unit); }
};

TEST_F(coff_chip, without_words_goes_by_the_second_letter_of_its_name)
{
    set_processor("18X");
    EXPECT_EQ(chip(), (optional_header{0, 8, 8}));
    EXPECT_EQ(units(), "1 1");
    for (const char *name : {"N4A", "81X", "8", "N"}) {
        set_processor(name);
        EXPECT_EQ(chip(), (optional_header{0, 0, 8})) << name;
        EXPECT_EQ(units(), "2 1");
    }
}

TEST_F(coff_chip, has_an_identifier_in_hexadecimal)
{
    struct row {
        const char *word;
        std::uint32_t processor;
    };
    for (const row &r : {row{"14A0", 0x14A0}, row{"0x1f", 0x1F}, row{"12zz", 0x12}, row{"-1", 0xFFFFFFFF},
                         row{"123456789", 0xFFFFFFFF}, row{"", 0}}) {
        set_processor("18X", r.word);
        EXPECT_EQ(chip(), (optional_header{r.processor, 8, 8})) << r.word;
    }
}

TEST_F(coff_chip, takes_its_widths_from_the_second_word)
{
    for (const std::uint32_t width : {12U, 14U, 16U}) {
        for (const char *name : {"N4A", "18X"}) {
            const std::string word = "KOR" + std::to_string(width);
            set_processor(name, "1", word.c_str());
            EXPECT_EQ(chip(), (optional_header{1, width, 8})) << word;
            EXPECT_EQ(units(), "2 1");
        }
    }
    for (const char *name : {"N4A", "18X"}) {
        set_processor(name, "1", "KOR18");
        EXPECT_EQ(chip(), (optional_header{1, 8, 8}));
        EXPECT_EQ(units(), "1 1");
    }
    set_processor("N4A", "1", "KOR 14 and more");
    EXPECT_EQ(chip(), (optional_header{1, 14, 8}));
}

TEST_F(coff_chip, passes_over_short_and_other_words)
{
    for (const char *word : {"KOR9", "KOR", "K", "", "kor14", "XKOR14", "other"}) {
        set_processor("N4A", "1", word);
        EXPECT_EQ(chip(), (optional_header{1, 0, 8})) << word;
        set_processor("18A", "1", word);
        EXPECT_EQ(chip(), (optional_header{1, 8, 8})) << word;
    }
}

TEST_F(coff_chip, settings_are_made_anew_for_each_output)
{
    set_processor("N4A", "1", "KOR14");
    chip();
    set_processor("18A");
    EXPECT_EQ(chip(), (optional_header{0, 8, 8}));
    EXPECT_EQ(units(), "1 1");
}

void write_with(const char *name, const char *first, const char *second)
{
    model_create();
    set_processor(name, first, second);
    std::FILE *stream = std::fopen("x.cof", "w+b");
    const bool result = format_vcoff.write(stream, "x.cof");
    note("written: %s %ld", result ? "true" : "false", std::ftell(stream));
    std::fclose(stream);
}

TEST(coff_chip_report, ends_the_run_when_the_chip_is_not_known)
{
    struct row {
        const char *name;
        const char *first;
        const char *second;
    };
    constexpr row ROWS[] = {
        {nullptr, nullptr, nullptr},   {"", nullptr, nullptr}, {"N4A", "xyz", nullptr}, {"N4A", "-", "KOR14"},
        {"N4A", "1", "KOR19"},         {"N4A", "1", "KOR15"},  {"N4A", "1", "KOR17"},   {"N4A", "1", "KOR11"},
        {"N4A", "1", "KOR00"},         {"N4A", "1", "KORMQ"},  {"18A", "1", "KOR  "},   {"N4A", "1", "KOR-4"},
        {"N4A", "1", "KOR4294967295"},
    };
    for (const row &r : ROWS) {
        expect_run(
            [&r] {
                enter_scratch_folder();
                write_with(r.name, r.first, r.second);
            },
            "(600) no chip arch given for COFF write\n", 1);
    }
}

TEST(coff_chip_report, leaves_the_output_empty_when_it_is_lowered)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("99999999999999_en.msgs", "600 8 no chip\n");
            opt_big_endian = true;
            write_with("", nullptr, nullptr);
            note("%s", opt_big_endian ? "big" : "little");
        },
        "(600) no chip (warning)\nwritten: true 0\nbig\n");
}

// --- the whole file -----------------------------------------------------------------------------------------------------

TEST_F(coff_write_test, a_model_without_anything)
{
    set_processor("18X", "1234");
    image expected;
    expected.u8(0x40).u8(0x12).u16(1).words({0x11223344, 78, 0}).u16(18).u16(2);
    expected.u16(5000).words({24600, 0x1234, 8, 8});
    expected.name("ABS").section(0, 0, 0, 0, 0, 0x1000);
    expected.u32(4);
    EXPECT_EQ(written(), expected.data);
}

// Sections, lines of C and of assembler, a function, a bit, a struct, files and labels. Worked out by hand.
TEST_F(coff_write_test, every_byte_of_a_program)
{
    set_processor("N4A", "14A0", "KOR14"); // program words of two bytes
    add_segment("data", DATA, 0x20, 0x10);
    add_segment("code", CODE, 0x100, 8);
    bytes code(8);
    std::iota(code.begin(), code.end(), 1);
    tarn_add_data(0x100, 4, code.data(), 2);
    tarn_add_data(0x104, 0, nullptr, 2);
    tarn_add_data(0x200, 4, code.data() + 4, 0);

    define("_main", 0x80, 2, "m.obj");
    define("__end_of_main", 0x82, 2, "m.obj");
    define("_here", 0x81, 2, "m.obj", SYM_LOCAL);
    define("_pair", 0x20, 1, "m.obj");
    define("_flag", 0x125, 1, "m.obj");
    define("loop", 0x100, 2, "s.obj");
    add_line("/s/m.c", 3, 0x80, 2);
    add_line("/s/m.c", 4, 0x81, 2);
    add_line("/s/s.as", 9, 0x100, 2);
    line_span_fixup();
    const name_watch generated;
    read("\"1 /s/m.c\n[s S1 pt 2 uc x 0 1 uc y 1 1 ]\n[v _pair pair `S1 1 e 2 _pair ]\n[v _flag flag `b 1 s 0 _flag ]\n"
         "\"3\n[v _main main `(v 1 e 0 _main ]\n{\n\"4\n}\n2 0 0 0\n");
    distribute_by_file(0);

    constexpr std::uint32_t DATA_AT = 38 + 5 * 40;
    constexpr std::uint32_t LINES_AT = DATA_AT + 8;
    constexpr std::uint32_t SYMBOLS_AT = LINES_AT + 3 * 16;
    image expected;
    expected.u8(0x40).u8(0x12).u16(5).words({0x11223344, SYMBOLS_AT, 36}).u16(18).u16(2);
    expected.u16(5000).words({24600, 0x14A0, 14, 8});
    expected.name("ABS").section(0, 0, 0, 0, 0, 0x1000);
    expected.name("data").section(0x20, 0x10, 0, 0, 0, 0x80);
    expected.name("code").section(0x80, 4, DATA_AT, LINES_AT, 2, 0x20);
    expected.name("code1").section(0x82, 0, DATA_AT + 4, 0, 0, 0x20);
    expected.name("text").section(0x100, 4, DATA_AT + 4, LINES_AT + 32, 1, 0x20);
    for (const std::uint8_t byte : code) {
        expected.u8(byte);
    }
    expected.line(0, 3, 0x80, 11).line(0, 4, 0x81, 11).line(33, 9, 0x100, 0);
    expected.name(".file").symbol(0, 0, 0, 103, 1).aux(4);                      // 0
    expected.name("pt").symbol(0, 0, 0, 10, 1).aux(0, 0, 2, 7);                 // 2
    expected.name("x").symbol(0, 0, 12, 8, 0).name("y").symbol(1, 0, 12, 8, 0); // 4, 5
    expected.name(".eos").symbol(0, 0, 0, 102, 1).aux(2, 0, 2);                 // 6
    expected.name("_pair").symbol(0x20, 2, 8, 2, 1).aux(2, 0, 2);               // 8
    expected.name("_main").symbol(0x80, 3, 0x41, 2, 0);                         // 10
    expected.name("_main").symbol(0x80, 3, 0x41, 2, 0);                         // 11: the index that counts
    expected.name(".bf").symbol(0x80, 3, 0, 101, 1).aux(0, 3, 0, 19);           // 12
    expected.name(".bb").symbol(0x80, 3, 0, 100, 1).aux(0, 3, 0, 17);           // 14
    expected.name(".eb").symbol(0x80, 3, 0, 100, 1).aux(0, 4);                  // 16
    expected.name(".ef").symbol(0x81, 3, 0, 101, 1).aux(0, 4);                  // 18
    expected.name(generated(0)).symbol(0, 0xFFFE, 0, 10, 1).aux(0, 0, 1, 27);   // 20: the word of bits
    expected.name("-").symbol(0, 0xFFFE, 12, 18, 1).aux(0, 0, 5);               // 22
    expected.name("_flag").symbol(5, 0xFFFE, 12, 18, 1).aux(0, 0, 1);           // 24
    expected.name(".eos").symbol(0, 0xFFFF, 0, 102, 1).aux(20, 0, 1);           // 26
    expected.long_name(11).symbol(0x24, 1, 8, 2, 1).aux(20, 0, 1);              // 28: _bitvars1
    expected.name(".eof").symbol(0, 0, 0, 107, 0);                              // 30
    expected.long_name(21).symbol(0x82, 0, 0, 6, 0);                            // 31: __end_of_main
    expected.name("loop").symbol(0x100, 0, 0, 6, 0);                            // 32
    expected.name(".file").symbol(0, 0, 0, 103, 1).aux(35);                     // 33
    expected.name(".eof").symbol(0, 0, 0, 107, 0);                              // 35
    expected.u32(43).text("\\s\\m.c").text("_bitvars1").text("__end_of_main").text("\\s\\s.as");
    expect_bytes(written(), expected.data);
}

TEST_F(coff_write_test, without_a_database_there_are_labels_only)
{
    set_processor("18X");
    sdb_global = nullptr;
    machine = nullptr;
    small_program();
    define("_one", 0x100, 1, "a.obj");
    define("_two", 0x101, 1, "b.obj");
    define("_three", 0x102, 1, "a.obj");
    define("_done", 0x103, 1, "a.obj", SYM_DONE);
    define("_local", 0x104, 1, "a.obj", SYM_LOCAL);
    define("_abs", 0x105, 1, "a.obj", SYM_ABS | SYM_DABS);
    define("_of_no_file", 0x106, 1);
    add_line("/s/s.as", 9, 0x100, 1);
    distribute_by_file(0);
    const bytes file = written();
    const std::uint32_t symbols = field(file.data(), 8, 4);
    EXPECT_EQ(symbols, 38U + 3 * 40 + 0x80) << "no line records";
    EXPECT_EQ(field(file.data(), 38 + 2 * 40 + 28, 4), 0U) << "no lnnoptr";
    EXPECT_EQ(field(file.data(), 12, 4), 7U);
    text_lines names;
    for (std::uint32_t i = 0; i < 4; ++i) {
        const std::uint8_t *p = file.data() + symbols + 20 * i;
        names.push_back(name_in(p, "") + format_numbers({field(p, 8, 4), field(p, 12, 2), field(p, 14, 4)}) + " " +
                        std::to_string(p[18]) + " " + std::to_string(p[19]));
    }
    EXPECT_EQ(names, (text_lines{"_one 100 0 0 6 0", "_three 102 0 0 6 0", "_abs 105 0 0 6 0", "_two 101 0 0 6 0"}))
        << "file by file";
}

TEST_F(coff_write_test, only_modules_are_walked)
{
    set_processor("18X");
    small_program();
    define("_a", 0x21, 2);
    read("[v _a a `i 1 s 2 _a ]\n");
    sdb_node *module = member(sdb_global, sdb_global->block.bl_count - 1);
    module->sdb_sclass = sc_asmodule;
    EXPECT_EQ(field(written().data(), 12, 4), 0U);
    module->sdb_sclass = sc_module;
    EXPECT_EQ(field(written().data(), 12, 4), 1U);
}

TEST_F(coff_write_test, the_counts_of_lines_are_cut_and_the_pointers_are_not)
{
    set_processor("18X");
    add_segment("code", CODE, 0x100, 0x20);
    add_block(1, 0x100, 0x10);
    add_block(1, 0x110, 0x10);
    // 257 lines of 255 addresses and one of 1 make 65536 records; the next section has one.
    for (std::uint32_t i = 0; i < 257; ++i) {
        add_line("/s/a.as", 1 + i, 0x108, 1);
    }
    add_line("/s/a.as", 300, 0x109, 1);
    add_line("/s/a.as", 301, 0x110, 1);
    distribute_by_file(0);
    for (std::uint32_t i = 0; i < 258; ++i) {
        tarn_line *line = tarn_find_file("/s/a.as")->fl_lines[i];
        line->ln_end = line->ln_addr + (i < 257 ? 254 : 0);
    }
    tarn_find_file("/s/a.as")->fl_lines[258]->ln_end = 0x110;
    const bytes file = written();
    constexpr std::uint32_t LINES_AT = 38 + 3 * 40 + 0x20;
    const std::uint8_t *first = file.data() + 38 + 40;
    EXPECT_EQ(field(first, 34, 2), 0U);
    EXPECT_EQ(field(first, 28, 4), LINES_AT);
    EXPECT_EQ(field(first, 40 + 34, 2), 1U);
    EXPECT_EQ(field(first, 40 + 28, 4), LINES_AT + 65536 * 16);
    EXPECT_EQ(field(file.data(), 8, 4), LINES_AT + 65537 * 16);
    EXPECT_EQ(field(file.data(), LINES_AT + 65536 * 16 + 6, 4), 0x110U);
}

TEST_F(coff_write_test, the_byte_order_is_little_endian_from_here_on)
{
    set_processor("18X");
    opt_big_endian = true;
    const bytes file = written();
    EXPECT_EQ(field(file.data(), 0, 4), 0x00011240U);
    EXPECT_FALSE(opt_big_endian) << "outputs that follow are little-endian, too";
}

TEST_F(coff_write_test, the_time_is_the_time_of_outputs)
{
    set_processor("18X");
    setenv("SOURCE_DATE_EPOCH", "4294967297", 1);
    EXPECT_EQ(field(written().data(), 4, 4), 1U) << "32 bits of it";
}

TEST_F(coff_write_test, a_second_output_is_as_the_first)
{
    set_processor("N4A", "1", "KOR18");
    small_program();
    define("_f", 0x110, 1, "m.obj");
    define("_v", 0x21, 2, "m.obj");
    add_line("/s/m.c", 3, 0x110, 1);
    add_line("/s/m.c", 4, 0x114, 1);
    add_line("/s/s.as", 4, 0x118, 1);
    line_span_fixup();
    read("\"1 /s/m.c\n[s S1 tag 2 uc x 0 1 *S1 y 1 1 ]\n[v _v v `S1 1 e 2 _v ]\n\"3\n[v _f f `(v 1 e 0 _f "
         "]\n{\n\"4\n}\n");
    distribute_by_file(0);
    const bytes first = written();
    EXPECT_EQ(written(), first) << "lines are not written twice, and labels stay away";
}

TEST_F(coff_write_test, entry_and_exit_are_traced)
{
    set_processor("18X");
    const trace_log log;
    written();
    EXPECT_EQ(trace_log::lines(),
              (text_lines{"ENTER vcoff_write", "ENTER build_line_lists", "EXIT build_line_lists", "EXIT vcoff_write"}));
}

// --- failed writes ------------------------------------------------------------------------------------------------------

void write_to_full_disk(std::uint32_t block_size)
{
    model_create();
    set_add(code_spaces, 1);
    set_processor("18X");
    const bytes block(block_size);
    tarn_add_data(0, block_size, block.data(), 0);
    std::FILE *stream = std::fopen("/dev/full", "wb");
    const bool result = format_vcoff.write(stream, "full.cof");
    note("written: %s", result ? "true" : "false");
}

TEST(coff_write_error, ends_the_run)
{
    for (const std::uint32_t size : {0U, 100U, 100000U}) {
        expect_run([size] { write_to_full_disk(size); }, "(413) write error on \"full.cof\"\n", 1);
    }
}

TEST(coff_write_error, is_passed_over_when_it_is_lowered)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("99999999999999_en.msgs", "413 8 lost %s\n");
            write_to_full_disk(100000);
        },
        "(413) lost full.cof (warning)\nwritten: true\n");
}

// Offsets have 32 bits. The bytes of the block are never touched.
TEST(coff_write_error, comes_for_a_file_that_offsets_cannot_span)
{
    expect_run(
        [] {
            enter_scratch_folder();
            model_create();
            set_processor("18X");
            for (int i = 0; i < 3; ++i) {
                auto *block = xnew<tarn_data>();
                block->da_addr = 0;
                block->da_len = 0x60000000;
                data_list.push(block);
            }
            write_file("99999999999999_en.msgs", "413 8 lost %s\n");
            std::FILE *stream = std::fopen("x.cof", "w+b");
            format_vcoff.write(stream, "x.cof");
            note("%ld bytes", std::ftell(stream));
        },
        "(413) lost x.cof (warning)\n0 bytes\n");
}

} // namespace
