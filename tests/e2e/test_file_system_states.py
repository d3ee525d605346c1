"""The hex file and the installation in every state that a file system offers, through the real program."""

import concurrent.futures
import os
import pathlib
import signal
import socket
import struct

import pytest

import harness
from harness import packet, receive_packet, status

POLL, RESET, UPLOAD = 1001, 1002, 1004
SILENCE_SECONDS = 0.35
NOT_FOUND = b"Unable to find specified file\n"


# What the program does with a hex file. Each plays one run and raises when it is not as it should be.


def begin(rig, argument, cwd):
    server = rig.scripted_server()
    run = rig.run("-u", argument, "-p", server.port, "-a", "0x2A", "-n", "12345", cwd=cwd)
    return run, server


def not_found(rig, argument, cwd, _):
    run, _ = begin(rig, argument, cwd)
    assert run.wait() == 1
    # Shells complain of a current folder that is gone.
    errors = [line for line in run.errors.splitlines(keepends=True) if b"getcwd() failed" not in line]
    assert (run.output, errors) == (b"", [NOT_FOUND])


def silent(rig, argument, cwd, _):
    """Connects, asks for nothing and waits until it is told to end."""
    run, server = begin(rig, argument, cwd)
    link = server.accept()
    link.settimeout(SILENCE_SECONDS)
    with pytest.raises(TimeoutError):
        link.recv(1)
    run.signal(signal.SIGTERM)
    assert run.wait() == 0
    assert (run.output, run.errors) == (b"Dunmallow: handleShutDownSignal( 15 )\n", b"")


def finish(run, link):
    link.sendall(status(6))
    assert run.wait() == 0
    assert run.errors == b""


def sent(rig, argument, cwd, resolved):
    """Requests the upload of `resolved`, the absolute path without links."""
    run, server = begin(rig, argument, cwd)
    link = server.accept()
    packets = [receive_packet(link) for _ in range(3)]
    payload = bytes.fromhex("00 2a 39300000") + os.fsencode(resolved) + b"\0"
    assert packets == [(POLL, b""), (RESET, b""), (UPLOAD, payload)]
    finish(run, link)


def changed_in_between(change, expected):
    """`change` is made to the file after the check and before the request, about 100 ms later."""

    def play(rig, argument, cwd, resolved):
        content = pathlib.Path(resolved).read_bytes()
        for _ in range(5):
            run, server = begin(rig, argument, cwd)
            link = server.accept()
            assert receive_packet(link) == (POLL, b"")
            change(pathlib.Path(resolved))
            packets = [receive_packet(link) for _ in range(len(expected))]
            finish(run, link)
            if [command for command, _ in packets] == expected:
                return
            # On a busy machine the change may have come too late: once more.
            _remove(pathlib.Path(resolved))
            pathlib.Path(resolved).write_bytes(content)
            rig.forget_launch()
        raise AssertionError(f"sent {packets}, not {expected}")

    return play


def _remove(path):
    if path.is_dir() and not path.is_symlink():
        path.rmdir()
    else:
        path.unlink(missing_ok=True)


def _replace(make):
    def change(path):
        path.unlink()
        make(path)

    return change


# States of the hex file: a function of an empty folder that makes the state and returns (argument, current folder,
# resolved path), and what the program does with it.

CONTENT = ":00000001FF\n"


def file_named(name, argument=None):
    """A hex file of that name; the argument is its path unless another one is given, which counts from its folder."""

    def make(folder):
        path = folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(CONTENT)
        return (argument or str(path), str(folder) if argument else "/", str(path))

    return make


def made(function):
    """A state that `function` makes of the path x in the folder."""

    def make(folder):
        function(folder / "x")
        return str(folder / "x"), "/", str(folder / "x")

    return make


def bound_socket(path):
    with socket.socket(socket.AF_UNIX) as listener:
        here = os.open(path.parent, os.O_PATH)  # the name must be short
        listener.bind(f"/proc/self/fd/{here}/{path.name}")
        os.close(here)


def chain(length):
    def make(folder):
        path = folder / "end.hex"
        path.write_text(CONTENT)
        for number in range(length):
            (folder / f"link{number}").symlink_to("end.hex" if number == 0 else f"link{number - 1}")
        return str(folder / f"link{length - 1}"), "/", str(path)

    return make


def loop(folder):
    (folder / "a").symlink_to("b")
    (folder / "b").symlink_to("a")
    return str(folder / "a"), "/", ""


def unreadable(path):
    path.write_text(CONTENT)
    path.chmod(0)


