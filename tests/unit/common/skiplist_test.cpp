// SPDX-License-Identifier: MIT
// Skip lists: order, dictionary operations and the master list.
#include "common/skiplist.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

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

std::uint32_t hash_by_ten(word key)
{
    return static_cast<std::uint32_t>(key % 10);
}

int compare_words(word left, word right)
{
    return left < right ? -1 : left > right ? 1 : 0;
}

// The dump that a program makes which never had a skip list on the list.
const std::vector<std::string> dump_without_lists = [] {
    const trace_capture capture;
    skiplist_dump_master_list();
    return trace_capture::lines();
}();

} // namespace

TEST(Skiplist, EmptyList)
{
    skiplist *list = skiplist_new();
    EXPECT_EQ(skiplist_count(list), 0U);
    EXPECT_EQ(skiplist_first(list), 0U);
    EXPECT_EQ(skiplist_get(list, 0), 0U);
    EXPECT_EQ(skiplist_delete(list, 5), 0U);
    EXPECT_TRUE(taken(skiplist_values(list)).empty());
    EXPECT_TRUE(taken(skiplist_keys(list)).empty());
    skiplist_free(list);
    skiplist_free(nullptr);
}

TEST(Skiplist, FirstValueStays)
{
    skiplist *list = skiplist_new();
    EXPECT_EQ(skiplist_insert(list, 5, 50), 1);
    EXPECT_EQ(skiplist_insert(list, 5, 51), 0);
    EXPECT_EQ(skiplist_get(list, 5), 50U);
    EXPECT_EQ(skiplist_count(list), 1U);
    EXPECT_EQ(skiplist_insert(list, 6, 0), 1);
    EXPECT_EQ(skiplist_get(list, 6), 0U) << "as an absent key";
    EXPECT_EQ(skiplist_insert(list, 6, 1), 0) << "but it is there";
    skiplist_free(list);
}

TEST(Skiplist, OrderIsByHashThenByComparison)
{
    // Hash is the last digit.
    const words ascending = {30, 100, 11, 21, 5, 25, 19};
    words keys = ascending;
    std::mt19937 random(3);
    for (int round = 0; round < 50; ++round) {
        std::shuffle(keys.begin(), keys.end(), random);
        skiplist *list = skiplist_new(hash_by_ten, compare_words);
        for (const word key : keys) {
            EXPECT_EQ(skiplist_insert(list, key, key + 1000), 1);
        }
        EXPECT_EQ(taken(skiplist_keys(list)), ascending);
        EXPECT_EQ(taken(skiplist_values(list)), (words{1030, 1100, 1011, 1021, 1005, 1025, 1019}));
        EXPECT_EQ(skiplist_first(list), 1030U);
        skiplist_free(list);
    }
}

TEST(Skiplist, WalkVisitsInOrder)
{
    skiplist *list = skiplist_new();
    for (const word key : {9U, 2U, 7U}) {
        skiplist_insert(list, key, key * 2);
    }
    words seen;
    skiplist_walk(list, &seen, [](void *context, word key, word value) {
        auto *all = static_cast<words *>(context);
        all->push_back(key);
        all->push_back(value);
    });
    EXPECT_EQ(seen, (words{2, 4, 7, 14, 9, 18}));
    skiplist_free(list);
}

TEST(Skiplist, DefaultsCountThirtyTwoBitsOfAKey)
{
    skiplist *list = skiplist_new();
    const word low = 3;
    const word high = (word{1} << 32) + 3;
    EXPECT_EQ(skiplist_insert(list, low, 1), 1);
    EXPECT_EQ(skiplist_insert(list, high, 2), 0) << "one key, by 32 bits";
    EXPECT_EQ(skiplist_insert(list, 0xFFFFFFFF, 4), 1);
    EXPECT_EQ(skiplist_insert(list, 0x80000000, 5), 1);
    EXPECT_EQ(taken(skiplist_keys(list)), (words{3, 0x80000000, 0xFFFFFFFF})) << "hashes are unsigned";
    skiplist_free(list);
}

