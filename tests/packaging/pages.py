"""Tables of the pages about the protocol, written in Markdown or as a manual page."""

import re
import shlex


def _markdown_row(line):
    cells = re.split(r"(?<!\\)\|", line.strip().strip("|") + " ")
    return [re.sub(r"[`*]|\[([^]]*)\]\([^)]*\)", lambda found: found[1] or "", cell).strip() for cell in cells]


def _mdoc_row(line):
    words = shlex.shlex(line.removeprefix(".It "), posix=True)
    words.quotes, words.escape, words.commenters, words.whitespace_split = '"', "", "", True
    cells = [[]]
    for word in words:
        if word == "Ta":
            cells.append([])
        elif word != "Sy":
            cells[-1].append(word.replace(r"\(dq", '"'))
    return [" ".join(words) for words in cells]


def tables(text):
    """Heading above it, first row, and the other rows of each table; the rows as lists of cells without markup."""
    heading, rows = "", []
    for line in [*text.splitlines(), ""]:
        if re.match(r"\.S[hs] |#+ ", line):
            heading = line.split(" ", 1)[1].replace("`", "").strip('"')
        if line.startswith("|") and not line.startswith("|--"):
            rows.append(_markdown_row(line))
        elif line.startswith(".It ") and (rows or " Ta " in line):
            rows.append(_mdoc_row(line))
        elif not line.startswith("|--") and rows:
            yield heading, rows[0], rows[1:]
            rows = []


def table(text, heading, first_cell):
    """The rows below the first one of the one table that stands below a heading and begins with a cell."""
    found = [rows for where, first, rows in tables(text) if where.lower() == heading.lower() and first[0] == first_cell]
    assert len(found) == 1, (heading, first_cell, found)
    return found[0]
