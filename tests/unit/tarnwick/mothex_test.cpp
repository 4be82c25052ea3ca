// SPDX-License-Identifier: MIT
// Motorola S-records. Checksums in the texts were worked out by hand: with them the bytes of a line add up to FF.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/image_testing.h"
#include "tests/unit/tarnwick/random_numbers.h"

namespace {

using blocks = std::vector<image_block>;

bool identify(const std::string &content)
{
    return identify_image(format_s19, content);
}

bool read(const std::string &content)
{
    return read_image(format_s19, content);
}

std::string write(const blocks &list)
{
    return write_image(format_s19, list);
}

} // namespace

TEST(MotorolaHex, Identify)
{
    EXPECT_TRUE(identify("S00600004844521B\n"));
    EXPECT_TRUE(identify("S9030000FC\r\n"));
    EXPECT_TRUE(identify("S1\n"));
    EXPECT_TRUE(identify("S5030001fb  \t\n"));
    EXPECT_TRUE(identify("S9030000FC\nrubbish"));
    // The checksum is not looked at.
    EXPECT_TRUE(identify("S9030000FF"));
    EXPECT_FALSE(identify(""));
    EXPECT_FALSE(identify("S"));
    EXPECT_FALSE(identify("S\n"));
    EXPECT_FALSE(identify("\nS9030000FC\n"));
    EXPECT_FALSE(identify("s9030000FC\n"));
    EXPECT_FALSE(identify("SA030000FC\n"));
    EXPECT_FALSE(identify("S9030000F\n"));  // odd
    EXPECT_FALSE(identify("S9030000FG\n")); // no digit
    EXPECT_FALSE(identify("S9 30000FC\n"));
}

TEST(MotorolaHex, IdentifyLooksAt511Characters)
{
    // The first 511 characters are an odd number.
    EXPECT_FALSE(identify("S1" + std::string(600, '0') + "\n"));
    EXPECT_TRUE(identify("S1" + std::string(508, '0') + "\n"));
}

