// SPDX-License-Identifier: MIT
// Type ids: the texts by which a compile unit knows its types.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "compiler/tarnwick/type.h"

// Texts up to this length are ids as they stand. A longer one has a short id that stands for it: a type of n elements
// has n ids, and their texts together would grow with the square of n.
inline constexpr std::size_t TYPE_ID_TEXT_MAX = 64;

// The id of an element and what lies below it: their names from the outermost down, and behind a bit, which nothing but
// qualifiers may cover, its bit number. Ids are cached strings, so that equal texts are one id.
const char *create_type_id(const type_element *type);

// The ids of an element and of elements below it, asked for from the top down. All of them together cost no more than
// the length of the first one.
class type_id_walk {
public:
    // The record is not to change between the first of its elements and the last.
    const char *id_of(const type_element *type);
    // To be called before records that may have changed are looked at.
    void restart() { base_ = nullptr; }

private:
    void start(const type_element *type);
    void step_to(const type_element *type);
    const char *long_id(std::size_t end);
    void number_tails(std::size_t end);

    const type_element *base_ = nullptr; // element 0 of the record
    std::uint32_t index_ = 0;            // the element that begins at `offset_`
    std::uint32_t bit_top_ = 0;          // up to this element a bit's number counts
    bool is_bit_ = false;
    std::size_t offset_ = 0;
    std::size_t names_end_ = 0; // behind the names; what follows is the bit's number
    std::string text_;
    std::size_t numbered_end_ = 0; // the end of the tails in `numbers_`; 0 for none
    std::vector<std::uint32_t> numbers_;
};
