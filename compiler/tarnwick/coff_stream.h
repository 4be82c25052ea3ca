// SPDX-License-Identifier: MIT
// The file of a COFF output, written from its start to its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

// Small pieces gather in memory, large ones go out as they are. A failure is kept until it is asked for.
class coff_stream {
public:
    explicit coff_stream(std::FILE *stream) : stream_(stream) { buffer_.reserve(BUFFER_SIZE); }

    // Room for `size` bytes at the end of what was written, all 0, to be filled before the next call.
    std::uint8_t *extend(std::size_t size)
    {
        if (buffer_.size() + size > BUFFER_SIZE) {
            flush();
        }
        buffer_.resize(buffer_.size() + size);
        return buffer_.data() + buffer_.size() - size;
    }
    void put(const void *bytes, std::size_t size)
    {
        flush();
        is_good_ = (size == 0 || std::fwrite(bytes, 1, size, stream_) == size) && is_good_;
    }
    // Whether all of it went out. A full disk may show only here.
    bool finish()
    {
        flush();
        return std::fflush(stream_) == 0 && is_good_;
    }

private:
    static constexpr std::size_t BUFFER_SIZE = std::size_t{1} << 16;

    void flush()
    {
        if (!buffer_.empty()) {
            is_good_ = std::fwrite(buffer_.data(), 1, buffer_.size(), stream_) == buffer_.size() && is_good_;
            buffer_.clear();
        }
    }

    std::FILE *stream_;
    std::vector<std::uint8_t> buffer_;
    bool is_good_ = true;
};
