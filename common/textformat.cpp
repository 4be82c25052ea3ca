// SPDX-License-Identifier: MIT
// The formatter of catalogue texts. A catalogue comes from a file, so neither its conversions nor its widths are trusted:
// nothing is read but the arguments that were given, and nothing is written but the buffer.
#include "common/textformat.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <string_view>

namespace {

// Widths and precisions stop growing here.
constexpr std::size_t FIELD_MAX = std::numeric_limits<std::int32_t>::max();
constexpr std::size_t DIGITS_MAX = 22; // of 64 bits in base 8
constexpr std::size_t NOT_GIVEN = std::numeric_limits<std::size_t>::max();

// The output: it counts everything and keeps what fits.
class text_sink {
public:
    text_sink(char *buffer, std::size_t size) : buffer_(buffer), room_(size > 0 ? size - 1 : 0) {}

    void put(std::string_view text)
    {
        const std::size_t kept = std::min(text.size(), left());
        if (kept > 0) {
            std::memcpy(buffer_ + length_, text.data(), kept);
        }
        length_ += text.size();
    }
    void pad(char c, std::size_t count)
    {
        const std::size_t kept = std::min(count, left());
        if (kept > 0) {
            std::memset(buffer_ + length_, c, kept);
        }
        length_ += count;
    }
    std::size_t finish(bool terminate)
    {
        if (terminate) {
            buffer_[std::min(length_, room_)] = '\0';
        }
        return length_;
    }

private:
    std::size_t left() const { return room_ > length_ ? room_ - length_ : 0; }

    char *buffer_;
    std::size_t room_;
    std::size_t length_ = 0;
};

struct conversion {
    bool left = false;
    bool plus = false;
    bool blank = false;
    bool alternate = false;
    bool zero = false;
    std::size_t width = 0;
    std::size_t precision = NOT_GIVEN;
    bool wide = false; // "ll": all 64 bits count
    char letter = '\0';
};

class formatter {
public:
    formatter(text_sink *sink, std::string_view format, std::span<const format_argument> arguments)
        : sink_(sink), format_(format), arguments_(arguments)
    {
    }

    void run()
    {
        while (at_ < format_.size()) {
            const std::size_t percent = std::min(format_.find('%', at_), format_.size());
            sink_->put(format_.substr(at_, percent - at_));
            at_ = percent;
            if (at_ < format_.size()) {
                take_conversion();
            }
        }
    }

private:
    void take_conversion()
    {
        const std::size_t start = at_++;
        conversion field;
        take_flags(&field);
        take_width(&field);
        take_precision(&field);
        take_length(&field);
        if (at_ < format_.size()) {
            field.letter = format_[at_++];
        }
        switch (field.letter) {
        case '%':
            sink_->put("%");
            break;
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'X':
        case 'o':
        case 'c':
            put_number(field, next_argument());
            break;
        case 's':
            put_text(field, next_argument());
            break;
        default:
            // An unknown conversion, or the end of the text in the middle of one, stands for itself.
            sink_->put(format_.substr(start, at_ - start));
            break;
        }
    }

    void take_flags(conversion *field)
    {
        for (; at_ < format_.size(); ++at_) {
            switch (format_[at_]) {
            case '-':
                field->left = true;
                break;
            case '+':
                field->plus = true;
                break;
            case ' ':
                field->blank = true;
                break;
            case '#':
                field->alternate = true;
                break;
            case '0':
                field->zero = true;
                break;
            default:
                return;
            }
        }
    }

    void take_width(conversion *field)
    {
        if (!at('*')) {
            field->width = take_digits();
            return;
        }
        ++at_;
        const std::int64_t width = take_star();
        field->left = field->left || width < 0;
        field->width = std::min(static_cast<std::size_t>(width < 0 ? -width : width), FIELD_MAX);
    }

    void take_precision(conversion *field)
    {
        if (!at('.')) {
            return;
        }
        ++at_;
        if (!at('*')) {
            field->precision = take_digits();
            return;
        }
        ++at_;
        const std::int64_t precision = take_star();
        field->precision = precision < 0 ? NOT_GIVEN : static_cast<std::size_t>(precision);
    }

    void take_length(conversion *field)
    {
        for (; at_ < format_.size() && std::strchr("hlzj", format_[at_]) != nullptr; ++at_) {
            field->wide = field->wide || format_.substr(at_, 2) == "ll";
        }
    }

    bool at(char c) const { return at_ < format_.size() && format_[at_] == c; }