TEST(Skiplist, ComparisonGetsTheKeyFirst)
{
    static word searched;
    skiplist *list = skiplist_new([](word) { return 7U; },
                                  [](word left, word right) {
                                      EXPECT_EQ(left, searched);
                                      return compare_words(left, right);
                                  });
    for (const word key : {5U, 1U, 9U, 3U}) {
        searched = key;
        skiplist_insert(list, key, key);
    }
    searched = 3;
    EXPECT_EQ(skiplist_get(list, 3), 3U);
    EXPECT_EQ(skiplist_delete(list, 3), 3U);
    EXPECT_EQ(taken(skiplist_keys(list)), (words{1, 5, 9}));
    skiplist_free(list);
}

TEST(Skiplist, ClearLeavesAnEmptyListThatServesOn)
{
    skiplist *list = skiplist_new();
    for (word key = 0; key < 1000; ++key) {
        skiplist_insert(list, key, key);
    }
    skiplist_clear(list);
    EXPECT_EQ(skiplist_count(list), 0U);
    EXPECT_EQ(skiplist_get(list, 5), 0U);
    for (word key = 1000; key-- > 0;) {
        EXPECT_EQ(skiplist_insert(list, key, key + 1), 1);
    }
    EXPECT_EQ(skiplist_get(list, 999), 1000U);
    EXPECT_EQ(skiplist_first(list), 1U);
    skiplist_free(list);
}

TEST(Skiplist, SameAsAnOrderedMap)
{
    std::mt19937 random(4);
    skiplist *list = skiplist_new(hash_by_ten, compare_words);
    std::map<std::tuple<std::uint32_t, word>, word> map;
    for (int step = 0; step < 20000; ++step) {
        const word key = random() % 700;
        const auto place = std::make_tuple(hash_by_ten(key), key);
        if (random() % 2 != 0) {
            const word value = random() % 1000 + 1;
            ASSERT_EQ(skiplist_insert(list, key, value) != 0, map.emplace(place, value).second);
        } else {
            const auto found = map.find(place);
            ASSERT_EQ(skiplist_delete(list, key), found != map.end() ? found->second : 0U);
            if (found != map.end()) {
                map.erase(found);
            }
        }
        const word other = random() % 700;
        const auto found = map.find(std::make_tuple(hash_by_ten(other), other));
        ASSERT_EQ(skiplist_get(list, other), found != map.end() ? found->second : 0U);
    }
    words keys;
    for (const auto &entry : map) {
        keys.push_back(std::get<1>(entry.first));
    }
    EXPECT_EQ(taken(skiplist_keys(list)), keys);
    EXPECT_EQ(skiplist_count(list), keys.size());
    skiplist_free(list);
}

TEST(Skiplist, SearchIsFarFromLinear)
{
    static int comparisons;
    constexpr word COUNT = 50000;
    // All hashes equal, so that every step of a search is a comparison.
    skiplist *list = skiplist_new([](word) { return 0U; },
                                  [](word left, word right) {
                                      ++comparisons;
                                      return compare_words(left, right);
                                  });
    for (word key = 0; key < COUNT; ++key) {
        skiplist_insert(list, key, key + 1);
    }
    comparisons = 0;
    for (word key = 0; key < COUNT; key += 50) {
        ASSERT_EQ(skiplist_get(list, key), key + 1);
    }
    EXPECT_LT(comparisons / 1000, 100) << "50000 keys lie about 8 levels high, with a few steps on each";
    skiplist_free(list);
}

TEST(SkiplistOf, StringsAreComparedExactly)
{
    auto list = skiplist_of<const int *>::make_strings();
    const int one = 1;
    const int two = 2;
    EXPECT_TRUE(list.insert("b", &one));
    EXPECT_TRUE(list.insert("B", &two));
    EXPECT_FALSE(list.insert(std::string("b").c_str(), &two));
    EXPECT_EQ(list.count(), 2U);
    EXPECT_EQ(list.get("b"), &one);
    EXPECT_EQ(list.get("c"), nullptr);
    // One letter: the hash rises with the character, and upper case comes first.
    EXPECT_EQ(list.first(), &two);
    auto keys = list.keys();
    auto values = list.values();
    EXPECT_STREQ(keys.get(0), "B");
    EXPECT_STREQ(keys.get(1), "b");
    EXPECT_EQ(values.get(1), &one);
    keys.free();
    values.free();
    list.free();
    EXPECT_EQ(list.raw(), nullptr);
}

