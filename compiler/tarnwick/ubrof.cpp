// SPDX-License-Identifier: MIT
// UBROF files, which are printed only. A file is a run of records, each a tag byte and its content; every byte goes
// through a running CRC, and CRC records check it stretch by stretch. Numbers have their high byte first.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

#include "common/alert.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/options.h"

namespace {

constexpr std::uint32_t MESSAGE_END_OF_FILE = 1044;
constexpr std::uint32_t MESSAGE_SHORT_BLOCK = 1045;
constexpr std::uint32_t MESSAGE_SHORT_STRING = 1046;
constexpr std::uint32_t MESSAGE_BAD_TYPE_BYTE = 1047;
constexpr std::uint32_t MESSAGE_BAD_STAMP = 1048;
constexpr std::uint32_t MESSAGE_WRONG_CRC = 1049;
constexpr std::uint32_t MESSAGE_BAD_DEBUG_DATE = 1050;
constexpr std::uint32_t MESSAGE_BAD_PROGRAM_DATE = 1051;
constexpr std::uint32_t MESSAGE_UNKNOWN_RECORD = 1052;

constexpr std::uint8_t FILE_MARK = 0xA5;
constexpr int YEAR_BASE = 1900;
constexpr std::uint8_t DAY_MAX = 31;
constexpr std::uint8_t MONTH_MAX = 12;

enum record_tag : std::uint8_t {
    TAG_MODULE = 0x01, // a program, or a segment
    TAG_MODULE_2 = 0x02,
    TAG_DATA = 0x39,
    TAG_CRC = 0x3F,
    TAG_STATEMENT = 0x47,
    TAG_SKIPPED = 0x4A,
    TAG_SYMBOL = 0x4C,
    TAG_ORIGIN = 0x51,
    TAG_DEBUG = 0x52,
    TAG_AUXILIARY = 0x53,
    TAG_TRANSLATOR = 0x54,
    TAG_VERSION = 0xBD,
    TAG_C0 = 0xC0,
    TAG_END = 0xFF,
};

// Only CRC and count begin anew with a dump; segment, origin and buffer are those of the file before.
std::uint16_t ubrof_crc = 0;
std::uint32_t ubrof_count = 0;                // bytes since the last reset
std::array<std::uint8_t, 4096> ubrof_log;     // the first of them
std::uint32_t ubrof_seg = 0;                  // current segment
std::uint32_t ubrof_origin = 0;               // current address
std::uint32_t ubrof_position = 0;             // bytes taken from the file
std::array<std::uint8_t, 255> ubrof_buffer{}; // the latest block, in front of what earlier ones left

// --- CRC -------------------------------------------------------------------------------------------------------------

constexpr std::uint16_t CRC_POLYNOMIAL = 0x8005;
constexpr std::uint16_t CRC_TOP_BIT = 0x8000;

// What each byte does to a register of 0. The bits of a byte enter from bit 0 up, though the register shifts left.
constexpr std::array<std::uint16_t, 256> CRC_OF_BYTE = []() {
    std::array<std::uint16_t, 256> table{};
    for (std::size_t byte = 0; byte < table.size(); ++byte) {
        std::uint16_t crc = 0;
        for (std::size_t bit = 0; bit < 8; ++bit) {
            const bool differs = ((crc & CRC_TOP_BIT) != 0) != ((byte >> bit & 1) != 0);
            crc = static_cast<std::uint16_t>(crc << 1 ^ (differs ? CRC_POLYNOMIAL : 0));
        }
        table[byte] = crc;
    }
    return table;
}();

// The register's high byte meets the bits of a byte from its own bit 7 down.
constexpr std::array<std::uint8_t, 256> MIRRORED = []() {
    std::array<std::uint8_t, 256> table{};
    for (std::size_t byte = 0; byte < table.size(); ++byte) {
        for (std::size_t bit = 0; bit < 8; ++bit) {
            if ((byte >> bit & 1) != 0) {
                table[byte] = static_cast<std::uint8_t>(table[byte] | 0x80U >> bit);
            }
        }
    }
    return table;
}();

std::uint16_t crc_with(std::uint16_t crc, std::uint8_t byte)
{
    return static_cast<std::uint16_t>(crc << 8 ^ CRC_OF_BYTE[MIRRORED[crc >> 8] ^ byte]);
}

void reset_stretch()
{
    ubrof_crc = 0;
    ubrof_count = 0;
}

// --- reading ---------------------------------------------------------------------------------------------------------

// False at the end of the file. Every byte comes in through here.
bool take_byte(std::FILE *stream, std::uint8_t *byte)
{
    const int c = std::getc(stream);
    if (c == EOF) {
        return false;
    }
    *byte = static_cast<std::uint8_t>(c);
    ubrof_crc = crc_with(ubrof_crc, *byte);
    if (ubrof_count < ubrof_log.size()) {
        ubrof_log[ubrof_count] = *byte;
    }
    ++ubrof_count;
    ++ubrof_position;
    return true;
}

// A byte that the end of the file has taken counts as 255.
std::uint8_t ubrof_byte(std::FILE *stream)
{
    constexpr std::uint8_t LOST_BYTE = 255;
    std::uint8_t byte = 0;
    if (!take_byte(stream, &byte)) {
        alert(MESSAGE_END_OF_FILE);
        return LOST_BYTE;
    }
    return byte;
}

std::uint16_t ubrof_word(std::FILE *stream)
{
    const std::uint32_t high = ubrof_byte(stream);
    return static_cast<std::uint16_t>(high << 8 | ubrof_byte(stream));
}

std::uint32_t ubrof_long(std::FILE *stream)
{
    const std::uint32_t high = ubrof_word(stream);
    return high << 16 | ubrof_word(stream);
}

// What a short read did not bring stays as the buffer holds it.
void ubrof_block(std::FILE *stream, std::uint8_t count)
{
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!take_byte(stream, &ubrof_buffer[i])) {
            alert(MESSAGE_SHORT_BLOCK, count);
            return;
        }
    }
}

