// SPDX-License-Identifier: MIT
// The program model: its tables, and what adds to them.
#include "compiler/tarnwick/model.h"

#include <cstring>

#include "common/alloc.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "compiler/tarnwick/model_names.h"
#include "compiler/tarnwick/options.h"

vector_of<tarn_file *> file_list;
hash_of<const char *, tarn_file *> files_by_name;
vector_of<tarn_symbol *> symbol_list;
hash_of<const char *, tarn_symbol *> symbols_by_name;
hash_of<std::uint32_t, tarn_symbol *> symbols_by_value;
vector_of<tarn_line *> line_list;
hash_of<const char *, tarn_psect *> psect_table;
hash_of<const char *, std::uint32_t> psect_flags_table;
vector_of<tarn_segment *> seg_list;
vector_of<tarn_data *> data_list;
set *code_spaces = nullptr;
set *data_spaces = nullptr;
set *eeprom_spaces = nullptr;

bool psect_flags_given = false;
std::uint32_t fake_abs_segment = 0;
std::uint32_t start_address = 0;

namespace {

// Bucket counts show in the order of walks over the tables, and so in outputs.
constexpr std::uint32_t SYMBOL_BUCKETS = 2003;
constexpr std::uint32_t FILE_BUCKETS = 199;
constexpr std::uint32_t PSECT_FLAGS_BUCKETS = 199;
constexpr std::uint32_t PSECT_BUCKETS = 123;

constexpr std::uint32_t FILES_AT_FIRST = 25;
constexpr std::uint32_t SEGMENTS_AT_FIRST = 25;
constexpr std::uint32_t SYMBOLS_AT_FIRST = 100;
constexpr std::uint32_t DATA_AT_FIRST = 100;
constexpr std::uint32_t LINES_AT_FIRST = 100;

std::uint8_t *expected_bytes = nullptr; // what is left of the memory for the bytes of an image
std::size_t expected_size = 0;

std::uint8_t *room_for(std::uint32_t length)
{
    if (length > expected_size) {
        return static_cast<std::uint8_t *>(xarena(length, 1));
    }
    std::uint8_t *bytes = expected_bytes;
    expected_bytes += length;
    expected_size -= length;
    return bytes;
}

tarn_file *file_at(std::uint32_t number)
{
    return file_list.get(number - 1);
}

std::uint32_t default_psect_flags(std::uint32_t space)
{
    if (tarn_is_data_space(space)) {
        TRACEF(TRACE_ON, "flags => PDB_WRITE|PDB_NOSPACE");
        return PDB_WRITE | PDB_NOSPACE; // never carries a program image
    }
    TRACEF(TRACE_ON, "flags => PDB_WRITE");
    return PDB_WRITE;
}

// The tables themselves; records stay.
void free_tables()
{
    symbols_by_name.free();
    symbols_by_value.free();
    files_by_name.free();
    psect_flags_table.free();
    psect_table.free();
    file_list.free();
    symbol_list.free();
    seg_list.free();
    data_list.free();
    line_list.free();
    set_free(code_spaces);
    set_free(data_spaces);
    set_free(eeprom_spaces);
}

tarn_psect_range *first_range(tarn_psect *pp)
{
    DB_ASSERT(pp->ps_ranges.count() <= 1, "num_ranges <= 1");
    if (pp->ps_ranges.empty()) {
        return tarn_add_psect_range(pp, {});
    }
    return pp->ps_ranges.get(0);
}

} // namespace

void model_create()
{
    free_tables(); // a process has one model at a time
    symbols_by_name = hash_of<const char *, tarn_symbol *>::make_strings(SYMBOL_BUCKETS);
    symbols_by_value = hash_of<std::uint32_t, tarn_symbol *>::make(SYMBOL_BUCKETS);
    files_by_name = hash_of<const char *, tarn_file *>::make_nocase(FILE_BUCKETS);
    psect_flags_table = hash_of<const char *, std::uint32_t>::make_strings(PSECT_FLAGS_BUCKETS);
    file_list = vector_of<tarn_file *>::make(FILES_AT_FIRST);
    symbol_list = vector_of<tarn_symbol *>::make(SYMBOLS_AT_FIRST);
    psect_table = hash_of<const char *, tarn_psect *>::make_strings(PSECT_BUCKETS);
    seg_list = vector_of<tarn_segment *>::make(SEGMENTS_AT_FIRST);
    data_list = vector_of<tarn_data *>::make(DATA_AT_FIRST);
    line_list = vector_of<tarn_line *>::make(LINES_AT_FIRST);
    code_spaces = set_new();
    data_spaces = set_new();
    eeprom_spaces = set_new();
    psect_flags_given = false;
    fake_abs_segment = 0;
    start_address = 0;
    model_finders_reset();
}

const char *model_file_name(const char *name)
{
    return opt_strip_ext ? str_strip_ext(name) : str_cache(name);
}

