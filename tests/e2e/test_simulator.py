"""The whole path: the program, the system's start-stop-daemon, the simulated server and its ready scenarios."""

import os
import pathlib
import re
import signal
import subprocess

import pytest

import harness
from harness import block, packet, wait_for

SOURCES = pathlib.Path(__file__).resolve().parents[2]
SCENARIOS = SOURCES / "sim" / "scenarios"
FAST = "speed 100; block 8"


@pytest.fixture
def flash(rig, private_processes):
    """Starts an upload against the simulated server with the given scenario."""
    if not private_processes and harness.processes_named("corvane"):
        pytest.skip("a process of the server's name runs on this machine")
    rig.install_simulator()

    def start(scenario, settings=FAST, options=(), hex_file=None, **keywords):
        port = harness.free_port()
        return rig.run(
            "-u", hex_file or sample(rig), "-p", port, "-a", "0x2A", "-n", "12345", *options,
            CORVANE_SCENARIO=str(SCENARIOS / f"{scenario}.scenario"), CORVANE_SETTINGS=settings,
            CORVANE_JOURNAL=str(rig.journal), CORVANE_IDLE_SECONDS="60", **keywords,
        )

    yield start
    for run in rig.runs:
        if run.process.poll() is None:
            run.process.kill()
            run.process.wait()
    harness.end_processes("corvane")


def sample(rig, size=1024):
    return rig.hex_file("sample.hex", harness.sample_hex(size))


def painted_states(run):
    """The state lines in the order in which they were painted, repetitions left out."""
    states = re.findall(rb"    state    ([^\x1b]*)\x1b\[0K\n", run.output)
    return [state.decode() for i, state in enumerate(states) if i == 0 or states[i - 1] != state]


def finished_block(run, state, **fields):
    """True when the output ends with the block of that state and the final newline."""
    return run.output.endswith(block(state, address="2a", serial=12345, **fields) + b"\n")


ENDINGS = {
    "normal": ["Preparing for upload", "Searching for device", "Erasing FLASH", "Programming", "Done"],
    "fast": ["Preparing for upload", "Searching for device", "Erasing FLASH", "Programming", "Done"],
    "split": ["Preparing for upload", "Searching for device", "Erasing FLASH", "Programming", "Done"],
    "offset-12": ["Preparing for upload", "Searching for device", "Erasing FLASH", "Programming", "Done"],
    "coalesced": None,
    "listens-late": ["Preparing for upload", "Searching for device", "Erasing FLASH", "Programming", "Done"],
    "unknown-command": ["Preparing for upload", "Searching for device", "Erasing FLASH", "Programming", "Done"],
    "device-not-found": ["Preparing for upload", "Searching for device", "Error! Device not found."],
    "erase-timeout": [
        "Preparing for upload",
        "Searching for device",
        "Erasing FLASH",
        "Error! Timed out while waiting for FLASH erase.",
    ],
    "response-timeout": [
        "Preparing for upload",
        "Searching for device",
        "Erasing FLASH",
        "Programming",
        "Error! Timed out while waiting for response.",
    ],
    "locked": ["Locked"],
}


@pytest.mark.parametrize("scenario", ENDINGS)
def test_a_scenario_that_ends_by_itself(flash, scenario):
    # `listens-late` is late in the real time of the program's waits.
    run = flash(scenario, settings="" if scenario == "listens-late" else FAST)
    assert run.wait() == 0
    states = [state for state in painted_states(run) if state != "Idle"]
    if ENDINGS[scenario] is None:
        assert states[-1] == "Done"
    else:
        assert states == ENDINGS[scenario]
    assert run.output.endswith(b"\n\n")
    assert run.errors == b""


def test_a_whole_upload_ends_with_its_last_block(flash):
    run = flash("normal", options=["-m", "MTCAN"])
    assert run.wait() == 0
    assert finished_block(run, "Done", mode="MT CAN", progress=100)


@pytest.mark.parametrize("scenario", ["refuses", "refuses-start", "listens-too-late"])
def test_a_server_that_cannot_be_reached(flash, scenario):
    run = flash(scenario, settings="")
    assert run.wait() == 1
    assert run.errors.endswith(b"Unable to start server application\n")
    assert run.output == b""


@pytest.mark.parametrize(
    "scenario", ["close-at-40", "reset-at-40", "half-packet", "dies", "silence-at-40", "silence"]
)
def test_a_scenario_that_leaves_the_technician_waiting(flash, scenario):
    run = flash(scenario)
    if scenario != "silence":
        run.expect(b"    progress 40%")
    assert run.still_runs(2.5)
    run.signal(signal.SIGINT)
    assert run.wait() == 0
    assert run.output.endswith(b"Dunmallow: handleShutDownSignal( 2 )\n")
    if scenario == "silence":
        assert run.output == b"Dunmallow: handleShutDownSignal( 2 )\n"
    else:
        assert painted_states(run)[-1] == "Programming"
    assert run.errors == b""


def test_an_unknown_state_is_shown_and_waited_through(flash):
    run = flash("unknown-state")
    assert run.wait() == 0
    assert "unknown" in painted_states(run)
    assert painted_states(run)[-1] == "Done"


def test_an_unknown_command_is_named(flash):
    run = flash("unknown-command")
    assert run.wait() == 0
    assert run.output.count(b" ) Unexpected command: 4711\n") == 1


