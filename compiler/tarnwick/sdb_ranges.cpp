// SPDX-License-Identifier: MIT
// Address ranges of the symbol database. The compiler tells by source lines how far a block reaches and where a
// variable lives; debugging information wants addresses. The map file gives the ranges of a function, the line table
// the addresses of lines within them.
#include "compiler/tarnwick/sdb_ranges.h"

#include <algorithm>
#include <functional>
#include <queue>
#include <vector>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/trace.h"
#include "compiler/common/lists.h"
#include "compiler/common/tmf.h"
#include "compiler/tarnwick/dwarf_options.h"
#include "compiler/tarnwick/model.h"

namespace {

constexpr std::uint32_t MESSAGE_NO_MEMORY = 294;

// Ranges and split locations that one run may make. A block may run through all ranges of its function, so a hostile
// input could ask for their product: this is far beyond any real program, and in proportion to a hostile one.
constexpr std::uint64_t RECORDS_BASE = std::uint64_t{1} << 20;
constexpr std::uint64_t RECORDS_PER_INPUT = 16; // for each line and each symbol of the model
std::uint64_t records_left = 0;

// Whether one more record of this size may be made.
bool take_record(std::size_t size)
{
    if (records_left == 0) {
        alert(MESSAGE_NO_MEMORY, static_cast<std::uint32_t>(size));
        return false;
    }
    --records_left;
    return true;
}

// The end of a block's list, where ranges are added.
class range_tail {
public:
    explicit range_tail(sdb_block *block) : block_(block), link_(&block->bl_ranges)
    {
        while (*link_ != nullptr) {
            link_ = &(*link_)->next;
        }
    }
    void add(std::uint32_t low, std::uint32_t high)
    {
        DB_ASSERT(!(low > high), "!(lo > hi)");
        DB_ASSERT(!(high < low), "!(hi < lo)");
        *link_ = xnew<sdb_range>({.low = low, .high = high});
        link_ = &(*link_)->next;
        ++block_->bl_nranges;
    }

private:
    sdb_block *block_;
    sdb_range **link_;
};

bool lies_in(const address_range &range, std::uint32_t address)
{
    return range.low <= address && address <= range.high;
}

// The ranges of a function in their order, and an index of the addresses in them.
class function_ranges {
public:
    explicit function_ranges(const sdb_block &function);

    const std::vector<address_range> &list() const { return list_; }
    // The bounds of the first and last range count as 0 where there is none.
    std::uint32_t low() const { return list_.empty() ? 0 : list_.front().low; }
    std::uint32_t high() const { return list_.empty() ? 0 : list_.back().high; }
    // The place in the list of the first range in which an address lies; the list's size when there is none.
    std::size_t first_holding(std::uint32_t address) const;
    // The address of a source line within the ranges: 0 when there is none, and then the address is 0 too.
    int find_line_address(const char *file, std::uint32_t line, std::uint32_t *address) const;

private:
    // From `start` on, up to the next step, `first` is the place of the first range that holds the address.
    struct step {
        std::uint64_t start;
        std::size_t first;
    };
    void make_steps();
    void make_ordered();