namespace {

word text(const std::string &s)
{
    return to_word(s.c_str());
}

using name_list = std::vector<std::string>;

// Names of which many have one hash, a few one hash of the index, and the rest hashes of their own.
name_list mixed_names(unsigned pairs, std::size_t others)
{
    name_list names = names_of_equal_hash(pairs);
    for (const std::string &name : texts_of_equal_text_hash(20)) {
        names.push_back(name);
    }
    for (std::size_t i = 0; i < others; ++i) {
        names.push_back("_name" + std::to_string(i));
    }
    return names;
}

skiplist *list_of_texts()
{
    return skiplist_new(hash_key_string, compare_key_string);
}

// A list of texts, and a map in the same order: by hash, then as `strcmp` has it.
class twin {
public:
    explicit twin(skiplist *list = list_of_texts()) : list_(list) {}
    ~twin() { skiplist_free(list_); }
    twin(const twin &) = delete;
    twin &operator=(const twin &) = delete;

    skiplist *list() const { return list_; }
    std::size_t count() const { return map_.size(); }

    // The list keeps the text of the name itself.
    void insert(const std::string &name, word value)
    {
        ASSERT_EQ(skiplist_insert(list_, text(name), value) != 0,
                  map_.emplace(place_of(name), entry{text(name), value}).second);
    }
    void remove(const std::string &name)
    {
        const std::string copy = name;
        const auto found = map_.find(place_of(name));
        ASSERT_EQ(skiplist_delete(list_, text(copy)), found != map_.end() ? found->second.value : 0);
        if (found != map_.end()) {
            map_.erase(found);
        }
    }
    void get(const std::string &name) const
    {
        const std::string copy = name;
        const auto found = map_.find(place_of(name));
        skiplist_prefetch(list_, text(copy)); // changes nothing
        ASSERT_EQ(skiplist_get(list_, text(copy)), found != map_.end() ? found->second.value : 0);
    }
    void clear()
    {
        skiplist_clear(list_);
        map_.clear();
    }
    void first() const { ASSERT_EQ(skiplist_first(list_), map_.empty() ? 0 : map_.begin()->second.value); }
    void keys() const { ASSERT_EQ(taken(skiplist_keys(list_)), all(&entry::key)); }
    void values() const { ASSERT_EQ(taken(skiplist_values(list_)), all(&entry::value)); }
    void walk() const
    {
        std::pair<words, words> seen;
        skiplist_walk(list_, &seen, [](void *context, word key, word value) {
            auto *both = static_cast<std::pair<words, words> *>(context);
            both->first.push_back(key);
            both->second.push_back(value);
        });
        ASSERT_EQ(seen.first, all(&entry::key));
        ASSERT_EQ(seen.second, all(&entry::value));
    }
    void expect_same() const
    {
        ASSERT_EQ(skiplist_count(list_), map_.size());
        keys();
        values();
    }

private:
    struct entry {
        word key;
        word value;
    };
    using place = std::pair<std::uint32_t, std::string>;

    static place place_of(const std::string &name) { return {hash_string(name.c_str()), name}; }
    words all(word entry::*field) const
    {
        words found;
        for (const auto &[where, there] : map_) {
            found.push_back(there.*field);
        }
        return found;
    }

    skiplist *list_;
    std::map<place, entry> map_;
};

// How often the steps of a random run take one or the other operation, of 100.
struct habits {
    unsigned insertions;
    unsigned deletions;
    unsigned orders; // that ask for the order, one way or another
};

void random_step(twin *both, const name_list &names, const habits &habit, std::mt19937 *random)
{
    const std::string &name = names[(*random)() % names.size()];
    const auto choice = (*random)() % 100;
    if (choice < habit.insertions) {
        both->insert(name, (*random)() % 1000 + 1);
    } else if (choice < habit.insertions + habit.deletions) {
        both->remove(name);
    } else if (choice < habit.insertions + habit.deletions + habit.orders) {
        switch ((*random)() % 4) {
        case 0:
            both->first();
            break;
        case 1:
            both->keys();
            break;
        case 2:
            both->values();
            break;
        default:
            both->walk();
            break;
        }
    } else {
        both->get(name);
    }
}

constexpr habits HABITS[] = {
    {.insertions = 50, .deletions = 0, .orders = 1},  // a list that is filled and read
    {.insertions = 60, .deletions = 0, .orders = 20}, // order asked for again and again
    {.insertions = 40, .deletions = 10, .orders = 2}, //
    {.insertions = 30, .deletions = 25, .orders = 5}, //
};

} // namespace

