// SPDX-License-Identifier: MIT
#include "common/stringcache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "tests/unit/common/equal_hashes.h"
#include "tests/unit/common/scratch_dir.h"

namespace {

// The settings of the cache as a test found them.
class cache_settings {
public:
    cache_settings() : size_(string_table_size), limit_(string_limit) {}
    ~cache_settings()
    {
        string_table_size = size_;
        string_limit = limit_;
    }
    cache_settings(const cache_settings &) = delete;
    cache_settings &operator=(const cache_settings &) = delete;

private:
    std::uint32_t size_;
    std::uint32_t limit_;
};

// A text that no test has cached yet, at no repetition either.
std::string unknown_text()
{
    static unsigned count = 0;
    return "unknown text " + std::to_string(++count);
}

std::vector<std::string> tokens_of(const char *text, const char *delimiters)
{
    auto tokens = str_split(text, delimiters);
    std::vector<std::string> result;
    for (const char *token : each(tokens)) {
        EXPECT_TRUE(str_same(token, str_cache(token))) << "tokens are cached";
        result.emplace_back(token);
    }
    tokens.free();
    return result;
}

TEST(StringCache, Defaults)
{
    EXPECT_EQ(string_table_size, 5077U);
    EXPECT_EQ(string_limit, 0U);
}

TEST(StringCache, EqualTextsAreOnePointer)
{
    const std::string text = "cached by a test";
    const char *first = str_cache(text.c_str());
    EXPECT_STREQ(first, "cached by a test");
    EXPECT_NE(first, text.c_str()) << "a copy";
    EXPECT_TRUE(str_same(first, str_cache("cached by a test")));
    EXPECT_FALSE(str_same(first, str_cache("cached by a tesT")));
    EXPECT_EQ(str_cache(static_cast<const char *>(nullptr)), nullptr);
    EXPECT_STREQ(str_cache(""), "");
}

TEST(StringCache, ViewsNeedNoTerminator)
{
    const char *abc = str_cache("abc");
    EXPECT_TRUE(str_same(abc, str_cache(std::string_view("abcdef").substr(0, 3))));
    EXPECT_TRUE(str_same(abc, str_cache(std::string_view("abc\0def", 7)))) << "up to the first NUL";
    EXPECT_TRUE(str_same(str_cache(""), str_cache(std::string_view())));
    EXPECT_TRUE(str_same(str_cache(""), str_cache(std::string_view("\0x", 2))));
}

TEST(StringCache, CountsWhatItEnters)
{
    const std::string text = unknown_text();
    const std::uint32_t count = string_count;
    str_cache(text);
    EXPECT_EQ(string_count, count + 1);
    str_cache(text);
    EXPECT_EQ(string_count, count + 1);
}

// Far beyond the buckets that the cache starts with; lengths around the steps of the hash.
TEST(StringCache, HoldsManyTexts)
{
    constexpr std::size_t COUNT = 60000;
    std::vector<const char *> cached;
    const auto text = [](std::size_t i) { return std::string(i % 23, 'x') + std::to_string(i); };
    for (std::size_t i = 0; i < COUNT; ++i) {
        cached.push_back(str_cache(text(i).c_str()));
    }
    for (std::size_t i = 0; i < COUNT; ++i) {
        ASSERT_STREQ(cached[i], text(i).c_str());
        ASSERT_TRUE(str_same(cached[i], str_cache(text(i))));
    }
    std::vector<const char *> distinct = cached;
    std::sort(distinct.begin(), distinct.end());
    EXPECT_EQ(std::unique(distinct.begin(), distinct.end()), distinct.end());
}

// Texts and their beginnings, as views into one longer text: neither is taken for the other.
TEST(StringCache, BeginningsAreOtherTexts)
{
    for (const char c : {'z', ' ', '\xFF'}) {
        const std::string longest(64, c);
        std::vector<const char *> cached(longest.size() + 1);
        // Every other one first, so that a search meets both longer and shorter texts.
        for (const std::size_t first : {1U, 0U}) {
            for (std::size_t length = first; length <= longest.size(); length += 2) {
                cached[length] = str_cache(std::string_view(longest).substr(0, length));
            }
        }
        for (std::size_t length = 0; length <= longest.size(); ++length) {
            EXPECT_EQ(std::strlen(cached[length]), length);
            EXPECT_TRUE(str_same(cached[length], str_cache(std::string(length, c))));
            EXPECT_TRUE(str_same(cached[length], str_cache(std::string(length, c).c_str())));
        }
    }
}

TEST(StringCache, TextsOfEqualHashAreToldApart)
{
    std::vector<std::string> texts = texts_of_equal_text_hash(100);
    const std::string whole = text_with_beginning_of_equal_text_hash();
    texts.push_back(whole);
    texts.push_back(whole.substr(0, 8));
    std::vector<const char *> cached;
    for (const std::string &text : texts) {
        cached.push_back(str_cache(text));
        EXPECT_EQ(cached.back(), text);
    }
    for (std::size_t i = 0; i < texts.size(); ++i) {
        str_prefetch(texts[i]); // changes nothing
        EXPECT_TRUE(str_same(str_cache(texts[i]), cached[i]));
        EXPECT_EQ(cached[i], texts[i]);
    }
}

// Names of outputs are cut in place. What stands in the cache then is found by neither text.
TEST(StringCache, ATextCutInPlaceIsNotFoundAgain)
{
    const std::string text = unknown_text() + ".ext";
    char *own = ::strdup(text.c_str());
    ASSERT_EQ(str_cache_own(own), own);
    const std::size_t point = text.find('.');
    own[point] = '\0';
    const char *whole = str_cache(text);
    EXPECT_NE(whole, own);
    EXPECT_EQ(whole, text);
    EXPECT_TRUE(str_same(whole, str_cache(text)));
    const char *front = str_cache(text.substr(0, point));
    EXPECT_NE(front, own);
    EXPECT_STREQ(front, own);
}

TEST(StringCache, OwnEntersTheAllocationItself)
{
    const std::string text = unknown_text();
    char *first = ::strdup(text.c_str());
    char *second = ::strdup(text.c_str());
    EXPECT_EQ(str_cache_own(first), first);
    EXPECT_EQ(str_cache(text), first);
    EXPECT_EQ(str_cache_own(second), first);
    EXPECT_EQ(str_cache_own(first), first);
    EXPECT_EQ(second, text) << "still the caller's";
    std::free(second);
    EXPECT_EQ(str_cache_own(nullptr), nullptr);
}

TEST(StringCache, SizeZeroGivesFreshCopies)
{
    const cache_settings restored;
    const char *cached = str_cache("switched off");
    string_table_size = 0;
    const std::uint32_t count = string_count;
    const char *first = str_cache("switched off");
    const char *second = str_cache("switched off");
    EXPECT_STREQ(first, "switched off");
    EXPECT_STREQ(second, "switched off");
    EXPECT_NE(first, cached);
    EXPECT_NE(first, second);
    EXPECT_EQ(string_count, count);
    char *own = ::strdup("switched off");
    EXPECT_EQ(str_cache_own(own), own);
    std::free(own);
}

// The test comes before the count, so one string more than the limit is entered.
TEST(StringCache, BeyondTheLimitNothingIsEntered)
{
    const cache_settings restored;
    const char *known = str_cache("known before the limit");
    string_limit = string_count;
    const std::string last = unknown_text();
    const char *entered = str_cache(last);
    EXPECT_EQ(string_count, string_limit + 1);
    EXPECT_TRUE(str_same(entered, str_cache(last)));
    const std::string beyond = unknown_text();
    const char *fresh = str_cache(beyond);
    EXPECT_EQ(fresh, beyond);
    EXPECT_NE(fresh, str_cache(beyond));
    EXPECT_EQ(string_count, string_limit + 1);
    EXPECT_TRUE(str_same(known, str_cache("known before the limit"))) << "what is there is found";
}

TEST(StrPrintf, FormatsAndCaches)
{
    const char *text = str_printf("%s$%u", "name", 3U);
    EXPECT_STREQ(text, "name$3");
    EXPECT_TRUE(str_same(text, str_cache("name$3")));
    EXPECT_STREQ(str_printf("%s", ""), "");
}

TEST(StrPrintf, ResultsMuchLongerThanTheFormat)
{
    for (const std::size_t length : {4095U, 4096U, 4097U, 100000U}) {
        const std::string text(length, 'y');
        EXPECT_EQ(std::string(str_printf("<%s>", text.c_str())), "<" + text + ">");
    }
}

TEST(StrPrintfDeathTest, AFormatThatFailsAborts)
{
    // No character of the C locale.
    EXPECT_DEATH(str_printf("%lc", static_cast<wint_t>(0x10FFFF)), "vsnprintf failed in a mysterious way\n");
}

TEST(StrOperations, NullGivesNull)
{
    EXPECT_EQ(str_concat(nullptr, "a"), nullptr);
    EXPECT_EQ(str_concat("a", nullptr), nullptr);
    EXPECT_EQ(str_substr(nullptr, 1), nullptr);
    EXPECT_EQ(str_lower(nullptr), nullptr);
    EXPECT_EQ(str_upper(nullptr), nullptr);
    EXPECT_FALSE(str_split(nullptr, " "));
    EXPECT_FALSE(str_split("a", nullptr));
    EXPECT_EQ(str_set_ext(nullptr, "a"), nullptr);
    EXPECT_EQ(str_set_ext("a", nullptr), nullptr);
    EXPECT_EQ(str_add_ext(nullptr, "a"), nullptr);
    EXPECT_EQ(str_add_ext("a", nullptr), nullptr);
    EXPECT_EQ(str_strip_ext(nullptr), nullptr);
    EXPECT_EQ(str_path_join(nullptr, nullptr), nullptr);
    EXPECT_EQ(str_basename(nullptr), nullptr);
    EXPECT_EQ(str_dirname(nullptr), nullptr);
    EXPECT_EQ(str_quote(nullptr, '"'), nullptr);
    EXPECT_EQ(str_translate(nullptr, "a", "b"), nullptr);
    EXPECT_EQ(str_escape(nullptr, "a"), nullptr);
    EXPECT_EQ(str_read_stream(nullptr), nullptr);
}

// Each result is the cached form, whatever stood in the work buffer before.
void expect_cached(const char *result, const char *expected)
{
    ASSERT_NE(result, nullptr) << expected;
    EXPECT_STREQ(result, expected);
    EXPECT_TRUE(str_same(result, str_cache(expected))) << expected;
}

TEST(StrOperations, ConcatAndSubstr)
{
    expect_cached(str_concat("ab", "cd"), "abcd");
    expect_cached(str_concat("", ""), "");
    expect_cached(str_substr("abcdef", 3), "abc");
    expect_cached(str_substr("abc", 0), "");
    expect_cached(str_substr("abc", 3), "abc");
    expect_cached(str_substr("abc", 0xFFFFFFFF), "abc");
}

TEST(StrOperations, CaseFoldingIsAscii)
{
    expect_cached(str_lower("AbZ@[`{9\xC4\xE4"), "abz@[`{9\xC4\xE4");
    expect_cached(str_upper("aBz@[`{9\xC4\xE4"), "ABZ@[`{9\xC4\xE4");
}

TEST(StrOperations, SplitSkipsRunsOfDelimiters)
{
    using tokens = std::vector<std::string>;
    EXPECT_EQ(tokens_of("  one  two three ", " "), (tokens{"one", "two", "three"}));
    EXPECT_EQ(tokens_of("a,b;c,;d", ",;"), (tokens{"a", "b", "c", "d"}));
    EXPECT_EQ(tokens_of("abc", ","), (tokens{"abc"}));
    EXPECT_EQ(tokens_of("a b", ""), (tokens{"a b"}));
    EXPECT_EQ(tokens_of("", ","), tokens{});
    EXPECT_EQ(tokens_of(",,,", ","), tokens{});
    EXPECT_EQ(tokens_of("a\xE4"
                        "b",
                        "\xE4"),
              (tokens{"a", "b"}));
    auto none = str_split("", ",");
    EXPECT_TRUE(none) << "an empty vector, not a null one";
    none.free();
}

TEST(StrOperations, SetAndAddExtension)
{
    expect_cached(str_set_ext("file.c", "sdb"), "file.sdb");
    expect_cached(str_set_ext("file.c", ".sdb"), "file.sdb");
    expect_cached(str_set_ext("file", "sdb"), "file.sdb");
    expect_cached(str_set_ext("a.b.c", "x"), "a.b.x");
    expect_cached(str_set_ext("file.c", ""), "file.");
    expect_cached(str_set_ext("file.c", "..x"), "file..x");
    expect_cached(str_set_ext("dir.x\\file", "c"), "dir.c"); // its last point, wherever it lies
    expect_cached(str_add_ext("file.c", "sdb"), "file.c.sdb");
    expect_cached(str_add_ext("file.c", ".sdb"), "file.c.sdb");
}

TEST(StrOperations, StripExtension)
{
    expect_cached(str_strip_ext("file.c"), "file");
    expect_cached(str_strip_ext("a.b.c"), "a.b");
    expect_cached(str_strip_ext("file"), "file");
    expect_cached(str_strip_ext("dir.x\\file"), "dir.x\\file");
    expect_cached(str_strip_ext("dir.x/file"), "dir.x/file");
    expect_cached(str_strip_ext("dir.x\\file.c"), "dir.x\\file");
    expect_cached(str_strip_ext("file."), "file");
    expect_cached(str_strip_ext(".c"), "");
    expect_cached(str_strip_ext(""), "");
}

TEST(StrOperations, PathJoin)
{
    expect_cached(str_path_join("dir", "name"), "dir/name");
    expect_cached(str_path_join("dir\\", "name"), "dir\\name");
    expect_cached(str_path_join("dir/", "name"), "dir/name");
    expect_cached(str_path_join("/", "name"), "/name");
    expect_cached(str_path_join("dir", "/name"), "dir//name"); // the name is taken as it is
    expect_cached(str_path_join("", "name"), "name");
    expect_cached(str_path_join(nullptr, "name"), "name");
    expect_cached(str_path_join("dir", ""), "dir");
    expect_cached(str_path_join("dir", nullptr), "dir");
    expect_cached(str_path_join("", ""), "");
}

TEST(StrOperations, BasenameAndDirname)
{
    expect_cached(str_basename("C:\\dir\\file.c"), "file.c");
    expect_cached(str_basename("dir/file.c"), "file.c");
    expect_cached(str_basename("C:file.c"), "file.c");
    expect_cached(str_basename("file.c"), "file.c");
    expect_cached(str_basename("a\\b/c"), "b/c"); // the last backslash wins
    expect_cached(str_basename("dir/"), "");
    expect_cached(str_dirname("C:\\dir\\file.c"), "C:\\dir");
    expect_cached(str_dirname("dir/sub/file.c"), "dir/sub");
    expect_cached(str_dirname("C:file.c"), "C");
    expect_cached(str_dirname("/file.c"), "");
    expect_cached(str_dirname("a\\b/c"), "a");
    EXPECT_EQ(str_dirname("file.c"), nullptr);
}

TEST(StrOperations, Quote)
{
    expect_cached(str_quote("a b", '"'), "\"a b\"");
    expect_cached(str_quote("", '\''), "''");
}

TEST(StrOperations, Translate)
{
    expect_cached(str_translate("a\\b\\c", "\\", "/"), "a/b/c");
    expect_cached(str_translate("abcabc", "ab", "ba"), "bacbac");
    expect_cached(str_translate("abc", "abc", "x"), "xbc"); // what has no partner stays
    expect_cached(str_translate("aa", "aa", "xy"), "xx");   // the first pair counts
    expect_cached(str_translate("abc", "", ""), "abc");
    const std::string many(256, 'q');
    expect_cached(str_translate("z", (many + "z").c_str(), (many + "y").c_str()), "z"); // at most 256 pairs
    const std::string fewer(255, 'q');
    expect_cached(str_translate("z", (fewer + "z").c_str(), (fewer + "y").c_str()), "y");
}

TEST(StrOperations, Escape)
{
    expect_cached(str_escape("a b", " "), "a\\ b");
    expect_cached(str_escape("a\"b\\", "\"\\"), "a\\\"b\\\\");
    expect_cached(str_escape("100%", "%", '%'), "100%%");
    expect_cached(str_escape("plain", "%"), "plain");
    expect_cached(str_escape("", "%"), "");
}

TEST(StrOperations, ReadStream)
{
    const scratch_dir scratch;
    for (const std::size_t length : {0U, 1U, 1023U, 1024U, 1025U, 50000U}) {
        std::string text;
        while (text.size() < length) {
            text += static_cast<char>(text.size() % 61 == 60 ? '\n' : 'a' + text.size() % 26);
        }
        std::FILE *stream = std::fopen(scratch.write("text", text).c_str(), "rb");
        ASSERT_NE(stream, nullptr);
        expect_cached(str_read_stream(stream), text.c_str());
        std::fclose(stream);
    }
}

TEST(StrTests, StartsAndEnds)
{
    EXPECT_TRUE(str_starts_with("prefix.c", "prefix"));
    EXPECT_TRUE(str_starts_with("a", ""));
    EXPECT_FALSE(str_starts_with("prefix", "Prefix"));
    EXPECT_FALSE(str_starts_with("pre", "prefix"));
    EXPECT_TRUE(str_starts_with_nocase("PREfix.c", "preFIX"));
    EXPECT_FALSE(str_starts_with_nocase("pre", "prefix"));
    EXPECT_TRUE(str_ends_with("prog.hex", ".hex"));
    EXPECT_FALSE(str_ends_with("prog.HEX", ".hex"));
    EXPECT_FALSE(str_ends_with("hex", ".hex"));
    EXPECT_TRUE(str_ends_with("a", ""));
    EXPECT_TRUE(str_ends_with_nocase("prog.HeX", ".hex"));
    EXPECT_FALSE(str_ends_with_nocase("hex", ".hex"));
    EXPECT_FALSE(str_ends_with_nocase("prog.hex2", ".hex"));
}

TEST(StrTests, NullGivesFalse)
{
    EXPECT_FALSE(str_starts_with(nullptr, "a"));
    EXPECT_FALSE(str_starts_with("a", nullptr));
    EXPECT_FALSE(str_starts_with_nocase(nullptr, "a"));
    EXPECT_FALSE(str_starts_with_nocase("a", nullptr));
    EXPECT_FALSE(str_ends_with(nullptr, "a"));
    EXPECT_FALSE(str_ends_with("a", nullptr));
    EXPECT_FALSE(str_ends_with_nocase(nullptr, "a"));
    EXPECT_FALSE(str_ends_with_nocase("a", nullptr));
}

TEST(StrCompareNocase, OrdersAsIfLowered)
{
    EXPECT_EQ(str_compare_nocase("AbC", "aBc"), 0);
    EXPECT_EQ(str_compare_nocase("", ""), 0);
    EXPECT_LT(str_compare_nocase("ab", "ABC"), 0);
    EXPECT_GT(str_compare_nocase("abc", "AB"), 0);
    EXPECT_LT(str_compare_nocase("a", "B"), 0);
    EXPECT_GT(str_compare_nocase("B", "a"), 0);
    EXPECT_LT(str_compare_nocase("_", "A"), 0) << "the letters count as small ones, which stand behind \"_\"";
    EXPECT_LT(str_compare_nocase("z", "\xE4"), 0) << "bytes above 127 are large";
    EXPECT_NE(str_compare_nocase("\xC4", "\xE4"), 0) << "and are no letters";
}

TEST(StrCompareNocase, OfALength)
{
    EXPECT_EQ(str_compare_nocase("ABCx", "abcy", 3), 0);
    EXPECT_LT(str_compare_nocase("ABCx", "abcy", 4), 0);
    EXPECT_EQ(str_compare_nocase("a", "b", 0), 0);
    EXPECT_LT(str_compare_nocase("ab", "abc", 3), 0);
    EXPECT_EQ(str_compare_nocase("ab", "AB", 100), 0);
}

} // namespace
