// SPDX-License-Identifier: MIT
// File identification. Most answers come from the name alone; for objects, libraries and ELF files the content decides.
#include "common/fileutils.h"

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/ascii.h"
#include "common/osdep.h"
#include "common/stringcache.h"
#include "common/trace.h"

namespace {

constexpr std::uint64_t MISSING_FILE = 0x1000;
constexpr std::uint64_t C_SOURCE = 0x2;

// Answers that more than one rule gives.
constexpr std::uint64_t ID_OBJECT = 0x10020;
constexpr std::uint64_t ID_OBJECT_BY_NAME = 0x20020;
constexpr std::uint64_t ID_P1_IN_OBJECT = 0x20060;
constexpr std::uint64_t ID_P1 = 0x40;
constexpr std::uint64_t ID_P1_NAMED = 0x40240;
constexpr std::uint64_t ID_LIBRARY_OBJECT = 0x4010;
constexpr std::uint64_t ID_LIBRARY_P1 = 0x2010;
constexpr std::uint64_t ID_LIBRARY_BOTH = 0x6010;
constexpr std::uint64_t ID_LIBRARY_OTHER = 0x8010;

// What `fileid_is_library` tells.
enum library_kind : std::uint32_t {
    LIBRARY_NONE = 0,
    LIBRARY_OBJECT = 1,
    LIBRARY_P1 = 2,
    LIBRARY_BOTH = 3,
};

struct file_closer {
    void operator()(std::FILE *stream) const { std::fclose(stream); }
};
using open_file = std::unique_ptr<std::FILE, file_closer>;

std::uint32_t little16(const unsigned char *bytes)
{
    return bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8;
}

std::uint32_t little32(const unsigned char *bytes)
{
    return little16(bytes) | little16(bytes + 2) << 16;
}

template <std::size_t Size>
bool read_bytes(std::FILE *stream, std::array<unsigned char, Size> *bytes)
{
    return std::fread(bytes->data(), 1, Size, stream) == Size;
}

// ---- Object records: a length of two bytes, a type byte, and the content.

enum record_type : std::uint32_t {
    RECORD_NONE = 0,
    RECORD_FIRST = 1,
    RECORD_END = 6,
    RECORD_LAST = 23, // the last type that can be read
    RECORD_LAST_NAMED = 24,
};

constexpr std::array<const char *, RECORD_LAST_NAMED + 1> RECORD_NAMES = {
    nullptr,    "TEXT",      "PSECT",  "RELOC",   "SYM",     "START",      "END",      "IDENT",     "XPSECT",
    "SEGMENT",  "XSYM",      "SIGNAT", "FNINFO",  "FNCONF",  "SEGSTART",   "PSECTLIM", "LISTRELOC", "LR_TEXT",
    "LR_RELOC", "COND_EXPR", "DABS",   "Unknown", "FNALIGN", "PSECTBOUND", "RECRANGE",
};

constexpr std::size_t RECORD_HEADER_SIZE = 3;
constexpr std::size_t RECORD_TYPE_OFFSET = 2;
constexpr std::size_t RECORD_CONTENT_MAX = 512;

// The record read last.
struct object_record {
    std::uint32_t type = RECORD_NONE;
    std::size_t length = 0;
    std::array<unsigned char, RECORD_CONTENT_MAX> content{};
};
object_record current_record;

// Starts of records from which no end record is reached. The chain of records from a place is always the same, so a
// library whose modules overlap need not be read again and again.
class dead_places {
public:
    bool has(std::size_t place) const { return place < marks_.size() && marks_[place]; }
    void add(std::size_t place)
    {
        if (place >= marks_.size()) {
            marks_.resize(place + place / 2 + 1);
        }
        marks_[place] = true;
    }

private:
    std::vector<bool> marks_;
};

// Whether the records from the stream's position, which is `place`, reach an end record.
bool reaches_end_record(std::FILE *stream, std::size_t place, dead_places *dead)
{
    for (;;) {
        if (dead != nullptr && dead->has(place)) {
            return false;
        }
        const std::uint32_t type = getrec(stream);
        if (type == RECORD_END) {
            return true;
        }
        if (type == RECORD_NONE) {
            return false;
        }
        if (dead != nullptr) {
            dead->add(place); // dead unless this very search finds an end, and then no place is asked for again
        }
        place += RECORD_HEADER_SIZE + current_record.length;
    }
}

// ---- P1 files: a text with a version line.

constexpr std::string_view P1_START = "Version";
constexpr std::string_view P1_NAME = "Orbell Software Intermediate Code";
constexpr std::size_t P1_READ = 60;
constexpr std::size_t P1_TOO_SHORT = 41;

// ---- Libraries: a header, an index entry for each module, and the modules.

constexpr std::size_t LIBRARY_HEADER_SIZE = 4;
constexpr std::size_t LIBRARY_COUNT_OFFSET = 2;
constexpr std::size_t MODULE_ENTRY_SIZE = 12;
constexpr std::size_t MODULE_SYMBOLS_OFFSET = 2;
constexpr std::size_t MODULE_LENGTH_OFFSET = 4;

struct library_index {
    std::vector<std::uint32_t> starts; // of each module, counted from the first one's
    std::uint32_t size = 0;            // of the entries in the file
};

// The length of the string at the stream's position; 0 when it is empty or too long.
std::uint32_t read_name(std::FILE *stream)
{
    const char *name = getString(stream);
    return name != nullptr ? static_cast<std::uint32_t>(std::strlen(name)) : 0;
}

bool read_symbols(std::FILE *stream, std::uint32_t count, library_index *index)
{
    for (std::uint32_t i = 0; i < count; ++i) {
        static_cast<void>(std::fgetc(stream)); // its end shows in the name
        const std::uint32_t length = read_name(stream);
        if (length == 0) {
            return false;
        }
        index->size += length + 2;
    }
    return true;
}

// False for a file that is no library. Sums wrap at 32 bits.
bool read_index(std::FILE *stream, library_index *index)
{
    std::array<unsigned char, LIBRARY_HEADER_SIZE> header{};
    if (!read_bytes(stream, &header)) {
        return false;
    }
    std::uint32_t start = 0;
    for (std::uint32_t left = little16(&header[LIBRARY_COUNT_OFFSET]); left > 0; --left) {
        std::array<unsigned char, MODULE_ENTRY_SIZE> entry{};
        if (!read_bytes(stream, &entry)) {
            return false;
        }
        const std::uint32_t length = read_name(stream);
        if (length == 0) {
            return false;
        }
        index->starts.push_back(start);
        index->size += length + static_cast<std::uint32_t>(MODULE_ENTRY_SIZE) + 1;
        start += little32(&entry[MODULE_LENGTH_OFFSET]);
        if (!read_symbols(stream, little16(&entry[MODULE_SYMBOLS_OFFSET]), index)) {
            return false;
        }
    }
    return true;
}

// Places of 2 GiB and more count as negative, and no module lies there.
bool seek_to(std::FILE *stream, std::uint32_t place)
{
    return place <= INT32_MAX && std::fseek(stream, static_cast<long>(place), SEEK_SET) == 0;
}

library_kind kind_of_modules(std::FILE *stream, const library_index &index)
{
    const std::uint32_t first_module = index.size + static_cast<std::uint32_t>(LIBRARY_HEADER_SIZE);
    bool has_object = false;
    bool has_p1 = false;
    dead_places dead;
    for (const std::uint32_t start : index.starts) {
        // No content is both, so each kind is looked for until it is found.
        const std::uint32_t place = first_module + start;
        if (!has_object && seek_to(stream, place)) {
            has_object = reaches_end_record(stream, place, &dead);
        }
        if (!has_p1 && seek_to(stream, place)) {
            has_p1 = fileid_is_p1_fp(stream);
        }
        if (has_object && has_p1) {
            return LIBRARY_BOTH;
        }
    }
    return has_p1 ? LIBRARY_P1 : has_object ? LIBRARY_OBJECT : LIBRARY_NONE;
}

// ---- ELF files.

constexpr std::array<unsigned char, 5> ELF_START = {0x7F, 'E', 'L', 'F', 1}; // the last one: 32 bits
constexpr std::size_t ELF_HEADER_SIZE = 52;
constexpr std::size_t ELF_MACHINE_OFFSET = 18;
constexpr std::uint64_t ID_ELF = 0x2000180;

struct machine_row {
    std::uint16_t machine;
    std::uint64_t id;
};
constexpr std::array<machine_row, 5> ELF_MACHINES = {{
    {204, 0x400002000180},
    {83, 0x800002000180},
    {118, 0x1000002000180},
    {8, 0x2000002000180},
    {40, 0x4000002000180},
}};

// ---- Answers that need the file.

// The three mappings of library kinds differ, and readers of file ids rely on each.
std::uint64_t identify_a(const char *path)
{
    switch (fileid_is_library(path)) {
    case LIBRARY_OBJECT:
        return ID_LIBRARY_OBJECT;
    case LIBRARY_P1:
        return ID_LIBRARY_P1;
    case LIBRARY_BOTH:
        return ID_LIBRARY_BOTH;
    default:
        return ID_LIBRARY_OTHER;
    }
}

std::uint64_t identify_lib(const char *path)
{
    return fileid_is_library(path) == LIBRARY_P1 ? ID_LIBRARY_P1 : ID_LIBRARY_OBJECT;
}

std::uint64_t identify_lpp(const char *path)
{
    return fileid_is_library(path) == LIBRARY_OBJECT ? ID_LIBRARY_OBJECT : ID_LIBRARY_P1;
}

std::uint64_t identify_obj(const char *path)
{
    return fileid_is_obj(path) ? ID_OBJECT : ID_OBJECT_BY_NAME;
}

std::uint64_t identify_o(const char *path)
{
    return fileid_is_p1(path) ? ID_P1_IN_OBJECT : identify_obj(path);
}

std::uint64_t identify_p1(const char *path)
{
    return fileid_is_p1(path) ? ID_P1_NAMED : scan(path);
}

// ---- The table of extensions.

enum class letters : std::uint8_t { ANY_CASE, EXACT };

struct extension_row {
    std::string_view extension;
    std::uint64_t id = 0;
    std::uint64_t (*identify)(const char *path) = nullptr; // in place of the id
    const char *kind = nullptr;                            // for the trace
    letters match = letters::ANY_CASE;
    bool tells_missing = true;
};

constexpr extension_row EXTENSIONS[] = {
    {.extension = "a", .identify = identify_a, .kind = ".A library"},
    {.extension = "as", .id = 0x200209, .kind = "as"},
    {.extension = "asm", .id = 0x400209, .kind = "asm"},
    {.extension = "c", .id = 0x1203, .kind = "C", .tells_missing = false},
    {.extension = "cfgmap", .id = 0x20000600, .kind = "cfgmap"},
    {.extension = "cfgdata", .id = 0x40000600, .kind = "cfgdata"},
    {.extension = "tmf", .id = 0x80000600, .kind = "tmf"},
    {.extension = "cof", .id = 0x4000180, .kind = "COFF"},
    {.extension = "crf", .id = 0x8000000500, .kind = "crf"},
    {.extension = "dep", .id = 0x400000600, .kind = "dep"},
    {.extension = "dmp", .id = 0x40000000600, .kind = "dmp"},
    {.extension = "elf", .identify = which_elf, .kind = "ELF"},
    {.extension = "hex", .id = 0x1000280, .kind = "hex"},
    {.extension = "hxl", .id = 0x2000000600, .kind = "hxl"},
    {.extension = "h", .id = 0x8000000000A00, .kind = "header"},
    {.extension = "i", .id = 0x100205, .kind = "i"},
    {.extension = "inc", .id = 0x800000209, .kind = "inc"},
    {.extension = "ini", .id = 0x10000600, .kind = "ini"},
    {.extension = "lib", .identify = identify_lib, .kind = ".LIB library"},
    {.extension = "lkr", .id = 0x8000600, .kind = "lkr"},
    {.extension = "lpp", .identify = identify_lpp, .kind = ".LPP library"},
    {.extension = "lst", .id = 0x10000000600, .kind = "lst"},
    {.extension = "map", .id = 0x1000000600, .kind = "map"},
    {.extension = "o", .identify = identify_o, .kind = "object"},
    {.extension = "obj", .identify = identify_obj, .kind = "object"},
    {.extension = "pre", .id = 0x80205, .kind = "pre"},
    {.extension = "p1", .identify = identify_p1, .kind = "p1"},
    {.extension = "rlf", .id = 0x20000000500, .kind = "rlf"},
    {.extension = "s", .id = 0x800209, .kind = "asm", .match = letters::EXACT},
    {.extension = "S", .id = 0x400000020D, .kind = "asm", .match = letters::EXACT},
    {.extension = "sx", .id = 0x400000020D, .kind = "asm"},
    {.extension = "sym", .id = 0x100000600, .kind = "sym"},
    {.extension = "sdb", .id = 0x200000600, .kind = "sdb"},
    {.extension = "usb", .id = 0x80000001203, .kind = "usb", .tells_missing = false},
    {.extension = "xml", .id = 0x100000000200, .kind = "xml"},
    {.extension = "zrtapp", .id = 0x200000000180, .kind = "zrtapp"},
};

const extension_row *find_extension(std::string_view extension)
{
    for (const extension_row &row : EXTENSIONS) {
        const bool same = row.match == letters::EXACT
                              ? row.extension == extension
                              : row.extension.size() == extension.size() &&
                                    str_compare_nocase(row.extension.data(), extension.data(), extension.size()) == 0;
        if (same) {
            return &row;
        }
    }
    return nullptr;
}

// The text behind the last point of the path: empty when there is none.
std::string_view extension_of(const char *path)
{
    const std::string_view extension = path_extension(path);
    return extension.empty() ? extension : extension.substr(1);
}

// ---- The assembler test.

constexpr std::uint64_t ASM_MASK = 0x4000E0020D;
constexpr std::array<std::uint64_t, 4> ASM_CLASSES = {0x200209, 0x400209, 0x800209, 0x400000020D};

// ---- Strings of a file.

constexpr std::size_t STRING_MAX = 32000; // with its NUL

} // namespace

