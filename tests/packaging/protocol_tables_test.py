"""Commands, modes, states, byte tables and limits are the same in the code, in the simulated server, in the pages and in
the Wireshark dissector. Each place is read by a function of its text; the last test shows that each is really read."""

import functools
import re
import tempfile

import pytest

from captures import INFO, PROGRAMMING, UPLOAD
from pages import table, tables
from pcap import Segment
from tshark import DISSECTOR, TREE, fields, places, values

LIBRARY = ["src/Hardware/UploadTypes.h", "src/platform/linux/base/ProprietarySocketCommon.h"]
NAMES = ["src/Hardware/UploadTypes.h", "src/Hardware/UploadNames.cpp"]
DISSECTOR_NAME = str(DISSECTOR.relative_to(TREE))
PAGE = "docs/protocol.md"
PAGES = [PAGE, "docs/man/dunmallow-protocol.7"]


def read(*paths):
    return "\n".join((TREE / path).read_text(encoding="utf-8") for path in paths)


def all_of(pattern, text):
    found = re.findall(pattern, text, re.M)
    assert found, pattern
    return found


# What each place says. All take the text of the place.

def commands_of_code(text):
    rows = all_of(r"\b(Cmd\w+) = (\d+)[;,]", text)
    assert [name for name, _ in rows] == all_of(r"\b(Cmd\w+) *[={]", text), "a command that is written in another way"
    return {int(number): name for name, number in rows}


def commands_of_simulator_log(text):
    """Each row names its constant and a text; both must be the same."""
    rows = all_of(r'CommandRow\{(\w+), "(\w+)"\}', text)
    numbers = {name: number for number, name in commands_of_code(read("sim/Wire.h")).items()}
    return {numbers[constant]: name for constant, name in rows}


def commands_of_page(text):
    return {int(number): name for number, name, *_ in table(text, "Commands", "command")}


def headings_of_page(text):
    headings = all_of(r'^(?:###|\.Ss) "?(\d+) `?(Cmd\w+)', text)
    return {int(number): name for number, name in headings}


def enumerators(text, name):
    rows = re.search(rf"enum {name} [^{{]*\{{([^}}]*?),?\s*\}}", text)[1].split(",")
    assert all(re.fullmatch(r"\s*\w+ = \d+", row) for row in rows), rows
    return {name: int(number) for name, number in (row.split(" = ") for row in map(str.strip, rows))}


def modes_of_code(text):
    """Number: name on the command line and on the screen."""
    rows = all_of(r'ModeRow\{(\w+), "([^"]*)", "([^"]*)"\}', text)
    numbers = enumerators(text, "TMode")
    assert len(rows) == len(numbers)
    return {numbers[constant]: (option, shown) for constant, option, shown in rows}


def modes_of_page(text):
    rows = table(text, "Modes and states", "mode")
    return {int(number): (option, shown) for number, option, shown in rows if number != "other"}


def states_of_code(text):
    """Number: name and text on the screen."""
    shown = dict(all_of(r'names\[(\w+)\] = "([^"]*)";', text))
    numbers = enumerators(text, "TState")
    assert shown.keys() == numbers.keys()
    return {number: (name, shown[name]) for name, number in numbers.items()}


def states_of_simulator(text):
    return {int(number): name for number, name in all_of(r'StateName\{(\d+), "(\w+)"\}', text)}


def states_of_page(text):
    rows = table(text, "Modes and states", "state")
    return {int(number): (name, shown) for number, name, shown, _ in rows if number.isdigit()}


@functools.cache
def value_names(text):
    with tempfile.NamedTemporaryFile("w", suffix=".lua", encoding="utf-8") as script:
        script.write(text)
        script.flush()
        return values(script.name)


def values_of_dissector(text, field):
    """The names for the values of a field, as tshark knows them once it has loaded a script with this text."""
    return {int(number): name for number, name in all_of(rf"^V\tdunmallow\.{field}\t(\d+)\t(.*)$", value_names(text))}


