// SPDX-License-Identifier: MIT
// Lines of a stream, read in large pieces.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string_view>
#include <vector>

// The longest line and the largest file of which all is held at once: far more than any has, but not without end.
inline constexpr std::size_t LARGEST_HELD = std::size_t{512} * 1024 * 1024;

class line_reader {
public:
    // Lines longer than `limit` characters arrive in pieces of that size; 0 means no limit. `path` names an input, which
    // must not end before its end.
    explicit line_reader(std::FILE *stream, std::size_t limit = 0, const char *path = nullptr);

    // The next line with its newline, if it has one; false at the end of the file. The text lasts until the next call
    // and may hold NULs. Raises fatal message 141 when the host cannot read on, unless there is no `path`: that is an end,
    // too. Raises fatal message 296 when a line is longer than LARGEST_HELD.
    bool next(std::string_view *line);

private:
    bool fill();
    bool read_more();

    std::FILE *stream_;
    std::size_t limit_;
    const char *path_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0; // first character not yet delivered
    std::size_t end_ = 0;   // behind the last character read
    bool at_end_ = false;
    int failure_ = 0; // the host's number for what ended the reading
};

// Bytes that a regular file still holds, as far as its size is believed; 0 for any other stream.
std::size_t size_of_rest(std::FILE *stream);

// The rest of a stream. Raises fatal message 141 with `path` when the host cannot read on, and fatal message 296 when it is
// larger than LARGEST_HELD.
std::vector<char> read_rest(std::FILE *stream, const char *path);
