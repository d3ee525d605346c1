"""The soak notices what is wrong: bad runs made by hand, and the real program with something wrong around it."""

import pathlib
import subprocess
import sys

import pytest

import soak_oracle
import soak_plan
from harness import block, packet, status
from soak_oracle import Expected, Link, Observed, Sent, faults, is_final

HERE = pathlib.Path(__file__).resolve().parent
FIRST = b"\n" * 7
SIGNALLED = b"Dunmallow: handleShutDownSignal( 15 )\n"
UPLOAD = packet(1004, b"\0\1\0\0\0\0/x\0")
ASKED = packet(1001) + packet(1002) + UPLOAD
BUSY, DONE = status(5, progress=7), status(6)
SHOWN_BUSY, SHOWN_DONE = block("Programming", progress=7), block("Done")
TERMINATED = Sent(15, {"handled"})


def seen(**changes):
    """A good run, but for the changes."""
    run = Observed(
        code=0, output=FIRST + SHOWN_BUSY + SHOWN_DONE + b"\n", links=[Link(BUSY + DONE)], asked=[ASKED], launched="-q",
        inherited=[0, 1, 2, 3, 10])
    for name, value in changes.items():
        setattr(run, name, value)
    return run


def waited(**changes):
    """A good run that waited until it was told to end, but for the changes."""
    return seen(**{
        "output": FIRST + SHOWN_BUSY + SIGNALLED, "shown_while_waiting": FIRST + SHOWN_BUSY, "links": [Link(BUSY)],
        "signals": [TERMINATED], **changes})


def expected(**changes):
    return Expected(**{"launch": "-q", "upload": UPLOAD, "server_path": "/p", **changes})


FAILED = b"Unable to start server application\n"

GOOD = {
    "an upload": (seen(), expected(last=(0, 6, 0, 254, 0xFFFFFFFF))),
    "a wait that a signal ends": (waited(), expected()),
    "a signal in the middle": (seen(output=FIRST + SHOWN_BUSY + SIGNALLED, signals=[TERMINATED]), expected()),
    "a signal before the handlers": (
        seen(code=-15, output=b"", launched="", links=[], asked=[], signals=[Sent(15, {"killed"})]),
        expected(requests_upload=False)),
    "a signal that is ignored": (seen(signals=[Sent(2, {"ignored"})]), expected()),
    "a signal at the very end": (seen(signals=[TERMINATED]), expected()),
    "its line behind the end": (seen(output=FIRST + SHOWN_BUSY + SHOWN_DONE + b"\n" + SIGNALLED, signals=[TERMINATED]), expected()),
    "a start that fails": (
        seen(code=1, output=b"", errors=b"system(): Success\n" + FAILED, links=[], asked=[]),
        expected(may_fail_start=True, requests_upload=False)),
    "a server that is gone": (
        seen(code=1, output=b"", errors=b"Unable to locate server application: '/p\n", links=[Link()], asked=[packet(1001)]),
        expected(may_fail_start=True, requests_upload=False)),
    "a link that the client opens again": (
        seen(output=FIRST + SHOWN_BUSY + block("Idle") + SHOWN_DONE + b"\n",
             links=[Link(BUSY + status(1) + status(3)), Link(DONE)], asked=[ASKED, packet(1001)]), expected()),
    "a folder as hex file": (waited(asked=[b""]), expected(requests_upload=False, silent=True)),
    "a report lost with the link": (waited(links=[Link(BUSY + status(4), certain=False)]), expected()),
    "a busy machine that shows late what may be lost": (
        waited(output=FIRST + SHOWN_BUSY + SIGNALLED, shown_while_waiting=b"", links=[Link(BUSY, certain=False)]),
        expected()),
    "a link that is reset before the connect returns": (
        seen(links=[Link(BUSY[:8], unasked=True), Link(BUSY + DONE)], asked=[b"", ASKED]), expected()),
    "a link that is reset before it is used": (
        waited(output=SIGNALLED, shown_while_waiting=b"", links=[Link(BUSY[:8], unasked=True)], asked=[b""]),
        expected(requests_upload=False)),
    "an unknown command": (
        seen(output=FIRST + SHOWN_BUSY + b"CANFlasherClient::handleRxPacket( 0x7f12 ) Unexpected command: 9\n" + SHOWN_DONE + b"\n",
             links=[Link(BUSY + packet(9) + DONE)]), expected()),
    "half a packet at the end": (waited(links=[Link(BUSY + DONE[:15])]), expected()),
    "a length that no packet has": (waited(links=[Link(BUSY + b"\0\0\0\7" + DONE)]), expected()),
}

