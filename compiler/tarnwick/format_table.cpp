// SPDX-License-Identifier: MIT
// The table of formats.
#include "compiler/tarnwick/format.h"

#include <string_view>

#include "common/alert.h"

constinit const std::array<const format_descriptor *, FORMAT_COUNT> format_table = {
    &format_tarnsym, &format_orbell, &format_ihex, &format_s19, &format_vcoff, &format_elf, &format_ubrof,
};

std::uint32_t format_find(const char *key)
{
    return format_find_in(format_table, key);
}

std::uint32_t format_find_in(std::span<const format_descriptor *const> table, const char *key)
{
    const std::string_view wanted = key;
    if (wanted.empty()) {
        alert(602);
        return 0;
    }
    std::uint32_t found = 0;
    for (std::uint32_t number = 1; number <= table.size(); ++number) {
        const std::string_view candidate = table[number - 1]->key;
        if (candidate == wanted) {
            return number;
        }
        if (candidate.starts_with(wanted)) {
            // The second one decides: an exact match in a later row comes too late.
            if (found != 0) {
                alert(603, key);
                return 0;
            }
            found = number;
        }
    }
    if (found == 0) {
        alert(604, key);
    }
    return found;
}

bool format_no_transfer(std::FILE *, const char *)
{
    return true;
}

bool format_no_dump(std::FILE *)
{
    return false;
}
