// SPDX-License-Identifier: MIT
// The pointer classes of the compiler. The program reads their sizes alone; the names say what the compiler means.
#include "compiler/common/pointers.h"

#include "common/trace.h"

namespace {

struct pointer_class {
    std::int32_t ptr_id;
    const char *ptr_name;
    std::uint32_t ptr_size; // bytes
};

constexpr pointer_class zrt_pointers[] = {
    {1, "PTR_VOID1", 1},     {2, "PTR_VOID2", 2},     {3, "PTR_VOID3", 3},     {4, "PTR_BANKA_0", 1},
    {5, "PTR_BANKA_2", 1},   {6, "PTR_BANKA_4", 1},   {7, "PTR_BANKA_6", 1},   {8, "PTR_BANKA_8", 1},
    {9, "PTR_BANKA_10", 1},  {10, "PTR_BANKA_12", 1}, {11, "PTR_BANKA_14", 1}, {12, "PTR_BANKA_16", 1},
    {13, "PTR_BANKA_18", 1}, {14, "PTR_BANKA_20", 1}, {15, "PTR_BANKA_22", 1}, {16, "PTR_BANKA_24", 1},
    {17, "PTR_BANKA_26", 1}, {18, "PTR_BANKA_28", 1}, {19, "PTR_BANKA_30", 1}, {20, "PTR_BANKB_0", 1},
    {21, "PTR_BANKB_8", 1},  {22, "PTR_BANKB_16", 1}, {23, "PTR_BANKB_24", 1}, {24, "PTR_CODE1b", 1},
    {25, "PTR_CODE2b", 2},   {26, "PTR_MIXED2c", 2},  {27, "PTR_FUNC1", 1},    {28, "PTR_EEPROM", 1},
    {29, "PTR_ACCESS", 1},   {30, "PTR_BANK0", 1},    {31, "PTR_CODE1a", 1},   {32, "PTR_CODE2a", 2},
    {33, "PTR_CODE3", 3},    {34, "PTR_MIXED2a", 2},  {35, "PTR_MIXED2b", 2},  {36, "PTR_MIXED3", 3},
    {37, "PTR_FUNC2", 2},    {38, "PTR_FUNC3", 3},    {39, "PTR_BANKN", 2},    {40, "PTR_BANKA_32", 1},
    {41, "PTR_BANKA_34", 1}, {42, "PTR_BANKA_36", 1}, {43, "PTR_BANKA_38", 1}, {44, "PTR_BANKA_40", 1},
    {45, "PTR_BANKA_42", 1}, {46, "PTR_BANKA_44", 1}, {47, "PTR_BANKA_46", 1}, {48, "PTR_BANKA_48", 1},
    {49, "PTR_BANKA_50", 1}, {50, "PTR_BANKA_52", 1}, {51, "PTR_BANKA_54", 1}, {52, "PTR_BANKA_56", 1},
    {53, "PTR_BANKA_58", 1}, {54, "PTR_BANKA_60", 1}, {55, "PTR_BANKA_62", 1},
};

constexpr bool rows_stand_at_their_numbers()
{
    std::int32_t id = PTR_START;
    for (const pointer_class &row : zrt_pointers) {
        if (row.ptr_id != id++) {
            return false;
        }
    }
    return id == PTR_END + 1;
}
static_assert(rows_stand_at_their_numbers());

} // namespace

std::uint32_t ptr_size(std::int32_t id)
{
    DB_ASSERT(id >= PTR_START, "id >= PTR_START");
    DB_ASSERT(id <= PTR_END, "id <= PTR_END");
    if (id < PTR_START || id > PTR_END) {
        return 0;
    }
    const pointer_class *ptr = &zrt_pointers[id - PTR_START];
    DB_ASSERT(ptr->ptr_id == id, "ptr->ptr_id == id");
    return ptr->ptr_size;
}