TEST(SkiplistOfTexts, SameAsAnOrderedMap)
{
    for (const std::size_t count : {40U, 200U, 1500U}) {
        const name_list names = mixed_names(5, count);
        unsigned seed = 50;
        for (const habits &habit : HABITS) {
            std::mt19937 random(++seed);
            twin both;
            for (int step = 0; step < 4000; ++step) {
                random_step(&both, names, habit, &random);
                if (random() % 2000 == 0) {
                    both.clear();
                }
                ASSERT_FALSE(HasFatalFailure()) << count << " names, seed " << seed << ", step " << step;
            }
            both.expect_same();
            both.walk();
            both.first();
        }
    }
}

// Deletion comes late, when the list is long, and then the list is filled again.
TEST(SkiplistOfTexts, DeletionFromALongListAndWhatFollows)
{
    const name_list names = mixed_names(7, 1000);
    std::mt19937 random(61);
    for (int round = 0; round < 8; ++round) {
        twin both;
        const habits &begin = HABITS[round % 2];
        for (int step = 0; step < 1500; ++step) {
            random_step(&both, names, begin, &random);
        }
        // With and without an order that was asked for just before.
        if (round % 4 < 2) {
            both.keys();
        }
        if (round < 4) {
            both.remove("no such name");
        }
        both.remove(names[random() % names.size()]);
        both.expect_same();
        ASSERT_FALSE(HasFatalFailure()) << round;
        for (const habits &habit : HABITS) {
            for (int step = 0; step < 1000; ++step) {
                random_step(&both, names, habit, &random);
            }
            both.expect_same();
            ASSERT_FALSE(HasFatalFailure()) << round;
        }
        for (const std::string &name : names) {
            both.remove(name);
        }
        both.expect_same();
        EXPECT_EQ(skiplist_count(both.list()), 0U);
        for (const std::string &name : names) {
            both.insert(name, 1);
        }
        both.expect_same();
    }
}

TEST(SkiplistOfTexts, WalksAfterManyInsertionsAndAfterAFewMore)
{
    name_list names = mixed_names(10, 6000);
    std::mt19937 random(71);
    std::shuffle(names.begin(), names.end(), random);
    twin both;
    std::size_t next = 0;
    // The first steps end below, at and above the length where a list of texts gets an index.
    for (const std::size_t more : {63U, 1U, 1U, 1U, 934U, 3U, 0U, 1U, 5000U, 2U, 1U, 1000U}) {
        for (const std::size_t end = next + more; next < end; ++next) {
            both.insert(names[next], next + 1);
        }
        both.walk();
        both.first();
        both.expect_same();
        ASSERT_FALSE(HasFatalFailure()) << next;
    }
    ASSERT_LE(next, names.size());
    for (const std::string &name : names) {
        both.get(name);
    }
}

// Rising, falling and as they come.
TEST(SkiplistOfTexts, OrderIsThatOfTheKeysAlone)
{
    name_list names = mixed_names(8, 800);
    const auto in_order = [](const std::string &left, const std::string &right) {
        return std::make_pair(hash_string(left.c_str()), left) < std::make_pair(hash_string(right.c_str()), right);
    };
    std::sort(names.begin(), names.end(), in_order);
    words expected;
    for (const std::string &name : names) {
        expected.push_back(text(name));
    }
    words keys = expected;
    std::mt19937 random(81);
    for (int round = 0; round < 12; ++round) {
        skiplist *list = list_of_texts();
        for (const word key : keys) {
            ASSERT_EQ(skiplist_insert(list, key, key), 1);
            if (round > 6 && random() % 100 == 0) {
                ASSERT_NE(skiplist_first(list), 0U);
            }
        }
        EXPECT_EQ(taken(skiplist_keys(list)), expected) << round;
        EXPECT_EQ(taken(skiplist_values(list)), expected) << round;
        EXPECT_EQ(skiplist_first(list), expected[0]) << round;
        skiplist_free(list);
        if (round == 0) {
            std::reverse(keys.begin(), keys.end());
        } else {
            std::shuffle(keys.begin(), keys.end(), random);
        }
    }
}

