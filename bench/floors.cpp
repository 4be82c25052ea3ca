// SPDX-License-Identifier: MIT
// What a conversion of images cannot do without, each half as a plain loop of its own:
//
//     floors parse ihex|srec FILE           reads every record and tests its checksum; prints the count of data bytes
//     floors format ihex|srec BYTES FILE    writes an image of so many bytes, from address 0 on, 16 bytes a line
//
// Nothing is kept of what is parsed, and the image to be formatted is made up. Exit status: 0, or 1 for a file that
// can't be read, written or understood.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t BUFFER_SIZE = std::size_t{256} * 1024;
constexpr std::size_t LINE_ROOM = 64;
constexpr std::uint32_t LINE_BYTES = 16;
constexpr std::uint32_t PAGE_MASK = 0xFFFF; // what the address of an Intel HEX record can hold

enum class image_format { IHEX, SREC };

// --- parsing ---------------------------------------------------------------------------------------------------------

constexpr std::uint8_t NO_DIGIT = 0xFF;

constexpr std::array<std::uint8_t, 256> DIGIT_VALUES = []() {
    std::array<std::uint8_t, 256> values{};
    values.fill(NO_DIGIT);
    for (std::uint8_t i = 0; i < 10; ++i) {
        values['0' + i] = i;
    }
    for (std::uint8_t i = 0; i < 6; ++i) {
        values['A' + i] = values['a' + i] = static_cast<std::uint8_t>(10 + i);
    }
    return values;
}();

std::uint32_t digit(char c)
{
    return DIGIT_VALUES[static_cast<std::uint8_t>(c)];
}

// The bytes that pairs of digits stand for; returns their sum. What is no digit leaves a high bit in `bad`.
std::uint32_t take_pairs(const char *p, std::size_t count, std::uint8_t *bytes, std::uint32_t *bad)
{
    std::uint32_t sum = 0;
    std::uint32_t seen = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t high = digit(p[2 * i]);
        const std::uint32_t low = digit(p[2 * i + 1]);
        const std::uint32_t byte = high << 4 | low;
        seen |= high | low;
        sum += byte;
        bytes[i] = static_cast<std::uint8_t>(byte);
    }
    *bad |= seen & 0x80;
    return sum;
}

// What a record's checksum makes of the sum of its bytes, and where the record says what it is.
struct record_shape {
    char mark;
    std::size_t head;        // characters in front of the first pair
    std::uint32_t sum;       // of all bytes, in the low eight bits
    std::uint32_t uncounted; // bytes of a record that its count byte leaves out
};

constexpr record_shape IHEX_SHAPE = {':', 1, 0x00, 5};
constexpr record_shape SREC_SHAPE = {'S', 2, 0xFF, 1};

// Data bytes of a record; -1 for a bad one.
int parse_record(image_format format, std::string_view line)
{
    const record_shape &shape = format == image_format::IHEX ? IHEX_SHAPE : SREC_SHAPE;
    std::array<std::uint8_t, 260> bytes;
    if (line.size() < shape.head + 4 || line[0] != shape.mark || (line.size() - shape.head) % 2 != 0) {
        return -1;
    }
    const std::size_t count = (line.size() - shape.head) / 2;
    if (count > bytes.size()) {
        return -1;
    }
    std::uint32_t bad = 0;
    const std::uint32_t sum = take_pairs(line.data() + shape.head, count, bytes.data(), &bad);
    if (bad != 0 || (sum & 0xFF) != shape.sum || bytes[0] + shape.uncounted != count) {
        return -1;
    }
    if (format == image_format::IHEX) {
        return bytes[3] == 0 ? bytes[0] : 0;
    }
    const bool is_data = line[1] >= '1' && line[1] <= '3';
    return is_data ? bytes[0] - 1 - (line[1] - '0' + 1) : 0;
}

// Takes the whole lines of a piece; returns where the first one that is not whole begins, null after a bad record.
const char *parse_lines(image_format format, const char *p, const char *end, std::uint64_t *data_bytes)
{
    while (const void *found = std::memchr(p, '\n', static_cast<std::size_t>(end - p))) {
        const char *newline = static_cast<const char *>(found);
        const int count = parse_record(format, std::string_view(p, static_cast<std::size_t>(newline - p)));
        if (count < 0) {
            return nullptr;
        }
        *data_bytes += static_cast<std::uint32_t>(count);
        p = newline + 1;
    }
    return p;
}

bool parse_file(image_format format, const char *path)
{
    std::FILE *stream = std::fopen(path, "rb");
    if (stream == nullptr) {
        return false;
    }
    std::vector<char> buffer(BUFFER_SIZE);
    std::size_t held = 0;
    std::uint64_t data_bytes = 0;
    bool good = true;
    while (good) {
        const std::size_t added = std::fread(buffer.data() + held, 1, buffer.size() - held, stream);
        if (added == 0) {
            good = held == 0;
            break;
        }
        const char *end = buffer.data() + held + added;
        const char *rest = parse_lines(format, buffer.data(), end, &data_bytes);
        good = rest != nullptr;
        if (good) {
            held = static_cast<std::size_t>(end - rest);
            std::memmove(buffer.data(), rest, held);
        }
    }
    std::fclose(stream);
    std::printf("%llu\n", static_cast<unsigned long long>(data_bytes));
    return good;
}

