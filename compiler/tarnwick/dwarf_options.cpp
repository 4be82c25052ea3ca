// SPDX-License-Identifier: MIT
// The options of the debugging sections.
#include "compiler/tarnwick/dwarf_options.h"

#include <array>

#include "common/stringcache.h"
#include "common/trace.h"

bool enable_dwarf = true;
bool standard_dwarf = false;
dwarf_use_mode dwarf_use_ranges = DWARF_USE_NEVER;
dwarf_use_mode dwarf_use_loclists = DWARF_USE_NEVER;
std::uint8_t dwarf_addr_size = 0;

namespace {

struct mode_word {
    const char *text;
    dwarf_use_mode mode;
};

constexpr std::array<mode_word, 3> mode_words = {{
    {"never", DWARF_USE_NEVER},
    {"auto", DWARF_USE_AUTO},
    {"always", DWARF_USE_ALWAYS},
}};

} // namespace

void dwarf_parse_use_option(dwarf_use_mode *mode, const char *sub_opt)
{
    DB_ASSERT(sub_opt != nullptr, "sub_opt != NULL");
    if (sub_opt == nullptr) {
        return;
    }
    DB_ASSERT(sub_opt[0] != '\0', "sub_opt[0] != '\\0'");
    for (const mode_word &known : mode_words) {
        if (str_compare_nocase(sub_opt, known.text) == 0) {
            *mode = known.mode;
            return;
        }
    }
    // Any other word changes nothing, and no message says so.
    DB_ASSERT(false, "0");
}
