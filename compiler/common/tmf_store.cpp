// SPDX-License-Identifier: MIT
// The store of the linker's map file: adding records, and handing them out.
#include "compiler/common/tmf_store.h"

#include <bit>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/distinct_sort.h"
#include "common/stringcache.h"
#include "common/trace.h"

bool tmf_initialised = false;
std::FILE *tmf_fp = nullptr;
tmf_tables tmf_store;

namespace {

constexpr std::uint32_t TMF_ERROR = 1437;

// No report is longer than this, so neither is the text that goes into one.
constexpr std::size_t ERROR_TEXT_SIZE = 512;

// Stands in the file where a symbol or a psect has no class, no psect or no file, and a `dabs` no label.
constexpr const char *NO_NAME = "-";

bool is_blank(const char *text)
{
    return text == nullptr || text[0] == '\0';
}

// A null text is none, an empty one a mistake in the file.
bool is_empty_text(const char *text)
{
    return text != nullptr && text[0] == '\0';
}

const char *text_or(const char *text, const char *substitute)
{
    return text != nullptr ? text : str_cache(substitute);
}

// The record under `name`, made by `make` when there is none.
template <typename Record, typename Make>
Record *find_or_add(skiplist_of<Record *> list, const char *name, Make make)
{
    Record *record = list.get(name);
    if (record == nullptr) {
        record = make();
        list.insert(name, record);
    }
    return record;
}

template <typename Record>
vector_of<Record *> values_of(skiplist_of<Record *> list)
{
    return tmf_initialised ? list.values() : vector_of<Record *>::make();
}

template <typename Record>
Record *find_by_name(skiplist_of<Record *> list, const char *name)
{
    return tmf_initialised && name != nullptr ? list.get(name) : nullptr;
}

} // namespace

void tmf_error(const char *format, ...)
{
    char text[ERROR_TEXT_SIZE];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (tmf_fp == nullptr) {
        alert_noline(TMF_ERROR, text);
    } else {
        alert(TMF_ERROR, text);
    }
}

namespace {

// Releases a list and, through `release`, what its records hold. The records live on.
template <typename Record, typename Release>
void free_list(skiplist_of<Record *> *list, Release release)
{
    if (*list) {
        vector_of<Record *> records = list->values();
        for (Record *record : each(records)) {
            release(record);
        }
        records.free();
        list->free();
    }
}

void discard_store()
{
    free_list(&tmf_store.objects, [](tmf_object *object) { object->tmfob_psects.free(); });
    free_list(&tmf_store.unused, [](tmf_unused *unused) { unused->tmfun_ranges.free(); });
    free_list(&tmf_store.line_groups, [](tmf_line_group *group) { group->tmflg_lines.free(); });
    free_list(&tmf_store.notes, [](tmf_note *note) { std::free(note->tmfnp_data); });
    tmf_store.symbols.free();
    tmf_store.dabs.free();
    tmf_store.segments.free();
    tmf_store.splits.free();
    tmf_store.plain_dabs.free();
    tmf_drop_psect_index();
}

} // namespace

void tmf_store_create()
{
    discard_store();
    tmf_store = tmf_tables{};
    tmf_store.objects = skiplist_of<tmf_object *>::make_strings();
    tmf_store.unused = skiplist_of<tmf_unused *>::make_strings();
    tmf_store.line_groups = skiplist_of<tmf_line_group *>::make_strings();
    tmf_store.symbols = skiplist_of<tmf_symbol *>::make_strings();
    tmf_store.dabs = skiplist_of<tmf_dabs_record *>::make_strings();
    tmf_store.segments = skiplist_of<tmf_segment *>::make_strings();
    tmf_store.notes = skiplist_of<tmf_note *>::make_strings();
    tmf_store.splits = vector_of<tmf_split *>::make();
    tmf_store.plain_dabs = vector_of<tmf_dabs_record *>::make();
    tmf_initialised = true;
}

