"""From the command line to the last status against a server whose bytes are scripted."""

import contextlib
import os
import signal
import struct
import subprocess
import time

import pytest

from harness import DEADLINE, block, packet, receive, receive_packet, status, wait_for

STATUS_REQUEST = bytes.fromhex("00000008 03e9 0008")
STATUS_RESET = bytes.fromhex("00000008 03ea 0008")


def start(rig, *options, hex_file=None, **keywords):
    """A run against a scripted server; returns run, server and the accepted connection."""
    server = rig.scripted_server()
    run = rig.run("-u", hex_file or rig.hex_file(), "-p", server.port, "-a", "0x2A", "-n", "12345", *options, **keywords)
    return run, server, server.accept()


def test_the_packets_of_an_upload(rig):
    hex_file = rig.hex_file()
    run, _, link = start(rig, "-m", "MTCAN", hex_file=hex_file)
    path = hex_file.encode() + b"\0"
    upload = (
        struct.pack(">I", 8 + 6 + len(path)) + bytes.fromhex("03ec 0008") + bytes.fromhex("01 2a 39300000") + path
    )
    expected = STATUS_REQUEST + STATUS_RESET + upload + STATUS_REQUEST + STATUS_REQUEST
    assert receive(link, len(expected)) == expected
    link.sendall(status(6))
    assert run.wait() == 0


def moments_of_requests(rig):
    run, _, link = start(rig)
    moments = []
    for command in (1001, 1002, 1004, 1001, 1001):
        assert receive_packet(link)[0] == command
        moments.append(time.monotonic())
    link.sendall(status(0))
    assert run.wait() == 0
    return moments


def test_the_requests_come_in_their_time(rig):
    # On a busy machine a request may be read late, and so seem too close to the next one: then once more.
    for _ in range(5):
        moments = moments_of_requests(rig)
        assert moments[4] - moments[0] < 60
        step, first_poll, second_poll = (moments[later] - moments[earlier] for earlier, later in ((0, 1), (0, 3), (3, 4)))
        if step > 0.090 and first_poll > 0.950 and second_poll > 0.950:  # the step takes two firings of its timer
            return
        rig.forget_launch()
    raise AssertionError(f"too early: {step}, {first_poll}, {second_poll}")


def test_the_launch_command(rig):
    run, server, link = start(rig, "-i", "-1")
    assert rig.launches.read_text() == f"-n corvane -a {rig.server_path} -S -- -q -i -1 -p {server.port}\n"
    link.sendall(status(6))
    assert run.wait() == 0


STATES = {
    0: ("Locked", True),
    1: ("Idle", False),
    2: ("Preparing for upload", False),
    3: ("Searching for device", False),
    4: ("Erasing FLASH", False),
    5: ("Programming", False),
    6: ("Done", True),
    7: ("unknown", False),
    99: ("unknown", False),
    100: ("Error! Device not found.", True),
    101: ("Error! Timed out while waiting for FLASH erase.", True),
    102: ("Error! Timed out while waiting for response.", True),
    103: ("Error! Unable to find the hex file.", True),
    104: ("Error! Unable to open the hex file.", True),
    105: ("Error! The hex file is incorrectly formatted.", True),
    106: ("unknown", True),
    255: ("unknown", True),
}


@pytest.mark.parametrize("state", STATES)
def test_every_state_is_painted_byte_for_byte(rig, state):
    text, final = STATES[state]
    run, _, link = start(rig)
    link.sendall(status(state, mode=1, progress=42, address=0x2A, serial=12345))
    painted = b"\n" * 7 + block(text, "MT CAN", 42, "2a", 12345)
    run.expect(painted)
    if final:
        assert run.wait() == 0
        assert run.output == painted + b"\n"
    else:
        assert run.still_runs(0.5)
        assert run.output == painted
        run.signal(signal.SIGTERM)
        assert run.wait() == 0
    assert run.errors == b""


@pytest.mark.parametrize(
    ("serial", "text"),
    [(0, 0), (0x1FFFFFFE, 536870910), (0x1FFFFFFF, "---"), (0xFFFFFFFF, "---")],
    ids=["smallest", "largest known", "first unknown", "none"],
)
def test_serial_numbers(rig, serial, text):
    run, _, link = start(rig)
    link.sendall(status(6, serial=serial))
    assert run.wait() == 0
    assert run.output == b"\n" * 7 + block("Done", serial=text) + b"\n"


@pytest.mark.parametrize(("mode", "text"), enumerate(["ISO Style", "MT CAN", "New Module", "Global", "unknown"]))
def test_mode_names(rig, mode, text):
    run, _, link = start(rig)
    link.sendall(status(6, mode=mode, progress=255, address=255))
    assert run.wait() == 0
    assert run.output == b"\n" * 7 + block("Done", text, 255, "ff") + b"\n"


