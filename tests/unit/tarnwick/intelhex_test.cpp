// SPDX-License-Identifier: MIT
// Intel HEX. Checksums in the texts were worked out by hand: they make the bytes of a line add up to 0.
#include <algorithm>
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
    return identify_image(format_ihex, content);
}

bool read(const std::string &content)
{
    return read_image(format_ihex, content);
}

std::string write(const blocks &list)
{
    return write_image(format_ihex, list);
}

// A read that fails with a report: the blocks that the model then has are noted.
void expect_failure(const std::string &content, const std::string &report, const std::string &left = "")
{
    expect_run(
        [&] {
            note("%d", read(content));
            for (const image_block &block : model_blocks()) {
                note("%X+%zu", block.address, block.bytes.size());
            }
        },
        report + "0\n" + left);
}

std::string checksum_error(int line)
{
    return "(636) checksum error in Intel HEX file \"in.hex\" on line " + std::to_string(line) + " (warning)\n";
}

std::string invalid_line(int line)
{
    return "(635) invalid HEX file \"in.hex\" on line " + std::to_string(line) + " (warning)\n";
}

} // namespace

TEST(IntelHex, Identify)
{
    EXPECT_TRUE(identify(":00000001FF\n"));
    EXPECT_TRUE(identify(":0300300002337A1E\r\n"));
    EXPECT_TRUE(identify(":0300300002337a1e"));
    EXPECT_TRUE(identify(":00000001FF \t\v\f\r\n"));
    // The second line is not looked at.
    EXPECT_TRUE(identify(":00000001FF\nrubbish\n"));
    EXPECT_FALSE(identify(""));
    EXPECT_FALSE(identify("\n:00000001FF\n"));
    EXPECT_FALSE(identify(" :00000001FF\n"));
    EXPECT_FALSE(identify("S1130000\n"));
    EXPECT_FALSE(identify(":00000001FE\n"));  // the sum is not 0
    EXPECT_FALSE(identify(":00000001F\n"));   // odd
    EXPECT_FALSE(identify(":0000000GFF0\n")); // no digit
    EXPECT_FALSE(identify(":0 00\n"));
    EXPECT_FALSE(identify(std::string(":0\0", 3)));
}

TEST(IntelHex, IdentifyALoneColon)
{
    EXPECT_TRUE(identify(":"));
    EXPECT_TRUE(identify(":\n"));
    EXPECT_TRUE(identify(":  \r\n"));
}

TEST(IntelHex, IdentifyLooksAt511Characters)
{
    // Of a longer line the first 511 characters decide, and they are 255 pairs.
    EXPECT_TRUE(identify(":" + std::string(510, '0') + "rubbish\n"));
    EXPECT_FALSE(identify(":" + std::string(509, '0') + "1rubbish\n"));
}

