// SPDX-License-Identifier: MIT
// The string cache, and the string operations that return cached text. The order of the cache never shows, so the table
// is an open one that grows: it stays fast for a hundred names and for ten million. Nothing leaves it.
#include "common/stringcache.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "common/alloc.h"
#include "common/ascii.h"
#include "common/key_index.h"
#include "common/osdep.h"
#include "common/texthash.h"

std::uint32_t string_table_size = 5077;
std::uint32_t string_limit = 0;
std::uint32_t string_count = 0;

namespace {

key_index<const char *> string_table;

char *work_buffer = nullptr;
std::size_t work_size = 0;

constexpr std::size_t WORK_MINIMUM = 4096;
constexpr std::size_t STREAM_PIECE = 1024;
constexpr std::size_t TRANSLATE_PAIRS = 256;
constexpr std::size_t CHARACTERS = 256;

const char *fresh_copy(std::string_view text)
{
    auto *copy = static_cast<char *>(xarena(text.size() + 1, 1));
    text.copy(copy, text.size());
    return copy;
}

// Whether a C string is `text`, which holds no NUL.
bool is_text(const char *cached, std::string_view text)
{
    return std::strncmp(cached, text.data(), text.size()) == 0 && cached[text.size()] == '\0';
}

// The cached form of `text`, which holds no NUL. A new text is entered as `own`, or as a copy when that is null.
const char *look_up(std::string_view text, const char *own)
{
    if (string_table_size == 0) {
        return own != nullptr ? own : fresh_copy(text);
    }
    const std::uint32_t hash = hash_text(text);
    const char *known = string_table.find(hash, [text](const char *cached) { return is_text(cached, text); });
    if (known != nullptr) {
        return known;
    }
    const char *entered = own != nullptr ? own : fresh_copy(text);
    // The test comes before the count: the cache holds one string more than the limit says.
    if (string_limit != 0 && string_count > string_limit) {
        return entered;
    }
    ++string_count;
    if (string_table.count() == 0) {
        string_table.reserve(string_table_size);
    }
    string_table.add(hash, entered);
    return entered;
}

// Makes the work buffer hold `need` bytes; what stands in it stays. A larger one has twice the need, so that a text
// that grows piece by piece is moved seldom.
char *reserve_work(std::size_t need)
{
    if (work_size < need) {
        work_size = std::max(need * 2, WORK_MINIMUM);
        work_buffer = static_cast<char *>(xrealloc(work_buffer, work_size));
    }
    return work_buffer;
}

const char *cache_joined(std::string_view first, std::string_view second, std::string_view third = {})
{
    const std::size_t length = first.size() + second.size() + third.size();
    char *buffer = reserve_work(length + 1);
    first.copy(buffer, first.size());
    second.copy(buffer + first.size(), second.size());
    third.copy(buffer + first.size() + second.size(), third.size());
    return str_cache(std::string_view(buffer, length));
}

// The text with each character changed.
template <typename Change>
const char *cache_changed(std::string_view text, Change change)
{
    char *buffer = reserve_work(text.size() + 1);
    std::transform(text.begin(), text.end(), buffer, change);
    return str_cache(std::string_view(buffer, text.size()));
}

std::array<bool, CHARACTERS> character_set(const char *characters)
{
    std::array<bool, CHARACTERS> members{};
    for (const char *c = characters; *c != '\0'; ++c) {
        members[static_cast<unsigned char>(*c)] = true;
    }
    return members;
}

bool is_member(const std::array<bool, CHARACTERS> &members, char c)
{
    return members[static_cast<unsigned char>(c)];
}

std::string_view without_point(const char *extension)
{
    return *extension == '.' ? extension + 1 : extension;
}

int compare_lowered(unsigned char left, unsigned char right)
{
    return static_cast<unsigned char>(to_lower(static_cast<char>(left))) -
           static_cast<unsigned char>(to_lower(static_cast<char>(right)));
}

[[noreturn]] void fail_format()
{
    std::fputs("vsnprintf failed in a mysterious way\n", stderr);
    std::abort();
}

} // namespace

