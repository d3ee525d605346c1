"""More than 300 command lines that nobody should type, through the real program: texts and exit statuses of all."""

import concurrent.futures
import dataclasses
import os
import pathlib
import string
import subprocess

import pytest

from harness import SANITIZERS, selected_rows
from test_command_line import VERSION, usage

KNOWN = "hvumanpsi?"
WITH_ARGUMENT = "umanpsi"
LONG = "a" * 5000


@dataclasses.dataclass
class Row:
    arguments: list
    status: int
    output: str = ""
    settings: dict = None  # the usage text shows these; None: no usage text
    errors: str = None  # instead of the usage text
    environment: dict = dataclasses.field(default_factory=dict)
    name: object = None  # argv[0], None: the path
    shell: str = ""  # redirections
    shown: bool = True  # False: what is printed goes nowhere


def port_errors(text):
    return f"Invalid port number: {text}\nValid range        : [2000..65535]{text}\n"


def unknown_options():
    for letter in string.punctuation + string.ascii_letters + string.digits:
        if letter not in KNOWN + "-":
            yield f"unknown option {letter}", Row(["-" + letter], 1, settings={})
    for letter in ["\x01", "\x1b", "\x7f", " ", "\n", "\t", "é", "\udcff"]:
        yield f"unknown option {letter!r}", Row(["-" + letter], 1, settings={})
    for text in ["--help", "--version", "--upload=x.hex", "---", "--u", "--p=80", "-?h", "-x-h"]:
        yield f"long option {text}", Row([text], 1, settings={})
    yield "cluster with help first", Row(["-help"], 0, settings={})
    yield "cluster that prints the version first", Row(["-version"], 1, VERSION, settings={})
    yield "help ends before the unknown option", Row(["-hx"], 0, settings={})


def missing_arguments():
    for letter in WITH_ARGUMENT:
        yield f"-{letter} alone", Row(["-" + letter], 1, settings={})
        yield f"-{letter} behind the version", Row(["-v" + letter], 1, VERSION, settings={})
        yield f"-{letter} behind a number", Row(["-n", "5", "-" + letter], 1, settings={"serial": "5"})
        yield f"-{letter} swallows the next option", Row(["-" + letter, "-p80x", "-p", "81"], 1, errors=port_errors("81")) \
            if letter != "p" else Row(["-p", "-v"], 1, errors=port_errors("-v"))


BAD_PORTS = [
    "0", "1", "80", "1999", "65536", "65537", "99999", "-1", "-2000", "-65535", "+1999", "2000000", "4294967296",
    "4294969296", "18446744073709551616", "18446744073709553616", "9223372036854775807", "-9223372036854775808",
    "-9223372036854775809", "2147483648", "-2147483648", "0x7d0", "0X7D0", "1e4", "1,999", " ", "", " 1999", "\t80", "port",
    "http", "²⁰⁰⁰", "٢٠٠٠", "2 000", "1_999", "1999.9", "-0", "--2000", "+-2000", "- 2000", "%d", "%s%s%s%n", "$PORT",
    "`id`", ";id", "\n", "80\n", "80\r\n2000", "9" * 1000, "-" + "9" * 1000, "\udcff\udcfe", "NaN", "inf", "0b11", "1'999",
    "\x1b[2J", "'", '"', "\\", "*", "~", "../2000", LONG,
]


def bad_ports():
    for number, text in enumerate(BAD_PORTS):
        yield f"port {number} {ascii(text)[:30]}", Row(["-p", text], 1, errors=port_errors(text))
    for text in ["80", "65536", "-1", "x", "=2000", ":2000", " ", "1999 2000", "\udcff"]:
        yield f"attached port {text!r}", Row(["-p" + text], 1, errors=port_errors(text))
    yield "a good port does not help a bad one", Row(["-p", "2000", "-p", "80"], 1, errors=port_errors("80"))
    yield "a bad port ends before a good one", Row(["-p", "80", "-p", "2000"], 1, errors=port_errors("80"))
    yield "a bad port behind the version", Row(["-v", "-p", "80"], 1, VERSION, errors=port_errors("80"))
    yield "a bad port behind a hex file", Row(["-u", "x.hex", "-p", "80"], 1, errors=port_errors("80"))


