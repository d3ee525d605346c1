"""What the sources, the pages and the programs say, for tests that compare them."""

import html.parser
import os
import pathlib
import re
import subprocess

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
PROGRAMS = pathlib.Path(os.environ.get("DUNMALLOW_PROGRAMS", REPOSITORY / "build/native/bin"))


def source(path):
    return (REPOSITORY / path).read_text()


def one(pattern, path):
    """What the group of the pattern holds at its only place in a file."""
    [found] = re.findall(pattern, source(path), re.DOTALL)
    return found


# Options of the flasher, and whether each takes a value.
GETOPT = one(r'getopt\(argc, argv, "([^"]*)"\)', "src/app/OptionParser.cpp")
OPTIONS = {letter: colon == ":" for letter, colon in re.findall(r"([^:])(:?)", GETOPT)}
# Modes: name on the command line to name on the screen, in order of their numbers.
MODES = dict(re.findall(r'ModeRow\{\w+, "(\w+)", "([\w ]+)"\}', source("src/Hardware/UploadNames.cpp")))
PORT = one(r"port = (\d+);", "src/app/FlasherOptions.h")
