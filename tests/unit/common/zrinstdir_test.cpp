// SPDX-License-Identifier: MIT
// The directories of the installed toolchain, and the catalogues that are found through them. All depends on where the
// executable lies, so the test program is put into an installation made for the purpose and run from there: with
// the variable below set it reports what it finds instead of running its tests.
#include "common/zrinstdir.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "common/alert.h"
#include "common/catalogue.h"
#include "common/osdep.h"
#include "common/trace.h"
#include "tests/unit/scenario.h"

namespace {

constexpr const char *REPORT_VARIABLE = "TARNWICK_TEST_INSTALLED";

// ---- In the installed program

constexpr trace_sink LINE_SINK = {
    .line =
        [](const char *, int, const char *format, std::va_list arguments) {
            std::vprintf(format, arguments);
            std::putchar('\n');
        },
    .text = [](const char *, int, const char *) {},
    .enter = [](const char *, int, const char *, const char *, std::va_list) {},
    .exit = [](const char *, int, const char *, const char *, std::va_list) {},
    .raw = [](const char *, std::va_list) {},
    .raw_text = [](const char *) {},
    .alert = [](const char *) {},
    .assert_failed = [](const char *expression, const char *, int) { std::printf("failed: %s\n", expression); },
};

void report_path(const char *path)
{
    std::printf("%s\n", path != nullptr ? path : "null");
}

void report_paths()
{
    std::printf("%d\n", set_zrinstall_paths());
    for (std::uint32_t index = ZRINSTDIR_FIRST; index < ZRINSTDIR_LAST; index++) {
        report_path(zrinstdir(index));
    }
}

void report_reg_paths()
{
    for (std::uint32_t number = 0; number <= 11; number++) {
        report_path(reg_instdir(number));
    }
}

void report_trace()
{
    trace_install(&LINE_SINK);
    gDebugMask = TRACE_ON;
    std::printf("%d\n", set_zrinstall_paths());
}

void report_reg_trace()
{
    trace_install(&LINE_SINK);
    gDebugMask = TRACE_ON;
    report_path(reg_instdir(REG_INSTDIR_DAT));
}

// The family directory goes away behind the first look.
void report_without_family()
{
    set_zrinstall_paths();
    std::filesystem::remove(zrinstdir(ZRINSTDIR_FAMILY));
    report_path(reg_instdir(0));
    report_path(reg_instdir(REG_INSTDIR_DAT));
}

void report_assertion()
{
    trace_install(&LINE_SINK);
    report_path(zrinstdir(ZRINSTDIR_LAST));
    gAssertMode = ASSERT_ERROR;
    report_path(zrinstdir(0));
    report_path(zrinstdir(9));
    report_path(zrinstdir(ZRINSTDIR_LAST));
}

void report_catalogue()
{
    report_path(msg_filename(LANGUAGE_DEFAULT));
}

void report_edf()
{
    alert_initialise();
    report_path(message_file);
    const char *names = std::getenv("TARNWICK_TEST_EDF");
    open_edf(names);
    report_path(message_file);
}

struct report_row {
    const char *name;
    void (*report)();
};

constexpr report_row REPORTS[] = {
    {"paths", report_paths},
    {"reg paths", report_reg_paths},
    {"trace", report_trace},
    {"reg trace", report_reg_trace},
    {"without family", report_without_family},
    {"assertion", report_assertion},
    {"catalogue", report_catalogue},
    {"edf", report_edf},
};

// Runs ahead of all tests, and instead of them in the installed program.
class installed_program : public testing::Environment {
public:
    void SetUp() override
    {
        const char *wanted = std::getenv(REPORT_VARIABLE);
        if (wanted == nullptr) {
            return;
        }
        std::printf("BEGIN\n"); // behind what the test framework says first
        for (const report_row &row : REPORTS) {
            if (std::string(wanted) == row.name) {
                row.report();
            }
        }
        std::fflush(stdout);
        std::exit(0);
    }
};

[[maybe_unused]] const testing::Environment *const ENVIRONMENT =
    testing::AddGlobalTestEnvironment(new installed_program);

// ---- In the tests

class Installation : public testing::Test {
protected:
    void SetUp() override
    {
        std::string name = testing::TempDir() + "/tarnwick-XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        root_ = std::filesystem::canonical(name).string();
        make("elsewhere");
    }
    void TearDown() override { std::filesystem::remove_all(root_); }

