// SPDX-License-Identifier: MIT
// Allocation that cannot fail for its caller, and the arena of what lives until the process ends.
#include "common/alloc.h"

#include <cstdlib>
#include <limits>
#include <new>

#include "common/alert.h"

#if defined(__SANITIZE_ADDRESS__)
#define ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ADDRESS_SANITIZER 1
#endif
#endif

namespace {

constexpr std::uint32_t MESSAGE_OUT_OF_MEMORY = 296;
// No object is larger; a request above it is refused before the C library is asked.
constexpr std::size_t MAX_SIZE = std::numeric_limits<std::ptrdiff_t>::max();

[[noreturn]] void out_of_memory()
{
    // The report may itself run out of memory; the second time there is nothing left to say.
    static bool reported = false;
    if (!reported) {
        reported = true;
        alert(MESSAGE_OUT_OF_MEMORY);
    }
    // A catalogue may have lowered the message, but no caller can go on without its memory.
    std::abort();
}

// Blocks are linked, so that what lies in them counts as reachable to a leak checker.
struct arena_block {
    arena_block *next;
};

constexpr std::size_t ARENA_BLOCK_SIZE = 256 * std::size_t{1024};
// A request above this gets a block of its own, so that at most a quarter of a block is ever wasted.
constexpr std::size_t ARENA_OWN_BLOCK = ARENA_BLOCK_SIZE / 4;
#if defined(ADDRESS_SANITIZER)
// Under the address sanitizer every request stands alone, so that it sees an overrun.
constexpr bool ARENA_SHARES_BLOCKS = false;
#else
constexpr bool ARENA_SHARES_BLOCKS = true;
#endif

arena_block *arena_blocks = nullptr;
char *arena_free = nullptr; // what is left of the shared block
char *arena_end = nullptr;

// The first `size` bytes of a new zero-filled block.
char *arena_new_block(std::size_t size)
{
    auto *block = static_cast<arena_block *>(xalloc(sizeof(arena_block) + size));
    block->next = arena_blocks;
    arena_blocks = block;
    return reinterpret_cast<char *>(block + 1);
}

std::size_t padding_to(const char *address, std::size_t align)
{
    return (align - reinterpret_cast<std::uintptr_t>(address) % align) % align;
}

} // namespace

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

void *xarena(std::size_t size, std::size_t align)
{
    if (size > MAX_SIZE - sizeof(arena_block) - align) [[unlikely]] {
        out_of_memory();
    }
    if (!ARENA_SHARES_BLOCKS || size + align > ARENA_OWN_BLOCK) {
        char *block = arena_new_block(size + align - 1);
        return block + padding_to(block, align);
    }
    std::size_t padding = padding_to(arena_free, align);
    if (size + padding > static_cast<std::size_t>(arena_end - arena_free)) {
        arena_free = arena_new_block(ARENA_BLOCK_SIZE);
        arena_end = arena_free + ARENA_BLOCK_SIZE;
        padding = padding_to(arena_free, align);
    }
    char *memory = arena_free + padding;
    arena_free = memory + size;
    return memory;
}

void xalloc_report_all()
{
    std::set_new_handler(out_of_memory);
}
