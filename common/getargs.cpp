// SPDX-License-Identifier: MIT
// The argument reader. A command on the standard input may go over many lines; quotes and backslashes work as written
// down in the steps below and not as in any shell.
#include "common/getargs.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include <unistd.h>

#include "common/alert.h"
#include "common/alloc.h"

namespace {

constexpr std::uint32_t ARGUMENT_TOO_LONG = 917;
constexpr std::size_t ARGUMENT_MAX = 2047;
constexpr std::size_t INITIAL_ARGUMENTS = 1024;

// The last result. The texts live until the process ends, as those of `main` do.
std::vector<char *> argument_vector;

void put_argument(std::string_view text)
{
    auto *copy = static_cast<char *>(xarena(text.size() + 1, 1));
    text.copy(copy, text.size());
    argument_vector.push_back(copy);
}

// Splits one line after the other.
class line_splitter {
public:
    // False when an argument is too long.
    bool split(std::string_view line)
    {
        quote_ = '\0';
        escaped_ = false;
        for (const char c : line) {
            if (!take(c)) {
                put_argument({argument_.data(), length_});
                return false;
            }
        }
        // A newline ends the line: an argument in hand is finished, quote or no quote, and an empty one is none. A
        // backslash in front of the newline is lost.
        if (length_ > 0) {
            end_argument();
        }
        return true;
    }

private:
    bool take(char c)
    {
        switch (c) {
        case '\t':
            // A tab ends the argument inside quotes too, and the quotation goes on behind it.
            end_argument();
            return true;
        case ' ':
            if (quote_ == '\0' && !escaped_) {
                end_argument();
                return true;
            }
            escaped_ = false;
            return store(c);
        case '"':
        case '\'':
            return take_quote(c);
        case '\\':
            escaped_ = !escaped_;
            return escaped_ || store(c);
        default:
            return take_other(c);
        }
    }

    bool take_quote(char c)
    {
        if (escaped_) {
            escaped_ = false;
            return store(c);
        }
        if (quote_ == '\0') {
            quote_ = c;
            return true;
        }
        if (quote_ == c) {
            quote_ = '\0';
            return true;
        }
        return store(c);
    }

    // The backslash escapes quotes, blanks and itself; in front of anything else it stands for itself, so that the
    // paths of a Windows tool chain need no doubling.
    bool take_other(char c)
    {
        if (escaped_) {
            escaped_ = false;
            if (!store('\\')) {
                return false;
            }
        }
        return store(c);
    }

    bool store(char c)
    {
        if (length_ == ARGUMENT_MAX) {
            alert(ARGUMENT_TOO_LONG);
            return false;
        }
        argument_[length_++] = c;
        return true;
    }

    // An empty argument goes on the vector too: two blanks in a row have one between them.
    void end_argument()
    {
        put_argument({argument_.data(), length_});
        length_ = 0;
    }

    std::array<char, ARGUMENT_MAX> argument_{};
    std::size_t length_ = 0;
    char quote_ = '\0';
    bool escaped_ = false;
};

// The line without its end. Where text files end their lines in two characters both go.
std::string_view without_line_end(std::string_view line)
{
    if (line.ends_with('\n')) {
        line.remove_suffix(1);
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
    }
    return line;
}

} // namespace

char **getargs(const char *prompt)
{
    argument_vector.clear();
    argument_vector.reserve(INITIAL_ARGUMENTS);
    put_argument(prompt);

    const bool interactive = ::isatty(::fileno(stdin)) != 0;
    line_splitter splitter;
    char *line = nullptr;
    std::size_t room = 0;
    for (;;) {
        if (interactive) {
            std::printf("%s> ", prompt);
            std::fflush(stdout);
        }
        const ssize_t length = ::getline(&line, &room, stdin);
        if (length < 0 || !splitter.split(without_line_end({line, static_cast<std::size_t>(length)}))) {
            break;
        }
    }
    std::free(line);
    argument_vector.push_back(nullptr);
    return argument_vector.data();
}