BAD = {
    "the last block missing": (seen(output=FIRST + SHOWN_BUSY + b"\n"), expected()),
    "another state shown": (seen(output=FIRST + SHOWN_BUSY + block("Idle") + b"\n"), expected()),
    "a block twice": (seen(output=FIRST + SHOWN_BUSY * 2 + SHOWN_DONE + b"\n"), expected()),
    "a byte too much": (seen(output=FIRST + SHOWN_BUSY + SHOWN_DONE + b"\n\n"), expected()),
    "no line at the end": (seen(output=FIRST + SHOWN_BUSY + SHOWN_DONE), expected()),
    "six lines first": (seen(output=FIRST[1:] + SHOWN_BUSY + SHOWN_DONE + b"\n"), expected()),
    "reports in another order": (seen(output=FIRST + block("Done") + SHOWN_BUSY + b"\n"), expected()),
    "a state that was never said": (
        seen(output=FIRST + SHOWN_BUSY + SHOWN_DONE + b"\n", links=[Link(BUSY)]), expected()),
    "waiting behind the last report but one": (waited(links=[Link(BUSY + status(4))]), expected()),
    "waiting after a final state": (
        seen(output=FIRST + SHOWN_BUSY + SHOWN_DONE + SIGNALLED, shown_while_waiting=FIRST + SHOWN_BUSY + SHOWN_DONE,
             signals=[TERMINATED]), expected()),
    "more shown behind the signal": (waited(output=FIRST + SHOWN_BUSY + SIGNALLED + SHOWN_DONE), expected()),
    "a link that the server ended, opened again": (
        seen(links=[Link(BUSY), Link(DONE)], asked=[ASKED, packet(1001)]), expected()),
    "a link that was used and reset, opened again": (
        seen(links=[Link(BUSY, unasked=True), Link(DONE)], asked=[b"", ASKED]), expected()),
    "never ended": (seen(code=None, late="40 s"), expected()),
    "exit status 1 at the end": (seen(code=1), expected()),
    "exit status 3": (seen(code=3), expected()),
    "exit status 0 without reason": (
        seen(output=FIRST + SHOWN_BUSY, links=[Link(BUSY)]), expected()),
    "exit status 0 when the start fails": (seen(), expected(must_fail_start=True, may_fail_start=True)),
    "a failing start without a reason": (
        seen(code=1, output=b"", errors=FAILED, links=[], asked=[]), expected(requests_upload=False)),
    "another message for a failing start": (
        seen(code=1, output=b"", errors=b"no server\n", links=[], asked=[]), expected(may_fail_start=True, requests_upload=False)),
    "the wrong server path": (
        seen(code=1, output=b"", errors=b"Unable to locate server application: '/q\n", links=[Link()], asked=[packet(1001)]),
        expected(may_fail_start=True, requests_upload=False)),
    "a failing start after an upload was requested": (
        seen(code=1, output=b"", errors=FAILED, links=[Link()]), expected(may_fail_start=True)),
    "errors although it ended well": (seen(errors=b"x\n"), expected()),
    "a crash": (seen(code=-11), expected()),
    "a signal that kills although it is handled": (seen(code=-15, output=b"", signals=[TERMINATED]), expected()),
    "a signal that kills a run that had begun": (seen(code=-15, signals=[Sent(15, {"killed"})]), expected()),
    "a signal without its line": (
        seen(output=FIRST + SHOWN_BUSY, links=[Link(BUSY)], signals=[TERMINATED]), expected()),
    "a line without a signal": (seen(output=FIRST + SHOWN_BUSY + SIGNALLED), expected()),
    "two lines for one signal": (waited(output=FIRST + SHOWN_BUSY + SIGNALLED * 2), expected()),
    "a line in the middle of another": (waited(output=FIRST + SHOWN_BUSY[:-1] + SIGNALLED + b"\n"), expected()),
    "no upload requested": (seen(asked=[packet(1001)]), expected()),
    "another file requested": (
        seen(asked=[packet(1001) + packet(1002) + packet(1004, b"\0\1\0\0\0\0/y\0")]), expected()),
    "an upload requested twice": (seen(asked=[ASKED + packet(1002) + UPLOAD]), expected()),
    "no reset before the upload": (seen(asked=[packet(1001) + UPLOAD]), expected()),
    "a reset too many": (seen(asked=[ASKED + packet(1002) + packet(1001)]), expected()),
    "a request though the hex file is a folder": (
        waited(asked=[packet(1001)]), expected(requests_upload=False, silent=True)),
    "a packet of the server sent back": (seen(asked=[ASKED + DONE]), expected()),
    "half a packet of something else": (seen(asked=[ASKED + b"\1\2"]), expected()),
    "an upload before a request": (seen(asked=[packet(1002) + UPLOAD]), expected()),
    "another last status": (seen(), expected(last=(1, 6, 0, 254, 0xFFFFFFFF))),
    "the server started otherwise": (seen(launched="-q -i 1"), expected()),
    "a descriptor for the server": (seen(inherited=[0, 1, 2, 3, 4, 10]), expected()),
    "too many threads": (waited(idle_threads=7), expected()),
    "too many descriptors": (waited(idle_descriptors=7), expected()),
    "a process left": (seen(left=["process 7 sleep"]), expected()),
}


