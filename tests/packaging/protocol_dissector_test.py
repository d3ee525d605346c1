"""What the Wireshark dissector makes of captures. Called as a program it writes the texts in captures/ anew; read them."""

import itertools
import pathlib
import re
import shutil
import subprocess
import sys

import pytest

from captures import CAPTURES, FIRST_CLIENT_PORT, IDLE, INFO, PROGRAMMING, REQUEST, RESET, UPLOAD, all_segments
from pcap import Segment, pcap
from tshark import DISSECTOR, PROTOCOL, TREE, dissect, environment, fields, tshark

GOLDEN = pathlib.Path(__file__).parent / "captures"
CLIENT_STREAM = bytes.fromhex(f"{REQUEST} {RESET} {UPLOAD} 00 00 00 09 00 01 00 08 00 00 00 00 09 03 EB 00 08 5A")
LATER_PAYLOAD = "00 00 00 14 03 E8 00 0C EE EE EE EE 01 05 32 2A 39 30 00 00"
SERVER_STREAM = bytes.fromhex(f"{INFO} {IDLE} {PROGRAMMING} {LATER_PAYLOAD}")


def texts():
    """The text of each capture, from one run of tshark for all of them."""
    named = all_segments()
    blocks = {name: [f"{name}: {why}"] for name, (why, _) in CAPTURES.items()}
    for (name, segment), (info, lines) in zip(named, dissect([segment for _, segment in named])):
        blocks[name] += ["", f"{segment.sender} {info if lines else '-'}", *("    " + line for line in lines)]
    return {name: "\n".join(lines) + "\n" for name, lines in blocks.items()}


@pytest.fixture(scope="module", name="dissected")
def fixture_dissected():
    return texts()


@pytest.mark.parametrize("name", CAPTURES)
def test_a_capture_reads_as_written_down(dissected, name):
    assert dissected[name] == (GOLDEN / f"{name}.txt").read_text(encoding="utf-8")


def test_each_text_has_its_capture():
    assert {path.stem for path in GOLDEN.iterdir()} == set(CAPTURES)


def test_the_captures_can_be_had_as_files(tmp_path):
    script = pathlib.Path(__file__).with_name("captures.py")
    subprocess.run([sys.executable, script, tmp_path], check=True, timeout=120)
    assert {path.name for path in tmp_path.iterdir()} == {f"{name}.pcap" for name in CAPTURES}
    written = (tmp_path / "joined.pcap").read_bytes()
    assert written[:4] == bytes.fromhex("D4 C3 B2 A1") and bytes.fromhex(f"{RESET} {UPLOAD}") in written


@pytest.mark.parametrize("sender, stream, packets", [("C", CLIENT_STREAM, 5), ("S", SERVER_STREAM, 4)],
                         ids=["client", "server"])
def test_the_borders_of_segments_change_nothing(sender, stream, packets):
    """Split in two at every byte, and every byte alone. The clients' ports lie below and above the server's."""
    cuts = [[], *([cut] for cut in range(1, len(stream))), list(range(1, len(stream)))]
    ports = [41230 + number + (number >= 35) for number in range(len(cuts))]
    pieces = []
    for port, cut in zip(ports, cuts):
        ends = zip([0, *cut], [*cut, len(stream)])
        pieces += [Segment(sender, stream[start:end], port) for start, end in ends]
    dissected = {port: [] for port in ports}
    for piece, (_, lines) in zip(pieces, dissect(pieces)):
        dissected[piece.client_port] += lines
    whole = dissected[ports[0]]
    assert sum(line.startswith(PROTOCOL) for line in whole) == packets
    for port, cut in zip(ports, cuts):
        assert dissected[port] == whole, cut