// A count byte and the characters; all of them that the file has.
std::string ubrof_string(std::FILE *stream)
{
    std::string text;
    for (std::uint32_t left = ubrof_byte(stream); left > 0; --left) {
        std::uint8_t character = 0;
        if (!take_byte(stream, &character)) {
            alert(MESSAGE_SHORT_STRING);
            break;
        }
        text.push_back(static_cast<char>(character));
    }
    return text;
}

struct time_stamp {
    std::uint8_t seconds;
    std::uint8_t minutes;
    std::uint8_t hours;
    std::uint8_t day;
    std::uint8_t month;
    std::uint8_t year; // since YEAR_BASE

    bool is_bad() const
    {
        return seconds > 59 || minutes > 59 || hours > 23 || day > DAY_MAX ||
               month > MONTH_MAX; // a 0 is as good as any
    }
    void print() const
    {
        std::printf("%d/%d/%d %02d:%02d:%02d", year + YEAR_BASE, month, day, hours, minutes, seconds);
    }
};

time_stamp ubrof_stamp(std::FILE *stream)
{
    time_stamp stamp{};
    stamp.seconds = ubrof_byte(stream);
    stamp.minutes = ubrof_byte(stream);
    stamp.hours = ubrof_byte(stream);
    stamp.day = ubrof_byte(stream);
    stamp.month = ubrof_byte(stream);
    stamp.year = ubrof_byte(stream);
    return stamp;
}

// --- printing --------------------------------------------------------------------------------------------------------

void print_bytes(const std::uint8_t *bytes, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        std::printf("%02X ", bytes[i]);
    }
}

// Rows of bytes with their text, which follows the last byte directly.
void print_hex_dump(const std::uint8_t *bytes, std::uint32_t count, std::uint32_t address)
{
    constexpr std::uint32_t ROW = 16;
    for (std::uint32_t first = 0; first < count; first += ROW) {
        const std::uint32_t end = std::min(first + ROW, count);
        std::printf("%04X:", address + first);
        for (std::uint32_t i = first; i < end; ++i) {
            std::printf(" %02X", bytes[i]);
        }
        for (std::uint32_t i = first; i < end; ++i) {
            std::putchar(bytes[i] >= ' ' && bytes[i] <= '~' ? bytes[i] : '.');
        }
        std::putchar('\n');
    }
}

