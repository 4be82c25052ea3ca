// SPDX-License-Identifier: MIT
// Allocation that cannot fail for its caller, and the arena of what lives until the process ends.
#include "common/alloc.h"

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <new>

#include <sys/mman.h>

#include "common/alert.h"

namespace {

constexpr std::uint32_t MESSAGE_OUT_OF_MEMORY = 296;
// No object is larger; a request above it is refused before the C library is asked.
constexpr std::size_t MAX_SIZE = std::numeric_limits<std::ptrdiff_t>::max();

// Given back when memory runs out, so that the report and the end of the run have what they need.
constexpr std::size_t RESERVE_SIZE = std::size_t{2} << 20;
void *reserve = nullptr;

[[noreturn]] void out_of_memory()
{
    static bool reported = false;
    if (reported) {
        std::fputs("out of memory\n", stderr); // the report itself, or the end of the run, found none
    } else {
        reported = true;
        std::free(reserve);
        alert(MESSAGE_OUT_OF_MEMORY);
    }
    // A catalogue may have lowered the message, but no caller can go on without its memory.
    alert_exit(EXIT_FAILURE);
}

// Blocks of single requests are linked, so that they count as reachable to a leak checker.
struct arena_block {
    arena_block *next;
};

constexpr std::size_t ARENA_BLOCK_SIZE = 512 * std::size_t{1024};
// A request above this gets a block of its own, so that at most a quarter of a block is ever wasted.
constexpr std::size_t ARENA_OWN_BLOCK = ARENA_BLOCK_SIZE / 4;

arena_block *arena_blocks = nullptr;

// The first `size` bytes of a new zero-filled block.
char *arena_new_block(std::size_t size)
{
    auto *block = static_cast<arena_block *>(xalloc(sizeof(arena_block) + size));
    block->next = arena_blocks;
    arena_blocks = block;
    return reinterpret_cast<char *>(block + 1);
}

// Another block for small requests to share. The host's fresh pages are filled with zeros already.
char *arena_shared_block()
{
    void *block = ::mmap(nullptr, ARENA_BLOCK_SIZE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) [[unlikely]] {
        out_of_memory();
    }
    return static_cast<char *>(block);
}

} // namespace

char *arena_free = nullptr;
char *arena_end = nullptr;

void *xalloc(std::size_t size)
{
    void *memory = size <= MAX_SIZE ? std::calloc(1, size != 0 ? size : 1) : nullptr;
    if (memory == nullptr) [[unlikely]] {
        out_of_memory();
    }
    return memory;
}

void *xrealloc(void *memory, std::size_t size)
{
    void *moved = size <= MAX_SIZE ? std::realloc(memory, size != 0 ? size : 1) : nullptr;
    if (moved == nullptr) [[unlikely]] {
        out_of_memory();
    }
    return moved;
}

// NOLINTNEXTLINE(misc-no-recursion): a new block has room
void *xarena_slow(std::size_t size, std::size_t align)
{
    if (size > MAX_SIZE - sizeof(arena_block) - align) [[unlikely]] {
        out_of_memory();
    }
    if (!ARENA_SHARES_BLOCKS || size + align > ARENA_OWN_BLOCK) {
        char *block = arena_new_block(size + align - 1);
        return block + arena_padding(block, align);
    }
    arena_free = arena_shared_block();
    arena_end = arena_free + ARENA_BLOCK_SIZE;
    return xarena(size, align);
}

void xalloc_report_all()
{
    reserve = std::malloc(RESERVE_SIZE);
    std::set_new_handler(out_of_memory);
}
