// SPDX-License-Identifier: MIT
// The index from hashes to records, beside a multimap of the C++ library.
#include "common/key_index.h"

#include <algorithm>
#include <deque>
#include <random>
#include <unordered_map>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct record {
    std::uint32_t hash = 0;
    int id = 0;
};

using hash_list = std::vector<std::uint32_t>;

// Slots of an index of its least size.
constexpr int LEAST_SLOTS = 16;

// Where an index of the least size begins its search, if it spreads hashes as it did when this was written. Another
// spread makes the tests that ask for it no worse than random ones.
int slot_of_16(std::uint32_t hash)
{
    return static_cast<int>(hash * 0x9E3779B97F4A7C15 >> 60);
}

// The first `count` hashes that begin at a slot in question.
template <typename Wanted>
hash_list hashes_at(std::size_t count, Wanted wanted)
{
    hash_list found;
    for (std::uint32_t hash = 0; found.size() < count; ++hash) {
        if (wanted(slot_of_16(hash))) {
            found.push_back(hash);
        }
    }
    return found;
}

// An index, and a multimap that holds the same.
class twin {
public:
    explicit twin(hash_list hashes) : hashes_(std::move(hashes)) {}
    ~twin() { index_.free(); }
    twin(const twin &) = delete;
    twin &operator=(const twin &) = delete;

    key_index<record *> &index() { return index_; }
    std::size_t count() const { return present_.size(); }

    void add(std::uint32_t hash)
    {
        record *added = new_record(hash);
        index_.add(hash, added);
        map_.emplace(hash, added);
        present_.push_back(added);
    }
    void remove(std::size_t at)
    {
        record *gone = present_[at];
        index_.remove(gone->hash, gone);
        map_.erase(place_of(gone));
        std::swap(present_[at], present_.back());
        present_.pop_back();
    }
    void replace(std::size_t at)
    {
        record *gone = present_[at];
        record *other = new_record(gone->hash);
        index_.replace(gone->hash, gone, other);
        place_of(gone)->second = other;
        present_[at] = other;
    }
    void forget()
    {
        index_.free();
        map_.clear();
        present_.clear();
    }

    void random_step(std::mt19937 *random, unsigned additions_of_16)
    {
        const bool adds = (*random)() % 16 < additions_of_16;
        if (adds || present_.empty()) {
            add(hashes_[(*random)() % hashes_.size()]);
        } else if ((*random)() % 8 == 0) {
            replace((*random)() % present_.size());
        } else {
            remove((*random)() % present_.size());
        }
    }

    // Every record is found under its hash, and nothing else is.
    void expect_same() const
    {
        ASSERT_EQ(index_.count(), map_.size());
        for (record *there : present_) {
            ASSERT_EQ(index_.find(there->hash, [there](const record *r) { return r == there; }), there);
        }
        for (const std::uint32_t hash : hashes_) {
            expect_same(hash);
        }
        expect_same(hashes_.back() + 1);
    }

private:
    void expect_same(std::uint32_t hash) const
    {
        // None is wanted, so all of this hash are offered, each of them once.
        std::vector<int> offered;
        const record *found = index_.find(hash, [&](const record *r) {
            EXPECT_EQ(r->hash, hash) << "only records of the hash are touched";
            offered.push_back(r->id);
            return false;
        });
        ASSERT_EQ(found, nullptr);
        std::vector<int> expected;
        const auto [begin, end] = map_.equal_range(hash);
        std::for_each(begin, end, [&](const auto &entry) { expected.push_back(entry.second->id); });
        std::sort(offered.begin(), offered.end());
        std::sort(expected.begin(), expected.end());
        ASSERT_EQ(offered, expected) << hash;
    }
    record *new_record(std::uint32_t hash)
    {
        records_.push_back({hash, next_id_++});
        return &records_.back();
    }
    std::unordered_multimap<std::uint32_t, record *>::iterator place_of(const record *wanted)
    {
        auto at = map_.equal_range(wanted->hash).first;
        while (at->second != wanted) {
            ++at;
        }
        return at;
    }

    hash_list hashes_;
    key_index<record *> index_;
    std::unordered_multimap<std::uint32_t, record *> map_;
    std::vector<record *> present_;
    std::deque<record> records_; // also those that are no longer there
    int next_id_ = 1;
};

// Fills and empties by turns.
void expect_same_throughout(const hash_list &hashes, std::size_t steps, std::size_t most, unsigned seed)
{
    std::mt19937 random(seed);
    twin both(hashes);
    bool fills = true;
    for (std::size_t step = 0; step < steps; ++step) {
        fills = both.count() >= most ? false : both.count() == 0 ? true : fills;
        both.random_step(&random, fills ? 11 : 5);
        if (step % 7 == 0) {
            both.expect_same();
            if (testing::Test::HasFatalFailure()) {
                FAIL() << "seed " << seed << ", step " << step;
            }
        }
    }
}

} // namespace