    std::vector<address_range> list_;
    std::vector<step> steps_;
    std::vector<address_range> ordered_; // what the list covers, in ascending order
};

function_ranges::function_ranges(const sdb_block &function)
{
    for (const sdb_range *range = function.bl_ranges; range != nullptr; range = range->next) {
        list_.push_back({.low = range->low, .high = range->high});
    }
    make_steps();
    make_ordered();
}

// A sweep over the bounds of the ranges keeps those that hold the present address in a heap, the first of the list on
// top; what has ended is dropped when it gets there.
void function_ranges::make_steps()
{
    std::vector<std::size_t> by_low;
    std::vector<std::uint64_t> bounds;
    for (std::size_t i = 0; i < list_.size(); ++i) {
        if (list_[i].low <= list_[i].high) {
            by_low.push_back(i);
            bounds.push_back(list_[i].low);
            bounds.push_back(std::uint64_t{list_[i].high} + 1);
        }
    }
    std::sort(bounds.begin(), bounds.end());
    std::sort(by_low.begin(), by_low.end(),
              [this](std::size_t left, std::size_t right) { return list_[left].low < list_[right].low; });

    std::priority_queue<std::size_t, std::vector<std::size_t>, std::greater<>> live;
    auto next = by_low.cbegin();
    for (const std::uint64_t bound : bounds) {
        for (; next != by_low.cend() && list_[*next].low <= bound; ++next) {
            live.push(*next);
        }
        while (!live.empty() && list_[live.top()].high < bound) {
            live.pop();
        }
        const std::size_t first = live.empty() ? list_.size() : live.top();
        if (steps_.empty() || steps_.back().first != first) {
            steps_.push_back({bound, first});
        }
    }
}

// The stretches between steps at which no range holds the address. The last step is always one of these.
void function_ranges::make_ordered()
{
    bool open = false;
    for (const step &at : steps_) {
        if (at.first == list_.size()) {
            ordered_.back().high = static_cast<std::uint32_t>(at.start - 1);
            open = false;
        } else if (!open) {
            ordered_.push_back({.low = static_cast<std::uint32_t>(at.start)});
            open = true;
        }
    }
}

std::size_t function_ranges::first_holding(std::uint32_t address) const
{
    const auto behind = std::upper_bound(steps_.begin(), steps_.end(), address,
                                         [](std::uint32_t value, const step &at) { return value < at.start; });
    return behind == steps_.begin() ? list_.size() : behind[-1].first;
}

int function_ranges::find_line_address(const char *file, std::uint32_t line, std::uint32_t *address) const
{
    *address = 0;
    if (ordered_.empty() && !list_.empty()) {
        return 0; // ranges of which none holds an address
    }
    return tarn_line_addr_any(file, line, address, ordered_); // with no range at all, any address counts
}

// ---- Blocks

// The ranges of a block between the addresses of its first and last line.
void add_block_ranges(sdb_block *block, std::uint32_t first_addr, std::uint32_t last_addr, int last_result,
                      const function_ranges &ranges)
{
    const std::vector<address_range> &list = ranges.list();
    const std::size_t start_range = ranges.first_holding(first_addr);
    DB_ASSERT(start_range != list.size(), "start_range != NULL");
    range_tail tail(block);
    for (std::size_t mr = start_range; mr < list.size(); ++mr) {
        const address_range &range = list[mr];
        TRACEF(TRACE_ON, "curr_range: 0x%X-0x%X", range.low, range.high);
        if (!take_record(sizeof(sdb_range))) {
            return;
        }
        const bool is_start = mr == start_range;
        if (lies_in(range, last_addr)) {
            if (is_start) {
                TRACEF(TRACE_ON, "add all in start range: 0x%X-0x%X", first_addr, last_addr);
            } else {
                TRACEF(TRACE_ON, "add last range: 0x%X-0x%X", range.low, last_addr);
            }
            tail.add(is_start ? first_addr : range.low, last_addr);
            return;
        }
        if (is_start) {
            TRACEF(TRACE_ON, "add start range: 0x%X-0x%X", first_addr, range.high);
        } else {
            TRACEF(TRACE_ON, "add interemdiate range: 0x%X-0x%X", range.low, range.high); // the word is spelled so
        }
        tail.add(is_start ? first_addr : range.low, range.high);
    }
    DB_ASSERT(start_range == list.size() || last_result == 0, "mr != NULL || find_line_address_retv == 0");
}

void calc_own_ranges(sdb_block *block, const function_ranges &ranges)
{
    if (block->bl_ranges != nullptr) {
        return; // it keeps them, and so does the function's own block
    }
    std::uint32_t first_addr = 0;
    std::uint32_t last_addr = 0;
    int find_line_address_retv = ranges.find_line_address(block->bl_file, block->bl_first, &first_addr);
    DB_ASSERT(find_line_address_retv != 0, "find_line_address_retv != 0");
    find_line_address_retv = ranges.find_line_address(block->bl_file, block->bl_last, &last_addr);
    TRACEF(TRACE_ON, "first_addr[0x%X] last_addr[0x%X][%d]", first_addr, last_addr, find_line_address_retv);
    add_block_ranges(block, first_addr, last_addr, find_line_address_retv, ranges);
}

// A block whose members are being gone through.
struct open_block {
    sdb_node *node;
    std::uint32_t next; // member
};

// Gives the blocks of a function their ranges, each before those inside it. Blocks nest as deeply as the input likes.
void calc_block_ranges_r(sdb_node *function, const function_ranges &ranges)
{
    std::vector<open_block> open;
    const auto enter = [&](sdb_node *node) {
        if (tracing(TRACE_ON)) {
            trace_enter(__FILE__, __LINE__, "calc_block_ranges_r", nullptr);
        }
        calc_own_ranges(&node->block, ranges);
        open.push_back({node, 0});
    };
    enter(function);
    while (!open.empty()) {
        open_block &at = open.back();
        const sdb_block &block = at.node->block;
        if (at.next == block.bl_count) {
            if (tracing(TRACE_ON)) {
                trace_exit(__FILE__, __LINE__, "calc_block_ranges_r", nullptr);
            }
            open.pop_back();
            continue;
        }
        sdb_node *member = block.bl_members[at.next++];
        if (member->sdb_sclass == sc_block) {
            enter(member); // faked blocks count as blocks
        }
    }
}

// ---- Variables

// Without location lists a variable has one place: the first that is no register.
void keep_one_location(sdb_var *var)
{
    auto new_locs = vector_of<sdb_location *>::make();
    for (sdb_location *loc : each(var->va_locations)) {
        if (loc->lo_kind != LO_REGISTER && new_locs.empty()) {
            new_locs.push(loc);
        }
    }
    DB_ASSERT(new_locs.count() == 1, "vec_size(new_locs) == 1");
    var->va_locations.free();
    var->va_locations = new_locs;
}

bool comes_before(const sdb_location *left, const sdb_location *right)
{
    const bool same = left->lo_line == right->lo_line && left->lo_id == right->lo_id;
    DB_ASSERT(!same || right == left, "diff != 0 || (*rght.loc) == (*left.loc)");
    return left->lo_line != right->lo_line ? left->lo_line < right->lo_line : left->lo_id < right->lo_id;
}

// The locations of a variable, on their way from lines to addresses.
class auto_ranges {
public:
    auto_ranges(const sdb_node *var, const sdb_node *block, const sdb_node *function, const function_ranges &ranges)
        : is_param_(var->sdb_sclass == sc_param), block_(block->block), function_(function->block), ranges_(ranges)
    {
        for (sdb_location *loc : each(var->var.va_locations)) {
            locations_.push_back(loc);
        }
        std::stable_sort(locations_.begin(), locations_.end(), comes_before);
        count_ = locations_.size();
    }
    vector_of<sdb_location *> split();

private:
    // What a location spans: until `last`, or up to it where `adjust` is 1.
    struct span {
        std::uint32_t first = 0;
        std::uint32_t last = 0;
        std::uint32_t adjust = 0;
    };
    std::uint32_t first_address(std::size_t i) const;
    void end_at_next(const sdb_location *next, std::size_t i, span *at);
    std::uint32_t last_address(const sdb_location *loc) const;
    void split_location(sdb_location *loc, const span &at);
    bool add(sdb_location *loc, std::uint32_t low, std::uint32_t high);

