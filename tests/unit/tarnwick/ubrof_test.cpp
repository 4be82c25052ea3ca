// SPDX-License-Identifier: MIT
// UBROF files are put together byte by byte here, with a CRC of our own: the rule for one bit, and no table.
#include <algorithm>
#include <cstdint>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/options.h"
#include "tests/unit/tarnwick/image_testing.h"

namespace {

std::uint16_t crc_of(const std::string &bytes)
{
    std::uint32_t crc = 0;
    for (const char c : bytes) {
        for (int i = 0; i < 8; ++i) {
            const std::uint32_t bit = static_cast<unsigned char>(c) >> i & 1U;
            const std::uint32_t top = crc >> 15 & 1U;
            crc <<= 1;
            if (top != bit) {
                crc ^= 0x8005;
            }
            crc &= 0xFFFF;
        }
    }
    return static_cast<std::uint16_t>(crc);
}

std::string bytes(std::initializer_list<int> list)
{
    std::string result;
    for (const int byte : list) {
        result += static_cast<char>(byte);
    }
    return result;
}

std::string word(unsigned value)
{
    return bytes({static_cast<int>(value >> 8 & 0xFF), static_cast<int>(value & 0xFF)});
}

std::string longword(unsigned value)
{
    return word(value >> 16) + word(value);
}

// A count byte and the characters.
std::string counted(const std::string &text)
{
    return bytes({static_cast<int>(text.size())}) + text;
}

// Seconds, minutes, hours, day, month, year: 1999/12/31 23:59:58.
const std::string STAMP = bytes({58, 59, 23, 31, 12, 99});
const std::string HEAD = bytes({0xA5}) + STAMP;
const std::string END = bytes({0xFF});
const std::string HEAD_TEXT = "UBROF file: 1999/12/31 23:59:58 ";

// The stretch closed by its CRC record, whose tag is part of it.
std::string with_crc(const std::string &stretch)
{
    const std::string tagged = stretch + bytes({0x3F});
    return tagged + word(crc_of(tagged));
}

const std::string END_OF_FILE = "(1044) end of file encountered\n";

std::string times(std::size_t count, const std::string &text)
{
    std::string result;
    while (count-- > 0) {
        result += text;
    }
    return result;
}

struct dump_result {
    bool result;
    std::string output;
    std::string errors;

    bool operator==(const dump_result &) const = default;
};

void PrintTo(const dump_result &r, std::ostream *out)
{
    *out << (r.result ? "true" : "false") << "\noutput:\n" << r.output << "\nerrors:\n" << r.errors;
}

class ubrof : public testing::Test {
protected:
    void SetUp() override
    {
        opt_verbose = 0;
        set_maxerrors(1000000);
        alert_set_position(nullptr, nullptr);
        alert_set_format_mode(0);
    }
    void TearDown() override { opt_verbose = 0; }

