// SPDX-License-Identifier: MIT
// Hash tables: their order, the index beside long chains, the string hashes, and the master list.
#include "common/hash.h"

#include <cstring>
#include <ctime>
#include <deque>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/hash_of.h"
#include "tests/unit/common/container_testing.h"
#include "tests/unit/common/equal_hashes.h"

namespace {

using words = std::vector<word>;

words taken(vector *list)
{
    words found;
    for (const word w : each(vector_of<word>(list))) {
        found.push_back(w);
    }
    vector_free(list);
    return found;
}

word text(const char *s)
{
    return to_word(s);
}

// The dump that a program makes which never had a hash table on the list.
const std::vector<std::string> dump_without_tables = [] {
    const trace_capture capture;
    hash_dump_master_list();
    return trace_capture::lines();
}();

} // namespace

TEST(Hash, FirstValueStays)
{
    hash_table *table = hash_new(7);
    EXPECT_EQ(hash_insert(table, 5, 50), 1);
    EXPECT_EQ(hash_insert(table, 5, 51), 0);
    EXPECT_EQ(hash_insert(table, 5, 50), 0);
    EXPECT_EQ(hash_get(table, 5), 50U);
    EXPECT_EQ(hash_count(table), 1U);
    hash_free(table);
}

TEST(Hash, StoredZeroIsNotAbsence)
{
    hash_table *table = hash_new(7);
    EXPECT_EQ(hash_insert(table, 5, 0), 1);
    EXPECT_EQ(hash_get(table, 5), 0U);
    EXPECT_TRUE(hash_contains(table, 5));
    EXPECT_EQ(hash_get(table, 6), 0U);
    EXPECT_FALSE(hash_contains(table, 6));
    EXPECT_EQ(hash_insert(table, 5, 1), 0);
    EXPECT_EQ(hash_delete(table, 5), 0U);
    EXPECT_FALSE(hash_contains(table, 5));
    hash_free(table);
}

TEST(Hash, WalksBucketByBucketEachChainFromHeadToTail)
{
    hash_table *table = hash_new(4);
    // Buckets by key modulo 4: 0: 8 4; 1: 5 1 9; 2: none; 3: 3.
    for (const word key : {5U, 8U, 1U, 3U, 4U, 9U}) {
        hash_insert(table, key, key * 10);
    }
    EXPECT_EQ(taken(hash_keys(table)), (words{8, 4, 5, 1, 9, 3}));
    EXPECT_EQ(taken(hash_values(table)), (words{80, 40, 50, 10, 90, 30}));

    words walked;
    const auto note = [](void *context, word key, word value) -> word {
        static_cast<words *>(context)->push_back(key);
        EXPECT_EQ(value, key * 10);
        return 0;
    };
    EXPECT_EQ(hash_walk(table, &walked, note), 0U);
    EXPECT_EQ(walked, (words{8, 4, 5, 1, 9, 3}));
    hash_free(table);
}

TEST(Hash, WalkStopsAtTheFirstResult)
{
    hash_table *table = hash_new(1);
    hash_insert(table, 1, 0);
    hash_insert(table, 2, 77);
    hash_insert(table, 3, 88);
    int calls = 0;
    const word result = hash_walk(table, &calls, [](void *context, word, word value) {
        ++*static_cast<int *>(context);
        return value;
    });
    EXPECT_EQ(result, 77U);
    EXPECT_EQ(calls, 2);
    hash_free(table);
}

TEST(Hash, WalkMayDeleteWhatItVisits)
{
    hash_table *table = hash_new(1);
    for (const word key : {1U, 2U, 3U}) {
        hash_insert(table, key, key);
    }
    hash_walk(table, table, [](void *context, word key, word) -> word {
        EXPECT_EQ(hash_delete(static_cast<hash_table *>(context), key), key);
        return 0;
    });
    EXPECT_EQ(hash_count(table), 0U);
    hash_free(table);
}

TEST(Hash, OneBucketIsAListInOrderOfInsertion)
{
    hash_table *table = hash_new(1, hash_key_string, compare_key_string);
    const char *const names[] = {"zeta", "alpha", "mid", "a", "", "omega", "b"};
    words expected;
    for (const char *name : names) {
        EXPECT_EQ(hash_insert(table, text(name), text(name)), 1);
        expected.push_back(text(name));
    }
    EXPECT_EQ(taken(hash_keys(table)), expected);
    const std::string copy = "mid";
    EXPECT_EQ(hash_get(table, text(copy.c_str())), text(names[2]));
    EXPECT_EQ(hash_delete(table, text(copy.c_str())), text(names[2]));
    expected.erase(expected.begin() + 2);
    EXPECT_EQ(taken(hash_values(table)), expected);
    hash_free(table);
}

