// SPDX-License-Identifier: MIT
// Type entries of many types that lead to each other, beside those that plain walks and recursion give.
#include <deque>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/alloc.h"
#include "common/stringcache.h"
#include "compiler/common/pointers.h"
#include "tests/unit/tarnwick/dwarf_types_testing.h"
#include "tests/unit/tarnwick/random_numbers.h"

namespace {

using namespace dwarf_types_testing;

// Types as they are defined: plain walks of two lists, and recursion.
class plain_types {
public:
    struct known {
        const char *id;
        const type_record *record;
        const type_element *type;
        std::uint32_t ref = 0;
        bool referenced = false;
    };

    explicit plain_types(compile_unit_handle cu) : cu_(cu) {}
    plain_types(plain_types &&) = default;

    void add_global(const char *id, const type_record *record)
    {
        globals_.push_back(&all_.emplace_back(known{id, record, &record->elements[0]}));
    }

    known *do_type(const type_record *record, const type_element *ti, bool can_create)
    {
        if (ti == nullptr) {
            return nullptr;
        }
        const char *id = str_cache(plain_id(ti));
        known *dt = find(id);
        if (dt != nullptr && dt->ref != 0) {
            return dt;
        }
        if (dt == nullptr) {
            dt = &all_.emplace_back(known{id, record, ti});
            units_.push_back(dt);
        }
        dt->referenced = true;
        if (!can_create) {
            has_delayed = true;
            return dt;
        }
        return emit(dt);
    }

    bool create_delayed(bool global)
    {
        for (known *dt : global ? globals_ : units_) {
            if (dt->ref == 0 && dt->referenced && !is_void(dt->type)) {
                do_type(dt->record, dt->type, true);
                if (dt->ref == 0) {
                    dt->referenced = false;
                }
                return true;
            }
        }
        return false;
    }

    bool has_delayed = false;

private:
    static bool is_void(const type_element *te) { return te->te_kind == ty_basic && te->basic.te_class == TE_VOID; }
    static const type_element *below(const type_element *te) { return te->te_index > 0 ? te - 1 : nullptr; }

    known *find(const char *id) const
    {
        for (const std::vector<known *> *list : {&globals_, &units_}) {
            for (known *dt : *list) {
                if (dt->id == id) {
                    return dt;
                }
            }
        }
        return nullptr;
    }

    known *emit(known *dt)
    {
        switch (dt->type->te_kind) {
        case ty_basic:
            return emit_base(dt);
        case ty_func:
            return emit_function(dt);
        case ty_ptr:
            return emit_pointer(dt);
        case ty_array:
            return emit_array(dt);
        case ty_qual:
            return emit_qualifier(dt);
        default:
            return emit_struct(dt);
        }
    }

    known *emit_base(known *dt)
    {
        if (is_void(dt->type)) {
            return nullptr;
        }
        // The only base types of this test are int and bits.
        const bool bit = isBitType(dt->type);
        const std::uint32_t abbrev = dwarf_abbrev_get_basic_type_entry(bit);
        dt->ref = dwarf_info_finish_basic_type_entry(dwarf_info_start_basic_type_entry(
            cu_, abbrev, bit ? "bit" : "int", dt->id, bit ? 1 : 2, bit ? 7 : 5, bit, dt->type->basic.te_bitpos));
        return dt;
    }

    known *emit_function(known *dt)
    {
        const known *ret = do_type(dt->record, below(dt->type), true);
        const bool has_type = ret != nullptr && !is_void(ret->type);
        const std::uint32_t abbrev = dwarf_abbrev_get_subroutine_type_entry(false, has_type);
        dt->ref = dwarf_info_finish_subroutine_entry(
            dwarf_info_start_subroutine_entry(cu_, abbrev, dt->id, has_type ? ret->id : nullptr, false), false);
        return dt;
    }

    known *emit_pointer(known *dt)
    {
        const known *target = do_type(dt->record, below(dt->type), true);
        const std::uint32_t abbrev = dwarf_abbrev_get_pointer_type_entry(target != nullptr);
        const auto size = static_cast<std::uint8_t>(machine->mc_type_size(dt->record, dt->type));
        dt->ref = dwarf_info_finish_pointer_type_entry(dwarf_info_start_pointer_type_entry(
            cu_, abbrev, dt->id, target != nullptr ? target->id : nullptr, size, 0));
        return dt;
    }

