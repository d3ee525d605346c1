"""Runs tshark with the dissector on a capture."""

import contextlib
import os
import pathlib
import re
import subprocess
import tempfile
import xml.etree.ElementTree

from pcap import pcap

TREE = pathlib.Path(__file__).resolve().parents[2]
DISSECTOR = TREE / "packaging" / "wireshark" / "dunmallow.lua"
PROTOCOL = "CAN Flasher Protocol"


def environment(home):
    """Settings and plugins come from this home folder alone."""
    others = {name: value for name, value in os.environ.items() if not name.startswith(("WIRESHARK_", "XDG_"))}
    return {**others, "HOME": str(home), "LC_ALL": "C.UTF-8"}


@contextlib.contextmanager
def started(arguments, script=DISSECTOR):
    """tshark with the dissector, and with nobody's own settings and plugins. It must end well, with nothing to say."""
    with tempfile.TemporaryDirectory() as home, tempfile.TemporaryFile() as errors:
        command = ["tshark", *arguments, "-X", f"lua_script:{script}"]
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=errors, env=environment(home)) as process:
            yield process.stdout
        errors.seek(0)
        said = [line for line in errors.read().decode().splitlines() if not line.startswith("Running as user")]
        assert (process.returncode, said) == (0, [])


def tshark(segments, *arguments):
    """What tshark prints about a capture of these segments."""
    with tempfile.NamedTemporaryFile(suffix=".pcap") as file:
        file.write(pcap(segments))
        file.flush()
        with started(["-n", "-r", file.name, *arguments]) as output:
            text = output.read().decode(errors="replace")
    errors = re.findall(r".*(?:Lua Error|Malformed Packet|Dissector bug).*", text)
    assert not errors, errors
    return text


def values(script):
    """The protocol's lines in the list of all names of values, which is long."""
    with started(["-G", "values"], script) as output:
        return b"".join(line for line in output if b"\tdunmallow." in line).decode()


def fields(segments, *names, options=()):
    """One list of the values of fields for each captured segment; several values of one field are separated by commas."""
    wanted = [word for name in names for word in ("-e", name)]
    lines = tshark(segments, *options, "-T", "fields", *wanted).split("\n")[:-1]
    assert len(lines) == sum(not segment.lost for segment in segments), lines
    return [line.split("\t") for line in lines]


def places(segments):
    """Offset in the packet, number of bytes and value of each of the protocol's fields, for each segment with one packet."""
    for frame in xml.etree.ElementTree.fromstring(tshark(segments, "-T", "pdml")).iter("packet"):
        packet = frame.find("proto[@name='dunmallow']")
        start = int(packet.get("pos"))
        yield {field.get("name").removeprefix("dunmallow."): (int(field.get("pos")) - start, int(field.get("size")), field.get("show"))
               for field in packet.iter("field")}


def dissect(segments):
    """The Info column and the lines of the protocol's own tree for each segment, of expert information one line each."""
    text = tshark(segments, "-o", 'gui.column.format:"Info","%i"', "-P", "-O", "dunmallow")
    frames = re.findall(r"^(.*)\nFrame \d+:.*\n((?:.+\n)*)", text, re.M)
    assert len(frames) == len(segments), text
    return [(info.strip(), _own_lines(details)) for info, details in frames]


def _own_lines(details):
    own, lines = False, []
    expert = None  # its column, while what comes below repeats it
    for line in details.splitlines():
        indent = len(line) - len(line.lstrip())
        if indent == 0:
            own = line.startswith(PROTOCOL)
        if own and (expert is None or indent <= expert):
            lines.append(line)
            expert = indent if "[Expert Info (" in line else None
    return lines
