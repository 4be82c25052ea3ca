// SPDX-License-Identifier: MIT
// Type ids. The id of an element is a tail of the id of the element above it, but for the number of a bit, so the text is
// put together once for a whole type.
#include "compiler/tarnwick/dwarf_type_id.h"

#include <cstdint>
#include <string_view>

#include "common/stringcache.h"
#include "compiler/tarnwick/dwarf_keys.h"

namespace {

// Numbers for texts that are longer than an id may be. A text is read from its end: the last TYPE_ID_TEXT_MAX characters,
// as a cached string, have a number, and each character in front leads from one number to the next. So two texts have
// the same number exactly when they are equal, however their elements divide them.
dwarf_key_list text_numbers;

// The key of a tail, which no number and character in front of it can give.
constexpr std::uint64_t TAIL_MARK = std::uint64_t{1} << 63;

std::uint32_t number_of_tail(std::string_view tail)
{
    return text_numbers.position_of(reinterpret_cast<std::uintptr_t>(str_cache(tail)) | TAIL_MARK);
}

std::uint32_t number_with(char front, std::uint32_t rest)
{
    constexpr std::uint32_t CHARACTER_BITS = 8;
    return text_numbers.position_of(std::uint64_t{rest} << CHARACTER_BITS | static_cast<unsigned char>(front));
}

const char *name_of(const type_element *te)
{
    return te->te_name != nullptr ? te->te_name : "";
}

} // namespace

void type_id_walk::start(const type_element *type)
{
    base_ = type - type->te_index;
    index_ = type->te_index;
    offset_ = 0;
    numbered_end_ = 0;
    text_.clear();
    for (std::uint32_t i = index_ + 1; i-- > 0;) {
        text_ += name_of(base_ + i);
    }
    names_end_ = text_.size();
    is_bit_ = isBitType(base_);
    if (is_bit_) {
        bit_top_ = 0;
        while (bit_top_ < index_ && base_[bit_top_ + 1].te_kind == ty_qual) {
            ++bit_top_;
        }
        text_ += std::to_string(base_->basic.te_bitpos);
    }
}

void type_id_walk::step_to(const type_element *type)
{
    for (; index_ > type->te_index; --index_) {
        offset_ += std::char_traits<char>::length(name_of(base_ + index_));
    }
}

// The numbers of all tails from `offset_` to `end` that are too long for an id.
void type_id_walk::number_tails(std::size_t end)
{
    const std::size_t first = end - TYPE_ID_TEXT_MAX;
    numbers_.resize(first);
    std::uint32_t number = number_of_tail(std::string_view(text_).substr(first, TYPE_ID_TEXT_MAX));
    for (std::size_t at = first; at-- > offset_;) {
        number = number_with(text_[at], number);
        numbers_[at] = number;
    }
    numbered_end_ = end;
}

const char *type_id_walk::long_id(std::size_t end)
{
    if (numbered_end_ != end) {
        number_tails(end);
    }
    return str_printf("long type %u", numbers_[offset_]); // no type has a blank in its text
}

const char *type_id_walk::id_of(const type_element *type)
{
    if (base_ == type - type->te_index && type->te_index <= index_) {
        step_to(type);
    } else {
        start(type);
    }
    const std::size_t end = is_bit_ && index_ <= bit_top_ ? text_.size() : names_end_;
    if (end - offset_ > TYPE_ID_TEXT_MAX) {
        return long_id(end);
    }
    return str_cache(std::string_view(text_).substr(offset_, end - offset_));
}

const char *create_type_id(const type_element *type)
{
    type_id_walk walk;
    return walk.id_of(type);
}