namespace {

tmf_object *object_of(const char *name)
{
    if (tmf_store.last_object == nullptr || !str_same(tmf_store.last_object->tmfob_name, name)) {
        tmf_store.last_object = find_or_add(tmf_store.objects, name, [name] {
            return xnew(tmf_object{name, skiplist_of<tmf_psect *>::make_strings()});
        });
    }
    return tmf_store.last_object;
}

tmf_line_group *line_group_of(const char *object)
{
    if (tmf_store.last_group == nullptr || !str_same(tmf_store.last_group->tmflg_obj, object)) {
        tmf_store.last_group = find_or_add(tmf_store.line_groups, object, [object] {
            return xnew(tmf_line_group{object, vector_of<tmf_line *>::make(), false});
        });
    }
    return tmf_store.last_group;
}

} // namespace

tmf_psect *tmf_add_psect(const tmf_psect &record)
{
    if (is_blank(record.tmfps_name)) {
        tmf_error("psect name is NULL or an empty string");
    }
    if (is_blank(record.tmfps_obj)) {
        tmf_error("psect object file name is NULL or an empty string");
    }
    tmf_psect *psect = xnew(record);
    psect->tmfps_name = text_or(record.tmfps_name, "");
    psect->tmfps_obj = text_or(record.tmfps_obj, "");
    psect->tmfps_class = text_or(record.tmfps_class, NO_NAME);
    psect->tmfps_split = {};
    if (!object_of(psect->tmfps_obj)->tmfob_psects.insert(psect->tmfps_name, psect)) {
        tmf_error("psect (%s) from object file \"%s\" already defined", psect->tmfps_name, psect->tmfps_obj);
        return nullptr;
    }
    tmf_store.psect_count++;
    tmf_drop_psect_index();
    if (is_empty_text(record.tmfps_class)) {
        tmf_error("psect's class name is an empty string");
    }
    if (record.tmfps_length == 0) {
        tmf_error("psect with a zero length");
    }
    if (record.tmfps_delta == 0) {
        tmf_error("psect with a zero delta");
    }
    if (!std::has_single_bit(record.tmfps_reloc)) {
        tmf_error("psect reloc is not a power of 2");
    }
    return psect;
}

tmf_unused *tmf_add_unused(const char *name, std::uint32_t delta, std::uint32_t low, std::uint32_t high)
{
    if (is_blank(name)) {
        tmf_error("unused memory in a class with a NULL name or empty string");
        return nullptr;
    }
    if (low > high) {
        tmf_error("unused memory low address (0x%X) is > high address (0x%X)", low, high);
    }
    if (delta == 0) {
        tmf_error("unused memory range with a delta of 0");
    }
    // A class takes its delta from its first line.
    tmf_unused *unused = find_or_add(tmf_store.unused, name, [name, delta] {
        return xnew(tmf_unused{name, delta, vector_of<tmf_range *>::make()});
    });
    unused->tmfun_ranges.push(xnew(tmf_range{low, high}));
    return unused;
}

tmf_line *tmf_add_line(const tmf_line &record)
{
    if (is_blank(record.tmfln_obj)) {
        TRACEF(TRACE_ON, "no object file defined for the line");
        return nullptr;
    }
    if (is_blank(record.tmfln_file)) {
        TRACEF(TRACE_ON, "no source file defined for the line");
        return nullptr;
    }
    if (is_blank(record.tmfln_psect)) {
        TRACEF(TRACE_ON, "no psect defined for the line");
        return nullptr;
    }
    if (is_blank(record.tmfln_class)) {
        TRACEF(TRACE_ON, "no class defined for the line");
        return nullptr;
    }
    if (record.tmfln_line == 0) {
        TRACEF(TRACE_ON, "zero line number");
        return nullptr;
    }
    tmf_line_group *group = line_group_of(record.tmfln_obj);
    tmf_line *line = xnew(record);
    group->tmflg_lines.push(line);
    group->tmflg_sorted = false;
    return line;
}

