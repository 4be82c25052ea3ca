#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Turns a page of the documentation into a manual page.

    md2man.py --section 5 --name tarnwick-hex [--source TEXT] [--manual TEXT] input.md output

The pages are written in a small part of Markdown, and what is not in it is refused with the line that holds it:
headings (#, the title of the page, which is not printed; ## for sections; ### below), paragraphs, lists with "-" or
"1.", definition lists (a line, then ": " and what it means), fenced code, tables, `code`, **bold**, *italic*,
[links](target) and comments. The output is for man(7) with tbl, and is the same for the same input wherever and
whenever it is made.
"""

import argparse
import html
import re
import sys
from pathlib import Path

TEXT_WIDTH = 71  # columns of a terminal's 80 that the text of a page has
COLUMN_GAP = 3  # between the columns of a table
SOURCE_WIDTH = 78  # of the lines of the output
LIST_INDENT = 3
DEFINITION_INDENT = 4

ITEM = re.compile(r"(-|\d+\.) +")
TABLE_RULE = re.compile(r"\|(\s*:?-+:?\s*\|)+$")
INLINE = re.compile(
    r"(?P<escape>\\[\\`*_|\[\]<>#-])"
    r"|(?P<ticks>`+)(?P<code>.+?)(?P=ticks)(?!`)"
    r"|\*\*(?P<bold>.+?)\*\*"
    r"|\*(?P<italic>[^*\s](?:[^*]*[^*\s])?)\*"
    r"|\[(?P<link>[^\]]+)\]\((?P<target>[^)]+)\)"
    r"|<(?P<url>https?://[^>]+)>",
    re.DOTALL,
)
MANUAL_PAGE = re.compile(r"([\w.+-]+)(\(\w+\))")


class PageError(Exception):
    pass


# --- blocks -----------------------------------------------------------------------------------------------------------
#
# A block is a pair of its kind and its content: ("heading", (level, text)), ("paragraph", text), ("code", lines),
# ("table", rows), ("list", (tight, [(marker, blocks)])), ("definitions", [(term, blocks)]). Text still holds its marks.


def read_blocks(lines, first_line=1):
    blocks, at = [], 0
    while at < len(lines):
        line = lines[at]
        where = first_line + at
        if not line.strip():
            at += 1
        elif line.startswith("<!--"):
            at = end_of_comment(lines, at, where)
        elif line.startswith("```"):
            block, at = read_fence(lines, at, where)
            blocks.append(block)
        elif line.startswith("#"):
            marks, _, text = line.partition(" ")
            if set(marks) != {"#"} or len(marks) > 4 or not text:
                raise PageError(f"line {where}: bad heading")
            blocks.append(("heading", (len(marks), text.strip())))
            at += 1
        elif line.startswith("|"):
            block, at = read_table(lines, at, where)
            blocks.append(block)
        elif ITEM.match(line):
            block, at = read_list(lines, at, first_line)
            blocks.append(block)
        elif at + 1 < len(lines) and lines[at + 1].startswith(": "):
            block, at = read_definitions(lines, at, first_line)
            blocks.append(block)
        elif line.startswith((" ", "\t", ">", "* ", "+ ", "---", "===", "<")) and not line.startswith("<http"):
            raise PageError(f"line {where}: not a part of the language of pages: {line!r}")
        else:
            block, at = read_paragraph(lines, at)
            blocks.append(block)
    return blocks


def end_of_comment(lines, at, where):
    while at < len(lines):
        if "-->" in lines[at]:
            return at + 1
        at += 1
    raise PageError(f"line {where}: comment without an end")


def read_fence(lines, at, where):
    fence = re.match(r"`+", lines[at]).group()
    for end in range(at + 1, len(lines)):
        if lines[end].rstrip() == fence:
            return ("code", lines[at + 1 : end]), end + 1
    raise PageError(f"line {where}: code without an end")


def cells_of(line):
    parts = re.split(r"(?<!\\)\|", line.strip())
    return [part.strip() for part in parts[1:-1]]


def read_table(lines, at, where):
    rows = []
    while at < len(lines) and lines[at].startswith("|"):
        rows.append(lines[at])
        at += 1
    if len(rows) < 2 or not TABLE_RULE.match(rows[1].strip()):
        raise PageError(f"line {where}: table without a rule under its head")
    cells = [cells_of(row) for row in rows[:1] + rows[2:]]
    for number, row in enumerate(cells):
        if len(row) != len(cells[0]):
            raise PageError(f"line {where + number + (number > 0)}: row of another width than the table's head")
    return ("table", cells), at


def indented_lines(lines, at, indent):
    """The lines of an item behind its first one, without their indentation, and where they end."""
    body = []
    while at < len(lines):
        if not lines[at].strip():
            following = next((line for line in lines[at:] if line.strip()), "")
            if not following.startswith(" " * indent):
                break
            body.append("")
        elif lines[at].startswith(" " * indent):
            body.append(lines[at][indent:])
        else:
            break
        at += 1
    return body, at


def read_list(lines, at, first_line):
    items, tight = [], True
    is_bullet = lines[at].startswith("-")
    while at < len(lines):
        mark = ITEM.match(lines[at])
        if not mark or lines[at].startswith("-") != is_bullet:
            break
        start = at
        body, at = indented_lines(lines, at + 1, len(mark.group()))
        items.append((mark.group(1), read_blocks([lines[start][mark.end() :]] + body, first_line + start)))
        after = at
        while after < len(lines) and not lines[after].strip():
            after += 1
        if after != at and after < len(lines) and ITEM.match(lines[after]):
            if lines[after].startswith("-") == is_bullet:
                tight, at = False, after
    return ("list", (tight, items)), at


def read_definitions(lines, at, first_line):
    entries = []
    while at + 1 < len(lines) and lines[at].strip() and lines[at + 1].startswith(": "):
        term, start = lines[at], at + 1
        body, at = indented_lines(lines, at + 2, 2)
        entries.append((term, read_blocks([lines[start][2:]] + body, first_line + start)))
        after = at
        while after < len(lines) and not lines[after].strip():
            after += 1
        if after + 1 < len(lines) and lines[after + 1].startswith(": "):
            at = after
    return ("definitions", entries), at


def read_paragraph(lines, at):
    text = []
    while at < len(lines) and lines[at].strip() and not lines[at].startswith(("#", "```", "|", "<!--")):
        if text and ITEM.match(lines[at]):
            break
        text.append(lines[at].strip())
        at += 1
    return ("paragraph", " ".join(text)), at


# --- text -------------------------------------------------------------------------------------------------------------

# What would be taken for a command or printed as another character.
TEXT_CHARACTERS = {"\\": "\\e", "^": "\\(ha", "~": "\\(ti", "`": "\\(ga"}
CODE_CHARACTERS = {**TEXT_CHARACTERS, "-": "\\-", "'": "\\(aq"}


def escaped(text, characters):
    return "".join(characters.get(c, c if c < "\x7f" else f"\\[u{ord(c):04X}]") for c in text)


def roff_code(text, font):
    # A short piece stays on one line; runs of blanks are kept in any.
    blank = "\\ " if len(text) <= 24 or "  " in text else " \\%"
    # The first mark keeps it from being hyphenated.
    return "\\%\\fB" + escaped(text, CODE_CHARACTERS).replace(" ", blank) + f"\\f{font}"


def roff_link(text, font):
    page = MANUAL_PAGE.fullmatch(text)
    if page:
        return roff_code(page.group(1), font) + page.group(2)
    return roff_text(text, font)


def roff_text(text, font="R"):
    out, at = [], 0
    for mark in INLINE.finditer(text):
        out.append(escaped(html.unescape(text[at : mark.start()]), TEXT_CHARACTERS))
        at = mark.end()
        if mark["escape"]:
            out.append(escaped(mark["escape"][1], TEXT_CHARACTERS))
        elif mark["code"]:
            out.append(roff_code(code_text(mark["code"]), font))
        elif mark["bold"]:
            out.append("\\fB" + roff_text(mark["bold"], "B") + f"\\f{font}")
        elif mark["italic"]:
            out.append("\\fI" + roff_text(mark["italic"], "I") + f"\\f{font}")
        elif mark["link"]:
            out.append(roff_link(mark["link"], font))
        else:
            out.append(escaped(mark["url"], CODE_CHARACTERS))
    out.append(escaped(html.unescape(text[at:]), TEXT_CHARACTERS))
    return "".join(out)


def code_text(text):
    """What a code span shows: one blank at both ends parts ticks from ticks, and in a table a bar is escaped."""
    if len(text) > 2 and text.startswith(" ") and text.endswith(" "):
        text = text[1:-1]
    return text.replace("\\|", "|")


def plain_text(text):
    """The characters of a text as a reader sees them, to measure them."""

    def shown(mark):
        if mark["escape"]:
            return mark["escape"][1]
        if mark["code"]:
            return code_text(mark["code"])
        return plain_text(mark["bold"] or mark["italic"] or mark["link"] or "") or mark["url"] or ""

    return html.unescape(INLINE.sub(shown, text))


def guarded(line):
    return "\\&" + line if line.startswith((".", "'")) else line


def text_lines(text):
    """Lines of output: sentences begin on a line of their own, and long lines are broken at blanks."""
    lines = []
    for sentence in re.split(r"(?<=[.?!]) +(?=[A-Z\"(\\`])", text):
        line = ""
        for word in re.split(r"(?<!\\) +", sentence):
            if line and len(line) + 1 + len(word) > SOURCE_WIDTH:
                lines.append(line)
                line = word
            else:
                line = f"{line} {word}" if line else word
        lines.append(line)
    return [guarded(line) for line in lines if line]


# --- tables -----------------------------------------------------------------------------------------------------------


def longest_word(text):
    return max((len(word) for word in plain_text(text).split()), default=0)


def column_widths(rows):
    """The width of each column, and whether its cells have to be broken into lines to get there."""
    columns = list(zip(*rows))
    widths = [max(len(plain_text(cell)) for cell in column) for column in columns]
    floors = [max(longest_word(cell) for cell in column) for column in columns]
    room = TEXT_WIDTH - COLUMN_GAP * (len(columns) - 1)
    wrapped = [False] * len(columns)
    while sum(widths) > room:
        shrinkable = [i for i in range(len(columns)) if widths[i] > floors[i]]
        if not shrinkable:
            break  # words are not cut: such a table is as wide as it is
        widest = max(shrinkable, key=lambda i: widths[i])
        widths[widest] -= 1
        wrapped[widest] = True
    return widths, wrapped


def roff_cell(cell, width, wraps):
    text = roff_text(cell)
    if wraps and len(plain_text(cell)) > width:
        return "T{\n" + "\n".join(text_lines(text)) + "\nT}"
    return guarded(text)


def roff_table(rows):
    widths, wrapped = column_widths(rows)
    column_formats = [f"lw({width}n)" if wraps else "l" for width, wraps in zip(widths, wrapped)]
    # The tallest cell must find room in front of the page's end, which tbl itself does not make.
    height = max(len(plain_text(cell)) // max(width, 1) + 3 for row in rows for cell, width in zip(row, widths))
    head_formats = ["lb" + column[1:] for column in column_formats]
    out = [f".ne {height}v", ".TS", " ".join(head_formats), " ".join(column_formats) + "."]
    for number, row in enumerate(rows):
        out += "\t".join(roff_cell(*cell) for cell in zip(row, widths, wrapped)).split("\n")
        if number == 0:
            out.append("_")
    return out + [".TE"]


# --- output -----------------------------------------------------------------------------------------------------------


def roff_code_block(lines):
    return [".RS 2", ".EX"] + [guarded(escaped(line, CODE_CHARACTERS)) for line in lines] + [".EE", ".RE"]


def roff_item(head, blocks, indent):
    """An item of a list: its first paragraph stands beside its head, other blocks are indented below."""
    out = list(head)
    rest = blocks
    if blocks and blocks[0][0] == "paragraph":
        out += text_lines(roff_text(blocks[0][1]))
        rest = blocks[1:]
    if rest:
        out += [f".RS {indent}"] + roff_blocks(rest, first=False) + [".RE"]
    return out


def roff_list(tight, items):
    out = []
    for number, (marker, blocks) in enumerate(items):
        if tight and number == 1:
            out.append(".PD 0")
        tag = "\\(bu" if marker == "-" else marker
        out += roff_item([f".IP {tag} {max(LIST_INDENT, len(marker) + 1)}"], blocks, LIST_INDENT)
    return out + ([".PD"] if tight and len(items) > 1 else [])


def roff_definitions(entries):
    out = []
    for term, blocks in entries:
        out += roff_item([f".TP {DEFINITION_INDENT}", guarded(roff_text(term))], blocks, DEFINITION_INDENT)
    return out


def roff_heading(level, text):
    if level == 1:
        return []  # the title is in the page's head already
    return [(".SH " if level == 2 else ".SS ") + roff_text(text.upper() if level == 2 else text).replace('"', '\\(dq')]


def roff_blocks(blocks, first=True):
    """The blocks of a page or an item. The first paragraph behind a heading needs no distance."""
    out, section = [], None
    for kind, content in blocks:
        if kind == "heading":
            section = content[1]
            out += roff_heading(*content)
        elif kind == "paragraph":
            text = roff_text(content)
            if section == "NAME":
                text = text.replace(" - ", " \\- ", 1)
            out += ([] if first else [".PP"]) + text_lines(text)
        elif kind == "code":
            out += ([] if first else [".PP"]) + roff_code_block(content)
        elif kind == "table":
            out += ([] if first else [".PP"]) + roff_table(content)
        elif kind == "list":
            out += roff_list(*content)
        else:
            out += roff_definitions(content)
        first = kind == "heading"
    return out


def quoted(text):
    return '"' + escaped(text, CODE_CHARACTERS).replace('"', "\\(dq") + '"'


def man_page(markdown, section, name, source, manual):
    blocks = read_blocks(markdown.splitlines())
    has_table = any(block[0] == "table" for block in blocks)
    head = ["'\\\" t"] if has_table else []
    head.append(f".TH {quoted(name.upper())} {section} \"\" {quoted(source)} {quoted(manual)}")
    return "\n".join(head + [".ad l"] + roff_blocks(blocks)) + "\n"


def main():
    parser = argparse.ArgumentParser(description="Turn a page of the documentation into a manual page.")
    parser.add_argument("--section", required=True, help="of the manual, for instance 5")
    parser.add_argument("--name", required=True, help="of the page")
    parser.add_argument("--source", default="Tarnwick", help="program and version, for the foot of the page")
    parser.add_argument("--manual", default="Tarnwick Manual", help="for the head of the page")
    parser.add_argument("input", type=Path)
    parser.add_argument("output", type=Path)
    arguments = parser.parse_args()
    try:
        page = man_page(
            arguments.input.read_text(encoding="utf-8"),
            arguments.section,
            arguments.name,
            arguments.source,
            arguments.manual,
        )
    except (OSError, UnicodeError, PageError) as error:
        sys.exit(f"md2man: {arguments.input}: {error}")
    arguments.output.write_text(page, encoding="ascii")


if __name__ == "__main__":
    main()