def commands_of_dissector(text):
    return values_of_dissector(text, "command")


def modes_of_dissector(text):
    return values_of_dissector(text, "mode")


def states_of_dissector(text):
    return values_of_dissector(text, "state")


def whole(rows):
    return rows


def names_of(rows):
    return {number: name for number, (name, _) in rows.items()}


def shown_of(rows):
    return {number: shown for number, (_, shown) in rows.items()}


PLACES = {
    # reader, files, what of the code's rows stands there, a text in the last file whose change must be noticed
    "commands": (commands_of_code, LIBRARY, [
        (commands_of_code, ["sim/Wire.h"], whole, "1003"),
        (commands_of_simulator_log, ["sim/Wire.cpp"], whole, '"CmdByte"'),
        (commands_of_dissector, [DISSECTOR_NAME], whole, '"CmdByte"'),
        *((commands_of_page, [page], whole, "1003") for page in PAGES),
        *((headings_of_page, [page], whole, "1003") for page in PAGES),
    ]),
    "modes": (modes_of_code, NAMES, [
        (modes_of_dissector, [DISSECTOR_NAME], shown_of, '"MT CAN"'),
        *((modes_of_page, [page], whole, "MT CAN") for page in PAGES),
    ]),
    "states": (states_of_code, NAMES, [
        (states_of_simulator, ["sim/Status.h"], names_of, "ErrHexFileOpen"),
        (states_of_dissector, [DISSECTOR_NAME], shown_of, "Erasing FLASH"),
        *((states_of_page, [page], whole, "Erasing FLASH") for page in PAGES),
    ]),
}
ROWS = [(what, *row) for what, (_, _, rows) in PLACES.items() for row in rows]
ROW_IDS = [f"{what}-{reader.__name__}-{files[-1]}" for what, reader, files, *_ in ROWS]


@pytest.mark.parametrize("what, reader, files, part, _", ROWS, ids=ROW_IDS)
def test_a_table_says_what_the_code_says(what, reader, files, part, _):
    reader_of_code, files_of_code, _ = PLACES[what]
    assert reader(read(*files)) == part(reader_of_code(read(*files_of_code)))


def changed(files):
    """The text of files with another number or another letter in each of the words of their rows."""
    text = read(*files)
    for word in {row[-1] for row in ROWS if row[2] == files}:
        assert word in text
        text = text.replace(word, word.replace("3", "4") if word.isdigit() else word.replace("A", "B").replace("e", "i"))
    return text


@pytest.mark.parametrize("_, reader, files, __, ___", ROWS, ids=ROW_IDS)
def test_a_change_of_a_table_is_noticed(_, reader, files, __, ___):
    try:
        noticed = reader(changed(files)) != reader(read(*files))
    except KeyError:  # a name that is nowhere declared
        noticed = True
    assert noticed


@pytest.mark.parametrize("what, old, new", [
    ("commands", "CmdByte = 1003;", "CmdByte{1003};"), ("modes", "Global = 3 }", "Global = 3, Other }"),
    ("states", "Format = 105\n", "Format = 105,\n    ErrOther\n"), ("states", "Idle = 1,", "Idle = 0x1,"),
])
def test_a_row_of_the_code_that_cannot_be_read_is_noticed(what, old, new):
    reader, files, _ = PLACES[what]
    text = read(*files)
    assert old in text
    with pytest.raises(AssertionError):
        reader(text.replace(old, new))


@pytest.mark.parametrize("what, old, new", [
    ("commands", "CmdByte = 1003", "CmdByte = 1013"), ("modes", "MTCAN = 1", "MTCAN = 9"), ("modes", '"MT CAN"', '"MTCAN"'),
    ("modes", '"MTCAN"', '"mtcan"'), ("states", "Erasing = 4", "Erasing = 7"), ("states", '"Erasing FLASH"', '"Erasing"'),
])
def test_a_change_of_the_code_is_noticed(what, old, new):
    reader, files, _ = PLACES[what]
    text = read(*files)
    assert old in text
    assert reader(text.replace(old, new)) != reader(text)


