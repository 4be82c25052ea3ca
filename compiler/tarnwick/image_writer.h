// SPDX-License-Identifier: MIT
// The output of a text image: lines of hexadecimal digits, gathered in memory and written in large pieces.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "compiler/tarnwick/hexwide.h"

// Data bytes on one line of any image this program writes.
inline constexpr std::uint32_t IMAGE_LINE_BYTES = 16;

// The two digits of each byte value, upper case.
inline constexpr std::array<std::array<char, 2>, 256> hex_pairs = []() {
    constexpr char DIGITS[] = "0123456789ABCDEF";
    std::array<std::array<char, 2>, 256> pairs{};
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        pairs[i] = {DIGITS[i >> 4], DIGITS[i & 0xF]};
    }
    return pairs;
}();

// Lines are built in place: `begin_line` gives room for LINE_ROOM characters, `end_line` takes where they end.
class image_writer {
public:
    static constexpr std::size_t LINE_ROOM = 128;

    explicit image_writer(std::FILE *stream) : stream_(stream), buffer_(BUFFER_SIZE), end_(buffer_.data()) {}
    ~image_writer() { flush(); }
    image_writer(const image_writer &) = delete;
    image_writer &operator=(const image_writer &) = delete;

    char *begin_line()
    {
        if (buffer_.data() + buffer_.size() - end_ < static_cast<std::ptrdiff_t>(LINE_ROOM)) {
            flush();
        }
        return end_;
    }
    void end_line(char *end)
    {
        *end++ = '\n';
        end_ = end;
    }

    static char *put_byte(char *p, std::uint32_t value)
    {
        const std::array<char, 2> pair = hex_pairs[value & 0xFF];
        std::memcpy(p, pair.data(), pair.size());
        return p + pair.size();
    }
    // The `count` low bytes of a value, the highest first; adds them to `sum`.
    static char *put_number(char *p, std::uint32_t value, std::uint32_t count, std::uint32_t *sum)
    {
        for (std::uint32_t shift = count * 8; shift > 0;) {
            shift -= 8;
            *sum += value >> shift & 0xFF;
            p = put_byte(p, value >> shift);
        }
        return p;
    }
    static char *put_bytes(char *p, const std::uint8_t *bytes, std::uint32_t count, std::uint32_t *sum)
    {
        std::uint32_t total = 0; // not *sum: for all the compiler knows, p could point to that
        std::uint32_t i = hexwide::encode(bytes, count, p, &total);
        p += std::size_t{i} * 2;
        for (; i < count; ++i) {
            total += bytes[i];
            p = put_byte(p, bytes[i]);
        }
        *sum += total;
        return p;
    }

private:
    static constexpr std::size_t BUFFER_SIZE = std::size_t{1} << 20;

    void flush()
    {
        std::fwrite(buffer_.data(), 1, static_cast<std::size_t>(end_ - buffer_.data()), stream_);
        end_ = buffer_.data();
    }

    std::FILE *stream_;
    std::vector<char> buffer_;
    char *end_; // behind the last character
};