const char *str_cache(const char *text)
{
    return text != nullptr ? look_up(text, nullptr) : nullptr;
}

const char *str_cache(std::string_view text)
{
    if (text.empty()) {
        return look_up("", nullptr); // an empty view may have no data
    }
    return look_up(text.substr(0, text.find('\0')), nullptr);
}

void str_prefetch(std::string_view text)
{
    string_table.prefetch(hash_text(text));
}

const char *str_cache_own(char *allocated)
{
    return allocated != nullptr ? look_up(allocated, allocated) : nullptr;
}

const char *str_printf(const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const char *text = str_vprintf(format, arguments);
    va_end(arguments);
    return text;
}

const char *str_vprintf(const char *format, std::va_list arguments)
{
    if (format == nullptr) {
        return nullptr;
    }
    const std::size_t expected = std::max(std::strlen(format) * 10, std::size_t{1});
    reserve_work(expected);

    std::va_list again;
    va_copy(again, arguments);
    int length = std::vsnprintf(work_buffer, work_size, format, arguments);
    if (length >= 0 && static_cast<std::size_t>(length) >= work_size) {
        reserve_work(static_cast<std::size_t>(length) + 1);
        length = std::vsnprintf(work_buffer, work_size, format, again);
    }
    va_end(again);
    if (length < 0 || static_cast<std::size_t>(length) >= work_size) {
        fail_format();
    }
    return str_cache(std::string_view(work_buffer, static_cast<std::size_t>(length)));
}

const char *str_concat(const char *left, const char *right)
{
    if (left == nullptr || right == nullptr) {
        return nullptr;
    }
    return cache_joined(left, right);
}

const char *str_substr(const char *text, std::uint32_t length)
{
    return text != nullptr ? str_cache(std::string_view(text, ::strnlen(text, length))) : nullptr;
}

const char *str_lower(const char *text)
{
    return text != nullptr ? cache_changed(text, to_lower) : nullptr;
}

const char *str_upper(const char *text)
{
    return text != nullptr ? cache_changed(text, to_upper) : nullptr;
}

vector_of<const char *> str_split(const char *text, const char *delimiters, birth_place where)
{
    if (text == nullptr || delimiters == nullptr) {
        return {};
    }
    const auto tokens = vector_of<const char *>::make(VECTOR_INITIAL_SIZE, where);
    const auto ends_token = character_set(delimiters);
    const char *start = text;
    for (const char *at = text;; ++at) {
        if (*at == '\0' || is_member(ends_token, *at)) {
            if (at != start) {
                tokens.push(str_cache(std::string_view(start, static_cast<std::size_t>(at - start))));
            }
            start = at + 1;
        }
        if (*at == '\0') {
            return tokens;
        }
    }
}

const char *str_set_ext(const char *path, const char *extension)
{
    if (path == nullptr || extension == nullptr) {
        return nullptr;
    }
    // The last point of the whole path counts, one in a directory's name too.
    const std::string_view whole = path;
    return cache_joined(whole.substr(0, whole.rfind('.')), ".", without_point(extension));
}

const char *str_add_ext(const char *path, const char *extension)
{
    if (path == nullptr || extension == nullptr) {
        return nullptr;
    }
    return cache_joined(path, ".", without_point(extension));
}

const char *str_strip_ext(const char *path)
{
    if (path == nullptr) {
        return nullptr;
    }
    const std::string_view whole = path;
    const std::size_t point = whole.rfind('.');
    if (point == std::string_view::npos || whole.find_first_of("\\/", point) != std::string_view::npos) {
        return str_cache(whole);
    }
    return str_cache(whole.substr(0, point));
}

