// SPDX-License-Identifier: MIT
// Joining bit variables, and writing their groups.
#include "compiler/tarnwick/coff_bits.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "common/stringcache.h"
#include "compiler/tarnwick/coff.h"
#include "compiler/tarnwick/coff_file.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"

namespace {

constexpr std::uint32_t BYTE_BITS = 8;
constexpr std::uint32_t ABSOLUTE_SECTION = 1;

bool is_reversed(std::string_view reversed, std::string_view text)
{
    return reversed.size() == text.size() && std::equal(text.begin(), text.end(), reversed.rbegin());
}

// One word's bits while they are written.
class group_writer {
public:
    explicit group_writer(coff_tables *tables) : tables_(tables), unit_bits_(coff.ram_unit * BYTE_BITS) {}

    void add(std::uint32_t key, const sdb_node *node)
    {
        if (groups_ == 0 || key / unit_bits_ != last_ / unit_bits_) {
            close();
            open();
        }
        const std::uint32_t offset = key % unit_bits_;
        if (pos_ < offset) {
            coff_append_marker(tables_, "-", member(), {.size = offset - pos_});
            pos_ = offset;
        }
        add_member(node);
        ++pos_;
        last_ = key;
    }

    void close()
    {
        if (groups_ == 0) {
            return;
        }
        const std::uint32_t end =
            coff_append_marker(tables_, ".eos", {.section = COFF_SECTION_DEBUG_END, .cls = CSC_END_OF_STRUCT},
                               {.tag = tag_, .size = coff.ram_unit});
        coff_close(tables_, tag_, end);
        vcoff_bit_var();
    }

private:
    void open()
    {
        ++groups_;
        pos_ = 0;
        tag_ = coff_append_marker(tables_, nullptr, {.section = COFF_SECTION_DEBUG, .cls = CSC_STRUCT_TAG},
                                  {.size = coff.ram_unit});
    }

    coff_symbol member() const
    {
        return {.value = pos_, .section = COFF_SECTION_DEBUG, .type = CBT_UCHAR, .cls = CSC_BIT_FIELD};
    }

    void add_member(const sdb_node *node)
    {
        coff_entry entry = coff_make_symbol(member());
        if (node->sdb_sclass == sc_static && node->var.va_asmname != nullptr) {
            coff_put_name(tables_, entry.data(), node->var.va_asmname);
        } else {
            vcoff_set_name(tables_, &entry, node->sdb_name);
        }
        coff_append(tables_, entry, coff_make_aux({.size = 1}));
        // No symbol bears a joined name, so the variables behind one come out as labels as well.
        if (tarn_symbol *sp = tarn_find_symbol(node->sdb_name)) {
            sp->sy_flags |= SYM_DONE;
        }
    }

    // The variable that stands for the word.
    void vcoff_bit_var()
    {
        const std::uint32_t address = last_ / unit_bits_;
        const char *prefix = opt_strip_underscore ? "" : "_";
        const tarn_symbol *sp = address != 0 ? tarn_find_symbol_at(address) : nullptr;
        const std::string name = sp != nullptr ? std::string(prefix) + sp->sy_name + "bits"
                                               : std::string(prefix) + "bitvars" + std::to_string(groups_);
        coff_append_marker(tables_, name.c_str(),
                           {.value = address, .section = ABSOLUTE_SECTION, .type = CBT_STRUCT, .cls = CSC_EXTERNAL},
                           {.tag = tag_, .size = coff.ram_unit});
    }

    coff_tables *tables_;
    std::uint32_t unit_bits_;
    std::uint32_t groups_ = 0; // opened so far
    std::uint32_t tag_ = 0;
    std::uint32_t last_ = 0; // bit address of the last member
    std::uint32_t pos_ = 0;  // bit of the word behind it
};

} // namespace

void coff_bits::vcoff_bit_add(sdb_node *node, std::uint32_t address)
{
    const auto [place, is_new] = bit_table_.try_emplace(address, node);
    sdb_node *first = place->second;
    if (is_new || first == node) {
        return;
    }
    const std::string_view name = name_of(node);
    const auto joined = joined_.find(first);
    if (joined == joined_.end() ? name == first->sdb_name : is_reversed(joined->second, name)) {
        return;
    }
    std::string &reversed = joined_[first];
    if (joined == joined_.end()) {
        reversed.assign(std::string_view(first->sdb_name).rbegin(), std::string_view(first->sdb_name).rend());
    }
    if (opt_strip_underscore && reversed.ends_with('_')) {
        reversed.pop_back();
    }
    reversed.push_back('/');
    reversed.append(name.rbegin(), name.rend());
}

const char *coff_bits::name_of(sdb_node *node)
{
    const auto joined = joined_.find(node);
    if (joined != joined_.end()) {
        node->sdb_name = str_cache(std::string_view(std::string(joined->second.rbegin(), joined->second.rend())));
        sdb_tree_changed();
        joined_.erase(joined);
    }
    return node->sdb_name;
}

void coff_bits::write_groups(coff_tables *tables)
{
    group_writer writer(tables);
    for (const auto &[address, node] : bit_table_) {
        name_of(node);
        writer.add(address, node);
    }
    writer.close();
}
