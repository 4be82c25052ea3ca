// SPDX-License-Identifier: MIT
// Section buffers: room, puts at the top, patches behind it. A buffer is opened once and lives until the process ends.
#include "compiler/tarnwick/dwarf_section.h"

#include <algorithm>
#include <cstring>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/trace.h"
#include "compiler/tarnwick/dwarf_accessors.h"

namespace {

constexpr std::uint32_t MESSAGE_INTERNAL_ERROR = 1521;
// Offsets and sizes are words of 32 bits, so no section is larger.
constexpr std::uint64_t LARGEST_SECTION = UINT32_MAX;

constexpr std::uint32_t BYTE_SIZE = 1;
constexpr std::uint32_t HALF_SIZE = 2;
constexpr std::uint32_t WORD_SIZE = 4;
constexpr std::uint32_t LONG_SIZE = 8;
// Bytes of the longest LEB128 of a 64-bit value.
constexpr std::uint32_t LONGEST_LEB128 = sizeof(long long) * 8 / 7 + 1;

// The checks of every put stand on the ways that are hardly ever taken: the usual way is a comparison, and saves nothing.

// Grows the buffer until `room` bytes are free above the top, by doubling: what stands in a section never depends on how
// large its buffer was. False when the section would be too large for its own offsets.
[[gnu::noinline, gnu::cold]] bool grow(section_info *sec, std::uint32_t room)
{
    const auto top_difference = static_cast<std::uint64_t>(sec->ds_top - sec->ds_start);
    DB_ASSERT(top_difference <= sec->ds_alloc_size, "top_difference <= section_info->ds_alloc_size");
    const std::uint64_t needed = top_difference + room;
    if (needed > LARGEST_SECTION) {
        TRACEF(TRACE_DWARF, "%s: Could not realloc memory", "dwarf_section_ensure_enough_memory");
        dwarf_internal_error();
        return false;
    }
    std::uint64_t size = std::max(sec->ds_alloc_size, BYTE_SIZE);
    while (size < needed) {
        size *= 2;
    }
    size = std::min(size, LARGEST_SECTION);
    sec->ds_start = static_cast<std::uint8_t *>(xrealloc(sec->ds_start, size));
    sec->ds_alloc_size = static_cast<std::uint32_t>(size);
    sec->ds_top = sec->ds_start + top_difference;
    return true;
}

// False when there is no buffer, too. A top beyond the buffer leaves no room, so `grow` is where that is asserted.
bool make_room(section_info *sec, std::uint32_t room)
{
    if (sec->ds_start == nullptr) [[unlikely]] {
        return false;
    }
    const auto needed = static_cast<std::uint64_t>(sec->ds_top - sec->ds_start) + room;
    return needed <= sec->ds_alloc_size || grow(sec, room);
}

[[gnu::noinline, gnu::cold]] void assert_buffer([[maybe_unused]] const section_info *sec)
{
    DB_ASSERT(sec->ds_top != nullptr, "section_info->ds_top != NULL");
    DB_ASSERT(sec->ds_start != nullptr, "section_info->ds_start != NULL");
}

// The room of the section's threshold.
void keep_room(section_info *sec)
{
    if (sec->ds_top == nullptr || sec->ds_start == nullptr) [[unlikely]] {
        assert_buffer(sec);
    }
    make_room(sec, sec->realloc_threshold);
}

// The room of the section's threshold, or of a larger value that is about to be written.
bool prepare(section_info *sec, std::uint32_t size)
{
    if (sec == nullptr) [[unlikely]] {
        DB_ASSERT(sec != nullptr, "sec != NULL");
        return false;
    }
    return make_room(sec, std::max(sec->realloc_threshold, size));
}

[[gnu::noinline, gnu::cold]] void not_initialised(const char *operation)
{
    TRACEF(TRACE_DWARF, "%s: Module wasn't properly initialised", operation);
    dwarf_internal_error();
}

// Writes a value of `size` bytes through an accessor.
template <typename Value>
std::uint32_t put_value(section_info *sec, Value v, std::uint8_t *(*put)(std::uint8_t *p, Value value),
                        std::uint32_t size)
{
    if (!prepare(sec, size)) {
        return 0;
    }
    const std::uint8_t *before = sec->ds_top;
    sec->ds_top = put(sec->ds_top, v);
    return static_cast<std::uint32_t>(sec->ds_top - before);
}

// Where a patch of `units` at `offset` goes; null when that is outside of the buffer.
std::uint8_t *patch_place(section_info *sec, std::uint32_t offset, std::uint32_t units)
{
    if (sec == nullptr) [[unlikely]] {
        DB_ASSERT(sec != nullptr, "sec != NULL");
        return nullptr;
    }
    const std::uint64_t end = std::uint64_t{offset} + dwarf_access->dwarf_scale_offset(units);
    if (end >= sec->ds_alloc_size) [[unlikely]] {
        DB_ASSERT(end < sec->ds_alloc_size, "offset + dwarf_scale_offset(bytes) < sec->ds_alloc_size");
    }
    return end <= sec->ds_alloc_size ? dwarf_section_get_ptr(sec, offset) : nullptr;
}

template <typename Value>
void patch_value(section_info *sec, Value v, std::uint8_t *(*put)(std::uint8_t *p, Value value), std::uint32_t offset)
{
    if (std::uint8_t *p = patch_place(sec, offset, sizeof(Value))) {
        put(p, v);
    }
}

} // namespace

