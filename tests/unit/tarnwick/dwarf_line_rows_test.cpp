// SPDX-License-Identifier: MIT
// Line programs as a debugger reads them: the rows that went in come out again.
#include "compiler/tarnwick/dwarf_line.h"

#include <array>
#include <ostream>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/tarnwick/dwarf_line_testing.h"
#include "tests/unit/tarnwick/random_numbers.h"

namespace {

using namespace dwarf_line_testing;

struct line_row {
    std::uint32_t address = 0;
    std::uint32_t line = 1;
    std::uint64_t file = 1;
    bool end_sequence = false;

    bool operator==(const line_row &) const = default;
};

std::ostream &operator<<(std::ostream &out, const line_row &row)
{
    return out << std::hex << row.address << std::dec << " line " << row.line << " file " << row.file
               << (row.end_sequence ? " end" : "");
}

// Runs the program of one line unit as the DWARF standard, version 2, has it. Knows nothing of the writer.
class line_reader {
public:
    explicit line_reader(bytes unit) : unit_(std::move(unit)) {}

    std::vector<line_row> rows()
    {
        read_header();
        while (position_ < unit_.size()) {
            step();
        }
        EXPECT_EQ(position_, unit_.size());
        return rows_;
    }

private:
    void read_header()
    {
        EXPECT_EQ(fixed(4), unit_.size() - 4);
        fixed(2);
        const std::uint64_t header_length = fixed(4);
        program_ = position_ + header_length;
        minimum_ = static_cast<std::uint32_t>(fixed(1));
        fixed(1);
        line_base_ = static_cast<std::int8_t>(fixed(1));
        line_range_ = static_cast<std::uint32_t>(fixed(1));
        opcode_base_ = static_cast<std::uint32_t>(fixed(1));
        for (std::uint32_t opcode = 1; opcode < opcode_base_; opcode++) {
            fixed(1);
        }
        while (unit_.at(position_) != 0) { // directories
            skip_string();
        }
        position_++;
        while (unit_.at(position_) != 0) { // files
            skip_string();
            uleb();
            uleb();
            uleb();
        }
        position_++;
        EXPECT_EQ(position_, program_);
    }

    void step()
    {
        const auto opcode = static_cast<std::uint32_t>(fixed(1));
        if (opcode >= opcode_base_) {
            const std::uint32_t adjusted = opcode - opcode_base_;
            advance_address(adjusted / line_range_);
            state_.line += static_cast<std::uint32_t>(line_base_) + adjusted % line_range_;
            append();
            return;
        }
        switch (opcode) {
        case 0:
            extended();
            break;
        case 1:
            append();
            break;
        case 2:
            advance_address(uleb());
            break;
        case 3:
            state_.line += static_cast<std::uint32_t>(sleb());
            break;
        case 4:
            state_.file = uleb();
            break;
        case 8:
            advance_address((255 - opcode_base_) / line_range_);
            break;
        default:
            ADD_FAILURE() << "opcode " << opcode << " at " << position_ - 1;
        }
    }

    void extended()
    {
        const std::uint64_t length = uleb();
        const std::size_t end = position_ + length;
        switch (fixed(1)) {
        case 1:
            state_.end_sequence = true;
            append();
            state_ = {};
            break;
        case 2:
            state_.address = static_cast<std::uint32_t>(fixed(length - 1));
            break;
        default:
            ADD_FAILURE() << "extended opcode at " << position_ - 1;
        }
        EXPECT_EQ(position_, end);
    }

    void advance_address(std::uint64_t instructions)
    {
        state_.address += static_cast<std::uint32_t>(instructions * minimum_);
    }

    void append() { rows_.push_back(state_); }

    std::uint64_t fixed(std::size_t size)
    {
        const std::uint64_t value = number_at(unit_, position_, size);
        position_ += size;
        return value;
    }

    std::uint64_t uleb()
    {
        std::uint64_t value = 0;
        std::uint32_t shift = 0;
        std::uint64_t group = 0;
        do {
            group = fixed(1);
            value |= (group & 0x7F) << shift;
            shift += 7;
        } while (group >= 0x80);
        return value;
    }

    std::int64_t sleb()
    {
        const std::size_t start = position_;
        const std::uint64_t value = uleb();
        const auto bits = static_cast<std::uint32_t>(7 * (position_ - start));
        const bool negative = (unit_[position_ - 1] & 0x40) != 0;
        return static_cast<std::int64_t>(negative && bits < 64 ? value | ~std::uint64_t{0} << bits : value);
    }