def test_no_flipped_bit_and_no_cut_is_too_much():
    """What the dissector says of them stands in the other tests; here it has to say something, and not to fail."""
    segments, ports = [], itertools.count(42000)  # above the server's: the lower port decides first, many have a protocol
    for sender, packet in (("C", UPLOAD), ("S", INFO), ("S", PROGRAMMING), ("S", LATER_PAYLOAD)):
        data = bytes.fromhex(packet)
        for bit in range(8 * len(data)):
            flipped = bytearray(data)
            flipped[bit // 8] ^= 1 << bit % 8
            segments.append(Segment(sender, bytes(flipped), next(ports)))
        for size in range(8, len(data)):
            segments.append(Segment(sender, bytes([0, 0, 0, size]) + data[4:size], next(ports)))
        for size in range(len(data)):
            segments.append(Segment(sender, data, next(ports), kept_bytes=size))
    assert tshark(segments, "-O", "dunmallow").count(f"\n{PROTOCOL}") > len(segments) // 2


def test_a_packet_of_the_longest_length_is_waited_for():
    report = bytes.fromhex("00 10 00 00 03 E8 00 08 01 05 32 2A 39 30 00 00")
    parts = [Segment("S", part) for part in (report, *[bytes(65000)] * 16, bytes(1048576 - 16 - 16 * 65000))]
    read = fields(parts, "dunmallow.length", "dunmallow.state")
    assert read == [["", ""]] * 17 + [["1048576", "5"]]


SETTINGS = {
    # options, what is seen on the ports 41265, 5000, 6005
    "the_port_that_the_flasher_takes": ((), ["1001", "", ""]),
    "other_ports": (("-o", "dunmallow.ports:5000,6000-6010"), ["", "1001", "1001"]),
    "no_port_but_decode_as": (("-o", "dunmallow.ports:", "-d", "tcp.port==5000,dunmallow"), ["", "1001", ""]),
    "decode_as": (("-d", "tcp.port==5000,dunmallow"), ["1001", "1001", ""]),
}


@pytest.mark.parametrize("why", SETTINGS)
def test_the_ports_can_be_chosen(why):
    options, seen = SETTINGS[why]
    request = bytes.fromhex(REQUEST)
    segments = [Segment("C", request, FIRST_CLIENT_PORT, port) for port in (41265, 5000, 6005)]
    read = fields(segments, "dunmallow.command", "dunmallow.wrong_sender", options=options)
    assert read == [[command, ""] for command in seen]


def test_the_longest_length_can_be_chosen():
    read = fields([Segment("C", bytes.fromhex(UPLOAD))], "dunmallow.too_long", "dunmallow.path",
                  options=("-o", "dunmallow.longest:25"))
    assert read == [["1", ""]]


def test_without_reassembly_the_beginning_is_shown():
    upload = bytes.fromhex(UPLOAD)
    read = fields([Segment("C", upload[:14]), Segment("S", bytes.fromhex(IDLE))],
                  "dunmallow.length", "dunmallow.serial", "dunmallow.path", "_ws.expert.message",
                  options=("-o", "tcp.desegment_tcp_streams:FALSE"))
    assert read == [["26", "12345", "", "The packet is not whole in this capture"], ["16", "4294967295", "", ""]]


def test_what_tcp_repeats_is_no_packet_and_what_is_lost_hides_none():
    request, upload = bytes.fromhex(REQUEST), bytes.fromhex(UPLOAD)
    segments = [
        Segment("C", request), Segment("C", request, again=True),
        Segment("C", upload[:12]), Segment("C", upload[:12], again=True),
        Segment("C", upload[12:]), Segment("C", upload[12:], again=True),
        Segment("C", upload, lost=True), Segment("C", request),
        Segment("C", upload[:12]), Segment("C", upload[12:], lost=True), Segment("C", request),
        Segment("C", upload[:12], lost=True), Segment("C", upload[12:]), Segment("C", request),
    ]
    read = fields(segments, "dunmallow.command", "_ws.col.Info")
    summary = "CmdUpload: MT CAN, address 42, serial 12345, /tmp/fw.hex"
    before = "[TCP Previous segment not captured] "
    assert [row if row[0] else row[0] for row in read] == [
        ["1001", "CmdStatusRequest"], "", "", "", ["1004", summary], "", ["1001", before + "CmdStatusRequest"],
        "", ["1001", before + "CmdStatusRequest"], "", ["1001", "CmdStatusRequest"]]


def test_fields_can_be_filtered_for():
    segments = [Segment(sender, bytes.fromhex(data)) for sender, data in (("C", UPLOAD), ("S", IDLE), ("S", PROGRAMMING))]
    read = fields(segments, "dunmallow.serial", "dunmallow.path", "dunmallow.state", "_ws.col.Protocol")
    assert read == [["12345", "/tmp/fw.hex", "", "DUNMALLOW"], ["4294967295", "", "1", "DUNMALLOW"],
                    ["12345", "", "5", "DUNMALLOW"]]


PAGE = (TREE / "docs" / "protocol.md").read_text(encoding="utf-8")
COMMANDS = [line.strip() for line in PAGE.splitlines() if re.match(r"    tshark .* -r upload.pcapng$", line)]
FILTERS = re.findall(r"^\| `([^`]+)` \|", PAGE[PAGE.index("| filter |"):], re.M)


def test_the_page_has_commands_and_filters():
    assert (len(COMMANDS), len(FILTERS)) == (1, 5)


@pytest.fixture(name="shown")
def fixture_shown(tmp_path):
    """The numbers of the segments that a command shows of upload.pcapng; it runs in a folder like that of the sources."""
    reports = [IDLE, PROGRAMMING, "00 00 00 10 03 E8 00 08 01 64 00 2A 39 30 00 00", "00 00 00 08 03 E8 00 08"]
    segments = [Segment("C", bytes.fromhex(UPLOAD)), *(Segment("S", bytes.fromhex(report)) for report in reports)]
    (tmp_path / "upload.pcapng").write_bytes(pcap(segments))
    (tmp_path / "packaging").symlink_to(TREE / "packaging")

    def show(command):
        done = subprocess.run(command, shell=True, cwd=tmp_path, env=environment(tmp_path), capture_output=True, text=True,
                              timeout=120, check=True)
        return [line.split()[0] for line in done.stdout.splitlines()]

    return show


@pytest.mark.parametrize("command", [*COMMANDS, *(f"{COMMANDS[0]} -Y '{wanted}'" for wanted in FILTERS)])
def test_what_the_page_tells_to_type_works(command, shown):
    expected = {"dunmallow.command == 1004": ["1"], "dunmallow.state >= 100": ["4"],
                "dunmallow.serial == 12345": ["1", "3", "4"], "_ws.expert && dunmallow": ["5"]}
    assert shown(command) == expected.get(command.split("'")[-2] if "'" in command else "", ["1", "2", "3", "4", "5"])


def test_a_copy_among_the_plugins_is_loaded(shown, tmp_path):
    [folder] = re.findall(r"A copy of the file in `~/([^`]+)` is loaded", PAGE)
    (tmp_path / folder).mkdir(parents=True)
    shutil.copy(DISSECTOR, tmp_path / folder)
    assert shown("tshark -Y dunmallow.path -r upload.pcapng") == ["1"]


if __name__ == "__main__":
    for file_name, text in texts().items():
        (GOLDEN / f"{file_name}.txt").write_text(text, encoding="utf-8")