def test_a_burst_of_reports_is_survived(flash):
    # The link is dropped as soon as busy ends and opened again by the next poll; the server still says Done then.
    run = flash("burst")
    assert run.wait() == 0
    assert painted_states(run)[-1] == "Done"
    assert run.errors == b""


@pytest.mark.parametrize(
    ("content", "state"),
    [
        (":00000001FE\n", "Error! The hex file is incorrectly formatted."),
        ("", "Error! The hex file is incorrectly formatted."),
    ],
    ids=["wrong checksum", "empty"],
)
def test_a_bad_hex_file_is_the_servers_to_refuse(flash, rig, content, state):
    run = flash("normal", hex_file=rig.hex_file("bad.hex", content))
    assert run.wait() == 0
    assert painted_states(run)[-1] == state


def test_an_unreadable_hex_file_is_the_servers_to_refuse(flash, rig):
    path = rig.hex_file("secret.hex")
    os.chmod(path, 0)
    if os.access(path, os.R_OK):
        pytest.skip("this user can read everything")
    run = flash("normal", hex_file=path)
    assert run.wait() == 0
    assert painted_states(run)[-1] == "Error! Unable to open the hex file."


def test_a_running_server_makes_the_next_start_fail(flash):
    run = flash("fast")
    assert run.wait() == 0
    again = flash("fast")  # another port: only the name of the running server stands in the way
    assert again.wait() == 1
    assert again.errors.endswith(b"Unable to start server application\n")
    assert b"system(): " in again.errors


def test_the_packets_between_both(flash, rig):
    """The wire of a whole upload, both ways, against bytes written by hand."""
    hex_file = sample(rig, 16)
    run = flash("fast", hex_file=hex_file)
    assert run.wait() == 0
    entries = harness.read_journal(rig.journal)
    received = [entry.bytes for entry in entries if entry.incoming]
    path = hex_file.encode() + b"\0"
    upload = bytes.fromhex("00 2a 39300000") + path
    assert received[:3] == [packet(1001), packet(1002), packet(1004, upload)]
    assert set(received[3:]) <= {packet(1001)}
    sent = [entry.bytes for entry in entries if not entry.incoming]
    assert sent[0][4:6] == b"\x00\x02"  # the server's identity comes first
    assert packet(1000, bytes.fromhex("00 06 64 2a 39300000")) in sent


def test_an_upload_is_watched_as_the_page_tells(flash, rig):
    """docs/protocol.md: the server's journal becomes a capture, and the dissector has nothing to complain about."""
    hex_file = sample(rig)
    assert flash("normal", hex_file=hex_file, options=["-m", "MTCAN"]).wait() == 0
    page = (SOURCES / "docs" / "protocol.md").read_text()
    [convert] = re.findall(r"^    (text2pcap .*) /tmp/packets (?=upload.pcapng$)", page, re.M)
    [show] = re.findall(r"^    (tshark .* -r upload.pcapng)$", page, re.M)
    (rig.folder / "packaging").symlink_to(SOURCES / "packaging")
    command = f"{convert} {rig.journal} upload.pcapng && {show} -T fields -e _ws.col.Info -e _ws.expert.message"
    done = subprocess.run(["sh", "-c", command], cwd=rig.folder, env=rig.env, capture_output=True, text=True, check=True)
    packets = done.stdout.splitlines()
    assert packets[0].startswith("CmdConnectionInfo: process ")
    wanted = ["CmdStatusRequest", "CmdStatus: ISO Style, Idle, 0 %, address 254, serial ---", "CmdStatusReset",
              f"CmdUpload: MT CAN, address 42, serial 12345, {hex_file}"]
    assert [packet for packet in packets if packet.removesuffix("\t") in wanted][:4] == [f"{line}\t" for line in wanted]
    assert "CmdStatus: MT CAN, Done, 100 %, address 42, serial 12345\t" in packets
    assert all(packet.endswith("\t") for packet in packets)


def test_the_server_sees_requests_in_their_time(flash, rig):
    run = flash("silence", settings="ignore byte")
    wait_for(lambda: len(harness.read_journal(rig.journal)) >= 6, "three polls")
    run.signal(signal.SIGTERM)
    assert run.wait() == 0
    moments = {}
    for entry in harness.read_journal(rig.journal):
        if entry.incoming:
            moments.setdefault(entry.command, []).append(entry.seconds)
    polls = moments[1001]
    assert all(later - earlier > 0.95 for earlier, later in zip(polls, polls[1:]))
    assert moments[1004][0] - polls[0] > 0.09


@pytest.mark.soak
def test_200_uploads_in_a_row(flash, rig, request):
    """No failure, no descriptor, thread or process left over."""
    before = len(os.listdir("/proc/self/fd"))
    for number in range(200):
        run = flash("fast", settings="speed 1000")
        assert run.wait() == 0, f"upload {number}"
        assert finished_block(run, "Done", progress=100), f"upload {number}: {run.output[-600:]!r}"
        assert run.errors == b"", f"upload {number}"
        run.close()
        rig.runs.remove(run)
        harness.end_processes("corvane")
        assert harness.processes_named("dunmallow") == []
    assert len(os.listdir("/proc/self/fd")) == before
