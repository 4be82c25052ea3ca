// SPDX-License-Identifier: MIT
// Cached strings: one copy of each distinct text for the life of the process. Equal text gives the same pointer.
// Callers never release a cached string and never change it. A null text gives a null result unless noted.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "common/base.h"
#include "common/vector_of.h"

// Buckets that the cache starts with; 0 switches it off, and every operation returns a fresh copy.
extern std::uint32_t string_table_size;
// Once more than this many strings are cached, new ones are returned as fresh copies. 0 means no limit.
extern std::uint32_t string_limit;
extern std::uint32_t string_count;

const char *str_cache(const char *text);
const char *str_cache(std::string_view text); // up to its first NUL; never null
// Has the place of a text fetched from memory, for a `str_cache` that is to come.
void str_prefetch(std::string_view text);
// As `str_cache`, but a new text is entered as the given allocation itself. On a hit the allocation stays the caller's.
const char *str_cache_own(char *allocated);

// Whether two cached strings are the same text: this compares the pointers.
inline bool str_same(const char *left, const char *right)
{
    return left == right;
}

const char *str_printf(const char *format, ...) PRINTF_LIKE(1, 2);
const char *str_vprintf(const char *format, std::va_list arguments) PRINTF_LIKE(1, 0);
const char *str_concat(const char *left, const char *right);
const char *str_substr(const char *text, std::uint32_t length);
const char *str_lower(const char *text);
const char *str_upper(const char *text);
// A new vector of cached tokens; runs of delimiters are skipped, so no token is empty.
vector_of<const char *> str_split(const char *text, const char *delimiters, birth_place where = birth_place::here());
const char *str_set_ext(const char *path, const char *extension);
const char *str_add_ext(const char *path, const char *extension);
const char *str_strip_ext(const char *path);
const char *str_path_join(const char *directory, const char *name);
const char *str_basename(const char *path);
const char *str_dirname(const char *path); // null when there is no separator
const char *str_quote(const char *text, char quote);
const char *str_translate(const char *text, const char *from, const char *to);
const char *str_escape(const char *text, const char *characters, char escape = '\\');
const char *str_read_stream(std::FILE *stream);

// Tests; a null argument gives false.
bool str_starts_with(const char *text, const char *prefix);
bool str_starts_with_nocase(const char *text, const char *prefix);
bool str_ends_with(const char *text, const char *suffix);
bool str_ends_with_nocase(const char *text, const char *suffix);

// Three-way comparison of C strings as if lower-cased; ASCII letters only.
int str_compare_nocase(const char *left, const char *right);
int str_compare_nocase(const char *left, const char *right, std::size_t length);
