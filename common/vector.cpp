// SPDX-License-Identifier: MIT
// Vectors: growth, iterators and the master list. The hot operations are inline in the header.
#include "common/vector.h"

#include <algorithm>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "common/alloc.h"
#include "common/freecache.h"
#include "common/trace.h"
#include "common/vector_of.h"

// A vector's entry in the master list. It outlives its vector.
struct vector_master {
    vector *owner = nullptr;
    bool alive = false;
    birth_place born;
    std::uint32_t capacity = 0;  // the latest
    std::uint32_t max_count = 0; // the highest
};

namespace {

freecache *free_iterators = nullptr; // shared by all vectors
std::uint32_t next_serial = 0;
bool master_list_on = false;
vector_of<vector_master *> master_list;

void check_vector(const vector *p)
{
    CHECK_STATE(p != nullptr, "p != NULL");
    CHECK_STATE(p->master == nullptr || p->master->alive, "is_alive(p)");
}

vector_master *new_master(vector *p, birth_place where)
{
    vector_master *master = xnew(vector_master{.owner = p, .alive = true, .born = where});
    master_list.push(master);
    return master;
}

vector *new_record(void *memory, std::uint32_t initial_size)
{
    if (free_iterators == nullptr) {
        free_iterators = freecache_new(sizeof(vector_iterator), FREECACHE_LIMIT);
    }
    auto *p = place_record<vector>(memory);
    p->initial_size = initial_size;
    p->serial = next_serial++;
    return p;
}

bool has_lasting_words(const vector *p)
{
    return p->lasting && p->capacity == p->initial_size;
}

std::size_t size_of_words(const vector *p)
{
    return std::size_t{p->capacity} * sizeof(word);
}

void free_words(const vector *p)
{
    if (!has_lasting_words(p)) {
        xgrow_free(p->data, size_of_words(p));
    }
}

// Changes the capacity. Words behind the count become 0.
void set_capacity(vector *p, std::uint32_t capacity)
{
    const bool lasted = has_lasting_words(p);
    word *const words = p->data;
    const std::size_t old_size = size_of_words(p);
    const std::size_t kept = std::size_t{p->count} * sizeof(word);
    p->capacity = capacity;
    if (has_lasting_words(p)) {
        p->data = static_cast<word *>(xarena(size_of_words(p), alignof(word)));
    } else if (lasted) {
        p->data = static_cast<word *>(xgrow(nullptr, 0, size_of_words(p)));
        std::memcpy(p->data, words, kept);
    } else {
        if (kept != old_size) {
            std::memset(words + p->count, 0, old_size - kept);
        }
        p->data = static_cast<word *>(xgrow(words, old_size, size_of_words(p)));
    }
}

// Makes room for a store at `index`.
void grow_for(vector *p, std::uint32_t index)
{
    if (index < p->capacity) {
        return;
    }
    // From 0 the doubling would never end.
    CHECK_STATE(p->initial_size != 0, "initial_size != 0");
    std::uint64_t capacity = p->capacity == 0 ? p->initial_size : std::uint64_t{p->capacity} * 2;
    while (index >= capacity) {
        capacity *= 2;
    }
    // The last doubling ends at what the field can hold.
    set_capacity(
        p, static_cast<std::uint32_t>(std::min<std::uint64_t>(capacity, std::numeric_limits<std::uint32_t>::max())));
    if (p->master != nullptr) {
        p->master->capacity = p->capacity;
    }
}

vector *listed(vector *p, birth_place where)
{
    if (master_list_on) {
        p->master = new_master(p, where);
    }
    return p;
}

void set_count(vector *p, std::uint32_t count)
{
    p->count = count;
    if (p->master != nullptr) {
        p->master->max_count = std::max(p->master->max_count, count);
    }
}

} // namespace

vector *vector_new(birth_place where)
{
    return vector_new_sized(VECTOR_INITIAL_SIZE, where);
}

vector *vector_new_sized(std::uint32_t initial_size, birth_place where)
{
    return listed(new_record(xalloc(sizeof(vector)), initial_size), where);
}

vector *vector_new_lasting(std::uint32_t initial_size, birth_place where)
{
    vector *p = new_record(xarena(sizeof(vector), alignof(vector)), initial_size);
    p->lasting = true;
    return listed(p, where);
}

