// SPDX-License-Identifier: MIT
// Mutation of inputs that are text: map files, symbol databases, commands, and several files in one input. The unit is
// a block of lines (a section, a file, an object with its lines, what stands between two braces), a line, a token of a
// line, or a number in a token. What is left of the work, bytes and dictionary words, libFuzzer does on one token, one
// line, or the whole.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tests/fuzz/parts.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t *data, std::size_t size, std::size_t longest);

namespace {

using line_list = std::vector<std::string>;

constexpr const char *NUMBERS[] = {"0",
                                   "1",
                                   "2",
                                   "3",
                                   "4",
                                   "7F",
                                   "80",
                                   "FF",
                                   "100",
                                   "-1",
                                   "255",
                                   "256",
                                   "7FFF",
                                   "8000",
                                   "FFFF",
                                   "10000",
                                   "65535",
                                   "65536",
                                   "7FFFFFFF",
                                   "80000000",
                                   "FFFFFFFE",
                                   "FFFFFFFF",
                                   "2147483647",
                                   "-2147483648",
                                   "4294967295",
                                   "4294967296",
                                   "99999999999999999999",
                                   "000000000000000000001",
                                   "+1",
                                   "1e5",
                                   "0x10"};
constexpr std::size_t BLOCK_COPIES_MAX = 32;

struct range {
    std::size_t begin;
    std::size_t end;
};

class text_mutator {
public:
    text_mutator(std::string_view text, unsigned seed) : random_(seed), lines_(split_lines(text)) {}

    void mutate();
    void cross(std::string_view other);
    std::string text() const;

private:
    static line_list split_lines(std::string_view text);

    std::size_t below(std::size_t count) { return count == 0 ? 0 : random_() % count; }
    range any_block(const line_list &from);
    std::vector<range> tokens_of(const std::string &line) const;

    void remove_block();
    void repeat_block();
    void move_block();
    void swap_lines();
    void change_token();
    void copy_token();
    void remove_token();
    void change_number();
    void change_line();
    void cut_or_join_line();
    void fuzz_piece(std::string *line, range piece);

    std::minstd_rand random_;
    line_list lines_;
};

line_list text_mutator::split_lines(std::string_view text)
{
    line_list lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return lines;
}

std::string text_mutator::text() const
{
    std::string all;
    for (const std::string &line : lines_) {
        all += line;
    }
    return all;
}

// The block that a line begins; most lines are blocks of their own.
range block_of(const line_list &lines, std::size_t begin)
{
    const std::string &first = lines[begin];
    std::size_t end = begin + 1;
    if (first.starts_with('{')) {
        for (int depth = 1; end < lines.size() && depth > 0; ++end) {
            depth += lines[end].starts_with('{') ? 1 : lines[end].starts_with('}') ? -1 : 0;
        }
        return {begin, end};
    }
    const bool is_part = first.starts_with(PART_MARK);
    const bool is_section = first.starts_with('%');
    const bool is_object = first.starts_with('$');
    if (is_part || is_section || is_object) {
        while (end < lines.size() && !lines[end].starts_with(PART_MARK) && (is_part || !lines[end].starts_with('%')) &&
               (!is_object || !lines[end].starts_with('$'))) {
            ++end;
        }
    }
    return {begin, end};
}

// One in two is a block of more than one line, where there is any near.
range text_mutator::any_block(const line_list &from)
{
    std::size_t line = below(from.size());
    if (below(2) == 0) {
        while (line > 0 && !from[line].starts_with('{') && !from[line].starts_with('%') &&
               !from[line].starts_with('$') && !from[line].starts_with(PART_MARK)) {
            --line;
        }
    }
    return block_of(from, line);
}

std::vector<range> text_mutator::tokens_of(const std::string &line) const
{
    constexpr std::string_view BLANKS = " \t\r\n";
    std::vector<range> tokens;
    for (std::size_t at = 0; (at = line.find_first_not_of(BLANKS, at)) != std::string::npos;) {
        const std::size_t end = std::min(line.find_first_of(BLANKS, at), line.size());
        tokens.push_back({at, end});
        at = end;
    }
    return tokens;
}

auto at(line_list &lines, std::size_t index)
{
    return lines.begin() + static_cast<std::ptrdiff_t>(index);
}

void text_mutator::remove_block()
{
    const range block = any_block(lines_);
    lines_.erase(at(lines_, block.begin), at(lines_, block.end));
}

void text_mutator::repeat_block()
{
    const range block = any_block(lines_);
    const line_list copy(at(lines_, block.begin), at(lines_, block.end));
    const std::size_t times = below(4) == 0 ? 1 + below(BLOCK_COPIES_MAX) : 1;
    const std::size_t target = below(2) == 0 ? block.end : below(lines_.size() + 1);
    for (std::size_t i = 0; i < times; ++i) {
        lines_.insert(at(lines_, target), copy.begin(), copy.end());
    }
}

void text_mutator::move_block()
{
    const range block = any_block(lines_);
    const line_list copy(at(lines_, block.begin), at(lines_, block.end));
    lines_.erase(at(lines_, block.begin), at(lines_, block.end));
    lines_.insert(at(lines_, below(lines_.size() + 1)), copy.begin(), copy.end());
}

void text_mutator::swap_lines()
{
    std::swap(lines_[below(lines_.size())], lines_[below(lines_.size())]);
}

// Lets libFuzzer work on a piece of a line.
void text_mutator::fuzz_piece(std::string *line, range piece)
{
    constexpr std::size_t ROOM = 64;
    std::string text = line->substr(piece.begin, piece.end - piece.begin);
    const std::size_t size = text.size();
    text.resize(size + ROOM);
    text.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t *>(text.data()), size, text.size()));
    line->replace(piece.begin, piece.end - piece.begin, text);
}

