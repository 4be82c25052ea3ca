// SPDX-License-Identifier: MIT
// The hash of the indexes: a function of the text alone, which spreads the names of programs.
#include "common/texthash.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "common/hash.h"
#include "tests/unit/common/equal_hashes.h"

namespace {

using hash_list = std::vector<std::uint32_t>;

hash_list hashes_of(const std::vector<std::string> &texts)
{
    hash_list all;
    for (const std::string &text : texts) {
        all.push_back(hash_text(text));
    }
    return all;
}

// How many of them have been there before.
std::size_t repeats(hash_list all)
{
    std::sort(all.begin(), all.end());
    return all.size() - static_cast<std::size_t>(std::unique(all.begin(), all.end()) - all.begin());
}

// Names as a compiler, its user and the tools around them make them.
std::vector<std::string> names_of_programs(std::size_t count)
{
    static constexpr const char *FRONTS[] = {"_",   "_main_", "L", "?_", "_counter", "C:\\work\\project\\source\\file",
                                             "Unit"};
    static constexpr const char *BACKS[] = {"", "_low", "$init", ".c", ".obj", "_handler"};
    std::vector<std::string> names;
    for (std::size_t i = 0; names.size() < count; ++i) {
        for (const char *front : FRONTS) {
            for (const char *back : BACKS) {
                names.push_back(front + std::to_string(i) + back);
            }
        }
    }
    names.resize(count);
    return names;
}

} // namespace

TEST(TextHash, DependsOnTheTextAlone)
{
    constexpr std::size_t LONGEST = 41;
    constexpr std::size_t PLACES = 16;
    constexpr std::string_view TEXT = "a text that is some steps of the hash long";
    static_assert(TEXT.size() > LONGEST);
    for (std::size_t length = 0; length <= LONGEST; ++length) {
        const std::string_view text = TEXT.substr(0, length);
        const std::uint32_t expected = hash_text(text);
        for (std::size_t place = 0; place < PLACES; ++place) {
            for (const char around : {'\0', ' ', '\xFF'}) {
                std::string elsewhere(place, around);
                elsewhere += text;
                elsewhere.append(PLACES, around);
                ASSERT_EQ(hash_text(std::string_view(elsewhere).substr(place, length)), expected) << length << place;
            }
        }
        // Of this size and no byte more: a sanitizer sees a step beyond the end.
        const std::vector<char> exact(text.begin(), text.end());
        ASSERT_EQ(hash_text(std::string_view(exact.data(), exact.size())), expected) << length;
    }
}

TEST(TextHash, TheLengthCounts)
{
    for (const char c : {'\0', 'a', ' ', '\xFF'}) {
        std::vector<std::string> texts;
        for (std::size_t length = 0; length <= 100; ++length) {
            texts.emplace_back(length, c);
            texts.push_back("name" + std::string(length + 1, c));
        }
        EXPECT_EQ(repeats(hashes_of(texts)), 0U) << static_cast<int>(c);
    }
    EXPECT_EQ(hash_text(std::string_view()), hash_text(""));
}

TEST(TextHash, EveryBitCounts)
{
    constexpr int BITS = 8;
    for (std::size_t length = 1; length <= 26; ++length) {
        std::vector<std::string> texts = {std::string(length, 'm')};
        for (std::size_t at = 0; at < length; ++at) {
            for (int bit = 0; bit < BITS; ++bit) {
                std::string text = texts[0];
                text[at] = static_cast<char>(text[at] ^ 1 << bit);
                texts.push_back(text);
            }
        }
        EXPECT_EQ(repeats(hashes_of(texts)), 0U) << length;
    }
}

TEST(TextHash, PlacesOfPiecesCount)
{
    // Whole steps of eight characters, in all orders.
    std::vector<std::string> pieces = {"12345678", "abcdefgh", "        ", "12345679"};
    std::vector<std::string> texts;
    do {
        texts.push_back(pieces[0] + pieces[1] + pieces[2] + pieces[3]);
    } while (std::next_permutation(pieces.begin(), pieces.end()));
    texts.emplace_back("1234567812345678");
    texts.emplace_back("abcdefghabcdefgh");
    texts.emplace_back("abcdefghabcdefghabcdefghabcdefgh");
    EXPECT_EQ(repeats(hashes_of(texts)), 0U);
}

// Of 100000 hashes of 32 bits, chance makes about one repeat another: 100000 squared over 2 to the 33rd.
TEST(TextHash, SpreadsNamesOfPrograms)
{
    constexpr std::size_t COUNT = 100000;
    const hash_list all = hashes_of(names_of_programs(COUNT));
    EXPECT_LE(repeats(all), 8U);

    // Any sixteen bits of them leave as many of 65536 boxes empty as chance does.
    constexpr std::size_t BOXES = 65536;
    const double by_chance = BOXES * std::exp(-static_cast<double>(COUNT) / BOXES);
    for (const int shift : {0, 5, 11, 16}) {
        hash_list boxes;
        for (const std::uint32_t hash : all) {
            boxes.push_back(hash >> shift & (BOXES - 1));
        }
        const std::size_t used = COUNT - repeats(boxes);
        EXPECT_NEAR(static_cast<double>(BOXES - used), by_chance, by_chance / 20) << shift;
    }
}

TEST(TextHash, SpreadsNamesThatTheSpecifiedHashCannotTell)
{
    const std::vector<std::string> names = names_of_equal_hash(16);
    ASSERT_EQ(names.size(), 65536U);
    for (const std::string &name : names) {
        ASSERT_EQ(hash_string(name.c_str()), hash_string(names[0].c_str()));
    }
    EXPECT_LE(repeats(hashes_of(names)), 6U) << "chance makes one in two cases";
}

// Other tests rest on these.
TEST(TextHash, TextsOfEqualHashCanBeMade)
{
    const std::vector<std::string> texts = texts_of_equal_text_hash(300);
    EXPECT_EQ(repeats(hashes_of(texts)), texts.size() - 1);
    const std::string text = text_with_beginning_of_equal_text_hash();
    EXPECT_EQ(hash_text(text), hash_text(std::string_view(text).substr(0, 8)));
}
