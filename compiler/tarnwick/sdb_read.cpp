// SPDX-License-Identifier: MIT
// Reading a symbol database: finding the file, its prefix list, and its blocks. A database is text, a run of tokens:
//
//     [p words ]                  the compiler's words, on the first line alone
//     "12 file                    source line, and the file when it changes
//     [v name alias type n s size location ]
//     [s name tag size members ]  likewise [u for unions, [e for enums
//     { ... } 6 2 0 1             a block, and numbers of its frame
//
// Nothing here recurses: blocks nest as deep as the file says.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/convert.h"
#include "common/hash_of.h"
#include "common/linereader.h"
#include "common/osdep.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/sdb_reader.h"

sdb_state sdb_reading;

namespace {

constexpr std::uint32_t MESSAGE_BAD_PREFIX_LIST = 630;
constexpr std::uint32_t MESSAGE_SYNTAX_ERROR = 631;
constexpr std::uint32_t MESSAGE_UNKNOWN_PREFIX = 637;

constexpr std::uint8_t IEEE_FLOAT_SIZE = 4;
constexpr std::uint8_t SHORT_FLOAT_SIZE = 3;
constexpr std::uint32_t FILE_TABLE_SIZE = 7; // buckets of the table of files read
// What references to typedefs may copy: far beyond any real file, and in proportion to a hostile one.
constexpr std::uint64_t TYPE_BUDGET_BASE = std::uint64_t{1} << 20;
constexpr std::uint64_t TYPE_BUDGET_PER_BYTE = 4;

// By the cached path of the database, compared as pointers.
hash_of<const char *, sdb_node *> files_read;

// A block that is open, and what its reading keeps.
struct block_frame {
    sdb_node *node = nullptr;
    const sdb_node *outer_function = nullptr; // in which the block itself stands
    std::uint32_t first = 0;                  // source lines
    std::uint32_t last = 0;
    sclass next_brace = sc_block;
    std::uint32_t frame_state = 0;      // frame numbers seen
    sdb_node *inner = nullptr;          // the latest inner block
    std::vector<sdb_node *> faked = {}; // the faked blocks within this one
};

class block_reader {
public:
    explicit block_reader(sdb_input &in) : in_(in) {}
    sdb_node *read_module();

private:
    void open_block(sclass cls);
    sdb_node *close_block();
    void attach_inner(sdb_node *inner);
    void read_line_record(const sdb_token &token);
    void read_bracket_record(const sdb_token &token);
    void read_variable_record();
    void read_frame_number(const sdb_token &token);
    void end_block();
    void widen();
    void syntax_error(const sdb_token &token) const;
    block_frame &frame() { return frames_.back(); }

