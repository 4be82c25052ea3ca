// SPDX-License-Identifier: MIT
// Raising source files to modules.
#include <cstdarg>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "common/stringcache.h"
#include "compiler/tarnwick/sdb_ranges.h"
#include "tests/unit/tarnwick/random_numbers.h"
#include "tests/unit/tarnwick/sdb_testing.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

using names = std::vector<std::string>;
using log_lines = std::vector<std::string>;

std::string line_of(const char *format, ...) PRINTF_LIKE(1, 2);
std::string line_of(const char *format, ...)
{
    char text[400];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

// The buckets of names, worked out apart from the program: a.c 1, main.c 22, start.as 53, boot.s 54, b.c 74,
// /src/util.c 74, defs.h 107.
class raising : public testing::Test {
protected:
    raising()
    {
        sdb_reset();
        sdb_global = sdb_new_node(sc_module, "");
        sdb_current = sdb_global;
    }
    ~raising() override { sdb_reset(); }

    static sdb_node *add(sdb_node *block, sclass cls, const char *name, std::uint32_t line = 0)
    {
        sdb_node *node = sdb_new_node(cls, name != nullptr ? str_cache(name) : nullptr);
        node->sdb_parent = block;
        node->sdb_index = block->block.bl_count;
        node->sdb_line = line;
        sdb_add_member(block, node);
        return node;
    }
    static sdb_node *add_module(const char *name, sclass cls = sc_module) { return add(sdb_global, cls, name); }
    static sdb_node *mark(sdb_node *module, const char *name, std::uint32_t line = 1)
    {
        return add(module, sc_filename, name, line);
    }
    static sdb_node *add_function(sdb_node *module, const char *name, std::uint32_t first, std::uint32_t last)
    {
        sdb_node *block = add(module, sc_func, nullptr);
        block->block.bl_func = add(module, sc_extern, name, first);
        block->block.bl_first = first;
        block->block.bl_last = last;
        return block;
    }

    static names names_of(const sdb_node *block)
    {
        names result;
        for (std::uint32_t i = 0; i < block->block.bl_count; ++i) {
            const char *name = block->block.bl_members[i]->sdb_name;
            result.emplace_back(name != nullptr ? name : "null");
        }
        return result;
    }
    // What raising traces, without the remarks of file identification.
    static log_lines traced_raising()
    {
        const trace_log log;
        sdb_raise_all_files();
        log_lines lines = trace_log::lines();
        std::erase_if(lines, [](const std::string &line) { return line.ends_with(" file"); });
        EXPECT_TRUE(trace_log::failed().empty());
        return lines;
    }
    static sdb_node *raised(const char *name) { return member(sdb_global, name); }
};

} // namespace

TEST_F(raising, needs_a_tree)
{
    sdb_global = nullptr;
    sdb_raise_all_files();
    EXPECT_EQ(sdb_global, nullptr);
}

TEST_F(raising, two_files_of_a_module_become_two_modules)
{
    add(sdb_global, sc_typedef, "i");
    sdb_node *old = add_module("/obj/main.obj");
    mark(old, "main.c", 1);
    sdb_node *x = add(old, sc_static, "x", 4);
    mark(old, "a.c", 1);
    sdb_node *y = add(old, sc_extern, "y", 2);

    sdb_raise_all_files();
    // Bucket 1 comes before bucket 22: it takes the old slot, and the other is appended.
    EXPECT_EQ(names_of(sdb_global), (names{"i", "a.c", "main.c"}));
    sdb_node *first = member(sdb_global, 1U);
    sdb_node *second = member(sdb_global, 2U);
    EXPECT_EQ(first->sdb_sclass, sc_module);
    EXPECT_EQ(first->sdb_parent, sdb_global);
    EXPECT_EQ(first->sdb_index, 1U);
    EXPECT_EQ(second->sdb_sclass, sc_module);
    EXPECT_EQ(second->sdb_parent, sdb_global);
    EXPECT_EQ(second->sdb_index, 2U);
    EXPECT_EQ(names_of(first), (names{"a.c", "y"}));
    EXPECT_EQ(names_of(second), (names{"main.c", "x"}));
    EXPECT_EQ(y->sdb_parent, first);
    EXPECT_EQ(y->sdb_index, 1U);
    EXPECT_EQ(x->sdb_parent, second);
    EXPECT_EQ(x->sdb_index, 1U);
    EXPECT_EQ(sdb_current, sdb_global);
}