std::uint32_t tarn_add_file(const char *name)
{
    const char *key = model_file_name(name);
    if (key == nullptr) {
        return 0;
    }
    if (const tarn_file *known = files_by_name.get(key)) {
        return known->fl_index;
    }
    auto *fp = xnew<tarn_file>();
    fp->fl_name = key;
    fp->fl_index = file_list.push(fp) + 1;
    files_by_name.insert(key, fp);
    return fp->fl_index;
}

tarn_symbol *tarn_add_symbol(const tarn_symbol &record)
{
    auto *sp = xnew<tarn_symbol>(record);
    sp->sy_name = str_cache(record.sy_name);
    DB_ASSERT(sp->sy_name != nullptr, "sp != NULL");
    if (sp->sy_name == nullptr) {
        sp->sy_name = "";
    }
    symbols_by_name.insert(sp->sy_name, sp);
    if (tarn_file *fp = file_at(sp->sy_file)) {
        ++fp->fl_nsymbols;
    }
    symbol_list.push(sp);
    if (hash_is_listed(symbols_by_value.raw())) {
        tarn_settle_symbol_values(); // the list shows the table as it fills
    }
    return sp;
}

void tarn_prefetch_symbol(const char *name)
{
    str_prefetch(name);
    symbols_by_name.prefetch(name);
}

tarn_line *tarn_add_line(const tarn_line &record)
{
    auto *lp = xnew<tarn_line>(record);
    if (tarn_file *fp = file_at(lp->ln_file)) {
        ++fp->fl_nlines;
    }
    line_list.push(lp);
    return lp;
}

void tarn_expect_data(std::size_t size)
{
    expected_size = ARENA_SHARES_BLOCKS ? size : 0;
    expected_bytes = expected_size != 0 ? static_cast<std::uint8_t *>(xarena(expected_size, 1)) : nullptr;
}

tarn_data *tarn_add_data(std::uint32_t address, std::uint32_t length, const std::uint8_t *bytes, std::uint32_t segment)
{
    auto *dp = xnew<tarn_data>({.da_addr = address, .da_len = length, .da_seg = segment});
    if (length != 0) {
        dp->da_bytes = room_for(length);
        std::memcpy(dp->da_bytes, bytes, length);
    }
    data_list.push(dp);
    return dp;
}

tarn_psect *tarn_add_psect(const char *name, std::uint32_t space, std::uint32_t delta)
{
    const trace_scope scope(TRACE_ON, "tarn_add_psect");
    if (tarn_psect *pp = psect_table.get(name)) {
        // The first values stay.
        DB_ASSERT(space == pp->ps_space, "space == pp->ps_space");
        DB_ASSERT(delta == pp->ps_delta, "delta == pp->ps_delta");
        return pp;
    }
    auto *pp = xnew<tarn_psect>();
    pp->ps_name = str_cache(name);
    pp->ps_delta = delta;
    pp->ps_space = space;
    pp->ps_ranges = vector_of<tarn_psect_range *>::make();
    pp->ps_flags = default_psect_flags(space);
    if (psect_flags_given && psect_flags_table.contains(pp->ps_name)) {
        pp->ps_flags = psect_flags_table.get(pp->ps_name);
    }
    psect_table.insert(pp->ps_name, pp);
    tarn_psects_changed();
    return pp;
}

tarn_psect_range *tarn_add_psect_range(tarn_psect *pp, const tarn_psect_range &range)
{
    DB_ASSERT(pp != nullptr, "pp != NULL");
    if (pp == nullptr) {
        return nullptr;
    }
    auto *rp = xnew<tarn_psect_range>(range);
    rp->pr_psect = pp;
    rp->pr_lo = range.pr_lo * pp->ps_delta;
    rp->pr_hi = range.pr_hi * pp->ps_delta - 1; // the last byte: an empty range ends one below its start
    rp->pr_load = range.pr_load * pp->ps_delta;
    pp->ps_ranges.push(rp);
    tarn_psects_changed();
    return rp;
}

// The legacy reader learns a psect's bounds one by one, in bytes already.
void tarn_psect_set_lo(tarn_psect *pp, std::uint32_t value)
{
    DB_ASSERT(pp != nullptr, "pp != NULL");
    if (pp != nullptr) {
        first_range(pp)->pr_lo = value;
        tarn_psects_changed();
    }
}

void tarn_psect_set_hi(tarn_psect *pp, std::uint32_t value)
{
    DB_ASSERT(pp != nullptr, "pp != NULL");
    if (pp != nullptr) {
        first_range(pp)->pr_hi = value;
        tarn_psects_changed();
    }
}

void tarn_psect_set_load(tarn_psect *pp, std::uint32_t value)
{
    DB_ASSERT(pp != nullptr, "pp != NULL");
    if (pp != nullptr) {
        first_range(pp)->pr_load = value;
        tarn_psects_changed();
    }
}