def unreadable_folder(folder):
    inner = folder / "closed"
    inner.mkdir()
    (inner / "x.hex").write_text(CONTENT)
    inner.chmod(0)
    return str(inner / "x.hex"), "/", ""


def sparse(path):
    path.write_bytes(b"")
    os.truncate(path, 5 * 1024**3)


def long_path(folder):
    """A path of 4000 bytes."""
    path = str(folder)
    while len(path) + 250 < 4000:
        path += "/" + "d" * 200
    os.makedirs(path)
    path += "/" + "f" * (4000 - len(path) - 1)
    pathlib.Path(path).write_text(CONTENT)
    return path, "/", path


def removed_folder(folder):
    (folder / "gone").mkdir()
    return "x.hex", str(folder / "gone"), ""


def hard_link(folder):
    (folder / "one.hex").write_text(CONTENT)
    os.link(folder / "one.hex", folder / "two.hex")
    return str(folder / "two.hex"), "/", str(folder / "two.hex")


def linked_folder(path):
    path.symlink_to(path.parent)


def named(argument):
    return lambda folder: (argument, str(folder), "")


def parent_steps(folder):
    (folder / "a" / "b").mkdir(parents=True)
    (folder / "x.hex").write_text(CONTENT)
    return ".././b/../../x.hex", str(folder / "a" / "b"), str(folder / "x.hex")


SHELL_LETTERS = "$(touch evil) `touch evil`;touch evil&|<>*?[]{}~!#\\"

HEX_FILES = {
    "a regular file": (file_named("x.hex"), sent),
    "no such file": (named("missing.hex"), not_found),
    "no name": (named(""), not_found),
    "no such folder": (named("missing/x.hex"), not_found),
    "a file as a folder": (file_named("x.hex", "x.hex/y.hex"), not_found),
    "a slash behind a file": (file_named("x.hex", "x.hex/"), not_found),
    "a component of 300 bytes": (named("n" * 300), not_found),
    "a path beyond the longest": (named("x/" * 2100 + "x.hex"), not_found),
    "a loop of links": (loop, not_found),
    "a link to itself": (made(lambda path: path.symlink_to("x")), not_found),
    "a link to nothing": (made(lambda path: path.symlink_to("nothing")), not_found),
    "a closed folder": (unreadable_folder, not_found),
    "a current folder that is gone": (removed_folder, not_found),
    "a folder": (made(pathlib.Path.mkdir), silent),
    "the current folder": (named("."), silent),
    "a link to a folder": (made(linked_folder), silent),
    "a FIFO": (made(os.mkfifo), silent),
    "a socket": (made(bound_socket), silent),
    "a device": (named("/dev/null"), silent),
    "an endless device": (named("/dev/zero"), silent),
    "a chain of 30 links": (chain(30), sent),
    "a chain of too many links": (chain(60), not_found),
    "an unreadable file": (made(unreadable), sent),
    "an empty file": (made(pathlib.Path.touch), sent),
    "5 GB without content": (made(sparse), sent),
    "a path of 4000 bytes": (long_path, sent),
    "a name of 255 bytes": (file_named("n" * 255), sent),
    "blanks and quotes": (file_named("""a b  'c' "d".hex"""), sent),
    "a newline": (file_named("a\nb\n.hex"), sent),
    "letters of the shell": (file_named(SHELL_LETTERS), sent),
    "bytes that are no text": (file_named("\udcff\udc80\x01.hex"), sent),
    "a name like an option": (file_named("-x", "-x"), sent),
    "a way over parents": (parent_steps, sent),
    "two slashes": (file_named("a/x.hex", "a//x.hex"), sent),
    "a second name of a file": (hard_link, sent),
    "it vanishes": (file_named("x.hex"), changed_in_between(pathlib.Path.unlink, [POLL])),
    "it becomes a folder": (file_named("x.hex"), changed_in_between(_replace(pathlib.Path.mkdir), [POLL])),
    "it becomes a FIFO": (file_named("x.hex"), changed_in_between(_replace(os.mkfifo), [POLL])),
    "it becomes a link to a file": (
        file_named("x.hex"), changed_in_between(_replace(lambda path: path.symlink_to("/etc/passwd")), [RESET, UPLOAD])),
}