TEST_F(raising, a_header_of_two_modules_is_one_module)
{
    sdb_node *one = add_module("one.obj");
    mark(one, "defs.h", 3);
    add(one, sc_typedef, "twice", 4);
    mark(one, "main.c", 9);
    add(one, sc_static, "m", 10);
    sdb_node *two = add_module("two.obj");
    mark(two, "defs.h", 3);
    add(two, sc_typedef, "twice", 4);
    mark(two, "a.c", 1);

    sdb_raise_all_files();
    EXPECT_EQ(names_of(sdb_global), (names{"a.c", "main.c", "defs.h"}));
    // The members of both, so names can repeat.
    EXPECT_EQ(names_of(raised("defs.h")), (names{"defs.h", "twice", "defs.h", "twice"}));
    EXPECT_EQ(names_of(raised("main.c")), (names{"main.c", "m"}));
    EXPECT_EQ(names_of(raised("a.c")), (names{"a.c"}));
}

TEST_F(raising, slots_follow_the_buckets_and_their_chains)
{
    // Old modules at the indices 0, 2 and 4; "b.c" and "/src/util.c" share a bucket and come in their order of entry.
    sdb_node *first = add_module("1.obj");
    mark(first, "/src/util.c");
    add(sdb_global, sc_typedef, "t1");
    sdb_node *second = add_module("2.obj");
    mark(second, "b.c");
    add(sdb_global, sc_typedef, "t2");
    sdb_node *third = add_module("3.obj");
    mark(third, "a.c");
    sdb_raise_all_files();
    EXPECT_EQ(names_of(sdb_global), (names{"a.c", "t1", "/src/util.c", "t2", "b.c"}));
    EXPECT_EQ(member(sdb_global, 4U)->sdb_index, 4U);
}

TEST_F(raising, the_class_tells_assembly_from_c)
{
    const scratch_dir folder;
    struct row {
        std::string name;
        sclass cls;
    };
    const std::vector<row> rows = {
        {"x.c", sc_module},
        {"x.C", sc_module},
        {"x.h", sc_module},
        {"x.H", sc_module},
        {"x.i", sc_module},
        {"x.I", sc_module},
        {".c", sc_module},
        {"C:\\src\\x.c", sc_module},
        {"x.as", sc_asmodule},
        {"x.asm", sc_asmodule},
        {"x.s", sc_asmodule},
        {"x.S", sc_asmodule},
        {"x.sx", sc_asmodule},
        {"x.inc", sc_asmodule},
        {"x.INC", sc_asmodule},
        // Not assembly by its class, but no C either.
        {"x.cpp", sc_asmodule},
        {"x.pre", sc_asmodule},
        {"x.unknown", sc_asmodule},
        {"x", sc_asmodule},
        {"c", sc_asmodule},
        {"xc", sc_asmodule},
        {"", sc_asmodule},
        {folder.write("y.unknown", "no such contents"), sc_asmodule},
    };
    sdb_node *old = add_module("x.obj");
    for (const row &r : rows) {
        mark(old, r.name.c_str());
    }
    sdb_raise_all_files();
    for (const row &r : rows) {
        const sdb_node *module = raised(r.name.c_str());
        ASSERT_NE(module, nullptr) << r.name;
        EXPECT_EQ(module->sdb_sclass, r.cls) << r.name;
    }
}