NUMBERS = {
    "a": ("address", {
        "": "0", "0x": "0", "0xg": "0", "0xFFFFFFFFFF": "ffffffff", "0x-1": "ffffffff", "0x 1F": "1f", "0x0x1F": "1f",
        "0x1Fz": "1f", "99999999999": "7fffffff", "-99999999999": "80000000", "2147483648": "7fffffff", "abc": "0",
        "1f": "1", " 31": "1f", "+31": "1f", "253.9": "fd", "0x80000000": "80000000", "1e9": "1", "0X1F": "0", "-0x1F": "0",
        "%x": "0", "\udcff": "0", "9" * 500: "7fffffff", "0x" + "f" * 500: "ffffffff",
    }),
    "n": ("serial", {
        "-1": "4294967295", "4294967295": "4294967295", "4294967296": "4294967295", "99999999999999999999": "4294967295",
        "-2147483648": "2147483648", "-99999999999": "2147483648", "x": "0", "": "0", "12 34": "12", "0x10": "0",
        "1e9": "1", "- 1": "0", "+7": "7", "\n8": "8", "9" * 500: "4294967295", "3.99": "3",
    }),
    "i": ("interface", {
        "99999999999": "2147483647", "-99999999999": "-2147483648", "": "0", "x": "0", "CAN1": "0", "1;id": "1", "0x1": "0",
        " -2": "-2", "1 2": "1", "9" * 500: "2147483647",
    }),
    "p": ("port", {"2000.5": "2000", "+2000": "2000", " 65535": "65535", "65535x": "65535", "002000": "2000"}),
}


def odd_numbers():
    for letter, (setting, values) in NUMBERS.items():
        for text, shown in values.items():
            yield f"-{letter} {ascii(text)[:30]}", Row(["-" + letter, text, "-h"], 0, settings={setting: shown})


def odd_texts():
    for text in ["", "isostyle", "ISOSTYLE", " MTCAN", "MTCAN ", "MTCAN\n", "Global2", "New Module", "NewModul", "4", "-1", LONG]:
        yield f"mode {text[:30]!r}", Row(["-m", text, "-h"], 0, settings={})
    for letter, setting in (("u", "hexfile"), ("s", "host")):
        for text in ["", "%s%n%s%n", "a\nb", "\udcff\udc80", "\x1b[31m", "it's", "a b", "$(id)", LONG, "-h"]:
            yield f"-{letter} {ascii(text)[:30]}", Row(["-" + letter, text, "-h"], 0, settings={setting: text})
    yield "an unknown option behind a hex file", Row(["-u", "x.hex", "-x"], 1, settings={"hexfile": "x.hex"})
    yield "an attached hex file", Row(["-ux.hex", "-?"], 1, settings={"hexfile": "x.hex"})
    yield "the last of two hex files", Row(["-ua", "-ub", "-h"], 0, settings={"hexfile": "b"})


def operands():
    for arguments in (["x"], ["x", "y"], ["-"], ["--"], ["--", "-h"], ["--", "-x"], [""], ["", ""], ["x", "--", "-p", "80"], ["=", "-a", "1"]):
        yield f"operands {arguments}", Row(arguments, 0)
    yield "help behind an operand", Row(["x", "-h"], 0, settings={})
    yield "unknown option behind an operand", Row(["x", "-x"], 1, settings={})
    yield "bad port behind an operand", Row(["x", "-p", "80"], 1, errors=port_errors("80"))
    yield "POSIX order", Row(["x", "-h"], 0, environment={"POSIXLY_CORRECT": "1"})


