// SPDX-License-Identifier: MIT
// Entries of a COFF symbol table, their names and the string table.
#include "compiler/tarnwick/coff_symbols.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "common/texthash.h"
#include "compiler/tarnwick/encdec.h"
#include "compiler/tarnwick/options.h"

namespace {

// Numbers all made-up names of a run, whatever output and table they are for; it is never reset.
std::uint32_t name_counter = 0;

struct generated_name {
    char text[16];
};

generated_name generate_name()
{
    generated_name name{};
    std::snprintf(name.text, sizeof name.text, ".u%d", static_cast<std::int32_t>(name_counter++));
    return name;
}

} // namespace

std::uint32_t vcoff_string_offset(coff_tables *tables, const char *text)
{
    std::string &strings = tables->coff_strings;
    const std::uint32_t hash = hash_text(text);
    const std::size_t known = tables->string_offsets.find(hash, [&strings, text](std::size_t offset) {
        return std::strcmp(strings.c_str() + (offset - COFF_STRING_TABLE_START), text) == 0;
    });
    if (known != 0) {
        return static_cast<std::uint32_t>(known);
    }
    const std::size_t offset = COFF_STRING_TABLE_START + strings.size();
    strings.append(text).push_back('\0');
    tables->string_offsets.add(hash, offset);
    return static_cast<std::uint32_t>(offset);
}

void coff_put_name(coff_tables *tables, std::uint8_t *field, const char *text)
{
    const generated_name generated = text == nullptr ? generate_name() : generated_name{};
    const char *name = text == nullptr ? generated.text : text;
    const std::size_t length = std::strlen(name);
    if (length > COFF_NAME_SIZE) {
        put32(field + CSY_STRING, vcoff_string_offset(tables, name));
    } else {
        std::copy_n(name, length, field); // one that fills the field has no terminator
    }
}

void vcoff_set_name(coff_tables *tables, coff_entry *entry, const char *text)
{
    if (opt_strip_underscore && text != nullptr && text[0] == '_') {
        ++text;
    }
    coff_put_name(tables, entry->data(), text);
}

coff_entry coff_make_symbol(const coff_symbol &symbol)
{
    coff_entry entry{};
    put32(entry.data() + CSY_VALUE, symbol.value);
    put16(entry.data() + CSY_SECTION, static_cast<std::uint16_t>(symbol.section));
    put32(entry.data() + CSY_TYPE, symbol.type);
    put8(entry.data() + CSY_CLASS, symbol.cls);
    return entry;
}

coff_entry coff_make_aux(const coff_aux &aux)
{
    coff_entry entry{};
    put32(entry.data() + CAX_TAG, aux.tag);
    put16(entry.data() + CAX_LINE, static_cast<std::uint16_t>(aux.line));
    put16(entry.data() + CAX_SIZE, static_cast<std::uint16_t>(aux.size));
    return entry;
}

std::uint32_t coff_append(coff_tables *tables, const coff_entry &symbol)
{
    const auto index = static_cast<std::uint32_t>(tables->coff_symbols.size());
    tables->coff_symbols.push_back(symbol);
    return index;
}

std::uint32_t coff_append(coff_tables *tables, coff_entry symbol, const coff_entry &aux)
{
    put8(symbol.data() + CSY_AUX, 1);
    const std::uint32_t index = coff_append(tables, symbol);
    tables->coff_symbols.push_back(aux);
    return index;
}

std::uint32_t coff_append_marker(coff_tables *tables, const char *name, const coff_symbol &symbol)
{
    coff_entry entry = coff_make_symbol(symbol);
    coff_put_name(tables, entry.data(), name);
    return coff_append(tables, entry);
}

std::uint32_t coff_append_marker(coff_tables *tables, const char *name, const coff_symbol &symbol, const coff_aux &aux)
{
    coff_entry entry = coff_make_symbol(symbol);
    coff_put_name(tables, entry.data(), name);
    return coff_append(tables, entry, coff_make_aux(aux));
}

void coff_close(coff_tables *tables, std::uint32_t opening, std::uint32_t closing)
{
    put32(tables->coff_symbols[opening + 1].data() + CAX_ENDNDX, closing + 1);
}