std::uint64_t fileid(const char *path)
{
    const std::uint64_t missing = file_exists(path) ? 0 : MISSING_FILE;
    const extension_row *row = find_extension(extension_of(path));
    if (row == nullptr) {
        return scan(path) | missing;
    }
    if (missing == 0) {
        TRACEF(TRACE_ON, "found %s file", row->kind);
    } else {
        TRACEF(TRACE_ON, "did not find %s file", row->kind);
    }
    const std::uint64_t id = row->identify != nullptr ? row->identify(path) : row->id;
    return row->tells_missing ? id | missing : id;
}

std::uint64_t scan(const char *path)
{
    if (fileid_is_p1(path)) {
        TRACEF(TRACE_ON, "found p1 file");
        return ID_P1;
    }
    if (fileid_is_obj(path)) {
        TRACEF(TRACE_ON, "found object file");
        return ID_OBJECT;
    }
    const std::uint64_t elf = which_elf(path);
    if (elf != 0) {
        TRACEF(TRACE_ON, "found ELF file");
        return elf;
    }
    switch (fileid_is_library(path)) {
    case LIBRARY_P1:
        TRACEF(TRACE_ON, "found .LPP library file");
        return ID_LIBRARY_P1;
    case LIBRARY_BOTH:
        // Not what the extension "a" gives for both kinds.
        TRACEF(TRACE_ON, "found .A library file");
        return ID_LIBRARY_OTHER;
    case LIBRARY_OBJECT:
        TRACEF(TRACE_ON, "found .LIB library file");
        return ID_LIBRARY_OBJECT;
    default:
        TRACEF(TRACE_ON, "did not recognize file");
        return 0;
    }
}