TEST(Hash, DeletionAtEveryPlaceOfAChain)
{
    for (const std::size_t gone : {0U, 1U, 2U}) {
        hash_table *table = hash_new(3);
        words keys = {3, 6, 9};
        for (const word key : keys) {
            hash_insert(table, key, key + 1);
        }
        EXPECT_EQ(hash_delete(table, keys[gone]), keys[gone] + 1);
        EXPECT_EQ(hash_delete(table, keys[gone]), 0U);
        keys.erase(keys.begin() + static_cast<std::ptrdiff_t>(gone));
        EXPECT_EQ(taken(hash_keys(table)), keys);
        hash_insert(table, 12, 0);
        keys.push_back(12);
        EXPECT_EQ(taken(hash_keys(table)), keys);
        hash_free(table);
    }
}

TEST(Hash, ClearEmptiesAndTheTableServesOn)
{
    hash_table *table = hash_new(2);
    for (word key = 0; key < 100; ++key) {
        hash_insert(table, key, key + 1);
    }
    hash_clear(table);
    EXPECT_EQ(hash_count(table), 0U);
    EXPECT_FALSE(hash_contains(table, 5));
    EXPECT_TRUE(taken(hash_keys(table)).empty());
    for (word key = 100; key-- > 0;) {
        EXPECT_EQ(hash_insert(table, key, key), 1);
    }
    EXPECT_EQ(taken(hash_keys(table)).front(), 98U);
    EXPECT_EQ(hash_get(table, 98), 98U);
    hash_free(table);
    hash_free(nullptr);
}

TEST(Hash, NodesOfOneTableServeTheNext)
{
    hash_table *table = hash_new(1);
    hash_insert(table, 1, 1);
    const hash_entry *node = table->buckets[0];
    hash_free(table);
    table = hash_new(1);
    hash_insert(table, 2, 2);
    EXPECT_EQ(table->buckets[0], node);
    EXPECT_EQ(node->next, nullptr);
    hash_free(table);
}

TEST(Hash, DefaultsTakeTheLowBitsAsHashAndTheWordAsKey)
{
    hash_table *table = hash_new(10);
    const word low = 3;
    const word high = (word{1} << 32) + 3;
    EXPECT_EQ(hash_insert(table, low, 1), 1);
    EXPECT_EQ(hash_insert(table, high, 2), 1) << "another word, though of equal hash";
    EXPECT_EQ(hash_insert(table, 0xFFFFFFFF, 3), 1);
    EXPECT_EQ(hash_get(table, low), 1U);
    EXPECT_EQ(hash_get(table, high), 2U);
    EXPECT_EQ(taken(hash_keys(table)), (words{low, high, 0xFFFFFFFF})) << "4294967295 modulo 10 is 5";
    hash_free(table);
}

TEST(Hash, StringHash)
{
    EXPECT_EQ(hash_string(""), 5381U);
    EXPECT_EQ(hash_string("a"), 5381U * 33 + 97);
    EXPECT_EQ(hash_string("ab"), (5381U * 33 + 97) * 33 + 98);
    EXPECT_EQ(hash_string("\xFF"), 5381U * 33 - 1) << "a signed character";
    EXPECT_EQ(hash_string("\x80"), 5381U * 33 - 128);
    // (5381 * 33^10 + ...) modulo 2^32, worked out with whole numbers.
    EXPECT_EQ(hash_string("abcdefghij"), 3079683036U);
    EXPECT_EQ(hash_key_string(text("ab")), hash_string("ab"));
}

TEST(Hash, StringHashWithoutCase)
{
    EXPECT_EQ(hash_string_nocase(""), 5381U);
    EXPECT_EQ(hash_string_nocase("AbZz@["), hash_string("abzz@["));
    EXPECT_EQ(hash_string_nocase("\xC4"), hash_string("\xC4")) << "bytes above 127 stand for themselves";
    EXPECT_NE(hash_string_nocase("\xC4"), hash_string_nocase("\xE4"));
    EXPECT_EQ(hash_key_nocase(text("AB")), hash_string("ab"));
}

