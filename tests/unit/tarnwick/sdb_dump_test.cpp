// SPDX-License-Identifier: MIT
#include <cstring>
#include <string>

#include "common/alloc.h"
#include "tests/unit/tarnwick/sdb_testing.h"

namespace {

class dump : public database {
public:
    // What the dump prints behind the predefined types.
    static std::string text()
    {
        const std::string all = errors_of([] { sdb_dump(); });
        const std::string last_basic = "typedef: v `v 0\n";
        const std::size_t at = all.find(last_basic);
        EXPECT_NE(at, std::string::npos) << all;
        return all.substr(at + last_basic.size());
    }
    // Of a module that is called "m.obj".
    std::string text_of(const std::string &database_text)
    {
        sdb_node *module = read(database_text);
        module->sdb_name = "m.obj";
        return text();
    }
};

TEST_F(dump, prints_nothing_without_a_tree)
{
    EXPECT_EQ(errors_of([] { sdb_dump(); }), "");
}

TEST_F(dump, begins_with_the_predefined_types)
{
    choose(machkor);
    EXPECT_EQ(errors_of([] { sdb_dump(); }), "\nGlobal block:\n\n"
                                             "typedef: i `i2 0\n"
                                             "typedef: s `i2 0\n"
                                             "typedef: c `i1 0\n"
                                             "typedef: m `i3 0\n"
                                             "typedef: l `i4 0\n"
                                             "typedef: o `i8 0\n"
                                             "typedef: ui `u2 0\n"
                                             "typedef: us `u2 0\n"
                                             "typedef: uc `u1 0\n"
                                             "typedef: um `u3 0\n"
                                             "typedef: ul `u4 0\n"
                                             "typedef: uo `u8 0\n"
                                             "typedef: f `f3 0\n"
                                             "typedef: d `f4 0\n"
                                             "typedef: x `i2 0\n"
                                             "typedef: ux `u2 0\n"
                                             "typedef: a `b1 0\n"
                                             "typedef: b `b0 0\n"
                                             "typedef: v `v 0\n"
                                             "\n");
}

TEST_F(dump, prints_modules_and_files)
{
    EXPECT_EQ(text_of("\"3 /a.c\n\"9\n"), "module: \"m.obj\" 3-9\n"
                                          "{\n"
                                          "    filename: \"/a.c\"\n"
                                          "}\n"
                                          "\n");
    sdb_node *node = sdb_read(folder().path("start.obj").c_str());
    node->sdb_name = "start.obj";
    EXPECT_NE(text().find("}\n\"start.obj\" 1-0\n{\n}\n\n"), std::string::npos); // no word for this class
}

TEST_F(dump, prints_variables_with_type_and_locations)
{
    EXPECT_EQ(text_of("\"3 /a.c\n[v _f f `(v 1 e 0 @9 ]\n{\n[v a a `i 1 a 2 5 ]\n\"5\n[v a a `i 1 a 2 ptra ]\n"
                      "[v p p `ui 1 p 2 -1 ]\n[v r r `[2]*c 1 r 4 mulr ]\n[v t t `*.37(f 1 t 2 ]\n}\n0\n"),
              "module: \"m.obj\" 3-5\n"
              "{\n"
              "    filename: \"/a.c\"\n"
              "    extern: _f `(v 9[" +
                  std::to_string(set_min(data_spaces)) +
                  "] 3\n"
                  "    func: _f() 3-5 ranges: None\n"
                  "    {\n"
                  "        auto: a `i2 a[/a.c:3-5] ptra[/a.c:5-0] 3\n"
                  "        param: p `u2 p 5\n"
                  "        reg: r `[2]*i1 mulr 5\n"
                  "        typedef: t `*(f3 5\n"
                  "    }\n"
                  "}\n"
                  "\n");
}

TEST_F(dump, prints_the_assembler_name_of_a_static)
{
    add_symbol("Fsdbd1", 0x20, 1);
    EXPECT_EQ(text_of("\"3 /a.c\n[v Fsdbd1 calls `i 1 s 2 Scalls ]\n[v _s s `i 1 s 2 @31 ]\n"),
              "module: \"m.obj\" 3-3\n"
              "{\n"
              "    filename: \"/a.c\"\n"
              "    static: _calls `i2 Fsdbd1 Fsdbd1 3\n"
              "    static: _s `i2 1F[" +
                  std::to_string(set_min(data_spaces)) +
                  "] 3\n"
                  "}\n"
                  "\n");
}

TEST_F(dump, prints_structs_and_enums)
{
    EXPECT_EQ(text_of("[s S1 node 4 *S1 next 0 2 E1 . 2 2 ]\n[u S2 . 4 *S3 p 0 2 ]\n[e E1 . `ui OFF 0 ON -3 ]\n"),
              "module: \"m.obj\" 0-0\n"
              "{\n"
              "    struct: S1(node) = { next `*struct node (null) `enum . }\n"
              "    enum: E1(.) = { OFF=0 ON=-3 }\n"
              "    struct: S2 = { p `*struct S3 }\n"
              "    struct: S3 = { }\n"
              "}\n"
              "\n");
}

TEST_F(dump, prints_an_enum_that_is_only_referred_to_by_its_name)
{
    EXPECT_EQ(text_of("[v t t `E5 1 t 2 ]\n"), "module: \"m.obj\" 0-0\n"
                                               "{\n"
                                               "    enum: E5 = { }\n"
                                               "    typedef: t `enum E5 0\n"
                                               "}\n"
                                               "\n");
}

TEST_F(dump, prints_every_qualifier_that_meets_the_mask)
{
    // In the order of the machine's table: both rows of "const", and "eeprom", whose mask holds that of "volatile".
    EXPECT_EQ(text_of("[v t t `CV*Ri 1 t 2 ]\n"), "module: \"m.obj\" 0-0\n"
                                                  "{\n"
                                                  "    typedef: t `const volatile eeprom const *reentrant i2 0\n"
                                                  "}\n"
                                                  "\n");
}

TEST_F(dump, prints_blocks_with_their_ranges)
{
    opt_fake_blocks = true;
    sdb_node *module =
        read("\"3 /a.c\n[v _f f `(v 1 e 0 0 ]\n{\n[v a a `i 1 a 2 5 ]\n[v a a `i 1 a 2 6 ]\n\"7\n{\n}\n}\n0\n");
    module->sdb_name = "m.obj";
    sdb_node *function = member(module, sc_func);
    function->block.bl_ranges = xnew<sdb_range>({.low = 0x10, .high = 0x1F});
    function->block.bl_ranges->next = xnew<sdb_range>({.low = 0xA0, .high = 0xFFFFFFFF});
    EXPECT_EQ(text(), "module: \"m.obj\" 3-7\n"
                      "{\n"
                      "    filename: \"/a.c\"\n"
                      "    extern: _f `(v _f 3\n"
                      "    func: _f() 3-7 ranges: 0x10-0x1F 0xA0-0xFFFFFFFF\n"
                      "    {\n"
                      "        auto: a `i2 a 3\n"
                      "        block: 3-7 (faked) ranges: None\n"
                      "        {\n"
                      "            auto: a `i2 a 3\n"
                      "            block: 7-7 ranges: None\n"
                      "            {\n"
                      "            }\n"
                      "        }\n"
                      "    }\n"
                      "}\n"
                      "\n");
}

TEST_F(dump, prints_what_it_does_not_know)
{
    sdb_node *module = read("");
    module->sdb_name = "m.obj";
    for (const sclass cls : {sc_null, sc_line, static_cast<sclass>(16)}) {
        sdb_add_member(module, sdb_new_node(cls, "x"));
    }
    sdb_node *node = sdb_new_node(sc_global, "g");
    type_element te;
    te.te_kind = 9;
    node->var.va_type = type_append(type_new(1), te);
    sdb_add_member(module, node);
    EXPECT_EQ(text(), "module: \"m.obj\" 0-0\n"
                      "{\n"
                      "    null: sclass?? = 0\n"
                      "    line: sclass?? = 8\n"
                      "    sclass?? = 16\n"
                      "    global: g `Unknown type 0\n"
                      "}\n"
                      "\n");
}

TEST_F(dump, survives_blocks_in_blocks)
{
    constexpr std::size_t DEPTH = 3000;
    std::string braces;
    for (std::size_t i = 0; i < DEPTH; ++i) {
        braces += "{\n";
    }
    const std::string all = text_of(braces);
    EXPECT_NE(all.find("\n" + std::string(4 * DEPTH, ' ') + "}\n"), std::string::npos) << "the innermost";
}

} // namespace