TEST_F(raising, assembly_modules_are_raised_too)
{
    sdb_node *old = add_module("start.obj", sc_asmodule);
    mark(old, "start.as", 0);
    mark(old, "boot.s", 0);
    sdb_raise_all_files();
    EXPECT_EQ(names_of(sdb_global), (names{"start.as", "boot.s"}));
    EXPECT_EQ(raised("start.as")->sdb_sclass, sc_asmodule);
    EXPECT_EQ(names_of(raised("start.as")), (names{"start.as"}));
}

TEST_F(raising, what_stands_before_the_first_mark_is_lost)
{
    sdb_node *old = add_module("main.obj");
    sdb_node *early = add(old, sc_static, "early", 1);
    mark(old, "main.c", 2);
    add(old, sc_static, "late", 3);
    // Of a second module, too: no file goes on from one to the next.
    sdb_node *other = add_module("other.obj");
    add(other, sc_static, "early2", 1);
    mark(other, "a.c", 2);
    const trace_log log;
    sdb_raise_all_files();
    EXPECT_EQ(names_of(raised("main.c")), (names{"main.c", "late"}));
    EXPECT_EQ(names_of(raised("a.c")), (names{"a.c"}));
    EXPECT_EQ(early->sdb_parent, old);
    EXPECT_TRUE(trace_log::failed().empty());
}

TEST_F(raising, what_is_no_declaration_stays_behind)
{
    for (const sclass cls :
         {sc_block, sc_auto, sc_param, sc_reg, sc_global, sc_module, sc_asmodule, sc_line, sc_null}) {
        sdb_reset();
        sdb_global = sdb_new_node(sc_module, "");
        sdb_node *old = add_module("main.obj");
        mark(old, "main.c", 2);
        sdb_node *lost = add(old, cls, "lost", 90);
        add(old, sc_static, "kept", 3);
        const trace_log log;
        sdb_raise_all_files();
        EXPECT_EQ(trace_log::failed(), log_lines{"0"}) << cls;
        EXPECT_EQ(names_of(raised("main.c")), (names{"main.c", "kept"})) << cls;
        EXPECT_EQ(raised("main.c")->block.bl_last, 3U) << cls;
        EXPECT_EQ(lost->sdb_parent, old) << cls;
    }
}

TEST_F(raising, every_declaration_moves)
{
    for (const sclass cls : {sc_func, sc_extern, sc_static, sc_typedef, sc_struct, sc_enum}) {
        sdb_reset();
        sdb_global = sdb_new_node(sc_module, "");
        sdb_node *old = add_module("main.obj");
        mark(old, "main.c", 2);
        sdb_node *moved = add(old, cls, "moved", 3);
        const trace_log log;
        sdb_raise_all_files();
        EXPECT_TRUE(trace_log::failed().empty()) << cls;
        EXPECT_EQ(moved->sdb_parent, raised("main.c")) << cls;
    }
}

TEST_F(raising, lines_of_a_module)
{
    sdb_node *old = add_module("main.obj");
    mark(old, "main.c", 10);
    EXPECT_EQ(add(old, sc_static, "below", 4)->sdb_line, 4U); // only marks lower the first line
    sdb_node *function = add_function(old, "f", 20, 35);      // a function counts with its last line
    function->sdb_line = 99;
    mark(old, "defs.h", 7);
    mark(old, "main.c", 30);
    mark(old, "defs.h", 2);
    sdb_raise_all_files();
    EXPECT_EQ(raised("main.c")->block.bl_first, 10U);
    EXPECT_EQ(raised("main.c")->block.bl_last, 35U);
    EXPECT_EQ(raised("defs.h")->block.bl_first, 2U);
    EXPECT_EQ(raised("defs.h")->block.bl_last, 7U);
}

TEST_F(raising, line_0_is_no_line_yet)
{
    sdb_node *old = add_module("main.obj");
    mark(old, "main.c", 0);
    mark(old, "main.c", 5);
    mark(old, "main.c", 8);
    sdb_raise_all_files();
    EXPECT_EQ(raised("main.c")->block.bl_first, 5U);
    EXPECT_EQ(raised("main.c")->block.bl_last, 8U);
}

