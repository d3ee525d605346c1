"""What somebody who answers on the server's port can and cannot do; docs/threat-model.md names these tests."""

import contextlib
import re
import resource
import signal
import struct
import time

import pytest
from harness import packet, receive_packet, status, wait_for

# What may stand in the output: line ends, the two cursor sequences, and printable letters.
ALLOWED = re.compile(rb"(?:\n|\x1b\[6A|\x1b\[0K|[ -~])*")
HOSTILE_TEXT = b"\x1b]0;title\x07\x1b[2J\x9b31m\r\x00\xff"


def start(rig):
    server = rig.scripted_server()
    run = rig.run("-u", rig.hex_file(), "-p", server.port, "-a", "1")
    return run, server.accept()


def peak_memory(run, what="VmHWM"):
    """Most memory that the program had, in MiB; with "VmPeak" what it only asked for counts too."""
    with open(f"/proc/{run.process.pid}/status", encoding="ascii") as file:
        return int(re.search(rf"{what}:\s+(\d+) kB", file.read())[1]) / 1024


def test_no_byte_of_the_server_reaches_the_terminal(rig):
    """Its texts are never printed and its numbers only as digits: it cannot send sequences to the terminal."""
    run, link = start(rig)
    text = bytes([len(HOSTILE_TEXT)]) + HOSTILE_TEXT
    link.sendall(packet(2, struct.pack("<I", 1) + text * 3) + packet(4711, HOSTILE_TEXT) + packet(1, HOSTILE_TEXT))
    for value in range(256):
        # Every value of every field, but for the states, most of which would end the run or the link.
        link.sendall(status(5, mode=value, progress=value, address=value, serial=value * 0x01010101))
    link.sendall(status(6))
    assert run.wait() == 0
    assert ALLOWED.fullmatch(run.output)
    assert HOSTILE_TEXT not in run.errors


def test_a_false_length_takes_no_memory(rig):
    run, link = start(rig)
    receive_packet(link)
    before, asked_before = peak_memory(run), peak_memory(run, "VmPeak")
    link.sendall(struct.pack(">IHH", 0xFFFFFFFF, 1000, 8) + b"x" * 100000)
    assert run.still_runs(0.5)
    assert peak_memory(run) < before + 16
    assert peak_memory(run, "VmPeak") < asked_before + 1024
    run.signal(signal.SIGTERM)
    assert run.wait() == 0


def test_a_packet_beyond_all_memory_ends_the_run_with_a_message(rig):
    """Somebody who goes on sending what a false length promised; whoever waits then waits for nothing any more."""
    if re.search(b"__[at]san_init", rig.program.read_bytes()):
        pytest.skip("the sanitizers take address space of their own")
    run, link = start(rig)
    receive_packet(link)
    limit = int(peak_memory(run, "VmPeak") + 48) << 20
    resource.prlimit(run.process.pid, resource.RLIMIT_AS, (limit, limit))
    link.sendall(struct.pack(">IHH", 0xFFFFFFFF, 1000, 8))
    with contextlib.suppress(OSError):
        for _ in range(200):
            link.sendall(bytes(1 << 20))
    assert run.wait() == 1
    assert run.errors == b"dunmallow: out of memory\n"


def test_a_server_that_says_too_much_takes_no_memory_and_can_be_left(rig):
    """Packets that nobody asked for, as fast as they go: the program takes them one by one and ends when it is told to."""
    # AddressSanitizer keeps what was freed, to see late uses of it: let it keep little, for that is no memory of ours.
    rig.env["ASAN_OPTIONS"] += ":quarantine_size_mb=1:thread_local_quarantine_size_kb=64"
    run, link = start(rig)
    receive_packet(link)
    before = peak_memory(run)
    flood = packet(2, struct.pack("<I", 1)) * 1000
    end = time.monotonic() + 1.0
    while time.monotonic() < end:
        link.sendall(flood)
    assert peak_memory(run) < before + 16
    run.signal(signal.SIGTERM)
    assert run.wait(20.0) == 0


def test_a_server_that_does_not_read_can_be_left(rig):
    run, link = start(rig)
    assert run.still_runs(2.5)  # some requests wait in the link
    run.signal(signal.SIGINT)
    assert run.wait(20.0) == 0
    link.close()


def test_the_server_decides_what_is_shown(rig):
    """Nobody proves who he is: whoever answers on the port can claim that everything went well."""
    run, link = start(rig)
    link.sendall(status(6, progress=100))
    assert run.wait() == 0
    assert b"    state    Done\x1b[0K\n" in run.output


def test_the_server_cannot_choose_the_file(rig):
    """The only path that ever goes out is the one from the command line, once."""
    run, link = start(rig)
    link.sendall(packet(1004, bytes(6) + b"/etc/passwd\0") + packet(1001) + packet(1002) + status(5))
    seen = [receive_packet(link) for _ in range(5)]
    assert [command for command, _ in seen] == [1001, 1002, 1004, 1001, 1001]
    assert seen[2][1][6:] == f"{rig.folder}/firmware.hex".encode() + b"\0"
    link.sendall(status(6))
    assert run.wait() == 0
    wait_for(lambda: receive_packet(link) is None, "the end of the link")


def test_home_is_part_of_a_shell_command(rig):
    """Kept, and the reason why the program must not run with more rights than the one who sets HOME."""
    rig.stub_tool("start-stop-daemon", "exit 1")
    run = rig.run("-u", rig.hex_file(), "-p", "41265", "-a", "1", HOME=f"$(echo done >{rig.folder}/proof)")
    assert run.wait() == 1
    assert (rig.folder / "proof").read_text() == "done\n"


def test_no_other_argument_reaches_the_shell(rig):
    """Numbers are numbers by then, and names go to the server or the resolver, not to the shell."""
    evil = f"$(touch {rig.folder}/proof)"
    rig.stub_tool("start-stop-daemon", f'printf "%s\\n" "$*" >"{rig.launches}"\nexit 1')
    for arguments in (["-i", f"1;{evil}"], ["-m", evil], ["-a", evil], ["-n", evil], ["-p", f"41265{evil}"], ["-u", evil]):
        run = rig.run("-u", rig.hex_file(), "-p", "41265", "-a", "1", *arguments)
        assert run.wait() == 1
        assert re.fullmatch(
            rf"-n corvane -a {re.escape(rig.server_path)} -S -- -q -i [01] -p 41265\n", rig.launches.read_text())
    assert not (rig.folder / "proof").exists()
