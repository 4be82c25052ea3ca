// SPDX-License-Identifier: MIT
// The host layer for a POSIX system. File names come from a Windows tool chain as often as from this host, so path parts
// end at `\` and at `/`, and a name with `\` that does not exist here is looked for with `/`.
#include "common/osdep.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/alloc.h"

namespace {

constexpr char SEPARATOR = '/'; // the one that is added
constexpr const char *NULL_DEVICE = "/dev/null";
constexpr const char *OWN_EXECUTABLE = "/proc/self/exe";
constexpr const char *CURRENT_DIRECTORY = ".";

// Copies bear two terminating zero bytes, as callers that append one character expect.
char *new_text(std::string_view text)
{
    auto *copy = static_cast<char *>(xalloc(text.size() + 2));
    text.copy(copy, text.size());
    return copy;
}

// The name under which this host knows `path`.
class host_name {
public:
    explicit host_name(const char *path) : name_(path)
    {
        struct stat status = {};
        if (std::strchr(path, '\\') == nullptr || ::stat(path, &status) == 0) {
            return;
        }
        translated_ = path;
        for (char &c : translated_) {
            if (c == '\\') {
                c = '/';
            }
        }
        name_ = translated_.c_str();
    }
    host_name(const host_name &) = delete;
    host_name &operator=(const host_name &) = delete;

    const char *c_str() const { return name_; }

private:
    std::string translated_;
    const char *name_;
};

bool file_status(const char *path, struct stat *status)
{
    return path != nullptr && ::stat(host_name(path).c_str(), status) == 0;
}

// This host opens a directory for reading as if it were an empty file; a directory is no file to this program.
bool refuse_directory(const char *name)
{
    struct stat status = {};
    if (::stat(name, &status) == 0 && S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        return true;
    }
    return false;
}

bool is_standard_stream(const std::FILE *stream)
{
    return stream == stdin || stream == stdout || stream == stderr;
}

void put_on_null_device(std::FILE *stream)
{
    // Nothing is left to do when even this fails: the stream stays closed.
    [[maybe_unused]] const std::FILE *reopened = std::freopen(NULL_DEVICE, stream == stdin ? "r" : "w", stream);
}

// The steps of `path_normalize`. Each character is looked at a bounded number of times: what ".." removes is gone.
class path_normalizer {
public:
    path_normalizer(std::string_view path, char *output) : path_(path), output_(output) {}

    // The length of the output.
    std::size_t run()
    {
        while (at_ < path_.size()) {
            if (path_is_separator(path_[at_])) {
                take_separator();
            } else {
                output_[length_++] = path_[at_++];
            }
        }
        // A drive's root keeps its separator, and so does a path of two characters.
        if (length_ >= 3 && path_is_separator(output_[length_ - 1]) && output_[length_ - 2] != ':') {
            --length_;
        }
        return length_;
    }

private:
    bool separator_at(std::size_t index) const { return index < path_.size() && path_is_separator(path_[index]); }
    bool dot_at(std::size_t index) const { return index < path_.size() && path_[index] == '.'; }

    void take_separator()
    {
        std::size_t present = at_;
        std::size_t next = at_ + 1;
        for (;;) {
            while (separator_at(next)) {
                ++next;
            }
            if (!dot_at(next) || !separator_at(next + 1)) {
                break;
            }
            present = next + 1;
            next += 2;
        }
        if (dot_at(next) && dot_at(next + 1) && (next + 2 == path_.size() || separator_at(next + 2))) {
            remove_last_part();
            at_ = next + 2;
        } else if (dot_at(next) && next + 1 == path_.size()) {
            at_ = path_.size();
        } else {
            output_[length_++] = path_[present];
            at_ = next;
        }
    }

    // A part with no separator in front, a drive prefix too, goes whole.
    void remove_last_part()
    {
        while (length_ > 0) {
            --length_;
            if (path_is_separator(output_[length_])) {
                break;
            }
        }
    }

    std::string_view path_;
    char *output_;
    std::size_t at_ = 0;
    std::size_t length_ = 0;
};

} // namespace

char *path_join(const char *directory, const char *name)
{
    if (directory == nullptr || *directory == '\0') {
        return nullptr;
    }
    std::string_view left = directory;
    std::string_view right = name != nullptr ? name : "";
    if (path_is_separator(left.back())) {
        left.remove_suffix(1);
    }
    if (!right.empty() && path_is_separator(right.front())) {
        right.remove_prefix(1);
    }
    auto *path = static_cast<char *>(xalloc(left.size() + 1 + right.size() + 1));
    left.copy(path, left.size());
    path[left.size()] = SEPARATOR;
    right.copy(path + left.size() + 1, right.size());
    return path;
}

bool path_is_absolute(const char *path)
{
    if (path == nullptr || *path == '\0') {
        return false;
    }
    if (path[0] == '/') {
        return true;
    }
    return path[1] == ':' || (path[0] == '\\' && path[1] == '\\');
}

