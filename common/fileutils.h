// SPDX-License-Identifier: MIT
// File identification: a 64-bit word of class bits for a path, from its extension and, for some, its content.
#pragma once

#include <cstdint>
#include <cstdio>

std::uint64_t fileid(const char *path);
std::uint64_t scan(const char *path);      // by content only
std::uint64_t which_elf(const char *path); // 0 when it is no 32-bit ELF file

bool fileid_has(std::uint64_t fid, std::uint64_t mask); // all bits of `mask` are set
bool fileid_is_c(std::uint64_t fid);
bool fileid_is_asm_fid(std::uint64_t fid);

bool fileid_is_p1(const char *path);
bool fileid_is_obj(const char *path);
std::uint32_t fileid_is_library(const char *path); // 0 none, 1 object, 2 p1, 3 both
bool fileid_is_p1_fp(std::FILE *stream);
bool fileid_is_obj_fp(std::FILE *stream);
// The extension of `path` as it stands in `list`, cached, or null.
const char *valid_ext(const char *path, const char *list);
// Reads one object record; its type, or 0 on failure.
std::uint32_t getrec(std::FILE *stream);
const char *getString(std::FILE *stream);