def test_every_change_repaints_and_an_unchanged_report_does_not(rig):
    run, _, link = start(rig)
    link.sendall(status(2) + status(2) + status(5, progress=1) + status(5, progress=1) + status(5, progress=100) + status(6))
    assert run.wait() == 0
    assert run.output == b"\n" * 7 + b"".join(
        [
            block("Preparing for upload"),
            block("Programming", progress=1),
            block("Programming", progress=100),
            block("Done"),
            b"\n",
        ]
    )


def test_the_first_report_paints_nothing_when_it_is_the_default(rig):
    run, _, link = start(rig)
    link.sendall(status(1))
    assert run.still_runs(0.5)
    assert run.output == b""
    link.sendall(status(6))
    assert run.wait() == 0


def test_the_screen_shows_one_block_repainted_in_place(rig):
    run, _, link = start(rig, rows=7, columns=60)
    for progress in range(0, 101, 10):
        link.sendall(status(5, progress=progress, address=0x2A, serial=12345))
    link.sendall(status(101, progress=7, address=1, serial=1))
    assert run.wait() == 0
    assert run.screen() == [
        "    mode     ISO Style",
        "    state    Error! Timed out while waiting for FLASH erase.",
        "    progress 7%",
        "    adr      1",
        "    serial   1",
        "",
        "",
    ]


# Failures of the start, each a row of the documented table.


def test_a_server_that_is_already_reachable_is_refused_without_a_command(rig):
    server = rig.scripted_server()
    server.listen()
    run = rig.run("-u", rig.hex_file(), "-p", server.port, "-a", "1")
    assert run.wait() == 1
    assert run.errors == b"Unable to start server application\n"
    assert run.output == b""
    assert not rig.launches.exists()


def test_a_failing_launch_command_is_reported(rig):
    rig.stub_tool("start-stop-daemon", "exit 1")
    run = rig.run("-u", rig.hex_file(), "-p", "41265", "-a", "1")
    assert run.wait() == 1
    lines = run.errors.split(b"\n")
    assert lines[0].startswith(b"system(): ")
    assert lines[1:] == [b"Unable to start server application", b""]


def test_a_server_that_never_listens_is_reported_after_the_six_attempts(rig):
    rig.stub_tool("start-stop-daemon", "exit 0")
    began = time.monotonic()
    run = rig.run("-u", rig.hex_file(), "-p", "41265", "-a", "1")
    assert run.wait() == 1
    assert time.monotonic() - began > 0.400
    assert run.errors == b"Unable to start server application\n"


@pytest.mark.parametrize("name", ["missing.hex", "", "missing/folder.hex"])
def test_a_missing_hex_file_is_reported(rig, name):
    server = rig.scripted_server()
    run = rig.run("-u", name, "-p", server.port, "-a", "1")
    assert run.wait() == 1
    assert run.errors == b"Unable to find specified file\n"


@pytest.mark.parametrize("options", [[], ["-a", "254"], ["-a", "255"], ["-a", "2147483647"]], ids=["default", "254", "255", "largest"])
def test_an_address_above_253_is_reported(rig, options):
    server = rig.scripted_server()
    run = rig.run("-u", rig.hex_file(), "-p", server.port, *options)
    assert run.wait() == 1
    assert run.errors == b"Invalid address\n"


@pytest.mark.parametrize(("address", "byte"), [("253", 253), ("-1", 255), ("0", 0), ("0xfd", 253)])
def test_other_addresses_go_out_as_their_low_byte(rig, address, byte):
    server = rig.scripted_server()
    run = rig.run("-u", rig.hex_file(), "-p", server.port, "-a", address)
    link = server.accept()
    commands = [receive_packet(link) for _ in range(3)]
    assert commands[2][0] == 1004
    assert commands[2][1][1] == byte
    link.sendall(status(6))
    assert run.wait() == 0


def test_a_server_that_is_gone_when_the_upload_is_requested(rig):
    """The link breaks at once: the program waits, or says which step found no server, and never crashes."""
    server = rig.scripted_server()
    run = rig.run("-u", rig.hex_file(), "-p", server.port, "-a", "1", "-s", "127.0.0.1")
    server.accept().close()
    server.socket.close()
    # Which check meets the broken link first depends on timing: all three ends are documented.
    if run.still_runs(2.0):
        run.signal(signal.SIGINT)
        assert run.wait() == 0
    else:
        assert run.wait() == 1
        assert run.errors.decode() in (
            "Unable to start server application\n",
            f"Unable to locate server application: '{rig.server_path}\n",
        )


def test_an_unresolvable_host_ends_the_run_with_its_message(rig):
    run = rig.run("-u", rig.hex_file(), "-s", "no..such..host", "-a", "1", LOCALDOMAIN="a.example")
    assert run.wait() == 1
    assert run.errors.startswith(b"getaddrinfo(no..such..host): ")
    assert run.errors.count(b"\n") == 1


