// SPDX-License-Identifier: MIT
// The import of the linker's map file: it carries the store of the map file over into the program model, turns delta units
// into bytes, and has the symbol databases of the modules read.
#include <cstdio>
#include <cstring>
#include <unordered_map>

#include "common/fileutils.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "compiler/common/tmf.h"
#include "compiler/tarnwick/consolidate.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/machine.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/sdb.h"

namespace {

constexpr const char *NO_NAME = "-"; // what the linker writes where there is no class, psect or file
constexpr const char *ABSOLUTE_CLASS = "ABS";
constexpr std::uint32_t DABS_DELTA = 1; // dabs figures are bytes

// What a search by name has found, by cached name: neighbouring records mostly bear the same name, and of all names there
// are few.
template <typename Found, Found (*Find)(const char *)>
class found_by_name {
public:
    Found of(const char *name)
    {
        if (name_ == nullptr || !str_same(name, name_)) {
            name_ = name;
            const auto known = all_.find(name);
            found_ = known != all_.end() ? known->second : all_.emplace(name, Find(name)).first->second;
        }
        return found_;
    }

private:
    const char *name_ = nullptr;
    Found found_ = {};
    std::unordered_map<const char *, Found> all_; // looked up only: its order does not show
};

using file_numbers = found_by_name<std::uint32_t, tarn_add_file>;
using psects_by_name = found_by_name<tarn_psect *, tarn_find_psect>;

// --- psects and segments ------------------------------------------------------------------------------------------------

void import_psect(const tmf_psect *source)
{
    tarn_psect *pp = tarn_add_psect(source->tmfps_name, source->tmfps_space, source->tmfps_delta);
    pp->ps_reloc = source->tmfps_reloc;
    if (std::strcmp(source->tmfps_class, NO_NAME) == 0) {
        pp->ps_flags |= PDB_WRITE; // whatever --psect-flags gave
    }
    tarn_add_file(source->tmfps_obj);
    tarn_psect_range range;
    range.pr_lo = source->tmfps_link;
    range.pr_hi = source->tmfps_link + source->tmfps_length;
    range.pr_load = source->tmfps_load;
    range.pr_object = source->tmfps_obj;
    tarn_add_psect_range(pp, range);
}

void import_psects()
{
    vector_of<tmf_psect *> psects = tmf_psects();
    for (const tmf_psect *source : each(psects)) {
        import_psect(source);
    }
    psects.free();
}

void process_tmf_segments()
{
    const trace_scope scope(TRACE_ON, "process_tmf_segments");
    vector_of<tmf_segment *> segments = tmf_segments();
    for (const tmf_segment *source : each(segments)) {
        tarn_segment record;
        record.sg_index = seg_list.count() + 1;
        record.sg_addr = source->tmfsg_link * source->tmfsg_delta;
        record.sg_load = source->tmfsg_file; // bytes already
        record.sg_size = source->tmfsg_size * source->tmfsg_delta;
        record.sg_name = source->tmfsg_name;
        record.sg_delta = source->tmfsg_delta;
        record.sg_space = source->tmfsg_space;
        tarn_add_segment(record);
    }
    segments.free();
}

// --- symbols ------------------------------------------------------------------------------------------------------------

// What stands behind the letter of the label of a psect bound; null when the label is none.
const char *psect_of_bound(const char *label)
{
    constexpr std::size_t PREFIX = 3;
    if (std::strlen(label) <= PREFIX || !str_starts_with(label, "__") || std::strchr("BHIL", label[2]) == nullptr ||
        str_starts_with(label, "__LOG")) {
        return nullptr;
    }
    return label + PREFIX;
}

const tmf_symbol *find_bound(char letter, const char *psect)
{
    return tmf_find_symbol(str_printf("__%c%s", letter, psect));
}

// Whether a symbol is the bound of a psect that the model knows, or of an empty one.
bool is_known_bound(const char *label)
{
    const char *psect = psect_of_bound(label);
    if (psect == nullptr) {
        return false;
    }
    const tmf_symbol *low = find_bound('L', psect);
    const tmf_symbol *high = find_bound('H', psect);
    if (low == nullptr || high == nullptr) {
        return false;
    }
    return tarn_find_psect(psect) != nullptr || low->tmfsy_value + high->tmfsy_value == 0;
}

tarn_psect *place_symbol(const tmf_symbol *source, tarn_symbol *record, psects_by_name *psects)
{
    if (std::strcmp(source->tmfsy_class, NO_NAME) == 0) {
        return nullptr;
    }
    if (std::strcmp(source->tmfsy_class, ABSOLUTE_CLASS) == 0) {
        record->sy_flags |= SYM_ABS;
        return nullptr;
    }
    return psects->of(source->tmfsy_psect);
}

void import_symbol(const tmf_symbol *source, file_numbers *files, psects_by_name *psects)
{
    tarn_symbol record;
    record.sy_name = source->tmfsy_name;
    record.sy_space = source->tmfsy_space;
    record.sy_value = source->tmfsy_value;
    record.sy_load = source->tmfsy_value + static_cast<std::uint32_t>(source->tmfsy_loadadj);
    record.sy_psect = place_symbol(source, &record, psects);
    record.sy_file = files->of(source->tmfsy_file); // "-" is a file of that name
    if (record.sy_psect != nullptr && record.sy_psect->ps_delta != 0) {
        record.sy_value /= record.sy_psect->ps_delta;
    }
    // Of the symbols without psect only the labels of dabs directives are searched for. Their own segments come later, so
    // what is found is the ordinary segment around them.
    if (record.sy_psect != nullptr || tmf_find_dabs(source->tmfsy_name) != nullptr) {
        record.sy_seg = tarn_youngest_segment_at(record.sy_space, record.sy_load);
    } else {
        record.sy_seg = fake_abs_segment;
    }
    tarn_add_symbol(record);
}

// Symbols come in the order of their hashes, and so from all over the memory: what the next ones need is fetched meanwhile.
void prefetch_symbols(vector_of<tmf_symbol *> symbols, std::uint32_t index)
{
    constexpr std::uint32_t RECORD_AHEAD = 12;
    constexpr std::uint32_t NAME_AHEAD = 8;
    constexpr std::uint32_t TABLE_AHEAD = 4;
    if (index + RECORD_AHEAD < symbols.count()) {
        __builtin_prefetch(symbols.get(index + RECORD_AHEAD));
        __builtin_prefetch(symbols.get(index + NAME_AHEAD)->tmfsy_name);
        tarn_prefetch_symbol(symbols.get(index + TABLE_AHEAD)->tmfsy_name);
    }
}

void import_symbols()
{
    file_numbers files;
    psects_by_name psects;
    vector_of<tmf_symbol *> symbols = tmf_symbols();
    for (std::uint32_t i = 0; i < symbols.count(); ++i) {
        prefetch_symbols(symbols, i);
        const tmf_symbol *source = symbols.get(i);
        if (!is_known_bound(source->tmfsy_name)) {
            import_symbol(source, &files, &psects);
        }
    }
    symbols.free();
}

// --- splits and dabs records --------------------------------------------------------------------------------------------

void import_split(const tmf_split *source)
{
    tarn_psect *parent_ps = tarn_find_psect(source->tmfsp_parent);
    tarn_psect *child_ps = tarn_find_psect(source->tmfsp_child);
    DB_ASSERT(parent_ps != nullptr, "parent_ps != NULL");
    DB_ASSERT(child_ps != nullptr, "child_ps != NULL");
    if (parent_ps == nullptr || child_ps == nullptr) {
        return;
    }
    child_ps->ps_next = parent_ps->ps_next;
    parent_ps->ps_next = child_ps;
    child_ps->ps_prev = parent_ps;
    if (child_ps->ps_next != nullptr) {
        child_ps->ps_next->ps_prev = child_ps;
    }
}

void import_splits()
{
    vector_of<tmf_split *> splits = tmf_splits();
    for (const tmf_split *source : each(splits)) {
        import_split(source);
    }
    splits.free();
}

bool is_labelled(const tmf_dabs_record *source)
{
    return std::strcmp(source->tmfda_name, NO_NAME) != 0;
}

// Absolute data has a segment of its own, which holds no psect ranges.
void add_dabs_segment(const tmf_dabs_record *source, std::uint32_t *counter)
{
    tarn_segment record;
    record.sg_index = seg_list.count() + 1;
    record.sg_addr = source->tmfda_addr;
    record.sg_load = source->tmfda_addr;
    record.sg_size = source->tmfda_size;
    record.sg_flags = PDB_WRITE | PDB_NOSPACE;
    record.sg_name =
        is_labelled(source) ? str_printf("dabs$%s", source->tmfda_name) : str_printf("dabs$%u", (*counter)++);
    record.sg_delta = DABS_DELTA;
    record.sg_space = source->tmfda_space;
    record.sg_noranges = true;
    tarn_add_segment(record);
}

void mark_dabs_label(const tmf_dabs_record *source)
{
    tarn_symbol *ps = tarn_find_symbol(source->tmfda_name);
    DB_ASSERT(ps != nullptr, "ps != NULL");
    if (ps != nullptr) {
        ps->sy_flags |= SYM_DABS;
    }
}

void import_dabs()
{
    std::uint32_t counter = 0;
    vector_of<tmf_dabs_record *> records = tmf_dabs();
    for (const tmf_dabs_record *source : each(records)) {
        if (source->tmfda_size != 0 && tarn_is_data_space(source->tmfda_space)) {
            add_dabs_segment(source, &counter);
        }
        if (is_labelled(source)) {
            mark_dabs_label(source);
        }
    }
    records.free();
}

// --- lines and symbol databases -----------------------------------------------------------------------------------------

// The psect of this name; null when there is none or when it lies in no code space.
tarn_psect *code_psect(const char *name)
{
    tarn_psect *pp = tarn_find_psect(name);
    return pp != nullptr && tarn_is_code_space(pp->ps_space) ? pp : nullptr;
}

bool is_assembly(const char *name)
{
    return fileid_is_asm_fid(fileid(name));
}

class line_import {
public:
    void import_object(const char *object);

private:
    void add_line(const tmf_line *source, tarn_psect *pp);
    void note_source_file(const char *name);