    void make(const std::string &folder) { std::filesystem::create_directories(root_ + "/" + folder); }
    void put(const std::string &file)
    {
        std::filesystem::create_directories(std::filesystem::path(root_ + "/" + file).parent_path());
        write_file(root_ + "/" + file, "");
    }

    // What the program reports when it lies at `program`; the root is written as "@".
    std::string report(const std::string &program, const std::string &wanted)
    {
        namespace fs = std::filesystem;
        const fs::path path = root_ + "/" + program;
        char *self = program_path();
        fs::create_directories(path.parent_path());
        std::error_code no_link;
        fs::create_hard_link(self, path, no_link);
        if (no_link) {
            fs::copy_file(self, path);
        }
        std::free(self);
        const std::string command = "cd '" + root_ + "/elsewhere' && env -u GTEST_FILTER -u GTEST_OUTPUT " +
                                    REPORT_VARIABLE + "='" + wanted + "' TARNWICK_TEST_EDF='" + edf_ + "' '" +
                                    path.string() + "'";
        std::FILE *pipe = popen(command.c_str(), "r");
        std::string text;
        std::array<char, 4096> piece;
        for (std::size_t n = 0; (n = std::fread(piece.data(), 1, piece.size(), pipe)) > 0;) {
            text.append(piece.data(), n);
        }
        EXPECT_EQ(pclose(pipe), 0);
        const std::string begin = "BEGIN\n";
        const std::size_t at = text.find(begin);
        EXPECT_NE(at, std::string::npos) << text;
        return with_short_root(text.substr(at == std::string::npos ? 0 : at + begin.size()));
    }