def floods():
    yield "500 versions", Row(["-v"] * 500, 0, VERSION * 500)
    yield "1000 versions in one word", Row(["-" + "v" * 1000], 0, VERSION * 1000)
    yield "20000 operands", Row(["x"] * 20000, 0)
    yield "20000 settings", Row(["-a1"] * 20000 + ["-h"], 0, settings={"address": "1"})
    yield "the longest argument", Row(["-p", "8" * 131000], 1, errors=port_errors("8" * 131000))
    yield "a host of 130000 letters", Row(["-s", "h" * 130000, "-h"], 0, settings={"host": "h" * 130000})


def surroundings():
    for name in ["", " ", "-h", "%s%n", "a\nb", "\x1b[2J", "\udcff", LONG]:
        yield f"called {ascii(name)[:20]}", Row(["-h"], 0, settings={}, name=name)
    for shell in ["<&-", ">&-", "2>&-", "<&- >&- 2>&-", ">/dev/full", "2>/dev/full", "<&- >&-", ">/dev/full 2>/dev/full"]:
        yield f"-v -h with {shell}", Row(["-v", "-h"], 0, shell=shell, shown=False)
        yield f"-v -p 80 with {shell}", Row(["-v", "-p", "80"], 1, shell=shell, shown=False)
    for name, environment in {
        "no home": {"HOME": None}, "an empty home": {"HOME": ""}, "a locale with other numbers": {"LC_ALL": "de_DE.UTF-8"},
        "an unknown locale": {"LC_ALL": "xx"}, "no search path": {"PATH": None}, "a huge variable": {"HOME": "h" * 100000},
        "a home of another": {"HOME": "/nobody/here"},
    }.items():
        yield name, Row(["-v", "-n", "1234567", "-h"], 0, VERSION, settings={"serial": "1234567"}, environment=environment)


ROWS = {
    name: row
    for family in (unknown_options, missing_arguments, bad_ports, odd_numbers, odd_texts, operands, floods, surroundings)
    for name, row in family()
}


def run(program, row, base, folder):
    name = program if row.name is None else row.name
    command = [name, *row.arguments]
    executable = program
    if row.shell:
        command, executable = ["sh", "-c", f'exec "$@" {row.shell}', "sh", *[program, *row.arguments]], "/bin/sh"
    environment = {key: value for key, value in {**base, **row.environment}.items() if value is not None}
    return subprocess.run(
        list(map(os.fsencode, command)), executable=executable, env=environment, cwd=folder, stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60, check=False,
    )


@pytest.fixture(scope="module")
def results(request, tmp_path_factory):
    """All selected rows, run a few at a time before the first is looked at."""
    folder = tmp_path_factory.mktemp("nowhere")
    tool = folder / "start-stop-daemon"
    tool.write_text(f'#!/bin/sh\necho started >"{folder}/started"\nexit 1\n')
    tool.chmod(0o755)
    program = str(pathlib.Path(request.config.getoption("--build"), "bin", "dunmallow").resolve())
    base = {"HOME": str(folder), "PATH": f"{folder}:/usr/bin:/bin", **SANITIZERS}
    with concurrent.futures.ThreadPoolExecutor(2 * os.cpu_count()) as pool:
        runs = {name: pool.submit(run, program, ROWS[name], base, folder) for name in selected_rows(request)}
    return program, folder, {name: future.result() for name, future in runs.items()}


def test_there_are_enough_of_them():
    assert len(ROWS) >= 300


@pytest.mark.parametrize("name", ROWS)
def test_a_bad_command_line(results, name):
    program, _, finished = results
    row, result = ROWS[name], finished[name]
    assert result.returncode == row.status
    if not row.shown:
        return
    errors = row.errors or ""
    if row.settings is not None:
        errors = usage(program if row.name is None else row.name, **row.settings)
    assert result.stderr == os.fsencode(errors)
    assert result.stdout == row.output.encode()


def test_none_of_them_starts_a_server(results):
    _, folder, _ = results
    assert not (folder / "started").exists()