void dwarf_internal_error()
{
    alert(MESSAGE_INTERNAL_ERROR);
}

void dwarf_section_init(section_info *sec, std::uint32_t alloc_size, std::uint32_t realloc_threshold)
{
    DB_ASSERT(sec != nullptr, "section_info != NULL");
    if (sec == nullptr || sec->initialised) {
        return;
    }
    DB_ASSERT(realloc_threshold > LONGEST_LEB128, "realloc_threshold > (sizeof(long long) * 8 / 7 + 1)");
    sec->ds_start = static_cast<std::uint8_t *>(dwarf_section_alloc_memory(alloc_size));
    sec->ds_alloc_size = alloc_size;
    sec->ds_top = sec->ds_start;
    sec->realloc_threshold = realloc_threshold;
    sec->initialised = true;
}

void *dwarf_section_alloc_memory(std::size_t size)
{
    void *memory = xalloc(size);
    if (memory == nullptr) { // the allocator ends the run first; this is the second line
        TRACEF(TRACE_DWARF, "%s: Could not allocate %zu bytes of memory", __func__, size);
        dwarf_internal_error();
    }
    return memory;
}

void dwarf_section_ensure_enough_memory(section_info *sec)
{
    if (sec == nullptr) [[unlikely]] {
        DB_ASSERT(sec != nullptr, "section_info != NULL");
        return;
    }
    keep_room(sec);
}

void dwarf_section_ensure_initalisation_and_enough_memory(section_info *sec)
{
    if (sec == nullptr) [[unlikely]] {
        DB_ASSERT(sec != nullptr, "section_info != NULL");
        return;
    }
    if (!sec->initialised) [[unlikely]] {
        not_initialised(__func__);
    }
    keep_room(sec);
}

std::uint32_t dwarf_section_put_string(section_info *sec, const char *str)
{
    if (str == nullptr) {
        TRACEF(TRACE_DWARF, "%s: Empty string is passed", __func__);
        str = "";
    }
    // A string that no section could hold asks for more room than there is.
    const auto units = static_cast<std::uint32_t>(std::min<std::uint64_t>(std::strlen(str) + 1, LARGEST_SECTION));
    if (!prepare(sec, dwarf_access->dwarf_scale_offset(units))) {
        return 0;
    }
    const auto size = static_cast<std::uint32_t>(dwarf_access->dwarf_put_string(sec->ds_top, str));
    sec->ds_top += size;
    return size;
}

std::uint32_t dwarf_section_put1(section_info *sec, std::uint8_t v)
{
    return put_value(sec, v, dwarf_access->dwarf_put1, BYTE_SIZE);
}

