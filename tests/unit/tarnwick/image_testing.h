// SPDX-License-Identifier: MIT
// Text images in tests: a text that is read into the model, blocks that are written as a text.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/model.h"

struct image_block {
    std::uint32_t address;
    std::vector<std::uint8_t> bytes;

    bool operator==(const image_block &) const = default;
};

inline void PrintTo(const image_block &block, std::ostream *out)
{
    *out << std::hex << block.address << ':';
    for (const std::uint8_t byte : block.bytes) {
        *out << ' ' << static_cast<unsigned>(byte);
    }
    *out << std::dec;
}

// An open file with this content.
class image_file {
public:
    explicit image_file(const std::string &content) : stream_(std::tmpfile())
    {
        std::fwrite(content.data(), 1, content.size(), stream_);
        std::rewind(stream_);
    }
    ~image_file() { std::fclose(stream_); }
    image_file(const image_file &) = delete;
    image_file &operator=(const image_file &) = delete;

    std::FILE *stream() const { return stream_; }

private:
    std::FILE *stream_;
};

inline bool identify_image(const format_descriptor &format, const std::string &content)
{
    return format.identify(image_file(content).stream());
}

// Reads into a new model.
inline bool read_image(const format_descriptor &format, const std::string &content)
{
    model_create();
    return format.read(image_file(content).stream(), "in.hex");
}

// The model's blocks; their segment must not have been set.
inline std::vector<image_block> model_blocks()
{
    std::vector<image_block> result;
    for (const tarn_data *dp : each(data_list)) {
        result.push_back({dp->da_addr, {dp->da_bytes, dp->da_bytes + dp->da_len}});
        if (dp->da_seg != 0) {
            result.push_back({dp->da_seg, {}});
        }
    }
    return result;
}

// What a format writes of a model with these blocks.
inline std::string write_image(const format_descriptor &format, const std::vector<image_block> &blocks)
{
    model_create();
    for (const image_block &block : blocks) {
        tarn_add_data(block.address, static_cast<std::uint32_t>(block.bytes.size()), block.bytes.data(), 0);
    }
    char *text = nullptr;
    std::size_t size = 0;
    std::FILE *stream = open_memstream(&text, &size);
    const bool written = format.write(stream, "out");
    std::fclose(stream);
    std::string result(text, size);
    std::free(text);
    return written ? result : "false";
}

// Bytes that count up.
inline std::vector<std::uint8_t> counted_bytes(std::size_t count, unsigned first = 0)
{
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < count; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(first + i));
    }
    return bytes;
}