vector *vector_copy(const vector *p, birth_place where)
{
    if (p == nullptr) {
        return nullptr;
    }
    check_vector(p);
    vector *copy = new_record(xalloc(sizeof(vector)), p->initial_size);
    if (p->capacity != 0) {
        set_capacity(copy, p->capacity);
        copy->count = p->count;
        std::memcpy(copy->data, p->data, std::size_t{p->count} * sizeof(word));
    }
    // The source decides, not the switch: the copy of a listed vector is listed.
    if (p->master != nullptr) {
        copy->master = new_master(copy, where);
        copy->master->capacity = p->capacity;
        copy->master->max_count = p->count;
    }
    return copy;
}

void vector_free(vector *p)
{
    if (p == nullptr) {
        return;
    }
    check_vector(p);
    while (p->iterator != nullptr) {
        vector_iter_end(p);
    }
    if (p->master != nullptr) {
        p->master->alive = false;
    }
    free_words(p);
    if (!p->lasting) {
        std::free(p);
    }
}

std::uint32_t vector_push_slow(vector *p, word w)
{
    check_vector(p);
    const std::uint32_t index = p->count;
    grow_for(p, index);
    p->data[index] = w;
    set_count(p, index + 1);
    return index;
}

std::uint32_t vector_add_unique(vector *p, word w)
{
    const std::uint32_t index = vector_find(p, w);
    return index != NO_INDEX ? index : vector_push(p, w);
}

std::uint32_t vector_insert(vector *p, word w, std::uint32_t index)
{
    check_vector(p);
    index = std::min(index, p->count);
    grow_for(p, p->count);
    std::memmove(p->data + index + 1, p->data + index, std::size_t{p->count - index} * sizeof(word));
    p->data[index] = w;
    set_count(p, p->count + 1);
    for (vector_iterator *iterator = p->iterator; iterator != nullptr; iterator = iterator->below) {
        if (iterator->position >= index) {
            ++iterator->position;
        }
    }
    return index;
}

void vector_set(vector *p, word w, std::uint32_t index)
{
    check_vector(p);
    CHECK_STATE(index != NO_INDEX, "index != NO_INDEX");
    // A store into a full vector makes it grow, also where it only replaces a word.
    grow_for(p, std::max(p->count, index));
    p->data[index] = w;
    if (index >= p->count) {
        set_count(p, index + 1);
    }
}

word vector_pop(vector *p)
{
    check_vector(p);
    if (p->count == 0) {
        return 0;
    }
    CHECK_STATE(p->data != nullptr, "p->data != NULL");
    // The word stays in `data`: a `vector_set` further up brings it back.
    return p->data[--p->count];
}

int vector_delete(vector *p, std::uint32_t index)
{
    check_vector(p);
    if (index >= p->count) {
        return 0;
    }
    CHECK_STATE(p->data != nullptr, "p->data != NULL");
    --p->count;
    std::memmove(p->data + index, p->data + index + 1, std::size_t{p->count - index} * sizeof(word));
    p->data[p->count] = 0;
    for (vector_iterator *iterator = p->iterator; iterator != nullptr; iterator = iterator->below) {
        if (iterator->position > index) {
            --iterator->position;
        }
    }
    return 1;
}

std::uint32_t vector_find(const vector *p, word w)
{
    check_vector(p);
    if (p->count == 0) {
        return NO_INDEX;
    }
    CHECK_STATE(p->data != nullptr, "p->data != NULL");
    const word *end = p->data + p->count;
    const word *found = std::find(static_cast<const word *>(p->data), end, w);
    return found != end ? static_cast<std::uint32_t>(found - p->data) : NO_INDEX;
}

void vector_clear(vector *p)
{
    check_vector(p);
    p->count = 0;
}

std::uint32_t vector_append(vector *p, const vector *n)
{
    check_vector(p);
    CHECK_STATE(n != nullptr, "n != NULL");
    // Counted ahead, so that a vector can be appended to itself.
    const std::uint32_t count = n->count;
    for (std::uint32_t index = 0; index < count; ++index) {
        vector_push(p, vector_get(n, index));
    }
    return count;
}

void vector_sort(vector *p, compare_function compare)
{
    check_vector(p);
    if (p->count == 0) {
        return;
    }
    CHECK_STATE(p->data != nullptr, "p->data != NULL");
    quicksort(p->data, p->count, sizeof(word), compare);
}

