// SPDX-License-Identifier: MIT
// The linker puts the operations `__wrap_...` below in the place of those of the C library (--wrap), for the program
// under test. Files are anonymous memory files of the host, so that streams on them behave like streams on any file.
#include "tests/fuzz/host.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/fuzz/program_state.h"

// The operations of the C library themselves. Where this file is linked with --wrap too, they have another name.
extern "C" {
std::FILE *real_fopen(const char *path, const char *mode) __asm__(TARN_FUZZ_REAL "fopen");
std::FILE *real_freopen(const char *path, const char *mode, std::FILE *stream) __asm__(TARN_FUZZ_REAL "freopen");
int real_fclose(std::FILE *stream) __asm__(TARN_FUZZ_REAL "fclose");
[[noreturn]] void real_exit(int status) __asm__(TARN_FUZZ_REAL "exit");
}

namespace {

constexpr char NULL_DEVICE[] = "/dev/null";
constexpr std::size_t FILES_MAX = 64;
constexpr std::size_t STREAMS_MAX = 64;
constexpr std::size_t NAME_SIZE = 256;
constexpr std::size_t BUFFER_SIZE = 65536;
constexpr rlim_t OUTPUT_MAX = rlim_t{256} * 1024 * 1024; // a larger output is a finding

// Fixed tables: what the host allocates during a run would be taken for the program's.
struct memory_file {
    std::array<char, NAME_SIZE> name;
    std::string_view content; // of an input that was not opened yet
    int descriptor;           // -1 until it is opened
};

std::array<memory_file, FILES_MAX> files;
std::size_t file_count = 0;
std::array<std::FILE *, STREAMS_MAX> open_streams;
std::array<char, BUFFER_SIZE> input_buffer;
std::array<char, BUFFER_SIZE> output_buffer;

int own_output = -1; // where the standard streams of the target's process go
int own_errors = -1;
bool is_running = false;
std::jmp_buf way_out;
int exit_status = 0;

[[noreturn]] void give_up(const char *what)
{
    std::perror(what);
    std::abort();
}

// A path without the current folder in front.
std::string_view file_name(const char *path)
{
    std::string_view name = path;
    if (name.starts_with(HOST_FOLDER) && name.substr(HOST_FOLDER.size()).starts_with('/')) {
        name.remove_prefix(HOST_FOLDER.size() + 1);
    }
    while (name.starts_with("./")) {
        name.remove_prefix(2);
    }
    return name;
}

bool is_folder(const char *path)
{
    const std::string_view name = file_name(path);
    return name.empty() || name == "." || name == HOST_FOLDER;
}

memory_file *find_file(const char *path)
{
    const std::string_view name = file_name(path);
    for (std::size_t i = 0; i < file_count; ++i) {
        if (name == files[i].name.data()) {
            return &files[i];
        }
    }
    return nullptr;
}

memory_file *new_file(std::string_view name)
{
    if (file_count == FILES_MAX || name.size() >= NAME_SIZE) {
        return nullptr;
    }
    memory_file *file = &files[file_count++];
    *file = {.name = {}, .content = {}, .descriptor = -1};
    name.copy(file->name.data(), name.size());
    return file;
}

bool fill_descriptor(memory_file *file)
{
    if (file->descriptor < 0) {
        file->descriptor = ::memfd_create("fuzz", 0);
        if (file->descriptor < 0) {
            return false;
        }
        std::string_view rest = file->content;
        while (!rest.empty()) {
            const ssize_t written = ::write(file->descriptor, rest.data(), rest.size());
            if (written <= 0) {
                give_up("write");
            }
            rest.remove_prefix(static_cast<std::size_t>(written));
        }
    }
    return true;
}

// The file that an opening with this mode gets, or null with `errno`.
memory_file *file_for(const char *path, const char *mode)
{
    if (is_folder(path)) {
        errno = EISDIR;
        return nullptr;
    }
    memory_file *file = find_file(path);
    if (mode[0] != 'r' && file == nullptr) {
        file = new_file(file_name(path));
        if (file == nullptr) {
            errno = ENOSPC;
            return nullptr;
        }
    }
    if (file == nullptr) {
        errno = ENOENT;
        return nullptr;
    }
    if (!fill_descriptor(file) || (mode[0] == 'w' && ::ftruncate(file->descriptor, 0) != 0)) {
        return nullptr;
    }
    return file;
}

// The name under which the host opens a memory file once more, with a position of its own.
std::array<char, 32> reopening_name(const memory_file &file)
{
    std::array<char, 32> name{};
    std::snprintf(name.data(), name.size(), "/proc/self/fd/%d", file.descriptor);
    return name;
}

// The buffer of a standard stream is not from the heap: it outlives the run.
void give_buffer(std::FILE *stream)
{
    std::setvbuf(stream, stream == stdin ? input_buffer.data() : output_buffer.data(), _IOFBF, BUFFER_SIZE);
}

std::FILE *reopen_standard(const char *name, const char *mode, std::FILE *stream)
{
    std::FILE *reopened = real_freopen(name, mode, stream);
    if (reopened == nullptr) {
        give_up(name);
    }
    give_buffer(stream);
    return reopened;
}

// The standard error stream keeps its object, whose buffering the program chooses.
std::FILE *send_errors_to(const char *path, const char *mode)
{
    memory_file *file = file_for(path, mode);
    if (file == nullptr) {
        return nullptr;
    }
    std::fflush(stderr);
    ::dup2(file->descriptor, STDERR_FILENO);
    return stderr;
}

void fill_status(struct stat *status, mode_t mode, std::size_t size)
{
    *status = {};
    status->st_mode = mode;
    status->st_nlink = 1;
    status->st_size = static_cast<off_t>(size);
}

void restore_streams()
{
    for (std::FILE *&stream : open_streams) {
        if (stream != nullptr) {
            real_fclose(stream);
            stream = nullptr;
        }
    }
    reopen_standard(NULL_DEVICE, "r", stdin);
    std::fflush(stdout);
    ::dup2(own_output, STDOUT_FILENO);
    give_buffer(stdout);
    std::fflush(stderr);
    ::dup2(own_errors, STDERR_FILENO);
    std::setvbuf(stderr, nullptr, _IONBF, 0);
}

// At the first run, for libFuzzer may have closed them since the start.
void keep_streams()
{
    if (own_output < 0) {
        own_output = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        own_errors = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        if (own_output < 0 || own_errors < 0) {
            give_up("standard streams");
        }
    }
}

void remove_files()
{
    for (std::size_t i = 0; i < file_count; ++i) {
        if (files[i].descriptor >= 0) {
            ::close(files[i].descriptor);
        }
    }
    file_count = 0;
}

} // namespace