    static dump_result dump(const std::string &content)
    {
        const image_file file(content);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const bool result = format_ubrof.dump(file.stream());
        std::fflush(stdout);
        return {result, testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
    }
    // What the dump of a clean file with these records prints behind its head.
    static std::string records(const std::string &content)
    {
        const dump_result r = dump(HEAD + content + END);
        EXPECT_TRUE(r.result);
        EXPECT_EQ(r.errors, "");
        EXPECT_EQ(r.output.substr(0, HEAD_TEXT.size()), HEAD_TEXT);
        return r.output.size() < HEAD_TEXT.size() ? "" : r.output.substr(HEAD_TEXT.size());
    }
    static std::string verbose_records(const std::string &content)
    {
        opt_verbose = 1;
        std::string result = records(content);
        opt_verbose = 0;
        return result;
    }
    static std::string errors_of_identify(const std::string &content, bool expected)
    {
        testing::internal::CaptureStderr();
        EXPECT_EQ(identify_image(format_ubrof, content), expected);
        return testing::internal::GetCapturedStderr();
    }
};

// --- the row ---------------------------------------------------------------------------------------------------------

TEST_F(ubrof, is_a_binary_format_of_dump_alone)
{
    EXPECT_STREQ(format_ubrof.name, "UBROF");
    EXPECT_STREQ(format_ubrof.key, "ubrof");
    EXPECT_STREQ(format_ubrof.ext, "d43");
    EXPECT_TRUE(format_ubrof.binary);
    const image_file file(HEAD + END);
    EXPECT_TRUE(format_ubrof.read(file.stream(), "a.d43"));
    EXPECT_TRUE(format_ubrof.write(file.stream(), "a.d43"));
    EXPECT_EQ(std::ftell(file.stream()), 0);
}

// --- identification --------------------------------------------------------------------------------------------------

TEST_F(ubrof, is_known_by_its_mark_and_a_time_stamp)
{
    EXPECT_EQ(errors_of_identify(HEAD, true), "");
    EXPECT_EQ(errors_of_identify(bytes({0xA5, 0, 0, 0, 0, 0, 0}), true), ""); // day and month 0 pass
    EXPECT_EQ(errors_of_identify(bytes({0xA5, 59, 59, 23, 31, 12, 255}), true), "");
    EXPECT_EQ(errors_of_identify(bytes({0xA4}) + STAMP, false), "");
}

TEST_F(ubrof, a_bad_time_stamp_is_refused)
{
    EXPECT_EQ(errors_of_identify(bytes({0xA5, 60, 59, 23, 31, 12, 0}), false), "");
    EXPECT_EQ(errors_of_identify(bytes({0xA5, 59, 60, 23, 31, 12, 0}), false), "");
    EXPECT_EQ(errors_of_identify(bytes({0xA5, 59, 59, 24, 31, 12, 0}), false), "");
    EXPECT_EQ(errors_of_identify(bytes({0xA5, 59, 59, 23, 32, 12, 0}), false), "");
    EXPECT_EQ(errors_of_identify(bytes({0xA5, 59, 59, 23, 31, 13, 0}), false), "");
}

TEST_F(ubrof, each_byte_that_identification_misses_is_reported)
{
    EXPECT_EQ(errors_of_identify("", false), END_OF_FILE); // no mark, and so no stamp either
    EXPECT_EQ(errors_of_identify(HEAD.substr(0, 1), false), times(6, END_OF_FILE));
    EXPECT_EQ(errors_of_identify(HEAD.substr(0, 5), false), times(2, END_OF_FILE)); // the month counts as 255
    EXPECT_EQ(errors_of_identify(HEAD.substr(0, 6), true), END_OF_FILE);            // a year may be 255
}

TEST_F(ubrof, identification_does_not_disturb_a_dump)
{
    EXPECT_EQ(errors_of_identify(HEAD, true), "");
    EXPECT_EQ(dump(with_crc(HEAD) + END), (dump_result{true, HEAD_TEXT, ""}));
}

// --- head and end ----------------------------------------------------------------------------------------------------

TEST_F(ubrof, an_empty_file_is_reported_and_is_no_failure)
{
    EXPECT_EQ(dump(""), (dump_result{true, "", END_OF_FILE}));
}

TEST_F(ubrof, another_first_byte_is_reported)
{
    EXPECT_EQ(dump(bytes({0x5A}) + STAMP), (dump_result{false, "", "(1047) bad type byte for UBROF file\n"}));
}

TEST_F(ubrof, a_bad_stamp_in_the_head_is_reported)
{
    const std::string report = "(1048) bad time/date stamp\n";
    EXPECT_EQ(dump(bytes({0xA5, 0, 0, 24, 1, 1, 1})), (dump_result{false, "", report}));
    EXPECT_EQ(dump(HEAD.substr(0, 4)), (dump_result{false, "", times(3, END_OF_FILE) + report}));
}

TEST_F(ubrof, the_head_prints_the_time_with_two_digits)
{
    EXPECT_EQ(dump(bytes({0xA5, 1, 2, 3, 4, 5, 106}) + END).output, "UBROF file: 2006/5/4 03:02:01 ");
}

TEST_F(ubrof, a_file_without_end_record_fails)
{
    EXPECT_EQ(dump(HEAD), (dump_result{false, HEAD_TEXT, END_OF_FILE}));
}

TEST_F(ubrof, what_follows_the_end_record_is_not_looked_at)
{
    EXPECT_EQ(dump(HEAD + END + bytes({0, 1, 2})), (dump_result{true, HEAD_TEXT, ""}));
}

TEST_F(ubrof, every_other_tag_is_unknown)
{
    const std::string known =
        bytes({0x01, 0x02, 0x39, 0x3F, 0x47, 0x4A, 0x4C, 0x51, 0x52, 0x53, 0x54, 0xBD, 0xC0, 0xFF});
    for (int tag = 0; tag < 256; ++tag) {
        if (known.find(static_cast<char>(tag)) == std::string::npos) {
            EXPECT_EQ(dump(HEAD + bytes({tag}) + END), (dump_result{false, HEAD_TEXT, "(1052) unknown record type\n"}))
                << tag;
        }
    }
}

// --- records ---------------------------------------------------------------------------------------------------------

TEST_F(ubrof, c0_record)
{
    EXPECT_EQ(records(bytes({0xC0, 0x00, 0x01, 0x0A, 0x7F, 0x80, 0xFF})), "C0 record: 00 01 0A 7F 80 FF\n");
}

TEST_F(ubrof, version_record)
{
    const std::string usual = bytes({0, 0, 5, 0xBA, 2, 0xBE, 0xFF, 0xBF, 2, 0xC0, 0xFF, 0xC1, 5});
    EXPECT_EQ(records(bytes({0xBD, 6}) + usual), "UBROF version 6\n");
    EXPECT_EQ(records(bytes({0xBD, 7}) + usual), "UBROF version 7\n"); // the version is free
}

TEST_F(ubrof, a_version_record_of_other_bytes_is_shown_beside_the_usual_ones)
{
    const std::string other = bytes({0, 0, 5, 0xBA, 2, 0xBE, 0xFF, 0xBF, 2, 0xC0, 0xFF, 0xC1, 4});
    EXPECT_EQ(records(bytes({0xBD, 0x1A}) + other), "UBROF version 26\n"
                                                    "Funny BD record; should be:\n"
                                                    "BD 06 00 00 05 BA 02 BE FF BF 02 C0 FF C1 05 but was:\n"
                                                    "BD 1A 00 00 05 BA 02 BE FF BF 02 C0 FF C1 04 \n");
}

TEST_F(ubrof, segment_record)
{
    // The block in front leaves a 4 at the place of the fourth byte.
    const std::string buffer = bytes({0xC0, 1, 2, 3, 4, 5, 6});
    const std::string buffer_text = "C0 record: 01 02 03 04 05 06\n";
    const std::string record = bytes({0x01, 0, 0xA, 0xB, 0xC}) + counted("CODE") + bytes({0x1F, 2}) + longword(0x10) +
                               longword(0xFF) + longword(0x12345678) + longword(0xFFFFFFFF);
    EXPECT_EQ(records(buffer + record), buffer_text + "Segment: 0A 0B 0C 04 \"CODE\" flags 0x1F\n"
                                                      "Start\tLength\n"
                                                      "0x0010\t0x00FF\n"
                                                      "0x12345678\t0xFFFFFFFF\n"
                                                      "\n");
}

TEST_F(ubrof, a_segment_record_of_zero_bytes_does_not_show_them)
{
    const std::string zeros = bytes({0xC0, 9, 9, 9, 0, 9, 9});
    EXPECT_EQ(records(zeros + bytes({0x02, 0, 0, 0, 0}) + counted("") + bytes({0, 0})),
              "C0 record: 09 09 09 00 09 09\n"
              "Segment: \"\" flags 0x0\nStart\tLength\n\n");
    // The byte that the buffer held counts among the four.
    const std::string rest = bytes({0xC0, 9, 9, 9, 1, 9, 9});
    EXPECT_EQ(records(rest + bytes({0x02, 0, 0, 0, 0}) + counted("") + bytes({0, 0})),
              "C0 record: 09 09 09 01 09 09\n"
              "Segment: 00 00 00 01 \"\" flags 0x0\nStart\tLength\n\n");
}

TEST_F(ubrof, program_record)
{
    const auto program = [](int tag, int version, int flags, int language) {
        return records(bytes({tag, version, flags, language, 31, 12, 90}) + counted("main"));
    };
    const std::string start = "Program: \"main\" 1990/12/31  version ";
    EXPECT_EQ(program(1, 1, 0, 0), start + "1, language 0x0, (Assembler) 8 bit \n");
    EXPECT_EQ(program(2, 255, 2, 16), start + "255, language 0x10, (C) 16 bit \n");
    EXPECT_EQ(program(1, 1, 4, 1), start + "1, language 0x1, 32 bit \n");
    EXPECT_EQ(program(1, 1, 6, 0xFE), start + "1, language 0xFE, segmented  \n");
    EXPECT_EQ(program(1, 1, 1, 0), start + "1, language 0x0, (Assembler) 8 bit normal bit order\n");
    EXPECT_EQ(program(1, 1, 0xFF, 17), start + "1, language 0x11, segmented  normal bit order\n");
    EXPECT_EQ(program(1, 1, 0xF8, 17), start + "1, language 0x11, 8 bit \n"); // other flags mean nothing
}

TEST_F(ubrof, a_bad_date_of_a_program_record_is_reported_for_both_tags)
{
    const std::string report = "(1051) bad date in 0x01 record\n";
    const auto program = [](int tag, int day, int month) {
        return HEAD + bytes({tag, 1, 0, 0, day, month, 90}) + counted("m") + END;
    };
    EXPECT_EQ(dump(program(0x01, 32, 1)), (dump_result{false, HEAD_TEXT, report}));
    EXPECT_EQ(dump(program(0x02, 1, 13)), (dump_result{false, HEAD_TEXT, report}));
    EXPECT_TRUE(dump(program(0x02, 0, 0)).result);
}

TEST_F(ubrof, data_and_origin)
{
    const std::string origin = bytes({0x51, 5}) + longword(0x1234);
    const std::string data = bytes({0x39, 3, 'a', 'b', 'c'});
    EXPECT_EQ(records(origin + data + data), "Data: 3 bytes in seg 5 at 0x1234\n"
                                             "Data: 3 bytes in seg 5 at 0x1237\n");
    EXPECT_EQ(verbose_records(origin + bytes({0x39, 0})), "Origin 0x1234 in segment 5\n"
                                                          "Data: 0 bytes in seg 5 at 0x1234\n");
}

TEST_F(ubrof, data_is_shown_in_rows_of_sixteen_when_asked_for)
{
    const std::string origin = bytes({0x51, 255}) + longword(0x8);
    std::string data = bytes({0x39, 18, 0x1F, 0x20, 0x7E, 0x7F, 0x80, 0xFF});
    data += "ABCDEFGHIJ%s";
    EXPECT_EQ(verbose_records(origin + data), "Origin 0x8 in segment 255\n"
                                              "Data: 18 bytes in seg 255 at 0x8\n"
                                              "0008: 1F 20 7E 7F 80 FF 41 42 43 44 45 46 47 48 49 4A. ~...ABCDEFGHIJ\n"
                                              "0018: 25 73%s\n");
}

TEST_F(ubrof, addresses_have_32_bits)
{
    const std::string origin = bytes({0x51, 1}) + longword(0xFFFFFFFF);
    EXPECT_EQ(records(origin + bytes({0x39, 1, 0, 0x39, 1, 0})), "Data: 1 bytes in seg 1 at 0xFFFFFFFF\n"
                                                                 "Data: 1 bytes in seg 1 at 0x0\n");
}

TEST_F(ubrof, segment_and_origin_carry_over_to_the_next_file)
{
    EXPECT_EQ(records(bytes({0x51, 7}) + longword(0x70) + bytes({0x39, 1, 0})), "Data: 1 bytes in seg 7 at 0x70\n");
    EXPECT_EQ(records(bytes({0x39, 1, 0})), "Data: 1 bytes in seg 7 at 0x71\n");
}

TEST_F(ubrof, the_longest_data_record)
{
    const std::string origin = bytes({0x51, 0}) + longword(0x100);
    EXPECT_EQ(records(origin + bytes({0x39, 255}) + std::string(255, 'x') + bytes({0x39, 0})),
              "Data: 255 bytes in seg 0 at 0x100\nData: 0 bytes in seg 0 at 0x1FF\n");
}

TEST_F(ubrof, statement_record)
{
    EXPECT_EQ(records(bytes({0x47}) + word(65535) + word(0xABCD) + word(65535) + bytes({0xE}) + word(0x1)),
              "Statement: line 65535 seg ABCD flags E 1\n");
    EXPECT_EQ(records(bytes({0x47}) + word(10) + word(1) + word(12) + bytes({0xFF}) + word(0xF00D)),
              "Statement: line 10-12 seg 1 flags FF F00D\n");
}

TEST_F(ubrof, a_4a_record_prints_nothing)
{
    const std::string next = bytes({0x53, 1, 2});
    EXPECT_EQ(records(bytes({0x4A, 1, 2, 0x10}) + next), "Aux record: 0x01 0x02\n");
    EXPECT_EQ(records(bytes({0x4A, 1, 2, 0x11}) + counted("S\xFF") + next), "Aux record: 0x01 0x02\n");
}

TEST_F(ubrof, symbol_record)
{
    const auto symbol = [](int kind, unsigned segment, const std::string &last) {
        return records(bytes({0x4C, kind}) + word(segment) + longword(0xBEEF) + counted("f") + last);
    };
    const std::string zeros = bytes({0, 0, 0});
    const std::string rest = "addr = 0xBEEF  \"f\"";
    EXPECT_EQ(symbol(1, 1, zeros), "Symbol; public/abs CODE " + rest + "\n");
    EXPECT_EQ(symbol(2, 2, zeros), "Symbol; public/reloc DATA " + rest + "\n");
    EXPECT_EQ(symbol(3, 3, zeros), "Symbol; local/abs XDATA " + rest + "\n");
    EXPECT_EQ(symbol(4, 4, zeros), "Symbol; local/reloc IDATA " + rest + "\n");
    EXPECT_EQ(symbol(5, 5, zeros), "Symbol; external BIT " + rest + "\n");
    EXPECT_EQ(symbol(0, 6, zeros), "Symbol; type?? 0x00 REGISTER " + rest + "\n");
    EXPECT_EQ(symbol(6, 7, zeros), "Symbol; type?? 0x06 CONST " + rest + "\n");
    EXPECT_EQ(symbol(0xAB, 0, zeros), "Symbol; type?? 0xAB segment 0x0 " + rest + "\n");
    EXPECT_EQ(symbol(1, 8, zeros), "Symbol; public/abs segment 0x8 " + rest + "\n");
    EXPECT_EQ(symbol(1, 0x1FF, bytes({0, 0, 1})), "Symbol; public/abs segment 0x1FF " + rest + " 00 00 01\n");
    EXPECT_EQ(symbol(1, 1, bytes({0xAA, 0, 0})), "Symbol; public/abs CODE " + rest + " AA 00 00\n");
}

TEST_F(ubrof, debug_record)
{
    const std::string stamp = bytes({9, 8, 7, 6, 5, 4});
    EXPECT_EQ(records(bytes({0x52, 0, 0xB9, 0, 0, 0}) + counted("a.c") + stamp),
              "Debug record: \"a.c\" modified 1904/5/6 07:08:09\n");
    EXPECT_EQ(records(bytes({0x52, 0, 0xB9, 0, 0, 1}) + counted("a.c") + stamp),
              "Debug record: 00 B9 00 00 01 \"a.c\" modified 1904/5/6 07:08:09\n");
}

TEST_F(ubrof, nothing_of_a_debug_record_with_a_bad_stamp_is_printed)
{
    EXPECT_EQ(dump(HEAD + bytes({0x52, 0, 0xB9, 0, 0, 0}) + counted("a.c") + bytes({0, 60, 0, 1, 1, 1}) + END),
              (dump_result{false, HEAD_TEXT, "(1050) bad date in 0x52 record\n"}));
}

TEST_F(ubrof, auxiliary_and_translator_records)
{
    EXPECT_EQ(records(bytes({0x53, 0x0A, 0xFF})), "Aux record: 0x0A 0xFF\n");
    EXPECT_EQ(records(bytes({0x54, 0x0A, 0xFF}) + counted("cc 1.0")), "Translator: 0x0A 0xFF \"cc 1.0\"\n");
}

TEST_F(ubrof, a_string_ends_at_a_nul_when_printed)
{
    EXPECT_EQ(records(bytes({0x54, 0, 0}) + counted(std::string("a\0b", 3)) + bytes({0x53, 1, 1})),
              "Translator: 0x00 0x00 \"a\"\nAux record: 0x01 0x01\n");
}

// --- CRC -------------------------------------------------------------------------------------------------------------

TEST_F(ubrof, the_crc_takes_bits_from_the_lowest_up)
{
    // Of a byte 0x80 the one bit comes last: what it leaves is the polynomial. Then the same for the 3F of a CRC record
    // alone, bit by bit: 8005 000A 8011 0022 8041 0082 0104 0208.
    EXPECT_EQ(crc_of("\x80"), 0x8005);
    EXPECT_EQ(crc_of("\x3F"), 0x0208);
    EXPECT_EQ(dump(with_crc(HEAD) + bytes({0x3F, 0x02, 0x08}) + END), (dump_result{true, HEAD_TEXT, ""}));
}

TEST_F(ubrof, each_stretch_is_checked_from_zero)
{
    const std::string first = with_crc(HEAD + bytes({0x53, 1, 2}));
    const std::string second = with_crc(bytes({0x53, 3, 4}));
    EXPECT_EQ(dump(first + second + END),
              (dump_result{true, HEAD_TEXT + "Aux record: 0x01 0x02\nAux record: 0x03 0x04\n", ""}));
}

TEST_F(ubrof, every_byte_value_enters_the_crc)
{
    std::string data;
    for (int i = 0; i < 256; ++i) {
        data += bytes({0x53, i, 255 - i});
    }
    EXPECT_TRUE(dump(with_crc(HEAD + data) + END).result);
}

TEST_F(ubrof, a_match_is_told_with_the_place_of_its_record)
{
    opt_verbose = 1;
    const std::string first = with_crc(HEAD); // the tag stands behind the seven bytes of the head
    EXPECT_EQ(dump(first + with_crc("") + END).output, HEAD_TEXT + "CRC matched at 7\nCRC matched at A\n");
}

TEST_F(ubrof, a_wrong_crc_is_reported_with_the_bytes_of_the_stretch)
{
    const std::string stretch = HEAD + bytes({0x53, 0x41, 0x42, 0x3F});
    const std::uint16_t right = crc_of(stretch);
    char report[80];
    std::snprintf(report, sizeof report, "(1049) wrong CRC on 0xB bytes; should be %04X\n", right);
    const std::string output = HEAD_TEXT + "Aux record: 0x41 0x42\n";
    for (const unsigned error : {1U, 0x100U, 0x8000U}) {
        EXPECT_EQ(dump(stretch + word(right ^ error) + END), (dump_result{false, output, report}));
    }
    // 58 59 23 31 12 99 in hexadecimal, and the rest.
    opt_verbose = 1;
    EXPECT_EQ(dump(stretch + word(right ^ 1U) + END),
              (dump_result{false, output + "0000: A5 3A 3B 17 1F 0C 63 53 41 42 3F.:;...cSAB?\n", report}));
}

TEST_F(ubrof, the_count_begins_anew_behind_a_crc_record)
{
    const std::string wrong = bytes({0x53, 1, 2, 0x3F});
    char report[80];
    std::snprintf(report, sizeof report, "(1049) wrong CRC on 0x4 bytes; should be %04X\n", crc_of(wrong));
    opt_verbose = 1;
    EXPECT_EQ(
        dump(with_crc(HEAD) + wrong + word(crc_of(wrong) ^ 0x10U) + END),
        (dump_result{false, HEAD_TEXT + "CRC matched at 7\nAux record: 0x01 0x02\n0000: 53 01 02 3FS..?\n", report}));
}

TEST_F(ubrof, a_long_stretch_is_checked_whole_though_its_log_is_not)
{
    std::string stretch = HEAD;
    std::string output = HEAD_TEXT;
    for (int i = 0; i < 1500; ++i) {
        stretch += bytes({0x53, 'x', 'y'});
        output += "Aux record: 0x78 0x79\n";
    }
    EXPECT_EQ(dump(with_crc(stretch) + END), (dump_result{true, output, ""}));

    // 7 + 4500 bytes and the tag are 4508, 0x119C. 4096 bytes are 256 rows; the last one begins at 0FF0. Counted from
    // the head, byte 7 + 3 n is a tag, and 0xFF0 is 7 + 3 * 1357 + 2: the second byte behind a tag.
    opt_verbose = 1;
    const dump_result r = dump(stretch + bytes({0x3F, 0, 0}) + END);
    EXPECT_FALSE(r.result);
    char report[80];
    std::snprintf(report, sizeof report, "(1049) wrong CRC on 0x119C bytes; should be %04X\n",
                  crc_of(stretch + bytes({0x3F})));
    EXPECT_EQ(r.errors, report);
    const std::string rows = r.output.substr(output.size());
    EXPECT_EQ(std::count(rows.begin(), rows.end(), '\n'), 256);
    const std::string last = "0FF0: 79 53 78 79 53 78 79 53 78 79 53 78 79 53 78 79ySxySxySxySxySxy\n";
    ASSERT_GE(rows.size(), last.size());
    EXPECT_EQ(rows.substr(rows.size() - last.size()), last);
}

// --- ends in the midst -----------------------------------------------------------------------------------------------

TEST_F(ubrof, a_lost_byte_is_reported_and_counts_as_255)
{
    EXPECT_EQ(dump(HEAD + bytes({0x53, 7})),
              (dump_result{false, HEAD_TEXT + "Aux record: 0x07 0xFF\n", times(2, END_OF_FILE)}));
    EXPECT_EQ(dump(HEAD + bytes({0x53})),
              (dump_result{false, HEAD_TEXT + "Aux record: 0xFF 0xFF\n", times(3, END_OF_FILE)}));
    EXPECT_EQ(dump(HEAD + bytes({0x47, 0, 1, 0, 2, 0})),
              (dump_result{false, HEAD_TEXT + "Statement: line 1-255 seg 2 flags FF FFFF\n", times(5, END_OF_FILE)}));
    opt_verbose = 1;
    EXPECT_EQ(dump(HEAD + bytes({0x51, 1, 0x12, 0x34})),
              (dump_result{false, HEAD_TEXT + "Origin 0x1234FFFF in segment 1\n", times(3, END_OF_FILE)}));
}

TEST_F(ubrof, a_short_block_is_reported_and_shows_what_the_buffer_holds)
{
    EXPECT_EQ(dump(HEAD + bytes({0xC0, 1, 2, 3, 4, 5, 6, 0xC0, 9, 8})),
              (dump_result{false, HEAD_TEXT + "C0 record: 01 02 03 04 05 06\nC0 record: 09 08 03 04 05 06\n",
                           "(1045) short read on block of 6 bytes\n" + END_OF_FILE}));
    const std::string origin = bytes({0x51, 1}) + longword(0);
    EXPECT_EQ(dump(HEAD + origin + bytes({0x39, 200, 1})),
              (dump_result{false, HEAD_TEXT + "Data: 200 bytes in seg 1 at 0x0\n",
                           "(1045) short read on block of 200 bytes\n" + END_OF_FILE}));
}

TEST_F(ubrof, data_whose_count_is_lost_is_a_block_of_255)
{
    const std::string origin = bytes({0x51, 1}) + longword(0);
    EXPECT_EQ(dump(HEAD + origin + bytes({0x39})),
              (dump_result{false, HEAD_TEXT + "Data: 255 bytes in seg 1 at 0x0\n",
                           END_OF_FILE + "(1045) short read on block of 255 bytes\n" + END_OF_FILE}));
}

TEST_F(ubrof, a_short_string_is_reported_and_has_the_characters_that_came)
{
    EXPECT_EQ(
        dump(HEAD + bytes({0x54, 1, 2, 5, 'a', 'b'})),
        (dump_result{false, HEAD_TEXT + "Translator: 0x01 0x02 \"ab\"\n", "(1046) short string read\n" + END_OF_FILE}));
    EXPECT_EQ(dump(HEAD + bytes({0x54, 1, 2})),
              (dump_result{false, HEAD_TEXT + "Translator: 0x01 0x02 \"\"\n",
                           END_OF_FILE + "(1046) short string read\n" + END_OF_FILE}));
}

TEST_F(ubrof, a_record_cut_in_its_stamp_has_a_bad_one)
{
    EXPECT_EQ(dump(HEAD + bytes({0x52, 0, 0xB9, 0, 0, 0, 1, 'a', 1, 2, 3, 4})),
              (dump_result{false, HEAD_TEXT, times(2, END_OF_FILE) + "(1050) bad date in 0x52 record\n"}));
    // The year alone may be lost: 255 is a year.
    EXPECT_EQ(
        dump(HEAD + bytes({0x52, 0, 0xB9, 0, 0, 0, 1, 'a', 1, 2, 3, 4, 5})),
        (dump_result{false, HEAD_TEXT + "Debug record: \"a\" modified 2155/5/4 03:02:01\n", times(2, END_OF_FILE)}));
}

TEST_F(ubrof, a_program_record_is_read_to_its_end_before_its_date_is_judged)
{
    EXPECT_EQ(dump(HEAD + bytes({0x01, 1, 0, 0, 1})),
              (dump_result{false, HEAD_TEXT,
                           times(3, END_OF_FILE) + "(1046) short string read\n(1051) bad date in 0x01 record\n"}));
}

TEST_F(ubrof, a_segment_record_whose_count_is_lost_has_255_pairs)
{
    const dump_result r = dump(HEAD + bytes({0x01, 0, 1, 2, 3}) + counted("S") + bytes({4}));
    EXPECT_FALSE(r.result);
    EXPECT_EQ(r.errors, times(1 + 255 * 8 + 1, END_OF_FILE));
    const std::string end = times(255, "0xFFFFFFFF\t0xFFFFFFFF\n") + "\n";
    ASSERT_GE(r.output.size(), end.size());
    EXPECT_EQ(r.output.substr(r.output.size() - end.size()), end);
}

TEST_F(ubrof, lost_bytes_of_a_crc_are_taken_off_the_count_all_the_same)
{
    const std::string stretch = HEAD + bytes({0x3F});
    const auto report = [&](unsigned count) {
        char text[80];
        std::snprintf(text, sizeof text, "(1049) wrong CRC on 0x%X bytes; should be %04X\n", count, crc_of(stretch));
        return std::string(text);
    };
    opt_verbose = 1;
    EXPECT_EQ(dump(stretch),
              (dump_result{false, HEAD_TEXT + "0000: A5 3A 3B 17 1F 0C.:;...\n", times(2, END_OF_FILE) + report(6)}));
    EXPECT_EQ(dump(stretch + "\x01"),
              (dump_result{false, HEAD_TEXT + "0000: A5 3A 3B 17 1F 0C 63.:;...c\n", END_OF_FILE + report(7)}));
}

// --- any bytes -------------------------------------------------------------------------------------------------------

std::string one_of_each()
{
    const std::string first = HEAD + bytes({0xBD, 6, 0, 0, 5, 0xBA, 2, 0xBE, 0xFF, 0xBF, 2, 0xC0, 0xFF, 0xC1, 5}) +
                              bytes({0xC0, 1, 2, 3, 4, 5, 6}) + bytes({0x01, 1, 3, 16, 1, 2, 90}) + counted("main") +
                              bytes({0x02, 0, 1, 2, 3}) + counted("CODE") + bytes({1, 1}) + longword(0x100) +
                              longword(0x20);
    const std::string second = bytes({0x51, 1}) + longword(0x100) + bytes({0x39, 2, 1, 2}) + bytes({0x47}) + word(1) +
                               word(1) + word(2) + bytes({0}) + word(0) + bytes({0x4A, 0, 0, 0x11}) + counted("x") +
                               bytes({0x4C, 1}) + word(1) + longword(1) + counted("f") + bytes({0, 0, 1}) +
                               bytes({0x52, 1, 2, 3, 4, 5}) + counted("a.c") + STAMP + bytes({0x53, 1, 2}) +
                               bytes({0x54, 1, 2}) + counted("cc");
    return with_crc(first) + with_crc(second) + END;
}

TEST_F(ubrof, a_file_cut_anywhere_fails_but_when_it_is_empty)
{
    const std::string whole = one_of_each();
    EXPECT_TRUE(dump(whole).result);
    EXPECT_EQ(dump(whole).errors, "");
    for (std::size_t size = 1; size < whole.size(); ++size) {
        const dump_result r = dump(whole.substr(0, size));
        EXPECT_FALSE(r.result) << size;
        EXPECT_NE(r.errors, "") << size;
    }
}

TEST_F(ubrof, a_change_of_one_byte_does_not_go_unnoticed)
{
    // Within the stretches the CRC finds each of them, unless the record structure breaks before.
    const std::string whole = one_of_each();
    opt_verbose = 1;
    for (std::size_t at = 0; at + 1 < whole.size(); ++at) {
        std::string changed = whole;
        changed[at] = static_cast<char>(changed[at] ^ 0x40);
        const dump_result r = dump(changed);
        EXPECT_TRUE(!r.result || r.errors != "") << at;
    }
}

TEST_F(ubrof, bytes_at_random_come_to_an_end)
{
    std::mt19937 random(7);
    const std::string tags = bytes({0x01, 0x02, 0x39, 0x47, 0x4A, 0x4C, 0x51, 0x52, 0x53, 0x54, 0xBD, 0xC0});
    opt_verbose = 1;
    for (int round = 0; round < 500; ++round) {
        std::string content = HEAD;
        for (std::size_t i = random() % 300; i > 0; --i) {
            content += random() % 4 != 0 ? tags[random() % tags.size()] : static_cast<char>(random() % 256);
        }
        const dump_result r = dump(content);
        EXPECT_TRUE(r.result || r.errors != "") << round; // a failure never goes without a report
    }
}

} // namespace