TEST(IntelHex, ReadDataRecords)
{
    EXPECT_TRUE(read(":0300300002337A1E\n:020100001122CA\n:00000001FF\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0x30, {0x02, 0x33, 0x7A}}, {0x100, {0x11, 0x22}}}));
}

TEST(IntelHex, ReadWithoutEndRecord)
{
    EXPECT_TRUE(read(""));
    EXPECT_EQ(model_blocks(), blocks{});
    EXPECT_TRUE(read(":0100000055AA"));
    EXPECT_EQ(model_blocks(), (blocks{{0, {0x55}}}));
}

TEST(IntelHex, ReadEmptyDataRecord)
{
    EXPECT_TRUE(read(":00123400BA\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0x1234, {}}}));
}

TEST(IntelHex, ReadStopsAtTheEndRecord)
{
    EXPECT_TRUE(read(":00000001FF\n:0100000055AA\nrubbish\n"));
    EXPECT_EQ(model_blocks(), blocks{});
}

TEST(IntelHex, ReadBases)
{
    // Type 2 counts in units of 16 bytes, type 4 of 64 KiB; the later one wins, there is no sum of the two.
    EXPECT_TRUE(read(":020000021200EA\n:0100050055A5\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0x12005, {0x55}}}));
    EXPECT_TRUE(read(":020000040012E8\n:0100050055A5\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0x120005, {0x55}}}));
    EXPECT_TRUE(read(":020000040012E8\n:020000021200EA\n:0100050055A5\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0x12005, {0x55}}}));
    EXPECT_TRUE(read(":020000021200EA\n:020000040012E8\n:0100050055A5\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0x120005, {0x55}}}));
}

TEST(IntelHex, ReadBasesTakeTwoBytesWhateverTheCount)
{
    // The count enters the sum, and nothing else.
    EXPECT_TRUE(read(":070000040012E3\n:0100050055A5\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0x120005, {0x55}}}));
}

TEST(IntelHex, ReadAddressWraps)
{
    EXPECT_TRUE(read(":02000004FFFFFC\n:02FFFF001122CD\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0xFFFFFFFF, {0x11, 0x22}}}));
}

TEST(IntelHex, ReadStartAddress)
{
    // The end record's word is taken from the data field; in a plain one that holds the checksum and a line end.
    EXPECT_TRUE(read(":00000001FF\n"));
    EXPECT_EQ(start_address, 0x1FEFFU);
    EXPECT_TRUE(read(":000000011234\n")); // no checksum is tested
    EXPECT_EQ(start_address, 0x1234U);
    EXPECT_TRUE(read(":020000030100FA\n:000000010002\n"));
    EXPECT_EQ(start_address, 0x1002U);
    EXPECT_TRUE(read(":020000050100F8\n:000000010002\n"));
    EXPECT_EQ(start_address, 0x1000002U);
    // A start base is no data base.
    EXPECT_TRUE(read(":020000050100F8\n:0100050055A5\n"));
    EXPECT_EQ(model_blocks(), (blocks{{5, {0x55}}}));
    EXPECT_EQ(start_address, 0U);
}

TEST(IntelHex, ReadPublishedStartRecordsFail)
{
    // The four data bytes of the published format: the third stands where the checksum is expected.
    expect_failure(":0400000300003800C1\n", checksum_error(1));
    expect_failure(":04000005000000CD2A\n", checksum_error(1));
    // Unless the bytes happen to add up: 04+05+12+00+E5.
    EXPECT_TRUE(read(":040000051200E50000\n"));
}

TEST(IntelHex, ReadOtherTypes)
{
    // From 6 on the count is ignored and the checksum expected at the data field.
    EXPECT_TRUE(read(":00000006FA\n:000000FF01\n"));
    EXPECT_EQ(model_blocks(), blocks{});
    EXPECT_TRUE(read(":02000006F81122\n"));
    expect_failure(":020000061122C5\n", checksum_error(1));
}

TEST(IntelHex, ReadBadLines)
{
    expect_failure("rubbish\n", invalid_line(1));
    expect_failure("\n", invalid_line(1));
    expect_failure(" :00000001FF\n", invalid_line(1));
    // What came before the bad line stays.
    expect_failure(":0100000055AA\n\n:0100010055A9\n", invalid_line(2), "0+1\n");
}

TEST(IntelHex, ReadBadChecksums)
{
    // The block of the bad line is in the model as well.
    expect_failure(":0100000055AA\n:0100010055A8\n:0100020055A8\n", checksum_error(2), "0+1\n1+1\n");
    // A missing checksum counts as 0xFFFF, and so does a bad one.
    expect_failure(":0100000055\n", checksum_error(1), "0+1\n");
    expect_failure(":0100000055xx\n", checksum_error(1), "0+1\n");
}

TEST(IntelHex, ReadBadDigitsShowInTheChecksumOnly)
{
    // A bad data pair adds 0xFFFF, and is stored as FF: 01 + FFFF + 00 is 0 in the low eight bits.
    EXPECT_TRUE(read(":01000000zz00\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0, {0xFF}}}));
    // A bad low address pair: the word is 0xFFFF, its sum FFFF + FF; 01 + FFFF + FF + 55 + AC.
    EXPECT_TRUE(read(":0100zz0055AC\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0xFFFF, {0x55}}}));
    // A bad high address pair: FFFF01, whose sum is FFFF01 + FFFF; 01 + 01 + FF + 55 + AA.
    EXPECT_TRUE(read(":01zz010055AA\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0xFFFF01, {0x55}}}));
    // A bad type is type FF: 00 + FFFF + 01.
    EXPECT_TRUE(read(":000000zz01\n"));
    EXPECT_EQ(model_blocks(), blocks{});
    // A bad base: the word 0xFFFF00 + 0x34, and its upper part; 02 + 04 + 34 + FFFF + C7.
    EXPECT_TRUE(read(":02000004zz34C7\n:0100050055A5\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0xFF340005, {0x55}}}));
}

TEST(IntelHex, ReadBadCounts)
{
    expect_failure(":zz00000055AA\n", checksum_error(1));
    expect_failure(":", checksum_error(1));
    expect_failure(":\n", checksum_error(1));
    expect_failure(":0\n", checksum_error(1));
    // A count that promises more than the line has: what is missing is FF.
    expect_failure(":0300000055\n", checksum_error(1), "0+3\n");
}

TEST(IntelHex, ReadLowerCaseAndLineEnds)
{
    EXPECT_TRUE(read(":02000000abcd86\r\n:00000001ff\r\n"));
    EXPECT_EQ(model_blocks(), (blocks{{0, {0xAB, 0xCD}}}));
}

TEST(IntelHex, ReadLinesOf511Characters)
{
    // 249 bytes make a line of 510 characters with its newline; that arrives whole.
    std::string line = ":F9000000" + std::string(498, '0') + "07\n";
    EXPECT_EQ(line.size(), 510U);
    EXPECT_TRUE(read(line));
    EXPECT_EQ(model_blocks().at(0).bytes.size(), 249U);
    // One byte more, and the newline is left as a line of its own.
    line = ":FA000000" + std::string(500, '0') + "06\n";
    EXPECT_EQ(line.size(), 512U);
    expect_failure(line, invalid_line(2), "0+250\n");
    // Without that newline it is read to its end.
    line.pop_back();
    EXPECT_TRUE(read(line));
    EXPECT_EQ(model_blocks().at(0).bytes.size(), 250U);
    // The largest count: its last bytes and the checksum lie in the second part.
    line = ":FF000000" + std::string(510, '0') + "01\n";
    expect_failure(line, checksum_error(1), "0+255\n");
}

TEST(IntelHex, WriteNothing)
{
    EXPECT_EQ(write({}), ":00000001FF\n");
    EXPECT_EQ(write({{0x12345678, {}}}), ":00000001FF\n"); // an empty block prints nothing, not even its address
}

TEST(IntelHex, WriteDataRecords)
{
    EXPECT_EQ(write({{0x30, {0x02, 0x33, 0x7A}}}), ":0300300002337A1E\n:00000001FF\n");
    // Lines of 16 bytes, blocks in the order of the table. 10 + 10 + (0 to F) is 98, 10 + 20 + (10 to 1F) is 1A8.
    EXPECT_EQ(write({{0x10, counted_bytes(33)}, {0, {0xFF}}}), ":10001000000102030405060708090A0B0C0D0E0F68\n"
                                                               ":10002000101112131415161718191A1B1C1D1E1F58\n"
                                                               ":0100300020AF\n"
                                                               ":01000000FF00\n"
                                                               ":00000001FF\n");
}

TEST(IntelHex, WriteUpperAddresses)
{
    EXPECT_EQ(write({{0x00300000, {0x55}}}), ":020000040030FFFFFFCA\n:0100000055AA\n:00000001FF\n");
    // The upper address stays in force, and is given again when a block goes back.
    EXPECT_EQ(write({{0x10000, {1}}, {0x10001, {2}}, {0, {3}}}), ":020000040001FFFFFFF9\n"
                                                                 ":0100000001FE\n"
                                                                 ":0100010002FC\n"
                                                                 ":020000040000FFFFFFFA\n"
                                                                 ":0100000003FC\n"
                                                                 ":00000001FF\n");
}

TEST(IntelHex, WriteUpperAddressSums)
{
    const auto record = [](std::uint32_t address) { return write({{address, {0}}}).substr(0, 21); };
    // Of the highest byte the upper four bits count alone.
    EXPECT_EQ(record(0x12340000), ":020000041234FFFFFFC5"); // 1 + 34 + 6
    EXPECT_EQ(record(0xFFFF0000), ":02000004FFFFFFFFFFEC"); // F + FF + 6 is 114
    EXPECT_EQ(record(0x00010000), ":020000040001FFFFFFF9"); // 0 + 1 + 6
    // A sum of 0 prints as two digits.
    EXPECT_EQ(write({{0x00FA0000, {0}}}).substr(0, 16), ":0200000400FA00\n");
}

TEST(IntelHex, WriteAcrossA64KBoundary)
{
    // The boundary is looked for at the head of a line alone.
    EXPECT_EQ(write({{0xFFF8, counted_bytes(17)}}), ":10FFF800000102030405060708090A0B0C0D0E0F81\n"
                                                    ":020000040001FFFFFFF9\n"
                                                    ":0100080010E7\n"
                                                    ":00000001FF\n");
    EXPECT_EQ(write({{0xFFF8, counted_bytes(16)}}), ":10FFF800000102030405060708090A0B0C0D0E0F81\n"
                                                    ":00000001FF\n");
}

TEST(IntelHex, WriteWrapsAt32Bits)
{
    EXPECT_EQ(write({{0xFFFFFFF0, counted_bytes(17)}}), ":02000004FFFFFFFFFFEC\n"
                                                        ":10FFF000000102030405060708090A0B0C0D0E0F89\n"
                                                        ":020000040000FFFFFFFA\n"
                                                        ":0100000010EF\n"
                                                        ":00000001FF\n");
}

TEST(IntelHex, WrittenExtendedRecordsAreRefusedOnReading)
{
    expect_failure(write({{0x00300000, {0x55}}}), checksum_error(1));
    expect_failure(write({{0x00010000, {0x55}}}), checksum_error(1));
    // But for those where the first two digits are right: 02 + 04 + FA + 00, and 02 + 04 + FB + FF.
    EXPECT_TRUE(read(write({{0x00FA0000, {0x55}}})));
    EXPECT_EQ(model_blocks(), (blocks{{0x00FA0000, {0x55}}}));
    EXPECT_TRUE(read(write({{0x00FB0000, {0x55}}})));
    EXPECT_EQ(model_blocks(), (blocks{{0x00FB0000, {0x55}}}));
}

TEST(IntelHex, WhatIsWrittenReadsBackInTheLowest64K)
{
    random_numbers random(7);
    for (int round = 0; round < 50; ++round) {
        blocks list;
        std::vector<image_block> lines;
        std::uint32_t address = random() % 256;
        while (address < 0xF000) {
            image_block block{address, {}};
            for (std::uint32_t n = random() % 100; n > 0; --n) {
                block.bytes.push_back(static_cast<std::uint8_t>(random()));
            }
            for (std::size_t at = 0; at < block.bytes.size(); at += 16) {
                const auto from = block.bytes.begin() + static_cast<std::ptrdiff_t>(at);
                const auto left = std::min<std::ptrdiff_t>(16, block.bytes.end() - from);
                lines.push_back({address + static_cast<std::uint32_t>(at), {from, from + left}});
            }
            list.push_back(block);
            address += static_cast<std::uint32_t>(block.bytes.size()) + random() % 1000;
        }
        ASSERT_TRUE(read(write(list)));
        ASSERT_EQ(model_blocks(), lines);
    }
}

TEST(IntelHex, WriteMoreThanTheBuffer)
{
    // 4 MiB of text: every line is there, once and in order.
    const std::string text = write({{0, std::vector<std::uint8_t>(0x10000, 0xA5)}, {0, counted_bytes(0x100000)}});
    std::size_t lines = 0;
    for (std::size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
        ++lines;
    }
    // 0x1000 and 0x10000 data lines of 44 characters, 15 upper addresses above the first of 22, one end record.
    EXPECT_EQ(lines, 0x1000U + 0x10000U + 15U + 1U);
    EXPECT_EQ(text.size(), 0x11000U * 44U + 15U * 22U + 12U);
    // 10 + FF + F0 + (F0 to FF) is 1077.
    EXPECT_TRUE(text.ends_with("\n:10FFF000F0F1F2F3F4F5F6F7F8F9FAFBFCFDFEFF89\n:00000001FF\n"));
}