tmf_symbol *tmf_add_symbol(const tmf_symbol &record)
{
    if (is_blank(record.tmfsy_name)) {
        tmf_error("symbol name is NULL or an empty string");
        return nullptr;
    }
    tmf_symbol *symbol = xnew(record);
    symbol->tmfsy_class = text_or(record.tmfsy_class, NO_NAME);
    symbol->tmfsy_psect = text_or(record.tmfsy_psect, NO_NAME);
    symbol->tmfsy_file = text_or(record.tmfsy_file, NO_NAME);
    const char *name = symbol->tmfsy_name;
    if (!tmf_store.symbols.insert(name, symbol)) {
        tmf_error("symbol with the same name (%s) already in the table", name);
        return nullptr;
    }
    if (is_empty_text(record.tmfsy_class)) {
        tmf_error("symbol's (%s) linker class is an empty string", name);
    }
    if (is_empty_text(record.tmfsy_psect)) {
        tmf_error("symbol's (%s) psect is an empty string", name);
    }
    if (is_empty_text(record.tmfsy_file)) {
        tmf_error("symbol's (%s) object file name is an empty string", name);
    }
    return symbol;
}

void tmf_prefetch_symbol(const char *name)
{
    tmf_store.symbols.prefetch(name);
}

void tmf_add_split(const char *parent, const char *child)
{
    if (is_blank(parent)) {
        tmf_error("parent of a psect split is NULL or an empty string");
        return;
    }
    if (is_blank(child)) {
        tmf_error("child of a psect split is NULL or an empty string");
        return;
    }
    tmf_store.splits.push(xnew(tmf_split{parent, child, false}));
    tmf_store.splits_dirty = true;
}

void tmf_add_dabs(const tmf_dabs_record &record)
{
    if (is_empty_text(record.tmfda_name)) {
        tmf_error("dabs label is an empty string");
    }
    tmf_dabs_record *dabs = xnew(record);
    if (record.tmfda_name == nullptr || std::strcmp(record.tmfda_name, NO_NAME) == 0) {
        dabs->tmfda_name = str_cache(NO_NAME);
        tmf_store.plain_dabs.push(dabs);
    } else {
        tmf_store.dabs.insert(dabs->tmfda_name, dabs); // of several with one label the first stays, without a word
    }
}

tmf_segment *tmf_add_segment(const tmf_segment &record)
{
    if (is_blank(record.tmfsg_name)) {
        tmf_error("segment name is NULL or an empty string");
        return nullptr;
    }
    tmf_segment *segment = xnew(record);
    if (!tmf_store.segments.insert(segment->tmfsg_name, segment)) {
        tmf_error("segment (%s) already defined", record.tmfsg_name);
        return nullptr;
    }
    if (record.tmfsg_delta == 0) {
        tmf_error("segment (%s) has a zero delta", record.tmfsg_name);
    }
    return segment;
}

namespace {

// The bytes allocated for a note-psect of this length: doubling keeps appending linear.
std::size_t note_capacity(std::uint32_t length)
{
    constexpr std::size_t smallest = 16;
    return length <= smallest ? smallest : std::bit_ceil(std::size_t{length});
}

} // namespace