TEST(SkiplistOfTexts, DuplicatesAreRefusedWhetherOrderedOrNot)
{
    const name_list names = mixed_names(7, 300);
    skiplist *list = list_of_texts();
    std::string copy;
    for (std::size_t i = 0; i < names.size(); ++i) {
        ASSERT_EQ(skiplist_insert(list, text(names[i]), i + 1), 1);
        copy = names[i];
        ASSERT_EQ(skiplist_insert(list, text(copy), 5000), 0);
        ASSERT_EQ(skiplist_insert(list, text(names[i]), 5000), 0);
        copy = names[i / 2];
        ASSERT_EQ(skiplist_insert(list, text(copy), 5000), 0);
        ASSERT_EQ(skiplist_get(list, text(copy)), i / 2 + 1);
        ASSERT_EQ(skiplist_count(list), i + 1);
        if (i % 50 == 0) {
            ASSERT_EQ(taken(skiplist_keys(list)).size(), i + 1);
        }
    }
    const words keys = taken(skiplist_keys(list));
    for (const std::string &name : names) {
        EXPECT_EQ(std::count(keys.begin(), keys.end(), text(name)), 1) << "the first one's text is the key";
    }
    skiplist_free(list);
}

// A list on the master list is in order after each insertion.
TEST(SkiplistOfTexts, OrderIsThatOfAListOnTheMasterList)
{
    const name_list names = mixed_names(6, 600);
    for (const habits &habit : HABITS) {
        std::mt19937 random(91);
        skiplist *list = list_of_texts();
        skiplist_master_list(true);
        skiplist *listed = skiplist_new(hash_key_string, compare_key_string, nullptr, {"twin.c", 1});
        skiplist_master_list(false);
        for (int step = 0; step < 3000; ++step) {
            const word key = text(names[random() % names.size()]);
            const auto choice = random() % 100;
            if (choice < habit.insertions) {
                ASSERT_EQ(skiplist_insert(list, key, key), skiplist_insert(listed, key, key));
            } else if (choice < habit.insertions + habit.deletions) {
                ASSERT_EQ(skiplist_delete(list, key), skiplist_delete(listed, key));
            } else if (choice < habit.insertions + habit.deletions + habit.orders) {
                ASSERT_EQ(taken(skiplist_keys(list)), taken(skiplist_keys(listed)));
                ASSERT_EQ(skiplist_first(list), skiplist_first(listed));
            } else {
                ASSERT_EQ(skiplist_get(list, key), skiplist_get(listed, key));
            }
        }
        EXPECT_EQ(taken(skiplist_keys(list)), taken(skiplist_keys(listed)));
        skiplist_free(list);
        skiplist_free(listed);
    }
}

// Nodes of one list serve the next, of whatever kind: none may be in two lists.
TEST(SkiplistOfTexts, ListsComeAndGoInAnyState)
{
    const name_list names = mixed_names(6, 400);
    std::mt19937 random(101);
    for (int round = 0; round < 40; ++round) {
        twin kept;
        skiplist *numbers = skiplist_new();
        {
            twin gone;
            const std::size_t count = random() % 300;
            for (std::size_t i = 0; i < count; ++i) {
                gone.insert(names[random() % names.size()], i + 1);
                kept.insert(names[random() % names.size()], i + 1);
                skiplist_insert(numbers, random() % 500, i + 1);
            }
            switch (round % 4) {
            case 0: // freed as it was filled
                break;
            case 1:
                gone.walk();
                break;
            case 2:
                gone.clear();
                gone.insert(names[0], 7);
                gone.insert(names[1], 8);
                gone.expect_same();
                break;
            default:
                gone.remove(names[0]);
                gone.insert(names[1], 9);
                break;
            }
        }
        kept.expect_same();
        for (std::size_t i = 0; i < 200; ++i) {
            kept.insert(names[random() % names.size()], i + 1);
            skiplist_insert(numbers, random() % 500, i + 1);
        }
        kept.expect_same();
        words keys = taken(skiplist_keys(numbers));
        EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
        EXPECT_EQ(std::adjacent_find(keys.begin(), keys.end()), keys.end());
        skiplist_free(numbers);
        ASSERT_FALSE(HasFatalFailure()) << round;
    }
}