std::uint64_t which_elf(const char *path)
{
    const open_file stream(file_open(path, "rb"));
    std::array<unsigned char, ELF_HEADER_SIZE> header{};
    if (stream == nullptr || !read_bytes(stream.get(), &header) ||
        std::memcmp(header.data(), ELF_START.data(), ELF_START.size()) != 0) {
        return 0;
    }
    std::uint16_t machine = 0; // in the host's order
    std::memcpy(&machine, &header[ELF_MACHINE_OFFSET], sizeof machine);
    for (const machine_row &row : ELF_MACHINES) {
        if (row.machine == machine) {
            return row.id;
        }
    }
    return ID_ELF;
}

bool fileid_has(std::uint64_t fid, std::uint64_t mask)
{
    return (fid & mask) == mask;
}

bool fileid_is_c(std::uint64_t fid)
{
    return (fid & C_SOURCE) != 0;
}

bool fileid_is_asm_fid(std::uint64_t fid)
{
    for (const std::uint64_t asm_class : ASM_CLASSES) {
        if ((fid & ASM_MASK) == asm_class) {
            return true;
        }
    }
    return false;
}

bool fileid_is_p1(const char *path)
{
    if (valid_ext(path, "p1:o") == nullptr) {
        return false;
    }
    const open_file stream(file_open(path, "rb"));
    return stream != nullptr && fileid_is_p1_fp(stream.get());
}

