// SPDX-License-Identifier: MIT
// The allocation wrappers and the arena.
#include "common/alloc.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <vector>

#include <gtest/gtest.h>

#include "common/catalogue.h"

namespace {

bool all_zero(const void *memory, std::size_t size)
{
    const auto *bytes = static_cast<const unsigned char *>(memory);
    return std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == 0; });
}

struct record {
    int number = 3;
    const char *name = nullptr;
};

constexpr std::size_t TOO_MUCH = std::numeric_limits<std::size_t>::max();

} // namespace

TEST(Alloc, MemoryIsZeroFilled)
{
    for (const std::size_t size : {1U, 24U, 5000U, 300000U}) {
        void *memory = xalloc(size);
        EXPECT_TRUE(all_zero(memory, size));
        std::memset(memory, 0xFF, size);
        std::free(memory);
    }
}

TEST(Alloc, ZeroBytesAreAnAllocationToo)
{
    void *memory = xalloc(0);
    EXPECT_NE(memory, nullptr);
    memory = xrealloc(memory, 0);
    EXPECT_NE(memory, nullptr);
    std::free(memory);
}

TEST(Alloc, ReallocKeepsTheContent)
{
    auto *text = static_cast<char *>(xrealloc(nullptr, 6));
    std::memcpy(text, "hello", 6);
    text = static_cast<char *>(xrealloc(text, 100000));
    EXPECT_STREQ(text, "hello");
    text = static_cast<char *>(xrealloc(text, 6));
    EXPECT_STREQ(text, "hello");
    std::free(text);
}

TEST(Arena, PiecesAreZeroFilledAlignedAndApart)
{
    struct piece {
        unsigned char *memory;
        std::size_t size;
    };
    std::vector<piece> pieces;
    // Enough for several shared blocks, with requests around every bound.
    for (unsigned round = 0; round < 3000; ++round) {
        const std::size_t align = std::size_t{1} << (round % 8);
        const std::size_t size = round % 500 == 499 ? 400000 : round % 100 == 99 ? 65536 - align : round % 321;
        auto *memory = static_cast<unsigned char *>(xarena(size, align));
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(memory) % align, 0U);
        ASSERT_TRUE(all_zero(memory, size));
        std::memset(memory, static_cast<int>(round % 255 + 1), size);
        pieces.push_back({memory, size});
    }
    for (unsigned round = 0; round < pieces.size(); ++round) {
        const piece &p = pieces[round];
        ASSERT_TRUE(
            std::all_of(p.memory, p.memory + p.size, [round](unsigned char byte) { return byte == round % 255 + 1; }));
    }
}

TEST(Arena, RecordsAreInitialised)
{
    const record *plain = xnew<record>();
    EXPECT_EQ(plain->number, 3);
    EXPECT_EQ(plain->name, nullptr);
    const record *copied = xnew(record{.number = 4, .name = "n"});
    EXPECT_EQ(copied->number, 4);
    EXPECT_STREQ(copied->name, "n");
}

TEST(AllocDeath, ExhaustionIsAFatalReport)
{
    EXPECT_EXIT(xalloc(TOO_MUCH), testing::ExitedWithCode(1), "out of memory");
    EXPECT_EXIT(xrealloc(nullptr, TOO_MUCH), testing::ExitedWithCode(1), "out of memory");
    EXPECT_EXIT(xarena(TOO_MUCH, 1), testing::ExitedWithCode(1), "out of memory");
    EXPECT_EXIT(xarena(TOO_MUCH / 2, 16), testing::ExitedWithCode(1), "out of memory");
}

// What the C++ library calls when its own allocation fails.
TEST(AllocDeath, TheLibrarysExhaustionIsTheSameReport)
{
    const auto exhaust = [] {
        xalloc_report_all();
        std::get_new_handler()();
    };
    EXPECT_EXIT(exhaust(), testing::ExitedWithCode(1), "out of memory");
}

TEST(AllocDeath, NoOneGoesOnWhenACatalogueLoweredTheReport)
{
    const auto exhaust = [] {
        if (!message_table) {
            catalogue_initialise();
        }
        message_table.get(296)->type = MESSAGE_WARNING;
        xalloc(TOO_MUCH);
    };
    EXPECT_EXIT(exhaust(), testing::ExitedWithCode(1), "out of memory \\(warning\\)");
}