# Waiting.


def test_a_directory_as_hex_file_connects_and_sends_nothing(rig):
    run, _, link = start(rig, hex_file=str(rig.folder))
    link.settimeout(1.5)
    with pytest.raises(TimeoutError):
        link.recv(1)
    link.sendall(status(5, progress=3))
    run.expect(b"\n" * 7 + block("Programming", progress=3))
    assert run.still_runs(0.3)
    run.signal(signal.SIGINT)
    assert run.wait() == 0
    assert run.output.endswith(b"Dunmallow: handleShutDownSignal( 2 )\n")
    assert run.errors == b""


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_a_signal_ends_the_run_cleanly(rig, number):
    run, _, link = start(rig)
    link.sendall(status(5, progress=12))
    run.expect(b"12%")
    run.signal(number)
    assert run.wait() == 0
    assert run.output.endswith(b"Dunmallow: handleShutDownSignal( %d )\n" % number)
    assert run.errors == b""
    while receive_packet(link):  # requests sent before the end, then the end of the link
        pass


def test_a_link_that_the_server_closes_is_never_opened_again(rig):
    run, server, link = start(rig)
    link.sendall(status(5, progress=12))
    run.expect(b"12%")
    link.close()
    server.socket.settimeout(3.0)
    with pytest.raises(TimeoutError):
        server.socket.accept()
    assert run.still_runs(0.1)
    run.signal(signal.SIGTERM)
    assert run.wait() == 0


def test_the_link_is_dropped_when_busy_ends_and_the_next_poll_opens_a_new_one(rig):
    run, server, link = start(rig)
    while receive_packet(link)[0] != 1004:
        pass
    link.sendall(status(5, progress=12) + status(1))
    while receive_packet(link):
        pass
    again = server.accept()
    assert receive_packet(again) == (1001, b"")
    again.sendall(status(6))
    assert run.wait() == 0


def test_a_first_report_outside_the_busy_range_keeps_the_link(rig):
    run, server, link = start(rig)
    link.sendall(status(7))
    commands = [receive_packet(link)[0] for _ in range(5)]
    assert commands == [1001, 1002, 1004, 1001, 1001]
    link.sendall(status(6))
    assert run.wait() == 0


def test_a_file_that_vanishes_before_the_request_sends_nothing_more_than_polls(rig):
    hex_file = rig.hex_file()
    run, _, link = start(rig, hex_file=hex_file)
    assert receive_packet(link) == (1001, b"")
    (rig.folder / "firmware.hex").unlink()
    assert receive_packet(link) == (1001, b"")
    link.sendall(status(6))
    assert run.wait() == 0


# Bytes that no good server sends.


def test_an_unknown_command_is_named_and_ignored(rig):
    run, _, link = start(rig)
    link.sendall(packet(4711, b"abc") + status(6))
    assert run.wait() == 0
    assert b"CANFlasherClient::handleRxPacket( 0x" in run.output
    assert b" ) Unexpected command: 4711\n" in run.output


@pytest.mark.parametrize(
    "junk",
    [packet(1000), packet(1000, b"1234567"), packet(1000, b"12345678", offset=9), packet(1000, b"12345678", offset=65535)],
    ids=["empty", "seven bytes", "offset one too far", "offset outside"],
)
def test_a_report_that_is_too_short_is_dropped(rig, junk):
    run, _, link = start(rig)
    link.sendall(junk + status(6))
    assert run.wait() == 0
    assert run.output == b"\n" * 7 + block("Done") + b"\n"


@pytest.mark.parametrize("length", range(8))
def test_a_length_below_8_ends_the_link(rig, length):
    run, _, link = start(rig)
    while receive_packet(link)[0] != 1004:
        pass
    link.sendall(struct.pack(">I", length) + b"\0" * 16 + status(6))
    link.settimeout(2.5)
    try:
        # A request may have been on its way; two polls later nothing may come any more.
        assert receive(link, 100) in (b"", STATUS_REQUEST)
    except TimeoutError:
        pass
    assert run.still_runs(0.1)
    run.signal(signal.SIGTERM)
    assert run.wait() == 0
    assert run.output == b"Dunmallow: handleShutDownSignal( 15 )\n"


def test_a_payload_offset_of_12_is_understood(rig):
    run, _, link = start(rig)
    link.sendall(packet(1000, bytes.fromhex("01 06 64 2a 39300000"), offset=12, extra=b"????"))
    assert run.wait() == 0
    assert run.output == b"\n" * 7 + block("Done", "MT CAN", 100, "2a", 12345) + b"\n"