    known *emit_array(known *dt)
    {
        const type_element *te = dt->type;
        while (te != nullptr && te->te_kind == ty_array) {
            te = below(te);
        }
        const known *target = do_type(dt->record, te, true);
        if (target == nullptr) {
            return nullptr;
        }
        dwarf_entry_info *entry =
            dwarf_info_start_array_type_entry(cu_, dwarf_abbrev_get_array_type_entry(), dt->id, target->id);
        const std::uint32_t abbrev = dwarf_abbrev_get_subrange_entry();
        for (te = dt->type; te != nullptr && te->te_kind == ty_array; te = below(te)) {
            dwarf_info_finish_subrange_entry(
                dwarf_info_start_subrange_entry(cu_, abbrev, static_cast<std::uint32_t>(te->dimension - 1)));
        }
        dt->ref = dwarf_info_finish_array_type_entry(entry);
        return dt;
    }

    known *emit_qualifier(known *dt)
    {
        known *child = do_type(dt->record, below(dt->type), true);
        std::vector<std::uint32_t> abbrevs;
        const auto mask = static_cast<std::uint32_t>(dt->type->mask);
        if ((mask & 2) != 0) {
            abbrevs.push_back(dwarf_abbrev_get_volatile_type_entry((mask & 0x400000) != 0 || child != nullptr));
        }
        if ((mask & 0x400000) != 0) {
            abbrevs.push_back(dwarf_abbrev_get_const_type_entry(child != nullptr));
        }
        if (abbrevs.empty()) {
            dt->referenced = false;
            if (child != nullptr) {
                dwarf_info_redirect_references(cu_, dt->id, child->ref);
            }
            return child;
        }
        dt->ref = dwarf_info_finish_qualified_type_entry(
            dwarf_info_start_qualified_type_entry(cu_, abbrevs, dt->id, child != nullptr ? child->id : nullptr));
        return dt;
    }

    known *emit_struct(known *dt)
    {
        const sdb_node *node = dt->type->node;
        const sdb_struct &st = node->structure;
        const std::uint32_t abbrev = dwarf_abbrev_get_structure_type_entry(st.st_count != 0, false, 4);
        dwarf_entry_info *entry =
            dwarf_info_start_compound_type(cu_, abbrev, st.st_count != 0, nullptr, dt->id, 4, 0, 0);
        dt->ref = dwarf_info_entry_offset(entry);
        for (std::uint32_t i = 0; i < st.st_count; ++i) {
            const std::uint32_t member_abbrev = dwarf_abbrev_get_member_entry(false, false);
            const type_record *record = st.st_members[i].sm_type;
            const known *member_type = do_type(record, type_top(record), false);
            dwarf_info_finish_member_entry(
                dwarf_info_start_member_entry(cu_, member_abbrev, "m", member_type->id, 0, 0, 0, 0, false));
        }
        dwarf_info_finish_compound_type_entry(entry, st.st_count != 0);
        return dt;
    }

