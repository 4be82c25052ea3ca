// SPDX-License-Identifier: MIT
// Completion of the command line in bash, zsh and fish. Each script is a fixed frame around what the tables say.
#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "common/ascii.h"
#include "common/catalogue_rows.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/option_table.h"
#include "docs/reference/reference.h"

namespace {

// What a shell can offer behind an option.
struct candidate {
    std::string word;
    std::string description;
};

bool is_offered(const option_row &row)
{
    return row.match != option_match::NEVER && row.audience == option_audience::EVERYONE;
}

bool is_letter(const option_row &row)
{
    return row.match == option_match::LETTER;
}

bool has_argument(const option_row &row)
{
    return row.argument != option_argument::NONE;
}

bool needs_argument(const option_row &row)
{
    return has_argument(row) && !row.argument_optional;
}

std::string joined(std::initializer_list<std::string_view> pieces)
{
    std::string out;
    for (const std::string_view piece : pieces) {
        out += piece;
    }
    return out;
}

// "-o" or "--edf", without the "=".
std::string bare_option(const option_row &row)
{
    return joined({is_letter(row) ? "-" : "--", row.name});
}

void add_words(std::string_view words, std::vector<candidate> *out)
{
    while (!words.empty()) {
        const std::size_t length = std::min(words.find(' '), words.size());
        out->push_back({std::string(words.substr(0, length)), ""});
        words.remove_prefix(std::min(length + 1, words.size()));
    }
}

void add_formats(bool written_ones, std::vector<candidate> *out)
{
    for (const format_descriptor *format : format_table) {
        if (!written_ones || format->write != format_no_transfer) {
            out->push_back({format->key, format->name});
        }
    }
}

// Only a warning can be made an error, and hardly anything else is ever hidden.
void add_warnings(std::vector<candidate> *out)
{
    for (const message_entry &row : catalogue_rows()) {
        if (row.type == MESSAGE_WARNING) {
            out->push_back({std::to_string(row.number), row.text});
        }
    }
}

std::vector<candidate> candidates_of(const option_row &row)
{
    std::vector<candidate> out;
    add_words(row.words, &out);
    switch (row.argument) {
    case option_argument::INPUT_FORMAT:
        add_formats(false, &out);
        break;
    case option_argument::OUTPUT_FORMAT:
        add_formats(true, &out);
        break;
    case option_argument::MESSAGES:
    case option_argument::WARNING:
        add_warnings(&out);
        break;
    default:
        break;
    }
    return out;
}

std::string words_of(const std::vector<candidate> &candidates)
{
    std::string words;
    for (const candidate &one : candidates) {
        words += joined({words.empty() ? "" : " ", one.word});
    }
    return words;
}

// A text with a backslash in front of each character of `special`.
std::string escaped(std::string_view text, std::string_view special)
{
    std::string out;
    for (const char c : text) {
        if (special.find(c) != std::string_view::npos) {
            out += '\\';
        }
        out += c;
    }
    return out;
}

// In single quotes, as bash and zsh read them.
std::string quoted(std::string_view text)
{
    std::string out = "'";
    for (const char c : text) {
        if (c == '\'') {
            out += "'\\'"; // and the quote itself follows
        }
        out += c;
    }
    out += '\'';
    return out;
}

// --- bash ------------------------------------------------------------------------------------------------------------

constexpr const char *BASH_HELPERS = R"(# bash completion for tarnwick. Made from the table of options; do not edit.

# Offers what begins as the word in hand does, with what stands in front of it in the same word.
_tarnwick_offer()
{
    local IFS=$' \t\n'
    mapfile -t COMPREPLY < <(compgen "$@" -P "$front" -- "$word")
}

# The same for the last piece of a list.
_tarnwick_offer_piece()
{
    [[ $word == *,* ]] && front+=${word%,*}, word=${word##*,}
    _tarnwick_offer "$@"
}

)";

constexpr const char *BASH_HEAD = R"(
_tarnwick()
{
    local word=${COMP_WORDS[COMP_CWORD]} last='' option='' front=''
    ((COMP_CWORD > 0)) && last=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()

    # bash parts words at "=" as long as COMP_WORDBREAKS holds it.
    if [[ $word == '=' ]]; then
        option=$last word=''
    elif [[ $last == '=' ]] && ((COMP_CWORD > 1)); then
        option=${COMP_WORDS[COMP_CWORD - 2]}
    elif [[ $word == --*=* ]]; then
        option=${word%%=*} front=${word%%=*}= word=${word#*=}
    elif [[ $word == -[!-]* ]]; then
        option=${word:0:2} front=${word:0:2} word=${word:2}
    elif [[ $last == -[oO] ]]; then
        option=-o
    elif [[ $word == '@'* ]] && ((COMP_CWORD == 1)); then
        option=@ front=@ word=${word:1}
    fi

    case ${option,,} in
)";

constexpr const char *BASH_TAIL = R"(        @)
            _tarnwick_offer -f
            ;;
        -*) # what stands behind other options is the user's own
            [[ -z $word && $front == -? && " $_tarnwick_options " == *" $front "* ]] && COMPREPLY=("$front")
            ;;
        *)
            if [[ $word == -* ]]; then
                _tarnwick_offer -W "$_tarnwick_options"
            else
                compopt -o filenames 2>/dev/null
                _tarnwick_offer -f
            fi
            ;;
    esac
    # What belongs to an option follows it without a blank.
    if ((${#COMPREPLY[@]} == 1)) && [[ " $_tarnwick_open " == *" ${COMPREPLY[0]} "* ]]; then
        compopt -o nospace 2>/dev/null
    fi
    return 0
}

complete -F _tarnwick tarnwick
)";

void print_bash_lists()
{
    std::string options;
    std::string open;
    for (const option_row &row : option_table) {
        if (!is_offered(row)) {
            continue;
        }
        const bool with_sign = !is_letter(row) && has_argument(row);
        if (!with_sign || row.argument_optional) {
            options += joined({bare_option(row), " "});
        }
        if (with_sign) {
            options += joined({bare_option(row), "= "});
        }
        if (needs_argument(row)) {
            open += joined({bare_option(row), with_sign ? "= " : " "});
        }
    }
    options.pop_back();
    open.pop_back();
    std::printf("_tarnwick_options='%s'\n_tarnwick_open='%s'\n", options.c_str(), open.c_str());
}

void print_bash_cases()
{
    for (const option_row &row : option_table) {
        const std::string words = words_of(candidates_of(row));
        if (!is_offered(row) || (words.empty() && row.argument != option_argument::PATH)) {
            continue;
        }
        std::string pattern = bare_option(row);
        for (char &c : pattern) {
            c = to_lower(c); // options don't mind their case
        }
        const char *offer = row.argument == option_argument::MESSAGES ? "_tarnwick_offer_piece" : "_tarnwick_offer";
        const std::string what = row.argument == option_argument::PATH ? "-f" : joined({"-W ", quoted(words)});
        std::printf("        %s)\n            %s %s\n            ;;\n", pattern.c_str(), offer, what.c_str());
    }
}

// --- zsh -------------------------------------------------------------------------------------------------------------

// The function that offers what stands behind an option.
std::string zsh_function(const option_row &row)
{
    return joined({is_letter(row) ? "_tarnwick_letter_" : "_tarnwick_", row.name});
}

void print_zsh_functions()
{
    for (const option_row &row : option_table) {
        const std::vector<candidate> candidates = candidates_of(row);
        if (!is_offered(row) || candidates.empty()) {
            continue;
        }
        std::printf("%s()\n{\n    local -a values=(\n", zsh_function(row).c_str());
        for (const candidate &one : candidates) {
            const char *colon = one.description.empty() ? "" : ":";
            const std::string value = joined({escaped(one.word, ":\\"), colon, escaped(one.description, "\\")});
            std::printf("        %s\n", quoted(value).c_str());
        }
        std::printf("    )\n    _describe value values \"$@\"\n}\n\n");
    }
}

// The action of `_arguments` for what stands behind an option.
std::string zsh_action(const option_row &row)
{
    if (row.argument == option_argument::PATH) {
        return "_files";
    }
    if (candidates_of(row).empty()) {
        return " "; // the user's own
    }
    return joined({row.argument == option_argument::MESSAGES ? "_sequence " : "", zsh_function(row)});
}

std::string zsh_specification(const option_row &row)
{
    const std::string name = bare_option(row);
    const std::string help = escaped(row.help, "[]\\");
    if (!has_argument(row)) {
        return joined({"*", name, "[", help, "]"});
    }
    const bool takes_next = row.argument == option_argument::OUTPUT_FORMAT;
    const char *sign = !is_letter(row) ? "=-" : takes_next ? "+" : "-";
    const char *colons = row.argument_optional ? "::" : ":";
    return joined({"*", name, sign, "[", help, "]", colons, "value:", zsh_action(row)});
}

// --- fish ------------------------------------------------------------------------------------------------------------

std::string fish_quoted(std::string_view text)
{
    return joined({"'", escaped(text, "'\\"), "'"});
}

// Offered where the word in hand begins like this; with a value no files are.
void print_fish_candidate(const std::string &beginning, const std::string &argument, const std::string &description)
{
    std::printf("complete -c tarnwick%s -n %s -a %s -d %s\n", beginning == "-" ? "" : " -f",
                fish_quoted(joined({"string match -q -- '", beginning, "*' (commandline -ct)"})).c_str(),
                fish_quoted(argument).c_str(), fish_quoted(description).c_str());
}

// fish would offer values as words of their own, but only -o takes one from there; and it would take several letters for
// one word. So letters are old-style options, and each whole argument is a candidate.
void print_fish_option(const option_row &row)
{
    const std::string option = bare_option(row);
    const std::string open = joined({option, is_letter(row) ? "" : "="});
    if (!is_letter(row) && needs_argument(row)) {
        print_fish_candidate("-", open, row.help);
    } else {
        std::printf("complete -c tarnwick -%s %s -d %s\n", is_letter(row) ? "o" : "l", row.name,
                    fish_quoted(row.help).c_str());
    }
    for (const candidate &one : candidates_of(row)) {
        print_fish_candidate(open, joined({open, one.word}), one.description);
        if (row.argument == option_argument::OUTPUT_FORMAT) {
            std::printf("complete -c tarnwick -n '__fish_prev_arg_in -o' -f -a %s -d %s\n",
                        fish_quoted(one.word).c_str(), fish_quoted(one.description).c_str());
        }
    }
}

} // namespace

void print_bash_completion()
{
    std::fputs(BASH_HELPERS, stdout);
    print_bash_lists();
    std::fputs(BASH_HEAD, stdout);
    print_bash_cases();
    std::fputs(BASH_TAIL, stdout);
}

void print_zsh_completion()
{
    std::puts("#compdef tarnwick\n# zsh completion for tarnwick. Made from the table of options; do not edit.\n");
    print_zsh_functions();
    std::puts("_tarnwick()\n{\n    _arguments \\");
    for (const option_row &row : option_table) {
        if (is_offered(row)) {
            std::printf("        %s \\\n", quoted(zsh_specification(row)).c_str());
        }
    }
    std::puts("        '*:file:_files'\n}\n\n_tarnwick \"$@\"");
}

void print_fish_completion()
{
    std::puts("# fish completion for tarnwick. Made from the table of options; do not edit.\n");
    for (const option_row &row : option_table) {
        if (is_offered(row)) {
            print_fish_option(row);
        }
    }
}
