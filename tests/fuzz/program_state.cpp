// SPDX-License-Identifier: MIT
// The program is linked as a shared library here, so that its data lie together in a segment of their own, apart from
// those of libFuzzer, the sanitizers and the targets.
#include "tests/fuzz/program_state.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <link.h>
#include <sanitizer/allocator_interface.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "compiler/tarnwick/options.h"

namespace {

constexpr std::size_t MEMORY_MAX = std::size_t{256} * 1024 * 1024; // a run that holds more is a finding
constexpr std::size_t LOG_MAX = std::size_t{1} << 28;              // allocations of a run
constexpr std::size_t LOG_KEPT = std::size_t{1} << 17;             // entries whose pages are worth keeping

using data_word = std::uint64_t;

// A piece of the library's data, and its bytes before the first run.
struct picture {
    data_word *begin = nullptr;
    data_word *end = nullptr;
    std::vector<data_word> words;
};

std::vector<picture> pictures;

// What initialises the library's global data, one function for each source file. The data may own memory from the
// start, so each run gets them newly made.
using initialiser = void (*)();
std::vector<initialiser> initialisers;

const volatile void **allocations = nullptr; // in the order of the run; those released since are among them
std::size_t allocation_count = 0;
std::size_t memory_held = 0;
bool is_counting = false;

// Data are copied with all that lies between them, which the address sanitizer must not watch. `volatile` keeps the
// compiler from calling the watched `memcpy`.
__attribute__((no_sanitize("address"))) void copy_words(data_word *to, const data_word *from, std::size_t count)
{
    volatile data_word *target = to;
    for (std::size_t i = 0; i < count; ++i) {
        target[i] = from[i];
    }
}

void add_picture(std::uintptr_t begin, std::uintptr_t end)
{
    begin = (begin + sizeof(data_word) - 1) / sizeof(data_word) * sizeof(data_word);
    end = end / sizeof(data_word) * sizeof(data_word);
    if (begin < end) {
        picture p;
        p.begin = reinterpret_cast<data_word *>(begin);
        p.end = reinterpret_cast<data_word *>(end);
        p.words.resize(static_cast<std::size_t>(p.end - p.begin));
        copy_words(p.words.data(), p.begin, p.words.size());
        pictures.push_back(std::move(p));
    }
}

// A file as it lies in the host's memory until the process ends.
std::span<const char> map_file(const char *path)
{
    const int descriptor = ::open(path, O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    if (descriptor < 0 || ::fstat(descriptor, &status) != 0) {
        return {};
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    void *bytes = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
    ::close(descriptor);
    return {static_cast<const char *>(bytes), bytes != MAP_FAILED ? size : 0};
}

// Takes the sections of data by their names, for the tables of coverage lie in the same segment and are not the
// program's.
void add_sections(std::span<const char> file, std::uintptr_t base)
{
    const auto *elf = reinterpret_cast<const ElfW(Ehdr) *>(file.data());
    const auto *sections = reinterpret_cast<const ElfW(Shdr) *>(file.data() + elf->e_shoff);
    const char *names = file.data() + sections[elf->e_shstrndx].sh_offset;
    for (const ElfW(Shdr) & section : std::span(sections, elf->e_shnum)) {
        const std::string_view name = names + section.sh_name;
        if (name == ".data" || name == ".bss") {
            add_picture(base + section.sh_addr, base + section.sh_addr + section.sh_size);
        }
    }
}

void add_initialisers(std::span<const char> file, std::uintptr_t base)
{
    const auto *elf = reinterpret_cast<const ElfW(Ehdr) *>(file.data());
    const auto *sections = reinterpret_cast<const ElfW(Shdr) *>(file.data() + elf->e_shoff);
    for (const ElfW(Shdr) & section : std::span(sections, elf->e_shnum)) {
        if (section.sh_type != SHT_SYMTAB) {
            continue;
        }
        const char *names = file.data() + sections[section.sh_link].sh_offset;
        const auto *symbols = reinterpret_cast<const ElfW(Sym) *>(file.data() + section.sh_offset);
        for (const ElfW(Sym) & symbol : std::span(symbols, section.sh_size / sizeof *symbols)) {
            if (std::string_view(names + symbol.st_name).starts_with("_GLOBAL__sub_I_")) {
                initialisers.push_back(reinterpret_cast<initialiser>(base + symbol.st_value));
            }
        }
    }
}

// Takes the object that holds the option state. It must not be the executable, whose name is empty.
int take_object(dl_phdr_info *object, std::size_t, void *)
{
    const auto wanted = reinterpret_cast<std::uintptr_t>(&opt_verbose);
    for (const ElfW(Phdr) & header : std::span(object->dlpi_phdr, object->dlpi_phnum)) {
        const std::uintptr_t begin = object->dlpi_addr + header.p_vaddr;
        if (header.p_type == PT_LOAD && wanted >= begin && wanted < begin + header.p_memsz &&
            *object->dlpi_name != '\0') {
            const std::span<const char> file = map_file(object->dlpi_name);
            if (!file.empty()) {
                add_sections(file, object->dlpi_addr);
                add_initialisers(file, object->dlpi_addr);
            }
            return 1;
        }
    }
    return 0;
}

void on_allocation(const volatile void *memory, std::size_t size)
{
    if (is_counting && memory != nullptr) {
        if (allocation_count == LOG_MAX) {
            std::abort();
        }
        allocations[allocation_count++] = memory;
        memory_held += size;
        if (memory_held > MEMORY_MAX) {
            std::abort(); // more memory than any input of this size deserves
        }
    }
}

void on_release(const volatile void *memory)
{
    if (is_counting && memory != nullptr) {
        const std::size_t size = __sanitizer_get_allocated_size(memory);
        memory_held -= size < memory_held ? size : memory_held;
    }
}

} // namespace

void state_initialise()
{
    dl_iterate_phdr(take_object, nullptr);
    if (pictures.empty()) {
        std::fputs("the program's data were not found\n", stderr);
        std::abort();
    }
    void *log = ::mmap(nullptr, LOG_MAX * sizeof *allocations, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (log == MAP_FAILED || __sanitizer_install_malloc_and_free_hooks(on_allocation, on_release) == 0) {
        std::perror("state_initialise");
        std::abort();
    }
    allocations = static_cast<const volatile void **>(log);
}

void state_begin()
{
    allocation_count = 0;
    memory_held = 0;
    is_counting = true;
    for (const initialiser initialise : initialisers) {
        initialise();
    }
}

void state_end()
{
    is_counting = false;
    for (std::size_t i = 0; i < allocation_count; ++i) {
        if (__sanitizer_get_ownership(allocations[i]) != 0) {
            std::free(const_cast<void *>(allocations[i]));
        }
    }
    if (allocation_count > LOG_KEPT) {
        ::madvise(allocations, allocation_count * sizeof *allocations, MADV_DONTNEED);
    }
    for (const picture &p : pictures) {
        copy_words(p.begin, p.words.data(), p.words.size());
    }
}

// In the place of `__cxa_atexit` for the library: its data are never destroyed, but put back.
extern "C" int __wrap___cxa_atexit(void (*)(void *), void *, void *)
{
    return 0;
}

// Options of the sanitizer for such a run: a small quarantine, and blocks of any origin are released by `state_end`.
extern "C" const char *__asan_default_options()
{
    return "quarantine_size_mb=16:alloc_dealloc_mismatch=0:detect_leaks=0:allocator_may_return_null=1";
}
