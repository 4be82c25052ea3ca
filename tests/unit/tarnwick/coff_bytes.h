// SPDX-License-Identifier: MIT
// COFF files put together byte by byte in tests, with an encoding of their own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace coff_bytes {

inline std::string le16(std::uint32_t value)
{
    return {static_cast<char>(value & 0xFF), static_cast<char>(value >> 8 & 0xFF)};
}

inline std::string le32(std::uint32_t value)
{
    return le16(value & 0xFFFF) + le16(value >> 16);
}

inline std::string zeros(std::size_t count)
{
    return std::string(count, '\0');
}

// A name field: the name itself, padded; of a longer name the first eight characters.
inline std::string short_name(std::string name)
{
    name.resize(8);
    return name;
}

// A name field that holds an offset in the string table.
inline std::string long_name(std::uint32_t offset)
{
    return le32(0) + le32(offset);
}

// A string table; the first string has offset 4.
inline std::string string_table(const std::vector<std::string> &strings)
{
    std::string text;
    for (const std::string &string : strings) {
        text += string + '\0';
    }
    return le32(static_cast<std::uint32_t>(text.size()) + 4) + text;
}

inline std::string optional_header(std::uint32_t rom_width, std::uint32_t ram_width, std::uint32_t processor = 0,
                                   std::uint32_t version = 24600, std::uint32_t magic = 5000)
{
    return le16(magic) + le32(version) + le32(processor) + le32(rom_width) + le32(ram_width);
}

struct section_fields {
    std::string name = short_name("code");
    std::uint32_t paddr = 0;
    std::uint32_t size = 0;
    std::uint32_t scnptr = 0;
    std::uint32_t relptr = 0;
    std::uint32_t lnnoptr = 0;
    std::uint32_t relocs = 0;
    std::uint32_t lines = 0;
    std::uint32_t flags = 0x20;

    std::string bytes() const
    {
        return name + le32(paddr) + le32(0) + le32(size) + le32(scnptr) + le32(relptr) + le32(lnnoptr) + le16(relocs) +
               le16(lines) + le32(flags);
    }
};

struct symbol_fields {
    std::string name = short_name("n");
    std::uint32_t value = 0;
    std::uint32_t section = 0;
    std::uint32_t type = 0;
    std::uint32_t cls = 0;
    std::uint32_t aux = 0;

    std::string bytes() const
    {
        return name + le32(value) + le16(section) + le32(type) + static_cast<char>(cls) + static_cast<char>(aux);
    }
};

// An auxiliary entry with bytes from some position on, all others 0.
inline std::string aux_with(std::size_t position, const std::string &bytes)
{
    return zeros(position) + bytes + zeros(20 - position - bytes.size());
}

inline std::string line_record(std::uint32_t line, std::uint32_t paddr, std::uint32_t srcndx = 0,
                               std::uint32_t flags = 0, std::uint32_t fcnndx = 0)
{
    return le32(srcndx) + le16(line) + le32(paddr) + le16(flags) + le32(fcnndx);
}

// A file: header, optional header, section headers, whatever lies between, symbols, strings.
struct file_fields {
    std::string magic = "\x40\x12";
    std::uint32_t dated = 0;
    std::uint32_t flags = 2;
    std::string optional = optional_header(8, 8);
    std::optional<std::uint32_t> opthdr{}; // else the size of `optional`
    std::vector<section_fields> sections{};
    std::optional<std::uint32_t> section_count{}; // else that of `sections`
    std::string between{};                        // data and lines
    std::string symbols{};                        // entries of 20 bytes each
    std::optional<std::uint32_t> nsyms{};         // else as many as there are
    std::optional<std::uint32_t> symptr{};        // else where they are
    std::string strings = string_table({});

    // Where `between` starts.
    std::uint32_t between_position() const
    {
        return static_cast<std::uint32_t>(20 + optional.size() + sections.size() * 40);
    }
    std::uint32_t symbols_position() const { return between_position() + static_cast<std::uint32_t>(between.size()); }
    std::string bytes() const
    {
        const auto count = static_cast<std::uint32_t>(sections.size());
        const auto entries = static_cast<std::uint32_t>(symbols.size() / 20);
        std::string file = magic + le16(section_count.value_or(count)) + le32(dated) +
                           le32(symptr.value_or(symbols_position())) + le32(nsyms.value_or(entries)) +
                           le16(opthdr.value_or(static_cast<std::uint32_t>(optional.size()))) + le16(flags) + optional;
        for (const section_fields &section : sections) {
            file += section.bytes();
        }
        return file + between + symbols + strings;
    }
};

} // namespace coff_bytes
