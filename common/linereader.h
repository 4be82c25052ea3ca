// SPDX-License-Identifier: MIT
// Lines of a stream, read in large pieces.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string_view>
#include <vector>

class line_reader {
public:
    // Lines longer than `limit` characters arrive in pieces of that size; 0 means no limit.
    explicit line_reader(std::FILE *stream, std::size_t limit = 0);

    // The next line with its newline, if it has one; false at the end of the file. The text lasts until the next call
    // and may hold NULs.
    bool next(std::string_view *line);

private:
    bool fill();

    std::FILE *stream_;
    std::size_t limit_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0; // first character not yet delivered
    std::size_t end_ = 0;   // behind the last character read
    bool at_end_ = false;
};

// Bytes that a regular file still holds, as far as its size is believed; 0 for any other stream.
std::size_t size_of_rest(std::FILE *stream);

// The rest of a stream.
std::vector<char> read_rest(std::FILE *stream);
