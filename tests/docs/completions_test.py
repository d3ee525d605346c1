"""The completions in the real shells: what they offer, against a table and the program's own tables, and what the tab
key makes of a line."""

import os
import pathlib
import pty
import select
import shutil
import subprocess
import time

import pytest

from sources import MODES, OPTIONS, PORT, REPOSITORY

HERE = pathlib.Path(__file__).resolve().parent
COMPLETIONS = REPOSITORY / "completions"
DEADLINE = 60.0  # seconds; only a failing test waits this long
SHELLS = ["bash", "zsh"]


def folder(parent, name):
    """A folder with hex files and others, and a list of network interfaces."""
    top = parent / name
    for path in ["a.hex", "b c.hex", "UPPER.HEX", "note.txt", "hexes/inner.hex", "hexes/inner.txt", "plain/note.txt"]:
        (top / path).parent.mkdir(parents=True, exist_ok=True)
        (top / path).touch()
    for interface in ["can0", "can2", "canary", "eth0", "lo"]:
        (top / "net" / interface).mkdir(parents=True)
    return top


class Shell:
    """An interactive shell on a pseudo-terminal, with the completions where an installation has them."""

    COMMANDS = {
        "bash": ["bash", "--norc", "--noprofile", "-i"],
        "zsh": ["zsh", "-f", "-i"],
    }
    # The files are found by their names: bash's through the loader of bash-completion, zsh's through its path.
    SET_UP = {
        "bash": "source /usr/share/bash-completion/bash_completion; bind 'set bell-style none'; PS1='$ '",
        "zsh": f"fpath=({COMPLETIONS} $fpath); autoload -Uz compinit; compinit -u -D; . {HERE}/complete.zsh; PS1='$ '",
    }
    SHOW = """show() { printf '%s\\n' "$@" >"$SHOWN"; : >"$SHOWN.done"; }"""

    def __init__(self, name, work, environment):
        user = work / "user"
        (user / "completions").mkdir(parents=True)
        shutil.copy(COMPLETIONS / "dunmallow", user / "completions")
        self.shown = work / "shown"
        self.master, slave = pty.openpty()
        self.process = subprocess.Popen(
            self.COMMANDS[name], stdin=slave, stdout=slave, stderr=slave, cwd=work / "files", start_new_session=True,
            env={"PATH": os.environ["PATH"], "HOME": str(work / "files"), "TERM": "dumb", "INPUTRC": "/dev/null",
                 "LC_ALL": "C.UTF-8", "BASH_COMPLETION_USER_DIR": str(user), "SHOWN": str(self.shown), **environment})
        os.close(slave)
        self.seen = b""
        # In a file: a line that is longer than the terminal's is not taken whole.
        (work / "set-up").write_text(f"{self.SET_UP[name]}\n" + self.SHOW + "\n")
        self.type(f". {work}/set-up; echo rea''dy\n")
        self.wait(lambda: b"ready\r" in self.seen)

    def type(self, text):
        os.write(self.master, text.encode())

    def wait(self, condition):
        end = time.monotonic() + DEADLINE
        while not condition():
            assert time.monotonic() < end, self.seen.decode(errors="replace")
            if select.select([self.master], [], [], 0.01)[0]:
                self.seen += os.read(self.master, 65536)

    def run_file(self, key, done):
        self.type(key)
        self.wait(done.exists)
        done.unlink()

    def tab(self, line):
        """The words of the command line that tab makes of `line`, as the shell hands them to a program."""
        done = pathlib.Path(f"{self.shown}.done")
        self.run_file(f"{line}\t\x01show \n", done)
        return self.shown.read_text().splitlines()

    def end(self):
        self.process.kill()
        self.process.wait()
        os.close(self.master)


@pytest.fixture(scope="module", params=SHELLS)
def shell(request, tmp_path_factory):
    work = tmp_path_factory.mktemp(request.param)
    files = folder(work, "files")
    running = Shell(request.param, work, {"DUNMALLOW_NETWORK_CLASS": str(files / "net"), "CASES": str(work / "cases"),
                                          "OFFERS": str(work / "offers")})
    running.name, running.work = request.param, work
    yield running
    running.end()


def offers(shell, lines):
    """What the shell offers at the end of each of the lines: a set of words each."""
    if shell.name == "bash":
        text = subprocess.run(
            ["bash", "--norc", "-c", f". {COMPLETIONS}/dunmallow; . {HERE}/complete.bash"], text=True, check=True,
            input="".join(f"{line}\n" for line in lines), stdout=subprocess.PIPE, cwd=shell.work / "files",
            env={"PATH": os.environ["PATH"], "HOME": "/", "LC_ALL": "C.UTF-8",
                 "DUNMALLOW_NETWORK_CLASS": str(shell.work / "files/net")}).stdout
    else:
        (shell.work / "cases").write_text("\n".join(lines))
        (shell.work / "offers").write_text("")
        shell.run_file("\x14", shell.work / "offers.done")
        text = (shell.work / "offers").read_text().replace("\\ ", " ")
    answered = [line.split("\t") for line in text.splitlines()]
    assert [words[0] for words in answered] == lines
    return {words[0]: {word for word in words[1:] if word} for words in answered}