def play_hex_file(build, folder, make, play):
    rig = harness.Rig(build, folder)
    place = folder / "place"
    place.mkdir()
    try:
        argument, cwd, resolved = make(place)
        if cwd.endswith("/gone"):
            rig.program = in_removed_folder(rig)
        play(rig, argument, cwd, resolved)
        assert not any(path.name == "evil" for path in folder.rglob("evil"))
    finally:
        rig.close()
        for path in place.iterdir():
            if not path.is_symlink():
                path.chmod(0o755)


def in_removed_folder(rig):
    """The program, started in a current folder that is removed first."""
    script = rig.folder / "removing"
    script.write_text(f'#!/bin/sh\nrmdir "$PWD"\nexec "{rig.program}" "$@"\n')
    script.chmod(0o755)
    return script


# States of the installation: what is made of the rig, and which complaint comes before the last line.

START_FAILED = b"Unable to start server application\n"


def server_file(content, mode=0o755):
    def make(rig):
        (rig.bin / "corvane").write_text(content)
        (rig.bin / "corvane").chmod(mode)

    return make


def server_link(target):
    return lambda rig: (rig.bin / "corvane").symlink_to(target)


def home(function):
    """A HOME of its own: a function of the rig."""

    def make(rig):
        rig.env["HOME"] = str(function(rig))

    return make


def tools(function):
    """A search path of its own, with the shell's tools only where `function` leaves them."""

    def make(rig):
        rig.env["PATH"] = str(rig.tools)
        function(rig.tools / "start-stop-daemon")

    return make


def closed_home(rig):
    rig.home.chmod(0)
    return rig.home


def script(path, body="exit 0", mode=0o755):
    path.write_text(f"#!/bin/sh\n{body}\n")
    path.chmod(mode)


INSTALLATIONS = {
    "no server": (lambda rig: None, b"system(): "),
    "no folder for the server": (lambda rig: rig.bin.rmdir(), b"system(): "),
    "a folder as server": (lambda rig: (rig.bin / "corvane").mkdir(), b"system(): "),
    "a server that cannot be run": (server_file("#!/bin/sh\n", 0o644), b"system(): "),
    "a server that is a link to nothing": (server_link("nothing"), b"system(): "),
    "a server that is a link to itself": (server_link("corvane"), b"system(): "),
    "a server that is a text": (server_file("no program\n"), b"system(): "),
    "a server without interpreter": (server_file("#!/no/such/interpreter\n"), b"system(): "),
    "an empty server": (server_file(""), b"system(): "),
    "a server that fails": (server_file("#!/bin/sh\nexit 3\n"), b"system(): "),
    "a server that is killed": (server_file("#!/bin/sh\nkill -9 $$\n"), b"system(): "),
    "a server that never listens": (server_file("#!/bin/sh\nexit 0\n"), b""),
    "a home that is a file": (home(lambda rig: rig.hex_file()), b"system(): "),
    "a home that is closed": (home(closed_home), b"system(): "),
    "no such home": (home(lambda rig: rig.folder / "nobody"), b"system(): "),
    "a home of 4000 bytes": (home(lambda rig: "/" + "h" * 3999), b"system(): "),
    "a home with an open quote": (home(lambda rig: f"{rig.folder}/it's"), b"system(): "),
    "a home with a newline": (home(lambda rig: f"{rig.folder}/a\nfalse #"), b"system(): "),
    "no tool": (tools(lambda tool: None), b"system(): "),
    "a folder as tool": (tools(lambda tool: tool.mkdir()), b"system(): "),
    "a tool that cannot be run": (tools(lambda tool: script(tool, mode=0o644)), b"system(): "),
    "a tool that is killed": (tools(lambda tool: script(tool, "kill -9 $$")), b"system(): "),
    "a tool that fails": (tools(lambda tool: script(tool, "exit 1")), b"system(): "),
    "a tool that does nothing": (tools(script), b""),
}


def play_installation(build, folder, make, complaint):
    rig = harness.Rig(build, folder)
    taken = harness.ScriptedServer()  # its port, where nobody ever listens
    try:
        make(rig)
        run = rig.run("-u", rig.hex_file("firmware.hex"), "-p", taken.port, "-a", "1")
        assert run.wait() == 1
        assert run.output == b""
        assert run.errors.endswith(START_FAILED)
        assert run.errors.count(START_FAILED) == 1
        assert complaint in run.errors
        assert bool(complaint) == (b"system(): " in run.errors)
    finally:
        rig.home.chmod(0o755)
        rig.close()
        taken.close()