TEST(MotorolaHex, ReadDataRecords)
{
    EXPECT_TRUE(read("S1051234AABB4F\nS206123456AABBF4\nS30712345678AABBBFF\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0x1234, {0xAA, 0xBB}}, {0x123456, {0xAA, 0xBB}}, {0x12345678, {0xAA, 0xBB}}}));
}

TEST(MotorolaHex, ReadNeverTestsChecksums)
{
    EXPECT_TRUE(read("S1051234AABB00\nS1041234AA\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0x1234, {0xAA, 0xBB}}, {0x1234, {0xAA}}}));
}

TEST(MotorolaHex, ReadEmptyRecords)
{
    EXPECT_TRUE(read("S1031234B6\nS20412345660\nS30512345678E6\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0x1234, {}}, {0x123456, {}}, {0x12345678, {}}}));
}

TEST(MotorolaHex, ReadHeadersAlone)
{
    EXPECT_TRUE(read("S00600004844521B\nS0\n"));
    EXPECT_EQ(model_blocks(), blocks{});
    EXPECT_TRUE(read(""));
}

TEST(MotorolaHex, ReadStops)
{
    const std::string data = "S1040000AA51\n";
    for (const std::string type : {"4", "5", "6", "7", "8", "9"}) {
        EXPECT_TRUE(read("S" + type + "030000FC\n" + data + "rubbish\n")) << type;
        EXPECT_EQ(model_blocks(), blocks{}) << type;
    }
    // A second character that is no digit ends the reading with success.
    for (const std::string line : {"SA\n", "S\n", "S ", "S"}) {
        EXPECT_TRUE(read(data + line + data)) << line;
        EXPECT_EQ(model_blocks(), (blocks{{0, {0xAA}}})) << line;
    }
}

TEST(MotorolaHex, ReadStartAddresses)
{
    EXPECT_TRUE(read("S70512345678E6\n"));
    EXPECT_EQ(start_address, 0x12345678U);
    EXPECT_TRUE(read("S80412345660\n"));
    EXPECT_EQ(start_address, 0x123456U);
    EXPECT_TRUE(read("S9031234B6\n"));
    EXPECT_EQ(start_address, 0x1234U);
    EXPECT_TRUE(read("S5031234B6\n"));
    EXPECT_EQ(start_address, 0U);
}

TEST(MotorolaHex, ReadOtherLinesFailSilently)
{
    expect_run(
        [] {
            note("%d", read("S1040000AA51\n:00000001FF\nS1040001BB3F\n"));
            note("%zu", model_blocks().size());
            note("%d", read("\n"));
            note("%d", read("s1040000AA51\n"));
        },
        "0\n1\n0\n0\n");
}

TEST(MotorolaHex, ReadBadCounts)
{
    // No number, or too small for address and checksum: false, without a message.
    expect_run(
        [] {
            for (const char *line :
                 {"S1zz0000AA51", "S1", "S10", "S1020000", "S10100", "S100", "S203000000", "S30400000000"}) {
                note("%d %zu", read(line), model_blocks().size());
            }
        },
        "0 0\n0 0\n0 0\n0 0\n0 0\n0 0\n0 0\n0 0\n");
}

TEST(MotorolaHex, ReadBadDigits)
{
    // A bad data pair is FF, and so is what the line does not hold.
    EXPECT_TRUE(read("S1060000zz11\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0, {0xFF, 0x11, 0xFF}}}));
    // Addresses: the low pair counts as FFFF, the high one as FFFF00; parts are joined by "or".
    EXPECT_TRUE(read("S10400zzAA51\nS104zz01AA51\nS2051234zzAA51\nS3060001zz00AA51\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0xFFFF, {0xAA}}, {0xFFFF01, {0xAA}}, {0x12FFFF, {0xAA}}, {0xFFFF00, {0xAA}}}));
}

TEST(MotorolaHex, ReadLongLines)
{
    // 251 data bytes make a line of 511 characters with its newline.
    std::string line = "S1FE0000" + std::string(502, '0') + "00";
    EXPECT_EQ(line.size(), 512U);
    // The last digit arrives as a line of its own, which is no S-record.
    EXPECT_FALSE(read(line + "\n"));
    EXPECT_EQ(model_blocks().at(0).bytes.size(), 251U);
    line = "S1FD0000" + std::string(500, '0') + "00\n";
    EXPECT_EQ(line.size(), 511U);
    EXPECT_TRUE(read(line));
    EXPECT_EQ(model_blocks().at(0).bytes.size(), 250U);
}

TEST(MotorolaHex, WriteNothing)
{
    EXPECT_EQ(write({}), "");
    EXPECT_EQ(write({{0x1000, {}}}), "");
}

TEST(MotorolaHex, WriteDataRecords)
{
    // 13 + (0 to F) is 8B; 04 + 10 + 10 is 24. No header and no termination record.
    EXPECT_EQ(write({{0, counted_bytes(17)}}), "S1130000000102030405060708090A0B0C0D0E0F74\nS104001010DB\n");
    EXPECT_EQ(write({{0x20, {1}}, {0x10, {2}}}), "S104002001DA\nS104001002E9\n");
}

TEST(MotorolaHex, WriteChoosesTheRecordByAddress)
{
    EXPECT_EQ(write({{0xFFFF, {0xAA}}}), "S104FFFFAA53\n");        // 04 + FF + FF + AA is 2AC
    EXPECT_EQ(write({{0x10000, {0xAA}}}), "S205010000AA4F\n");     // 05 + 01 + AA is B0
    EXPECT_EQ(write({{0xFFFFFF, {0xAA}}}), "S205FFFFFFAA53\n");    // 05 + 3 * FF + AA is 3AC
    EXPECT_EQ(write({{0x1000000, {0xAA}}}), "S30601000000AA4E\n"); // 06 + 01 + AA is B1
}

TEST(MotorolaHex, WriteChoosesAnewForEachLine)
{
    // 13 + FF + FF + 78 is 289, 05 + 01 + 00 + 0F + 10 is 25.
    EXPECT_EQ(write({{0xFFFF, counted_bytes(17)}}), "S113FFFF000102030405060708090A0B0C0D0E0F76\nS20501000F10DA\n");
    // 14 + FF + FF + F8 + 78 is 382, 06 + 01 + 08 + 10 is 1F.
    EXPECT_EQ(write({{0xFFFFF8, counted_bytes(17)}}),
              "S214FFFFF8000102030405060708090A0B0C0D0E0F7D\nS3060100000810E0\n");
}

TEST(MotorolaHex, WriteWrapsAt32Bits)
{
    // 15 + 3 * FF + F0 + 78 is 47A.
    EXPECT_EQ(write({{0xFFFFFFF0, counted_bytes(17)}}),
              "S315FFFFFFF0000102030405060708090A0B0C0D0E0F85\nS104000010EB\n");
}

TEST(MotorolaHex, WhatIsWrittenReadsBack)
{
    random_numbers random(3);
    for (int round = 0; round < 50; ++round) {
        blocks list;
        for (std::uint32_t n = random() % 40; n > 0; --n) {
            image_block block{static_cast<std::uint32_t>(random()) >> (random() % 32), {}};
            for (std::uint32_t left = 1 + random() % 16; left > 0; --left) {
                block.bytes.push_back(static_cast<std::uint8_t>(random()));
            }
            list.push_back(block);
        }
        ASSERT_TRUE(read(write(list)));
        ASSERT_EQ(model_blocks(), list);
    }
}
