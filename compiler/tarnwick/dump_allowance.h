// SPDX-License-Identifier: MIT
// What a dump may do beyond the size of its file. Records of a damaged file may overlap, and many of them may share one
// endless text: whatever that costs more than the file itself comes out of an allowance that no sound file uses up.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

class dump_allowance {
public:
    explicit dump_allowance(std::uint64_t size) : left_(BASE + PER_BYTE * size) {}

    bool used_up() const { return left_ == 0; }
    // As much of `wanted` as there is.
    std::uint64_t take(std::uint64_t wanted)
    {
        const std::uint64_t taken = std::min(wanted, left_);
        left_ -= taken;
        return taken;
    }
    // A text up to its terminator, or to the end of its room. Only what a long one has beyond the usual is taken from
    // the allowance, and cut when that is used up.
    std::string_view text(const char *start, std::size_t room)
    {
        std::size_t length = ::strnlen(start, std::min(room, FREE_LENGTH));
        if (length == FREE_LENGTH) {
            length += take(::strnlen(start + length, std::min<std::uint64_t>(room - length, left_)));
        }
        return {start, length};
    }

private:
    static constexpr std::uint64_t BASE = std::uint64_t{1} << 20;
    static constexpr std::uint64_t PER_BYTE = 4;
    static constexpr std::size_t FREE_LENGTH = 255;

    std::uint64_t left_;
};
