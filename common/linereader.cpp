// SPDX-License-Identifier: MIT
// Reading of lines and of whole streams. A database of a thousand modules is a thousand small files and a map file is one
// large one, so the first piece is no larger than what a regular file still holds.
#include "common/linereader.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>

#include <sys/stat.h>

#include "common/alert.h"
#include "common/alloc.h"

namespace {

constexpr std::size_t READ_PIECE = std::size_t{256} * 1024;
// A file's size is believed up to here; what is truly there decides about more.
constexpr std::size_t TRUSTED_SIZE = std::size_t{64} * 1024 * 1024;
constexpr std::size_t SMALLEST_PIECE = 512;
constexpr std::uint32_t MESSAGE_CANNOT_READ = 141;

// What a regular file still holds, as far as its size is believed: 0 at its end, and where the host does not tell.
std::optional<std::size_t> regular_rest(std::FILE *stream)
{
    struct stat status = {};
    const off_t position = ::ftello(stream);
    if (position < 0 || ::fstat(::fileno(stream), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    const auto rest = static_cast<std::uintmax_t>(std::max<off_t>(status.st_size - position, 0));
    return static_cast<std::size_t>(std::min<std::uintmax_t>(rest, TRUSTED_SIZE));
}

// A good size for a first buffer that takes the rest of `stream`: one more than what is left, so that the end shows at
// the first reading.
std::size_t first_piece(std::FILE *stream)
{
    const std::optional<std::size_t> rest = regular_rest(stream);
    return rest ? std::max(SMALLEST_PIECE, *rest + 1) : READ_PIECE;
}

// What kept the last reading of `stream` from going on; 0 when it was the end of the file.
int failure_of(std::FILE *stream)
{
    return std::ferror(stream) != 0 ? errno : 0;
}

void report_failure(int failure, const char *path)
{
    if (failure != 0 && path != nullptr) {
        errno = failure;
        alert(MESSAGE_CANNOT_READ, "input", path);
    }
}

void grow(std::vector<char> *buffer)
{
    if (buffer->size() >= LARGEST_HELD) {
        out_of_memory();
    }
    buffer->resize(buffer->size() * 2);
}

} // namespace

std::size_t size_of_rest(std::FILE *stream)
{
    return regular_rest(stream).value_or(0);
}

line_reader::line_reader(std::FILE *stream, std::size_t limit, const char *path)
    : stream_(stream), limit_(limit), path_(path)
{
}

bool line_reader::next(std::string_view *line)
{
    std::size_t searched = 0; // characters of this line known to hold no newline
    for (;;) {
        const std::size_t held = end_ - begin_;
        const std::size_t window = limit_ != 0 ? std::min(held, limit_) : held;
        const char *start = buffer_.data() + begin_;
        const void *newline = window > searched ? std::memchr(start + searched, '\n', window - searched) : nullptr;
        std::size_t length = 0;
        if (newline != nullptr) {
            length = static_cast<std::size_t>(static_cast<const char *>(newline) - start) + 1;
        } else if (limit_ != 0 && window == limit_) {
            length = limit_;
        } else {
            searched = window;
            if (fill()) {
                continue;
            }
            length = held; // the last line has no newline
        }
        if (length == 0) {
            return false;
        }
        *line = std::string_view(buffer_.data() + begin_, length);
        begin_ += length;
        return true;
    }
}

// Reads more behind what is held; false when there is no more.
bool line_reader::fill()
{
    if (!at_end_ && read_more()) {
        return true;
    }
    report_failure(failure_, path_);
    return false;
}

bool line_reader::read_more()
{
    if (buffer_.empty()) {
        buffer_.resize(std::min(first_piece(stream_), READ_PIECE));
    } else if (begin_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    if (end_ == buffer_.size()) {
        grow(&buffer_);
    }
    const std::size_t count = std::fread(buffer_.data() + end_, 1, buffer_.size() - end_, stream_);
    at_end_ = count < buffer_.size() - end_;
    failure_ = failure_of(stream_);
    end_ += count;
    return count > 0;
}

std::vector<char> read_rest(std::FILE *stream, const char *path)
{
    std::vector<char> content(first_piece(stream));
    std::size_t length = 0;
    for (;;) {
        const std::size_t room = content.size() - length;
        const std::size_t count = std::fread(content.data() + length, 1, room, stream);
        length += count;
        if (count < room) {
            report_failure(failure_of(stream), path);
            content.resize(length);
            return content;
        }
        grow(&content);
    }
}
