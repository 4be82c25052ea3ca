// SPDX-License-Identifier: MIT
// The tokens of a symbol database.
#include <cstring>

#include "common/alloc.h"
#include "compiler/tarnwick/sdb_reader.h"

#include "common/ascii.h"

namespace {

bool is_word_part(char c)
{
    return static_cast<unsigned char>(c) > ' ' || !is_space(c); // the first test nearly always decides
}

bool is_line_end(char c)
{
    return c == '\n' || c == '\r';
}

// What a C string of these characters would be.
std::string_view as_c_string(std::string_view text)
{
    return text.substr(0, text.find('\0'));
}

} // namespace

// Passes one character.
inline void sdb_tokens::step()
{
    if (file_[at_++] == '\n') {
        ++line_;
        line_start_ = at_;
    }
}

inline std::string_view sdb_tokens::text_since(std::size_t begin) const
{
    const std::string_view text = file_.substr(begin, at_ - begin);
    return has_nul_ ? as_c_string(text) : text;
}

sdb_token sdb_tokens::next()
{
    while (at_ < file_.size() && is_space(file_[at_])) {
        step();
    }
    sdb_token token;
    token.line = line_;
    token.column = static_cast<std::uint32_t>(at_ - line_start_) + 1;
    token.present = at_ < file_.size();
    const std::size_t begin = at_;
    while (at_ < file_.size() && is_word_part(file_[at_])) {
        ++at_;
    }
    token.text = text_since(begin);
    if (at_ < file_.size()) {
        token.ends_line = is_line_end(file_[at_]);
        step();
    }
    return token;
}

std::string_view sdb_tokens::rest_of_line()
{
    while (at_ < file_.size() && is_space(file_[at_]) && !is_line_end(file_[at_])) {
        step();
    }
    const std::size_t begin = at_;
    while (at_ < file_.size() && !is_line_end(file_[at_])) {
        ++at_;
    }
    const std::string_view text = text_since(begin);
    if (at_ < file_.size()) {
        step();
    }
    return text;
}

const char *sdb_keep(std::string_view text)
{
    const std::string_view kept = as_c_string(text);
    auto *copy = static_cast<char *>(xarena(kept.size() + 1, 1));
    if (!kept.empty()) {
        std::memcpy(copy, kept.data(), kept.size());
    }
    return copy;
}
