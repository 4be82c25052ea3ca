// SPDX-License-Identifier: MIT
// What the dumps of the debugging sections share: the text that goes out, and the cursor that reads a section.
#pragma once

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>

#include "compiler/tarnwick/dwarf_accessors.h"
#include "compiler/tarnwick/dwarf_section.h"

// One large buffer in front of the stream. Unlike the rows of other dumps, texts here end in the middle of a line and
// numbers have 64 bits.
class dwarf_text {
public:
    explicit dwarf_text(std::FILE *stream)
        : stream_(stream), buffer_(std::make_unique_for_overwrite<char[]>(SIZE)), at_(buffer_.get())
    {
    }
    ~dwarf_text() { flush(); }
    dwarf_text(const dwarf_text &) = delete;
    dwarf_text &operator=(const dwarf_text &) = delete;

    // NOLINTNEXTLINE(misc-no-recursion): what is written leaves room
    dwarf_text &text(std::string_view text)
    {
        if (text.size() > room()) [[unlikely]] {
            return large_text(text);
        }
        at_ += text.copy(at_, text.size());
        return *this;
    }
    // "%llu", "%llu" at the left of `width`.
    dwarf_text &number(std::uint64_t value, std::size_t width = 0) { return decimal(value, 0, ' ', width); }
    // "%lld", "%-<width>lld".
    dwarf_text &signed_number(std::int64_t value, std::size_t width = 0) { return decimal(value, 0, ' ', width); }
    // "%<width>llu".
    dwarf_text &right_number(std::uint64_t value, std::size_t width) { return decimal(value, width, ' ', 0); }
    // "%0<width>llu".
    dwarf_text &padded_number(std::uint64_t value, std::size_t width) { return decimal(value, width, '0', 0); }
    // "%llx", "%0<width>llx".
    dwarf_text &hex(std::uint64_t value, std::size_t width = 0)
    {
        return hexadecimal(value, "0123456789abcdef", width, '0');
    }
    // "%<width>llx".
    dwarf_text &right_hex(std::uint64_t value, std::size_t width)
    {
        return hexadecimal(value, "0123456789abcdef", width, ' ');
    }
    // "%llX", "%0<width>llX".
    dwarf_text &upper_hex(std::uint64_t value, std::size_t width = 0)
    {
        return hexadecimal(value, "0123456789ABCDEF", width, '0');
    }
    // Behind a value of target units, what it is in bytes, where that differs.
    dwarf_text &actual_number(std::uint32_t units)
    {
        const std::uint32_t actual = dwarf_access->dwarf_scale_offset(units);
        return actual == units ? *this : text(" (actual ").number(actual).text(")");
    }
    dwarf_text &actual_offset(std::uint32_t units)
    {
        const std::uint32_t actual = dwarf_access->dwarf_scale_offset(units);
        return actual == units ? *this : text(" (actual 0x").hex(actual).text(")");
    }
    // Everything printed stands in front of what another stream gets next.
    void flush()
    {
        write();
        std::fflush(stream_);
    }
    void warn_on_stderr(const char *warning)
    {
        flush();
        std::fputs(warning, stderr);
    }

private:
    static constexpr std::size_t SIZE = 65536;
    static constexpr std::size_t NUMBER_SIZE = 32; // above that of any number, and of the widths in use
    static constexpr std::uint32_t DIGIT_BITS = 4;
    static constexpr std::uint64_t DIGIT_MASK = 0xF;

    std::size_t room() const { return SIZE - static_cast<std::size_t>(at_ - buffer_.get()); }
    void write()
    {
        std::fwrite(buffer_.get(), 1, static_cast<std::size_t>(at_ - buffer_.get()), stream_);
        at_ = buffer_.get();
    }
    // NOLINTNEXTLINE(misc-no-recursion): see text
    dwarf_text &large_text(std::string_view text)
    {
        write();
        if (text.size() > SIZE) {
            std::fwrite(text.data(), 1, text.size(), stream_);
            return *this;
        }
        return this->text(text);
    }
    char *start_number()
    {
        if (room() < NUMBER_SIZE) {
            write();
        }
        return at_;
    }
    template <typename T>
    dwarf_text &decimal(T value, std::size_t width, char pad, std::size_t left_width)
    {
        char *const start = start_number();
        char *end = std::to_chars(start, start + NUMBER_SIZE, value).ptr;
        const auto size = static_cast<std::size_t>(end - start);
        if (size < width) {
            std::memmove(start + width - size, start, size);
            std::memset(start, pad, width - size);
            end = start + width;
        }
        for (; end < start + left_width; ++end) {
            *end = ' ';
        }
        at_ = end;
        return *this;
    }
    dwarf_text &hexadecimal(std::uint64_t value, const char *digits, std::size_t width, char pad)
    {
        char *start = start_number();
        const auto size = static_cast<std::size_t>(std::bit_width(value | 1) + 3) / DIGIT_BITS;
        for (; width > size; --width) {
            *start++ = pad;
        }
        at_ = start + size;
        for (char *place = at_; place != start; value >>= DIGIT_BITS) {
            *--place = digits[value & DIGIT_MASK];
        }
        return *this;
    }

