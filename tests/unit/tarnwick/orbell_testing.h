// SPDX-License-Identifier: MIT
// What the tests of legacy symbol files share: the model as text, reading into it, and writing it.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/image_testing.h"

namespace orbell_testing {

inline constexpr const char *PATH = "in.sym";
inline constexpr std::uint32_t DATA_SPACE = 2;

inline std::string text_of(const char *format, ...) PRINTF_LIKE(1, 2);
inline std::string text_of(const char *format, ...)
{
    char text[300];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

inline std::string files_text()
{
    std::string text;
    for (const tarn_file *fp : each(file_list)) {
        text += text_of("file %s\n", fp->fl_name);
    }
    return text;
}

// Number as stored, link and load address, size.
inline std::string segments_text()
{
    std::string text;
    for (const tarn_segment *seg : each(seg_list)) {
        text += text_of("seg %s #%u %X@%X+%X space %u\n", seg->sg_name, seg->sg_index, seg->sg_addr, seg->sg_load,
                        seg->sg_size, seg->sg_space);
    }
    return text;
}

inline std::string flags_text(std::uint32_t flags)
{
    return std::string((flags & SYM_LOCAL) != 0 ? " local" : "") + ((flags & SYM_ABS) != 0 ? " abs" : "") +
           ((flags & ~(SYM_LOCAL | SYM_ABS)) != 0 ? " ?" : "");
}

inline std::string symbols_text()
{
    std::string text;
    for (const tarn_symbol *sp : each(symbol_list)) {
        text += text_of("sym %s %X file %u seg %u space %u%s", sp->sy_name, sp->sy_value, sp->sy_file, sp->sy_seg,
                        sp->sy_space, flags_text(sp->sy_flags).c_str());
        text += sp->sy_psect != nullptr ? text_of(" in %s\n", sp->sy_psect->ps_name) : "\n";
    }
    return text;
}

inline std::string lines_text()
{
    std::string text;
    for (const tarn_line *lp : each(line_list)) {
        text += text_of("line %u %X file %u seg %u%s\n", lp->ln_line, lp->ln_addr, lp->ln_file, lp->ln_seg,
                        lp->ln_flags == LN_SOURCE && lp->ln_psect == nullptr ? "" : " ?");
    }
    return text;
}

inline std::string psects_text()
{
    std::string text;
    vector_of<tarn_psect *> psects = psect_table.values();
    for (const tarn_psect *pp : each(psects)) {
        text += text_of("psect %s space %u delta %u%s", pp->ps_name, pp->ps_space, pp->ps_delta,
                        pp->ps_use_link ? " link" : "");
        text += pp->ps_lib_reloc != 0 ? text_of(" lib %X", pp->ps_lib_reloc) : "";
        for (const tarn_psect_range *rp : each(pp->ps_ranges)) {
            text += text_of(" %X-%X@%X", rp->pr_lo, rp->pr_hi, rp->pr_load);
        }
        text += '\n';
    }
    psects.free();
    return text;
}

inline std::string model_text()
{
    return files_text() + segments_text() + symbols_text() + lines_text() + psects_text();
}

// Into the model as it stands.
inline void read_more(const std::string &content, const char *path = PATH)
{
    const image_file file(content);
    EXPECT_TRUE(format_orbell.read(file.stream(), path));
}

inline void start_model()
{
    model_create();
    set_add(data_spaces, DATA_SPACE);
    opt_strip_ext = false;
}

// Into a new model.
inline void read_text(const std::string &content)
{
    start_model();
    read_more(content);
}

inline bool identify(const std::string &content)
{
    return identify_image(format_orbell, content);
}

inline void add_symbol(const char *name, std::uint32_t file, std::uint32_t segment, std::uint32_t value,
                       std::uint32_t flags = 0)
{
    tarn_symbol symbol;
    symbol.sy_name = name;
    symbol.sy_file = file;
    symbol.sy_seg = segment;
    symbol.sy_value = value;
    symbol.sy_flags = flags;
    tarn_add_symbol(symbol);
}

inline void add_line(std::uint32_t number, std::uint32_t file, std::uint32_t segment, std::uint32_t address)
{
    tarn_line line;
    line.ln_line = number;
    line.ln_file = file;
    line.ln_seg = segment;
    line.ln_addr = address;
    tarn_add_line(line);
}

inline void add_segment(const char *name)
{
    tarn_segment segment;
    segment.sg_index = seg_list.count() + 1;
    segment.sg_name = name;
    tarn_add_segment(segment);
}

inline std::string written()
{
    char *text = nullptr;
    std::size_t size = 0;
    std::FILE *stream = open_memstream(&text, &size);
    const bool result = format_orbell.write(stream, "out.sym");
    std::fclose(stream);
    const std::string content(text, size);
    std::free(text);
    return result ? content : "false";
}

} // namespace orbell_testing