def test_a_report_in_single_bytes_is_painted_whole(rig):
    run, _, link = start(rig)
    for byte in status(5, progress=77) + status(6):
        link.sendall(bytes([byte]))
        time.sleep(0.002)
    assert run.wait() == 0
    assert run.output == b"\n" * 7 + block("Programming", progress=77) + block("Done") + b"\n"


def test_a_burst_of_alternating_reports_stops_nobody(rig):
    """600 reports that alternate between busy and idle once locked worker, receiver and dispatcher against each other."""
    run, _, link = start(rig)
    assert receive_packet(link) == (1001, b"")
    burst = (status(5, progress=1) + status(1, progress=1)) * 2000
    try:
        link.sendall(burst)
    except OSError:
        pass  # the client drops the link as soon as busy ends
    assert run.still_runs(1.0)
    run.signal(signal.SIGTERM)
    assert run.wait() == 0
    # What is left of the burst may still be painted behind the line, until the link is closed.
    assert run.output.count(b"\nDunmallow: handleShutDownSignal( 15 )\n") == 1


def test_the_program_uses_few_descriptors_and_leaves_none_to_the_server(rig):
    listing = rig.folder / "inherited"
    server = rig.scripted_server()
    stub = (rig.tools / "start-stop-daemon").read_text().replace("#!/bin/sh\n", f'#!/bin/sh\nls /proc/$$/fd >"{listing}"\n')
    (rig.tools / "start-stop-daemon").write_text(stub)
    run = rig.run("-u", rig.hex_file(), "-p", server.port, "-a", "1")
    link = server.accept()
    descriptors = {int(name) for name in listing.read_text().split()}
    assert {name for name in descriptors if name < 10} <= {0, 1, 2}  # the shell keeps its script at 10
    assert run.threads() <= 8
    link.sendall(status(6))
    assert run.wait() == 0


def test_output_to_a_pipe_is_the_same(rig):
    import subprocess

    server = rig.scripted_server()
    run = subprocess.Popen(
        [rig.program, "-u", rig.hex_file(), "-p", str(server.port), "-a", "1"],
        env=rig.env,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
    )
    link = server.accept()
    link.sendall(status(5) + status(6))
    output, errors = run.communicate(timeout=DEADLINE)
    assert run.returncode == 0
    assert (output, errors) == (b"\n" * 7 + block("Programming") + block("Done") + b"\n", b"")


def test_a_storm_of_signals_ends_the_run_once(rig):
    run, _, link = start(rig)
    link.sendall(status(5))
    run.expect(b"Programming")

    def storm():
        for _ in range(50):
            for number in (signal.SIGINT, signal.SIGTERM):
                if run.process.poll() is None:
                    run.signal(number)
        return run.process.poll() is not None

    wait_for(storm, "the end of the run under a storm of signals")
    assert run.wait() == 0


@contextlib.contextmanager
def with_standard_error_to(pipe, rig):
    """A run that is refused for its hex file, its standard error at this end of a pipe."""
    server = rig.scripted_server()
    command = [rig.program, "-u", rig.folder / "missing.hex", "-p", str(server.port), "-a", "1"]
    with subprocess.Popen(command, env=rig.env, stdout=subprocess.PIPE, stderr=pipe) as run:
        os.close(pipe)
        try:
            with server.accept():  # it has started its server by then, and signals no longer end it at once
                yield run
        finally:
            run.kill()


def test_an_error_line_survives_a_signal_while_nobody_reads(rig):
    reading, writing = os.pipe()
    os.set_blocking(writing, False)
    waiting = 0
    with contextlib.suppress(BlockingIOError):
        while True:
            waiting += os.write(writing, bytes(4096))
    os.set_blocking(writing, True)
    with with_standard_error_to(writing, rig) as run, open(reading, "rb") as errors:
        for number in (signal.SIGTERM, signal.SIGINT):
            time.sleep(0.5)
            assert run.poll() is None
            run.send_signal(number)
        assert errors.read()[waiting:] == b"Unable to find specified file\n"
        assert run.wait(DEADLINE) == 1


def test_an_error_line_that_nobody_can_read_is_an_error_all_the_same(rig):
    reading, writing = os.pipe()
    os.close(reading)
    with with_standard_error_to(writing, rig) as run:
        assert run.wait(DEADLINE) == 1


def test_both_lines_of_two_signals_survive_a_terminal_that_stands_still(rig):
    run, _, link = start(rig)
    link.sendall(status(5))
    run.expect(block("Programming"))
    with run.terminal_stands_still():
        run.signal(signal.SIGTERM)
        assert run.still_runs(0.2)
        run.signal(signal.SIGINT)
        assert run.still_runs(0.2)
    assert run.wait() == 0
    after = run.output[run.output.index(b"serial") :]
    assert b"handleShutDownSignal( 15 )\n" in after and b"handleShutDownSignal( 2 )\n" in after