TEST_F(raising, hashes_all_but_function_blocks)
{
    sdb_node *old = add_module("main.obj");
    sdb_node *file = mark(old, "main.c");
    sdb_node *first = add(old, sc_static, "x", 1);
    sdb_node *body = add_function(old, "f", 2, 3);
    sdb_node *second = add(old, sc_struct, "_x", 4); // the bucket passes over one "_"
    sdb_node *unrelated = sdb_new_node(sc_static, "x");
    first->sdb_chain = unrelated; // from its old module
    second->sdb_chain = unrelated;
    sdb_raise_all_files();

    sdb_node *module = raised("main.c");
    EXPECT_EQ(sdb_scope_lookup("x", module, module->block.bl_count), second);
    sdb_node *const *hash = module->block.bl_hash;
    ASSERT_NE(hash, nullptr);
    EXPECT_EQ(hash[sdb_name_bucket("x")], first);
    EXPECT_EQ(first->sdb_chain, second);
    EXPECT_EQ(second->sdb_chain, nullptr);
    EXPECT_EQ(hash[sdb_name_bucket("f")], body->block.bl_func);
    EXPECT_EQ(hash[sdb_name_bucket("main.c")], file);
    std::uint32_t hashed = 0;
    for (std::uint32_t i = 0; i < SDB_HASH_SIZE; ++i) {
        for (const sdb_node *node = hash[i]; node != nullptr; node = node->sdb_chain) {
            EXPECT_NE(node, body);
            ++hashed;
        }
    }
    EXPECT_EQ(hashed, 4U); // the mark, x, f, _x
    EXPECT_EQ(module->block.bl_count, 5U);
}

TEST_F(raising, look_ups_see_the_new_tree)
{
    sdb_node *old = add_module("main.obj");
    mark(old, "main.c");
    sdb_node *x = add(old, sc_static, "x", 1);
    EXPECT_EQ(found_by_index("main.obj"), old);
    sdb_raise_all_files();
    EXPECT_EQ(found_by_index("main.obj"), nullptr);
    EXPECT_EQ(sdb_find("main.obj"), nullptr);
    EXPECT_EQ(found_by_index("main.c"), raised("main.c"));
    EXPECT_EQ(found_by_index("x"), x);
    EXPECT_EQ(sdb_scope_lookup("x", raised("main.c"), 0), x);
}

TEST_F(raising, traces)
{
    add(sdb_global, sc_typedef, "i");
    sdb_node *one = add_module("one.obj");
    mark(one, "main.c", 7);
    add(one, sc_static, "x", 9);
    mark(one, "a.c", 1);
    mark(one, "main.c", 3);
    sdb_node *two = add_module("two.obj", sc_asmodule);
    const log_lines lines = traced_raising();
    const void *main_c = raised("main.c");
    const void *a_c = raised("a.c");
    EXPECT_EQ(lines, (log_lines{
                         line_of("current module (%p): one.obj (module) @ index 1", static_cast<void *>(one)),
                         line_of("Raisng sc_filename: main.c:7 to module (%p): lines 0-0 locals 0", main_c),
                         line_of("Raisng sc_filename: a.c:1 to module (%p): lines 0-0 locals 0", a_c),
                         line_of("Raisng sc_filename: main.c:3 to module (%p): lines 7-9 locals 2", main_c),
                         line_of("current module (%p): two.obj (asmodule) @ index 2", static_cast<void *>(two)),
                         line_of("replace one.obj (%p) with a.c (%p) at index 1", static_cast<void *>(one), a_c),
                         line_of("replace two.obj (%p) with main.c (%p) at index 2", static_cast<void *>(two), main_c),
                     }));
}

TEST_F(raising, traces_an_added_module)
{
    sdb_node *old = add_module("one.obj");
    mark(old, "main.c", 1);
    mark(old, "a.c", 1);
    const log_lines lines = traced_raising();
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[4], line_of("add new module: main.c (%p)", static_cast<void *>(raised("main.c"))));
}

