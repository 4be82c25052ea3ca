// SPDX-License-Identifier: MIT
// A hash for the indexes that stand beside specified orders. No order rests on it, so it is free to be fast.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "common/ascii.h"

// A text without regard to the case of ASCII letters is hashed in lower case.
inline std::string in_lower_case(std::string_view text)
{
    std::string lowered(text);
    for (char &c : lowered) {
        c = to_lower(c);
    }
    return lowered;
}

// Eight bytes a step. The multipliers are odd constants with well mixed bits.
inline std::uint32_t hash_text(std::string_view text)
{
    constexpr std::uint64_t FIRST = 0x9E3779B97F4A7C15;
    constexpr std::uint64_t SECOND = 0xD6E8FEB86659FD93;
    constexpr int HALF = 32;
    const auto take = [](std::uint64_t hash, std::uint64_t piece) {
        hash = (hash ^ piece) * SECOND;
        return hash ^ hash >> HALF;
    };
    std::uint64_t hash = text.size() * FIRST;
    const char *at = text.data();
    std::size_t left = text.size();
    std::uint64_t piece = 0;
    for (; left >= sizeof piece; left -= sizeof piece, at += sizeof piece) {
        std::memcpy(&piece, at, sizeof piece);
        hash = take(hash, piece);
    }
    if (left != 0) {
        piece = 0;
        std::memcpy(&piece, at, left);
        hash = take(hash, piece);
    }
    return static_cast<std::uint32_t>(hash * FIRST >> HALF);
}