template <std::size_t Size>
bool buffer_holds(const std::array<std::uint8_t, Size> &bytes)
{
    return std::equal(bytes.begin(), bytes.end(), ubrof_buffer.begin());
}

// --- records ---------------------------------------------------------------------------------------------------------

void dump_c0(std::FILE *stream)
{
    ubrof_block(stream, 6);
    const auto &b = ubrof_buffer;
    std::printf("C0 record: %02X %02X %02X %02X %02X %02X\n", b[0], b[1], b[2], b[3], b[4], b[5]);
}

void dump_version(std::FILE *stream)
{
    constexpr std::array<std::uint8_t, 13> USUAL = {0x00, 0x00, 0x05, 0xBA, 0x02, 0xBE, 0xFF,
                                                    0xBF, 0x02, 0xC0, 0xFF, 0xC1, 0x05};
    const std::uint8_t version = ubrof_byte(stream);
    ubrof_block(stream, USUAL.size());
    std::printf("UBROF version %d\n", version);
    if (buffer_holds(USUAL)) {
        return;
    }
    std::printf("Funny BD record; should be:\nBD 06 ");
    print_bytes(USUAL.data(), USUAL.size());
    std::printf("but was:\nBD %02X ", version);
    print_bytes(ubrof_buffer.data(), USUAL.size());
    std::putchar('\n');
}

void dump_segment(std::FILE *stream)
{
    // The fourth byte isn't in the record: it is whatever the buffer held.
    constexpr std::array<std::uint8_t, 4> NONE{};
    ubrof_block(stream, 3);
    std::printf("Segment: ");
    if (!buffer_holds(NONE)) {
        print_bytes(ubrof_buffer.data(), NONE.size());
    }
    std::printf("\"%s\" ", ubrof_string(stream).c_str());
    std::printf("flags 0x%X\nStart\tLength\n", ubrof_byte(stream));
    for (std::uint32_t left = ubrof_byte(stream); left > 0; --left) {
        const std::uint32_t start = ubrof_long(stream);
        const std::uint32_t length = ubrof_long(stream);
        std::printf("0x%04X\t0x%04X\n", start, length);
    }
    std::putchar('\n');
}

const char *language_text(std::uint8_t language)
{
    constexpr std::uint8_t ASSEMBLER = 0;
    constexpr std::uint8_t C = 16;
    return language == ASSEMBLER ? "(Assembler) " : language == C ? "(C) " : "";
}

// Bits 1 and 2 of a program's flags.
const char *address_text(std::uint8_t flags)
{
    constexpr std::array<const char *, 4> TEXTS = {"8 bit ", "16 bit ", "32 bit ", "segmented  "};
    return TEXTS[flags >> 1 & 3];
}

bool dump_program(std::FILE *stream, std::uint8_t version)
{
    constexpr std::uint8_t NORMAL_BIT_ORDER = 1;
    const std::uint8_t flags = ubrof_byte(stream);
    const std::uint8_t language = ubrof_byte(stream);
    const std::uint8_t day = ubrof_byte(stream);
    const std::uint8_t month = ubrof_byte(stream);
    const std::uint8_t year = ubrof_byte(stream);
    const std::string name = ubrof_string(stream);
    if (month > MONTH_MAX || day > DAY_MAX) {
        alert(MESSAGE_BAD_PROGRAM_DATE);
        return false;
    }
    std::printf("Program: \"%s\" %d/%d/%d ", name.c_str(), year + YEAR_BASE, month, day);
    std::printf(" version %d, language 0x%X, ", version, language);
    std::printf("%s%s", language_text(language), address_text(flags));
    if ((flags & NORMAL_BIT_ORDER) != 0) {
        std::printf("normal bit order");
    }
    std::putchar('\n');
    return true;
}

bool dump_module(std::FILE *stream)
{
    const std::uint8_t version = ubrof_byte(stream);
    if (version != 0) {
        return dump_program(stream, version);
    }
    dump_segment(stream);
    return true;
}