TEST(Hash, StringComparisons)
{
    EXPECT_EQ(compare_key_string(text("ab"), text("ab")), 0);
    EXPECT_NE(compare_key_string(text("ab"), text("aB")), 0);
    EXPECT_EQ(compare_key_nocase(text("ab"), text("aB")), 0);
    EXPECT_NE(compare_key_nocase(text("ab"), text("abc")), 0);
    EXPECT_NE(compare_key_nocase(text("\xC4"), text("\xE4")), 0);
    // As if lower-cased: "_" stands in front of the letters, not behind them.
    EXPECT_LT(compare_key_nocase(text("_"), text("A")), 0);
}

namespace {

// A table in the plainest form: chains that are walked.
class plain_table {
public:
    plain_table(std::uint32_t size, hash_function hash, key_compare compare)
        : buckets_(size), hash_(hash), compare_(compare)
    {
    }

    bool insert(word key, word value)
    {
        auto &chain = chain_of(key);
        if (find(chain, key) != chain.end()) {
            return false;
        }
        chain.emplace_back(key, value);
        return true;
    }
    word get(word key)
    {
        auto &chain = chain_of(key);
        const auto found = find(chain, key);
        return found != chain.end() ? found->second : 0;
    }
    word remove(word key)
    {
        auto &chain = chain_of(key);
        const auto found = find(chain, key);
        if (found == chain.end()) {
            return 0;
        }
        const word value = found->second;
        chain.erase(found);
        return value;
    }
    words keys() const
    {
        words all;
        for (const auto &chain : buckets_) {
            for (const auto &entry : chain) {
                all.push_back(entry.first);
            }
        }
        return all;
    }

private:
    using chain_type = std::vector<std::pair<word, word>>;

    chain_type &chain_of(word key) { return buckets_[hash_(key) % buckets_.size()]; }
    chain_type::iterator find(chain_type &in, word key)
    {
        auto at = in.begin();
        while (at != in.end() && compare_(key, at->first) != 0) {
            ++at;
        }
        return at;
    }

    std::vector<chain_type> buckets_;
    hash_function hash_;
    key_compare compare_;
};

// Two keys in three share their hash with others.
std::uint32_t poor_hash(word key)
{
    return static_cast<std::uint32_t>(key % 3 == 0 ? key : key % 5);
}

int compare_words(word left, word right)
{
    return left < right ? -1 : left > right ? 1 : 0;
}

// Counts how often a table compares.
int comparisons = 0;
int counted_compare(word left, word right)
{
    ++comparisons;
    return compare_words(left, right);
}

void expect_as_plain(std::uint32_t size, hash_function hash, key_compare compare, const words &keys, unsigned seed)
{
    std::mt19937 random(seed);
    hash_table *table = hash_new(size, hash, compare);
    plain_table plain(size, hash, compare);
    for (int step = 0; step < 6000; ++step) {
        const word key = keys[random() % keys.size()];
        // The first half mostly fills, the second half mostly empties.
        const bool fill = random() % 4 != 0;
        if (fill == (step < 3000)) {
            const word value = random() % 1000 + 1;
            ASSERT_EQ(hash_insert(table, key, value) != 0, plain.insert(key, value)) << step;
        } else {
            ASSERT_EQ(hash_delete(table, key), plain.remove(key)) << step;
        }
        const word other = keys[random() % keys.size()];
        hash_prefetch(table, other); // changes nothing
        ASSERT_EQ(hash_get(table, other), plain.get(other)) << step;
        ASSERT_EQ(hash_contains(table, other), plain.get(other) != 0) << step;
        if (step % 100 == 0) {
            ASSERT_EQ(taken(hash_keys(table)), plain.keys()) << step;
        }
    }
    EXPECT_EQ(taken(hash_keys(table)), plain.keys());
    EXPECT_EQ(hash_count(table), plain.keys().size());
    hash_free(table);
}

// Spellings of few words, so that many differ in case alone.
std::deque<std::string> spellings()
{
    std::deque<std::string> all;
    for (unsigned number = 0; number < 400; ++number) {
        std::string name = "reg" + std::to_string(number / 4);
        name[0] = (number & 1) != 0 ? 'R' : 'r';
        name[2] = (number & 2) != 0 ? 'G' : 'g';
        all.push_back(name);
    }
    return all;
}

} // namespace

