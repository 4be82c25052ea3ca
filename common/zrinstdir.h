// SPDX-License-Identifier: MIT
// The directories of the installed toolchain, found from where the running executable lies.
#pragma once

#include <cstdint>

enum zrinstdir_index : std::uint32_t {
    ZRINSTDIR_FIRST = 0,
    ZRINSTDIR_INSTALL = 0,
    ZRINSTDIR_VERSION = 1,
    ZRINSTDIR_BIN = 2,
    ZRINSTDIR_DOCS = 3,
    ZRINSTDIR_INCLUDE = 4,
    ZRINSTDIR_ETC = 5,
    ZRINSTDIR_FAMILY = 6,
    ZRINSTDIR_OLD_ASSEMBLER = 8,
    ZRINSTDIR_ASSEMBLER = 9,
    ZRINSTDIR_LAST = 10,
};

inline constexpr std::uint32_t REG_INSTDIR_DAT = 5;

bool set_zrinstall_paths();
const char *zrinstdir(std::uint32_t index);    // cached, or null
const char *reg_instdir(std::uint32_t number); // cached, or null
const char *reg_create_path(const char *base, std::uint32_t number);
