// SPDX-License-Identifier: MIT
// What the tests of types, machines and the symbol database share.
#pragma once

#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "compiler/tarnwick/sdb.h"
#include "compiler/tarnwick/sdb_reader.h"
#include "tests/unit/common/scratch_dir.h"
#include "tests/unit/scenario.h"

// What a function prints on the standard error stream.
inline std::string errors_of(const std::function<void()> &function)
{
    testing::internal::CaptureStderr();
    function();
    return testing::internal::GetCapturedStderr();
}

// The node of one name, as those with many names get it.
inline sdb_node *found_by_index(const char *name)
{
    return sdb_find_all({name}).front();
}

// A database in a folder of its own, read from text, with nothing read before it.
class database : public testing::Test {
public:
    // What a database of the standard family begins with.
    static constexpr const char *KOR_PREFIX = "[p AVOCET KORM ]\n";

    database()
    {
        sdb_reset();
        if (!symbol_list) {
            model_create();
        }
        opt_verbose = 0;
        opt_fake_blocks = false;
        processor_name = nullptr;
        set_maxerrors(1000000);
        alert_set_level(-9);
    }
    ~database() override { sdb_reset(); }

    // Reads `text`, behind a prefix list, as the database of a new module.
    sdb_node *read(std::string_view text, const char *prefix = KOR_PREFIX)
    {
        const std::string name = std::string("m").append(std::to_string(++count_));
        path_ = folder_.write(name + ".sdb", std::string(prefix) + std::string(text));
        return sdb_read(folder_.path(name + ".obj").c_str());
    }
    // The absolute path of the database read last.
    const std::string &path() const { return path_; }
    const scratch_dir &folder() const { return folder_; }

    // Chooses the machine without a database.
    static void choose(const machine_description &description)
    {
        processor_name = &description == &machkorh ? "H1A" : "KOR18";
        const auto none = vector_of<const char *>::make();
        ASSERT_TRUE(machine_init(none));
        vector_of<const char *>(none).free();
    }

    // A symbol of the program model; a second of a name in one process keeps the first's value.
    static void add_symbol(const char *name, std::uint32_t value, std::uint32_t space)
    {
        tarn_symbol *known = tarn_find_symbol(name);
        if (known != nullptr) {
            known->sy_value = value;
            known->sy_space = space;
            return;
        }
        tarn_symbol record;
        record.sy_name = name;
        record.sy_value = value;
        record.sy_space = space;
        tarn_add_symbol(record);
    }

private:
    scratch_dir folder_;
    std::string path_;
    int count_ = 0;
};

// Reads a database in a process of its own and compares what is printed, to the byte, and the exit status. "%PATH%" in
// `errors` stands for the path of the database. `prepare` runs ahead of the reading, `finish` after it.
inline void expect_database_run(
    const std::string &name, const std::string &text, std::string errors, int status, void (*prepare)() = [] {},
    void (*finish)() = [] {})
{
    const std::string stem = testing::TempDir() + "tarnwick_sdb_" + name;
    for (std::size_t at = 0; (at = errors.find("%PATH%", at)) != std::string::npos;) {
        errors.replace(at, std::strlen("%PATH%"), stem + ".sdb");
    }
    expect_run(
        [&] {
            write_file(stem + ".sdb", text);
            model_create();
            prepare();
            sdb_read((stem + ".obj").c_str());
            finish();
        },
        errors, status);
    std::filesystem::remove(stem + ".sdb");
}

inline sdb_node *member(const sdb_node *block, std::uint32_t index)
{
    return index < block->block.bl_count ? block->block.bl_members[index] : nullptr;
}

// The `nth` member of this name; null when there are not so many.
inline sdb_node *member(const sdb_node *block, const char *name, int nth = 1)
{
    for (std::uint32_t i = 0; i < block->block.bl_count; ++i) {
        sdb_node *node = block->block.bl_members[i];
        if (node->sdb_name != nullptr && std::strcmp(node->sdb_name, name) == 0 && --nth == 0) {
            return node;
        }
    }
    return nullptr;
}

// The `nth` member of this class.
inline sdb_node *member(const sdb_node *block, sclass cls, int nth = 1)
{
    for (std::uint32_t i = 0; i < block->block.bl_count; ++i) {
        sdb_node *node = block->block.bl_members[i];
        if (node->sdb_sclass == cls && --nth == 0) {
            return node;
        }
    }
    return nullptr;
}

inline const sdb_location *location(const sdb_node *variable, std::uint32_t index = 0)
{
    return variable->var.va_locations.get(index);
}

// A type as text: for each element from the top down its kind's letter and its value.
inline std::string type_text(const type_record *tp)
{
    std::string text;
    if (tp == nullptr) {
        return "null";
    }
    for (std::uint32_t i = tp->ty_cnt; i-- > 0;) {
        const type_element &te = tp->elements[i];
        text += i + 1 < tp->ty_cnt ? " " : "";
        const std::string name = te.te_name != nullptr ? te.te_name : "";
        switch (te.te_kind) {
        case ty_basic:
            text += name;
            break;
        case ty_func:
            text += name;
            break;
        case ty_ptr:
            text += name + "<" + std::to_string(te.ptr_class) + ">";
            break;
        case ty_enum:
            text += "enum:" + name;
            break;
        case ty_struct:
            text += "struct:" + name;
            break;
        case ty_array:
            text += name + "<" + std::to_string(te.dimension) + ">";
            break;
        case ty_qual: {
            char mask[20];
            std::snprintf(mask, sizeof mask, "<%llX>", static_cast<unsigned long long>(te.mask));
            text += name + mask;
            break;
        }
        default:
            text += "?";
            break;
        }
    }
    return text;
}