char *path_normalize(const char *path)
{
    if (path == nullptr) {
        return nullptr;
    }
    const std::string_view text = path;
    auto *output = static_cast<char *>(xalloc(text.size() + 1));
    const std::size_t length = path_normalizer(text, output).run();
    output[length] = '\0';
    return output;
}

char *path_absolute(const char *path)
{
    if (path_is_absolute(path)) {
        return path_normalize(path);
    }
    char *directory = working_directory();
    char *joined = path_join(directory, path);
    char *absolute = path_normalize(joined);
    std::free(joined);
    std::free(directory);
    return absolute;
}

const char *path_tail(const char *path)
{
    if (path == nullptr) {
        return nullptr;
    }
    // The last `\` counts even when a "/" stands behind it.
    for (const char separator : {'\\', '/', ':'}) {
        const char *last = std::strrchr(path, separator);
        if (last != nullptr) {
            return last + 1;
        }
    }
    return path;
}

char *path_basename(const char *path)
{
    return path != nullptr ? new_text(path_tail(path)) : nullptr;
}

char *path_stem(const char *path)
{
    if (path == nullptr) {
        return nullptr;
    }
    const char *tail = path_tail(path);
    const char *point = std::strrchr(tail, '.');
    if (point == nullptr) {
        return new_text(tail);
    }
    return new_text({tail, static_cast<std::size_t>(point + 1 - tail)}); // the point stays
}

const char *path_extension(const char *path)
{
    const char *point = path != nullptr ? std::strrchr(path, '.') : nullptr;
    return point != nullptr ? point : "";
}

char *path_directory(const char *path)
{
    const char *tail = path_tail(path);
    if (tail == path) {
        return nullptr;
    }
    return new_text({path, static_cast<std::size_t>(tail - 1 - path)});
}

char *program_path()
{
    char *path = ::realpath(OWN_EXECUTABLE, nullptr);
    return path != nullptr ? path : new_text("");
}

char *working_directory()
{
    char *directory = ::getcwd(nullptr, 0);
    return directory != nullptr ? directory : new_text(CURRENT_DIRECTORY);
}

bool file_exists(const char *path)
{
    struct stat status = {};
    return file_status(path, &status);
}

bool is_directory(const char *path)
{
    struct stat status = {};
    return file_status(path, &status) && S_ISDIR(status.st_mode);
}

bool is_regular_file(const char *path)
{
    struct stat status = {};
    return file_status(path, &status) && S_ISREG(status.st_mode);
}

bool file_is_device(std::FILE *stream)
{
    struct stat status = {};
    return ::fstat(::fileno(stream), &status) == 0 && S_ISCHR(status.st_mode);
}

void prepare_streams()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(descriptor, F_GETFD) == -1 && errno == EBADF) {
            // The lowest number that is free is this one.
            [[maybe_unused]] const int taken = ::open(NULL_DEVICE, descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
    for (const int number : {SIGPIPE, SIGXFSZ}) {
        std::signal(number, SIG_IGN);
    }
}

std::FILE *file_open(const char *path, const char *mode)
{
    if (path == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    const host_name name(path);
    if (refuse_directory(name.c_str())) {
        return nullptr;
    }
    return std::fopen(name.c_str(), mode);
}

std::FILE *file_reopen(const char *path, const char *mode, std::FILE *stream)
{
    int failure = EINVAL;
    if (path != nullptr) {
        const host_name name(path);
        if (!refuse_directory(name.c_str()) && std::freopen(name.c_str(), mode, stream) != nullptr) {
            return stream;
        }
        failure = errno;
    }
    // A failed reopening leaves a stream closed, but the next input or output is reopened on the same object.
    if (is_standard_stream(stream)) {
        put_on_null_device(stream);
    }
    errno = failure;
    return nullptr;
}

int file_remove(const char *path)
{
    if (path == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return ::unlink(host_name(path).c_str());
}

char *file_host_name(const char *path)
{
    return path != nullptr ? new_text(host_name(path).c_str()) : nullptr;
}

void file_close_input(std::FILE *stream)
{
    if (stream == nullptr) {
        return;
    }
    if (is_standard_stream(stream)) {
        put_on_null_device(stream);
    } else {
        std::fclose(stream);
    }
}

std::optional<long long> fixed_output_time()
{
    const char *epoch = std::getenv("SOURCE_DATE_EPOCH");
    if (epoch != nullptr && *epoch >= '0' && *epoch <= '9') {
        const char *end = epoch + std::strlen(epoch);
        long long seconds = 0;
        const auto [stop, error] = std::from_chars(epoch, end, seconds);
        if (error == std::errc() && stop == end) {
            return seconds;
        }
    }
    return std::nullopt;
}

long long output_time()
{
    return fixed_output_time().value_or(static_cast<long long>(std::time(nullptr)));
}