std::uint32_t dwarf_section_put2(section_info *sec, std::uint16_t v)
{
    return put_value(sec, v, dwarf_access->dwarf_put2, HALF_SIZE);
}

std::uint32_t dwarf_section_put4(section_info *sec, std::uint32_t v)
{
    return put_value(sec, v, dwarf_access->dwarf_put4, WORD_SIZE);
}

std::uint32_t dwarf_section_put8(section_info *sec, std::uint64_t v)
{
    return put_value(sec, v, dwarf_access->dwarf_put8, LONG_SIZE);
}

std::uint32_t dwarf_section_put(section_info *sec, std::uint64_t v, std::uint32_t bytes)
{
    switch (bytes) {
    case BYTE_SIZE:
        return dwarf_section_put1(sec, static_cast<std::uint8_t>(v));
    case HALF_SIZE:
        return dwarf_section_put2(sec, static_cast<std::uint16_t>(v));
    case WORD_SIZE:
        return dwarf_section_put4(sec, static_cast<std::uint32_t>(v));
    case LONG_SIZE:
        return dwarf_section_put8(sec, v);
    default:
        DB_ASSERT(false, "0");
        return 0;
    }
}

std::uint32_t dwarf_section_put_uleb(section_info *sec, std::uint64_t v)
{
    return prepare(sec, LONGEST_LEB128) ? dwarf_access->dwarf_put_uleb(&sec->ds_top, v) : 0;
}

std::uint32_t dwarf_section_put_sleb(section_info *sec, std::int64_t v)
{
    return prepare(sec, LONGEST_LEB128) ? dwarf_access->dwarf_put_sleb(&sec->ds_top, v) : 0;
}

std::uint32_t dwarf_section_reserve(section_info *sec, std::uint32_t units)
{
    const std::uint32_t size = dwarf_access->dwarf_scale_offset(units);
    if (!prepare(sec, size)) {
        return 0;
    }
    sec->ds_top += size;
    return size;
}

void dwarf_section_patch1(section_info *sec, std::uint8_t v, std::uint32_t offset)
{
    patch_value(sec, v, dwarf_access->dwarf_put1, offset);
}

void dwarf_section_patch2(section_info *sec, std::uint16_t v, std::uint32_t offset)
{
    patch_value(sec, v, dwarf_access->dwarf_put2, offset);
}

void dwarf_section_patch4(section_info *sec, std::uint32_t v, std::uint32_t offset)
{
    patch_value(sec, v, dwarf_access->dwarf_put4, offset);
}

std::uint32_t dwarf_section_get_size(const section_info *sec)
{
    if (sec == nullptr) [[unlikely]] {
        DB_ASSERT(sec != nullptr, "sec != NULL");
        return 0;
    }
    return static_cast<std::uint32_t>(sec->ds_top - sec->ds_start);
}

std::uint8_t *dwarf_section_get_ptr(const section_info *sec, std::uint32_t offset)
{
    if (sec == nullptr) [[unlikely]] {
        DB_ASSERT(sec != nullptr, "sec != NULL");
        return nullptr;
    }
    return sec->ds_start + offset;
}

void dwarf_section_finish(const section_info *sec, std::uint8_t **data, std::uint32_t *size)
{
    DB_ASSERT(sec != nullptr, "sec != NULL");
    *data = sec != nullptr ? sec->ds_start : nullptr;
    *size = dwarf_section_get_size(sec);
}

std::uint64_t dwarf_get(const std::uint8_t *p, std::uint32_t bytes)
{
    DB_ASSERT(p != nullptr, "p != NULL");
    if (p == nullptr) {
        return 0;
    }
    switch (bytes) {
    case BYTE_SIZE:
        return dwarf_access->dwarf_get1(p);
    case HALF_SIZE:
        return dwarf_access->dwarf_get2(p);
    case WORD_SIZE:
        return dwarf_access->dwarf_get4(p);
    case LONG_SIZE:
        return dwarf_access->dwarf_get8(p);
    default:
        TRACEF(TRACE_DWARF, "%s: Invalid number of bytes: %u", __func__, bytes);
        dwarf_internal_error();
        return 0;
    }
}