extern "C" {

std::FILE *__wrap_fopen(const char *path, const char *mode)
{
    const memory_file *file = file_for(path, mode);
    if (file == nullptr) {
        return nullptr;
    }
    const auto place = std::find(open_streams.begin(), open_streams.end(), nullptr);
    if (place == open_streams.end()) {
        errno = EMFILE;
        return nullptr;
    }
    *place = real_fopen(reopening_name(*file).data(), mode);
    return *place;
}

int __wrap_fclose(std::FILE *stream)
{
    std::replace(open_streams.begin(), open_streams.end(), stream, static_cast<std::FILE *>(nullptr));
    return real_fclose(stream);
}

std::FILE *__wrap_freopen(const char *path, const char *mode, std::FILE *stream)
{
    if (stream == stderr) {
        return send_errors_to(path, mode);
    }
    if (std::strcmp(path, NULL_DEVICE) == 0) {
        return reopen_standard(path, mode, stream);
    }
    const memory_file *file = file_for(path, mode);
    return file != nullptr ? reopen_standard(reopening_name(*file).data(), mode, stream) : nullptr;
}

int __wrap_stat(const char *path, struct stat *status)
{
    if (is_folder(path)) {
        fill_status(status, S_IFDIR | S_IRWXU, 0);
        return 0;
    }
    const memory_file *file = find_file(path);
    if (file == nullptr) {
        errno = ENOENT;
        return -1;
    }
    fill_status(status, S_IFREG | S_IRUSR | S_IWUSR, file->content.size());
    return 0;
}

int __wrap_lstat(const char *path, struct stat *status)
{
    return __wrap_stat(path, status);
}

int __wrap_unlink(const char *path)
{
    memory_file *file = find_file(path);
    if (file == nullptr) {
        errno = ENOENT;
        return -1;
    }
    file->name[0] = '\0'; // no path finds it
    return 0;
}

int __wrap_remove(const char *path)
{
    return __wrap_unlink(path);
}

// The same with large files in mind, as the zip library calls them.
std::FILE *__wrap_fopen64(const char *path, const char *mode)
{
    return __wrap_fopen(path, mode);
}

std::FILE *__wrap_freopen64(const char *path, const char *mode, std::FILE *stream)
{
    return __wrap_freopen(path, mode, stream);
}

int __wrap_stat64(const char *path, struct stat *status)
{
    return __wrap_stat(path, status);
}

int __wrap_utime(const char *, const void *)
{
    return 0;
}

DIR *__wrap_opendir(const char *)
{
    errno = ENOENT;
    return nullptr;
}

char *__wrap_getcwd(char *buffer, std::size_t size)
{
    if (buffer == nullptr) {
        return ::strndup(HOST_FOLDER.data(), HOST_FOLDER.size());
    }
    if (size <= HOST_FOLDER.size()) {
        errno = ERANGE;
        return nullptr;
    }
    buffer[HOST_FOLDER.copy(buffer, size)] = '\0';
    return buffer;
}

[[noreturn]] void __wrap_exit(int status)
{
    if (!is_running) {
        real_exit(status);
    }
    host_leave(status);
}

} // extern "C"

void host_initialise()
{
    for (const char *name : {"OBC_ERR_FORMAT", "OBC_WARN_FORMAT", "OBC_MSG_FORMAT"}) {
        ::unsetenv(name);
    }
    ::setenv("SOURCE_DATE_EPOCH", "1700000000", 1);
    ::setenv("TZ", "UTC", 1);
    const std::time_t now = 0;
    std::localtime(&now); // the C library reads the time zone here, once
    const rlimit limit = {OUTPUT_MAX, OUTPUT_MAX};
    ::setrlimit(RLIMIT_FSIZE, &limit);
}

void host_add_file(std::string_view name, std::string_view content)
{
    memory_file *file = new_file(name);
    if (file != nullptr) { // an input with more files than fit runs without the last ones
        file->content = content;
    }
}

void host_open_stdin(std::string_view content)
{
    constexpr char COMMAND[] = "standard input";
    host_add_file(COMMAND, content);
    __wrap_freopen(COMMAND, "r", stdin);
}

void host_leave(int status)
{
    exit_status = status;
    std::longjmp(way_out, 1); // what the frames in between own is given back by `state_end`
}

int host_run(void (*target)(std::string_view input), std::string_view input)
{
    exit_status = 0;
    keep_streams();
    state_begin();
    if (setjmp(way_out) == 0) {
        is_running = true;
        target(input);
    }
    is_running = false;
    restore_streams();
    state_end();
    remove_files();
    return exit_status;
}
