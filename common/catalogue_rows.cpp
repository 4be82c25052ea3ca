// SPDX-License-Identifier: MIT
// The built-in message catalogue: number, severity and text of every message that this program raises. Errors must be
// in numeric order.
#include "common/catalogue_rows.h"

#include <array>

namespace {

constexpr message_entry fatal(std::uint32_t number, const char *text)
{
    return {MESSAGE_FATAL, number, text, 0};
}

constexpr message_entry message(std::uint32_t number, const char *text)
{
    return {MESSAGE_PLAIN, number, text, 0};
}

constexpr message_entry error(std::uint32_t number, const char *text)
{
    return {MESSAGE_ERROR, number, text, 0};
}

constexpr message_entry warning(std::uint32_t number, std::int32_t level, const char *text)
{
    return {MESSAGE_WARNING, number, text, level};
}

// clang-format off
constexpr std::array ROWS = {
    message(1, "too many errors (%u)"),
    fatal(141, "can't open %s file \"%s\": %m"),
    error(157, "can't allocate %u bytes of memory"),
    fatal(294, "can't allocate %u bytes of memory"),
    fatal(296, "out of memory"),
    fatal(378, "can't create %s file \"%s\""),
    fatal(393, "missing argument to -W"),
    fatal(413, "write error on \"%s\""),
    fatal(442, "missing address in -A spec"),
    fatal(443, "bad low address \"%s\" in -A spec"),
    fatal(444, "expected \"-\" in -A spec"),
    fatal(445, "bad high address \"%s\" in -A spec"),
    fatal(448, "bad repeat count \"%s\" in -A spec"),
    fatal(449, "syntax error in -A spec: %s"),
    warning(523, 0, "argument to -W option (%d) illegal and ignored"),
    fatal(600, "no chip arch given for COFF write"),
    fatal(602, "null file format name"),
    fatal(603, "ambiguous file format name \"%s\""),
    fatal(604, "unknown file format name \"%s\""),
    fatal(605, "did not recognize format of input file"),
    fatal(606, "inconsistent symbol tables"),
    fatal(607, "inconsistent line number tables"),
    fatal(609, "missing processor spec after -P"),
    fatal(611, "too many input files"),
    fatal(612, "too many output files"),
    fatal(613, "no output file format specified"),
    fatal(614, "no input files specified"),
    fatal(621, "error writing ELF/DWARF section \"%s\" on \"%s\""),
    fatal(623, "bad class in type hashing"),
    fatal(624, "bad class in type compare"),
    fatal(627, "missing \"%c\" in SDB file \"%s\" line %u column %u"),
    fatal(629, "bad storage class \"%s\" in SDB file \"%s\" line %u column %u"),
    fatal(630, "invalid syntax for prefix list in SDB file \"%s\""),
    fatal(631, "syntax error at token \"%s\" in SDB file \"%s\" line %u column %u"),
    fatal(632, "can't handle address size (%lu)"),
    warning(633, 0, "unknown symbol class (%d)"),
    warning(634, 0, "error dumping \"%s\""),
    warning(635, 0, "invalid HEX file \"%s\" on line %d"),
    warning(636, 0, "checksum error in Intel HEX file \"%s\" on line %d"),
    warning(637, 0, "unknown prefix \"%s\" in SDB file \"%s\""),
    warning(638, 0, "version mismatch: 0x%X expected"),
    warning(639, 0, "zero bit width in Vantrel optional header"),
    warning(666, 0, "short read on \"%s\" (%s)"),
    warning(667, 0, "missing abbreviation table"),
    error(668, "prefix list did not match any SDB types"),
    error(669, "prefix list matched more than one SDB type"),
    error(917, "argument too long"),
    error(1036, "bad \"%s\" optional header length (0x%X expected)"),
    error(1037, "short read on %s"),
    error(1038, "string table length too short"),
    error(1039, "inconsistent symbol count"),
    error(1043, "unknown optional header"),
    error(1044, "end of file encountered"),
    error(1045, "short read on block of %u bytes"),
    error(1046, "short string read"),
    error(1047, "bad type byte for UBROF file"),
    error(1048, "bad time/date stamp"),
    error(1049, "wrong CRC on 0x%lX bytes; should be %04X"),
    error(1050, "bad date in 0x52 record"),
    error(1051, "bad date in 0x01 record"),
    error(1052, "unknown record type"),
    warning(1289, -9, "line range limit exceeded, possibly affecting ability to debug code"),
    error(1291, "bad ELF string table index"),
    error(1292, "malformed define in .SDB file %s"),
    warning(1293, 0, "couldn't find type for \"%s\" in DWARF debugging information entry"),
    warning(1301, 0, "invalid ELF section header; skipping"),
    fatal(1302, "could not find valid ELF output extension for this device"),
    warning(1303, -5, "invalid variable location detected: %s - %s"),
    warning(1304, 5, "unknown register name: \"%s\""),
    warning(1305, 5, "inconsistent storage class for variable: \"%s\""),
    warning(1306, 5, "inconsistent size (%d vs %d) for variable: \"%s\""),
    fatal(1314, "illegal action in memory allocation"),
    error(1437, "TMF error: %s"),
    error(1450, "invalid --%s-spaces argument (%s)"),
    error(1451, "no %s spaces have been defined"),
    error(1452, "one or more spaces are defined as data and code"),
    warning(1501, 0, "assertion failure: %s (%s:%d) "),
    error(1502, "assertion failure: %s (%s:%d) "),
    fatal(1503, "assertion failure: %s (%s:%d) "),
    fatal(1521, "internal error encountered creating DWARF information; contact Vantrel support with details"),
    error(1606, "w[no-]error option has been passed an invalid or missing message identifier"),
};
// clang-format on

constexpr bool in_numeric_order()
{
    for (std::size_t i = 1; i < ROWS.size(); i++) {
        if (ROWS[i - 1].number >= ROWS[i].number) {
            return false;
        }
    }
    return ROWS.back().number <= MESSAGE_NUMBER_MAX;
}
static_assert(in_numeric_order());

} // namespace

std::span<const message_entry> catalogue_rows()
{
    return ROWS;
}
