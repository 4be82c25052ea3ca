// SPDX-License-Identifier: MIT
// Decoding and printing of hexadecimal fields. Runs of bytes go in steps of sixteen where the host can; each expected value
// comes from one character at a time.
#include "compiler/tarnwick/hexdigits.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "compiler/tarnwick/image_writer.h"
#include "tests/unit/tarnwick/random_numbers.h"

namespace {

// The value of two digits, or 65535.
std::uint32_t pair_value(std::string_view pair)
{
    constexpr std::string_view DIGITS = "0123456789ABCDEF0123456789abcdef";
    const std::size_t high = DIGITS.find(pair[0]);
    const std::size_t low = DIGITS.find(pair[1]);
    const bool bad = high == std::string_view::npos || low == std::string_view::npos;
    return bad ? 0xFFFF : static_cast<std::uint32_t>(high % 16 * 16 + low % 16);
}

// Decodes `count` bytes at `position` and compares with the same pair by pair; those behind the end of the line are bad.
void expect_decoded(const std::string &line, std::size_t position, std::uint32_t count)
{
    std::vector<std::uint8_t> expected;
    std::uint32_t expected_sum = 0;
    for (std::size_t at = position; expected.size() < count; at += 2) {
        const std::uint32_t value = at + 2 <= line.size() ? pair_value(std::string_view(line).substr(at, 2)) : 0xFFFF;
        expected.push_back(static_cast<std::uint8_t>(value));
        expected_sum += value;
    }
    std::vector<std::uint8_t> bytes(count + 1, 0xA5);
    EXPECT_EQ(hex_bytes(line, position, count, bytes.data()), expected_sum) << line << " at " << position;
    EXPECT_EQ(bytes.back(), 0xA5) << "nothing is stored behind the last byte";
    bytes.pop_back();
    EXPECT_EQ(bytes, expected) << line << " at " << position;
}

TEST(HexBytes, EachCharacterInEachPlace)
{
    constexpr std::string_view GOOD = "0123456789ABCDEFfedcba9876543210";
    for (std::size_t place = 0; place < GOOD.size(); ++place) {
        for (int c = 0; c < 256; ++c) {
            std::string line(GOOD);
            line[place] = static_cast<char>(c);
            expect_decoded(line, 0, 16);
        }
    }
}

TEST(HexBytes, AnyLengthAndAnyPlaceInALine)
{
    constexpr std::string_view CHARACTERS = "0123456789ABCDEFabcdef";
    random_numbers random(7);
    for (std::uint32_t count = 0; count <= 70; ++count) {
        for (std::size_t position = 0; position < 12; ++position) {
            std::string line(position, ':');
            while (line.size() < position + std::size_t{count} * 2) {
                line += CHARACTERS[random() % CHARACTERS.size()];
            }
            expect_decoded(line, position, count);
            expect_decoded(line, position, count + 3);
            if (count != 0) {
                line[position + random() % (std::size_t{count} * 2)] = 'g';
                expect_decoded(line, position, count);
            }
        }
    }
    expect_decoded("", 0, 20);
    expect_decoded("00", 9, 20);
}

TEST(ImageWriter, PrintsTheDigitsAndTheSumOfAnyBytes)
{
    random_numbers random(11);
    for (std::uint32_t count = 0; count <= 70; ++count) {
        std::vector<std::uint8_t> bytes(count);
        std::string expected;
        std::uint32_t expected_sum = 5;
        for (std::uint8_t &byte : bytes) {
            byte = static_cast<std::uint8_t>(random());
            expected += "0123456789ABCDEF"[byte / 16];
            expected += "0123456789ABCDEF"[byte % 16];
            expected_sum += byte;
        }
        std::string text(expected.size() + 1, '.');
        std::uint32_t sum = 5;
        char *end = image_writer::put_bytes(text.data(), bytes.data(), count, &sum);
        EXPECT_EQ(end, text.data() + expected.size());
        EXPECT_EQ(text, expected + ".");
        EXPECT_EQ(sum, expected_sum);
    }
}

TEST(ImageWriter, PrintsEachByteInEachPlace)
{
    for (std::uint32_t value = 0; value < 256; ++value) {
        for (std::size_t place = 0; place < 16; ++place) {
            std::vector<std::uint8_t> bytes(16, 0x9A);
            bytes[place] = static_cast<std::uint8_t>(value);
            std::string expected;
            for (const std::uint8_t byte : bytes) {
                expected += "0123456789ABCDEF"[byte / 16];
                expected += "0123456789ABCDEF"[byte % 16];
            }
            std::string text(32, '.');
            std::uint32_t sum = 0;
            image_writer::put_bytes(text.data(), bytes.data(), 16, &sum);
            EXPECT_EQ(text, expected);
            EXPECT_EQ(sum, 15 * 0x9A + value);
        }
    }
}

} // namespace
