"""What the end-to-end tests stand on: the program on a pseudo-terminal, and a server whose every byte is scripted."""

import contextlib
import dataclasses
import fcntl
import os
import pathlib
import pty
import select
import signal
import socket
import struct
import subprocess
import termios
import threading
import time

import pyte

DEADLINE = 60.0  # seconds; only a failing test waits this long
SANITIZERS = {
    "ASAN_OPTIONS": "detect_leaks=1:abort_on_error=0:exitcode=99",
    "UBSAN_OPTIONS": "print_stacktrace=1:exitcode=99",
    # Without the second that a threaded program sleeps at its end by default: the tests measure its ends. In that second
    # the worker would join the threads of the link that it is closing; the process ends without waiting for it, so they
    # are no leak.
    "TSAN_OPTIONS": "halt_on_error=0:exitcode=99:atexit_sleep_ms=0:report_thread_leaks=0",
}
UP = b"\x1b[6A"
CLEAR = b"\x1b[0K"


def wait_for(condition, what, limit=DEADLINE):
    """Waits until `condition()` is true and returns its value; fails the test when it never is."""
    end = time.monotonic() + limit
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.005)
    raise AssertionError(f"not within {limit} s: {what}")


def packet(command, payload=b"", offset=8, extra=b""):
    """A packet as it goes on the wire; `extra` are header bytes between byte 8 and the payload."""
    return struct.pack(">IHH", 8 + len(extra) + len(payload), command, offset) + extra + payload


def status(state, mode=0, progress=0, address=254, serial=0xFFFFFFFF):
    """A status report, command 1000."""
    return packet(1000, struct.pack("<BBBBI", mode, state, progress, address, serial))


def block(state, mode="ISO Style", progress=0, address="fe", serial="---"):
    """The six lines of the status block, cursor sequences included, as a terminal without line discipline gets them."""
    serial_line = "    serial   ---" if serial == "---" else f"    serial   {serial}"
    lines = [
        "Upload state:",
        f"    mode     {mode}",
        f"    state    {state}",
        f"    progress {progress}%",
        f"    adr      {address}",
        serial_line,
    ]
    return UP + b"".join(line.encode() + CLEAR + b"\n" for line in lines)


class Run:
    """One run of the program: standard input and output on a pseudo-terminal, standard error on a pipe."""

    def __init__(self, command, env, rows=24, columns=80, cwd="/"):
        self.master, slave = pty.openpty()
        attributes = termios.tcgetattr(slave)
        attributes[1] &= ~termios.OPOST  # bytes as the program wrote them
        attributes[3] &= ~termios.ECHO
        termios.tcsetattr(slave, termios.TCSANOW, attributes)
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
        self.rows, self.columns = rows, columns
        self._errors_read, errors_write = os.pipe()
        self.process = subprocess.Popen(
            command, stdin=slave, stdout=slave, stderr=errors_write, env=env, cwd=cwd, start_new_session=True
        )
        os.close(slave)
        os.close(errors_write)
        self.output = b""
        self.errors = b""
        self._reader = threading.Thread(target=self._read)
        self._reader.start()

    def _read(self):
        open_descriptors = {self.master, self._errors_read}
        while open_descriptors:
            # A server that was started keeps nothing of ours open; the limit only guards a broken one. What the program
            # wrote before its end is there when the end is seen first.
            ended = self.process.poll() is not None
            ready, _, _ = select.select(list(open_descriptors), [], [], 0.2)
            if not ready and ended:
                break
            for descriptor in ready:
                try:
                    data = os.read(descriptor, 65536)
                except OSError:  # the terminal's other side is closed
                    data = b""
                if not data:
                    open_descriptors.discard(descriptor)
                elif descriptor == self.master:
                    self.output += data
                else:
                    self.errors += data

    def expect(self, text, limit=DEADLINE):
        """Waits until `text` stands in the output."""
        end = time.monotonic() + limit
        while text not in self.output:
            if time.monotonic() > end:
                raise AssertionError(f"no {text!r} in {self.output[-2000:]!r}, errors {self.errors!r}")
            time.sleep(0.005)

    def signal(self, number):
        self.process.send_signal(number)

    def wait(self, limit=DEADLINE):
        """Waits for the program's end and returns its exit status (negative: the signal that ended it)."""
        try:
            result = self.process.wait(limit)
        except subprocess.TimeoutExpired as late:
            raise AssertionError(f"still running; output {self.output[-2000:]!r}, errors {self.errors!r}") from late
        self._reader.join(limit)
        return result

    def still_runs(self, seconds):
        """True when the program has not ended after that time."""
        with contextlib.suppress(subprocess.TimeoutExpired):
            self.process.wait(seconds)
            return False
        return True

    @contextlib.contextmanager
    def terminal_stands_still(self):
        """As between Ctrl-S and Ctrl-Q. The terminal is asked directly: the kernel gets to typed ones when it has time."""
        terminal = os.open(f"/proc/{self.process.pid}/fd/1", os.O_RDWR | os.O_NOCTTY)
        try:
            termios.tcflow(terminal, termios.TCOOFF)
            yield
            termios.tcflow(terminal, termios.TCOON)
        finally:
            os.close(terminal)

    def threads(self):
        return len(os.listdir(f"/proc/{self.process.pid}/task"))

    def descriptors(self):
        return sorted(os.readlink(entry) for entry in pathlib.Path(f"/proc/{self.process.pid}/fd").iterdir())

    def screen(self):
        """The lines that a terminal of this run's size shows, without trailing blanks."""
        screen = pyte.Screen(self.columns, self.rows)
        stream = pyte.ByteStream(screen)
        stream.feed(self.output.replace(b"\n", b"\r\n"))
        return [line.rstrip() for line in screen.display]

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self._reader.join()
        os.close(self.master)
        os.close(self._errors_read)