TEST(SkiplistOfTexts, ClearedListsServeOn)
{
    const name_list names = mixed_names(7, 200);
    twin both;
    for (const bool in_order : {false, true, false}) {
        for (const std::string &name : names) {
            both.insert(name, 5);
        }
        if (in_order) {
            both.walk();
        }
        both.clear();
        both.expect_same();
        both.first();
        both.get(names[0]);
        both.clear(); // with nothing in it
        both.insert(names[3], 6);
        both.first();
        both.expect_same();
        ASSERT_FALSE(HasFatalFailure());
    }
}

namespace {

// Processor time of entering names, finding each, and having them in order.
std::clock_t time_of_names(const name_list &names)
{
    const name_list copies = names;
    skiplist *list = list_of_texts();
    const std::clock_t start = std::clock();
    for (const std::string &name : names) {
        EXPECT_EQ(skiplist_insert(list, text(name), text(name)), 1);
    }
    for (std::size_t i = 0; i < copies.size(); ++i) {
        EXPECT_EQ(skiplist_get(list, text(copies[i])), text(names[i]));
    }
    EXPECT_EQ(taken(skiplist_keys(list)).size(), names.size());
    const std::clock_t time = std::clock() - start;
    skiplist_free(list);
    return time;
}

} // namespace

TEST(SkiplistOfTexts, NamesOfEqualHashCostNoMoreThanOthers)
{
    const name_list equal = names_of_equal_hash(16);
    name_list others;
    for (std::size_t i = 0; i < equal.size(); ++i) {
        others.push_back("a_name_of_the_same_length_" + std::to_string(100000 + i));
    }
    EXPECT_LT(time_of_names(equal), time_of_names(others) * 20 + CLOCKS_PER_SEC / 4);
}

namespace {

struct listing {
    listing() { skiplist_master_list(true); }
    ~listing() { skiplist_master_list(false); }
    listing(const listing &) = delete;
    listing &operator=(const listing &) = delete;
};

std::vector<std::string> dumped_rows(const char *file)
{
    const trace_capture capture;
    skiplist_dump_master_list();
    return trace_capture::lines_with(std::string("    ") + file);
}

std::string row(const skiplist *list, const char *rest)
{
    return trace_capture::format("# %p    %s", static_cast<const void *>(list), rest);
}

} // namespace

TEST(SkiplistMasterList, NoneWithoutRecords)
{
    EXPECT_EQ(dump_without_lists, (std::vector<std::string>{"# Skiplist Master List:", "# None."}));
}

TEST(SkiplistMasterList, HeadingsAndRows)
{
    const listing on;
    skiplist *list = skiplist_new(nullptr, nullptr, nullptr, {"rows.c", 5});
    for (const word key : {1U, 2U, 3U}) {
        skiplist_insert(list, key, key);
    }
    skiplist_insert(list, 3, 0); // refused
    skiplist_delete(list, 2);
    skiplist_delete(list, 3);
    skiplist_insert(list, 7, 7);
    {
        const trace_capture capture;
        skiplist_dump_master_list();
        const std::vector<std::string> lines = trace_capture::lines();
        ASSERT_GE(lines.size(), 3U);
        EXPECT_EQ(lines[0], "# Skiplist Master List:");
        EXPECT_EQ(lines[1],
                  "# ptr    file:line    max_usage    clashes/inserts    max_chain    voidcmp    voidhash    alive");
    }
    EXPECT_EQ(dumped_rows("rows.c").at(0), row(list, "rows.c:5    3    0/4    0    Y    Y    Y"));
    skiplist_free(list);
    EXPECT_EQ(dumped_rows("rows.c").at(0), row(list, "rows.c:5    3    0/4    0    Y    Y    n"));

    list = skiplist_new(hash_by_ten, compare_words, nullptr, {"given.c", 6});
    EXPECT_EQ(dumped_rows("given.c").at(0), row(list, "given.c:6    0    0/0    0    n    n    Y"));
    skiplist_free(list);
}