TEST(KeyIndex, EmptyOneFindsNothing)
{
    key_index<record *> index;
    const auto any = [](const record *) { return true; };
    EXPECT_EQ(index.count(), 0U);
    EXPECT_EQ(index.find(0, any), nullptr);
    EXPECT_EQ(index.find(0xFFFFFFFF, any), nullptr);
    index.prefetch(0);
    index.reserve(0);
    index.free();
    EXPECT_EQ(index.count(), 0U);

    index.reserve(3); // room, but no record
    index.prefetch(5);
    EXPECT_EQ(index.count(), 0U);
    EXPECT_EQ(index.find(5, any), nullptr);
    index.free();
}

TEST(KeyIndex, FindsByHashThenByWish)
{
    record records[] = {{7, 1}, {7, 2}, {8, 3}};
    key_index<record *> index;
    for (record &r : records) {
        index.add(r.hash, &r);
    }
    const auto id = [](int wanted) { return [wanted](const record *r) { return r->id == wanted; }; };
    EXPECT_EQ(index.count(), 3U);
    EXPECT_EQ(index.find(7, id(1)), &records[0]);
    EXPECT_EQ(index.find(7, id(2)), &records[1]);
    EXPECT_EQ(index.find(7, id(3)), nullptr) << "of another hash";
    EXPECT_EQ(index.find(8, id(3)), &records[2]);
    record other = {7, 4};
    index.replace(7, &records[0], &other);
    EXPECT_EQ(index.count(), 3U);
    EXPECT_EQ(index.find(7, id(1)), nullptr);
    EXPECT_EQ(index.find(7, id(4)), &other);
    index.remove(7, &other);
    EXPECT_EQ(index.count(), 2U);
    EXPECT_EQ(index.find(7, id(4)), nullptr);
    EXPECT_EQ(index.find(7, id(2)), &records[1]);
    index.free();
}

TEST(KeyIndex, HoldsConstantRecords)
{
    const char *const texts[] = {"one", "two"};
    key_index<const char *> index;
    index.add(1, texts[0]);
    index.add(2, texts[1]);
    EXPECT_EQ(index.find(2, [](const char *) { return true; }), texts[1]);
    index.remove(2, texts[1]);
    EXPECT_EQ(index.find(2, [](const char *) { return true; }), nullptr);
    index.free();
}

TEST(KeyIndex, FewDistinctHashes)
{
    for (unsigned seed = 1; seed <= 6; ++seed) {
        std::mt19937 random(seed * 100);
        hash_list few(seed);
        std::generate(few.begin(), few.end(), [&random] { return static_cast<std::uint32_t>(random()); });
        expect_same_throughout(few, 4000, 40, seed);
    }
    expect_same_throughout({0}, 1000, 20, 7);
    expect_same_throughout({0xFFFFFFFF, 0, 1, 0x80000000}, 3000, 30, 8);
}

// At most ten records, so that the index keeps its least size.
TEST(KeyIndex, ClustersAcrossTheEndOfTheSlots)
{
    const auto last_three = [](int slot) { return slot >= LEAST_SLOTS - 3; };
    const auto both_ends = [](int slot) { return slot < 2 || slot >= LEAST_SLOTS - 2; };
    const auto last_one = [](int slot) { return slot == LEAST_SLOTS - 1; };
    expect_same_throughout(hashes_at(4, last_three), 6000, 10, 21);
    expect_same_throughout(hashes_at(12, last_three), 6000, 10, 22);
    expect_same_throughout(hashes_at(4, both_ends), 6000, 10, 23);
    expect_same_throughout(hashes_at(12, both_ends), 6000, 10, 24);
    expect_same_throughout(hashes_at(1, last_one), 2000, 10, 25);
    expect_same_throughout(hashes_at(12, last_one), 6000, 10, 26);
}

// A cluster of ten slots that begins at the thirteenth of sixteen; each removal order of three of its records.
TEST(KeyIndex, RemovalInsideAClusterLeavesTheRest)
{
    const hash_list all = hashes_at(10, [](int slot) { return slot >= LEAST_SLOTS - 4 || slot == 0; });
    constexpr std::size_t COUNT = 10;
    for (std::size_t first = 0; first < COUNT; ++first) {
        for (std::size_t second = 0; second < COUNT - 1; ++second) {
            for (std::size_t third = 0; third < COUNT - 2; ++third) {
                twin both(all);
                for (const std::uint32_t hash : all) {
                    both.add(hash);
                }
                for (const std::size_t at : {first, second, third}) {
                    both.remove(at);
                    both.expect_same();
                    ASSERT_FALSE(HasFatalFailure()) << first << ' ' << second << ' ' << third;
                }
                both.add(all[first]);
                both.expect_same();
                ASSERT_FALSE(HasFatalFailure()) << first << ' ' << second << ' ' << third;
            }
        }
    }
}

