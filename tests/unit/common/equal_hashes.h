// SPDX-License-Identifier: MIT
// Texts that a hash cannot tell apart: what searches by that hash must be proof against.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

// 2 to the power of `pairs` names of one length and one `hash_string`. Each is made of pairs of letters: 33 times "A"
// and a "b" is as much as 33 times "B" and an "A".
inline std::vector<std::string> names_of_equal_hash(unsigned pairs)
{
    std::vector<std::string> names(std::size_t{1} << pairs);
    for (std::size_t i = 0; i < names.size(); ++i) {
        for (unsigned pair = 0; pair < pairs; ++pair) {
            names[i] += (i >> pair & 1) != 0 ? "Ab" : "BA";
        }
    }
    return names;
}

// The steps of `hash_text`, for the texts below. A test makes sure that they are those.
namespace text_hash_steps {

inline std::uint64_t begin(std::size_t length)
{
    return length * 0x9E3779B97F4A7C15;
}

inline std::uint64_t take(std::uint64_t hash, std::uint64_t piece)
{
    hash = (hash ^ piece) * 0xD6E8FEB86659FD93;
    return hash ^ hash >> 32;
}

inline std::uint64_t piece_of(const std::string &text)
{
    std::uint64_t piece = 0;
    std::memcpy(&piece, text.data(), sizeof piece);
    return piece;
}

inline std::string text_of(std::uint64_t piece)
{
    std::string text(sizeof piece, '\0');
    std::memcpy(text.data(), &piece, sizeof piece);
    return text;
}

} // namespace text_hash_steps

// So many texts of sixteen characters and of one `hash_text`. The second eight characters undo what the first eight do.
inline std::vector<std::string> texts_of_equal_text_hash(std::size_t count)
{
    using namespace text_hash_steps;
    constexpr std::size_t LENGTH = 16;
    std::vector<std::string> texts;
    for (unsigned number = 10000000; texts.size() < count; ++number) {
        const std::string front = std::to_string(number);
        const std::string back = text_of(take(begin(LENGTH), piece_of(front)));
        if (back.find('\0') == std::string::npos) {
            texts.push_back(front + back);
        }
    }
    return texts;
}

// A text of sixteen characters whose first eight are a text of the same `hash_text`.
inline std::string text_with_beginning_of_equal_text_hash()
{
    using namespace text_hash_steps;
    for (unsigned number = 10000000;; ++number) {
        const std::string front = std::to_string(number);
        const std::uint64_t piece = piece_of(front);
        const std::string back = text_of(take(begin(2 * sizeof piece), piece) ^ begin(sizeof piece) ^ piece);
        if (back.find('\0') == std::string::npos) {
            return front + back;
        }
    }
}