TEST(SkiplistMasterList, NeighboursOfEqualHashClash)
{
    const listing on;
    skiplist *list = skiplist_new(hash_by_ten, compare_words, nullptr, {"clash.c", 9});
    {
        const trace_capture capture;
        skiplist_insert(list, 0, 1, {"user.c", 1}); // hash 0, as the head's: the head is no neighbour
        skiplist_insert(list, 15, 1, {"user.c", 1});
        skiplist_insert(list, 14, 1, {"user.c", 1});
        EXPECT_TRUE(trace_capture::lines().empty());
        skiplist_insert(list, 25, 1, {"user.c", 2}); // behind 15
        skiplist_insert(list, 5, 1, {"user.c", 3});  // in front of 15
        const std::vector<std::string> lines = trace_capture::lines();
        ASSERT_EQ(lines.size(), 2U);
        EXPECT_EQ(lines[0].find("user.c:2> SKIPLIST @ clash.c:9 (#"), 0U);
        EXPECT_NE(lines[0].find(") clashed 1 times inserting"), std::string::npos);
        EXPECT_EQ(lines[1].find("user.c:3> SKIPLIST @ clash.c:9 (#"), 0U);
        EXPECT_NE(lines[1].find(") clashed 2 times inserting"), std::string::npos);
    }
    EXPECT_EQ(dumped_rows("clash.c").at(0), row(list, "clash.c:9    5    2/5    0    n    n    Y"));
    skiplist_free(list);
}

TEST(SkiplistMasterList, MostClashesFirst)
{
    const listing on;
    skiplist *calm = skiplist_new(nullptr, nullptr, nullptr, {"order.c", 1});
    skiplist *busy = skiplist_new(hash_by_ten, compare_words, nullptr, {"order.c", 2});
    skiplist_insert(busy, 1, 1);
    skiplist_insert(busy, 11, 1);
    const std::vector<std::string> rows = dumped_rows("order.c");
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0], row(busy, "order.c:2    2    1/2    0    n    n    Y"));
    EXPECT_EQ(rows[1], row(calm, "order.c:1    0    0/0    0    Y    Y    Y"));
    skiplist_free(calm);
    skiplist_free(busy);
}

namespace {

// A hash that changes its mind: its second answer about key 5 is low, all others are the key.
std::uint32_t wavering_hash(word key)
{
    static int asked = 0;
    return key == 5 && ++asked == 2 ? 0 : static_cast<std::uint32_t>(key);
}

void print_key(word key, char *buffer, std::uint32_t size)
{
    std::snprintf(buffer, size, "<%u>", static_cast<unsigned>(key));
}

void print_lines_to_stderr()
{
    static constexpr trace_sink SINK = {
        .line = [](const char *, int, const char *, std::va_list) {},
        .text = [](const char *, int, const char *) {},
        .enter = [](const char *, int, const char *, const char *, std::va_list) {},
        .exit = [](const char *, int, const char *, const char *, std::va_list) {},
        .raw =
            [](const char *format, std::va_list arguments) {
                std::vfprintf(stderr, format, arguments);
                std::fputs("\n", stderr);
            },
        .raw_text = [](const char *text) { std::fprintf(stderr, "%s\n", text); },
        .alert = [](const char *) {},
        .assert_failed = [](const char *, const char *, int) {},
    };
    trace_install(&SINK);
}

void break_a_list(key_printer printer)
{
    print_lines_to_stderr();
    skiplist_master_list(true);
    skiplist *list = skiplist_new(wavering_hash, compare_words, printer, {"broken.c", 8});
    skiplist_insert(list, 3, 1);
    skiplist_insert(list, 5, 1);
}

} // namespace

TEST(SkiplistMasterListDeath, FallingHashes)
{
    EXPECT_DEATH(break_a_list(print_key), "SKIPLIST Node out-of-order: @ broken.c:8\n"
                                          "KEY: <5>\n"
                                          "    number: [0-9]+\n"
                                          "    hash:   0\n"
                                          "    order:  [12]\n"
                                          "(        [01]\\) Nil\n)+"
                                          "List AFTER:\n"
                                          "HEAD\\(   [12]\\)\n"
                                          "        0\\) <3>\n"
                                          "(        1\\) <[35]>\n)?"
                                          "KEY: <3>\n"
                                          "    number: [0-9]+\n"
                                          "    hash:   3\n"
                                          "    order:  [12]\n"
                                          "        0\\) <5>\n"
                                          "(        1\\) [^\n]+\n)?"
                                          "KEY: <5>\n"
                                          "(.|\n)*Assertion failed: ");
    EXPECT_DEATH(break_a_list(nullptr), "KEY: 0x5\n");
}
