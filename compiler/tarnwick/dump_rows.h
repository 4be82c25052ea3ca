// SPDX-License-Identifier: MIT
// The text of a dump, put together row by row without the cost of formatted printing.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

// A row goes to the stream when it ends, so that what was printed stands in front of any report that follows.
class dump_rows {
public:
    explicit dump_rows(std::FILE *stream) : stream_(stream) {}
    dump_rows(const dump_rows &) = delete;
    dump_rows &operator=(const dump_rows &) = delete;

    dump_rows &text(std::string_view text)
    {
        row_ += text;
        return *this;
    }
    // "%<width>.<width>s": at the right, and cut to fit.
    dump_rows &field(std::string_view text, std::size_t width)
    {
        const std::string_view shown = text.substr(0, width);
        return padding(shown.size(), width, ' ').text(shown);
    }
    // "%-<width>s": at the left.
    dump_rows &left_field(std::string_view text, std::size_t width)
    {
        return this->text(text).padding(text.size(), width, ' ');
    }
    // "%u", "%<width>u".
    dump_rows &number(std::uint32_t value, std::size_t width = 0) { return digits(value, DECIMAL, width, ' '); }
    // "%d", "%<width>d" of what is a signed number in 32 bits.
    dump_rows &signed_number(std::uint32_t value, std::size_t width = 0)
    {
        return digits(static_cast<std::int32_t>(value), DECIMAL, width, ' ');
    }
    // "%0<width>u".
    dump_rows &padded_number(std::uint32_t value, std::size_t width) { return digits(value, DECIMAL, width, '0'); }
    // "%X", "%<width>X", "%0<width>X".
    dump_rows &hex(std::uint32_t value, std::size_t width = 0, char pad = ' ')
    {
        const std::size_t start = row_.size();
        digits(value, HEXADECIMAL, width, pad);
        for (std::size_t i = start; i < row_.size(); ++i) {
            row_[i] = row_[i] >= 'a' ? static_cast<char>(row_[i] - 'a' + 'A') : row_[i];
        }
        return *this;
    }
    // "%-<width>X".
    dump_rows &hex_left(std::uint32_t value, std::size_t width)
    {
        const std::size_t start = row_.size();
        return hex(value).padding(row_.size() - start, width, ' ');
    }
    // "%x", "%0<width>x".
    dump_rows &lower_hex(std::uint32_t value, std::size_t width = 0) { return digits(value, HEXADECIMAL, width, '0'); }
    void end_row()
    {
        row_ += '\n';
        std::fwrite(row_.data(), 1, row_.size(), stream_);
        row_.clear();
    }

private:
    static constexpr int DECIMAL = 10;
    static constexpr int HEXADECIMAL = 16;
    static constexpr std::size_t DIGITS_MAX = 16; // of any 32-bit number, with its sign

    dump_rows &padding(std::size_t size, std::size_t width, char with)
    {
        if (size < width) {
            row_.append(width - size, with);
        }
        return *this;
    }
    template <typename T>
    dump_rows &digits(T value, int base, std::size_t width, char pad)
    {
        char buffer[DIGITS_MAX];
        const char *end = std::to_chars(buffer, buffer + sizeof buffer, value, base).ptr;
        const std::string_view shown(buffer, static_cast<std::size_t>(end - buffer));
        return padding(shown.size(), width, pad).text(shown);
    }

    std::FILE *stream_;
    std::string row_;
};
