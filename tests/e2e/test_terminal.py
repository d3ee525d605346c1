"""The screen of a real terminal after each paint, cell by cell."""

import contextlib
import os
import shlex
import shutil
import signal
import subprocess
import tempfile
import threading
import time

import pytest

from harness import DEADLINE, block, packet, processes_named, status, wait_for

# Reports and the six lines that each must leave on the screen, the empty ones included. Long texts come before short
# ones: what is left of them must be cleared.
PAINTS = [
    (status(2, mode=0, progress=0, address=0x2A, serial=12345),
     ["Upload state:", "    mode     ISO Style", "    state    Preparing for upload", "    progress 0%", "    adr      2a",
      "    serial   12345"]),
    (status(5, mode=2, progress=255, address=254, serial=536870910),
     ["Upload state:", "    mode     New Module", "    state    Programming", "    progress 255%", "    adr      fe",
      "    serial   536870910"]),
    (status(5, mode=3, progress=7, address=5, serial=0xFFFFFFFF),
     ["Upload state:", "    mode     Global", "    state    Programming", "    progress 7%", "    adr      5",
      "    serial   ---"]),
    (status(4, mode=9, progress=7, address=5, serial=0),
     ["Upload state:", "    mode     unknown", "    state    Erasing FLASH", "    progress 7%", "    adr      5",
      "    serial   0"]),
]
LAST = status(101, mode=1, progress=100, address=16, serial=1)  # the longest state: 60 columns
LAST_LINES = ["Upload state:", "    mode     MT CAN", "    state    Error! Timed out while waiting for FLASH erase.",
              "    progress 100%", "    adr      10", "    serial   1"]


class Terminal:
    """A tmux server with one window that runs a shell command."""

    def __init__(self, columns, rows, command, env):
        self.folder = tempfile.mkdtemp(prefix="tmux-")  # a short name: the socket is in it
        self.env = {**env, "TMUX_TMPDIR": self.folder, "LC_ALL": "C.UTF-8", "TERM": "xterm-256color"}
        self.tmux("-f", "/dev/null", "start-server", ";", "set-option", "-g", "status", "off", ";", "set-option", "-g",
                  "default-shell", "/bin/sh", ";", "new-session", "-d", "-x", str(columns), "-y", str(rows), command)

    def tmux(self, *arguments):
        return subprocess.run(["tmux", *arguments], env=self.env, check=True, stdout=subprocess.PIPE, timeout=DEADLINE).stdout

    def screen(self):
        """Every cell with its colours: lines with their trailing blanks cut, which a second look at the colours covers."""
        return self.tmux("capture-pane", "-p", "-e").decode().rstrip("\n").split("\n")

    def cursor(self):
        return tuple(map(int, self.tmux("display-message", "-p", "#{cursor_x} #{cursor_y}").split()))

    def expect(self, lines, cursor, rows):
        """Waits until the screen shows exactly these lines, the rest of it empty, and the cursor stands there."""
        wanted = lines + [""] * (rows - len(lines))

        def same():
            shown = self.screen()
            return shown + [""] * (rows - len(shown)) == wanted and self.cursor() == cursor

        try:
            wait_for(same, "the screen", 30.0)
        except AssertionError as late:
            raise AssertionError(f"shown {self.screen()}, cursor {self.cursor()}; wanted {wanted}, {cursor}") from late

    def close(self):
        subprocess.run(["tmux", "kill-server"], env=self.env, check=False, stderr=subprocess.DEVNULL)
        shutil.rmtree(self.folder, ignore_errors=True)


@pytest.fixture
def terminal(rig):
    """Starts the program on a terminal of a size, behind so many numbered lines. Returns (terminal, link)."""
    opened = []

    def start(columns, rows, earlier, behind='; echo "status $?"; read -r end', first=""):
        server = rig.scripted_server()
        words = [rig.program, "-u", rig.hex_file(), "-p", server.port, "-a", "1"]
        program = " ".join(shlex.quote(str(word)) for word in words)
        before = f"seq -f 'line %g' {earlier}; " if earlier else ""
        screen = Terminal(columns, rows, first + before + program + behind, rig.env)
        opened.append(screen)
        return screen, server.accept()

    yield start
    for screen in opened:
        screen.close()
    with contextlib.suppress(AssertionError):  # the end of its terminal ends the program
        wait_for(lambda: not processes_named("dunmallow"), "the end of the program", 10.0)


# Rows, lines printed earlier, the lines above the block that are still seen, and the row of the cursor under the block.
SIZES = {
    "60x7, empty": (60, 7, 0, [], 6),
    "60x7, at the foot": (60, 7, 30, [], 6),
    "80x24, empty": (80, 24, 0, [""], 7),
    "80x24, below other lines": (80, 24, 3, ["line 1", "line 2", "line 3", ""], 10),
    "80x24, nearly at the foot": (80, 24, 17, [*(f"line {n}" for n in range(2, 18)), ""], 23),
    "80x24, at the foot": (80, 24, 50, [*(f"line {n}" for n in range(35, 51)), ""], 23),
    "200x50, empty": (200, 50, 0, [""], 7),
    "200x50, at the foot": (200, 50, 60, [*(f"line {n}" for n in range(19, 61)), ""], 49),
}


