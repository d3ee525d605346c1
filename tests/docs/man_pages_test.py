"""The man page of the flasher against the program and the texts of its sources; and mandoc's opinion of all pages."""

import os
import pathlib
import re
import signal
import socket
import stat
import string
import subprocess
import time

import pytest

from sources import (MODES, OPTIONS, PROGRAMS, REPOSITORY, STATE_TEXTS, VARIES, Page, one, source, squeezed,
                     without_names)

PAGES = sorted(path.name for path in (REPOSITORY / "docs/man").iterdir())
FLASHER = Page("dunmallow.1")
DEADLINE = 60.0  # seconds; only a failing test waits this long


def flasher(*arguments, **how):
    return subprocess.run([PROGRAMS / "dunmallow", *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          text=True, timeout=DEADLINE, check=False, **how)


@pytest.mark.parametrize("name", PAGES)
def test_mandoc_has_nothing_to_say(name):
    said = subprocess.run(["mandoc", "-T", "lint", name], cwd=REPOSITORY / "docs/man", stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
    assert said.stdout == "" and said.returncode == 0


# The command line.

OPTION_ENTRIES = {terms[0][1]: (without_names(terms[0])[2:] != "", terms[0], text)
                  for terms, text in FLASHER.definitions("OPTIONS")}


def test_the_options_are_those_of_the_parser():
    assert {letter: valued for letter, (valued, _, _) in OPTION_ENTRIES.items()} == OPTIONS


def test_the_synopsis_has_every_option():
    assert set(re.findall(r"-([a-z?])", FLASHER.section("SYNOPSIS"))) == set(OPTIONS)


def test_the_program_takes_no_other_option():
    taken = {letter for letter in string.ascii_letters + string.digits
             if flasher(f"-{letter}", "9999", "-h").returncode == 0}
    assert taken == set(OPTIONS) - {"?"}


USAGE = flasher("-h").stderr


def test_the_values_have_the_names_of_the_usage_text():
    in_usage = {letter: name.replace(" ", "") for letter, name in re.findall(r"^   -(\w)\[([^]]*)\]", USAGE, re.M)}
    in_page = {letter: term[3:].strip(VARIES) for letter, (valued, term, _) in OPTION_ENTRIES.items() if valued}
    assert in_page == in_usage


def test_the_defaults_are_those_of_the_usage_text():
    defaults = {name.replace(" ", ""): value.strip("'").removeprefix("CAN") for name, value in
                re.findall(r"^   (\w+(?: \w+)?) +(\S+)$", USAGE.split("Default values:")[1], re.M)}
    assert defaults.pop("hexfile") == "Null"
    for valued, term, text in OPTION_ENTRIES.values():
        if valued and term[3:].strip(VARIES) != "hexfile":
            name = term[3:].strip(VARIES)
            assert re.search(rf"Default: {re.escape(defaults[name])}[.,]", text), name


def test_the_modes_are_those_of_the_program():
    [table] = FLASHER.tables("OPTIONS")
    assert dict(table[1:]) == MODES


def test_the_bounds_are_those_of_the_program():
    lowest, highest = re.search(r"\[(\d+)\.\.(\d+)\]", flasher("-p", "1").stderr).groups()
    assert f"{lowest} to {highest}" in OPTION_ENTRIES["p"][2]
    address = one(r"kHighestDeviceAddress = (\d+)", "src/Hardware/UploadTypes.h")
    assert f"0 to {address}." in OPTION_ENTRIES["a"][2]
    serial = re.search(r"serialnum +(\d+)", flasher("-n", "99999999999", "-h").stderr)[1]
    assert f"0 to {serial}." in OPTION_ENTRIES["n"][2]


def test_the_first_serial_number_that_is_not_shown():
    first = int(one(r"kNoSerial = (0x\w+);", "src/app/StatusBlock.cpp"), 16)
    assert f"any from {first} on, is shown as" in FLASHER.section("DESCRIPTION")


# What the page says of a command line: the words, what the usage text shows for them, and the sentence.
READ = {
    "a value in the word of its option": (["-ufw.hex", "-h"], "hexfile         'fw.hex'", "or without one"),
    "a flag in the word of an option": (["-vu", "fw.hex", "-h"], "hexfile         'fw.hex'", "may share a word"),
    "twice": (["-p", "2000", "-p", "3000", "-h"], "portnum         3000", "A later option overrides an earlier one."),
    "an operand": (["x", "-i", "1", "-h"], "interface       CAN1", "Operands are ignored"),
    "a tail": (["-p", "3000x", "-h"], "portnum         3000", "end at the first character that does not belong"),
    "no digits": (["-n", "x", "-h"], "serialnum       0", "without digits they are 0"),
    "too large": (["-n", "99999999999", "-h"], "serialnum       4294967295", "the largest that fits"),
    "too large with a sign": (["-i", "99999999999", "-h"], "interface       CAN2147483647", "the largest that fits"),
    "a mode of the wrong case": (["-m", "mtcan", "-h"], "mode            'ISOStyle'", "exactly as written here"),
    "a capital X": (["-a", "0X10", "-h"], "address         0x0", "with a small x"),
}


@pytest.mark.parametrize("why", READ)
def test_a_command_line_is_read_as_the_page_says(why):
    arguments, shown, sentence = READ[why]
    assert f"   {shown}" in flasher(*arguments).stderr.splitlines()
    assert sentence in FLASHER.section("OPTIONS")


def test_what_ends_the_options():
    assert "as is all behind ‘--’." in FLASHER.section("OPTIONS")
    assert flasher("--", "-h").stderr == ""
    assert flasher("x", "-h").stderr == USAGE
    assert flasher("x", "-h", env={"POSIXLY_CORRECT": "1"}).stderr == ""


@pytest.mark.parametrize("line", [squeezed(text) for text in FLASHER.literals("EXAMPLES")])
def test_an_example_is_understood(line):
    program, *arguments = line.split()
    run = flasher(*arguments, "-h")
    assert program == "dunmallow" and run.returncode == 0
    if "-m MTCAN" in line:
        assert "mode            'MTCAN'" in run.stderr and "address         0x2a" in run.stderr


# The status block.

def test_the_block_has_the_lines_of_the_program():
    labels = re.findall(r'"(\w[\w ]*:|    \w+ +)"', source("src/app/StatusBlock.cpp"))
    lines = FLASHER.literals("DESCRIPTION")[0].splitlines()
    assert len(labels) == len(lines)
    assert all(line.startswith(label) for label, line in zip(labels, lines))


STATE_LINES = FLASHER.definitions("The state line")


def test_the_states_are_those_of_the_program():
    assert [terms for terms, _ in STATE_LINES] == [[text] for text in [*STATE_TEXTS, "unknown"]]


def test_the_final_states_are_those_that_end_the_program():
    page = source("docs/protocol.md")
    final = set(re.findall(r"^\| \d+ \| `\w+` \| `([^`]+)` \| final \|$", page, re.M))
    assert final and {terms[0] for terms, text in STATE_LINES if text.startswith("Final.")} == final


# Diagnostics.

TERMS = [without_names(term) for terms, _ in FLASHER.definitions("DIAGNOSTICS") for term in terms]

# Files whose texts stand elsewhere in the page, each with a test of its own, or are no texts for the terminal.
ELSEWHERE = {
    "src/app/Usage.cpp": "the usage text, with a test of its own",
    "src/app/StatusBlock.cpp": "the status block: DESCRIPTION",
    "src/Hardware/UploadNames.cpp": "modes and states: OPTIONS and the state line",
    "src/Hardware/ServerCommand.cpp": "the launch command",
    "src/AgApp/VersionFacts.cpp": "the version label",
    "src/AgApp/BuildMarker.cpp": "the build date in the label",
    "src/AgApp/RepositoryKeyword.cpp.in": "the tree in the label",
    "src/platform/linux/base/ServerConnectionEntry.cpp": "for the list of connections, which the program never prints",
    "src/toolsmisc/FileInfo.cpp": "a text for callers, and the program is none",
}
# Texts that this program has no way to print; other programs have.
NEVER = {
    "CmdPing response missing": "the program sends no pings",
    "Tx Buffer overrun": "it never drops a packet that it sends",
    "Tx Buffer usage below": "comes behind an overrun only",
    "Derived classes or application": "it closes its client",
    "Starting thread": "it starts its threads quietly",
    "Call origin": "the second line of that",
    "# Run as ROOT": "it starts its threads quietly",
    "Server connection list": "it prints no list of its connections",
    "Local Alias": "the head of that list",
    "threadPriority()": "asked for the lines above only",
}
TOKEN = re.compile(r'//[^\n]*|^\s*#[^\n]*|"((?:\\.|[^"\\\n])*)"|\'(?:\\.|[^\'\\\n])*\'|;', re.M)
PLACEHOLDER = re.compile(r"%[-+ #0-9.*]*[hlz]*[diouxXeEfgGcsp]")


def statements(text):
    """The statements of C++ code that have texts in them: the code around, and the texts, joined as C++ joins them."""
    code, texts, position = "", [], 0
    behind_text = False
    for token in TOKEN.finditer(text):
        between = text[position:token.start()]
        code += between
        position = token.end()
        if token[1] is not None and behind_text and not between.strip():
            texts[-1] += token[1]
        elif token[1] is not None:
            texts.append(token[1])
        elif token[0] == ";":
            if texts:
                yield code, texts
            code, texts = "", []
        behind_text = token[1] is not None


def is_message(code, texts):
    """Whether the texts of a statement are for people: they have words with a blank between, or a call."""
    return "static_assert" not in code and ("perror" in code or any(
        re.search(r"[A-Za-z]", text) and re.search(r"\S \S|\(", PLACEHOLDER.sub("", text).strip()) for text in texts))


def lines_of(texts):
    """The lines that a statement prints: for each the pieces that do not vary."""
    lines = [[]]
    for text in texts:
        for number, part in enumerate(text.replace(r"\"", '"').replace("%%", "%").split(r"\n")):
            if number:
                lines.append([])
            lines[-1] += [squeezed(piece) for piece in PLACEHOLDER.split(part) if piece.strip()]
    return [line for line in lines if re.search("[A-Za-z]", "".join(line))]


MESSAGES = [(str(path.relative_to(REPOSITORY)), line)
            for path in sorted((REPOSITORY / "src").rglob("*.*")) if path.suffix in {".cpp", ".h", ".in"}
            for code, texts in statements(path.read_text()) if is_message(code, texts) for line in lines_of(texts)]


def stands_in(pieces, term):
    position = 0
    for piece in pieces:
        position = term.find(piece, position)
        if position < 0:
            return False
        position += len(piece)
    return True


def test_the_sources_have_messages():
    assert len(MESSAGES) > 40
    assert {file for file, _ in MESSAGES} >= set(ELSEWHERE) - {"src/AgApp/RepositoryKeyword.cpp.in"}


@pytest.mark.parametrize("file, pieces", MESSAGES, ids=[f"{file}: {pieces[0]}" for file, pieces in MESSAGES])
def test_a_message_of_the_sources_is_in_the_page(file, pieces):
    if file in ELSEWHERE:
        return
    assert any(stands_in(pieces, term) for term in TERMS), f"no entry in DIAGNOSTICS: {pieces}"


@pytest.mark.parametrize("term", TERMS)
def test_a_message_of_the_page_is_in_the_sources(term):
    texts = [squeezed(text).replace("%%", "%") for path in (REPOSITORY / "src").rglob("*.cpp")
             for _, texts in statements(path.read_text()) for text in texts]
    for piece in re.split(rf"{VARIES}|\d+", term):
        piece = piece.strip().removesuffix(":") if re.search("[A-Za-z]", piece) else ""
        assert any(piece in text for text in texts), piece


def test_the_path_of_the_server_has_no_quote_behind_it():
    assert f"Unable to locate server application: '{VARIES}" in TERMS


def has_words(term):
    return re.search("[A-Za-z]", term) is not None


def test_what_the_program_never_prints_stands_apart():
    apart = {without_names(term) for terms, _ in FLASHER.definitions("From the libraries") for term in terms}
    never = {term for term in TERMS if any(text in term for text in NEVER)}
    assert set(filter(has_words, apart)) == never and len(never) == len(NEVER)


# Where the texts below each title of DIAGNOSTICS are printed, unless an entry says otherwise.
STREAMS = {"The command line": "error", "The server": "error", "During the run": "output", "The system": "error",
           "From the libraries": "error"}
STREAM_OF = {without_names(term): (re.match("On standard (output|error)[.:]", text) or [0, stream])[1]
             for title, stream in STREAMS.items() for terms, text in FLASHER.definitions(title) for term in terms}
TO_OUTPUT = re.compile(r"std::printf\(|std::cout|\bout <<|\bkBefore = ")


@pytest.mark.parametrize("title", STREAMS)
def test_a_title_says_where_its_texts_are_printed(title):
    introduction = FLASHER.text(next(element for element in FLASHER.sections[title].iter("p")))
    assert f"on standard {STREAMS[title]}" in introduction.replace("On", "on")


PRINTED = [(code, line) for path in (REPOSITORY / "src").rglob("*.cpp")
           if str(path.relative_to(REPOSITORY)) not in ELSEWHERE for code, texts in statements(path.read_text())
           if is_message(code, texts) for line in lines_of(texts)]


@pytest.mark.parametrize("term", STREAM_OF)
def test_the_stream_is_that_of_the_program(term):
    codes = [code for code, pieces in PRINTED
             if term.lstrip(f"{VARIES} ").startswith(pieces[0]) and stands_in(pieces, term)]
    assert all(STREAM_OF[term] == ("output" if TO_OUTPUT.search(code) else "error") for code in codes)
    assert codes or not has_words(term) or term.startswith(("Usage: ", "Process: ", "Thread: "))


TERMINAL = re.sub(r".\x08", "", subprocess.run(
    ["mandoc", "-T", "ascii", "-O", "width=200", str(REPOSITORY / "docs/man/dunmallow.1")], stdout=subprocess.PIPE,
    text=True, check=True).stdout)


def test_runs_of_blanks_are_those_of_the_program():
    spaced = [text for path in (REPOSITORY / "src").rglob("*.cpp")
              if str(path.relative_to(REPOSITORY)) not in ELSEWHERE for code, texts in statements(path.read_text())
              if is_message(code, texts) for text in texts if re.search(r"\S  +\S", text)]
    assert len(spaced) > 1
    assert [text for text in spaced if text.replace(r"\n", "").strip() not in TERMINAL] == []


def test_the_usage_text_is_that_of_the_program():
    [text] = FLASHER.literals("The usage text")
    said = [line.rstrip() for line in USAGE.splitlines()]
    said[0] = said[0].replace(f"{PROGRAMS}/", "")
    assert [line.rstrip() for line in text.strip("\n").splitlines()] == said


def test_every_message_has_cause_and_next_step():
    for terms, text in FLASHER.definitions("DIAGNOSTICS"):
        assert text.endswith(".") and len(text) > len("Exit status 1"), terms


# Messages that can be had.

class Rehearsal:
    """An installation with the simulated server, and a start-stop-daemon that starts it wherever the flasher looks."""

    def __init__(self, work):
        self.work = work
        self.log = work / "log"
        self.bin = work / "bin"
        self.bin.mkdir()
        self.environment = {"HOME": str(work), "PATH": f"{self.bin}:/usr/bin:/bin", "CORVANE_LOG": str(self.log),
                            "CORVANE_IDLE_SECONDS": "60"}
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.port = str(free.getsockname()[1])
        (work / "fw.hex").write_text(":00000001FF\n")
        self.tool(f'shift 6\nexec {PROGRAMS}/corvane "$@"')

    def tool(self, script):
        """Makes a script the start-stop-daemon."""
        path = self.bin / "start-stop-daemon"
        path.write_text(f"#!/bin/sh\n{script}\n")
        path.chmod(path.stat().st_mode | stat.S_IXUSR)

    def run(self, *arguments, scenario="on upload\nstate Locked", until=None):
        """Runs the flasher; with `until`, ends it when that stands in the server's log. Its status and lines."""
        (self.work / "scenario").write_text(scenario)
        process = subprocess.Popen([PROGRAMS / "dunmallow", "-p", self.port, *arguments], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True, cwd=self.work,
                                   env={**self.environment, "CORVANE_SCENARIO": str(self.work / "scenario")})
        end = time.monotonic() + DEADLINE
        while until and until not in (self.log.read_text() if self.log.exists() else ""):
            assert time.monotonic() < end
            time.sleep(0.01)
        if until:
            process.send_signal(signal.SIGTERM)
        out, err = process.communicate(timeout=DEADLINE)
        return process.returncode, out.splitlines(), err.splitlines()

    def end(self):
        found = re.findall(r"process (\d+), port", self.log.read_text()) if self.log.exists() else []
        for process in found:
            os.kill(int(process), signal.SIGKILL)


@pytest.fixture
def rehearsal(tmp_path):
    made = Rehearsal(tmp_path)
    yield made
    made.end()


UPLOAD = ["-u", "fw.hex", "-a", "1"]
NO_TOOL, REFUSED, FOLDER = "no tool", "refused", "folder"
RUNS = {
    "a port out of range": ([*UPLOAD, "-p", "80"], 1, ["Invalid port number: 80", "Valid range : [2000..65535]80"]),
    "an unknown option": (["-x"], 1, [f"Usage: {PROGRAMS}/dunmallow [<option>]*"]),
    "no such host": ([*UPLOAD, "-s", "no..such..host"], 1,
                     ["getaddrinfo(no..such..host): Name or service not known"]),
    "no start-stop-daemon": ([*UPLOAD, NO_TOOL], 1,
                             ["system(): Success", "Unable to start server application"]),
    "the server does not listen": ([*UPLOAD, REFUSED], 1, ["Unable to start server application"]),
    "no hex file": (["-u", "missing.hex", "-a", "1"], 1, ["Unable to find specified file"]),
    "no address": (["-u", "fw.hex"], 1, ["Invalid address"]),
    "a locked server": (UPLOAD, 0, []),
    "a server that says odd things": ([*UPLOAD, "odd"], 0,
                                      ["CANFlasherClient::handleRxPacket( 0x1 ) Unexpected command: 1005",
                                       "134502.123 ProprietarySocketClient CmdPing received out of sync"]),
    "SIGTERM": (["-u", ".", "-a", "1", FOLDER], 0, ["Dunmallow: handleShutDownSignal( 15 )"]),
    "no hex file wanted": (["-v"], 0, []),
    "help": (["-h"], 0, [f"Usage: {PROGRAMS}/dunmallow [<option>]*"]),
}


def term_of(line):
    """The entry of DIAGNOSTICS that a line belongs to, or None."""
    return next((term for term in TERMS if re.fullmatch(
        ".*".join(re.escape(piece) for piece in term.split(VARIES)), squeezed(line))), None)


@pytest.mark.parametrize("why", RUNS)
def test_what_a_run_says_is_in_the_page(why, rehearsal):
    arguments, status, expected = RUNS[why]
    words = [word for word in arguments if word not in (NO_TOOL, REFUSED, FOLDER, "odd")]
    how = {}
    if NO_TOOL in arguments:
        (rehearsal.bin / "start-stop-daemon").unlink()
        rehearsal.environment["PATH"] = str(rehearsal.bin)
    if REFUSED in arguments:
        rehearsal.tool("exit 0")
    if FOLDER in arguments:
        how = {"until": "client 1: connected"}
    if "odd" in arguments:
        how = {"scenario": "on connect\ngreet\npacket 1005\npacket 1\nstate Locked"}
    ended, out, err = rehearsal.run(*words, **how)
    assert ended == status
    assert str(status) in [terms[0] for terms, _ in FLASHER.definitions("EXIT STATUS") if terms]
    block = re.compile(r"\x1b|Upload state|    \w|$|Dev-|DUNMALLOW ")
    usage = [line for line in USAGE.splitlines() if not line.startswith("Usage")]
    said = [line for line in [*err, *out] if not block.match(line) and "not found" not in line
            and line not in usage and not line.startswith("   ")]
    assert [term_of(line) for line in said] == [term_of(line) for line in expected]
    assert None not in [term_of(line) for line in expected]


# Exit status, environment, files.

def test_the_exit_statuses():
    entries = {terms[0]: text for terms, text in FLASHER.definitions("EXIT STATUS") if terms}
    assert list(entries) == ["0", "1"]
    assert "well or not" in entries["0"] and "Locked" in entries["0"] and "every error state" in entries["0"]
    assert "Status 0 does not say that the module is programmed." in FLASHER.section("EXIT STATUS")


@pytest.mark.parametrize("state, status", [("Done", 0), ("Locked", 1), ("ErrEraseTimeout", 1)])
def test_the_script_of_the_page_tells_done_from_the_rest(state, status, rehearsal):
    _, out, _ = rehearsal.run(*UPLOAD, scenario=f"on upload\nstate Preparing\nstate {state}")
    (rehearsal.work / "upload.log").write_text("\n".join(out))
    [script] = [text.splitlines() for text in FLASHER.literals("EXIT STATUS")]
    assert len(script) == 2 and script[0].startswith("dunmallow ") and script[0].endswith("| tee upload.log")
    assert subprocess.run(["sh", "-c", script[1]], cwd=rehearsal.work, check=False).returncode == status


def test_the_environment_is_what_the_program_asks_for():
    asked = {name for path in (REPOSITORY / "src").rglob("*.cpp")
             for name in re.findall(r'getenv\("(\w+)"\)', path.read_text())}
    asked -= {"GPS_INFO_FILES_DIRECTORY"}  # of a library's function that the program does not call
    asked |= {"PATH"}  # for the shell that starts the server
    asked |= {"POSIXLY_CORRECT"}  # for getopt
    assert {terms[0] for terms, _ in FLASHER.definitions("ENVIRONMENT")} == asked


def test_the_files_are_those_of_the_program():
    system = one(r'kSystemRoot = "([^"]+)"', "src/AgApp/Directories.cpp")
    home = one(r'joinPath\(home, "([^"]+)"\)', "src/AgApp/Directories.cpp")
    server = one(r'kServerName\[\] = "([^"]+)"', "src/Hardware/ServerCommand.h")
    assert [terms[0] for terms, _ in FLASHER.definitions("FILES")] == [f"{system}/bin/{server}",
                                                                       f"~/{home}/bin/{server}"]