LIMITS = {
    "port": [
        ("src/app/FlasherOptions.h", r" port = (\w+);"), ("sim/CommandLine.h", r" port = (\w+);"),
        (DISSECTOR_NAME, r'Pref.range\("TCP ports", "(\w+)"'), *((page, r"-q -i 0 -p (\w+)") for page in PAGES),
    ],
    "serial number that is not known": [
        ("src/app/StatusBlock.cpp", r"kNoSerial = (\w+);"), (LIBRARY[0], r"; (0x\w+) and above: not known"),
        (DISSECTOR_NAME, r"SERIAL_NOT_KNOWN = (\w+)"),
        *((page, r"; (0x\w+) \(\d+\) and above: not known") for page in PAGES),
        *((page, r"; 0x\w+ \((\d+)\) and above: not known") for page in PAGES),
    ],
    "bytes of the header": [
        (LIBRARY[1], r"kHeaderBytes = (\w+);"), ("sim/Wire.h", r"kHeaderBytes = (\w+);"),
        (DISSECTOR_NAME, r"HEADER_BYTES = (\w+)"), *((page, r"these (\d+) header bytes") for page in PAGES),
        *((page, r"header bytes included; at least (\d+)") for page in PAGES),
    ],
    "bytes of a status": [
        ("src/Hardware/UploadPackets.cpp", r"kStatusBytes = (\w+);"),
        *((page, r"Fewer than (\d+) payload bytes: the packet is dropped") for page in PAGES),
        (DISSECTOR_NAME, r'"CmdStatus", needs = \{ server = (\w+)'),
    ],
    "bytes before the path": [
        ("src/Hardware/UploadPackets.cpp", r"kUploadFixedBytes = (\w+);"), ("sim/Wire.cpp", r"kUploadPathAt = (\w+);"),
    ],
}


@pytest.mark.parametrize("what", LIMITS)
def test_a_limit_is_the_same_everywhere(what):
    found = {(path, pattern): all_of(pattern, re.sub(r"\s+", " ", read(path))) for path, pattern in LIMITS[what]}
    assert len({int(number, 0) for numbers in found.values() for number in numbers}) == 1, found


@pytest.mark.parametrize("page", PAGES)
def test_the_longest_packet_is_an_upload_with_the_longest_path(page):
    text = re.sub(r"\s+", " ", read(page))
    [longer] = all_of(r"The payload is (\d+) bytes longer than the path", text)
    [[path, packet]] = all_of(r"with a path of (\d+) bytes: (\d+) bytes", text)
    [before] = all_of(r"kUploadFixedBytes = (\d+);", read("src/Hardware/UploadPackets.cpp"))
    assert int(longer) == int(before) + len("\0")
    assert int(packet) == 8 + int(path) + int(longer)


# What the pages say of bytes, and what the dissector does with them.

SENDERS = {"client to server, and back as the answer": "CS", "client to server": "C", "server to client": "S"}
FILTER_NAMES = {
    "process id": "process_id", "N1": "name_length", "application name": "name", "N2": "version_length",
    "N3": "version_label_length", "version label": "version_label", "device address": "address",
    "serial number": "serial", "payload offset": "payload_offset",
}


def filter_name(field):
    return FILTER_NAMES.get(field, field)


SAMPLES = {
    "CmdPing": ("C", "00 00 00 09 00 01 00 08 00"),
    "CmdConnectionInfo": ("S", INFO),
    "CmdStatus": ("S", PROGRAMMING),
    "CmdByte": ("C", "00 00 00 09 03 EB 00 08 5A"),
    "CmdUpload": ("C", UPLOAD),
}
SIZES = {"N1": 7, "N2": 3, "N3": 11, "path length": 11}  # in these samples