void dump_data(std::FILE *stream)
{
    const std::uint8_t count = ubrof_byte(stream);
    ubrof_block(stream, count);
    std::printf("Data: %u bytes in seg %u at 0x%X\n", count, ubrof_seg, ubrof_origin);
    if (opt_verbose != 0) {
        print_hex_dump(ubrof_buffer.data(), count, ubrof_origin);
    }
    ubrof_origin += count;
}

// The CRC record closes a stretch; its tag is part of the stretch, its CRC is not.
bool check_crc(std::FILE *stream)
{
    constexpr std::uint32_t CRC_SIZE = 2;
    constexpr std::uint32_t RECORD_SIZE = 3;
    const std::uint16_t expected = ubrof_crc;
    const std::uint16_t crc = ubrof_word(stream);
    ubrof_count -= CRC_SIZE; // also where the end of the file took bytes of it, which were never counted
    if (crc != expected) {
        alert(MESSAGE_WRONG_CRC, ubrof_count, expected);
        if (opt_verbose != 0) {
            const auto log_size = static_cast<std::uint32_t>(ubrof_log.size());
            print_hex_dump(ubrof_log.data(), std::min(ubrof_count, log_size), 0);
        }
        return false;
    }
    if (opt_verbose != 0) {
        std::printf("CRC matched at %X\n", ubrof_position - RECORD_SIZE);
    }
    reset_stretch();
    return true;
}

void dump_statement(std::FILE *stream)
{
    const std::uint16_t first = ubrof_word(stream);
    const std::uint16_t segment = ubrof_word(stream);
    const std::uint16_t last = ubrof_word(stream);
    const std::uint8_t flags = ubrof_byte(stream);
    const std::uint16_t more_flags = ubrof_word(stream);
    std::printf("Statement: line %u", first);
    if (last != first) {
        std::printf("-%u", last);
    }
    std::printf(" seg %X flags %X %X\n", segment, flags, more_flags);
}

void skip_record(std::FILE *stream)
{
    constexpr std::uint8_t WITH_STRING = 0x11;
    ubrof_word(stream);
    if (ubrof_byte(stream) == WITH_STRING) {
        ubrof_string(stream);
    }
}

void print_symbol_kind(std::uint8_t kind)
{
    constexpr std::array<const char *, 5> KINDS = {"public/abs ", "public/reloc ", "local/abs ", "local/reloc ",
                                                   "external "};
    if (kind >= 1 && kind <= KINDS.size()) {
        std::printf("%s", KINDS[kind - 1U]);
    } else {
        std::printf("type?? 0x%02X ", kind);
    }
}

void print_symbol_segment(std::uint16_t segment)
{
    constexpr std::array<const char *, 7> SEGMENTS = {"CODE ", "DATA ",     "XDATA ", "IDATA ",
                                                      "BIT ",  "REGISTER ", "CONST "};
    if (segment >= 1 && segment <= SEGMENTS.size()) {
        std::printf("%s", SEGMENTS[segment - 1U]);
    } else {
        std::printf("segment 0x%X ", segment);
    }
}

void dump_symbol(std::FILE *stream)
{
    constexpr std::array<std::uint8_t, 3> NONE{};
    const std::uint8_t kind = ubrof_byte(stream);
    const std::uint16_t segment = ubrof_word(stream);
    const std::uint32_t address = ubrof_long(stream);
    const std::string name = ubrof_string(stream);
    ubrof_block(stream, NONE.size());
    std::printf("Symbol; ");
    print_symbol_kind(kind);
    print_symbol_segment(segment);
    std::printf("addr = 0x%X  \"%s\"", address, name.c_str());
    if (!buffer_holds(NONE)) {
        std::printf(" %02X %02X %02X", ubrof_buffer[0], ubrof_buffer[1], ubrof_buffer[2]);
    }
    std::putchar('\n');
}

void take_origin(std::FILE *stream)
{
    ubrof_seg = ubrof_byte(stream);
    ubrof_origin = ubrof_long(stream);
    if (opt_verbose != 0) {
        std::printf("Origin 0x%X in segment %u\n", ubrof_origin, ubrof_seg);
    }
}