void tmf_append_note(const char *name, std::uint32_t length, const std::uint8_t *bytes)
{
    DB_ASSERT(name != nullptr && name[0] != '\0', "name != NULL && name[0] != '\\0'");
    DB_ASSERT(length != 0, "length != 0");
    if (is_blank(name) || length == 0) {
        return;
    }
    tmf_note *np = tmf_store.notes.get(name);
    if (np == nullptr) {
        np = xnew(tmf_note{name, 0, nullptr});
        tmf_store.notes.insert(name, np);
    } else {
        DB_ASSERT(np->tmfnp_data != nullptr, "np->tmfnp_data != NULL");
        DB_ASSERT(np->tmfnp_length != 0, "np->tmfnp_length != 0");
    }
    if (length > std::numeric_limits<std::uint32_t>::max() - np->tmfnp_length) {
        return; // no section can hold more
    }
    const std::uint32_t new_length = np->tmfnp_length + length;
    if (np->tmfnp_data == nullptr || new_length > note_capacity(np->tmfnp_length)) {
        np->tmfnp_data = static_cast<std::uint8_t *>(xrealloc(np->tmfnp_data, note_capacity(new_length)));
    }
    std::memcpy(np->tmfnp_data + np->tmfnp_length, bytes, length);
    np->tmfnp_length = new_length;
}

vector_of<tmf_psect *> tmf_psects()
{
    vector_of<tmf_psect *> psects = vector_of<tmf_psect *>::make();
    vector_of<tmf_object *> objects = values_of(tmf_store.objects);
    for (const tmf_object *object : each(objects)) {
        vector_of<tmf_psect *> own = object->tmfob_psects.values();
        psects.append(own);
        own.free();
    }
    objects.free();
    return psects;
}

vector_of<tmf_segment *> tmf_segments()
{
    return values_of(tmf_store.segments);
}

vector_of<tmf_symbol *> tmf_symbols()
{
    return values_of(tmf_store.symbols);
}

vector_of<tmf_note *> tmf_notes()
{
    return values_of(tmf_store.notes);
}

vector_of<const char *> tmf_line_objects()
{
    return tmf_initialised ? tmf_store.line_groups.keys() : vector_of<const char *>::make();
}

namespace {

int compare_unsigned(std::uint32_t left, std::uint32_t rght)
{
    return left < rght ? -1 : static_cast<int>(left > rght);
}

int compare_texts(const char *left, const char *rght)
{
    return str_same(left, rght) ? 0 : std::strcmp(left, rght);
}

int compare_lines(const tmf_line *left, const tmf_line *rght)
{
    DB_ASSERT(str_same(left->tmfln_obj, rght->tmfln_obj), "left->tmfln_obj == rght->tmfln_obj");
    if (const int order = compare_unsigned(left->tmfln_addr, rght->tmfln_addr); order != 0) {
        return order;
    }
    if (const int order = compare_texts(left->tmfln_file, rght->tmfln_file); order != 0) {
        return order;
    }
    if (const int order = compare_unsigned(left->tmfln_line, rght->tmfln_line); order != 0) {
        return order;
    }
    return compare_texts(left->tmfln_psect, rght->tmfln_psect);
}

} // namespace

vector_of<tmf_line *> tmf_lines_of(const char *object)
{
    tmf_line_group *group = find_by_name(tmf_store.line_groups, object);
    if (group == nullptr) {
        return vector_of<tmf_line *>::make();
    }
    if (!group->tmflg_sorted) {
        sort_records<compare_lines>(group->tmflg_lines);
        group->tmflg_sorted = true;
    }
    return group->tmflg_lines.copy();
}

vector_of<tmf_split *> tmf_splits()
{
    return tmf_initialised ? tmf_store.splits.copy() : vector_of<tmf_split *>::make();
}

vector_of<tmf_dabs_record *> tmf_dabs()
{
    if (!tmf_initialised) {
        return vector_of<tmf_dabs_record *>::make();
    }
    vector_of<tmf_dabs_record *> records = tmf_store.plain_dabs.copy();
    vector_of<tmf_dabs_record *> labelled = tmf_store.dabs.values();
    records.append(labelled);
    labelled.free();
    return records;
}

tmf_symbol *tmf_find_symbol(const char *label)
{
    return find_by_name(tmf_store.symbols, label);
}

tmf_dabs_record *tmf_find_dabs(const char *label)
{
    return find_by_name(tmf_store.dabs, label);
}
