// SPDX-License-Identifier: MIT
#include "tests/fuzz/parts.h"

#include <algorithm>

namespace {

// Where the next line that begins with the mark stands, the first line aside.
std::size_t next_mark(std::string_view text)
{
    for (std::size_t at = text.find('\n'); at != std::string_view::npos; at = text.find('\n', at + 1)) {
        if (text.substr(at + 1).starts_with(PART_MARK)) {
            return at + 1;
        }
    }
    return text.size();
}

} // namespace

bool take_part(std::string_view *rest, input_part *part)
{
    if (rest->empty()) {
        return false;
    }
    std::string_view text = rest->substr(0, next_mark(*rest));
    rest->remove_prefix(text.size());
    *part = {};
    if (text.starts_with(PART_MARK)) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        part->name = text.substr(PART_MARK.size(), end - PART_MARK.size());
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    part->content = text;
    return true;
}