void vector_iter_begin(vector *p)
{
    if (p == nullptr) {
        return;
    }
    auto *iterator = static_cast<vector_iterator *>(freecache_get(free_iterators));
    iterator->below = p->iterator;
    p->iterator = iterator;
}

void vector_iter_end(vector *p)
{
    vector_iterator *iterator = p->iterator;
    CHECK_STATE(iterator != nullptr, "p->iterator != NULL");
    p->iterator = iterator->below;
    freecache_put(free_iterators, iterator);
}

word vector_first(vector *p)
{
    vector_iter_begin(p);
    return vector_next(p);
}

void vector_master_list(bool enable)
{
    master_list_on = false;
    if (enable) {
        master_list.free();
        // Made while the switch is off, so the master vector has no record of itself.
        master_list = vector_of<vector_master *>::make();
        master_list_on = true;
    }
}

namespace {

int three_way(std::uint64_t left, std::uint64_t right)
{
    return left < right ? -1 : left > right ? 1 : 0;
}

// Largest first, then least used, then by birth place; of equals the later record comes first.
int compare_masters(vector_master *left, vector_master *right)
{
    if (const int order = three_way(right->capacity, left->capacity); order != 0) {
        return order;
    }
    if (const int order = three_way(left->max_count, right->max_count); order != 0) {
        return order;
    }
    if (const int order = std::strcmp(left->born.file, right->born.file); order != 0) {
        return order;
    }
    if (left->born.line != right->born.line) {
        return left->born.line < right->born.line ? -1 : 1;
    }
    return three_way(to_word(right), to_word(left));
}

struct vector_sum {
    std::uintmax_t vectors = 0;
    std::uintmax_t capacity = 0;

    void add(std::uint32_t more)
    {
        ++vectors;
        capacity += more;
    }
};

// One row of the summary: the vectors born at one place.
struct summary_row {
    summary_row *next = nullptr;
    birth_place born;
    vector_sum living{};
    vector_sum dead{};
    vector_sum total{}; // filled in the last row only
};

class summary {
public:
    summary() = default;
    ~summary()
    {
        while (first_ != &last_) {
            summary_row *row = first_;
            first_ = row->next;
            std::free(row);
        }
    }
    summary(const summary &) = delete;
    summary &operator=(const summary &) = delete;

    void add(const vector_master *master)
    {
        add_to(row_of(master->born), master);
        add_to(&last_, master);
        // The total columns of the other rows stay 0/0: the dump has to look that way.
        last_.total.add(master->capacity);
    }

    void print() const
    {
        trace_raw_text("# Vector Master List Summary:");
        trace_raw_text("#                                                                   "
                       "Living                Dead                Total");
        trace_raw_text("#                           file:line                        "
                       "vectors/capacity    vectors/capacity    vectors/capacity");
        for (const summary_row *row = first_; row != nullptr; row = row->next) {
            trace_raw("# %35s:%-5d                        %ju/%ju    %ju/%ju    %ju/%ju", row->born.file,
                      row->born.line, row->living.vectors, row->living.capacity, row->dead.vectors, row->dead.capacity,
                      row->total.vectors, row->total.capacity);
        }
    }

private:
    static void add_to(summary_row *row, const vector_master *master)
    {
        (master->alive ? row->living : row->dead).add(master->capacity);
    }

    // Places are told apart by the file's pointer, as the creating calls passed it. New rows go to the front.
    summary_row *row_of(birth_place born)
    {
        for (summary_row *row = first_; row != nullptr; row = row->next) {
            if (row->born.file == born.file && row->born.line == born.line) {
                return row;
            }
        }
        auto *row = place_record(xalloc(sizeof(summary_row)), summary_row{.next = first_, .born = born});
        first_ = row;
        return row;
    }

    summary_row last_{.born = {"Total Summary", 0}};
    summary_row *first_ = &last_;
};

} // namespace

void vector_dump_master_list()
{
    if (master_list) {
        master_list.sort<compare_masters>();
    }
    trace_raw_text("# Living Vector Master List:");
    trace_raw_text("# ptr    file:line    max_count/capacity    alive");
    summary places;
    for (const vector_master *master : each(master_list)) {
        places.add(master);
        if (master->alive) {
            trace_raw("# %p    %s:%d    %u/%u    %c", static_cast<void *>(master->owner), master->born.file,
                      master->born.line, master->max_count, master->capacity, 'Y');
        }
    }
    places.print();
}