const char *str_path_join(const char *directory, const char *name)
{
    if (directory == nullptr || *directory == '\0') {
        return str_cache(name != nullptr ? name : directory);
    }
    if (name == nullptr || *name == '\0') {
        return str_cache(directory);
    }
    const std::string_view left = directory;
    return cache_joined(left, path_is_separator(left.back()) ? "" : "/", name);
}

const char *str_basename(const char *path)
{
    return str_cache(path_tail(path));
}

const char *str_dirname(const char *path)
{
    const char *tail = path_tail(path);
    if (tail == path) {
        return nullptr;
    }
    return str_cache(std::string_view(path, static_cast<std::size_t>(tail - 1 - path)));
}

const char *str_quote(const char *text, char quote)
{
    if (text == nullptr) {
        return nullptr;
    }
    const std::string_view mark(&quote, 1);
    return cache_joined(mark, text, mark);
}

const char *str_translate(const char *text, const char *from, const char *to)
{
    if (text == nullptr || from == nullptr || to == nullptr) {
        return nullptr;
    }
    std::array<char, CHARACTERS> replacement{}; // 0: the character stays
    for (std::size_t i = 0; i < TRANSLATE_PAIRS && from[i] != '\0' && to[i] != '\0'; ++i) {
        char &entry = replacement[static_cast<unsigned char>(from[i])];
        entry = entry == '\0' ? to[i] : entry; // the first pair of a character counts
    }
    return cache_changed(text, [&replacement](char c) {
        const char other = replacement[static_cast<unsigned char>(c)];
        return other != '\0' ? other : c;
    });
}

const char *str_escape(const char *text, const char *characters, char escape)
{
    if (text == nullptr || characters == nullptr) {
        return nullptr;
    }
    const auto escaped = character_set(characters);
    const std::string_view whole = text;
    char *buffer = reserve_work(whole.size() * 2 + 1);
    char *end = buffer;
    for (const char c : whole) {
        if (is_member(escaped, c)) {
            *end++ = escape;
        }
        *end++ = c;
    }
    return str_cache(std::string_view(buffer, static_cast<std::size_t>(end - buffer)));
}

const char *str_read_stream(std::FILE *stream)
{
    if (stream == nullptr) {
        return nullptr;
    }
    std::size_t length = 0;
    for (;;) {
        char *buffer = reserve_work(length + STREAM_PIECE);
        const std::size_t count = std::fread(buffer + length, 1, STREAM_PIECE, stream);
        length += count;
        if (count < STREAM_PIECE) {
            return str_cache(std::string_view(buffer, length));
        }
    }
}

bool str_starts_with(const char *text, const char *prefix)
{
    return text != nullptr && prefix != nullptr && std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

bool str_starts_with_nocase(const char *text, const char *prefix)
{
    return text != nullptr && prefix != nullptr && str_compare_nocase(text, prefix, std::strlen(prefix)) == 0;
}

bool str_ends_with(const char *text, const char *suffix)
{
    return text != nullptr && suffix != nullptr && std::string_view(text).ends_with(suffix);
}

bool str_ends_with_nocase(const char *text, const char *suffix)
{
    if (text == nullptr || suffix == nullptr) {
        return false;
    }
    const std::size_t length = std::strlen(text);
    const std::size_t suffix_length = std::strlen(suffix);
    return suffix_length <= length && str_compare_nocase(text + length - suffix_length, suffix) == 0;
}

int str_compare_nocase(const char *left, const char *right)
{
    return str_compare_nocase(left, right, std::numeric_limits<std::size_t>::max());
}

int str_compare_nocase(const char *left, const char *right, std::size_t length)
{
    for (std::size_t i = 0; i < length; ++i) {
        const int difference =
            compare_lowered(static_cast<unsigned char>(left[i]), static_cast<unsigned char>(right[i]));
        if (difference != 0 || left[i] == '\0') {
            return difference;
        }
    }
    return 0;
}