def byte_tables(text):
    """For each command that has one, the rows of its byte table: field, offset and bytes as they stand on the page."""
    return {heading.split()[1]: [(field, offset, size) for offset, size, field, *_ in rows]
            for heading, first, rows in tables(text) if first[:3] == ["payload offset", "bytes", "field"]}


def evaluated(expression):
    for name, size in SIZES.items():
        expression = expression.replace(name, str(size))
    return sum(int(number) for number in expression.split("+"))


@pytest.fixture(scope="module", name="dissected")
def fixture_dissected():
    found = places([Segment(sender, bytes.fromhex(data)) for sender, data in SAMPLES.values()])
    return dict(zip(SAMPLES, found))


@pytest.mark.parametrize("page", PAGES)
def test_fields_stand_where_the_page_says(page, dissected):
    pages = byte_tables(read(page))
    assert pages.keys() == SAMPLES.keys()
    header = [row[:3] for row in table(read(page), "Packets", "offset")][:-1]
    for command, rows in pages.items():
        expected = {filter_name(field): (int(offset), int(size)) for offset, size, field in header}
        expected |= {filter_name(field): (8 + evaluated(offset), evaluated(size)) for field, offset, size in rows}
        expected.pop("end", None)  # the NUL has no field of its own
        assert {name: place for name, (*place, _) in dissected[command].items()} == {
            name: [*place] for name, place in expected.items()}, command


def byte_orders(text):
    """Field and byte order of each number on the page of which the page tells the order."""
    for _, first, rows in tables(text):
        if "field" in first:
            for row in rows:
                yield from ((filter_name(row[2]), order) for order in re.findall("(big|little)-endian", " ".join(row)))


@pytest.mark.parametrize("page", PAGES)
def test_numbers_have_the_byte_order_that_the_page_says(page, dissected):
    orders = set(byte_orders(read(page)))
    assert sorted(name for name, _ in orders) == ["command", "length", "payload_offset", "process_id", "serial"]
    for name, order in orders:
        for command in [command for command in SAMPLES if name in dissected[command]]:
            start, size, shown = dissected[command][name]
            data = bytes.fromhex(SAMPLES[command][1])[start:start + size]
            assert int(shown) == int.from_bytes(data, order), (command, name)


def needs_of_page(text):
    """For each command the sides that may send it, and how many bytes of payload it has to have."""
    for number, name, direction, payload in table(text, "Commands", "command"):
        found = re.match(r"(\d+) byte", payload)
        fixed = int(byte_tables(text)[name][0][2]) if payload == "who the server is" else 0
        yield int(number), SENDERS[direction], int(found[1]) if found else fixed


def test_sender_and_size_are_checked_as_the_pages_say():
    needs, of_manual_page = ([*needs_of_page(read(page))] for page in PAGES)
    assert needs == of_manual_page
    segments, expected = [], []
    for command, senders, needed in needs:
        for sender in "CS":
            for size in range(11):
                header = bytes([0, 0, 0, 8 + size, command >> 8, command & 255, 0, 8])
                segments.append(Segment(sender, header + bytes(size)))
                # The answer to a ping may be anything.
                short = sender in senders and size < needed and (command, sender) != (1, "S")
                expected.append([str(command), "1" * short, "1" * (sender not in senders)])
    assert len(segments) == 7 * 2 * 11
    assert fields(segments, "dunmallow.command", "dunmallow.short_payload", "dunmallow.wrong_sender") == expected


def test_the_manual_page_has_the_tables_of_the_page():
    """But for the one about Wireshark, which is for people with the sources at hand."""
    for page in PAGES:
        assert protocol_tables(page) == protocol_tables(PAGE)


def protocol_tables(page):
    return [(first, rows) for _, first, rows in tables(read(page)) if first[0] != "filter"]