bool dump_debug(std::FILE *stream)
{
    constexpr std::array<std::uint8_t, 5> USUAL = {0x00, 0xB9, 0x00, 0x00, 0x00};
    ubrof_block(stream, USUAL.size());
    const std::string name = ubrof_string(stream);
    const time_stamp stamp = ubrof_stamp(stream);
    if (stamp.is_bad()) {
        alert(MESSAGE_BAD_DEBUG_DATE);
        return false;
    }
    std::printf("Debug record: ");
    if (!buffer_holds(USUAL)) {
        print_bytes(ubrof_buffer.data(), USUAL.size());
    }
    std::printf("\"%s\" modified ", name.c_str());
    stamp.print();
    std::putchar('\n');
    return true;
}

void dump_auxiliary(std::FILE *stream)
{
    std::printf("Aux record: 0x%02X ", ubrof_byte(stream));
    std::printf("0x%02X\n", ubrof_byte(stream));
}

void dump_translator(std::FILE *stream)
{
    std::printf("Translator: 0x%02X ", ubrof_byte(stream));
    std::printf("0x%02X ", ubrof_byte(stream));
    std::printf("\"%s\"\n", ubrof_string(stream).c_str());
}

// False when the dump ends with the record.
bool dump_record(std::FILE *stream, std::uint8_t tag)
{
    switch (tag) {
    case TAG_MODULE:
    case TAG_MODULE_2:
        return dump_module(stream);
    case TAG_CRC:
        return check_crc(stream);
    case TAG_DEBUG:
        return dump_debug(stream);
    case TAG_DATA:
        dump_data(stream);
        return true;
    case TAG_STATEMENT:
        dump_statement(stream);
        return true;
    case TAG_SKIPPED:
        skip_record(stream);
        return true;
    case TAG_SYMBOL:
        dump_symbol(stream);
        return true;
    case TAG_ORIGIN:
        take_origin(stream);
        return true;
    case TAG_AUXILIARY:
        dump_auxiliary(stream);
        return true;
    case TAG_TRANSLATOR:
        dump_translator(stream);
        return true;
    case TAG_VERSION:
        dump_version(stream);
        return true;
    case TAG_C0:
        dump_c0(stream);
        return true;
    default:
        alert(MESSAGE_UNKNOWN_RECORD);
        return false;
    }
}

// --- the file --------------------------------------------------------------------------------------------------------

bool ubrof_identify(std::FILE *stream)
{
    return ubrof_byte(stream) == FILE_MARK && !ubrof_stamp(stream).is_bad();
}

// The time of the file opens a line that the first record goes on with.
bool dump_head(std::FILE *stream, std::uint8_t mark)
{
    if (mark != FILE_MARK) {
        alert(MESSAGE_BAD_TYPE_BYTE);
        return false;
    }
    const time_stamp stamp = ubrof_stamp(stream);
    if (stamp.is_bad()) {
        alert(MESSAGE_BAD_STAMP);
        return false;
    }
    std::printf("UBROF file: ");
    stamp.print();
    std::putchar(' ');
    return true;
}

bool ubrof_dump(std::FILE *stream)
{
    reset_stretch();
    ubrof_position = 0;
    std::uint8_t byte = 0;
    if (!take_byte(stream, &byte)) {
        alert(MESSAGE_END_OF_FILE);
        return true; // an empty file has nothing to print, and that is no failure
    }
    if (!dump_head(stream, byte)) {
        return false;
    }
    while (take_byte(stream, &byte)) {
        if (byte == TAG_END) {
            return true;
        }
        if (!dump_record(stream, byte)) {
            return false;
        }
    }
    alert(MESSAGE_END_OF_FILE);
    return false;
}

} // namespace

constinit const format_descriptor format_ubrof = {
    .identify = ubrof_identify,
    .read = format_no_transfer,
    .write = format_no_transfer,
    .dump = ubrof_dump,
    .name = "UBROF",
    .key = "ubrof",
    .ext = "d43",
    .binary = true,
};