    std::FILE *stream_;
    std::unique_ptr<char[]> buffer_;
    char *at_; // where the next character goes
};

using dwarf_bytes_view = std::span<const std::uint8_t>;

// A place in a section, in target units.
inline std::uint32_t dwarf_unscaled(std::size_t offset)
{
    return dwarf_access->dwarf_unscale_offset(static_cast<std::uint32_t>(offset));
}

// Reads a section and never leaves it: what does not fit gives 0 and leaves the cursor failed, which the caller tests
// once a record.
class dwarf_cursor {
public:
    dwarf_cursor(dwarf_bytes_view section, std::size_t offset, std::size_t limit)
        : start_(section.data()), at_(section.data() + offset), end_(section.data() + limit)
    {
    }
    explicit dwarf_cursor(dwarf_bytes_view section) : dwarf_cursor(section, 0, section.size()) {}

    bool failed() const { return failed_; }
    bool more() const { return !failed_ && at_ < end_; }
    std::size_t offset() const { return static_cast<std::size_t>(at_ - start_); }
    std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }
    const std::uint8_t *place() const { return at_; }
    void fail() { failed_ = true; }

    bool skip(std::size_t size)
    {
        if (failed_ || size > left()) {
            failed_ = true;
            return false;
        }
        at_ += size;
        return true;
    }
    std::uint8_t get1() { return skip(1) ? dwarf_access->dwarf_get1(at_ - 1) : std::uint8_t{0}; }
    std::uint16_t get2() { return skip(2) ? dwarf_access->dwarf_get2(at_ - 2) : std::uint16_t{0}; }
    std::uint32_t get4() { return skip(4) ? dwarf_access->dwarf_get4(at_ - 4) : 0; }
    std::uint64_t get8() { return skip(8) ? dwarf_access->dwarf_get8(at_ - 8) : 0; }
    // A value of 1, 2, 4 or 8 bytes.
    std::uint64_t get(std::uint32_t width) { return skip(width) ? dwarf_get(at_ - width, width) : 0; }
    std::uint64_t uleb()
    {
        if (!failed_ && at_ < end_ && *at_ < LEB_MORE) {
            return *at_++;
        }
        return complete_leb() ? dwarf_access->dwarf_get_uleb(&at_) : 0;
    }
    std::int64_t sleb() { return complete_leb() ? dwarf_access->dwarf_get_sleb(&at_) : 0; }
    // Without its terminator.
    std::string_view string()
    {
        const void *end = failed_ || at_ == end_ ? nullptr : std::memchr(at_, 0, left());
        if (end == nullptr) {
            failed_ = true;
            return {};
        }
        const auto *text = reinterpret_cast<const char *>(at_);
        at_ = static_cast<const std::uint8_t *>(end) + 1;
        return {text, static_cast<std::size_t>(reinterpret_cast<const char *>(at_) - text) - 1};
    }
    bool only_zeros_left() const
    {
        for (const std::uint8_t *p = at_; p < end_; ++p) {
            if (*p != 0) {
                return false;
            }
        }
        return true;
    }

private:
    static constexpr std::uint8_t LEB_MORE = 0x80;

    bool complete_leb()
    {
        const std::uint8_t *p = at_;
        while (!failed_ && p < end_) {
            if (*p++ < LEB_MORE) {
                return true;
            }
        }
        failed_ = true;
        return false;
    }

    const std::uint8_t *start_;
    const std::uint8_t *at_;
    const std::uint8_t *end_;
    bool failed_ = false;
};

// An address; a width that none can have is an internal error.
inline std::uint64_t dwarf_read_address(dwarf_text &out, dwarf_cursor &cursor, std::uint32_t width)
{
    if (width == 1 || width == 2 || width == 4 || width == 8) {
        return cursor.get(width);
    }
    if (!cursor.failed()) {
        out.flush();
        dwarf_get(cursor.place(), width);
        cursor.fail();
    }
    return 0;
}

// All ones at an address size: the mark of a base address.
inline std::uint64_t dwarf_all_ones(std::uint32_t width)
{
    return width >= sizeof(std::uint64_t) ? UINT64_MAX : (std::uint64_t{1} << (8 * width)) - 1;
}
