// SPDX-License-Identifier: MIT
// Motorola S-record images.
#include <algorithm>
#include <array>
#include <string_view>

#include "common/ascii.h"
#include "common/linereader.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/hexdigits.h"
#include "compiler/tarnwick/image_text.h"
#include "compiler/tarnwick/image_writer.h"
#include "compiler/tarnwick/model.h"

namespace {

constexpr char RECORD_MARK = 'S';

// Positions in a line.
constexpr std::size_t AT_TYPE = 1;
constexpr std::size_t AT_COUNT = 2;
constexpr std::size_t AT_ADDRESS = 4;

constexpr std::uint32_t CHECKSUM_BYTES = 1; // the count covers address, data and checksum
constexpr std::uint32_t COUNT_MAX = 0xFF;

// What a record type is, by its digit.
enum class record_use : std::uint8_t { SKIP, DATA, STOP, START };

struct record_kind {
    record_use use;
    std::uint8_t address_bytes;
};

constexpr std::array<record_kind, 10> record_kinds = {{
    {record_use::SKIP, 2},  // S0, header
    {record_use::DATA, 2},  // S1
    {record_use::DATA, 3},  // S2
    {record_use::DATA, 4},  // S3
    {record_use::STOP, 0},  // S4
    {record_use::STOP, 2},  // S5, count
    {record_use::STOP, 3},  // S6, count
    {record_use::START, 4}, // S7
    {record_use::START, 3}, // S8
    {record_use::START, 2}, // S9
}};

std::uint32_t read_address(std::string_view line, std::uint32_t bytes)
{
    const std::uint32_t upper = hex_word(line, AT_ADDRESS);
    switch (bytes) {
    case 3:
        return upper << 8 | hex_byte(line, AT_ADDRESS + 4);
    case 4:
        return upper << 16 | hex_word(line, AT_ADDRESS + 4);
    default:
        return upper;
    }
}

// False when the count is no number or leaves no room for address and checksum. No checksum is ever tested.
bool read_data(std::string_view line, std::uint32_t address_bytes)
{
    const std::uint32_t count = hex_byte(line, AT_COUNT);
    if (count > COUNT_MAX || count < address_bytes + CHECKSUM_BYTES) {
        return false;
    }
    const std::uint32_t length = count - address_bytes - CHECKSUM_BYTES;
    std::array<std::uint8_t, COUNT_MAX> bytes;
    hex_bytes(line, AT_ADDRESS + std::size_t{address_bytes} * 2, length, bytes.data());
    tarn_add_data(read_address(line, address_bytes), length, bytes.data(), 0);
    return true;
}

bool s19_identify(std::FILE *stream)
{
    line_reader lines(stream, IMAGE_LINE_LIMIT);
    std::string_view line;
    if (!lines.next(&line) || line.front() != RECORD_MARK || line.size() <= AT_TYPE || !is_digit(line[AT_TYPE])) {
        return false;
    }
    line = without_trailing_space(line);
    return line.size() % 2 == 0 && std::all_of(line.begin() + AT_TYPE, line.end(), is_hex_digit);
}

bool s19_read(std::FILE *stream, const char *path)
{
    tarn_expect_data(size_of_rest(stream) / DIGITS_PER_BYTE);
    line_reader lines(stream, IMAGE_LINE_LIMIT, path);
    std::string_view line;
    while (lines.next(&line)) {
        if (line.front() != RECORD_MARK) {
            return false;
        }
        if (line.size() <= AT_TYPE || !is_digit(line[AT_TYPE])) {
            return true; // reading ends with success
        }
        const record_kind kind = record_kinds[static_cast<std::size_t>(line[AT_TYPE] - '0')];
        switch (kind.use) {
        case record_use::SKIP:
            break;
        case record_use::DATA:
            if (!read_data(line, kind.address_bytes)) {
                return false;
            }
            break;
        case record_use::START:
            start_address = read_address(line, kind.address_bytes);
            return true;
        case record_use::STOP:
            return true;
        }
    }
    return true;
}

// The narrowest record for a line's own address; 0x1000000 is where the widest one begins.
std::uint32_t address_bytes_for(std::uint32_t address)
{
    return address >= 0x1000000 ? 4 : address > 0xFFFF ? 3 : 2;
}

void write_data_record(image_writer *out, std::uint32_t address, const std::uint8_t *bytes, std::uint32_t count)
{
    const std::uint32_t address_bytes = address_bytes_for(address);
    char *p = out->begin_line();
    std::uint32_t sum = 0;
    *p++ = RECORD_MARK;
    *p++ = static_cast<char>('1' + (address_bytes - 2));
    p = image_writer::put_number(p, count + address_bytes + CHECKSUM_BYTES, 1, &sum);
    p = image_writer::put_number(p, address, address_bytes, &sum);
    p = image_writer::put_bytes(p, bytes, count, &sum);
    p = image_writer::put_byte(p, ~sum);
    out->end_line(p);
}

// Neither a header nor a termination record is written.
bool s19_write(std::FILE *stream, const char *)
{
    image_writer out(stream);
    for (const tarn_data *block : each(data_list)) {
        std::uint32_t address = block->da_addr;
        const std::uint8_t *bytes = block->da_bytes;
        for (std::uint32_t left = block->da_len; left != 0;) {
            const std::uint32_t count = std::min(left, IMAGE_LINE_BYTES);
            write_data_record(&out, address, bytes, count);
            address += count;
            bytes += count;
            left -= count;
        }
    }
    return true;
}

} // namespace

constinit const format_descriptor format_s19 = {
    .identify = s19_identify,
    .read = s19_read,
    .write = s19_write,
    .dump = format_no_dump,
    .name = "Motorola HEX",
    .key = "s19",
    .ext = "hex",
    .binary = false,
};
