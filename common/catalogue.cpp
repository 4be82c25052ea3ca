// SPDX-License-Identifier: MIT
// The message table: reading of catalogue files, the search for them, and their merging with the built-in catalogue.
#include "common/catalogue.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <string_view>

#include "common/alloc.h"
#include "common/catalogue_rows.h"
#include "common/linereader.h"
#include "common/osdep.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "common/zrinstdir.h"

vector_of<message_entry *> message_table;
vector_of<message_entry *> message_texts;
const char *message_file = nullptr;

namespace {

constexpr std::string_view FIELD_SEPARATORS = " \t";
constexpr std::size_t CATALOGUE_LINE_MAX = 255; // characters in front of the newline
constexpr std::int32_t WARNING_LEVEL_MIN = -9;
constexpr std::int32_t WARNING_LEVEL_MAX = 8;

const char *built_in_name()
{
    static const char *name = str_printf("%lld_en.msgs", CATALOGUE_VERSION);
    return name;
}

std::uint32_t highest_built_in_number()
{
    return catalogue_rows().back().number;
}

const char *name_in_force()
{
    return message_file != nullptr ? message_file : built_in_name();
}

const char *language_code(std::uint32_t language)
{
    switch (language) {
    case 7:
        return "de";
    case 12:
        return "fr";
    default:
        return "en"; // 9, and every number without a language of its own
    }
}

// The three fields of a catalogue line. A field that is missing is empty.
struct catalogue_line {
    std::string_view number;
    std::string_view type;
    std::string_view text;
};

std::string_view take_field(std::string_view *rest)
{
    rest->remove_prefix(std::min(rest->find_first_not_of(FIELD_SEPARATORS), rest->size()));
    const std::string_view field = rest->substr(0, rest->find_first_of(FIELD_SEPARATORS));
    rest->remove_prefix(field.size());
    return field;
}

catalogue_line split_line(std::string_view line)
{
    catalogue_line fields;
    fields.number = take_field(&line);
    fields.type = take_field(&line);
    line.remove_prefix(std::min(line.find_first_not_of(FIELD_SEPARATORS), line.size()));
    fields.text = line;
    return fields;
}

// The whole text as a decimal number; false when it is none or does not fit.
template <typename T>
bool parse_decimal(std::string_view text, T *number)
{
    const char *end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, *number);
    return result.ec == std::errc() && result.ptr == end;
}

// False when the type fits no rule.
bool parse_type(std::string_view type, message_entry *entry)
{
    if (type == "F" || type == "f") {
        entry->type = MESSAGE_FATAL;
    } else if (type == "E" || type == "e") {
        entry->type = MESSAGE_ERROR;
    } else if (type == "M" || type == "m") {
        entry->type = MESSAGE_PLAIN;
    } else if (parse_decimal(type, &entry->level) && entry->level >= WARNING_LEVEL_MIN &&
               entry->level <= WARNING_LEVEL_MAX) {
        entry->type = MESSAGE_WARNING;
    } else {
        entry->type = MESSAGE_UNTYPED;
        return false;
    }
    return true;
}

// Makes an entry of a line; false for a bad line. A bad type makes a bad line, and the entry is made all the same.
bool add_line(std::string_view line, vector_of<message_entry *> table)
{
    const catalogue_line fields = split_line(line);
    message_entry entry;
    if (!parse_decimal(fields.number, &entry.number) || entry.number > MESSAGE_NUMBER_MAX || fields.type.empty() ||
        fields.text.empty()) {
        return false;
    }
    const bool is_good = parse_type(fields.type, &entry);
    entry.text = str_cache(fields.text);
    table.set(xnew(entry), entry.number);
    return is_good;
}

// The text of a line: without its end, and up to its first NUL.
std::string_view line_text(std::string_view line)
{
    if (line.ends_with('\n')) {
        line.remove_suffix(1);
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
    }
    return line.substr(0, line.find('\0'));
}

// Reads a catalogue file. A line that is too long counts as several lines of the same number, of 255 characters each.
void read_catalogue(std::FILE *stream, vector_of<message_entry *> table)
{
    line_reader reader(stream);
    std::string_view line;
    for (std::uint32_t number = 1; reader.next(&line); number++) {
        std::string_view rest = line_text(line);
        do {
            const std::string_view piece = rest.substr(0, CATALOGUE_LINE_MAX);
            rest.remove_prefix(piece.size());
            if (!piece.starts_with('#') && !add_line(piece, table)) {
                // The name is that of the catalogue in force, not that of the file being read.
                alert_text("M", "Malformed error information on line %u, in file %s\n", number, name_in_force());
            }
        } while (!rest.empty());
    }
}

// The built-in rows, each replaced by the file's entry of the same number: a file cannot add messages.
vector_of<message_entry *> merge_with_built_in(vector_of<message_entry *> from_file)
{
    const auto merged = vector_of<message_entry *>::make(highest_built_in_number() + 1);
    for (const message_entry &row : catalogue_rows()) {
        message_entry *entry = from_file ? from_file.get(row.number) : nullptr;
        merged.set(entry != nullptr ? entry : xnew(row), row.number);
    }
    return merged;
}

