// SPDX-License-Identifier: MIT
// The section table of a COFF output, and the search for the section of an address.
#include "compiler/tarnwick/coff_sections.h"

#include "compiler/tarnwick/coff_file.h"
#include "compiler/tarnwick/model.h"

namespace {

constexpr std::uint32_t NAME_BUCKETS = 101;

// Names segments and blocks, each name once.
class section_namer {
public:
    explicit section_namer(coff_tables *tables) : tables_(tables) {}
    ~section_namer() { section_names_.free(); }
    section_namer(const section_namer &) = delete;
    section_namer &operator=(const section_namer &) = delete;

    void set_name(coff_section *section, const char *name)
    {
        const char *unique = name != nullptr ? tarn_name_counter(section_names_, name) : nullptr;
        coff_put_name(tables_, section->name.data(), unique);
    }

private:
    coff_tables *tables_;
    hash_of<const char *, std::uint32_t> section_names_ =
        hash_of<const char *, std::uint32_t>::make_strings(NAME_BUCKETS);
};

const char *block_name(const tarn_data *dp)
{
    const tarn_segment *seg = seg_list.get(dp->da_seg - 1);
    return seg != nullptr ? seg->sg_name : "text";
}

coff_section absolute_section()
{
    coff_section section;
    section.name = {'A', 'B', 'S'};
    section.flags = COFF_ABSOLUTE;
    return section;
}

coff_section segment_section(const tarn_segment *seg)
{
    coff_section section;
    section.size = seg->sg_size;
    section.paddr = seg->sg_addr / coff.ram_unit;
    section.flags = COFF_BSS;
    return section;
}

coff_section block_section(const tarn_data *dp)
{
    coff_section section;
    section.size = dp->da_len;
    section.paddr = dp->da_addr / coff.rom_unit;
    section.flags = COFF_TEXT;
    section.block = dp;
    return section;
}

// What a search for an address needs.
void index_addresses(coff_sections *sections)
{
    std::uint32_t count = 0;
    sections->code_segments.push_back(count);
    for (const tarn_segment *seg : each(seg_list)) {
        count += tarn_seg_is_code(seg) ? 1 : 0;
        sections->code_segments.push_back(count);
    }
    std::uint32_t position = 0;
    for (const tarn_data *dp : each(data_list)) {
        const std::uint32_t end = dp->da_addr + dp->da_len;
        if (dp->da_addr < end) { // a block whose end wraps has no byte, as in consolidation
            sections->blocks.add({dp->da_addr, end, position});
        }
        ++position;
    }
}

} // namespace

void coff_make_sections(coff_sections *sections, coff_tables *tables)
{
    section_namer namer(tables);
    sections->list.push_back(absolute_section());
    for (const tarn_segment *seg : each(seg_list)) {
        if (!tarn_seg_is_code(seg)) {
            sections->list.push_back(segment_section(seg));
            namer.set_name(&sections->list.back(), seg->sg_name);
        }
    }
    sections->first_block = static_cast<std::uint32_t>(sections->list.size());
    for (const tarn_data *dp : each(data_list)) {
        sections->list.push_back(block_section(dp));
        namer.set_name(&sections->list.back(), block_name(dp));
    }
    index_addresses(sections);
}

std::uint32_t vcoff_section_of(const coff_sections &sections, coff_location location)
{
    if (tarn_segno_is_data(location.segment)) {
        const std::uint32_t n = tarn_segment_of(location.address, location.segment, coff.ram_unit);
        return n - sections.code_segments[n] + 1; // of no segment: "ABS"
    }
    const std::uint32_t byte = location.address * coff.rom_unit;
    const std::uint32_t position = sections.blocks.lowest(byte, byte + 1);
    return position != NO_INDEX ? sections.first_block + position + 1 : location.segment + 1;
}
