// SPDX-License-Identifier: MIT
// What the dumps of the debugging sections share: the text that goes out, and the cursor that reads a section.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "compiler/tarnwick/dwarf_accessors.h"
#include "compiler/tarnwick/dwarf_section.h"

// One large buffer in front of the stream. Unlike the rows of other dumps, texts here end in the middle of a line and
// numbers have 64 bits.
class dwarf_text {
public:
    explicit dwarf_text(std::FILE *stream) : stream_(stream) { buffer_.reserve(FULL + FULL / 2); }
    ~dwarf_text() { flush(); }
    dwarf_text(const dwarf_text &) = delete;
    dwarf_text &operator=(const dwarf_text &) = delete;

    dwarf_text &text(std::string_view text)
    {
        if (buffer_.size() >= FULL) {
            write();
        }
        buffer_ += text;
        return *this;
    }
    // "%llu", "%llu" at the left of `width`.
    dwarf_text &number(std::uint64_t value, std::size_t width = 0) { return digits(value, DECIMAL, 0, ' ', width); }
    // "%lld", "%-<width>lld".
    dwarf_text &signed_number(std::int64_t value, std::size_t width = 0)
    {
        return digits(value, DECIMAL, 0, ' ', width);
    }
    // "%<width>llu".
    dwarf_text &right_number(std::uint64_t value, std::size_t width) { return digits(value, DECIMAL, width, ' ', 0); }
    // "%0<width>llu".
    dwarf_text &padded_number(std::uint64_t value, std::size_t width) { return digits(value, DECIMAL, width, '0', 0); }
    // "%llx", "%0<width>llx".
    dwarf_text &hex(std::uint64_t value, std::size_t width = 0) { return digits(value, HEXADECIMAL, width, '0', 0); }
    // "%<width>llx".
    dwarf_text &right_hex(std::uint64_t value, std::size_t width) { return digits(value, HEXADECIMAL, width, ' ', 0); }
    // "%llX", "%0<width>llX".
    dwarf_text &upper_hex(std::uint64_t value, std::size_t width = 0)
    {
        const std::size_t start = hex(value, width).last_;
        for (std::size_t i = start; i < buffer_.size(); ++i) {
            buffer_[i] = buffer_[i] >= 'a' ? static_cast<char>(buffer_[i] - 'a' + 'A') : buffer_[i];
        }
        return *this;
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
    static constexpr std::size_t FULL = 65536;
    static constexpr int DECIMAL = 10;
    static constexpr int HEXADECIMAL = 16;
    static constexpr std::size_t DIGITS_MAX = 24; // of any 64-bit number, with its sign

    void write()
    {
        std::fwrite(buffer_.data(), 1, buffer_.size(), stream_);
        buffer_.clear();
    }
    template <typename T>
    dwarf_text &digits(T value, int base, std::size_t width, char pad, std::size_t left_width)
    {
        char shown[DIGITS_MAX];
        const std::size_t size =
            static_cast<std::size_t>(std::to_chars(shown, shown + DIGITS_MAX, value, base).ptr - shown);
        last_ = buffer_.size();
        if (size < width) {
            buffer_.append(width - size, pad);
        }
        buffer_.append(shown, size);
        if (size < left_width) {
            buffer_.append(left_width - size, ' ');
        }
        return *this;
    }

    std::FILE *stream_;
    std::string buffer_;
    std::size_t last_ = 0; // where the last number stands
};

using dwarf_bytes_view = std::span<const std::uint8_t>;

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