    sdb_node *module_ = nullptr;
    std::uint32_t granule_ = 0;       // addresses of instructions are multiples of it; 0 while no machine was chosen
    const char *last_file_ = nullptr; // kept from object to object
    file_numbers files_;
    found_by_name<tarn_psect *, code_psect> psects_;
    found_by_name<bool, is_assembly> assembly_;
};

void line_import::add_line(const tmf_line *source, tarn_psect *pp)
{
    tarn_line record;
    record.ln_addr = source->tmfln_addr;
    record.ln_line = source->tmfln_line;
    record.ln_flags = LN_SOURCE;
    record.ln_file = files_.of(source->tmfln_file);
    record.ln_psect = pp;
    record.ln_seg = tarn_youngest_segment_at(pp->ps_space, source->tmfln_addr * pp->ps_delta);
    tarn_add_line(record);
}

// Source files of a module without database are marked in it. An assembly source behind C lines gets a module of its own.
void line_import::note_source_file(const char *name)
{
    if (last_file_ != nullptr && str_same(name, last_file_)) {
        return;
    }
    last_file_ = name;
    sdb_node *node = module_;
    if (node == nullptr || node->sdb_sclass != sc_asmodule) {
        node = assembly_.of(name) ? sdb_read(name) : nullptr;
    }
    if (node != nullptr) {
        sdb_add_filename(node, name, 0);
    }
}

void line_import::import_object(const char *object)
{
    vector_of<tmf_line *> lines = tmf_lines_of(object);
    tarn_add_file(object);
    module_ = sdb_read(object); // also when all its lines are dropped
    granule_ = machine != nullptr ? machine->mc_min_insn : 0;
    for (const tmf_line *source : each(lines)) {
        tarn_psect *pp = psects_.of(source->tmfln_psect);
        if (pp == nullptr) {
            continue;
        }
        if (granule_ == 0 || source->tmfln_addr % granule_ == 0) {
            add_line(source, pp);
        }
        note_source_file(source->tmfln_file);
    }
    lines.free();
}

void import_lines()
{
    line_import importer;
    vector_of<const char *> objects = tmf_line_objects();
    for (const char *object : each(objects)) {
        importer.import_object(object);
    }
    objects.free();
}

// Each step rests on those before: segments take their ranges from the psects, symbols are given segments, labels of dabs
// directives mark symbols, and lines need the segments as consolidation leaves them.
bool tarnmap_read(std::FILE *stream, const char *path)
{
    if (!tmf_read(stream, path)) {
        return false;
    }
    import_psects();
    process_tmf_segments();
    import_symbols();
    import_splits();
    import_dabs();
    ensure_contiguous_data();
    import_lines();
    return true;
}

} // namespace

const format_descriptor format_tarnsym = {
    .identify = tmf_isTMF,
    .read = tarnmap_read,
    .write = format_no_transfer,
    .dump = format_no_dump,
    .name = "Kelvar ZRT Tarnwick Map File",
    .key = "tarnsym",
    .ext = "tmf",
    .binary = false,
};