TEST(HashIndex, SameAsPlainChainsForWords)
{
    words keys;
    for (word key = 0; key < 1500; ++key) {
        keys.push_back(key);
    }
    for (const std::uint32_t size : {1U, 2U, 8U, 19U, 128U, 2003U}) {
        expect_as_plain(size, poor_hash, compare_words, keys, size);
    }
}

TEST(HashIndex, SameAsPlainChainsForTexts)
{
    const std::deque<std::string> names = spellings();
    words keys;
    for (const std::string &name : names) {
        keys.push_back(text(name.c_str()));
    }
    for (const std::uint32_t size : {1U, 7U, 8U, 13U}) {
        expect_as_plain(size, hash_key_string, compare_key_string, keys, size);
        expect_as_plain(size, hash_key_nocase, compare_key_nocase, keys, size);
    }
}

TEST(HashIndex, SameAsPlainChainsWhereOnlyTheHashMindsCase)
{
    const std::deque<std::string> names = spellings();
    words keys;
    for (const std::string &name : names) {
        keys.push_back(text(name.c_str()));
    }
    for (const std::uint32_t size : {1U, 5U, 8U, 13U, 101U}) {
        expect_as_plain(size, hash_key_string, compare_key_nocase, keys, size);
    }
}

TEST(HashIndex, SameAsPlainChainsForTextsOfEqualHash)
{
    const std::vector<std::string> equal = names_of_equal_hash(8);
    const std::deque<std::string> others = spellings();
    words keys;
    for (const std::string &name : equal) {
        keys.push_back(text(name.c_str()));
    }
    for (const std::string &name : others) {
        keys.push_back(text(name.c_str()));
    }
    const std::vector<std::string> unlucky = texts_of_equal_text_hash(50); // as the index has it
    for (const std::string &name : unlucky) {
        keys.push_back(text(name.c_str()));
    }
    for (const std::uint32_t size : {1U, 7U, 8U, 64U}) {
        expect_as_plain(size, hash_key_string, compare_key_string, keys, size);
        // A comparison that the table does not know: its index goes by the specified hash.
        expect_as_plain(
            size, hash_key_string, [](word left, word right) { return compare_key_string(left, right); }, keys, size);
    }
}

// The key of a search is hardly ever the text that was stored.
TEST(HashIndex, FindsAndDeletesByEqualText)
{
    const std::vector<std::string> names = names_of_equal_hash(9);
    hash_table *table = hash_new(3, hash_key_string, compare_key_string);
    std::string copy;
    for (const std::string &name : names) {
        ASSERT_EQ(hash_insert(table, text(name.c_str()), text(name.c_str())), 1);
        copy = name;
        ASSERT_EQ(hash_insert(table, text(copy.c_str()), 1), 0);
    }
    words left;
    for (std::size_t i = 0; i < names.size(); ++i) {
        copy = names[i];
        if (i % 3 == 1) {
            ASSERT_EQ(hash_delete(table, text(copy.c_str())), text(names[i].c_str()));
            ASSERT_EQ(hash_delete(table, text(copy.c_str())), 0U);
        } else {
            ASSERT_EQ(hash_get(table, text(copy.c_str())), text(names[i].c_str()));
            left.push_back(text(names[i].c_str()));
        }
    }
    EXPECT_EQ(taken(hash_keys(table)), left) << "one chain, in order of insertion";
    // What went comes back at the end of the chain.
    for (std::size_t i = 1; i < names.size(); i += 3) {
        ASSERT_EQ(hash_insert(table, text(names[i].c_str()), 1), 1);
        left.push_back(text(names[i].c_str()));
    }
    EXPECT_EQ(taken(hash_keys(table)), left);
    hash_clear(table);
    EXPECT_FALSE(hash_contains(table, text(names[0].c_str())));
    EXPECT_EQ(hash_insert(table, text(names[5].c_str()), 1), 1);
    EXPECT_EQ(taken(hash_keys(table)), words{text(names[5].c_str())});
    hash_free(table);
}