@pytest.mark.parametrize("why", GOOD)
def test_a_good_run_is_as_it_should_be(why):
    assert faults(*GOOD[why]) == []


@pytest.mark.parametrize("why", BAD)
def test_a_bad_run_is_not(why):
    assert faults(*BAD[why]) != []


@pytest.mark.parametrize("why, ended", [
    ("an upload", True), ("its line behind the end", True), ("a link that the client opens again", True),
    ("a wait that a signal ends", False), ("a signal in the middle", False), ("a start that fails", False)])
def test_an_end_from_the_dispatch_thread_is_told_from_others(why, ended):
    assert soak_oracle.ended_by_itself(GOOD[why][0]) == ended


@pytest.mark.parametrize("why", ["no line at the end", "a byte too much", "the last block missing", "exit status 1 at the end"])
def test_an_end_without_its_last_lines_does_not_count(why):
    assert not soak_oracle.ended_by_itself(BAD[why][0])


def test_the_states_that_end_a_run():
    assert [state for state in range(256) if is_final(state)] == [0, 6, *range(100, 256)]


def test_a_final_report_is_certain_until_the_client_drops_the_link():
    assert soak_oracle.certain_end([Link(BUSY + DONE)])
    assert not soak_oracle.certain_end([Link(BUSY)])
    assert not soak_oracle.certain_end([Link(BUSY + status(1) + DONE)])
    assert not soak_oracle.certain_end([Link(BUSY + DONE, certain=False)])
    assert not soak_oracle.certain_end([])


def test_a_plan_follows_from_its_seed():
    for seed in range(200):
        assert repr(soak_plan.make_plan(seed)) == repr(soak_plan.make_plan(seed))
    kinds = [soak_plan.make_plan(seed).kind for seed in range(2000)]
    assert 700 < kinds.count("clean") < 900
    assert {*kinds} == {"clean", *soak_plan.FAULTS}


# The real program with something wrong around it: what is run instead, and what the soak must say of it. The seed is one
# of an undisturbed upload through the proxy.

WRONG_PROGRAMS = {
    "the program itself": ('exec "$PROGRAM" "$@"', "as it should be"),
    "another exit status": ('"$PROGRAM" "$@"; exit 3', "exit status 3"),
    "another state": ('"$PROGRAM" "$@" | sed -u s/Done/Idle/', "does not follow from what the server said"),
    "a line too much": ('"$PROGRAM" "$@"; echo', "does not follow from what the server said"),
    "a process left": ('sleep 1000 >/dev/null 2>&1 & exec "$PROGRAM" "$@"', "left over: process"),
    "a shared object left": (': >/dev/shm/dunmallow; exec "$PROGRAM" "$@"', "left over: shared object dunmallow"),
    "a file left": (': >"$HOME/../core"; exec "$PROGRAM" "$@"', "left over: file core"),
    "a descriptor for the server": ('exec 7</dev/null; exec "$PROGRAM" "$@"', "started with the descriptors"),
    "another interface": ('exec "$PROGRAM" "$@" -i 9', "the server was started with"),
    "another address": ('exec "$PROGRAM" "$@" -a 77', "a packet that nobody should send"),
    "a message": ('echo trouble >&2; exec "$PROGRAM" "$@"', "exit status 0 with errors"),
    "a crash": ('kill -SEGV $$', "ended by signal 11"),
    "no run at all": ("exit 0", "exit status 0 without a final state"),
}


@pytest.fixture(scope="module")
def seed():
    plans = map(soak_plan.make_plan, range(1000))
    return next(plan.seed for plan in plans if plan.kind == "clean" and plan.ending == "done" and plan.proxied)


@pytest.mark.soak
@pytest.mark.parametrize("why", WRONG_PROGRAMS)
def test_something_wrong_around_the_program_is_noticed(request, tmp_path, seed, private_processes, why):
    if why in ("a process left", "a shared object left") and not private_processes:
        pytest.skip("what is left would stay on the machine")
    body, message = WRONG_PROGRAMS[why]
    build = pathlib.Path(request.config.getoption("--build")).resolve()
    program = tmp_path / "dunmallow"
    program.write_text(f'#!/bin/sh\nPROGRAM="{build}/bin/dunmallow"\n{body}\n')
    program.chmod(0o755)
    result = subprocess.run(
        [sys.executable, "-B", HERE / "soak.py", "--replay", str(seed), "--build", build, "--program", program],
        stdout=subprocess.PIPE, text=True, check=False, timeout=100)
    assert message in result.stdout
    assert result.returncode == (0 if why == "the program itself" else 1)
