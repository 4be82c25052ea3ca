// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/format.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/unit/scenario.h"

namespace {

struct expected_row {
    const char *key;
    const char *name;
    const char *ext;
    bool binary;
};

constexpr expected_row ROWS[] = {
    {"tarnsym", "Kelvar ZRT Tarnwick Map File", "tmf", false},
    {"orbell", "Orbell Software", "sym", false},
    {"ihex", "Intel HEX", "hex", false},
    {"s19", "Motorola HEX", "hex", false},
    {"vcoff", "Vantrel COFF", "cof", true},
    {"elf", "ELF/DWARF", "elf", true},
    {"ubrof", "UBROF", "d43", true},
};
static_assert(std::size(ROWS) == FORMAT_COUNT);

// Formats of which the keys alone matter.
format_descriptor keyed(const char *key)
{
    format_descriptor format{};
    format.key = key;
    return format;
}

const format_descriptor COFF = keyed("coff");
const format_descriptor COFF2 = keyed("coff2");
const format_descriptor CODE = keyed("code");
const format_descriptor ELF = keyed("elf");

} // namespace

TEST(FormatTable, Rows)
{
    for (std::uint32_t i = 0; i < FORMAT_COUNT; ++i) {
        const format_descriptor &format = *format_table[i];
        EXPECT_STREQ(format.key, ROWS[i].key);
        EXPECT_STREQ(format.name, ROWS[i].name);
        EXPECT_STREQ(format.ext, ROWS[i].ext);
        EXPECT_EQ(format.binary, ROWS[i].binary) << format.key;
        EXPECT_TRUE(format.identify != nullptr && format.read != nullptr && format.write != nullptr &&
                    format.dump != nullptr)
            << format.key;
    }
}

TEST(FormatTable, RowsWithoutADump)
{
    for (const std::uint32_t number : {1U, 2U, 3U, 4U}) {
        EXPECT_FALSE(format_table[number - 1]->dump(stdin)) << ROWS[number - 1].key;
    }
}

TEST(FormatTable, OperationsThatAreNotThere)
{
    EXPECT_TRUE(format_no_transfer(stdin, "x"));
    EXPECT_FALSE(format_no_dump(stdin));
}

TEST(FormatFind, KeysAndTheirBeginnings)
{
    for (std::uint32_t i = 0; i < FORMAT_COUNT; ++i) {
        const std::string key = ROWS[i].key;
        for (std::size_t length = 1; length <= key.size(); ++length) {
            EXPECT_EQ(format_find(key.substr(0, length).c_str()), i + 1) << key << ' ' << length;
        }
    }
}

TEST(FormatFind, Reports)
{
    expect_run([] { format_find(""); }, "(602) null file format name\n", 1);
    expect_run([] { format_find("hex"); }, "(604) unknown file format name \"hex\"\n", 1);
    expect_run([] { format_find("Elf"); }, "(604) unknown file format name \"Elf\"\n", 1);
    expect_run([] { format_find("elff"); }, "(604) unknown file format name \"elff\"\n", 1);
}

TEST(FormatFind, AmbiguousKeys)
{
    const auto find = [](std::initializer_list<const format_descriptor *> rows, const char *key) {
        return [table = std::vector<const format_descriptor *>(rows), key] { note("%u", format_find_in(table, key)); };
    };
    expect_run(find({&COFF2, &CODE, &ELF}, "co"), "(603) ambiguous file format name \"co\"\n", 1);
    expect_run(find({&COFF2, &CODE, &ELF}, "cof"), "1\n");
    expect_run(find({&COFF, &COFF2}, "coff"), "1\n");
    // One beginning is no ambiguity yet: the exact match in the later row wins.
    expect_run(find({&COFF2, &COFF}, "coff"), "2\n");
    // After two of them the exact match comes too late.
    static const format_descriptor COFFEE = keyed("coffee");
    expect_run(find({&COFF2, &COFFEE, &COFF}, "coff"), "(603) ambiguous file format name \"coff\"\n", 1);
}