def sample_hex(size):
    """The text of a hex file of `size` made-up bytes, a multiple of 16 up to 65536."""
    lines = []
    for address in range(0, size, 16):
        body = bytes([16, address >> 8, address & 255, 0]) + bytes((address + i) & 255 for i in range(16))
        lines.append(":" + (body + bytes([-sum(body) & 255])).hex().upper())
    return "\n".join([*lines, ":00000001FF", ""])


class ScriptedServer:
    """A server that listens when `listen` is called and whose every byte the test writes by hand."""

    def __init__(self, port=0, host="127.0.0.1"):
        self.socket = socket.socket(socket.AF_INET6 if ":" in host else socket.AF_INET)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.socket.bind((host, port))
        self.port = self.socket.getsockname()[1]
        self.connections = []
        self.listening = threading.Event()

    def listen(self):
        self.socket.listen(8)
        self.listening.set()

    def accept(self, limit=DEADLINE):
        if not self.listening.wait(limit):
            raise AssertionError("the launch command was never run")
        self.socket.settimeout(limit)
        connection, _ = self.socket.accept()
        connection.settimeout(limit)
        self.connections.append(connection)
        return connection

    def close(self):
        for connection in self.connections:
            connection.close()
        self.socket.close()


def receive(connection, count):
    """Exactly `count` bytes, fewer only when the connection ends."""
    data = b""
    while len(data) < count:
        piece = connection.recv(count - len(data))
        if not piece:
            break
        data += piece
    return data


def receive_packet(connection):
    """One packet as (command, payload); None when the connection ends first."""
    head = receive(connection, 8)
    if len(head) < 8:
        return None
    length, command, offset = struct.unpack(">IHH", head)
    rest = receive(connection, length - 8)
    return command, rest[offset - 8 :]


