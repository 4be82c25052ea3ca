// SPDX-License-Identifier: MIT
// Feeds files to a fuzz target, with no fuzzer:
//
//     tarn_fuzz_replay <target> <file or folder>...
//     tarn_fuzz_replay --self-test
//
// Each file has a process of its own. It must come to its end with an exit status of the program, in time, and with
// memory in proportion. The exit status is 0 when all did and there was at least one. The self-test feeds targets that
// break these rules, and passes when each is caught.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/sanitized.h"
#include "tests/fuzz/host.h"
#include "tests/fuzz/targets.h"

namespace {

constexpr rlim_t SECONDS_MAX = IS_SANITIZED ? 10 : 5; // of processor time
constexpr long MEMORY_MAX_KIB = 256L * 1024;          // resident; not measured with a sanitizer's own on top
constexpr int STATUS_NOT_THE_PROGRAMS = 99;
constexpr std::size_t SHOWN_ERRORS = 8000; // characters of what a failing run printed last

struct fuzz_target {
    const char *name;
    void (*function)(std::string_view input);
};

constexpr fuzz_target targets[] = {
#define FUZZ_TARGET(name, longest, dictionaries) {#name, fuzz_##name},
#include "tests/fuzz/targets.def"
#undef FUZZ_TARGET
};

// --- rules that are broken on purpose --------------------------------------------------------------------------------

void fuzz_abort(std::string_view)
{
    std::abort();
}

void fuzz_status(std::string_view)
{
    host_leave(STATUS_NOT_THE_PROGRAMS);
}

void fuzz_forever(std::string_view)
{
    for (volatile bool on = true; on;) {
    }
}

// What is printed keeps the allocation from being left out.
void fuzz_memory(std::string_view)
{
    const std::vector<char> held(std::size_t{2} * 1024 * MEMORY_MAX_KIB, 'x');
    std::fprintf(stderr, "%c\n", held[held.size() / 2]);
}

void fuzz_behind_the_end(std::string_view input)
{
    std::fprintf(stderr, "%d\n", input.data()[input.size()]);
}

void fuzz_nothing(std::string_view) {}

struct self_test {
    fuzz_target target;
    bool passes;
};

// Each sanitizer build sees what the plain one cannot, and the other way round.
constexpr self_test self_tests[] = {
    {{"nothing", fuzz_nothing}, true},       {{"abort", fuzz_abort}, false},
    {{"status", fuzz_status}, false},        {{"forever", fuzz_forever}, false},
    {{"memory", fuzz_memory}, IS_SANITIZED}, {{"behind_the_end", fuzz_behind_the_end}, !IS_SANITIZED},
};

// --- running ---------------------------------------------------------------------------------------------------------

std::string read_file(const std::filesystem::path &path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

[[noreturn]] void run_child(const fuzz_target &target, const std::string &input, std::FILE *errors)
{
    const rlimit limit = {SECONDS_MAX, SECONDS_MAX};
    ::setrlimit(RLIMIT_CPU, &limit);
    const rlimit none = {0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    std::FILE *output = std::freopen("/dev/null", "w", stdout);
    ::dup2(::fileno(errors), STDERR_FILENO);
    host_initialise();
    // A copy without anything behind it, so that a look past the end is seen.
    std::vector<char> exact(input.begin(), input.end());
    const int status = host_run(target.function, {exact.data(), exact.size()});
    ::_exit(output != nullptr && (status == EXIT_SUCCESS || status == EXIT_FAILURE) ? 0 : STATUS_NOT_THE_PROGRAMS);
}

void show_end_of(std::FILE *errors)
{
    std::fseek(errors, 0, SEEK_END);
    const long size = std::ftell(errors);
    std::fseek(errors, std::max(0L, size - static_cast<long>(SHOWN_ERRORS)), SEEK_SET);
    char text[SHOWN_ERRORS];
    std::fwrite(text, 1, std::fread(text, 1, sizeof text, errors), stdout);
}

// What is wrong with a run; empty when nothing is.
std::string fault_of(int status, const rusage &usage)
{
    if (WIFSIGNALED(status)) {
        const int number = WTERMSIG(status);
        return number == SIGXCPU || number == SIGKILL ? "took too long"
                                                      : std::string("ended by ") + ::strsignal(number);
    }
    if (WEXITSTATUS(status) != 0) {
        return "exit status " + std::to_string(WEXITSTATUS(status));
    }
    if (!IS_SANITIZED && usage.ru_maxrss > MEMORY_MAX_KIB) {
        return "took " + std::to_string(usage.ru_maxrss) + " KiB of memory";
    }
    return {};
}

// `name` is that of the input, for people.
bool passes(const fuzz_target &target, const char *name, const std::string &input)
{
    std::FILE *errors = std::tmpfile();
    if (errors == nullptr) {
        std::perror("tmpfile");
        return false;
    }
    std::fflush(stdout);
    const pid_t child = ::fork();
    if (child == 0) {
        run_child(target, input, errors);
    }
    int status = -1;
    rusage usage = {};
    std::string fault = "could not be run";
    if (child > 0 && ::wait4(child, &status, 0, &usage) == child) {
        fault = fault_of(status, usage);
    }
    if (!fault.empty()) {
        std::printf("%s: %s: %s\n", target.name, name, fault.c_str());
        show_end_of(errors);
    }
    std::fclose(errors);
    return fault.empty();
}

int run_self_test()
{
    int failed = 0;
    for (const self_test &test : self_tests) {
        if (passes(test.target, "self-test", "input") != test.passes) {
            std::printf("self-test: %s was judged wrongly\n", test.target.name);
            ++failed;
        }
    }
    return failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

std::vector<std::filesystem::path> files_of(int count, char **names)
{
    std::vector<std::filesystem::path> files;
    for (int i = 0; i < count; ++i) {
        if (!std::filesystem::is_directory(names[i])) {
            files.emplace_back(names[i]);
            continue;
        }
        for (const auto &entry : std::filesystem::directory_iterator(names[i])) {
            if (entry.is_regular_file()) {
                files.push_back(entry.path());
            }
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace

int main(int count, char **arguments)
{
    const std::string name = count > 1 ? arguments[1] : "";
    if (name == "--self-test") {
        return run_self_test();
    }
    const auto *target = std::find_if(std::begin(targets), std::end(targets),
                                      [&](const fuzz_target &candidate) { return name == candidate.name; });
    if (target == std::end(targets)) {
        std::fprintf(stderr, "usage: tarn_fuzz_replay <target> <file or folder>...\n");
        return 2;
    }
    const std::vector<std::filesystem::path> files = files_of(count - 2, arguments + 2);
    const auto failed = std::count_if(files.begin(), files.end(), [&](const std::filesystem::path &path) {
        return !passes(*target, path.c_str(), read_file(path));
    });
    std::printf("%s: %zu inputs, %zu failed\n", target->name, files.size(), static_cast<std::size_t>(failed));
    return files.empty() || failed != 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