bool fileid_is_p1_fp(std::FILE *stream)
{
    std::array<char, P1_READ> start{};
    const std::size_t count = std::fread(start.data(), 1, start.size(), stream);
    if (count <= P1_TOO_SHORT) {
        return false;
    }
    std::string_view text(start.data(), count);
    if (!text.starts_with(P1_START)) {
        return false;
    }
    text.remove_prefix(P1_START.size());
    while (!text.empty() && !is_letter(text.front())) {
        text.remove_prefix(1);
    }
    return text.starts_with(P1_NAME);
}

bool fileid_is_obj(const char *path)
{
    if (valid_ext(path, "obj:o") == nullptr) {
        return false;
    }
    const open_file stream(file_open(path, "rb"));
    return stream != nullptr && fileid_is_obj_fp(stream.get());
}

bool fileid_is_obj_fp(std::FILE *stream)
{
    return reaches_end_record(stream, 0, nullptr);
}

std::uint32_t getrec(std::FILE *stream)
{
    current_record.type = RECORD_NONE;
    std::array<unsigned char, RECORD_HEADER_SIZE> header{};
    if (!read_bytes(stream, &header)) {
        return RECORD_NONE;
    }
    const std::uint32_t type = header[RECORD_TYPE_OFFSET];
    const std::uint32_t length = little16(header.data()); // a negative one, of 0x8000 and more, can't be read either
    if (type < RECORD_FIRST || type > RECORD_LAST || length > RECORD_CONTENT_MAX) {
        return RECORD_NONE;
    }
    if (std::fread(current_record.content.data(), 1, length, stream) != length) {
        return RECORD_NONE;
    }
    current_record.type = type;
    current_record.length = length;
    TRACEF(TRACE_ON, "%s record", RECORD_NAMES[type]);
    return type;
}

const char *getString(std::FILE *stream)
{
    std::string text;
    for (;;) {
        const int c = std::fgetc(stream);
        if (c == EOF || c == '\0') {
            return str_cache(text.c_str());
        }
        if (text.size() + 1 >= STRING_MAX) {
            return nullptr;
        }
        text.push_back(static_cast<char>(c));
    }
}

std::uint32_t fileid_is_library(const char *path)
{
    if (valid_ext(path, "lib:lpp:a") == nullptr) {
        return LIBRARY_NONE;
    }
    const open_file stream(file_open(path, "rb"));
    library_index index;
    if (stream == nullptr || !read_index(stream.get(), &index)) {
        return LIBRARY_NONE;
    }
    return kind_of_modules(stream.get(), index);
}

const char *valid_ext(const char *path, const char *list)
{
    const std::string_view extension = extension_of(path);
    if (extension.empty()) {
        return nullptr;
    }
    std::string_view rest = list != nullptr ? list : "";
    while (!rest.empty()) {
        const std::size_t end = rest.find_first_of(",;:");
        if (rest.substr(0, end) == extension) {
            return str_cache(extension);
        }
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
    return nullptr;
}