    bool starts_with_function(const sdb_location *loc) const { return loc->lo_line <= function_.bl_first; }

    bool is_param_;
    const sdb_block &block_;
    const sdb_block &function_;
    const function_ranges &ranges_;
    std::vector<sdb_location *> locations_;
    std::size_t count_ = 0; // of locations that are looked at
    vector_of<sdb_location *> new_locs_ = vector_of<sdb_location *>::make();
};

std::uint32_t auto_ranges::first_address(std::size_t i) const
{
    const sdb_location *loc = locations_[i];
    std::uint32_t first_addr = ranges_.low();
    if ((i == 0 && is_param_) || starts_with_function(loc)) {
        TRACEF(TRACE_ON, "first_addr[0x%X] from function start", first_addr);
        return first_addr;
    }
    const int find_line_address_retv = ranges_.find_line_address(loc->lo_file, loc->lo_line, &first_addr);
    DB_ASSERT(find_line_address_retv != 0, "find_line_address_retv != 0");
    TRACEF(TRACE_ON, "first_addr[0x%X] from loc start line", first_addr);
    return first_addr;
}

// The end of a location at which another takes over.
void auto_ranges::end_at_next(const sdb_location *next, std::size_t i, span *at)
{
    if (starts_with_function(next)) {
        at->last = ranges_.low();
        TRACEF(TRACE_ON, "last_addr[0x%X] from next loc start line overlaps", at->last);
    } else if (ranges_.find_line_address(next->lo_file, next->lo_line, &at->last) != 0) {
        at->adjust = 1; // it ends just before the next one starts
        TRACEF(TRACE_ON, "last_addr[0x%X] from next loc start line", at->last);
    } else {
        at->last = ranges_.high();
        TRACEF(TRACE_ON, "last_addr[0x%X] cannot find address from next loc start line, use last addr in function",
               at->last);
        count_ = i + 1; // the locations behind it are dropped
    }
}

std::uint32_t auto_ranges::last_address(const sdb_location *loc) const
{
    std::uint32_t last_addr = ranges_.high();
    if (block_.bl_last >= function_.bl_last) {
        TRACEF(TRACE_ON, "last_addr[0x%X] from function end", last_addr);
        return last_addr;
    }
    const int find_line_address_retv =
        ranges_.find_line_address(loc->lo_file, block_.bl_last, &last_addr); // the smaller of the two last lines
    DB_ASSERT(find_line_address_retv != 0, "find_line_address_retv != 0");
    TRACEF(TRACE_ON, "last_addr[0x%X] from var end line", last_addr);
    return last_addr;
}

// A copy of the location for a range of addresses; false when no more may be made.
bool auto_ranges::add(sdb_location *loc, std::uint32_t low, std::uint32_t high)
{
    if (!take_record(sizeof(sdb_location))) {
        return false;
    }
    loc->lo_id = sdb_next_location_id();
    auto *copy = xnew<sdb_location>(*loc);
    copy->lo_low = low;
    copy->lo_high = high;
    new_locs_.push(copy);
    return true;
}

void auto_ranges::split_location(sdb_location *loc, const span &at)
{
    const std::vector<address_range> &list = ranges_.list();
    const std::size_t start_range = ranges_.first_holding(at.first);
    DB_ASSERT(start_range != list.size(), "start_range != NULL");
    if (start_range == list.size()) {
        return;
    }
    TRACEF(TRACE_ON, "start_range: 0x%X-0x%X", list[start_range].low, list[start_range].high);
    for (std::size_t mr = start_range; mr < list.size(); ++mr) {
        const auto [low, high] = list[mr];
        const bool is_start = mr == start_range;
        TRACEF(TRACE_ON, "curr_range: 0x%X-0x%X", low, high);
        if (lies_in(list[mr], at.last)) {
            const std::uint32_t last_addr = at.last - at.adjust;
            if (is_start) {
                TRACEF(TRACE_ON, "all in start range: 0x%X-0x%X", at.first, last_addr);
                add(loc, at.first, last_addr);
            } else if (low == at.last) {
                TRACEF(TRACE_ON, "skip range"); // it would have no bytes here
            } else {
                TRACEF(TRACE_ON, "last range: 0x%X-0x%X", low, last_addr);
                add(loc, low, last_addr);
            }
            return;
        }
        if (is_start) {
            TRACEF(TRACE_ON, "start range: 0x%X-0x%X", at.first, high);
        } else {
            TRACEF(TRACE_ON, "interemdiate range: 0x%X-0x%X", low, high); // the word is spelled so
        }
        if (!add(loc, is_start ? at.first : low, high)) {
            return;
        }
    }
    DB_ASSERT(false, "mr != NULL");
}

vector_of<sdb_location *> auto_ranges::split()
{
    for (std::size_t i = 0; i < count_; ++i) {
        span at = {.first = first_address(i)};
        if (i + 1 < count_) {
            end_at_next(locations_[i + 1], i, &at);
        } else {
            at.last = last_address(locations_[i]);
        }
        split_location(locations_[i], at);
    }
    DB_ASSERT(new_locs_.count() >= count_, "vec_size(new_locs) >= old_loc_count");
    return new_locs_;
}

void calc_auto_ranges(sdb_node *var, const sdb_node *block, const sdb_node *function, const function_ranges &ranges)
{
    const trace_scope scope(TRACE_ON, "calc_auto_ranges");
    if (var->var.va_locations.count() < 2) {
        return; // it holds through the whole scope
    }
    if (dwarf_use_loclists == DWARF_USE_NEVER) {
        keep_one_location(&var->var);
        return;
    }
    vector_of<sdb_location *> new_locs = auto_ranges(var, block, function, ranges).split();
    var->var.va_locations.free();
    var->var.va_locations = new_locs;
}

// The variables of a function and of the blocks in it, in the order of the members.
void calc_block_autos(sdb_node *function, const function_ranges &ranges)
{
    std::vector<open_block> open = {{function, 0}};
    while (!open.empty()) {
        open_block &at = open.back();
        if (at.next == at.node->block.bl_count) {
            open.pop_back();
            continue;
        }
        sdb_node *member = at.node->block.bl_members[at.next++];
        if (member->sdb_sclass == sc_auto || member->sdb_sclass == sc_param) {
            calc_auto_ranges(member, at.node, function, ranges);
        } else if (member->sdb_sclass == sc_block) {
            open.push_back({member, 0});
        }
    }
}

// ---- Functions and modules

// The ranges of a module: what its functions cover. They gather here and become the module's list at the end.
class module_ranges {
public:
    explicit module_ranges(sdb_block *module) : module_(module)
    {
        for (const sdb_range *range = module->bl_ranges; range != nullptr; range = range->next) {
            add(range->low, range->high);
        }
    }
    void add(std::uint32_t low, std::uint32_t high);
    void finish();

private:
    sdb_block *module_;
    std::vector<address_range> ranges_;
};

void module_ranges::add(std::uint32_t low, std::uint32_t high)
{
    if (high < low) {
        memory_range *none = nullptr;
        range_add(&none, low, high, true); // refuses it
        return;
    }
    ranges_.push_back({.low = low, .high = high});
}

// The list is what adding the ranges one by one to a memory range list would give, with touching ones joined.
void module_ranges::finish()
{
    std::sort(ranges_.begin(), ranges_.end(),
              [](const address_range &left, const address_range &right) { return left.low < right.low; });
    sdb_range *last = nullptr;
    sdb_range **link = &module_->bl_ranges;
    *link = nullptr;
    for (const address_range &range : ranges_) {
        if (last != nullptr && range.low <= std::uint64_t{last->high} + 1) {
            last->high = std::max(last->high, range.high);
            continue;
        }
        last = xnew<sdb_range>({.low = range.low, .high = range.high});
        *link = last;
        link = &last->next;
        ++module_->bl_nranges; // on top of what was counted before
    }
}

void trace_module_ranges(const sdb_node *module)
{
    TRACEF(TRACE_ON, "Module Ranges: %s", module->sdb_name);
    for (const sdb_range *range = module->block.bl_ranges; range != nullptr; range = range->next) {
        TRACEF(TRACE_ON, "    0x%X-0x%X", range->low, range->high);
    }
}

// The ranges that the map file gives for the function's entry label go at the end of its list.
void fetch_function_ranges(sdb_node *block)
{
    const char *name = block->block.bl_func->sdb_name;
    const tarn_symbol *funsym = name != nullptr ? tarn_find_symbol(name) : nullptr;
    DB_ASSERT(funsym != nullptr, "funsym != NULL");
    if (funsym == nullptr) {
        return; // what has no symbol has no code
    }
    TRACEF(TRACE_ON, "entry:%s", funsym->sy_name);
    range_tail tail(&block->block);
    for (const tmf_range &range : tmf_entry_ranges(funsym->sy_name)) {
        if (!take_record(sizeof(sdb_range))) {
            return;
        }
        TRACEF(TRACE_ON, "add_range: %X - %X", range.low, range.high);
        tail.add(range.low, range.high);
    }
}

void calc_function_ranges(module_ranges *module, sdb_node *block)
{
    const trace_scope scope(TRACE_ON, "calc_function_ranges");
    fetch_function_ranges(block);
    for (const sdb_range *range = block->block.bl_ranges; range != nullptr; range = range->next) {
        module->add(range->low, range->high);
    }
    const function_ranges ranges(block->block);
    calc_block_ranges_r(block, ranges);
    calc_block_autos(block, ranges);
}

bool has_code(const sdb_node *node)
{
    // An inlined function has no code of its own, and its ranges stay empty.
    return node->sdb_sclass == sc_func && node->block.bl_func != nullptr && node->block.bl_func->var.va_inline == 0;
}

void calc_module_ranges(sdb_node *module)
{
    module_ranges ranges(&module->block);
    for (std::uint32_t i = 0; i < module->block.bl_count; ++i) {
        sdb_node *member = module->block.bl_members[i];
        if (has_code(member)) {
            calc_function_ranges(&ranges, member);
        }
    }
    ranges.finish();
    trace_module_ranges(module);
}

} // namespace

void add_range(sdb_block *block, std::uint32_t low, std::uint32_t high)
{
    range_tail(block).add(low, high);
}

void sdb_calc_ranges()
{
    const trace_scope scope(TRACE_ON, "sdb_calc_ranges");
    if (sdb_global == nullptr) {
        return;
    }
    records_left = RECORDS_BASE + RECORDS_PER_INPUT * (std::uint64_t{line_list.count()} + symbol_list.count());
    const sdb_block &global = sdb_global->block;
    for (std::uint32_t i = 0; i < global.bl_count; ++i) {
        if (global.bl_members[i]->sdb_sclass == sc_module) {
            calc_module_ranges(global.bl_members[i]);
        }
    }
}