HEX_FILES = {"a.hex", "b c.hex", "UPPER.HEX"}
FOLDERS = {"hexes", "plain", "net"}
EVERY_OPTION = {f"-{letter}" for letter in OPTIONS}
CASES = {
    "dunmallow ": ("nothing yet: every option", EVERY_OPTION),
    "dunmallow -": ("every option", EVERY_OPTION),
    "dunmallow -u a.hex -m MTCAN ": ("none twice", EVERY_OPTION - {"-u", "-m"}),
    "dunmallow -u ": ("hex files of either case, and folders that may have some", HEX_FILES | FOLDERS),
    "dunmallow -v -u ": ("behind a flag", HEX_FILES | FOLDERS),
    "dunmallow -vu ": ("an option that stands behind a flag in one word", HEX_FILES | FOLDERS),
    "dunmallow -u a": ("the beginning of a name", {"a.hex"}),
    "dunmallow -u no": ("any file where no hex file is", {"note.txt"}),
    "dunmallow -u nothing-like-this": ("no such file", set()),
    "dunmallow -m ": ("every mode", set(MODES)),
    "dunmallow -m M": ("a mode's beginning", {"MTCAN"}),
    "dunmallow -m m": ("case counts, as it does for the program", set()),
    "dunmallow -p ": ("the port that the server has unless told otherwise", {PORT}),
    "dunmallow -i ": ("CAN interfaces by number", {"0", "2"}),
    "dunmallow -s localh": ("a host", {"localhost"}),
    "dunmallow -a ": ("an address is the user's to know", set()),
    "dunmallow -n ": ("a serial number is, too", set()),
    "dunmallow -x": ("no such option", set()),
    "dunmallow -vu a.hex ": ("none twice that shares a word", EVERY_OPTION - {"-v", "-u"}),
    "dunmallow -ua.hex ": ("none twice that has its value in the same word", EVERY_OPTION - {"-u"}),
    "dunmallow -- ": ("nothing behind the end of the options", set()),
    "dunmallow -v -- -": ("no option either", set()),
    "dunmallow -h ": ("nothing behind an option that ends the program", set()),
}

# Where zsh takes a word for what it looks like.
BASH_CASES = {
    "dunmallow a.hex -m N": ("options behind an operand are options still", {"NewModule"}),
    "dunmallow -u -m ": ("what looks like an option is a value here", EVERY_OPTION - {"-u"}),
    "dunmallow -u -- ": ("so is what looks like the end of the options", EVERY_OPTION - {"-u"}),
}


@pytest.fixture(scope="module")
def offered(shell):
    return offers(shell, list(CASES))


@pytest.mark.parametrize("line", CASES, ids=[why for why, _ in CASES.values()])
def test_offers(offered, line):
    assert offered[line] == CASES[line][1]


@pytest.mark.parametrize("line", BASH_CASES, ids=[why for why, _ in BASH_CASES.values()])
def test_offers_of_bash(shell, line):
    if shell.name == "bash":
        assert offers(shell, [line])[line] == BASH_CASES[line][1]


def test_a_terminal_without_can_interfaces_offers_four(shell):
    net = shell.work / "files/net"
    for path in net.glob("can*"):
        path.rename(net / f"not-{path.name}")
    try:
        assert offers(shell, ["dunmallow -i "])["dunmallow -i "] == {"0", "1", "2", "3"}
    finally:
        for path in net.glob("not-*"):
            path.rename(net / path.name.removeprefix("not-"))


TABS = {
    "dunmallow -u U": ("an ending of the other case", ["dunmallow", "-u", "UPPER.HEX"]),
    "dunmallow -vmG": ("a mode behind a flag in one word", ["dunmallow", "-vmGlobal"]),
    "dunmallow -v -- -": ("nothing behind the end of the options", ["dunmallow", "-v", "--", "-"]),
    "dunmallow -m m": ("nothing that the program does not know", ["dunmallow", "-m", "m"]),
    "dunmallow -u 'b": ("the other quotes", ["dunmallow", "-u", "b c.hex"]),
    "dunmallow -m MT": ("a mode", ["dunmallow", "-m", "MTCAN"]),
    "dunmallow -mMT": ("a mode without a blank before it", ["dunmallow", "-mMTCAN"]),
    "dunmallow -u a": ("a file", ["dunmallow", "-u", "a.hex"]),
    "dunmallow -ua": ("a file without a blank before it", ["dunmallow", "-ua.hex"]),
    "dunmallow -u b": ("a name with a blank is quoted", ["dunmallow", "-u", "b c.hex"]),
    "dunmallow -u b\\ c": ("a blank that is quoted already", ["dunmallow", "-u", "b c.hex"]),
    'dunmallow -u "b c': ("quotes that are open", ["dunmallow", "-u", "b c.hex"]),
    "dunmallow -ub": ("a blank in a name without one before it", ["dunmallow", "-ub c.hex"]),
    "dunmallow -u ~/a": ("the home folder", ["dunmallow", "-u", "HOME/a.hex"]),
    "dunmallow -u hex\tin": ("a folder goes on", ["dunmallow", "-u", "hexes/inner.hex"]),
    "dunmallow -u hexes/": ("inside a folder", ["dunmallow", "-u", "hexes/inner.hex"]),
    "dunmallow -u plain/": ("any file where no hex file is", ["dunmallow", "-u", "plain/note.txt"]),
    "dunmallow -v -m N": ("behind other options", ["dunmallow", "-v", "-m", "NewModule"]),
    "dunmallow -s localh": ("a host", ["dunmallow", "-s", "localhost"]),
    "dunmallow -p 4": ("a port", ["dunmallow", "-p", PORT]),
}


@pytest.mark.parametrize("line", TABS, ids=[why for why, _ in TABS.values()])
def test_the_tab_key(shell, line):
    home = str(shell.work / "files")
    assert [word.replace(home, "HOME") for word in shell.tab(line)] == TABS[line][1]
