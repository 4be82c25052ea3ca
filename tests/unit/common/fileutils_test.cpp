// SPDX-License-Identifier: MIT
// File identification: every extension, every content, and files that are not what they say.
#include "common/fileutils.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "common/stringcache.h"
#include "common/trace.h"
#include "tests/unit/common/scratch_dir.h"

namespace {

constexpr std::uint64_t MISSING = 0x1000;

// ---- Building blocks of files.

std::string bytes16(std::uint32_t value)
{
    return {static_cast<char>(value & 0xFF), static_cast<char>(value >> 8 & 0xFF)};
}

std::string bytes32(std::uint32_t value)
{
    return bytes16(value & 0xFFFF) + bytes16(value >> 16);
}

std::string record(std::uint32_t type, std::string_view content = "")
{
    std::string bytes = bytes16(static_cast<std::uint32_t>(content.size()));
    bytes += static_cast<char>(type);
    bytes += content;
    return bytes;
}

std::string object_content()
{
    return record(7, "ident") + record(1, "some text") + record(6);
}

std::string p1_content()
{
    return "Version 3.2 Orbell Software Intermediate Code\nand so on\n";
}

std::string elf_content(std::uint16_t machine)
{
    std::string bytes(52, '\0');
    bytes.replace(0, 5,
                  std::string_view("\x7F"
                                   "ELF\x01",
                                   5));
    std::memcpy(&bytes[18], &machine, sizeof machine);
    return bytes;
}

struct module {
    std::string name;
    std::vector<std::string> symbols;
    std::string content;
};

std::string library_content(const std::vector<module> &modules)
{
    std::string index = bytes16(0) + bytes16(static_cast<std::uint32_t>(modules.size()));
    std::string contents;
    for (const module &m : modules) {
        index += bytes16(0) + bytes16(static_cast<std::uint32_t>(m.symbols.size()));
        index += bytes32(static_cast<std::uint32_t>(m.content.size())) + bytes32(0);
        index += m.name + '\0';
        for (const std::string &symbol : m.symbols) {
            index += 'x' + symbol + '\0';
        }
        contents += m.content;
    }
    return index + contents;
}

std::string object_library()
{
    return library_content({{"one.obj", {"_a", "_bc"}, object_content()}, {"two.obj", {}, object_content()}});
}

std::string p1_library()
{
    return library_content({{"one.p1", {"_main"}, p1_content()}, {"two.p1", {}, p1_content()}});
}

std::string mixed_library()
{
    return library_content({{"one.obj", {"_a"}, object_content()}, {"two.p1", {"_b"}, p1_content()}});
}

std::uint64_t id_of(const scratch_dir &scratch, std::string_view name, std::string_view content)
{
    return fileid(scratch.write(name, content).c_str());
}

// ---- The table of extensions.

struct named_row {
    const char *extension;
    std::uint64_t existing;
    std::uint64_t missing;
};

constexpr named_row NAMED_ROWS[] = {
    {"as", 0x200209, 0x201209},
    {"asm", 0x400209, 0x401209},
    {"c", 0x1203, 0x1203},
    {"cfgmap", 0x20000600, 0x20001600},
    {"cfgdata", 0x40000600, 0x40001600},
    {"tmf", 0x80000600, 0x80001600},
    {"cof", 0x4000180, 0x4001180},
    {"crf", 0x8000000500, 0x8000001500},
    {"dep", 0x400000600, 0x400001600},
    {"dmp", 0x40000000600, 0x40000001600},
    {"hex", 0x1000280, 0x1001280},
    {"hxl", 0x2000000600, 0x2000001600},
    {"h", 0x8000000000A00, 0x8000000001A00},
    {"i", 0x100205, 0x101205},
    {"inc", 0x800000209, 0x800001209},
    {"ini", 0x10000600, 0x10001600},
    {"lkr", 0x8000600, 0x8001600},
    {"lst", 0x10000000600, 0x10000001600},
    {"map", 0x1000000600, 0x1000001600},
    {"pre", 0x80205, 0x81205},
    {"rlf", 0x20000000500, 0x20000001500},
    {"s", 0x800209, 0x801209},
    {"S", 0x400000020D, 0x400000120D},
    {"sx", 0x400000020D, 0x400000120D},
    {"sym", 0x100000600, 0x100001600},
    {"sdb", 0x200000600, 0x200001600},
    {"usb", 0x80000001203, 0x80000001203},
    {"xml", 0x100000000200, 0x100000001200},
    {"zrtapp", 0x200000000180, 0x200000001180},
};

TEST(FileId, ExtensionsThatAnswerAlone)
{
    const scratch_dir scratch;
    for (const named_row &row : NAMED_ROWS) {
        const std::string name = std::string("x.") + row.extension;
        EXPECT_EQ(fileid(scratch.path("no/" + name).c_str()), row.missing) << name;
        EXPECT_EQ(id_of(scratch, name, ""), row.existing) << name;
    }
}

TEST(FileId, CaseCountsForALoneSOnly)
{
    for (const named_row &row : NAMED_ROWS) {
        if (std::strlen(row.extension) == 1 && (*row.extension == 's' || *row.extension == 'S')) {
            continue;
        }
        std::string name = "none/x.";
        for (const char *c = row.extension; *c != '\0'; ++c) {
            name += static_cast<char>(*c >= 'a' && *c <= 'z' ? *c - 'a' + 'A' : *c);
        }
        EXPECT_EQ(fileid(name.c_str()), row.missing) << name;
    }
    EXPECT_EQ(fileid("none/x.C"), 0x1203U);
    EXPECT_EQ(fileid("none/x.S"), 0x400000020DU | MISSING);
    EXPECT_EQ(fileid("none/x.s"), 0x800209U | MISSING);
    EXPECT_EQ(fileid("none/x.SX"), 0x400000020DU | MISSING);
}

TEST(FileId, MissingFilesThatNeedTheirContent)
{
    EXPECT_EQ(fileid("none/x.a"), 0x8010U | MISSING);
    EXPECT_EQ(fileid("none/x.elf"), MISSING);
    EXPECT_EQ(fileid("none/x.lib"), 0x4010U | MISSING);
    EXPECT_EQ(fileid("none/x.lpp"), 0x2010U | MISSING);
    EXPECT_EQ(fileid("none/x.o"), 0x20020U | MISSING);
    EXPECT_EQ(fileid("none/x.obj"), 0x20020U | MISSING);
    EXPECT_EQ(fileid("none/x.p1"), MISSING);
    EXPECT_EQ(fileid("none/x"), MISSING);
    EXPECT_EQ(fileid("none/x."), MISSING);
    EXPECT_EQ(fileid("none/x.y"), MISSING);
    EXPECT_EQ(fileid("none/x.z"), MISSING);
    EXPECT_EQ(fileid("none/x.asmx"), MISSING);
    EXPECT_EQ(fileid("none.c/x"), MISSING) << "the extension is what stands behind the last point of the path";
    EXPECT_EQ(fileid(""), MISSING);
    EXPECT_EQ(fileid(nullptr), MISSING);
}

TEST(FileId, ObjectFiles)
{
    const scratch_dir scratch;
    EXPECT_EQ(id_of(scratch, "x.o", p1_content()), 0x20060U);
    EXPECT_EQ(id_of(scratch, "x.o", object_content()), 0x10020U);
    EXPECT_EQ(id_of(scratch, "x.o", "neither"), 0x20020U);
    EXPECT_EQ(id_of(scratch, "x.obj", object_content()), 0x10020U);
    EXPECT_EQ(id_of(scratch, "x.obj", p1_content()), 0x20020U);
    EXPECT_EQ(id_of(scratch, "x.p1", p1_content()), 0x40240U);
    EXPECT_EQ(id_of(scratch, "x.p1", object_content()), 0U) << "an object is not looked for in this extension";
    EXPECT_EQ(id_of(scratch, "x.p1", elf_content(8)), 0x2000002000180U);
    // The content is looked for by exact extension.
    EXPECT_EQ(id_of(scratch, "x.O", object_content()), 0x20020U);
}

TEST(FileId, Libraries)
{
    const scratch_dir scratch;
    EXPECT_EQ(id_of(scratch, "x.a", object_library()), 0x4010U);
    EXPECT_EQ(id_of(scratch, "x.a", p1_library()), 0x2010U);
    EXPECT_EQ(id_of(scratch, "x.a", mixed_library()), 0x6010U);
    EXPECT_EQ(id_of(scratch, "x.a", "no library"), 0x8010U);
    EXPECT_EQ(id_of(scratch, "x.lib", object_library()), 0x4010U);
    EXPECT_EQ(id_of(scratch, "x.lib", p1_library()), 0x2010U);
    EXPECT_EQ(id_of(scratch, "x.lib", mixed_library()), 0x4010U);
    EXPECT_EQ(id_of(scratch, "x.lib", "no library"), 0x4010U);
    EXPECT_EQ(id_of(scratch, "x.lpp", object_library()), 0x4010U);
    EXPECT_EQ(id_of(scratch, "x.lpp", p1_library()), 0x2010U);
    EXPECT_EQ(id_of(scratch, "x.lpp", mixed_library()), 0x2010U);
    EXPECT_EQ(id_of(scratch, "x.lpp", "no library"), 0x2010U);
}

TEST(FileId, ElfFiles)
{
    const scratch_dir scratch;
    EXPECT_EQ(id_of(scratch, "x.elf", elf_content(204)), 0x400002000180U);
    EXPECT_EQ(id_of(scratch, "x.elf", "no elf"), 0U);
    EXPECT_EQ(id_of(scratch, "x", elf_content(204)), 0x400002000180U);
    EXPECT_EQ(id_of(scratch, "x.y", "nothing known"), 0U);
}

TEST(FileId, WindowsNames)
{
    const scratch_dir scratch;
    scratch.make_directory("dir");
    scratch.write("dir/x.asm", "");
    scratch.write("dir/x.o", object_content());
    EXPECT_EQ(fileid(scratch.path("dir\\x.asm").c_str()), 0x400209U);
    EXPECT_EQ(fileid(scratch.path("dir\\x.o").c_str()), 0x10020U);
}

// ---- By content.

TEST(Scan, EachContent)
{
    const scratch_dir scratch;
    const auto scanned = [&](std::string_view name, std::string_view content) {
        return scan(scratch.write(name, content).c_str());
    };
    EXPECT_EQ(scanned("x.p1", p1_content()), 0x40U);
    EXPECT_EQ(scanned("x.o", p1_content()), 0x40U);
    EXPECT_EQ(scanned("x.o", object_content()), 0x10020U);
    EXPECT_EQ(scanned("x.obj", object_content()), 0x10020U);
    EXPECT_EQ(scanned("x.o", elf_content(83)), 0x800002000180U);
    EXPECT_EQ(scanned("x", elf_content(83)), 0x800002000180U);
    EXPECT_EQ(scanned("x.a", p1_library()), 0x2010U);
    EXPECT_EQ(scanned("x.a", mixed_library()), 0x8010U) << "not what the extension gives";
    EXPECT_EQ(scanned("x.a", object_library()), 0x4010U);
    EXPECT_EQ(scanned("x.a", "nothing"), 0U);
    EXPECT_EQ(scanned("x", object_content()), 0U);
    EXPECT_EQ(scan("none/x"), 0U);
    EXPECT_EQ(scan(scratch.path().c_str()), 0U) << "a directory";
}

TEST(WhichElf, Machines)
{
    const scratch_dir scratch;
    const auto elf_of = [&](std::string_view content) { return which_elf(scratch.write("x", content).c_str()); };
    EXPECT_EQ(elf_of(elf_content(204)), 0x400002000180U);
    EXPECT_EQ(elf_of(elf_content(83)), 0x800002000180U);
    EXPECT_EQ(elf_of(elf_content(118)), 0x1000002000180U);
    EXPECT_EQ(elf_of(elf_content(8)), 0x2000002000180U);
    EXPECT_EQ(elf_of(elf_content(40)), 0x4000002000180U);
    EXPECT_EQ(elf_of(elf_content(0)), 0x2000180U);
    EXPECT_EQ(elf_of(elf_content(62)), 0x2000180U);
    EXPECT_EQ(elf_of(elf_content(40) + "more"), 0x4000002000180U);
}

TEST(WhichElf, NoElf)
{
    const scratch_dir scratch;
    const auto elf_of = [&](std::string_view content) { return which_elf(scratch.write("x", content).c_str()); };
    EXPECT_EQ(elf_of(""), 0U);
    EXPECT_EQ(elf_of(elf_content(40).substr(0, 51)), 0U) << "short";
    for (std::size_t i = 0; i < 5; ++i) {
        std::string wrong = elf_content(40);
        wrong[i] = static_cast<char>(wrong[i] + 1); // byte 4 becomes 2: 64 bits
        EXPECT_EQ(elf_of(wrong), 0U) << "byte " << i;
    }
    EXPECT_EQ(which_elf("none/x"), 0U);
    EXPECT_EQ(which_elf(nullptr), 0U);
}

TEST(P1, VersionLine)
{
    const scratch_dir scratch;
    const auto is_p1 = [&](std::string_view content) { return fileid_is_p1(scratch.write("x.p1", content).c_str()); };
    const std::string name = "Orbell Software Intermediate Code"; // 33 characters
    EXPECT_TRUE(is_p1("Version 1 2.3 " + name + " etc."));
    EXPECT_FALSE(is_p1("Version " + name)) << "41 bytes are too few";
    EXPECT_TRUE(is_p1("Version " + name + "."));
    EXPECT_TRUE(is_p1("Version 1" + name));
    EXPECT_FALSE(is_p1("version 1 " + name + " etc."));
    EXPECT_FALSE(is_p1("Version 1x " + name + " etc.")) << "the first letter decides";
    EXPECT_FALSE(is_p1("Version 1 Orbell Software Intermediate code etc."));
    EXPECT_FALSE(is_p1("Version " + std::string(60, '1') + name)) << "only 60 bytes are read";
    EXPECT_TRUE(is_p1("Version" + std::string(20, '1') + name)) << "exactly 60 bytes";
    EXPECT_FALSE(is_p1("Version" + std::string(21, '1') + name));
    EXPECT_FALSE(is_p1("Version" + std::string(60, ' '))) << "no letter";
    EXPECT_FALSE(is_p1(""));
}

TEST(P1, OnlyInItsExtensions)
{
    const scratch_dir scratch;
    EXPECT_TRUE(fileid_is_p1(scratch.write("x.p1", p1_content()).c_str()));
    EXPECT_TRUE(fileid_is_p1(scratch.write("x.o", p1_content()).c_str()));
    EXPECT_FALSE(fileid_is_p1(scratch.write("x.P1", p1_content()).c_str()));
    EXPECT_FALSE(fileid_is_p1(scratch.write("x.obj", p1_content()).c_str()));
    EXPECT_FALSE(fileid_is_p1(scratch.write("x", p1_content()).c_str()));
    EXPECT_FALSE(fileid_is_p1("none/x.p1"));
}

TEST(Object, Records)
{
    const scratch_dir scratch;
    const auto is_obj = [&](std::string_view content) {
        return fileid_is_obj(scratch.write("x.obj", content).c_str());
    };
    EXPECT_TRUE(is_obj(record(6)));
    EXPECT_TRUE(is_obj(object_content()));
    EXPECT_TRUE(is_obj(record(1, std::string(512, 'x')) + record(6)));
    EXPECT_TRUE(is_obj(record(23) + record(6) + "whatever"));
    EXPECT_FALSE(is_obj(""));
    EXPECT_FALSE(is_obj(record(1))) << "no end record";
    EXPECT_FALSE(is_obj(record(1, std::string(513, 'x')) + record(6))) << "too long";
    EXPECT_FALSE(is_obj(record(0) + record(6)));
    EXPECT_FALSE(is_obj(record(24) + record(6)));
    EXPECT_FALSE(is_obj(record(200) + record(6)));
    EXPECT_FALSE(is_obj(record(6).substr(0, 2)));
    EXPECT_FALSE(is_obj(record(6, "cut").substr(0, 5)));
    EXPECT_FALSE(is_obj(bytes16(0xFFFF) + '\x01' + record(6))) << "a negative length";
    EXPECT_FALSE(is_obj(bytes16(0x8000) + '\x06'));
}

TEST(Object, OnlyInItsExtensions)
{
    const scratch_dir scratch;
    EXPECT_TRUE(fileid_is_obj(scratch.write("x.obj", object_content()).c_str()));
    EXPECT_TRUE(fileid_is_obj(scratch.write("x.o", object_content()).c_str()));
    EXPECT_FALSE(fileid_is_obj(scratch.write("x.OBJ", object_content()).c_str()));
    EXPECT_FALSE(fileid_is_obj(scratch.write("x.p1", object_content()).c_str()));
    EXPECT_FALSE(fileid_is_obj("none/x.obj"));
}

TEST(Object, StreamsAreReadFromTheirPosition)
{
    const scratch_dir scratch;
    const std::string path = scratch.write("x", "head" + object_content() + p1_content());
    std::FILE *stream = std::fopen(path.c_str(), "rb");
    EXPECT_FALSE(fileid_is_obj_fp(stream));
    std::fseek(stream, 4, SEEK_SET);
    EXPECT_TRUE(fileid_is_obj_fp(stream));
    EXPECT_TRUE(fileid_is_p1_fp(stream)) << "directly behind the end record";
    std::fclose(stream);
}

TEST(Object, GetrecTellsTheType)
{
    const scratch_dir scratch;
    std::FILE *stream = std::fopen(scratch.write("x", record(7, "ident") + record(2) + "\x01").c_str(), "rb");
    EXPECT_EQ(getrec(stream), 7U);
    EXPECT_EQ(getrec(stream), 2U);
    EXPECT_EQ(getrec(stream), 0U);
    EXPECT_EQ(getrec(stream), 0U);
    std::fclose(stream);
}

TEST(GetString, ReadsToANul)
{
    const scratch_dir scratch;
    const std::string long_text(5000, 'y');
    std::FILE *stream =
        std::fopen(scratch.write("x", std::string("one\0\0", 5) + long_text + '\0' + "rest").c_str(), "rb");
    EXPECT_EQ(getString(stream), str_cache("one"));
    EXPECT_STREQ(getString(stream), "");
    EXPECT_EQ(getString(stream), str_cache(long_text));
    EXPECT_STREQ(getString(stream), "rest");
    EXPECT_STREQ(getString(stream), "");
    std::fclose(stream);
}

TEST(GetString, HasALimit)
{
    const scratch_dir scratch;
    const std::string longest(31999, 'y'); // 32000 bytes with its NUL
    std::FILE *stream = std::fopen(scratch.write("x", longest + '\0' + longest + "yy").c_str(), "rb");
    EXPECT_EQ(getString(stream), str_cache(longest));
    EXPECT_EQ(getString(stream), nullptr);
    std::fclose(stream);
}

TEST(ValidExt, ComparesExactly)
{
    EXPECT_STREQ(valid_ext("x.o", "p1:o"), "o");
    EXPECT_STREQ(valid_ext("dir.a/x.p1", "p1:o"), "p1");
    EXPECT_STREQ(valid_ext("x.b", "a,b;c:d"), "b");
    EXPECT_STREQ(valid_ext("x.c", "a,b;c:d"), "c");
    EXPECT_STREQ(valid_ext("x.d", "a,b;c:d"), "d");
    EXPECT_STREQ(valid_ext("x.a", ",,a"), "a");
    EXPECT_EQ(valid_ext("x.a", "a:b"), str_cache("a"));
    EXPECT_EQ(valid_ext("x.O", "p1:o"), nullptr);
    EXPECT_EQ(valid_ext("x.p", "p1:o"), nullptr);
    EXPECT_EQ(valid_ext("x.p11", "p1:o"), nullptr);
    EXPECT_EQ(valid_ext("x", "p1:o"), nullptr);
    EXPECT_EQ(valid_ext("x.", "p1::o"), nullptr);
    EXPECT_EQ(valid_ext("x.o", ""), nullptr);
    EXPECT_EQ(valid_ext("x.o", nullptr), nullptr);
    EXPECT_EQ(valid_ext(nullptr, "o"), nullptr);
}

// ---- Libraries.

std::uint32_t library_of(std::string_view content, std::string_view name = "x.lib")
{
    const scratch_dir scratch;
    return fileid_is_library(scratch.write(name, content).c_str());
}

TEST(Library, Kinds)
{
    EXPECT_EQ(library_of(object_library()), 1U);
    EXPECT_EQ(library_of(p1_library()), 2U);
    EXPECT_EQ(library_of(mixed_library()), 3U);
    EXPECT_EQ(library_of(library_content({{"p", {}, p1_content()}, {"o", {}, object_content()}})), 3U);
    EXPECT_EQ(library_of(library_content({{"x", {"_s"}, "something else"}})), 0U);
    EXPECT_EQ(library_of(library_content({{"x", {}, "?"}, {"o", {}, object_content()}})), 1U);
    EXPECT_EQ(library_of(library_content({})), 0U) << "no module";
}

TEST(Library, OnlyInItsExtensions)
{
    for (const char *name : {"x.lib", "x.lpp", "x.a"}) {
        EXPECT_EQ(library_of(object_library(), name), 1U) << name;
    }
    for (const char *name : {"x.LIB", "x.o", "x", "x.lib2"}) {
        EXPECT_EQ(library_of(object_library(), name), 0U) << name;
    }
    EXPECT_EQ(fileid_is_library("none/x.lib"), 0U);
}

// The third module is found only when every name and symbol before it has been counted.
TEST(Library, IndexSizesAddUp)
{
    const std::vector<module> modules = {
        {"a", {"_1", "_22", "_333"}, "no module"},
        {"a_rather_long_module_name.obj", {}, "neither"},
        {"c", {"_x"}, object_content()},
    };
    EXPECT_EQ(library_of(library_content(modules)), 1U);
}

TEST(Library, NoCutIsALibrary)
{
    const std::string whole = library_content({{"one", {"_a", "_b"}, object_content()}});
    for (std::size_t size = 0; size < whole.size(); ++size) {
        // A name that ends with the file counts as read, but then its module is not there.
        EXPECT_EQ(library_of(whole.substr(0, size)), 0U) << "the first " << size << " bytes";
    }
    EXPECT_EQ(library_of(whole), 1U);
}

TEST(Library, EmptyNames)
{
    EXPECT_EQ(library_of(library_content({{"", {}, object_content()}})), 0U);
    EXPECT_EQ(library_of(library_content({{"a", {""}, object_content()}})), 0U);
    EXPECT_EQ(library_of(library_content({{"a", {std::string(40000, 'x')}, object_content()}})), 0U);
}

TEST(Library, CountsBeyondTheFile)
{
    std::string modules = object_library();
    modules[2] = '\xFF';
    modules[3] = '\xFF';
    EXPECT_EQ(library_of(modules), 0U);
    std::string symbols = library_content({{"a", {"_x"}, object_content()}});
    symbols[6] = '\xFF';
    symbols[7] = '\xFF';
    EXPECT_EQ(library_of(symbols), 0U);
}

TEST(Library, LengthsBeyondTheFile)
{
    for (const std::uint32_t length : {0x1000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        std::string library = library_content({{"a", {}, object_content()}, {"b", {}, p1_content()}});
        library.replace(8, 4, bytes32(length));
        EXPECT_EQ(library_of(library), 1U) << length;
    }
}

// Thousands of modules that all lie on one long chain of records without an end: each record is read once.
TEST(Library, OverlappingModulesCostNoMore)
{
    constexpr std::uint32_t MODULES = 60000;
    std::string index = bytes16(0) + bytes16(MODULES);
    for (std::uint32_t i = 0; i < MODULES; ++i) {
        index += bytes16(0) + bytes16(0) + bytes32(3) + bytes32(0) + std::string("m\0", 2);
    }
    std::string records;
    for (std::uint32_t i = 0; i < 300000; ++i) {
        records += record(1);
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(library_of(index + records), 0U);
    EXPECT_EQ(library_of(index + records + record(6)), 1U);
    // Read again for each module these are 18 thousand million records: hours, not seconds.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
}

// ---- Tests on ids.

TEST(FileIdTests, HasAllBits)
{
    EXPECT_TRUE(fileid_has(0x10020, 0x10020));
    EXPECT_TRUE(fileid_has(0x10020, 0x20));
    EXPECT_FALSE(fileid_has(0x20020, 0x10020));
    EXPECT_TRUE(fileid_has(fileid("none/x.inc"), 0x800000209));
    EXPECT_FALSE(fileid_has(fileid("none/x.asm"), 0x800000209));
}

TEST(FileIdTests, IsC)
{
    EXPECT_TRUE(fileid_is_c(fileid("none/x.c")));
    EXPECT_TRUE(fileid_is_c(fileid("none/x.usb")));
    EXPECT_FALSE(fileid_is_c(fileid("none/x.h")));
    EXPECT_FALSE(fileid_is_c(fileid("none/x.asm")));
    EXPECT_TRUE(fileid_is_c(2));
    EXPECT_FALSE(fileid_is_c(~std::uint64_t{2}));
}

TEST(FileIdTests, IsAsm)
{
    const scratch_dir scratch;
    for (const char *name : {"x.asm", "x.as", "x.s", "x.S", "x.sx", "x.ASM"}) {
        EXPECT_TRUE(fileid_is_asm_fid(fileid(scratch.path(name).c_str()))) << name << ", missing";
        EXPECT_TRUE(fileid_is_asm_fid(id_of(scratch, name, ""))) << name;
    }
    for (const char *name : {"x.inc", "x.c", "x.h", "x.i", "x.pre", "x.o", "x"}) {
        EXPECT_FALSE(fileid_is_asm_fid(fileid(name))) << name;
    }
    EXPECT_FALSE(fileid_is_asm_fid(0));
    EXPECT_FALSE(fileid_is_asm_fid(0x600209)) << "two of the classes together";
}

// ---- Traces.

std::vector<std::string> traced;

void keep_line(const char *, int, const char *format, std::va_list arguments)
{
    char buffer[256];
    std::vsnprintf(buffer, sizeof buffer, format, arguments);
    traced.emplace_back(buffer);
}

std::vector<std::string> trace_of(const std::string &path)
{
    trace_sink sink{};
    sink.line = keep_line;
    traced.clear();
    trace_install(&sink);
    const std::uint32_t mask = gDebugMask;
    gDebugMask = TRACE_ON;
    fileid(path.c_str());
    gDebugMask = mask;
    trace_install(nullptr);
    return traced;
}

TEST(FileIdTrace, SaysWhatWasFound)
{
    const scratch_dir scratch;
    using trace_lines = std::vector<std::string>;
    EXPECT_EQ(trace_of("none/x.asm"), (trace_lines{"did not find asm file"}));
    EXPECT_EQ(trace_of(scratch.write("x.asm", "")), (trace_lines{"found asm file"}));
    EXPECT_EQ(trace_of(scratch.write("x", "")), (trace_lines{"did not recognize file"}));
    EXPECT_EQ(trace_of(scratch.write("x", elf_content(8))), (trace_lines{"found ELF file"}));
    EXPECT_EQ(trace_of(scratch.write("x.elf", elf_content(8))), (trace_lines{"found ELF file"}));
    EXPECT_EQ(trace_of(scratch.write("x.p1", p1_content())), (trace_lines{"found p1 file"}));
    EXPECT_EQ(trace_of(scratch.write("x.obj", record(2) + record(6))),
              (trace_lines{"found object file", "PSECT record", "END record"}));
    EXPECT_EQ(trace_of(scratch.write("x.lpp", p1_library())), (trace_lines{"found .LPP library file"}));
    EXPECT_EQ(trace_of(scratch.write("x.lib", p1_library())), (trace_lines{"found .LIB library file"}));
    EXPECT_EQ(trace_of(scratch.write("x.a", p1_library())), (trace_lines{"found .A library file"}));
}

} // namespace