// --- formatting ------------------------------------------------------------------------------------------------------

constexpr std::array<std::array<char, 2>, 256> DIGIT_PAIRS = []() {
    constexpr char DIGITS[] = "0123456789ABCDEF";
    std::array<std::array<char, 2>, 256> pairs{};
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        pairs[i] = {DIGITS[i >> 4], DIGITS[i & 0xF]};
    }
    return pairs;
}();

char *put_byte(char *p, std::uint32_t value, std::uint32_t *sum)
{
    std::memcpy(p, DIGIT_PAIRS[value & 0xFF].data(), 2);
    *sum += value & 0xFF;
    return p + 2;
}

char *put_bytes(char *p, const std::uint8_t *bytes, std::uint32_t count, std::uint32_t *sum)
{
    std::uint32_t total = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        p = put_byte(p, bytes[i], &total);
    }
    *sum += total;
    return p;
}

char *put_upper_address(char *p, std::uint32_t address)
{
    std::uint32_t sum = 0;
    *p++ = ':';
    for (const std::uint32_t byte : {2U, 0U, 0U, 4U, address >> 24, address >> 16}) {
        p = put_byte(p, byte, &sum);
    }
    p = put_byte(p, 0 - sum, &sum);
    *p++ = '\n';
    return p;
}

char *put_ihex(char *p, std::uint32_t address, const std::uint8_t *bytes, std::uint32_t count)
{
    std::uint32_t sum = 0;
    *p++ = ':';
    p = put_byte(p, count, &sum);
    p = put_byte(p, address >> 8, &sum);
    p = put_byte(p, address, &sum);
    p = put_byte(p, 0, &sum);
    p = put_bytes(p, bytes, count, &sum);
    p = put_byte(p, 0 - sum, &sum);
    *p++ = '\n';
    return p;
}

char *put_srec(char *p, std::uint32_t address, const std::uint8_t *bytes, std::uint32_t count)
{
    const std::uint32_t address_bytes = address > 0xFFFFFF ? 4 : address > 0xFFFF ? 3 : 2;
    std::uint32_t sum = 0;
    *p++ = 'S';
    *p++ = static_cast<char>('0' + address_bytes - 1);
    p = put_byte(p, address_bytes + count + 1, &sum);
    for (std::uint32_t shift = address_bytes * 8; shift > 0;) {
        shift -= 8;
        p = put_byte(p, address >> shift, &sum);
    }
    p = put_bytes(p, bytes, count, &sum);
    p = put_byte(p, ~sum, &sum);
    *p++ = '\n';
    return p;
}

// Cheap to make, and no two neighbouring lines alike.
std::vector<std::uint8_t> make_image(std::uint32_t size)
{
    std::vector<std::uint8_t> image(size);
    for (std::uint32_t i = 0; i < size; ++i) {
        image[i] = static_cast<std::uint8_t>(i + 21 * (i / LINE_BYTES));
    }
    return image;
}

bool format_image(image_format format, const std::vector<std::uint8_t> &image, std::FILE *stream)
{
    std::vector<char> buffer(BUFFER_SIZE);
    char *p = buffer.data();
    const char *full = buffer.data() + buffer.size() - 2 * LINE_ROOM;
    const auto size = static_cast<std::uint32_t>(image.size());
    for (std::uint32_t address = 0; address < size; address += LINE_BYTES) {
        const std::uint32_t count = std::min(LINE_BYTES, size - address);
        if (format == image_format::SREC) {
            p = put_srec(p, address, &image[address], count);
        } else {
            if ((address & PAGE_MASK) == 0 && address != 0) {
                p = put_upper_address(p, address);
            }
            p = put_ihex(p, address, &image[address], count);
        }
        if (p > full) {
            std::fwrite(buffer.data(), 1, static_cast<std::size_t>(p - buffer.data()), stream);
            p = buffer.data();
        }
    }
    std::fwrite(buffer.data(), 1, static_cast<std::size_t>(p - buffer.data()), stream);
    return std::ferror(stream) == 0;
}

bool format_file(image_format format, std::uint32_t size, const char *path)
{
    std::FILE *stream = std::fopen(path, "wb");
    if (stream == nullptr) {
        return false;
    }
    const bool good = format_image(format, make_image(size), stream);
    return std::fclose(stream) == 0 && good;
}

} // namespace

int main(int count, char **arguments)
{
    const std::vector<std::string_view> words(arguments, arguments + count);
    if (count < 4 || (words[2] != "ihex" && words[2] != "srec")) {
        return 1;
    }
    const image_format format = words[2] == "ihex" ? image_format::IHEX : image_format::SREC;
    if (words[1] == "parse" && count == 4) {
        return parse_file(format, arguments[3]) ? 0 : 1;
    }
    std::uint32_t size = 0;
    const std::string_view digits = words[3];
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), size);
    if (words[1] == "format" && count == 5 && error == std::errc() && end == digits.data() + digits.size()) {
        return format_file(format, size, arguments[4]) ? 0 : 1;
    }
    return 1;
}