bool is_catalogue_name(const char *name, const char *modern_suffix, const char *legacy_name)
{
    return std::strcmp(name, legacy_name) == 0 || std::string_view(name).ends_with(modern_suffix);
}

bool is_in_version_directory(const char *path)
{
    return str_starts_with(path, zrinstdir(ZRINSTDIR_VERSION));
}

// The newest first; of one version those of the installed toolchain, and then in reverse alphabetic order.
int compare_catalogues(const char *left, const char *right)
{
    const std::uint64_t left_version = getMsgFileVersion(left);
    const std::uint64_t right_version = getMsgFileVersion(right);
    if (left_version != right_version) {
        return left_version > right_version ? -1 : 1;
    }
    const bool left_is_installed = is_in_version_directory(left);
    const bool right_is_installed = is_in_version_directory(right);
    if (left_is_installed != right_is_installed) {
        return left_is_installed ? -1 : 1;
    }
    return std::strcmp(right, left);
}

// "dat" beside the program's own directory, or null.
const char *data_directory_of_program()
{
    char *program = program_path();
    const char *directory = str_dirname(program);
    std::free(program);
    if (directory == nullptr) {
        return nullptr;
    }
    const std::string_view whole = directory;
    const char *parent = str_dirname(str_cache(whole.substr(0, whole.find_last_not_of(".\\/") + 1)));
    return parent != nullptr && parent[0] != '\0' ? str_path_join(parent, "dat") : nullptr;
}

// Between equal versions a file of the installed toolchain wins, and then the name that is higher.
bool replaces_catalogue_in_force(const char *path)
{
    const std::uint64_t new_version = getMsgFileVersion(path);
    const std::uint64_t old_version = getMsgFileVersion(message_file);
    if (new_version != old_version) {
        return new_version > old_version;
    }
    if (is_in_version_directory(message_file)) {
        return false;
    }
    return is_in_version_directory(path) || std::strcmp(message_file, path) < 0;
}

} // namespace

std::uint32_t findMsgFiles(const char *directory, std::uint32_t language, vector_of<const char *> *files)
{
    if (files == nullptr || !*files || directory == nullptr || !is_directory(directory)) {
        return 0;
    }
    DIR *listing = opendir(directory);
    if (listing == nullptr) {
        return 0;
    }
    const char *modern_suffix = str_printf("_%s.msgs", language_code(language));
    const char *legacy_name = str_printf("%s_msgs.txt", language_code(language));
    std::uint32_t count = 0;
    while (const dirent *entry = readdir(listing)) {
        if (is_catalogue_name(entry->d_name, modern_suffix, legacy_name)) {
            files->push(str_path_join(directory, entry->d_name));
            count++;
        }
    }
    closedir(listing);
    return count;
}

const char *msg_filename(std::uint32_t language)
{
    auto files = vector_of<const char *>::make();
    std::uint32_t found = findMsgFiles(reg_instdir(REG_INSTDIR_DAT), language, &files);
    if (found == 0) {
        found = findMsgFiles(data_directory_of_program(), language, &files);
    }
    if (found == 0) {
        char *here = working_directory();
        found = findMsgFiles(here, language, &files);
        std::free(here);
    }
    files.push(built_in_name());
    if (found != 0) {
        files.sort<compare_catalogues>();
    }
    const char *first = files.get(0);
    files.free();
    return first;
}

std::uint64_t getMsgFileVersion(const char *path)
{
    const std::string_view name = path_tail(path);
    std::uint64_t version = 0;
    const std::from_chars_result result = std::from_chars(name.data(), name.data() + name.size(), version);
    return result.ec == std::errc::result_out_of_range ? UINT64_MAX : version;
}

bool open_edf(const char *path)
{
    if (std::strcmp(path, built_in_name()) != 0 && !file_exists(path)) {
        return false;
    }
    alert_initialise();
    if (std::strcmp(path, message_file) == 0) {
        return true;
    }
    if (!replaces_catalogue_in_force(path)) {
        TRACEF(TRACE_ON, "\"%s\" is not newer than \"%s\"", path, message_file);
        return true;
    }
    return static_cast<bool>(message_load(path));
}

vector_of<message_entry *> message_load(const char *path)
{
    vector_of<message_entry *> from_file;
    if (std::strcmp(path, built_in_name()) != 0) {
        std::FILE *stream = file_open(path, "r");
        if (stream == nullptr) {
            return {};
        }
        from_file = vector_of<message_entry *>::make();
        read_catalogue(stream, from_file);
        std::fclose(stream);
    }
    if (message_texts.raw() != message_table.raw()) {
        message_texts.free();
    }
    message_texts = merge_with_built_in(from_file);
    from_file.free();
    if (!message_table) {
        message_table = message_texts;
    }
    message_file = str_cache(path);
    return message_texts;
}

void catalogue_initialise()
{
    // A file that was found and cannot be opened must not leave the program without its messages.
    if (!message_load(msg_filename(LANGUAGE_DEFAULT))) {
        message_load(built_in_name());
    }
}