    std::string root_;
    std::string edf_;

private:
    std::string with_short_root(const std::string &text) const
    {
        std::string result;
        std::size_t begin = 0;
        for (std::size_t at = 0; (at = text.find(root_, begin)) != std::string::npos; begin = at + root_.size()) {
            result.append(text, begin, at - begin);
            result += '@';
        }
        return result.append(text, begin, std::string::npos);
    }
};

TEST_F(Installation, PathsFromAPlainBin)
{
    make("v2/kor");
    EXPECT_EQ(report("v2/bin/prog", "paths"),
              "1\n@\n@/v2\n@/v2/bin\n@/v2/docs\n@/v2/include\n@/v2/etc\n@/v2/kor\nnull\n"
              "@/v2/kelasm\n@/v2/kor-as\n");
}

TEST_F(Installation, PathsFromAFamilyDirectory)
{
    for (const char *folder : {"kor", "kor-as", "KOR", "Kor-As", "kor.2", "kor-as.old"}) {
        SCOPED_TRACE(folder);
        make("v2/kor");
        const std::string paths = report(std::string("v2/") + folder + "/bin/prog", "paths");
        EXPECT_EQ(paths.substr(0, paths.find("@/v2/bin")), "1\n@\n@/v2\n");
    }
}

TEST_F(Installation, BinInAnyCase)
{
    make("v2/kor");
    const std::string paths = report("v2/BiN/prog", "paths");
    EXPECT_EQ(paths.substr(0, 9), "1\n@\n@/v2\n");
}

TEST_F(Installation, TrailingDotsAndBackslashesOfTheDirectoryAreDropped)
{
    make("v2/kor");
    for (const char *folder : {"bin.", "bin.."}) {
        SCOPED_TRACE(folder);
        const std::string paths = report(std::string("v2/") + folder + "/prog", "paths");
        EXPECT_EQ(paths.substr(0, 9), "1\n@\n@/v2\n");
        std::filesystem::remove_all(root_ + "/v2/" + folder);
    }
    // A backslash parts a path: the directory here is what stands before the last one.
    const std::string paths = report("v2/bin\\.\\prog", "paths");
    EXPECT_EQ(paths.substr(0, 9), "1\n@\n@/v2\n");
}

TEST_F(Installation, NoPathsElsewhere)
{
    const std::string none = "0\nnull\nnull\nnull\nnull\nnull\nnull\nnull\nnull\nnull\nnull\n";
    make("v2/kor");
    EXPECT_EQ(report("v2/sbin/prog", "paths"), none);
    EXPECT_EQ(report("v2/bin/x/prog", "paths"), none);
    EXPECT_EQ(report("v2/korx/bin/prog", "paths"), none);
    EXPECT_EQ(report("v3/bin/prog", "paths"), none); // no family directory
    put("v4/kor");                                   // no directory
    EXPECT_EQ(report("v4/bin/prog", "paths"), none);
}

TEST_F(Installation, Traces)
{
    make("v2/kor");
    EXPECT_EQ(report("v2/bin/prog", "trace"), "Application appears to be running from directory: \"@/v2/bin\"\n1\n");
    EXPECT_EQ(report("v2/x/prog", "trace"), "Application appears to be running from directory: \"@/v2/x\"\n"
                                            "ERROR - the application is not running from a 'bin' directory\n0\n");
    EXPECT_EQ(report("v3/bin/prog", "trace"), "Application appears to be running from directory: \"@/v3/bin\"\n"
                                              "The 'kor' directory could not be found: \"@/v3/kor\"\n0\n");
    EXPECT_EQ(report("v3/bin/prog2", "reg trace"), "Application appears to be running from directory: \"@/v3/bin\"\n"
                                                   "The 'kor' directory could not be found: \"@/v3/kor\"\n"
                                                   "Application appears to be running from directory: \"@/v3/bin\"\n"
                                                   "The 'kor' directory could not be found: \"@/v3/kor\"\n"
                                                   "Could not locate installation directory\nnull\n");
}

TEST_F(Installation, RegistryNumbers)
{
    make("v2/kor");
    EXPECT_EQ(report("v2/bin/prog", "reg paths"),
              "@/v2/kor\n@/v2/kor/bin\n@/v2/kor/lib\n@/v2/kor/help\n@/v2/kor/include\n@/v2/kor/dat\n@/v2/kor/sources\n"
              "@/v2/kor/resources\n@/v2/kor/docs\nnull\nnull\nnull\n");
    EXPECT_EQ(report("v3/bin/prog", "reg paths"),
              "null\nnull\nnull\nnull\nnull\nnull\nnull\nnull\nnull\nnull\nnull\nnull\n");
}

TEST_F(Installation, TheVersionDirectoryStandsInForALostFamilyDirectory)
{
    make("v2/kor");
    EXPECT_EQ(report("v2/bin/prog", "without family"), "@/v2\n@/v2/dat\n");
}

TEST_F(Installation, AnIndexOutsideTheTableIsAnAssertion)
{
    make("v2/kor");
    EXPECT_EQ(report("v2/bin/prog", "assertion"),
              "null\n@\n@/v2/kor-as\nfailed: (path >= ZRINSTDIR_FIRST) && (path < ZRINSTDIR_LAST)\nnull\n");
}

TEST(RegCreatePath, JoinsTheText)
{
    EXPECT_STREQ(reg_create_path("/x", 1), "/x/bin");
    EXPECT_STREQ(reg_create_path("/x/", REG_INSTDIR_DAT), "/x/dat");
    EXPECT_EQ(reg_create_path("/x", 9), nullptr);
    EXPECT_EQ(reg_create_path("/x", 10), nullptr);
    EXPECT_EQ(reg_create_path(nullptr, 5), nullptr);
}

// ---- Catalogues

constexpr const char *BUILT_IN = "20240104201356_en.msgs";
constexpr const char *NEWER = "20250101000000_en.msgs";
constexpr const char *NEWEST = "20260101000000_en.msgs";

TEST_F(Installation, CatalogueSearchStopsAtTheFirstDirectoryThatHasOne)
{
    make("v2/kor");
    EXPECT_EQ(report("v2/bin/a", "catalogue"), std::string(BUILT_IN) + "\n");
    put(std::string("elsewhere/") + NEWEST);
    EXPECT_EQ(report("v2/bin/b", "catalogue"), std::string("@/elsewhere/") + NEWEST + "\n");
    put(std::string("v2/dat/") + NEWER);
    EXPECT_EQ(report("v2/bin/c", "catalogue"), std::string("@/v2/dat/") + NEWER + "\n");
    // One that is too old ends the search all the same.
    put("v2/kor/dat/en_msgs.txt");
    EXPECT_EQ(report("v2/bin/d", "catalogue"), std::string(BUILT_IN) + "\n");
    put(std::string("v2/kor/dat/") + NEWER);
    EXPECT_EQ(report("v2/bin/e", "catalogue"), std::string("@/v2/kor/dat/") + NEWER + "\n");
}

TEST_F(Installation, CatalogueBesideTheProgramNeedsNoInstallation)
{
    put(std::string("tools/dat/") + NEWER);
    EXPECT_EQ(report("tools/any/prog", "catalogue"), std::string("@/tools/dat/") + NEWER + "\n");
    EXPECT_EQ(report("tools/any./prog", "catalogue"), std::string("@/tools/dat/") + NEWER + "\n");
    // Points and backslashes at the end of the program's directory are no level of their own.
    EXPECT_EQ(report("tools/any\\.\\prog", "catalogue"), std::string("@/tools/dat/") + NEWER + "\n");
}

TEST_F(Installation, CatalogueOfTheVersionDirectoryWinsBetweenEqualVersions)
{
    put(std::string("v2/kor/dat/") + BUILT_IN);
    EXPECT_EQ(report("v2/bin/a", "catalogue"), std::string("@/v2/kor/dat/") + BUILT_IN + "\n");
    // Both in the version directory: reverse alphabetic.
    put(std::string("v2/kor/dat/0") + NEWER);
    put(std::string("v2/kor/dat/") + NEWER);
    EXPECT_EQ(report("v2/bin/b", "catalogue"), std::string("@/v2/kor/dat/") + NEWER + "\n");
}

TEST_F(Installation, OpenEdfPrefersTheVersionDirectory)
{
    // In force is one of the version directory: it stays.
    put(std::string("v2/kor/dat/") + BUILT_IN);
    put(std::string("zz/") + BUILT_IN);
    edf_ = root_ + "/zz/" + BUILT_IN;
    const std::string installed = std::string("@/v2/kor/dat/") + BUILT_IN + "\n";
    EXPECT_EQ(report("v2/bin/a", "edf"), installed + installed);
    // In force is the built-in one: one of the version directory replaces it, though its path compares below.
    std::filesystem::remove(root_ + "/v2/kor/dat/" + BUILT_IN);
    put(std::string("v2/x/") + BUILT_IN);
    edf_ = root_ + "/v2/x/" + BUILT_IN;
    EXPECT_EQ(report("v2/bin/b", "edf"), std::string(BUILT_IN) + "\n@/v2/x/" + BUILT_IN + "\n");
    // Any other path that compares below does not.
    edf_ = root_ + "/zz/" + BUILT_IN;
    EXPECT_EQ(report("v2/bin/c", "edf"), std::string(BUILT_IN) + "\n" + BUILT_IN + "\n");
}

} // namespace