TEST(KeyIndex, ManyRecordsComeAndGo)
{
    std::mt19937 random(31);
    hash_list spread(700);
    std::generate(spread.begin(), spread.end(), [&random] { return static_cast<std::uint32_t>(random()); });
    hash_list rising(700);
    std::uint32_t next = 0x1000;
    std::generate(rising.begin(), rising.end(), [&next] { return next += 16; });
    for (const hash_list &some : {spread, rising}) {
        twin both(some);
        for (int step = 0; step < 60000; ++step) {
            both.random_step(&random, step < 30000 ? 12 : 3);
            if (step % 6000 == 0) {
                both.expect_same();
                ASSERT_FALSE(HasFatalFailure()) << step;
            }
        }
        both.expect_same();
    }
}

TEST(KeyIndex, RoomMadeAheadChangesNothingElse)
{
    for (const std::size_t room : {0U, 1U, 10U, 11U, 21U, 22U, 1000U}) {
        hash_list some(60);
        std::uint32_t next = 5;
        std::generate(some.begin(), some.end(), [&next] { return next *= 5; });
        twin both(some);
        both.index().reserve(room);
        for (int round = 0; round < 2; ++round) {
            for (const std::uint32_t hash : some) {
                both.add(hash);
                both.index().reserve(room); // also with records there
            }
            both.expect_same();
        }
        both.index().reserve(5000);
        both.expect_same();
        both.index().reserve(1); // no less than there is
        both.expect_same();
    }
}

// As large as that of the symbols of a large program.
TEST(KeyIndex, ManyHundredThousandRecords)
{
    constexpr std::uint32_t COUNT = 400000;
    std::vector<record> records(COUNT);
    key_index<record *> index;
    for (std::uint32_t i = 0; i < COUNT; ++i) {
        records[i] = {i * 2654435761U, static_cast<int>(i)};
        index.add(records[i].hash, &records[i]);
    }
    const auto find = [&index](const record &wanted) {
        return index.find(wanted.hash, [&wanted](const record *r) { return r->id == wanted.id; });
    };
    for (std::uint32_t i = 0; i < COUNT; i += 2) {
        index.remove(records[i].hash, &records[i]);
    }
    EXPECT_EQ(index.count(), COUNT / 2);
    for (std::uint32_t i = 0; i < COUNT; ++i) {
        ASSERT_EQ(find(records[i]), i % 2 != 0 ? &records[i] : nullptr) << i;
    }
    index.free();
    EXPECT_EQ(find(records[1]), nullptr);
    index.reserve(COUNT);
    index.add(records[1].hash, &records[1]);
    EXPECT_EQ(find(records[1]), &records[1]);
    EXPECT_EQ(find(records[3]), nullptr);
    index.free();
}

TEST(KeyIndex, ServesOnWhenFreed)
{
    twin both({3, 5, 7, 3000000000});
    for (int round = 0; round < 3; ++round) {
        for (const std::uint32_t hash : {3U, 5U, 5U, 7U, 3000000000U}) {
            both.add(hash);
        }
        both.expect_same();
        both.forget();
        both.expect_same();
        both.forget(); // with nothing in it
    }
    both.add(5);
    both.expect_same();
}

// A search of a filled index touches no record but those of its hash, whatever lies around them.
TEST(KeyIndex, OffersRecordsOfTheHashOnly)
{
    constexpr std::uint32_t COUNT = 20000;
    std::deque<record> records;
    key_index<record *> index;
    for (std::uint32_t i = 0; i < COUNT; ++i) {
        records.push_back({i * 64, static_cast<int>(i)});
        index.add(records.back().hash, &records.back());
    }
    std::uint32_t offers = 0;
    for (std::uint32_t i = 0; i < COUNT; ++i) {
        const record *found = index.find(i * 64, [&](const record *) {
            ++offers;
            return true;
        });
        ASSERT_EQ(found, &records[i]);
        ASSERT_EQ(index.find(i * 64 + 1,
                             [&](const record *) {
                                 ++offers;
                                 return true;
                             }),
                  nullptr);
    }
    EXPECT_EQ(offers, COUNT);
    index.free();
}