    sdb_input &in_;
    std::vector<block_frame> frames_;
};

sdb_node *new_block(sclass cls)
{
    sdb_node *node = sdb_new_node(cls, nullptr);
    node->sdb_parent = sdb_current;
    node->sdb_index = sdb_current->block.bl_count;
    node->block.bl_first = sdb_reading.line;
    node->block.bl_file = sdb_reading.file;
    return node;
}

void block_reader::open_block(sclass cls)
{
    if (cls == sc_func) {
        DB_ASSERT(sdb_reading.lastfun != nullptr, "lastfun != NULL");
        if (sdb_reading.lastfun == nullptr) {
            cls = sc_block; // so that every sc_func has its function
        }
    }
    sdb_node *node = new_block(cls);
    if (cls == sc_func) {
        node->block.bl_func = sdb_reading.lastfun;
    }
    sdb_current = node;
    sdb_reading.visible.open_block();
    frames_.push_back(
        {.node = node, .outer_function = sdb_reading.function, .first = sdb_reading.line, .last = sdb_reading.line});
    if (cls != sc_block) {
        sdb_reading.function = cls == sc_func ? node : nullptr;
    }
}

// Ends the innermost block; its parent is the current block again.
sdb_node *block_reader::close_block()
{
    sdb_node *node = frame().node;
    node->block.bl_first = frame().first;
    node->block.bl_last = frame().last;
    for (sdb_node *faked : frame().faked) {
        faked->block.bl_last = sdb_reading.line;
    }
    sdb_reading.function = frame().outer_function;
    frames_.pop_back();
    sdb_reading.visible.close_block();
    sdb_current = node->sdb_parent;
    return node;
}

void block_reader::attach_inner(sdb_node *inner)
{
    inner->block.bl_inline = sdb_reading.inline_offset;
    sdb_add_member(sdb_current, inner);
    // Nested blocks carry on counting the numbers of their siblings; only a function's body starts anew.
    if (inner->sdb_sclass == sc_func) {
        frame().frame_state = 0;
    }
    frame().inner = inner;
    frame().next_brace = sc_block;
    widen();
}

// Takes the current line into the lines of the block.
void block_reader::widen()
{
    const std::uint32_t line = sdb_reading.line;
    frame().first = frame().first == 0 ? line : std::min(frame().first, line);
    frame().last = std::max(frame().last, line);
}

// The comparison is made with the absolute form, so a relative name is new each time.
void block_reader::read_line_record(const sdb_token &token)
{
    sdb_reading.line = static_cast<std::uint32_t>(text_to_int(token.text.substr(1)));
    const std::string_view name = token.ends_line ? std::string_view() : in_.tokens.rest_of_line();
    if (!name.empty() && (sdb_reading.file == nullptr || name != sdb_reading.file)) {
        const char *written = str_cache(name);
        if (path_is_absolute(written)) {
            sdb_reading.file = written;
        } else {
            char *absolute = path_absolute(written);
            sdb_reading.file = str_cache(absolute);
            std::free(absolute);
        }
        sdb_node *mark = sdb_new_node(sc_filename, written); // as written, not its absolute form
        mark->sdb_line = sdb_reading.line;
        sdb_enter(mark);
        frame().first = sdb_reading.line;
        frame().last = sdb_reading.line;
    }
    widen();
}

// The inline offset of a function stands in the symbol `_inlined$` with its name; 0 when there is none.
void start_function(sdb_node *function)
{
    sdb_reading.lastfun = function;
    sdb_reading.inline_offset = 0;
    const std::string name = std::string("_inlined$") + function->sdb_name;
    const tarn_symbol *symbol = tarn_find_symbol(name.c_str());
    if (symbol != nullptr) {
        sdb_reading.inline_offset = symbol->sy_value;
        function->var.va_inline = symbol->sy_value;
    }
}

// The brace behind a prototype still opens a function's body, for the last function declared: the class of the next
// brace changes with functions only.
void block_reader::read_variable_record()
{
    const sdb_variable_result result = sdb_read_variable(in_);
    if (result.faked_block != nullptr) {
        frame().faked.push_back(result.faked_block);
    }
    sdb_node *variable = result.variable;
    if (variable == nullptr) {
        return;
    }
    if (isfunc(variable->var.va_type)) {
        start_function(variable);
        frame().next_brace = sc_func;
    } else {
        const bool local = variable->sdb_sclass == sc_auto || variable->sdb_sclass == sc_param;
        variable->var.va_inline = local ? sdb_reading.inline_offset : 0;
    }
}

void block_reader::read_bracket_record(const sdb_token &token)
{
    switch (token.at(1)) {
    case 'a':
        sdb_read_almanac(in_);
        break;
    case 'd':
        sdb_read_define(in_);
        break;
    case 'e':
        sdb_read_enum(in_);
        break;
    case 's':
        sdb_read_struct(in_, false);
        break;
    case 'u':
        sdb_read_struct(in_, true);
        break;
    case 'v':
        read_variable_record();
        break;
    default:
        frame().next_brace = sc_block; // and only this token is taken
        break;
    }
}

// The first number behind a block replaces the size of the last function, also when the block was a nested one.
void block_reader::read_frame_number(const sdb_token &token)
{
    if (frame().inner == nullptr) {
        syntax_error(token);
        return;
    }
    const auto number = static_cast<std::uint32_t>(text_to_int(token.text));
    if (sdb_reading.lastfun != nullptr) {
        sdb_reading.lastfun->var.va_size = number;
        sdb_reading.lastfun = nullptr;
    }
    if (frame().frame_state < SDB_FRAME_NUMBERS) {
        frame().inner->block.bl_frame[frame().frame_state++] = number;
    }
}

void block_reader::syntax_error(const sdb_token &token) const
{
    alert(MESSAGE_SYNTAX_ERROR, str_cache(token.text), in_.path, token.line, token.column);
}

void block_reader::end_block()
{
    if (frame().node->sdb_parent == sdb_global) {
        sdb_reading.inline_offset = 0;
    }
}

// The end of the file ends all blocks, and the module, which needs no brace.
sdb_node *block_reader::read_module()
{
    open_block(sc_module);
    sdb_reading.module = frame().node;
    for (;;) {
        const sdb_token token = in_.tokens.next();
        const char first = token.at(0);
        if (!token.present || first == '}') {
            if (token.present) {
                end_block();
            }
            sdb_node *closed = close_block();
            if (frames_.empty()) {
                return closed;
            }
            attach_inner(closed);
        } else if (first == '{') {
            open_block(frame().next_brace);
        } else if (first == '"') {
            read_line_record(token);
        } else if (first == '[') {
            read_bracket_record(token);
        } else if ((first >= '0' && first <= '9') || first == '-') {
            read_frame_number(token);
        } else {
            syntax_error(token);
        }
    }
}

// What follows the last point of the whole path, that of a directory even, becomes "sdb".
const char *database_path(const char *path)
{
    const char *point = std::strrchr(path, '.');
    std::string text = point != nullptr ? std::string(path, point) : std::string(path);
    text += ".sdb";
    char *absolute = path_absolute(text.c_str());
    const char *cached = str_cache(absolute);
    std::free(absolute);
    return cached;
}

// The whole file; empty when it cannot be opened.
std::vector<char> read_file(const char *path)
{
    std::FILE *stream = file_open(path, "r");
    if (stream == nullptr) {
        return {};
    }
    std::vector<char> content = read_rest(stream, path);
    std::fclose(stream);
    return content;
}

// The words of the prefix list. The last token of the first line is not one of them: it closes the list. False when the
// file does not begin with such a list.
bool read_prefix_list(sdb_input &in, vector_of<const char *> prefixes)
{
    if (!in.tokens.next().is("[p")) {
        alert(MESSAGE_BAD_PREFIX_LIST, in.path);
        return false;
    }
    for (;;) {
        const sdb_token token = in.tokens.next();
        const char *text = token.present ? str_cache(token.text) : prefixes.pop(); // the file may end with its list
        if (!token.present || token.ends_line) {
            DB_ASSERT(text != nullptr && std::strcmp(text, "]") == 0, "strcmp(tok, \"]\") == 0");
            return true;
        }
        prefixes.push(text);
    }
}

// Chooses the machine at the first database. Without one the program can't go on.
void choose_machine(vector_of<const char *> prefixes)
{
    if (!machine_init(prefixes)) {
        alert_exit(1);
    }
}

void set_flags(const sdb_input &in, vector_of<const char *> prefixes)
{
    for (const char *prefix : each(prefixes)) {
        if (!machine_set_flag(prefix)) {
            alert(MESSAGE_UNKNOWN_PREFIX, prefix, in.path);
        }
    }
}

// Sets the size of a predefined floating type for the file that is being read.
void set_float_size(const char *key, const char *flag)
{
    sdb_node *node = sdb_find(key);
    if (node != nullptr && sdb_is_variable(node->sdb_sclass) && node->var.va_type != nullptr &&
        node->var.va_type->ty_cnt > 0) {
        node->var.va_type->elements[0].basic.te_size = machine_has_flag(flag) ? IEEE_FLOAT_SIZE : SHORT_FLOAT_SIZE;
    }
}

// A module with no usable database. It has the line and file of a new block: those left from the database before.
sdb_node *assembly_module(const char *path)
{
    auto none = vector_of<const char *>::make();
    choose_machine(none);
    none.free();
    sdb_node *node = new_block(sc_asmodule);
    node->sdb_name = str_cache(path);
    sdb_add_member(sdb_current, node);
    return node;
}

sdb_node *compiled_module(sdb_input &in, const char *path, vector_of<const char *> prefixes)
{
    choose_machine(prefixes);
    sdb_reading.file = nullptr;
    set_flags(in, prefixes);
    set_float_size("f", "IEEE_FLT");
    set_float_size("d", "IEEE_DBL");
    sdb_reading.input = &in;
    sdb_node *node = block_reader(in).read_module();
    sdb_reading.input = nullptr;
    node->sdb_name = str_cache(path);
    sdb_reading.line = 1;
    sdb_add_member(sdb_current, node);
    return node;
}

sdb_node *read_database(const char *path, const char *database)
{
    const std::vector<char> content = read_file(database);
    if (content.empty()) {
        return assembly_module(path);
    }
    const std::string_view text(content.data(), content.size());
    sdb_input in{.path = database,
                 .tokens = sdb_tokens(text),
                 .type_budget = TYPE_BUDGET_BASE + TYPE_BUDGET_PER_BYTE * text.size()};
    auto prefixes = vector_of<const char *>::make();
    sdb_node *node = read_prefix_list(in, prefixes) ? compiled_module(in, path, prefixes) : assembly_module(path);
    prefixes.free();
    return node;
}

} // namespace