@pytest.fixture(scope="module")
def outcomes(request, tmp_path_factory):
    """All selected rows, several at a time: the hex files beside each other, the installations one by one in between,
    since the tool allows one server of a name."""
    build = request.config.getoption("--build")
    names = harness.selected_rows(request)

    def folder():
        return tmp_path_factory.mktemp("state")

    def installations(folders):
        outcome = {}
        for name, place in folders.items():
            outcome[name] = concurrent.futures.Future()
            try:
                outcome[name].set_result(play_installation(build, place, *INSTALLATIONS[name]))
            except BaseException as failure:  # pylint: disable=broad-except
                outcome[name].set_exception(failure)
        return outcome

    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        started = pool.submit(installations, {name: folder() for name in INSTALLATIONS if name in names})
        found = {name: pool.submit(play_hex_file, build, folder(), *row) for name, row in HEX_FILES.items() if name in names}
    return {**found, **started.result()}


def test_there_are_enough_of_them():
    assert len(HEX_FILES) + len(INSTALLATIONS) >= 40
    assert not set(HEX_FILES) & set(INSTALLATIONS)


@pytest.mark.parametrize("name", HEX_FILES)
def test_a_state_of_the_hex_file(outcomes, name):
    outcomes[name].result()


@pytest.mark.parametrize("name", INSTALLATIONS)
def test_a_state_of_the_installation(outcomes, name):
    outcomes[name].result()


# Places of the server that end up in the launch command.

HOMES = {
    "an ordinary home": ("/home/op", "/home/op/.varnex/bin/corvane"),
    "a slash at the end": ("/home/op/", "/home/op/.varnex/bin/corvane"),
    "the root folder": ("/", "/.varnex/bin/corvane"),
    "an empty home": ("", ".varnex/bin/corvane"),
    "no home": (None, "/usr/local/varnex/bin/corvane"),
    "a relative home": ("home/op", "home/op/.varnex/bin/corvane"),
    "two letters": ("/x", "/x.varnex/bin/corvane"),
    "blanks are split by the shell": ("/home/o p", "/home/o p/.varnex/bin/corvane"),
    "a variable is replaced by the shell": ("/home/$NAME", "/home/op/.varnex/bin/corvane"),
}


@pytest.mark.parametrize("name", HOMES)
def test_where_the_server_is_looked_for(rig, name):
    value, place = HOMES[name]
    rig.stub_tool("start-stop-daemon", f'printf "%s|" "$@" >"{rig.launches}"\nexit 1')
    rig.env.pop("HOME")
    run = rig.run("-u", rig.hex_file(), "-p", "41265", "-a", "1", **({} if value is None else {"HOME": value}), NAME="op")
    assert run.wait() == 1
    expected = f"-n corvane -a {place} -S -- -q -i 0 -p 41265 ".replace(" ", "|")
    assert rig.launches.read_text() == expected


CLOSED = ["<&-", ">&-", "2>&-", "<&- >&-", "<&- >&- 2>&-"]


def close_standard_descriptors(rig, closed):
    """The program of the rig is started with these closed from now on."""
    starter = rig.folder / "closing"
    starter.write_text(f'#!/bin/sh\nexec "{rig.program}" "$@" {closed}\n')
    starter.chmod(0o755)
    rig.program = starter


@pytest.mark.parametrize("arguments", [["-u", "missing.hex", "-a", "1"], ["-u", "/dev/null"]], ids=["file", "address"])
@pytest.mark.parametrize("closed", CLOSED)
def test_closed_standard_descriptors_put_no_message_on_the_wire(rig, closed, arguments):
    server = rig.scripted_server()
    close_standard_descriptors(rig, closed)
    run = rig.run(*arguments, "-p", server.port)
    link = server.accept()
    assert run.wait() == 1
    assert link.recv(1000) == b""


@pytest.mark.parametrize("closed", CLOSED)
def test_closed_standard_descriptors_put_nothing_on_the_wire(rig, closed):
    """Whatever takes the numbers 0 to 2, the server gets the program's packets and not a byte of its texts."""
    server = rig.scripted_server()
    close_standard_descriptors(rig, closed)
    run = rig.run("-u", rig.hex_file(), "-p", server.port, "-a", "1")
    link = server.accept()
    packets = [receive_packet(link) for _ in range(3)]
    link.sendall(packet(4711) + status(5, progress=1) + status(6))
    assert run.wait() == 0
    while (more := receive_packet(link)) is not None:
        packets.append(more)
    assert [command for command, _ in packets[:3]] == [POLL, RESET, UPLOAD]
    assert set(packets[3:]) <= {(POLL, b"")}
    assert struct.unpack("<I", packets[2][1][2:6]) == (0,)