    void skip_string()
    {
        while (unit_.at(position_) != 0) {
            position_++;
        }
        position_++;
    }

    bytes unit_;
    std::size_t position_ = 0;
    std::size_t program_ = 0;
    std::uint32_t minimum_ = 1;
    std::int32_t line_base_ = 0;
    std::uint32_t line_range_ = 1;
    std::uint32_t opcode_base_ = 1;
    line_row state_;
    std::vector<line_row> rows_;
};

// Feeds steps to the writer and keeps the rows that have to come out.
class row_feeder {
public:
    row_feeder(line_unit_info *unit, std::uint32_t minimum) : unit_(unit), minimum_(minimum) {}

    void start(std::int32_t line_delta, std::uint32_t address)
    {
        dwarf_line_start_sequence(unit_, line_delta, address);
        now_.address = address;
        add_row(line_delta);
    }
    void advance(std::int32_t line_delta, std::uint32_t address_delta)
    {
        dwarf_line_advance_line_and_pc(unit_, line_delta, address_delta);
        now_.address += address_delta - address_delta % minimum_;
        add_row(line_delta);
    }
    void set_file(std::uint32_t file)
    {
        dwarf_line_set_file(file);
        now_.file = file;
    }
    void end()
    {
        dwarf_line_end_sequence(unit_);
        now_.address += minimum_;
        now_.end_sequence = true;
        add_row(0);
        now_ = {};
    }
    const std::vector<line_row> &expected() const { return expected_; }

private:
    void add_row(std::int32_t line_delta)
    {
        now_.line += static_cast<std::uint32_t>(line_delta);
        expected_.push_back(now_);
    }

    line_unit_info *unit_;
    std::uint32_t minimum_;
    line_row now_;
    std::vector<line_row> expected_;
};

class dwarf_line_rows : public dwarf_line_writer, public testing::WithParamInterface<std::uint32_t> {
protected:
    // The unit that `feed` makes is read back to the rows that `feed` expects.
    template <typename Feed>
    static void expect_rows(Feed feed)
    {
        std::vector<line_row> expected;
        const bytes unit = unit_bytes(static_cast<std::uint8_t>(GetParam()), [&](line_unit_info *info) {
            row_feeder feeder(info, GetParam());
            feed(feeder);
            expected = feeder.expected();
        });
        EXPECT_EQ(line_reader(unit).rows(), expected);
    }
};

INSTANTIATE_TEST_SUITE_P(instruction_lengths, dwarf_line_rows, testing::Values(1U, 2U, 4U));

TEST_P(dwarf_line_rows, all_small_steps_come_back)
{
    expect_rows([](row_feeder &feeder) {
        feeder.start(10000, 0x1000);
        for (std::int32_t line = -40; line <= 40; line++) {
            for (std::uint32_t address = 0; address <= 26 * GetParam(); address++) {
                feeder.advance(line, address);
            }
        }
        feeder.end();
    });
}

// A step of any size, small ones more often.
std::uint32_t any_step(random_numbers &random)
{
    static constexpr std::array<std::uint32_t, 5> BELOW = {4, 30, 300, 0x10000, 0};
    const std::uint32_t below = BELOW[random() % BELOW.size()];
    return below != 0 ? random() % below : random();
}

std::int32_t any_line_step(random_numbers &random)
{
    const auto step = static_cast<std::int32_t>(any_step(random));
    return random() % 2 == 0 || step == LOWEST ? step : -step;
}

TEST_P(dwarf_line_rows, random_steps_come_back)
{
    for (std::uint32_t seed = 1; seed <= 20; seed++) {
        SCOPED_TRACE(seed);
        random_numbers random(seed);
        expect_rows([&random](row_feeder &feeder) {
            for (std::uint32_t sequence = 0; sequence < 5; sequence++) {
                feeder.start(any_line_step(random), any_step(random));
                for (std::uint32_t row = 0; row < 500; row++) {
                    if (random() % 16 == 0) {
                        feeder.set_file(any_step(random));
                    }
                    feeder.advance(any_line_step(random), any_step(random));
                }
                feeder.end();
            }
        });
    }
}

} // namespace
