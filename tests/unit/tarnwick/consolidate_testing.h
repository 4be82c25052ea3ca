// SPDX-License-Identifier: MIT
// What the tests of consolidation share: segments and blocks that are made, and what became of them.
#pragma once

#include <cstdint>
#include <numeric>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "compiler/tarnwick/consolidate.h"
#include "compiler/tarnwick/options.h"
#include "tests/unit/tarnwick/fresh_model.h"

namespace consolidate_testing {

inline constexpr std::uint32_t CODE_SPACE = 3;

inline void start_model()
{
    fresh_model();
    opt_verbose = 0;
    code_delta = 1;
    set_add(code_spaces, CODE_SPACE);
    set_add(data_spaces, 5);
}

inline tarn_segment *add_segment(const char *name, std::uint32_t load, std::uint32_t size,
                                 std::uint32_t flags = PDB_WRITE)
{
    tarn_segment record;
    record.sg_index = seg_list.count() + 1;
    record.sg_name = name;
    record.sg_addr = load;
    record.sg_load = load;
    record.sg_size = size;
    record.sg_flags = flags;
    record.sg_delta = 1;
    record.sg_space = CODE_SPACE;
    tarn_add_segment(record);
    return seg_list.last();
}

// A block of bytes that count up from `first`.
inline tarn_data *add_block(std::uint32_t address, std::uint32_t length, std::uint8_t first = 0,
                            std::uint32_t segment = 0)
{
    std::vector<std::uint8_t> bytes(length);
    std::iota(bytes.begin(), bytes.end(), first);
    return tarn_add_data(address, length, bytes.data(), segment);
}

struct block {
    std::uint32_t address;
    std::uint32_t length;
    std::uint32_t segment;

    bool operator==(const block &) const = default;
};

inline void PrintTo(const block &b, std::ostream *out)
{
    *out << std::hex << b.address << '+' << b.length << " in " << std::dec << b.segment;
}

inline std::vector<block> blocks()
{
    std::vector<block> result;
    for (const tarn_data *dp : each(data_list)) {
        result.push_back({dp->da_addr, dp->da_len, dp->da_seg});
    }
    return result;
}

inline std::vector<std::uint8_t> bytes_of(std::uint32_t index)
{
    const tarn_data *dp = data_list.get(index);
    return {dp->da_bytes, dp->da_bytes + dp->da_len};
}

struct placed {
    std::string name;
    std::uint32_t load;
    std::uint32_t size;

    bool operator==(const placed &) const = default;
};

inline void PrintTo(const placed &p, std::ostream *out)
{
    *out << p.name << ' ' << std::hex << p.load << '+' << p.size;
}

inline std::vector<placed> segments()
{
    std::vector<placed> result;
    for (const tarn_segment *seg : each(seg_list)) {
        result.push_back({seg->sg_name, seg->sg_load, seg->sg_size});
    }
    return result;
}

using bytes = std::vector<std::uint8_t>;
using block_list = std::vector<block>;
using placed_list = std::vector<placed>;
using texts = std::vector<std::string>;

class consolidation : public testing::Test {
protected:
    void SetUp() override { start_model(); }
};

} // namespace consolidate_testing
