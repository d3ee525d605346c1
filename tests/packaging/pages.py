"""Tables of the pages about the protocol, written in Markdown or as a manual page."""

import re


def _markdown_row(line):
    cells = re.split(r"(?<!\\)\|", line.strip().strip("|") + " ")
    return [re.sub(r"[`*]|\[([^]]*)\]\([^)]*\)", lambda found: found[1] or "", cell).strip() for cell in cells]


def _tbl_rows(found):
    """A table of tbl, its format lines left out, as lines of Markdown."""
    rows = re.sub(r"T\{\n(.*?)\nT\}", r"\1", found[1].split(".\n", 1)[1], flags=re.S).splitlines()
    cells = [row.replace(r"\(dq", '"').split("\t") for row in rows]
    return "".join(f"| {' | '.join(row + [''] * (len(cells[0]) - len(row)))} |\n" for row in cells)


def tables(text):
    """Heading above it, first row, and the other rows of each table; the rows as lists of cells without markup."""
    heading, rows = "", []
    text = re.sub(r"^\.TS\n(.*?)^\.TE\n", _tbl_rows, text, flags=re.M | re.S)
    for line in [*text.splitlines(), ""]:
        if re.match(r"\.S[hs] |#+ ", line):
            heading = line.split(" ", 1)[1].replace("`", "").strip('"')
        if line.startswith("|") and not line.startswith("|--"):
            rows.append(_markdown_row(line))
        elif not line.startswith("|--") and rows:
            yield heading, rows[0], rows[1:]
            rows = []


def table(text, heading, first_cell):
    """The rows below the first one of the one table that stands below a heading and begins with a cell."""
    found = [rows for where, first, rows in tables(text) if where.lower() == heading.lower() and first[0] == first_cell]
    assert len(found) == 1, (heading, first_cell, found)
    return found[0]
