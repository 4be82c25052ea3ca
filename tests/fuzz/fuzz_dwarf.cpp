// SPDX-License-Identifier: MIT
// The dump of debugging sections. The input is not an ELF file but what stands in its sections, so that mutations meet
// the sections and not the frame around them: one byte whose lowest bit chooses the byte order, then for each section
// two bytes of length, low byte first, and its content. A section that the input does not reach is not in the file.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>

#include "compiler/tarnwick/elf_layout.h"
#include "tests/fuzz/command.h"
#include "tests/fuzz/host.h"
#include "tests/fuzz/targets.h"

namespace {

constexpr std::uint32_t HEADER_SIZE = 52;
constexpr std::uint32_t SECTION_HEADER_SIZE = 40;
constexpr std::string_view SECTIONS[] = {
    ".debug_abbrev", ".debug_info",     ".debug_line",    ".debug_str",     ".debug_loc",
    ".debug_ranges", ".debug_pubnames", ".debug_aranges", ".debug_macinfo", ".debug_frame",
};
constexpr std::string_view NAME_TABLE = ".shstrtab";

class elf_builder {
public:
    explicit elf_builder(bool is_big) : is_big_(is_big), image_(HEADER_SIZE, '\0'), headers_(SECTION_HEADER_SIZE, '\0')
    {
        names_.push_back('\0');
    }

    void add(std::string_view name, std::string_view content, std::uint32_t type)
    {
        const std::size_t header = headers_.size();
        headers_.append(SECTION_HEADER_SIZE, '\0');
        put(headers_, header + SH_NAME, names_.size(), 4);
        put(headers_, header + SH_TYPE, type, 4);
        put(headers_, header + SH_OFFSET, image_.size(), 4);
        put(headers_, header + SH_SIZE, content.size(), 4);
        put(headers_, header + SH_ADDRALIGN, 1, 4);
        names_.append(name);
        names_.push_back('\0');
        image_.append(content);
    }

    std::string finish()
    {
        std::string all_names = names_;
        all_names.append(NAME_TABLE);
        all_names.push_back('\0');
        add(NAME_TABLE, all_names, SHT_STRTAB);
        const std::size_t count = headers_.size() / SECTION_HEADER_SIZE;
        std::copy(std::begin(ELF_MAGIC), std::end(ELF_MAGIC), image_.begin());
        put(image_, EH_CLASS, ELF_CLASS_32, 1);
        put(image_, EH_DATA, is_big_ ? ELF_DATA_BIG : ELF_DATA_LITTLE, 1);
        put(image_, EH_IDENT_VERSION, ELF_VERSION, 1);
        put(image_, EH_TYPE, ELF_TYPE_EXECUTABLE, 2);
        put(image_, EH_MACHINE, ELF_MACHINE, 2);
        put(image_, EH_VERSION, ELF_VERSION, 4);
        put(image_, EH_SHOFF, image_.size(), 4);
        put(image_, EH_EHSIZE, HEADER_SIZE, 2);
        put(image_, EH_SHENTSIZE, SECTION_HEADER_SIZE, 2);
        put(image_, EH_SHNUM, count, 2);
        put(image_, EH_SHSTRNDX, count - 1, 2);
        return image_ + headers_;
    }

private:
    void put(std::string &bytes, std::size_t offset, std::size_t value, std::size_t size) const
    {
        for (std::size_t i = 0; i < size; ++i) {
            bytes[offset + (is_big_ ? size - 1 - i : i)] = static_cast<char>(value >> (8 * i));
        }
    }

    bool is_big_;
    std::string image_;
    std::string headers_;
    std::string names_;
};

std::string_view take_section(std::string_view *rest)
{
    constexpr std::size_t LENGTH_SIZE = 2;
    if (rest->size() < LENGTH_SIZE) {
        *rest = {};
        return {};
    }
    const std::size_t length =
        static_cast<std::uint8_t>((*rest)[0]) | std::size_t{static_cast<std::uint8_t>((*rest)[1])} << 8;
    const std::string_view content = rest->substr(LENGTH_SIZE, length);
    rest->remove_prefix(LENGTH_SIZE + content.size());
    return content;
}

} // namespace

void fuzz_dwarf_dump(std::string_view input)
{
    if (input.empty()) {
        return;
    }
    elf_builder elf((input[0] & 1) != 0);
    std::string_view rest = input.substr(1);
    for (const std::string_view name : SECTIONS) {
        if (!rest.empty()) {
            elf.add(name, take_section(&rest), SHT_PROGBITS);
        }
    }
    const std::string image = elf.finish();
    host_add_file("input", image);
    command_run({"--emax=100000", "-d", "-ielf", "input"});
}
