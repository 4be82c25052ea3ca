// SPDX-License-Identifier: MIT
// What the tests of the ELF writer share: models made by hand, and a look into the file that was written.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/stringcache.h"
#include "compiler/common/tmf.h"
#include "compiler/tarnwick/complete.h"
#include "compiler/tarnwick/dwarf_options.h"
#include "compiler/tarnwick/elf.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/options.h"
#include "compiler/tarnwick/sdb.h"
#include "tests/unit/tarnwick/fresh_model.h"

namespace elf_testing {

using bytes = std::vector<std::uint8_t>;

inline constexpr std::uint32_t CODE_SPACE = 1;
inline constexpr std::uint32_t EEPROM_SPACE = 3;

// --- making a model -----------------------------------------------------------------------------------------------------

inline void start_model(const char *processor)
{
    fresh_model();
    tmf_store_create();
    sdb_global = nullptr;
    opt_big_endian = false;
    opt_verbose = 0;
    enable_dwarf = false;
    processor_args.fill(nullptr);
    processor_args[0] = processor;
    set_add(code_spaces, CODE_SPACE);
    set_add(data_spaces, 2);
    set_add(eeprom_spaces, EEPROM_SPACE);
}

inline tarn_segment code_segment(const char *name, std::uint32_t load, std::uint32_t size)
{
    tarn_segment record;
    record.sg_addr = load;
    record.sg_load = load;
    record.sg_size = size;
    record.sg_flags = PDB_WRITE;
    record.sg_name = name;
    record.sg_delta = 1;
    record.sg_space = CODE_SPACE;
    return record;
}

inline tarn_segment *add_segment(const tarn_segment &record)
{
    tarn_segment copy = record;
    copy.sg_index = seg_list.count() + 1;
    copy.sg_noranges = true;
    add_seg_internal(copy, false);
    return seg_list.last();
}

inline void add_block(std::uint32_t segment, std::uint32_t address, const bytes &data)
{
    tarn_add_data(address, static_cast<std::uint32_t>(data.size()), data.data(), segment);
}

inline void add_symbol(const char *file, const char *name, std::uint32_t segment, std::uint32_t value,
                       std::uint32_t flags = 0)
{
    tarn_symbol record;
    record.sy_file = tarn_add_file(file);
    record.sy_name = name;
    record.sy_seg = segment;
    record.sy_value = value;
    record.sy_flags = flags;
    tarn_add_symbol(record);
}

inline void add_note(const char *name, const bytes &data)
{
    tmf_append_note(str_cache(name), static_cast<std::uint32_t>(data.size()), data.data());
}

inline std::FILE *write_elf()
{
    distribute_by_file(0);
    std::FILE *stream = std::tmpfile();
    EXPECT_TRUE(format_elf.write(stream, "x.elf"));
    EXPECT_EQ(std::ftell(stream), 52) << "the header is written last, at the start of the file";
    std::rewind(stream);
    return stream;
}

inline bytes written()
{
    std::FILE *stream = write_elf();
    bytes result;
    for (int c = std::fgetc(stream); c != EOF; c = std::fgetc(stream)) {
        result.push_back(static_cast<std::uint8_t>(c));
    }
    std::fclose(stream);
    return result;
}

// --- looking into a written file ----------------------------------------------------------------------------------------

// Fields of a little-endian file.
class elf_view {
public:
    elf_view() : stream_(write_elf()) {}
    ~elf_view() { std::fclose(stream_); }
    elf_view(const elf_view &) = delete;
    elf_view &operator=(const elf_view &) = delete;

    bytes at(std::uint64_t offset, std::size_t size) const
    {
        bytes result(size);
        fseeko(stream_, static_cast<off_t>(offset), SEEK_SET);
        result.resize(std::fread(result.data(), 1, size, stream_));
        return result;
    }
    std::uint32_t u16(std::uint64_t offset) const
    {
        const bytes b = at(offset, 2);
        return b[0] | std::uint32_t{b[1]} << 8;
    }
    std::uint32_t u32(std::uint64_t offset) const { return u16(offset) | u16(offset + 2) << 16; }

    std::uint32_t section(std::uint32_t index, std::uint32_t field) const { return u32(u32(32) + index * 40 + field); }
    std::uint32_t segment(std::uint32_t index, std::uint32_t field) const { return u32(u32(28) + index * 32 + field); }
    std::string section_name(std::uint32_t index) const
    {
        const bytes names = at(section(u16(50), 16), section(u16(50), 20));
        return reinterpret_cast<const char *>(names.data()) + section(index, 0);
    }
    // The section of this name, 0 when there is none.
    std::uint32_t find(const std::string &name) const
    {
        for (std::uint32_t i = 0; i < u16(48); ++i) {
            if (section_name(i) == name) {
                return i;
            }
        }
        return 0;
    }
    std::uint64_t size() const
    {
        fseeko(stream_, 0, SEEK_END);
        return static_cast<std::uint64_t>(ftello(stream_));
    }

    struct symbol {
        std::string name;
        std::uint32_t value;
        std::uint32_t info;
        std::uint32_t section;
        bool operator==(const symbol &) const = default;
    };
    std::vector<symbol> symbols() const
    {
        const std::uint32_t strings = section(find(".strtab"), 16);
        const std::uint32_t table = find(".symtab");
        std::vector<symbol> result;
        for (std::uint32_t i = 1; i < section(table, 20) / 16; ++i) {
            const std::uint64_t entry = section(table, 16) + i * 16;
            const bytes name = at(strings + u32(entry), 100);
            result.push_back(
                {reinterpret_cast<const char *>(name.data()), u32(entry + 4), at(entry + 12, 1)[0], u16(entry + 14)});
        }
        return result;
    }

private:
    std::FILE *stream_;
};

inline void PrintTo(const elf_view::symbol &s, std::ostream *out)
{
    *out << s.name << '=' << s.value << " info " << s.info << " section " << s.section;
}

using symbol_list_of = std::vector<elf_view::symbol>;

inline constexpr std::uint32_t SH_TYPE = 4, SH_FLAGS = 8, SH_ADDR = 12, SH_OFFSET = 16, SH_SIZE = 20;
inline constexpr std::uint32_t P_TYPE = 0, P_OFFSET = 4, P_VADDR = 8, P_PADDR = 12, P_FILESZ = 16, P_MEMSZ = 20,
                               P_FLAGS = 24;

} // namespace elf_testing