    compile_unit_handle cu_;
    std::deque<known> all_;
    std::vector<known *> globals_;
    std::vector<known *> units_;
};

// A pile of types that lead to each other, and a series of uses of them.
struct use_of_type {
    type_record *record;
    bool at_unit_level;
    bool then_delayed;
};

std::vector<use_of_type> random_uses(random_numbers &random)
{
    constexpr std::uint32_t STRUCTS = 12;
    std::vector<sdb_node *> structs;
    for (std::uint32_t i = 0; i < STRUCTS; ++i) {
        structs.push_back(sdb_new_node(sc_struct, str_printf("S%u", i)));
        structs.back()->structure.st_size = 4;
    }
    const auto any_type = [&] {
        std::vector<type_element> elements;
        bool qualified = false;
        for (std::uint32_t i = random() % (random() % 20 == 0 ? 90 : 5); i > 0; --i) {
            static const type_element ABOVE[] = {element(ty_ptr, "*"),
                                                 element(ty_array, "[2]", 2),
                                                 element(ty_array, "[3]", 3),
                                                 element(ty_func, "("),
                                                 element(ty_qual, "N", 8),
                                                 element(ty_qual, "V", 2),
                                                 element(ty_qual, "CV", 0x400002)};
            const type_element &te = ABOVE[random() % std::size(ABOVE)];
            if (te.te_kind != ty_qual || !qualified) { // the reader joins qualifiers
                elements.push_back(te);
            }
            qualified = te.te_kind == ty_qual;
        }
        const std::uint32_t base = random() % (STRUCTS + 4);
        if (base < STRUCTS) {
            type_element te = element(ty_struct, structs[base]->sdb_name);
            te.node = structs[base];
            elements.push_back(te);
        } else if (base == STRUCTS) {
            elements.push_back(basic("v", TE_VOID, 2));
        } else if (base == STRUCTS + 1) {
            elements.push_back(basic("b", TE_BIT, 0, static_cast<std::uint8_t>(random() % 2)));
        } else {
            elements.push_back(PLAIN_INT);
        }
        return type_of(elements);
    };
    for (sdb_node *node : structs) {
        node->structure.st_count = random() % 4;
        node->structure.st_members = static_cast<sdb_member *>(xarena(4 * sizeof(sdb_member), alignof(sdb_member)));
        for (std::uint32_t i = 0; i < node->structure.st_count; ++i) {
            node->structure.st_members[i].sm_name = "m";
            node->structure.st_members[i].sm_type = any_type();
        }
    }
    std::vector<use_of_type> uses;
    for (std::uint32_t i = 0; i < 30; ++i) {
        uses.push_back({any_type(), random() % 2 != 0, random() % 3 == 0});
    }
    return uses;
}

// What a unit of these uses holds. `note` gives the id to refer to, or null; `delayed` writes what waits.
template <typename Types, typename Note, typename Delayed>
bytes unit_of_uses(const std::vector<use_of_type> &uses, Types make_types, Note note, Delayed delayed)
{
    debug_sections sections;
    const compile_unit_handle cu = dwarf_info_start_compile_unit(2, 0, 4);
    auto types = make_types(cu);
    for (const use_of_type &use : uses) {
        const char *id = note(types, use, cu);
        if (id != nullptr) {
            dwarf_info_finish_variable_entry(dwarf_info_start_variable_entry_no_location(
                cu, dwarf_abbrev_get_variable_entry(false, false, 0), "v", 1, 1, id, false, false));
        }
        if (use.then_delayed) {
            delayed(types, cu);
        }
    }
    delayed(types, cu);
    dwarf_info_finish_compile_unit(cu);
    sections.finish();
    return joined({sections.info.added(), sections.abbreviations()});
}

class many_types : public single_type {};

TEST_F(many_types, are_written_as_plain_walks_would)
{
    choose(machkor);
    random_numbers random(11);
    type_record *plain_int = type_of({PLAIN_INT});
    std::size_t total = 0;
    for (int round = 0; round < 200; ++round) {
        const std::vector<use_of_type> uses = random_uses(random);
        const bytes indexed = unit_of_uses(
            uses,
            [&](compile_unit_handle) {
                dtype_reset();
                dtype_add(str_cache("i"), plain_int, type_top(plain_int), true);
                return 0;
            },
            [](int, const use_of_type &use, compile_unit_handle cu) {
                const dtype *dt = do_type(use.record, type_top(use.record), use.at_unit_level, cu);
                return dt != nullptr ? dt->dt_id : nullptr;
            },
            [](int, compile_unit_handle cu) {
                do {
                    has_delayed_types = false;
                    while (create_delayed_types(true, cu)) {
                    }
                    while (create_delayed_types(false, cu)) {
                    }
                } while (has_delayed_types);
            });
        const bytes plain = unit_of_uses(
            uses,
            [&](compile_unit_handle cu) {
                plain_types types(cu);
                types.add_global(str_cache("i"), plain_int);
                return types;
            },
            [](plain_types &types, const use_of_type &use, compile_unit_handle) {
                const plain_types::known *dt = types.do_type(use.record, type_top(use.record), use.at_unit_level);
                return dt != nullptr ? dt->id : nullptr;
            },
            [](plain_types &types, compile_unit_handle) {
                do {
                    types.has_delayed = false;
                    while (types.create_delayed(true)) {
                    }
                    while (types.create_delayed(false)) {
                    }
                } while (types.has_delayed);
            });
        ASSERT_EQ(hex(indexed), hex(plain)) << "round " << round;
        total += indexed.size();
    }
    EXPECT_GT(total, 50000U);
}

} // namespace
