// SPDX-License-Identifier: MIT
// The sizes of the pointer classes.
#include "compiler/common/pointers.h"

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/compiler/tmf_testing.h"

namespace {

TEST(PointerClasses, Sizes)
{
    // By class number; all that are not listed here have one byte.
    const std::vector<std::int32_t> two_bytes = {2, 25, 26, 32, 34, 35, 37, 39};
    const std::vector<std::int32_t> three_bytes = {3, 33, 36, 38};
    for (std::int32_t id = PTR_START; id <= PTR_END; id++) {
        const bool two = std::count(two_bytes.begin(), two_bytes.end(), id) != 0;
        const bool three = std::count(three_bytes.begin(), three_bytes.end(), id) != 0;
        EXPECT_EQ(ptr_size(id), three ? 3U : two ? 2U : 1U) << id;
    }
}

TEST(PointerClasses, Bounds)
{
    EXPECT_EQ(PTR_START, 1);
    EXPECT_EQ(PTR_END, 55);
    EXPECT_EQ(ptr_size(0), 0U);
    EXPECT_EQ(ptr_size(-1), 0U);
    EXPECT_EQ(ptr_size(56), 0U);
}

TEST(PointerClasses, NumbersOutsideTheTableFailAssertions)
{
    const trace_log log(0);
    ptr_size(1);
    ptr_size(55);
    EXPECT_EQ(trace_log::lines(), texts{});
    EXPECT_EQ(ptr_size(0), 0U);
    EXPECT_EQ(ptr_size(56), 0U);
    EXPECT_EQ(trace_log::lines(), (texts{"ASSERT id >= PTR_START", "ASSERT id <= PTR_END"}));
}

} // namespace
