// SPDX-License-Identifier: MIT
// Free caches.
#include "common/freecache.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/common/container_testing.h"

namespace {

constexpr std::size_t SIZE = 40;

bool all_zero(const void *object)
{
    const auto *bytes = static_cast<const unsigned char *>(object);
    return std::all_of(bytes, bytes + SIZE, [](unsigned char byte) { return byte == 0; });
}

} // namespace

TEST(Freecache, EveryClientKeeps8192)
{
    EXPECT_EQ(FREECACHE_LIMIT, 8192U);
}

TEST(Freecache, NullCacheGivesNull)
{
    EXPECT_EQ(freecache_get(nullptr), nullptr);
}

TEST(Freecache, ObjectsComeBackZeroFilledLastInFirstOut)
{
    freecache *cache = freecache_new(SIZE, 5);
    EXPECT_EQ(cache->obj_size, SIZE);
    EXPECT_EQ(cache->max_objs, 5U);
    void *first = freecache_get(cache);
    void *second = freecache_get(cache);
    EXPECT_TRUE(all_zero(first));
    EXPECT_TRUE(all_zero(second));
    std::memset(first, 0xAA, SIZE);
    std::memset(second, 0xBB, SIZE);
    EXPECT_EQ(freecache_put(cache, first), 1U);
    EXPECT_EQ(freecache_put(cache, second), 2U);
    EXPECT_EQ(freecache_get(cache), second);
    EXPECT_TRUE(all_zero(second));
    EXPECT_EQ(cache->count, 1U);
    EXPECT_EQ(freecache_get(cache), first);
    EXPECT_TRUE(all_zero(first));
    EXPECT_EQ(cache->count, 0U);
    freecache_put(cache, first);
    freecache_put(cache, second);
}

TEST(Freecache, FullCacheFreesWhatItIsGiven)
{
    freecache *cache = freecache_new(SIZE, 2);
    std::vector<void *> objects;
    for (int made = 0; made < 3; ++made) {
        objects.push_back(freecache_get(cache));
    }
    EXPECT_EQ(freecache_put(cache, objects[0]), 1U);
    EXPECT_EQ(freecache_put(cache, objects[1]), 2U);
    EXPECT_EQ(freecache_put(cache, objects[2]), 0U);
    EXPECT_EQ(cache->count, 2U);
    EXPECT_EQ(freecache_get(cache), objects[1]);
    EXPECT_EQ(freecache_put(cache, objects[1]), 2U);
}

TEST(FreecacheDeath, ChecksOfState)
{
    EXPECT_CHECK(freecache_new(0, 1), "obj_size != 0");
    EXPECT_CHECK(freecache_new(SIZE, 0), "max_objs != 0");
    EXPECT_CHECK(freecache_new(sizeof(void *) - 1, 1), "obj_size >= sizeof (void*)");
    int object = 0;
    EXPECT_CHECK(freecache_put(nullptr, &object), "fc != NULL");
    freecache *cache = freecache_new(sizeof(void *), 1);
    EXPECT_CHECK(freecache_put(cache, nullptr), "obj != NULL");
}