@pytest.mark.parametrize("size", SIZES)
def test_each_paint_leaves_exactly_its_block_on_the_screen(terminal, size):
    columns, rows, earlier, above, cursor = SIZES[size]
    screen, link = terminal(columns, rows, earlier)
    for report, lines in PAINTS:
        link.sendall(report)
        screen.expect(above + lines, (0, cursor), rows)
    link.sendall(LAST)
    end = [*above, *LAST_LINES, "", "status 0"]
    screen.expect(end[max(0, len(end) + 1 - rows):], (0, min(rows - 1, cursor + 2)), rows)


def test_a_message_of_the_program_scrolls_the_block_away_from_nothing(terminal):
    """A line between two paints stands below the block; the next paint goes over the lower part. It has always been so."""
    screen, link = terminal(80, 24, 3)
    link.sendall(status(5, progress=1, serial=1))
    lines = ["Upload state:", "    mode     ISO Style", "    state    Programming", "    progress 1%", "    adr      fe",
             "    serial   1"]
    above = ["line 1", "line 2", "line 3", ""]
    screen.expect(above + lines, (0, 10), 24)
    link.sendall(packet(1) + status(5, progress=2, serial=1))
    lines[3] = "    progress 2%"
    screen.expect([*above, "Upload state:", *lines], (0, 11), 24)


def test_ctrl_c_ends_the_run_and_leaves_the_block(terminal):
    screen, link = terminal(60, 12, 0, first="trap : INT; ")
    link.sendall(PAINTS[0][0])
    screen.expect(["", *PAINTS[0][1]], (0, 7), 12)
    screen.tmux("send-keys", "C-c")
    screen.expect(["", *PAINTS[0][1], "^CDunmallow: handleShutDownSignal( 2 )", "status 0"], (0, 9), 12)


def test_each_paint_passes_a_pipe_at_once(rig):
    """What reads the output sees each block when it is painted, not when the program ends."""
    server = rig.scripted_server()
    run = subprocess.Popen(
        [rig.program, "-u", rig.hex_file(), "-p", str(server.port), "-a", "1"], env=rig.env, stdout=subprocess.PIPE)
    link = server.accept()
    seen = bytearray()

    def read():
        while data := os.read(run.stdout.fileno(), 65536):
            seen.extend(data)

    reader = threading.Thread(target=read)
    reader.start()
    expected = b"\n" * 7
    for progress in (1, 50, 100):
        link.sendall(status(5, progress=progress))
        expected += block("Programming", progress=progress)
        wait_for(lambda wanted=expected: bytes(seen) == wanted, "the block behind the pipe")
    link.sendall(status(6))
    assert run.wait(DEADLINE) == 0
    reader.join()
    run.stdout.close()
    assert bytes(seen) == expected + block("Done") + b"\n"


def test_a_screen_behind_a_pipe_is_the_same(terminal):
    screen, link = terminal(80, 24, 3, behind=" | cat; read -r end")
    for report, lines in PAINTS:
        link.sendall(report)
        screen.expect(["line 1", "line 2", "line 3", "", *lines], (0, 10), 24)


@pytest.mark.parametrize("ended_by", ["Done", "SIGTERM", "SIGINT"])
def test_a_reader_that_goes_does_not_end_the_upload(rig, ended_by):
    """The upload is worth more than its picture: the program goes on when nobody reads its output any more."""
    server = rig.scripted_server()
    run = subprocess.Popen(
        [rig.program, "-u", rig.hex_file(), "-p", str(server.port), "-a", "1"],
        env=rig.env, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    link = server.accept()
    link.sendall(status(5, progress=1))
    assert os.read(run.stdout.fileno(), 1) == b"\n"
    run.stdout.close()
    for progress in range(2, 50):
        link.sendall(status(5, progress=progress))
    time.sleep(0.1)
    assert run.poll() is None
    if ended_by == "Done":
        link.sendall(status(6))
    else:
        run.send_signal(signal.Signals[ended_by])
    assert run.wait(DEADLINE) == 0
    assert run.stderr.read() == b""
    run.stderr.close()


def test_a_terminal_that_stands_still_does_not_lose_the_end(rig):
    """The last block is the last report all the same."""
    server = rig.scripted_server()
    run = rig.run("-u", rig.hex_file(), "-p", server.port, "-a", "1")
    link = server.accept()
    link.sendall(status(5, progress=1))
    run.expect(b"progress 1%")
    with run.terminal_stands_still():
        for progress in range(2, 100):
            link.sendall(status(5, progress=progress))
        link.sendall(status(6, progress=100))
        assert run.still_runs(0.3)
    assert run.wait() == 0
    assert run.output == b"\n" * 7 + b"".join(block("Programming", progress=n) for n in range(1, 100)) + block(
        "Done", progress=100) + b"\n"