    std::size_t take_digits()
    {
        std::size_t value = 0;
        for (; at_ < format_.size() && format_[at_] >= '0' && format_[at_] <= '9'; ++at_) {
            value = std::min(value * 10 + static_cast<std::size_t>(format_[at_] - '0'), FIELD_MAX);
        }
        return value;
    }

    // The argument of a "*", 0 when it is missing or no integer.
    std::int64_t take_star()
    {
        const format_argument *argument = next_argument();
        if (argument == nullptr || argument->kind == format_argument::TEXT) {
            return 0;
        }
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(argument->number));
    }

    const format_argument *next_argument() { return used_ < arguments_.size() ? &arguments_[used_++] : nullptr; }

    void put_number(const conversion &field, const format_argument *argument)
    {
        if (argument == nullptr || argument->kind == format_argument::TEXT) {
            return;
        }
        if (field.letter == 'c') {
            const char c = static_cast<char>(static_cast<unsigned char>(argument->number));
            put_field(field, {&c, 1});
        } else if (field.letter == 'd' || field.letter == 'i') {
            put_signed(field, argument->number);
        } else {
            put_unsigned(field, field.wide ? argument->number : static_cast<std::uint32_t>(argument->number));
        }
    }

    void put_signed(const conversion &field, std::uint64_t number)
    {
        const auto value =
            field.wide ? static_cast<std::int64_t>(number)
                       : static_cast<std::int64_t>(static_cast<std::int32_t>(static_cast<std::uint32_t>(number)));
        const std::string_view sign = value < 0 ? "-" : field.plus ? "+" : field.blank ? " " : "";
        const auto bits = static_cast<std::uint64_t>(value);
        put_digits(field, sign, value < 0 ? 0 - bits : bits, 10);
    }

    void put_unsigned(const conversion &field, std::uint64_t value)
    {
        switch (field.letter) {
        case 'x':
            put_digits(field, field.alternate && value != 0 ? "0x" : "", value, 16);
            break;
        case 'X':
            put_digits(field, field.alternate && value != 0 ? "0X" : "", value, 16);
            break;
        case 'o':
            put_digits(field, "", value, 8);
            break;
        default:
            put_digits(field, "", value, 10);
            break;
        }
    }

    void put_digits(const conversion &field, std::string_view prefix, std::uint64_t value, std::uint32_t base)
    {
        const char *const digit_set = field.letter == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
        std::array<char, DIGITS_MAX> storage{};
        std::size_t first = storage.size();
        for (; value != 0; value /= base) {
            storage[--first] = digit_set[value % base];
        }
        const std::string_view digits(storage.data() + first, storage.size() - first);

        std::size_t zeros = minus(field.precision == NOT_GIVEN ? 1 : field.precision, digits.size());
        if (field.letter == 'o' && field.alternate && zeros == 0) {
            zeros = 1;
        }
        const std::size_t fill = minus(field.width, prefix.size() + zeros + digits.size());
        const bool fill_zeros = field.zero && !field.left && field.precision == NOT_GIVEN;
        sink_->pad(' ', field.left || fill_zeros ? 0 : fill);
        sink_->put(prefix);
        sink_->pad('0', zeros + (fill_zeros ? fill : 0));
        sink_->put(digits);
        sink_->pad(' ', field.left ? fill : 0);
    }

    void put_text(const conversion &field, const format_argument *argument)
    {
        if (argument == nullptr || argument->kind != format_argument::TEXT) {
            return;
        }
        const char *text = argument->text != nullptr ? argument->text : "(null)";
        put_field(field, {text, ::strnlen(text, field.precision)});
    }

    void put_field(const conversion &field, std::string_view text)
    {
        const std::size_t fill = minus(field.width, text.size());
        sink_->pad(' ', field.left ? 0 : fill);
        sink_->put(text);
        sink_->pad(' ', field.left ? fill : 0);
    }

    static std::size_t minus(std::size_t left, std::size_t right) { return left > right ? left - right : 0; }

    text_sink *sink_;
    std::string_view format_;
    std::span<const format_argument> arguments_;
    std::size_t at_ = 0;
    std::size_t used_ = 0;
};

} // namespace

std::size_t format_text(char *buffer, std::size_t size, const char *format, std::span<const format_argument> arguments)
{
    text_sink sink(buffer, size);
    formatter(&sink, format, arguments).run();
    return sink.finish(size > 0);
}
