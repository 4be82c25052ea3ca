// SPDX-License-Identifier: MIT
// Intel HEX images.
#include <algorithm>
#include <array>
#include <string_view>

#include "common/alert.h"
#include "common/linereader.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/hexdigits.h"
#include "compiler/tarnwick/image_text.h"
#include "compiler/tarnwick/image_writer.h"
#include "compiler/tarnwick/model.h"

namespace {

constexpr char RECORD_MARK = ':';
constexpr std::string_view END_RECORD = ":00000001FF";
constexpr std::string_view UPPER_HEAD = ":02000004"; // of an extended linear address record

enum record_type : std::uint8_t {
    RECORD_DATA = 0,
    RECORD_END = 1,
    RECORD_DATA_SEGMENT = 2,  // the data base in units of 16 bytes
    RECORD_START_SEGMENT = 3, // the start base likewise
    RECORD_DATA_LINEAR = 4,   // the data base in units of 64 KiB
    RECORD_START_LINEAR = 5,
};

// Positions in a line.
constexpr std::size_t AT_COUNT = 1;
constexpr std::size_t AT_ADDRESS = 3;
constexpr std::size_t AT_TYPE = 7;
constexpr std::size_t AT_DATA = 9;

constexpr std::size_t WORD_DIGITS = 4;
constexpr std::uint32_t SEGMENT_SHIFT = 4;
constexpr std::uint32_t LINEAR_SHIFT = 16;
constexpr std::uint32_t COUNT_MAX = 0xFF;

struct ihex_reader {
    std::uint32_t data_base = 0;
    std::uint32_t start_base = 0;
};

enum class line_result : std::uint8_t { GOOD, END, BAD };

// The base that a record sets; the sum of its four digits. A count that says more is not looked at: the checksum is
// expected behind the fourth digit.
std::uint32_t read_base(std::string_view line, std::uint32_t shift, std::uint32_t *base)
{
    const std::uint32_t value = hex_word(line, AT_DATA);
    *base = value << shift;
    return value + (value >> 8);
}

line_result ihex_read_line(std::string_view line, ihex_reader *reader)
{
    const std::uint32_t count = hex_byte(line, AT_COUNT);
    if (count > COUNT_MAX) {
        return line_result::BAD;
    }
    const std::uint32_t address = hex_word(line, AT_ADDRESS);
    const std::uint32_t type = hex_byte(line, AT_TYPE);
    std::uint32_t sum = count + type + address + (address >> 8);
    std::size_t at_checksum = AT_DATA + WORD_DIGITS;

    switch (static_cast<std::uint8_t>(type)) {
    case RECORD_DATA: {
        std::array<std::uint8_t, COUNT_MAX> bytes;
        sum += hex_bytes(line, AT_DATA, count, bytes.data());
        // The block is in the model before the checksum is looked at, and stays there when that is wrong.
        tarn_add_data(reader->data_base + address, count, bytes.data(), 0);
        at_checksum = AT_DATA + std::size_t{count} * 2;
        break;
    }
    case RECORD_END:
        // The word is taken from the data field, where a plain end record has its checksum; no checksum is tested.
        start_address = hex_word(line, AT_DATA) + reader->start_base;
        return line_result::END;
    case RECORD_DATA_SEGMENT:
        sum += read_base(line, SEGMENT_SHIFT, &reader->data_base);
        break;
    case RECORD_START_SEGMENT:
        sum += read_base(line, SEGMENT_SHIFT, &reader->start_base);
        break;
    case RECORD_DATA_LINEAR:
        sum += read_base(line, LINEAR_SHIFT, &reader->data_base);
        break;
    case RECORD_START_LINEAR:
        sum += read_base(line, LINEAR_SHIFT, &reader->start_base);
        break;
    default:
        at_checksum = AT_DATA; // whatever the count says
        break;
    }
    sum += hex_byte(line, at_checksum);
    return (sum & 0xFF) == 0 ? line_result::GOOD : line_result::BAD;
}

bool ihex_identify(std::FILE *stream)
{
    line_reader lines(stream, IMAGE_LINE_LIMIT);
    std::string_view line;
    if (!lines.next(&line) || line.front() != RECORD_MARK) {
        return false;
    }
    line = without_trailing_space(line);
    line.remove_prefix(1);
    // A lone colon passes on purpose: it has no digit that could be wrong.
    if (line.size() % 2 != 0 || !std::all_of(line.begin(), line.end(), is_hex_digit)) {
        return false;
    }
    std::array<std::uint8_t, IMAGE_LINE_LIMIT / 2> bytes;
    const std::uint32_t sum = hex_bytes(line, 0, static_cast<std::uint32_t>(line.size() / 2), bytes.data());
    return (sum & 0xFF) == 0;
}

bool ihex_read(std::FILE *stream, const char *path)
{
    ihex_reader reader;
    tarn_expect_data(size_of_rest(stream) / DIGITS_PER_BYTE);
    line_reader lines(stream, IMAGE_LINE_LIMIT, path);
    std::string_view line;
    std::uint32_t line_number = 0;
    while (lines.next(&line)) {
        ++line_number;
        if (line.front() != RECORD_MARK) {
            alert(635, path, line_number);
            return false;
        }
        switch (ihex_read_line(line, &reader)) {
        case line_result::GOOD:
            break;
        case line_result::END:
            return true;
        case line_result::BAD:
            alert(636, path, line_number);
            return false;
        }
    }
    return true;
}

// An extended linear address record. Its checksum is no checksum byte: of the address' highest byte only the upper four
// bits enter the sum as they should, and the negated sum is printed in 32 bits, so that it has eight digits unless it
// is 0. Readers in the field take the line as it is.
void write_upper_address(image_writer *out, std::uint32_t address)
{
    constexpr std::uint32_t HEAD_SUM = 6; // of count and type
    constexpr std::uint32_t UPPER_BYTES = 2;
    const std::uint32_t sum = ((address >> 28) + (address >> 16) + HEAD_SUM) & 0xFF;
    std::uint32_t unused = 0;
    char *p = out->begin_line();
    p += UPPER_HEAD.copy(p, UPPER_HEAD.size());
    p = image_writer::put_number(p, address >> 16, UPPER_BYTES, &unused);
    p = image_writer::put_number(p, 0 - sum, sum == 0 ? 1 : sizeof sum, &unused);
    out->end_line(p);
}

void write_data_record(image_writer *out, std::uint32_t address, const std::uint8_t *bytes, std::uint32_t count)
{
    char *p = out->begin_line();
    std::uint32_t sum = 0;
    *p++ = RECORD_MARK;
    p = image_writer::put_number(p, count, 1, &sum);
    p = image_writer::put_number(p, address, 2, &sum);
    p = image_writer::put_byte(p, RECORD_DATA);
    p = image_writer::put_bytes(p, bytes, count, &sum);
    p = image_writer::put_byte(p, 0 - sum);
    out->end_line(p);
}

// `upper` is the upper address in force. It is looked at ahead of each line alone: a line that begins below a 64 KiB
// boundary runs across it.
void ihex_write_block(image_writer *out, const tarn_data *block, std::uint32_t *upper)
{
    constexpr std::uint32_t UPPER_MASK = 0xFFFF0000;
    std::uint32_t address = block->da_addr;
    const std::uint8_t *bytes = block->da_bytes;
    for (std::uint32_t left = block->da_len; left != 0;) {
        const std::uint32_t count = std::min(left, IMAGE_LINE_BYTES);
        if ((address & UPPER_MASK) != *upper) {
            *upper = address & UPPER_MASK;
            write_upper_address(out, address);
        }
        write_data_record(out, address, bytes, count);
        address += count;
        bytes += count;
        left -= count;
    }
}

bool ihex_write(std::FILE *stream, const char *)
{
    image_writer out(stream);
    std::uint32_t upper = 0; // so a block in the lowest 64 KiB needs no address record
    for (const tarn_data *block : each(data_list)) {
        ihex_write_block(&out, block, &upper);
    }
    char *p = out.begin_line();
    out.end_line(p + END_RECORD.copy(p, END_RECORD.size()));
    return true;
}

} // namespace

constinit const format_descriptor format_ihex = {
    .identify = ihex_identify,
    .read = ihex_read,
    .write = ihex_write,
    .dump = format_no_dump,
    .name = "Intel HEX",
    .key = "ihex",
    .ext = "hex",
    .binary = false,
};
