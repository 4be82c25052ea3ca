// SPDX-License-Identifier: MIT
// The ids by which types are known within a unit.
#include "compiler/tarnwick/dwarf_type_id.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/stringcache.h"
#include "tests/unit/tarnwick/dwarf_types_testing.h"
#include "tests/unit/tarnwick/random_numbers.h"

namespace {

using namespace dwarf_types_testing;

const char *id_of(const std::vector<type_element> &elements)
{
    return create_type_id(type_top(type_of(elements)));
}

TEST(type_id, is_the_names_of_all_elements_from_the_top)
{
    EXPECT_STREQ(id_of({PLAIN_INT}), "i");
    EXPECT_STREQ(id_of({element(ty_ptr, "*.25"), element(ty_qual, "CV", 2), PLAIN_INT}), "*.25CVi");
    EXPECT_STREQ(id_of({element(ty_array, "[2]", 2), element(ty_func, "("), element(ty_struct, "S10")}), "[2](S10");
}

TEST(type_id, of_equal_texts_is_one_string)
{
    EXPECT_EQ(id_of({element(ty_ptr, "*"), PLAIN_INT}), id_of({element(ty_ptr, "*"), PLAIN_INT}));
    // However the elements divide the text.
    EXPECT_EQ(id_of({element(ty_ptr, "*"), element(ty_ptr, "*"), PLAIN_INT}), id_of({element(ty_struct, "**i")}));
}

TEST(type_id, tells_the_bit_of_a_bit)
{
    const type_element bit3 = basic("b", TE_BIT, 0, 3);
    EXPECT_STREQ(id_of({bit3}), "b3");
    EXPECT_STREQ(id_of({basic("b", TE_BIT, 0)}), "b0");
    EXPECT_STREQ(id_of({element(ty_qual, "V", 2), bit3}), "Vb3") << "qualifiers may stand above";
    EXPECT_STREQ(id_of({element(ty_qual, "V", 2), element(ty_qual, "C", 4), bit3}), "VCb3");
    EXPECT_STREQ(id_of({element(ty_ptr, "*"), bit3}), "*b") << "nothing else may";
    EXPECT_STREQ(id_of({element(ty_ptr, "*"), element(ty_qual, "V", 2), bit3}), "*Vb");
    EXPECT_STREQ(id_of({element(ty_array, "[8]", 8), bit3}), "[8]b");
    EXPECT_STREQ(id_of({basic("a", TE_BIT, 1, 3)}), "a") << "a boolean is no bit";
}

TEST(type_id, passes_over_a_qualifier_without_a_letter)
{
    EXPECT_STREQ(id_of({element(ty_ptr, "*"), element(ty_qual, nullptr), PLAIN_INT}), "*i");
}

TEST(type_id, of_a_long_text_is_short)
{
    const std::string at_limit(TYPE_ID_TEXT_MAX, '*');
    const std::string above = at_limit + "*";
    EXPECT_EQ(id_of({element(ty_struct, str_cache(at_limit))}), str_cache(at_limit));
    const char *id = id_of({element(ty_struct, str_cache(above))});
    EXPECT_LT(std::strlen(id), TYPE_ID_TEXT_MAX);
    EXPECT_NE(std::strchr(id, ' '), nullptr) << "so that no type can have it as its text";
    EXPECT_EQ(id, id_of({element(ty_struct, str_cache(above))}));
}

// Types whose texts often agree, in all or in part, and lie around the limit of what is kept whole.
type_record *random_type(random_numbers &random)
{
    static constexpr const char *NAMES[] = {"*", "**", "(", "*(", "[1]", "[", "1]", nullptr};
    std::vector<type_element> elements;
    const std::uint32_t above = random() % 60;
    for (std::uint32_t i = 0; i < above; ++i) {
        const bool is_qualifier = random() % 4 == 0;
        const char *name = random() % 3 != 0 ? "*" : NAMES[random() % std::size(NAMES)];
        elements.push_back(is_qualifier ? element(ty_qual, random() % 2 != 0 ? "V" : "VV", 2) : element(ty_ptr, name));
    }
    if (random() % 2 != 0) { // many qualifiers right over the base
        for (std::uint32_t i = random() % 80; i > 0; --i) {
            elements.push_back(element(ty_qual, "V", 2));
        }
    }
    elements.push_back(random() % 2 != 0 ? basic("b", TE_BIT, 0, static_cast<std::uint8_t>(random() % 3))
                                         : element(ty_struct, random() % 2 != 0 ? "b1" : "S1"));
    return type_of(elements);
}

TEST(type_id, is_equal_exactly_where_the_texts_are)
{
    random_numbers random(7);
    std::map<std::string, const char *> id_of_text;
    std::map<const char *, std::string> text_of_id;
    type_id_walk walk;
    for (int round = 0; round < 300; ++round) {
        type_record *tp = random_type(random);
        walk.restart();
        for (std::uint32_t i = tp->ty_cnt; i-- > 0;) {
            if (random() % 4 == 0) {
                continue; // some are not asked for
            }
            const char *id = walk.id_of(&tp->elements[i]);
            ASSERT_EQ(id, create_type_id(&tp->elements[i]));
            const std::string text = plain_id(&tp->elements[i]);
            ASSERT_EQ(id_of_text.emplace(text, id).first->second, id) << text;
            ASSERT_EQ(text_of_id.emplace(id, text).first->second, text);
        }
    }
    EXPECT_GT(id_of_text.size(), 1000U);
    EXPECT_TRUE(std::any_of(id_of_text.begin(), id_of_text.end(),
                            [](const auto &entry) { return entry.first.size() > TYPE_ID_TEXT_MAX; }));
}

} // namespace