TEST_F(raising, old_slots_left_over_are_taken_out)
{
    add(sdb_global, sc_typedef, "i");
    mark(add_module("1.obj"), "main.c");
    add_module("2.obj"); // holds no file
    add(sdb_global, sc_typedef, "between");
    mark(add_module("3.obj"), "main.c");
    add(sdb_global, sc_typedef, "behind");
    const trace_log log;
    sdb_raise_all_files();
    EXPECT_EQ(trace_log::failed(), log_lines{"hash_count(new_modules_hash) >= set_size(old_mod_idxs)"});
    EXPECT_EQ(names_of(sdb_global), (names{"i", "main.c", "between", "behind"}));
    EXPECT_EQ(names_of(raised("main.c")), (names{"main.c", "main.c"}));
    EXPECT_EQ(sdb_current, sdb_global);
    sdb_add_member(sdb_global, sdb_new_node(sc_typedef, "next"));
    EXPECT_EQ(names_of(sdb_global), (names{"i", "main.c", "between", "behind", "next"}));
}

TEST_F(raising, modules_without_any_file_vanish)
{
    add_module("1.obj");
    add_module("2.obj");
    sdb_raise_all_files();
    EXPECT_EQ(sdb_global->block.bl_count, 0U);
}

TEST_F(raising, a_mark_without_a_name_stays_behind)
{
    sdb_node *old = add_module("main.obj");
    mark(old, nullptr, 1);
    mark(old, "main.c", 2);
    mark(old, nullptr, 50);
    add(old, sc_static, "x", 3);
    const trace_log log;
    sdb_raise_all_files();
    EXPECT_EQ(trace_log::failed(), (log_lines{"filename != NULL", "filename != NULL"}));
    EXPECT_EQ(names_of(raised("main.c")), (names{"main.c", "x"}));
}

// Raised modules hold marks again: a second raising gives modules of the same members.
TEST_F(raising, twice)
{
    sdb_node *old = add_module("main.obj");
    mark(old, "main.c", 2);
    add(old, sc_static, "x", 3);
    mark(old, "a.c", 1);
    sdb_raise_all_files();
    const sdb_node *before = raised("main.c");
    sdb_raise_all_files();
    EXPECT_EQ(names_of(sdb_global), (names{"a.c", "main.c"}));
    EXPECT_NE(raised("main.c"), before);
    EXPECT_EQ(names_of(raised("main.c")), (names{"main.c", "x"}));
    EXPECT_EQ(raised("main.c")->block.bl_first, 2U);
    EXPECT_EQ(raised("main.c")->block.bl_last, 3U);
}

TEST_F(database, is_raised_as_it_was_read)
{
    read("\"1 main.c\n[v _x _x `i 1 s 2 @16 ]\n\"1 defs.h\n[v _y _y `i 1 s 2 @20 ]\n\"5 main.c\n"
         "[v _f _f `(v 1 e 0 @32 ]\n{\n\"6\n}\n0\n");
    sdb_raise_all_files();
    const sdb_node *main_c = member(sdb_global, "main.c");
    const sdb_node *defs_h = member(sdb_global, "defs.h");
    ASSERT_NE(main_c, nullptr);
    ASSERT_NE(defs_h, nullptr);
    EXPECT_EQ(main_c->sdb_sclass, sc_module);
    ASSERT_NE(member(main_c, "_x"), nullptr);
    ASSERT_NE(member(main_c, "_f"), nullptr);
    ASSERT_NE(member(main_c, sc_func), nullptr);
    EXPECT_EQ(member(main_c, sc_func)->sdb_parent, main_c);
    EXPECT_EQ(member(main_c, sc_func)->block.bl_func, member(main_c, "_f"));
    EXPECT_NE(member(defs_h, "_y"), nullptr);
    EXPECT_EQ(main_c->block.bl_first, 1U);
    EXPECT_EQ(main_c->block.bl_last, 6U);
}