namespace {

// Processor time of entering names and finding each by a copy.
std::clock_t time_of_names(const std::vector<std::string> &names)
{
    const std::vector<std::string> copies = names;
    hash_table *table = hash_new(13, hash_key_string, compare_key_string);
    const std::clock_t start = std::clock();
    for (const std::string &name : names) {
        EXPECT_EQ(hash_insert(table, text(name.c_str()), text(name.c_str())), 1);
    }
    for (std::size_t i = 0; i < copies.size(); ++i) {
        EXPECT_EQ(hash_get(table, text(copies[i].c_str())), text(names[i].c_str()));
    }
    const std::clock_t time = std::clock() - start;
    EXPECT_EQ(hash_count(table), names.size());
    hash_free(table);
    return time;
}

} // namespace

// A chain that is walked would take two thousand million comparisons.
TEST(HashIndex, NamesOfEqualHashCostNoMoreThanOthers)
{
    const std::vector<std::string> equal = names_of_equal_hash(16);
    std::vector<std::string> others;
    for (std::size_t i = 0; i < equal.size(); ++i) {
        others.push_back("a_name_of_the_same_length_" + std::to_string(100000 + i));
    }
    ASSERT_EQ(others[0].size(), equal[0].size());
    EXPECT_LT(time_of_names(equal), time_of_names(others) * 20 + CLOCKS_PER_SEC / 4);
}

TEST(Hash, CaseBlindComparisonSeesItsBucketOnly)
{
    // "a" and "A" differ by 32 in their hash: one bucket of 8, but two of 7 (32 modulo 7 is 4).
    hash_table *eight = hash_new(8, hash_key_string, compare_key_nocase);
    EXPECT_EQ(hash_insert(eight, text("a"), 1), 1);
    EXPECT_EQ(hash_insert(eight, text("A"), 2), 0);
    EXPECT_EQ(hash_get(eight, text("A")), 1U);
    hash_free(eight);
    hash_table *seven = hash_new(7, hash_key_string, compare_key_nocase);
    EXPECT_EQ(hash_insert(seven, text("a"), 1), 1);
    EXPECT_EQ(hash_insert(seven, text("A"), 2), 1);
    EXPECT_EQ(hash_get(seven, text("A")), 2U);
    hash_free(seven);
}

TEST(HashIndex, LookUpsCompareFewKeysHoweverLongTheChain)
{
    constexpr word COUNT = 20000;
    hash_table *table = hash_new(1, nullptr, counted_compare);
    comparisons = 0;
    for (word key = 0; key < COUNT; ++key) {
        hash_insert(table, key, key + 1);
    }
    for (word key = 0; key < COUNT; ++key) {
        ASSERT_EQ(hash_get(table, key), key + 1);
        ASSERT_FALSE(hash_contains(table, key + COUNT));
    }
    for (word key = 0; key < COUNT; key += 2) {
        ASSERT_EQ(hash_delete(table, key), key + 1);
    }
    EXPECT_EQ(comparisons, 0) << "every key has a hash of its own, and is the very word that was stored";
    hash_free(table);
}

TEST(HashOf, TypedView)
{
    auto table = hash_of<const char *, const int *>::make_strings(13);
    const int one = 1;
    const int two = 2;
    EXPECT_TRUE(static_cast<bool>(table));
    EXPECT_TRUE(table.insert("one", &one));
    EXPECT_FALSE(table.insert(std::string("one").c_str(), &two));
    EXPECT_TRUE(table.insert("ONE", &two));
    EXPECT_EQ(table.get("one"), &one);
    EXPECT_EQ(table.get("two"), nullptr);
    EXPECT_TRUE(table.contains("ONE"));
    EXPECT_EQ(table.count(), 2U);
    auto keys = table.keys();
    auto values = table.values();
    ASSERT_EQ(keys.count(), 2U);
    for (const std::uint32_t index : {0U, 1U}) {
        EXPECT_EQ(values.get(index), std::strcmp(keys.get(index), "one") == 0 ? &one : &two);
    }
    EXPECT_EQ(table.remove("one"), &one);
    keys.free();
    values.free();
    table.free();
    EXPECT_FALSE(static_cast<bool>(table));

    auto nocase = hash_of<const char *, std::uint32_t>::make_nocase(199);
    EXPECT_TRUE(nocase.insert("Main.C", 5));
    EXPECT_FALSE(nocase.insert("mAIN.c", 6));
    EXPECT_EQ(nocase.get("MAIN.C"), 5U);
    nocase.free();

    auto numbers = hash_of<std::uint32_t, std::int32_t>::make(7);
    EXPECT_TRUE(numbers.insert(0xFFFFFFFF, -1));
    EXPECT_EQ(numbers.get(0xFFFFFFFF), -1);
    numbers.free();
}

