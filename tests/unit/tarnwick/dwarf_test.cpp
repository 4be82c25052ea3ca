// SPDX-License-Identifier: MIT
// The debugging sections of an output as a whole, and their place in the ELF file.
#include "compiler/tarnwick/dwarf.h"

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include "common/alloc.h"
#include "common/catalogue.h"
#include "compiler/common/tmf.h"
#include "compiler/tarnwick/complete.h"
#include "compiler/tarnwick/format.h"
#include "tests/unit/tarnwick/dwarf_tree.h"

namespace {

constexpr std::uint32_t BAD_ADDRESS_SIZE = 632;

// A database of one module with one external variable, a static one, and an enumeration.
constexpr const char *DATABASE = "[p KORM ]\n"
                                 "\"1 /p/a.c\n"
                                 "[v _x x `i 1 e 2 @16 ]\n"
                                 "[v _y y `i 1 s 2 @18 ]\n";
constexpr const char *PRIVATE_DATABASE = "[p KORM ]\n\"1 /p/a.c\n[v _y y `i 1 s 2 @18 ]\n";

// What every scenario begins with. Tests of this file run in processes of their own, since a run has one set of sections.
void start_run(const char *database = DATABASE)
{
    dwarf_access = &dwarf_byte_accessors;
    model_create();
    tmf_store_create();
    if (database != nullptr) {
        enter_scratch_folder();
        write_file("a.sdb", database);
        sdb_read("a.obj");
    }
    dwarf_addr_size = 4;
}

// The machine and the predefined types, without a database.
void choose_machine()
{
    processor_name = "KOR18";
    auto none = vector_of<const char *>::make();
    machine_init(none);
    none.free();
}

std::vector<const dwarf_output_section *> write_sections()
{
    auto sections = vector_of<dwarf_output_section *>::make();
    note("result %d", dwarf_write(sections));
    std::vector<const dwarf_output_section *> list;
    for (const dwarf_output_section *section : each(sections)) {
        list.push_back(section);
    }
    sections.free();
    return list;
}

const dwarf_output_section *find_section(const std::vector<const dwarf_output_section *> &sections, const char *name)
{
    for (const dwarf_output_section *section : sections) {
        if (std::strcmp(section->name, name) == 0) {
            return section;
        }
    }
    return nullptr;
}

// Names, and whether there is anything in them.
void note_sections(const std::vector<const dwarf_output_section *> &sections)
{
    std::string names;
    for (const dwarf_output_section *section : sections) {
        names += std::string(" ") + section->name + (section->size == 0 ? "(empty)" : "");
    }
    note("sections%s", names.c_str());
}

// --- which sections there are -------------------------------------------------------------------------------------------

TEST(dwarf_write, gives_nothing_without_a_database)
{
    expect_run(
        [] {
            start_run(nullptr);
            dwarf_addr_size = 0; // which nobody asks for
            note_sections(write_sections());
        },
        "result 0\nsections\n");
}

TEST(dwarf_write, hands_the_sections_over_in_the_order_of_the_file)
{
    expect_run(
        [] {
            start_run();
            note_sections(write_sections());
        },
        "result 0\nsections .debug_abbrev .debug_info .debug_line .debug_pubnames .debug_aranges\n");
}

TEST(dwarf_write, leaves_out_a_table_of_no_names)
{
    expect_run(
        [] {
            start_run(PRIVATE_DATABASE);
            note_sections(write_sections());
        },
        "result 0\nsections .debug_abbrev .debug_info .debug_line .debug_aranges\n");
}

TEST(dwarf_write, hands_over_range_lists_even_when_there_are_none)
{
    expect_run(
        [] {
            start_run();
            dwarf_use_ranges = DWARF_USE_AUTO;
            note_sections(write_sections());
        },
        "result 0\nsections .debug_abbrev .debug_info .debug_line .debug_ranges(empty) .debug_pubnames "
        ".debug_aranges\n");
}

TEST(dwarf_write, hands_over_location_lists_where_there_are_some)
{
    expect_run(
        [] {
            start_run();
            sdb_node *variable = sdb_find("_y");
            variable->var.va_locations.push(xnew(sdb_location{.lo_kind = LO_REGISTER, .lo_value = 1}));
            note_sections(write_sections());
        },
        "result 0\nsections .debug_abbrev .debug_info .debug_line .debug_loc .debug_pubnames .debug_aranges\n");
}

TEST(dwarf_write, of_a_database_without_modules_gives_empty_units_and_one_byte_of_abbreviations)
{
    expect_run(
        [] {
            start_run(nullptr);
            choose_machine();
            const auto sections = write_sections();
            note_sections(sections);
            note("%u %u", sections[0]->size, sections[0]->data[0]);
        },
        "result 0\nsections .debug_abbrev .debug_info(empty) .debug_line(empty)\n1 0\n");
}

// --- version and address size -------------------------------------------------------------------------------------------

TEST(dwarf_version, is_3_with_either_kind_of_list)
{
    const dwarf_room room;
    EXPECT_EQ(dwarf_get_version(), 2);
    dwarf_use_ranges = DWARF_USE_AUTO;
    EXPECT_EQ(dwarf_get_version(), 3);
    dwarf_use_ranges = DWARF_USE_NEVER;
    dwarf_use_loclists = DWARF_USE_ALWAYS;
    EXPECT_EQ(dwarf_get_version(), 3);
    for (std::uint16_t version = 0; version < 5; ++version) {
        EXPECT_EQ(dwarf_version_is_supported(version), version == 2 || version == 3);
    }
}

TEST(dwarf_version, is_in_units_lines_names_and_addresses_alike)
{
    const auto versions = [](dwarf_use_mode ranges, dwarf_use_mode loclists) {
        start_run();
        dwarf_use_ranges = ranges;
        dwarf_use_loclists = loclists;
        const auto sections = write_sections();
        for (const char *name : {".debug_info", ".debug_line", ".debug_pubnames", ".debug_aranges"}) {
            note("%s %u", name, find_section(sections, name)->data[4]);
        }
    };
    expect_run([&] { versions(DWARF_USE_NEVER, DWARF_USE_NEVER); },
               "result 0\n.debug_info 2\n.debug_line 2\n.debug_pubnames 2\n.debug_aranges 2\n");
    expect_run([&] { versions(DWARF_USE_AUTO, DWARF_USE_NEVER); },
               "result 0\n.debug_info 3\n.debug_line 3\n.debug_pubnames 3\n.debug_aranges 3\n");
    expect_run([&] { versions(DWARF_USE_NEVER, DWARF_USE_ALWAYS); },
               "result 0\n.debug_info 3\n.debug_line 3\n.debug_pubnames 3\n.debug_aranges 3\n");
}

struct size_case {
    std::uint8_t given;
    std::uint32_t used;
    const char *traced;
    bool is_fatal;
};

const size_case SIZES[] = {
    {1, 1, "", false},
    {2, 2, "", false},
    {4, 4, "", false},
    {8, 8, "", false},
    {3, 4, "dwarf_write: WARNING: address can't be 3, changing it to be 4 bytes\n", false},
    {5, 8, "dwarf_write: WARNING: address can't be 5, changing it to be 8 bytes\n", false},
    {6, 8, "dwarf_write: WARNING: address can't be 6, changing it to be 8 bytes\n", false},
    {7, 8, "dwarf_write: WARNING: address can't be 7, changing it to be 8 bytes\n", false},
    {0, 4, "dwarf_write: ERROR in SDB information: address can't be 0, changing it to be 4 bytes\n", true},
    {9, 8, "dwarf_write: ERROR: address can't be 9, changing it to be 8 bytes\n", true},
    {255, 8, "dwarf_write: ERROR: address can't be 255, changing it to be 8 bytes\n", true},
};

std::string report_of(const size_case &size)
{
    return "(632) can't handle address size (" + std::to_string(size.given) + ")";
}

TEST(address_size, is_settled_as_the_table_has_it)
{
    for (const size_case &size : SIZES) {
        const auto run = [&size](bool lowered) {
            start_run();
            alert_initialise();
            if (lowered) {
                message_table.get(BAD_ADDRESS_SIZE)->type = MESSAGE_ERROR;
            }
            dwarf_addr_size = size.given;
            trace_log log;
            gDebugMask = TRACE_DWARF;
            const auto sections = write_sections();
            for (const std::string &line : trace_log::lines()) {
                if (line.find("address") != std::string::npos) {
                    note("%s", line.c_str());
                }
            }
            note("used %u", find_section(sections, ".debug_info")->data[10]);
        };
        const std::string end = std::string("result 0\n") + size.traced + "used " + std::to_string(size.used) + "\n";
        if (!size.is_fatal) {
            expect_run([&] { run(false); }, end);
            continue;
        }
        expect_run([&] { run(false); }, report_of(size) + "\n", 1);
        // Where a catalogue has lowered the report, the run goes on.
        expect_run([&] { run(true); }, report_of(size) + "\n" + end);
    }
}

// --- units --------------------------------------------------------------------------------------------------------------

std::string units_of(const std::vector<const dwarf_output_section *> &sections)
{
    const dwarf_output_section *info = find_section(sections, ".debug_info");
    const dwarf_output_section *abbrev = find_section(sections, ".debug_abbrev");
    return unit_reader({info->data, info->data + info->size}, {abbrev->data, abbrev->data + abbrev->size}).text();
}

TEST(dwarf_write, makes_a_unit_of_each_module)
{
    expect_run(
        [] {
            start_run();
            note("%s", units_of(write_sections()).c_str());
        },
        "result 0\n"
        "#1 unit lines=0 language=1 name=/p/a.c\n"
        "  #2 base name=int size=2 encoding=5\n"
        "  #3 variable name=x file=1 line=1 type=#2 external=1 location=<0310000000>\n"
        "  #4 variable name=y file=1 line=1 type=#2 location=<0312000000>\n"
        "\n");
}

type_record *long_of_name(const char *name)
{
    type_element te;
    te.te_kind = ty_basic;
    te.te_name = str_cache(name);
    te.basic = {.te_class = TE_SIGNED, .te_size = 4, .te_bitpos = 0};
    return type_append(type_new(), te);
}

// A module with a structure of a pointer and a "word", and a variable of it.
void add_module(const char *file)
{
    sdb_node *module = sdb_new_node(sc_module, file);
    module->sdb_parent = sdb_global;
    sdb_add_member(sdb_global, module);
    sdb_add_filename(module, file, 1);
    sdb_current = module;
    auto *members = static_cast<sdb_member *>(xarena(2 * sizeof(sdb_member), alignof(sdb_member)));
    members[0] = {.sm_name = "a", .sm_type = sdb_parse_type("*v")};
    members[1] = {.sm_name = "b", .sm_type = long_of_name("word")};
    sdb_node *structure = sdb_new_node(sc_struct, "S1");
    structure->structure.st_count = 2;
    structure->structure.st_members = members;
    type_element te;
    te.te_kind = ty_struct;
    te.te_name = structure->sdb_name;
    te.node = structure;
    sdb_node *variable = sdb_new_node(sc_static, "x");
    variable->var.va_alias = "x";
    variable->var.va_type = type_append(type_new(), te);
    sdb_add_member(module, variable);
}

TEST(dwarf_write, knows_a_global_type_in_the_units_behind_it_only)
{
    expect_run(
        [] {
            start_run(nullptr);
            choose_machine();
            add_module("/p/a.c");
            sdb_node *word = sdb_new_node(sc_typedef, "word");
            word->var.va_type = long_of_name("word");
            sdb_add_member(sdb_global, word);
            add_module("/p/b.c");
            // Which of the two comes first is not of interest here.
            std::string units = units_of(write_sections());
            for (const char *file : {"/p/a.c", "/p/b.c"}) {
                units.replace(units.find(file), std::strlen(file), "FILE");
            }
            note("%s", units.c_str());
        },
        "result 0\n"
        "#1 unit lines=0 language=1 name=FILE\n"
        "  #2 struct size=1 file=1 line=0\n"
        "    #3 member name=a type=#6 place=<2300>\n"
        "    #4 member name=b type=#7 place=<2300>\n"
        "  #5 variable name=x file=1 line=0 type=#2 declaration=1\n"
        "  #6 pointer size=1 class=0\n"
        "  #7 base name=word size=4 encoding=5\n"
        "#1 unit lines=41 language=1 name=FILE\n"
        "  #2 struct size=1 file=1 line=0\n"
        "    #3 member name=a type=#7 place=<2300>\n"
        "    #4 member name=b type=#6 place=<2300>\n"
        "  #5 variable name=x file=1 line=0 type=#2 declaration=1\n"
        "  #6 base name=word size=4 encoding=5\n" // ahead of the unit's own
        "  #7 pointer size=1 class=0\n"
        "\n");
}

// --- a second output ----------------------------------------------------------------------------------------------------

TEST(dwarf_write, appends_a_second_output_to_the_first)
{
    expect_run(
        [] {
            start_run();
            const auto first = write_sections();
            std::vector<bytes> before;
            for (const dwarf_output_section *section : first) {
                before.emplace_back(section->data, section->data + section->size);
            }
            const auto second = write_sections();
            for (std::size_t i = 0; i < first.size(); ++i) {
                const bytes &old = before[i];
                const bool begins = second[i]->size > old.size() && std::equal(old.begin(), old.end(), second[i]->data);
                // Abbreviation numbers start again, and so the same table follows.
                const bool repeats = second[i]->size == 2 * old.size() &&
                                     std::equal(old.begin(), old.end(), second[i]->data + old.size());
                note("%s%s%s", second[i]->name, begins ? " begins as before" : "", repeats ? ", then again" : "");
            }
        },
        "result 0\nresult 0\n"
        ".debug_abbrev begins as before, then again\n"
        ".debug_info begins as before\n" // offsets into the other sections differ
        ".debug_line begins as before, then again\n"
        ".debug_pubnames begins as before\n"
        ".debug_aranges begins as before\n");
}

// --- the ELF file -------------------------------------------------------------------------------------------------------

void start_elf()
{
    start_run();
    dwarf_access = nullptr;
    processor_args.fill(nullptr);
    processor_args[0] = "KORM";
    enable_dwarf = true;
}

TEST(elf_debug_sections, stand_behind_the_symbols_one_after_the_other)
{
    expect_run(
        [] {
            start_elf();
            const bytes content_of_note = {1, 2, 3};
            tmf_append_note(str_cache("build_id"), 3, content_of_note.data());
            std::FILE *stream = std::tmpfile();
            note("%d", format_elf.write(stream, "x.elf"));
            std::rewind(stream);
            bytes file;
            for (int c = std::fgetc(stream); c != EOF; c = std::fgetc(stream)) {
                file.push_back(static_cast<std::uint8_t>(c));
            }
            const std::uint64_t headers = number_at(file, 32, 4);
            const std::uint64_t count = number_at(file, 48, 2);
            const std::uint64_t names = number_at(file, headers + 40 * (count - 1) + 16, 4);
            std::uint64_t next = 0;
            for (std::uint64_t i = 1; i < count; ++i) {
                const std::uint64_t header = headers + 40 * i;
                const char *name = reinterpret_cast<const char *>(file.data()) + names + number_at(file, header, 4);
                const std::uint64_t offset = number_at(file, header + 16, 4);
                note("%s %llx%s", name, static_cast<unsigned long long>(number_at(file, header + 4, 4)),
                     next == 0 || offset == next ? "" : " elsewhere");
                next = offset + number_at(file, header + 20, 4);
                for (const std::uint64_t field : {8U, 12U, 24U, 28U, 32U}) {
                    if (std::strncmp(name, ".debug", 6) == 0 && number_at(file, header + field, 4) != 0) {
                        note("field %u is not 0", static_cast<unsigned>(field));
                    }
                }
            }
        },
        "1\n.strtab 3\n.symtab 2\n.debug_abbrev 7\n.debug_info 7\n.debug_line 7\n.debug_pubnames 7\n.debug_aranges 7\n"
        ".build_id 80000000\n.shstrtab 3\n");
}

TEST(elf_debug_sections, of_no_size_are_left_out)
{
    expect_run(
        [] {
            start_elf();
            dwarf_use_ranges = DWARF_USE_AUTO;
            trace_log log;
            std::FILE *stream = std::tmpfile();
            note("%d", format_elf.write(stream, "x.elf"));
            for (const std::string &line : trace_log::lines()) {
                const std::size_t at = line.find(" which resides at address ");
                if (at != std::string::npos) {
                    const std::size_t size = line.find(" and has size ");
                    note("%s%s", line.substr(0, at).c_str(), size != std::string::npos ? "" : " without size");
                }
            }
        },
        "1\nelf_write: Writing DWARF section .debug_abbrev\nelf_write: Writing DWARF section .debug_info\n"
        "elf_write: Writing DWARF section .debug_line\nelf_write: Writing DWARF section .debug_pubnames\n"
        "elf_write: Writing DWARF section .debug_aranges\n");
}

TEST(elf_debug_sections, are_not_made_when_they_are_not_wanted)
{
    expect_run(
        [] {
            start_elf();
            enable_dwarf = false;
            dwarf_addr_size = 0;
            std::FILE *stream = std::tmpfile();
            note("%d", format_elf.write(stream, "x.elf"));
        },
        "1\n");
}

TEST(elf_debug_sections, that_find_no_room_end_the_run)
{
    expect_run(
        [] {
            start_elf();
            // Room for the header and the tables of symbols, and no more.
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit = {.rlim_cur = 100, .rlim_max = 100};
            setrlimit(RLIMIT_FSIZE, &limit);
            format_elf.write(std::fopen("x.elf", "wb"), "x.elf");
        },
        "(621) error writing ELF/DWARF section \".debug_abbrev\" on \"x.elf\"\n", 1);
}

} // namespace
