"""dunmallow-protocol(7) against docs/protocol.md, and both against the tables of the code."""

import re
import struct

import pytest

from sources import MODES, PORT, STATE_TEXTS, STATES, Page, one, source, squeezed

PAGE = Page("dunmallow-protocol.7")
DOCUMENT = source("docs/protocol.md")


def plain(markdown):
    """The text without its marks and the places that links lead to."""
    return squeezed(re.sub(r"[`*]", "", re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", markdown)))


# Sections of the document by heading; one has another name in the page, where headings end without a mark.
HEADINGS = {"How large can a packet be?": "The largest packet"}
SECTIONS = {HEADINGS.get(plain(heading), plain(heading)): text for heading, text in
            re.findall(r"^##+ (.*?)\n(.*?)(?=^##|\Z)", DOCUMENT, re.M | re.S)}
ELSEWHERE = {"Watching it"}  # needs files that come with the sources, not with the program
TITLES = {title if title in PAGE.sections else title.upper(): title for title in SECTIONS if title not in ELSEWHERE}
SHARED = [title for title in TITLES if title in PAGE.sections]


def own(title):
    """A section of the page without those inside it."""
    section = PAGE.sections[title]
    for inner in section.findall("section"):
        section.remove(inner)
    return section


OWN = {title: own(title) for title in reversed(SHARED)}


def test_the_page_has_the_sections_of_the_document():
    beside = {"NAME", "DESCRIPTION", "SEE ALSO"}
    assert [title for title in PAGE.sections if title not in beside] == list(TITLES)


def prose(element):
    """The text of an element without headings, tables and what stands letter by letter."""
    if element.tag in ("h1", "h2", "table", "pre"):
        return ""
    return squeezed("".join([element.text or "", *(prose(child) + (child.tail or "") for child in element)]))


def rows_of(markdown):
    rows = [[plain(cell) for cell in line.strip("|").split("|")] for line in markdown.splitlines() if line[:1] == "|"]
    return [row for row in rows if not set("".join(row)) <= set("- ")]


@pytest.mark.parametrize("title", SHARED)
def test_a_table_of_the_page_is_that_of_the_document(title):
    in_page = [row for table in PAGE.tables(title) for row in table]
    assert in_page == rows_of(SECTIONS[TITLES[title]])


@pytest.mark.parametrize("title", SHARED)
def test_the_bytes_of_the_page_are_those_of_the_document(title):
    in_page = [squeezed(line) for text in PAGE.literals(title) for line in text.splitlines()]
    assert in_page == [squeezed(line) for line in SECTIONS[TITLES[title]].splitlines() if line.startswith("    ")]


@pytest.mark.parametrize("title", SHARED)
def test_the_words_of_the_page_are_those_of_the_document(title):
    section = SECTIONS[TITLES[title]]
    words = [line.removeprefix("- ") for line in section.splitlines() if not line.startswith(("    ", "|"))]
    assert prose(OWN[title]) == plain("\n".join(words))


# The code.

def commands_in(path, pattern=r"\b(Cmd\w+) = (\d+)"):
    return {name: int(number) for name, number in re.findall(pattern, source(path))}


def test_the_commands_are_those_of_the_code():
    in_page = {row[1]: int(row[0]) for row in PAGE.tables("COMMANDS")[0][1:]}
    client = {**commands_in("src/platform/linux/base/ProprietarySocketCommon.h"),
              **commands_in("src/Hardware/UploadTypes.h")}
    assert in_page == client == commands_in("sim/Wire.h")
    assert [title for title in PAGE.sections if re.match(r"\d+ Cmd", title)] == [
        f"{number} {name}" for name, number in in_page.items()]


def test_the_modes_are_those_of_the_code():
    table = PAGE.tables("MODES AND STATES")[0]
    assert table[1:] == [*([str(number), name, shown] for number, (name, shown) in enumerate(MODES.items())),
                         ["other", "", "unknown"]]


def test_the_states_are_those_of_the_code():
    rows = [row for row in PAGE.tables("MODES AND STATES")[1][1:] if row[0].isdigit()]
    assert [row[:3] for row in rows] == [[str(number), STATES[number], shown] for number, shown in
                                         zip(sorted(STATES), STATE_TEXTS)]
    simulated = re.findall(r'StateName\{(\d+), "(\w+)"\}', source("sim/Status.h"))
    assert {int(number): name for number, name in simulated} == STATES


def test_the_busy_states_are_those_of_the_code():
    first, count = re.search(r"isBusyState\(std::uint32_t state\) \{ return state - (\w+) < (\d+); \}",
                             source("src/Hardware/UploadTypes.h")).groups()
    start = next(number for number, name in STATES.items() if name == first)
    busy = [int(row[0]) for row in PAGE.tables("MODES AND STATES")[1] if row[3] == "busy"]
    assert busy == list(range(start, start + int(count)))


def packets(title):
    """The packets whose bytes a section shows. What stands far to the right says what they mean."""
    found = []
    for line in "\n".join(PAGE.literals(title)).splitlines():
        data = bytes.fromhex(line.split("    ")[0])
        if line.startswith("00 00 00"):
            found.append(data)
        else:
            found[-1] += data
    return found


@pytest.mark.parametrize("title", [title for title in SHARED if re.match(r"\d+ Cmd", title)])
def test_the_bytes_are_packets_of_their_command(title):
    assert packets(title)
    for data in packets(title):
        assert struct.unpack(">IHH", data[:8]) == (len(data), int(title.split()[0]), 8)


def test_the_launch_command_is_that_of_the_code():
    begin, path = re.search(r'"(start-stop-daemon -n )" ?\) \+ kServerName \+ "( -a )"',
                            source("src/Hardware/ServerCommand.cpp")).groups()
    options = re.search(r'"( -S -- -q -i )".*"( -p )"', source("src/Hardware/ServerCommand.cpp")).groups()
    server = one(r'kServerName\[\] = "([^"]+)"', "src/Hardware/ServerCommand.h")
    root = one(r'kSystemRoot = "([^"]+)"', "src/AgApp/Directories.cpp")
    line = f"{begin}{server}{path}{root}/bin/{server}{options[0]}0{options[1]}{PORT}"
    assert line in PAGE.section("A RUN FROM START TO END")