class Rig:
    """A private installation for one test: HOME with the server's place in it, and a search path of its own."""

    def __init__(self, build, folder):
        self.program = pathlib.Path(build, "bin", "dunmallow")
        self.simulator = pathlib.Path(build, "bin", "corvane")
        self.folder = pathlib.Path(folder)
        self.home = self.folder / "home"
        self.bin = self.home / ".varnex" / "bin"
        self.bin.mkdir(parents=True)
        self.tools = self.folder / "tools"
        self.tools.mkdir()
        self.launches = self.folder / "launches"
        self.journal = self.folder / "journal"
        self.env = {
            "HOME": str(self.home),
            "PATH": f"{self.tools}:/usr/sbin:/usr/bin:/sbin:/bin",
            "TERM": "xterm",
            **SANITIZERS,
        }
        self.runs = []
        self.servers = []
        self.closing = threading.Event()

    @property
    def server_path(self):
        return f"{self.home}/.varnex/bin/corvane"

    def install_simulator(self):
        """Puts the simulated server where the program looks for the server."""
        (self.bin / "corvane").symlink_to(self.simulator)

    def stub_tool(self, name, body):
        """Puts a shell script of that name in front of the system's tools."""
        tool = self.tools / name
        tool.write_text(f"#!/bin/sh\n{body}\n")
        tool.chmod(0o755)

    def scripted_server(self, status=0, host="127.0.0.1", port=0):
        """A server whose bytes the test writes; it listens as soon as the launch command has been run.

        The stub of start-stop-daemon notes its arguments and ends with `status` after the server listens.
        """
        server = ScriptedServer(port, host)
        self.servers.append(server)
        ready = self.folder / "listening"
        self.stub_tool(
            "start-stop-daemon",
            f'printf "%s\\n" "$*" >>"{self.launches}"\n'
            f'while [ ! -e "{ready}" ]; do sleep 0.01; done\n'
            f"exit {status}",
        )

        def listen_after_launch():
            while not self.launches.exists():
                if self.closing.wait(0.005):
                    return
            server.listen()
            ready.touch()

        server.starter = threading.Thread(target=listen_after_launch)
        server.starter.start()
        return server

    def forget_launch(self):
        """Lets the next scripted server wait for a launch of its own."""
        self.launches.unlink()
        (self.folder / "listening").unlink()

    def hex_file(self, name="firmware.hex", content=":00000001FF\n"):
        path = self.folder / name
        path.write_text(content)
        return str(path)

    def run(self, *arguments, rows=24, columns=80, cwd="/", **env):
        run = Run([str(self.program), *map(str, arguments)], {**self.env, **env}, rows, columns, cwd)
        self.runs.append(run)
        return run

    def close(self):
        self.closing.set()
        for run in self.runs:
            run.close()
        for server in self.servers:
            server.starter.join()
            server.close()


def private_processes():
    """True in a process namespace of our own (see as-user), where every process is one of ours."""
    with open("/proc/1/cmdline", "rb") as file:
        return b"as-user" in file.read()


def processes_named(name):
    """Ids of the processes of that name that are no zombies."""
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        if not entry.name.isdigit():
            continue
        with contextlib.suppress(OSError):
            if (entry / "comm").read_text().rstrip("\n") != name:
                continue
            if "\nState:\tZ" not in (entry / "status").read_text():
                found.append(int(entry.name))
    return found


def end_processes(name):
    """Ends the processes of that name, politely first, and waits until they are gone."""
    for number in (signal.SIGTERM, signal.SIGKILL):
        for process in processes_named(name):
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, number)
        with contextlib.suppress(AssertionError):
            wait_for(lambda: not processes_named(name), f"the end of {name}", 5.0)
            return


def selected_rows(request):
    """The values of the parameter `name` of those tests of the requesting module that will run."""
    calls = [item.callspec for item in request.session.items if item.module is request.module and hasattr(item, "callspec")]
    return {call.params["name"] for call in calls if "name" in call.params}


def free_port():
    """A port that nobody uses at this moment."""
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


@dataclasses.dataclass
class JournalEntry:
    """A packet in the simulated server's journal. Seconds are of the monotonic clock."""

    seconds: float
    incoming: bool
    command: int
    bytes: bytes


def read_journal(path):
    """The packets of a journal; connects and ends of links are left out."""
    entries = []
    if not pathlib.Path(path).exists():
        return entries
    for line in pathlib.Path(path).read_text().splitlines():
        fields = line.split()
        if len(fields) == 7 and fields[2] in "<>" and fields[3].isdigit():
            entries.append(JournalEntry(float(fields[0]), fields[2] == "<", int(fields[3]), bytes.fromhex(fields[6])))
    return entries
