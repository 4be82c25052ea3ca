// SPDX-License-Identifier: MIT
// Allocation that cannot fail for its caller, and the arena of what lives until the process ends.
#include "common/alloc.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include <sys/mman.h>
#include <unistd.h>

#include "common/alert.h"

namespace {

constexpr std::uint32_t MESSAGE_OUT_OF_MEMORY = 296;
// No object is larger; a request above it is refused before the C library is asked.
constexpr std::size_t MAX_SIZE = std::numeric_limits<std::ptrdiff_t>::max();

// Given back when memory runs out, so that the report and the end of the run have what they need.
constexpr std::size_t RESERVE_SIZE = std::size_t{2} << 20;
void *reserve = nullptr;

// From here on memory that grows has pages of its own, and from there on it is worth large ones. The address sanitizer does
// not look into such pages for what they lead to.
constexpr bool HAS_OWN_PAGES = !IS_SANITIZED;
constexpr std::size_t OWN_PAGES = 512 * std::size_t{1024};
constexpr std::size_t LARGE_PAGES = std::size_t{4} << 20;
constexpr std::size_t LARGE_PAGE = std::size_t{2} << 20;

void *pages_or_report(void *pages)
{
    if (pages == MAP_FAILED) [[unlikely]] {
        out_of_memory();
    }
    return pages;
}

char *map_pages(std::size_t size, int flags)
{
    return static_cast<char *>(
        pages_or_report(::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | flags, -1, 0)));
}

// Zero-filled pages, which `munmap` gives back. Many of them begin where a large page does, and the host is asked for such:
// they come at a time, and searches all over them find their way faster.
char *new_pages(std::size_t size)
{
    if (size < LARGE_PAGES || size > MAX_SIZE - LARGE_PAGE) {
        return map_pages(size, 0);
    }
    char *const mapped = map_pages(size + LARGE_PAGE, 0);
    const std::size_t head = arena_padding(mapped, LARGE_PAGE);
    char *const pages = mapped + head;
    char *const end = pages + size;
    char *const tail = end + arena_padding(end, static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)));
    if (head != 0) {
        ::munmap(mapped, head);
    }
    ::munmap(tail, static_cast<std::size_t>(mapped + size + LARGE_PAGE - tail));
    ::madvise(pages, size, MADV_HUGEPAGE); // a host without them has ordinary ones
    return pages;
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

// Another block for small requests to share. The host's fresh pages are filled with zeros already; that they come all at
// once costs less than one by one.
char *arena_shared_block()
{
    return map_pages(ARENA_BLOCK_SIZE, MAP_POPULATE);
}

} // namespace

char *arena_free = nullptr;
char *arena_end = nullptr;

void out_of_memory()
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

void *xgrow(void *memory, std::size_t old_size, std::size_t size)
{
    if (HAS_OWN_PAGES && old_size >= OWN_PAGES) {
        return pages_or_report(::mremap(memory, old_size, size, MREMAP_MAYMOVE));
    }
    void *grown = HAS_OWN_PAGES && size >= OWN_PAGES ? new_pages(size) : xalloc(size);
    if (old_size != 0) {
        std::memcpy(grown, memory, old_size);
    }
    std::free(memory);
    return grown;
}

void xgrow_free(void *memory, std::size_t size)
{
    if (HAS_OWN_PAGES && size >= OWN_PAGES) {
        ::munmap(memory, size);
    } else {
        std::free(memory);
    }
}

// NOLINTNEXTLINE(misc-no-recursion): a new block has room
void *xarena_slow(std::size_t size, std::size_t align)
{
    if (size > MAX_SIZE - LARGE_PAGE - align) [[unlikely]] {
        out_of_memory();
    }
    if (ARENA_SHARES_BLOCKS && size >= LARGE_PAGES && align <= LARGE_PAGE) {
        return new_pages(size);
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