TEST(HashDeath, SizeMustNotBeZero)
{
    EXPECT_CHECK(hash_new(0), "size != 0");
}

namespace {

struct listing {
    listing() { hash_master_list(true); }
    ~listing() { hash_master_list(false); }
    listing(const listing &) = delete;
    listing &operator=(const listing &) = delete;
};

// The rows of the dump whose tables were born in `file`.
std::vector<std::string> dumped_rows(const char *file)
{
    const trace_capture capture;
    hash_dump_master_list();
    return trace_capture::lines_with(std::string("    ") + file);
}

std::string row(const hash_table *table, const char *rest)
{
    return trace_capture::format("# %p    %s", static_cast<const void *>(table), rest);
}

} // namespace

TEST(HashMasterList, NothingIsPrintedWithoutAMasterVector)
{
    EXPECT_TRUE(dump_without_tables.empty());
}

TEST(HashMasterList, Headings)
{
    const listing on;
    hash_free(hash_new(1, nullptr, nullptr, {"head.c", 1}));
    const trace_capture capture;
    hash_dump_master_list();
    const std::vector<std::string> lines = trace_capture::lines();
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[0], "# Hash Table Master List:");
    EXPECT_EQ(lines[1], "# ptr    file:line    max_util/capacity    max_usage/capacity    clashes    voidcmp    "
                        "voidhash    alive");
}

TEST(HashMasterList, CountsAndFlags)
{
    const listing on;
    hash_table *table = hash_new(4, nullptr, nullptr, {"count.c", 12});
    // Bucket 0: 4 8 12 walk 0, 1, 2 links; bucket 1: 1 walks none.
    for (const word key : {4U, 8U, 12U, 1U}) {
        hash_insert(table, key, 0);
    }
    hash_insert(table, 12, 0); // refused: no insertion, no clash
    EXPECT_EQ(dumped_rows("count.c").at(0), row(table, "count.c:12    2/4    4/4    3    Y    Y    Y"));
    // One bucket becomes empty, another is used: the highest number stays 2.
    hash_delete(table, 1);
    hash_delete(table, 12);
    hash_insert(table, 2, 0);
    EXPECT_EQ(dumped_rows("count.c").at(0), row(table, "count.c:12    2/4    4/4    3    Y    Y    Y"));
    hash_insert(table, 3, 0);
    EXPECT_EQ(dumped_rows("count.c").at(0), row(table, "count.c:12    3/4    4/4    3    Y    Y    Y"));
    hash_clear(table);
    hash_insert(table, 3, 0);
    EXPECT_EQ(dumped_rows("count.c").at(0), row(table, "count.c:12    3/4    4/4    3    Y    Y    Y"));
    hash_free(table);
    EXPECT_EQ(dumped_rows("count.c").at(0), row(table, "count.c:12    3/4    4/4    3    Y    Y    n"));

    hash_table *strings = hash_new(4, hash_key_string, compare_key_string, {"strings.c", 3});
    EXPECT_EQ(dumped_rows("strings.c").at(0), row(strings, "strings.c:3    0/4    0/4    0    n    n    Y"));
    hash_free(strings);
}

TEST(HashMasterList, MostClashesFirstThenTheLaterRecord)
{
    const listing on;
    hash_table *none = hash_new(2, nullptr, nullptr, {"order.c", 1});
    hash_table *most = hash_new(1, nullptr, nullptr, {"order.c", 2});
    hash_table *none_too = hash_new(2, nullptr, nullptr, {"order.c", 3});
    hash_insert(most, 1, 0);
    hash_insert(most, 2, 0);
    const std::vector<std::string> rows = dumped_rows("order.c");
    ASSERT_EQ(rows.size(), 3U);
    const bool third_is_later =
        reinterpret_cast<std::uintptr_t>(none_too->master) > reinterpret_cast<std::uintptr_t>(none->master);
    const std::string first_row = row(none, "order.c:1    0/2    0/2    0    Y    Y    Y");
    const std::string third_row = row(none_too, "order.c:3    0/2    0/2    0    Y    Y    Y");
    EXPECT_EQ(rows[0], row(most, "order.c:2    1/1    2/1    1    Y    Y    Y"));
    EXPECT_EQ(rows[1], third_is_later ? third_row : first_row);
    EXPECT_EQ(rows[2], third_is_later ? first_row : third_row);
    hash_free(none);
    hash_free(most);
    hash_free(none_too);
}