namespace {

// What raising makes of modules, each a list of marks ("f<n>.c") and other names, in the plainest way: the files in
// the order of bucket and entry, with the names under each.
struct plain_tree {
    std::vector<std::string> files;
    std::map<std::string, names> members;
};

std::uint32_t plain_bucket(const std::string &name)
{
    std::uint32_t hash = 5381;
    for (const char c : name) {
        hash = hash * 33 + static_cast<std::uint32_t>(static_cast<signed char>(c));
    }
    return hash % 127;
}

bool is_file(const std::string &name)
{
    return name.ends_with(".c");
}

plain_tree raise_plainly(const std::vector<names> &modules)
{
    plain_tree tree;
    names entered;
    for (const names &module : modules) {
        std::string target;
        for (const std::string &name : module) {
            if (is_file(name)) {
                target = name;
                if (!tree.members.contains(name)) {
                    entered.push_back(name);
                }
            }
            if (!target.empty()) {
                tree.members[target].push_back(name);
            }
        }
    }
    for (std::uint32_t bucket = 0; bucket < 127; ++bucket) {
        for (const std::string &name : entered) {
            if (plain_bucket(name) == bucket) {
                tree.files.push_back(name);
            }
        }
    }
    return tree;
}

} // namespace

TEST_F(raising, agrees_with_the_plain_way)
{
    random_numbers random(23);
    for (int round = 0; round < 60; ++round) {
        sdb_reset();
        sdb_global = sdb_new_node(sc_module, "");
        std::vector<names> modules(1 + random() % 100);
        names expected;      // members of the root
        std::size_t old = 0; // of them modules
        for (names &module : modules) {
            if (random() % 4 == 0) {
                add(sdb_global, sc_typedef, "t");
                expected.emplace_back("t");
            }
            sdb_node *node = add_module("old");
            expected.emplace_back();
            ++old;
            for (std::uint32_t n = random() % 12; n > 0; --n) {
                const bool file = random() % 3 == 0;
                module.push_back((file ? "f" : "v") + std::to_string(random() % 200) + (file ? ".c" : ""));
                add(node, file ? sc_filename : sc_static, module.back().c_str(), 1);
            }
        }
        const plain_tree plain = raise_plainly(modules);
        std::size_t next = 0;
        for (std::size_t i = 0; i < expected.size();) {
            if (expected[i].empty() && next == plain.files.size()) {
                expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(i));
                continue;
            }
            if (expected[i].empty()) {
                expected[i] = plain.files[next++];
            }
            ++i;
        }
        expected.insert(expected.end(), plain.files.begin() + static_cast<std::ptrdiff_t>(next), plain.files.end());

        sdb_raise_all_files();
        ASSERT_EQ(names_of(sdb_global), expected);
        for (const auto &[file, members] : plain.members) {
            ASSERT_EQ(names_of(raised(file.c_str())), members);
        }
    }
}

// Tens of thousands of members and files take no time to speak of.
TEST_F(raising, of_a_large_tree)
{
    constexpr std::uint32_t MODULES = 5000;
    constexpr std::uint32_t MEMBERS = 40;
    for (std::uint32_t i = 0; i < MODULES; ++i) {
        sdb_node *old = add_module("old");
        mark(old, "defs.h", 1);
        for (std::uint32_t n = 0; n < MEMBERS; ++n) {
            add(old, sc_typedef, "t", n);
        }
        mark(old, line_of("f%u.c", i).c_str(), 1);
        add(old, sc_static, "x", 5);
    }
    sdb_raise_all_files();
    EXPECT_EQ(sdb_global->block.bl_count, MODULES + 1);
    EXPECT_EQ(raised("defs.h")->block.bl_count, MODULES * (MEMBERS + 1));
    EXPECT_EQ(names_of(raised("f4999.c")), (names{"f4999.c", "x"}));
    for (std::uint32_t i = 0; i < MODULES + 1; ++i) {
        ASSERT_EQ(member(sdb_global, i)->sdb_index, i);
    }
}