void text_mutator::change_token()
{
    std::string &line = lines_[below(lines_.size())];
    const std::vector<range> tokens = tokens_of(line);
    if (!tokens.empty()) {
        fuzz_piece(&line, tokens[below(tokens.size())]);
    }
}

// A token of another line, mostly one of the same kind of line and place.
void text_mutator::copy_token()
{
    std::string &line = lines_[below(lines_.size())];
    std::string source = lines_[below(lines_.size())];
    for (int tries = 0; tries < 8 && source[0] != line[0]; ++tries) {
        source = lines_[below(lines_.size())];
    }
    const std::vector<range> tokens = tokens_of(line);
    const std::vector<range> others = tokens_of(source);
    if (!tokens.empty() && !others.empty()) {
        const std::size_t index = below(tokens.size());
        const range piece = tokens[index];
        const range other = others[index < others.size() && below(4) != 0 ? index : below(others.size())];
        line.replace(piece.begin, piece.end - piece.begin, source, other.begin, other.end - other.begin);
    }
}

void text_mutator::remove_token()
{
    std::string &line = lines_[below(lines_.size())];
    const std::vector<range> tokens = tokens_of(line);
    if (tokens.empty()) {
        return;
    }
    const range piece = tokens[below(tokens.size())];
    if (below(2) == 0) {
        line.erase(piece.begin, piece.end - piece.begin);
    } else {
        line.insert(piece.begin, line.substr(piece.begin, piece.end - piece.begin) + " ");
    }
}

// Digits anywhere, those inside of a token such as a type too.
void text_mutator::change_number()
{
    constexpr std::string_view DIGITS = "0123456789ABCDEF";
    std::string &line = lines_[below(lines_.size())];
    const std::size_t begin = line.find_first_of(DIGITS, below(line.size()));
    if (begin == std::string::npos) {
        return;
    }
    const std::size_t end = std::min(line.find_first_not_of(DIGITS, begin), line.size());
    const std::string old = line.substr(begin, end - begin);
    std::string number = NUMBERS[below(std::size(NUMBERS))];
    if (below(3) == 0) {
        char text[32];
        const unsigned long value = std::strtoul(old.c_str(), nullptr, 16);
        std::snprintf(text, sizeof text, "%lX", below(2) == 0 ? value + 1 : value - 1);
        number = text;
    }
    line.replace(begin, end - begin, number);
}

void text_mutator::change_line()
{
    std::string &line = lines_[below(lines_.size())];
    fuzz_piece(&line, {0, line.size()});
}

void text_mutator::cut_or_join_line()
{
    std::string &line = lines_[below(lines_.size())];
    if (below(2) == 0 && line.ends_with('\n')) {
        line.back() = ' ';
    } else {
        line.insert(below(line.size()), 1, '\n');
    }
}

void text_mutator::mutate()
{
    using operation = void (text_mutator::*)();
    constexpr operation OPERATIONS[] = {
        &text_mutator::remove_block,     &text_mutator::repeat_block,  &text_mutator::move_block,
        &text_mutator::swap_lines,       &text_mutator::change_token,  &text_mutator::change_token,
        &text_mutator::copy_token,       &text_mutator::copy_token,    &text_mutator::remove_token,
        &text_mutator::change_line,      &text_mutator::change_number, &text_mutator::change_number,
        &text_mutator::cut_or_join_line,
    };
    const std::size_t count = 1 + below(4);
    for (std::size_t i = 0; i < count && !lines_.empty(); ++i) {
        (this->*OPERATIONS[below(std::size(OPERATIONS))])();
        std::erase(lines_, std::string()); // each line has at least its end
    }
}

// Puts a block of another input in, beside a line that begins alike where there is one.
void text_mutator::cross(std::string_view other)
{
    const line_list source = split_lines(other);
    if (source.empty()) {
        return;
    }
    const range block = any_block(source);
    std::size_t target = below(lines_.size() + 1);
    for (int tries = 0; tries < 8 && target < lines_.size() && lines_[target][0] != source[block.begin][0]; ++tries) {
        target = below(lines_.size());
    }
    lines_.insert(at(lines_, target), source.begin() + static_cast<std::ptrdiff_t>(block.begin),
                  source.begin() + static_cast<std::ptrdiff_t>(block.end));
}

std::string_view text_of(const std::uint8_t *data, std::size_t size)
{
    return {reinterpret_cast<const char *>(data), size};
}

std::size_t give(const std::string &text, std::uint8_t *data, std::size_t longest)
{
    const std::size_t size = std::min(text.size(), longest);
    std::copy_n(text.begin(), size, data);
    return size;
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t *data, std::size_t size, std::size_t longest, unsigned seed)
{
    constexpr unsigned PLAIN = 8; // one mutation in so many knows nothing of lines
    if (size == 0 || seed % PLAIN == 0) {
        return LLVMFuzzerMutate(data, size, longest);
    }
    text_mutator mutator(text_of(data, size), seed);
    mutator.mutate();
    return give(mutator.text(), data, longest);
}

extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t *data, std::size_t size, const std::uint8_t *other,
                                                 std::size_t other_size, std::uint8_t *result, std::size_t longest,
                                                 unsigned seed)
{
    text_mutator mutator(text_of(data, size), seed);
    mutator.cross(text_of(other, other_size));
    return give(mutator.text(), result, longest);
}