TEST(HashMasterList, ClashesAreTraced)
{
    const listing on;
    hash_table *table = hash_new(5, nullptr, nullptr, {"born.c", 40});
    const trace_capture capture;
    hash_insert(table, 0x10, 0x1, {"user.c", 7});
    EXPECT_TRUE(trace_capture::lines().empty());
    hash_insert(table, 0x15, 0x2, {"user.c", 8});
    hash_insert(table, 0x1A, 0x3, {"user.c", 9});
    EXPECT_EQ(trace_capture::lines(), (std::vector<std::string>{
                                          "user.c:8> HASH @ born.c:40 (2/5) clashed 1 times inserting (0x15,0x2)",
                                          "user.c:9> HASH @ born.c:40 (3/5) clashed 2 times inserting (0x1a,0x3)",
                                      }));
    hash_free(table);
}

TEST(HashMasterList, TellsWhichTablesAreOnIt)
{
    hash_table *before = hash_new(3);
    EXPECT_FALSE(hash_is_listed(before));
    hash_table *meanwhile = nullptr;
    {
        const listing on;
        EXPECT_FALSE(hash_is_listed(before)) << "made before";
        meanwhile = hash_new(3);
        EXPECT_TRUE(hash_is_listed(meanwhile));
    }
    EXPECT_TRUE(hash_is_listed(meanwhile)) << "for its life";
    hash_clear(meanwhile);
    EXPECT_TRUE(hash_is_listed(meanwhile));
    hash_table *behind = hash_new(3);
    EXPECT_FALSE(hash_is_listed(behind));
    hash_free(before);
    hash_free(meanwhile);
    hash_free(behind);
}

// A listed table has no index: the one beside it must show the same order whatever comes and goes.
TEST(HashMasterList, OrderIsThatOfOtherTables)
{
    std::vector<std::string> names = names_of_equal_hash(9);
    for (int i = 0; i < 1500; ++i) {
        names.push_back("_name" + std::to_string(i));
    }
    for (const std::uint32_t size : {1U, 13U, 47U}) {
        hash_table *table = hash_new(size, hash_key_string, compare_key_string);
        hash_table *listed = nullptr;
        {
            const listing on;
            listed = hash_new(size, hash_key_string, compare_key_string, {"same.c", 1});
        }
        std::mt19937 random(size);
        for (int step = 0; step < 6000; ++step) {
            const word key = text(names[random() % names.size()].c_str());
            if (random() % 4 != 0) {
                ASSERT_EQ(hash_insert(table, key, key), hash_insert(listed, key, key));
            } else {
                ASSERT_EQ(hash_delete(table, key), hash_delete(listed, key));
            }
        }
        EXPECT_NE(table->index, nullptr);
        EXPECT_EQ(listed->index, nullptr);
        EXPECT_EQ(taken(hash_keys(table)), taken(hash_keys(listed)));
        EXPECT_EQ(taken(hash_values(table)), taken(hash_values(listed)));
        hash_free(table);
        hash_free(listed);
    }
}

TEST(HashMasterList, ListedTablesWalkTheirChains)
{
    const listing on;
    hash_table *table = hash_new(1, nullptr, nullptr, {"walk.c", 1});
    for (word key = 0; key < 100; ++key) {
        hash_insert(table, key, key);
    }
    // 0 + 1 + ... + 99
    EXPECT_EQ(dumped_rows("walk.c").at(0), row(table, "walk.c:1    1/1    100/1    4950    Y    Y    Y"));
    EXPECT_EQ(hash_get(table, 73), 73U);
    hash_free(table);
}

TEST(HashMasterListDeath, AliveBitLost)
{
    const listing on;
    hash_table *table = hash_new(3, nullptr, nullptr, {"dead.c", 1});
    hash_table stale = *table;
    hash_free(table);
    EXPECT_CHECK(hash_insert(&stale, 1, 1), "is_alive(h)");
    EXPECT_CHECK(hash_delete(&stale, 1), "is_alive(h)");
    EXPECT_CHECK(hash_free(&stale), "is_alive(h)");
}