sdb_node *sdb_read(const char *path)
{
    if (!files_read) {
        files_read = hash_of<const char *, sdb_node *>::make(FILE_TABLE_SIZE);
    }
    const char *database = database_path(path);
    sdb_node *node = files_read.get(database);
    if (node == nullptr) {
        node = read_database(path, database);
        files_read.insert(database, node);
    }
    return node;
}

void sdb_reader_reset()
{
    sdb_reading.visible.forget();
    sdb_reading = sdb_state{};
    if (files_read) {
        files_read.free();
    }
    sdb_records_reset();
}

void sdb_enter(sdb_node *node)
{
    node->sdb_parent = sdb_current;
    node->sdb_index = sdb_current->block.bl_count;
    sdb_add_member(sdb_current, node);
}

void sdb_enter_named(sdb_node *node)
{
    sdb_enter(node);
    sdb_add_to_hash(sdb_current, node);
    if (!sdb_reading.visible.is_empty()) {
        sdb_reading.visible.add(node);
    }
}

sdb_node *sdb_lookup_here(const char *name)
{
    if (sdb_current == nullptr) {
        return nullptr;
    }
    if (sdb_reading.visible.is_empty() || sdb_reading.plain_lookups) {
        return sdb_scope_lookup(name, sdb_current, sdb_current->block.bl_count);
    }
    sdb_node *node = sdb_reading.visible.scope_lookup(name);
    if (node != nullptr) {
        return node;
    }
    const sdb_node *module = sdb_reading.module;
    return sdb_scope_lookup(name, module->sdb_parent, module->sdb_index);
}

sdb_node *sdb_lookup_local_here(const char *name)
{
    if (sdb_reading.visible.is_empty() || sdb_reading.plain_lookups) {
        return sdb_lookup_local(name);
    }
    return sdb_reading.visible.local_lookup(name);
}
