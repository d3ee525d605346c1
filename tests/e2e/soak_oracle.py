"""What a run of the program must have shown: worked out from the bytes that the server said, independently of src/."""

import dataclasses
import re
import struct

DEFAULT = (0, 1, 0, 254, 0xFFFFFFFF)  # mode, state, progress, address, serial number before the first report
MODES = ["ISO Style", "MT CAN", "New Module", "Global"]
STATES = {
    0: "Locked", 1: "Idle", 2: "Preparing for upload", 3: "Searching for device", 4: "Erasing FLASH", 5: "Programming",
    6: "Done", 100: "Error! Device not found.", 101: "Error! Timed out while waiting for FLASH erase.",
    102: "Error! Timed out while waiting for response.", 103: "Error! Unable to find the hex file.",
    104: "Error! Unable to open the hex file.", 105: "Error! The hex file is incorrectly formatted.",
}
SIGNAL_LINE = re.compile(rb"(?:\A|(?<=\n))Dunmallow: handleShutDownSignal\( (\d+) \)\n")
SHORTEST_PACKET = 8


def is_final(state):
    return state in (0, 6) or state >= 100


def is_busy(state):
    return 2 <= state <= 5


def painted(status):
    """The bytes of one painted block."""
    mode, state, progress, address, serial = status
    lines = [
        "Upload state:",
        f"    mode     {MODES[mode] if mode < len(MODES) else 'unknown'}",
        f"    state    {STATES.get(state, 'unknown')}",
        f"    progress {progress}%",
        f"    adr      {address:x}",
        f"    serial   {'---' if serial >= 0x1FFFFFFF else serial}",
    ]
    return b"\x1b[6A" + b"".join(line.encode() + b"\x1b[0K\n" for line in lines)


@dataclasses.dataclass(frozen=True)
class Event:
    """Something that the program shows: a status report, or a line that matches `line`."""

    status: tuple = None
    line: bytes = None


def events_of(stream):
    """What the bytes of one link tell, in their order. Ends with the first packet that is not whole."""
    events, position = [], 0
    while position + 8 <= len(stream):
        length, command, offset = struct.unpack_from(">IHH", stream, position)
        if length < SHORTEST_PACKET or position + length > len(stream):
            break
        payload = stream[position + offset : position + length] if offset <= length else b""
        if command == 1000 and len(payload) >= 8:
            events.append(Event(status=struct.unpack_from("<BBBBI", payload)))
        elif command == 1:
            events.append(Event(line=rb" *\d+\.\d{3} ProprietarySocketClient CmdPing received out of sync\n"))
        elif command not in (2, 1000):
            number = str(command).encode()
            events.append(
                Event(line=rb"CANFlasherClient::handleRxPacket\( 0x[0-9a-f]+ \) Unexpected command: " + number + rb"\n")
            )
        position += length
    return events


@dataclasses.dataclass
class Link:
    """One connection: what the server said on it, and whether all of it is certain to have arrived."""

    said: bytes = b""
    certain: bool = True
    unasked: bool = False  # reset before the program said anything: perhaps before its connect returned, which failed then


@dataclasses.dataclass(frozen=True)
class Place:
    """How far the program may have come: link, event, what it last took, and how much of the output that explains."""

    link: int
    event: int
    status: tuple
    shown: int
    first: bool
    leaving: bool  # the client has asked for the end of this link itself
    final: bool = False


class Oracle:
    """Whether an output follows from what was said on the links."""

    def __init__(self, links, output, may_stop=False, may_reset=False):
        self.links = links
        self.events = [events_of(link.said) for link in links]
        self.output = SIGNAL_LINE.sub(b"", output)
        self.may_stop = may_stop  # a signal may have ended the run anywhere
        self.may_reset = may_reset  # no upload was requested: see _next

    def ends(self):
        """The possible ends of the run, "final" and "waiting"; empty when the output cannot come from these links."""
        found, todo, seen = set(), [Place(0, 0, DEFAULT, 0, True, False)], set()
        while todo:
            place = todo.pop()
            if place in seen:
                continue
            seen.add(place)
            if place.final:
                if self.output[place.shown :] == b"\n":
                    found.add("final")
                continue
            if place.shown == len(self.output) and self._may_rest(place):
                found.add("waiting")
            todo.extend(self._next(place))
        return found

    def _over(self, place):
        return place.link >= len(self.links) or place.event >= len(self.events[place.link])

    def _may_rest(self, place):
        if self.may_stop or not self.links:
            return True
        if not (place.leaving or self._lost(place) or self._over(place)):
            return False
        later = range(place.link + 1, len(self.links))
        return not later or place.leaving and all(not self.events[i] or not self.links[i].certain for i in later)

    def _lost(self, place):
        return not self.links[place.link].certain

    def _next(self, place):
        if place.link >= len(self.links):
            return
        if not self._over(place):
            yield from self._take(place, self.events[place.link][place.event])
        if self.may_reset and place.status != DEFAULT and (self._over(place) or self._lost(place)):
            # A link that ends just before the request is sent resets the status on this side.
            yield from self._paint(place, DEFAULT)
        # A link that the server ended is never opened again; one that the client dropped, or never had, is.
        again = place.leaving or (self.links[place.link].unasked and place.event == 0)
        if again and place.link + 1 < len(self.links):
            yield dataclasses.replace(place, link=place.link + 1, event=0, leaving=False)

    def _take(self, place, event):
        onward = dataclasses.replace(place, event=place.event + 1)
        if event.line is not None:
            found = re.compile(event.line).match(self.output, place.shown)
            if found:
                yield dataclasses.replace(onward, shown=found.end())
        elif event.status == place.status:
            yield onward
        else:
            yield from self._paint(onward, event.status)

    def _paint(self, place, status):
        text = (b"\n" * 7 if place.first else b"") + painted(status)
        if not self.output.startswith(text, place.shown):
            return
        leaving = place.leaving or (is_busy(place.status[1]) and not is_busy(status[1]))
        yield dataclasses.replace(
            place, status=status, shown=place.shown + len(text), first=False, leaving=leaving, final=is_final(status[1])
        )


def certain_end(links):
    """True when a final state is sure to reach the program: it has to end by itself then."""
    status = DEFAULT
    for link in links:
        if not link.certain or link.unasked:
            return False
        for event in events_of(link.said):
            if event.status is None:
                continue
            if event.status != status and is_final(event.status[1]):
                return True
            if is_busy(status[1]) and not is_busy(event.status[1]):
                return False  # the client drops this link: what follows may not arrive
            status = event.status
    return False


@dataclasses.dataclass
class Sent:
    """A signal as it was sent to the stopped program: its number and what the program may do with it."""

    number: int
    allowed: set  # of "handled", "ignored", "killed"


@dataclasses.dataclass
class Observed:
    """All that was seen of one run."""

    code: int = None  # exit status; None: it had to be killed
    output: bytes = b""
    errors: bytes = b""
    links: list = dataclasses.field(default_factory=list)
    asked: list = dataclasses.field(default_factory=list)  # bytes from the program, one entry a link
    launched: str = ""  # arguments of the server, "" when it was never started
    signals: list = dataclasses.field(default_factory=list)
    shown_while_waiting: bytes = None  # what stood there when nothing more could come and it still ran; None: it had ended
    late: str = ""  # what took longer than its limit
    left: list = dataclasses.field(default_factory=list)  # what was left over
    idle_threads: int = 0
    idle_descriptors: int = 0
    inherited: list = dataclasses.field(default_factory=list)  # descriptors that the server was started with


@dataclasses.dataclass
class Expected:
    """What the documentation promises for one run."""

    launch: str
    upload: bytes  # the only CmdUpload packet that may go out
    server_path: str
    may_fail_start: bool = False
    must_fail_start: bool = False
    requests_upload: bool = True  # a run without a fault has requested the upload
    silent: bool = False  # nothing is asked for: the hex file is a folder
    last: tuple = None  # the status that a run without a fault shows last
    most_threads: int = 6
    most_descriptors: int = 6  # standard streams, the timers' pipe, the link


START_FAILURE = re.compile(r"(?s)(?:.*system\(\): [^\n]*\n)?Unable to start server application\n")


def packets_of(stream):
    packets, position = [], 0
    while position + 8 <= len(stream):
        length = max(8, struct.unpack_from(">I", stream, position)[0])
        if position + length > len(stream):
            break
        packets.append(stream[position : position + length])
        position += length
    return packets, stream[position:]


def request_faults(observed, expected):
    """What is wrong with the bytes that the program sent."""
    poll, reset = bytes.fromhex("00000008 03e9 0008"), bytes.fromhex("00000008 03ea 0008")
    uploads = 0
    for number, stream in enumerate(observed.asked):
        packets, rest = packets_of(stream)
        if number == 0 and packets and packets[0] != poll:
            yield f"the first request is {packets[0].hex()}"
        for before, packet in zip([None, *packets], packets):
            if packet not in (poll, reset, expected.upload):
                yield f"a packet that nobody should send: {packet.hex()}"
            if (packet == expected.upload) != (before == reset):
                yield "reset and upload do not follow each other"
            uploads += packet == expected.upload
        if rest and not any(whole.startswith(rest) for whole in (poll, reset, expected.upload)):
            yield f"half a packet that nobody should send: {rest.hex()}"
    if expected.silent and any(observed.asked):
        yield "something was sent although the hex file is a folder"
    if uploads > 1:
        yield f"{uploads} uploads requested"
    if uploads == 0 and expected.requests_upload:
        yield "no upload requested"
    if uploads and observed.code == 1:
        yield "exit status 1 after an upload was requested"


def signal_faults(observed, ends):
    lines = [int(number) for number in SIGNAL_LINE.findall(observed.output)]
    for sent in observed.signals:
        if "handled" in sent.allowed and len(sent.allowed) == 1 and sent.number not in lines and "final" not in ends:
            yield f"no line for signal {sent.number}"
    for number in set(lines):
        can = sum(sent.number == number and "handled" in sent.allowed for sent in observed.signals)
        if lines.count(number) > can:
            yield f"{lines.count(number)} lines for signal {number}, {can} sent"


def status_faults(observed, expected, ends):
    errors = observed.errors.decode(errors="replace")
    handled = bool(SIGNAL_LINE.search(observed.output))
    if observed.code == 0:
        if errors:
            yield f"exit status 0 with errors: {errors!r}"
        if "final" not in ends and not handled:
            yield "exit status 0 without a final state or a signal"
        if expected.must_fail_start and not handled:
            yield "exit status 0 although the server cannot be started"
    elif observed.code == 1:
        located = errors == f"Unable to locate server application: '{expected.server_path}\n"
        if not START_FAILURE.fullmatch(errors) and not located:
            yield f"exit status 1 with errors: {errors!r}"
        if not expected.may_fail_start:
            yield f"exit status 1 although the server can be started: {errors!r}"
    elif observed.code is not None and observed.code < 0:
        killed = any(sent.number == -observed.code and "killed" in sent.allowed for sent in observed.signals)
        if not killed:
            yield f"ended by signal {-observed.code}"
        elif observed.launched or observed.output or observed.errors:
            yield f"ended by signal {-observed.code} after it had begun"
    elif observed.code is not None:
        yield f"exit status {observed.code}, errors: {errors!r}"


def ended_by_itself(observed):
    """True for an end by `exit` on the dispatch thread, in a final state: its block and the line behind it are there."""
    return observed.code == 0 and "final" in Oracle(observed.links, observed.output, may_stop=True, may_reset=True).ends()


def faults(observed, expected):
    """Everything that is not as it should be, as texts; empty for a good run."""
    found = []
    if observed.code is None:
        found.append(f"it never ended: {observed.late}")
    handled = bool(SIGNAL_LINE.search(observed.output)) or (observed.code is not None and observed.code < 0)
    may_reset = expected.upload not in b"".join(observed.asked)
    ends = Oracle(observed.links, observed.output, handled, may_reset).ends()
    if not ends:
        found.append("what was shown does not follow from what the server said")
    waiting = observed.shown_while_waiting
    if waiting is not None and "waiting" not in Oracle(observed.links, waiting, may_reset=may_reset).ends():
        found.append("it waited, and did not show what the server said last")
    # With a link that was not certain nobody knows whether all of it had been shown.
    certain = all(link.certain for link in observed.links)
    if waiting is not None and certain and SIGNAL_LINE.sub(b"", observed.output) != SIGNAL_LINE.sub(b"", waiting):
        found.append("it showed more after the signal that ended its wait")
    if certain_end(observed.links) and not handled and "final" not in ends:
        found.append("a final state was said and the run did not end with it")
    if expected.last and not handled and (observed.code != 0 or not observed.output.endswith(painted(expected.last) + b"\n")):
        found.append(f"the last block is not {expected.last}")
    if observed.launched and observed.launched != expected.launch:
        found.append(f"the server was started with {observed.launched!r}")
    if observed.idle_threads > expected.most_threads:
        found.append(f"{observed.idle_threads} threads in the end")
    if observed.idle_descriptors > expected.most_descriptors:
        found.append(f"{observed.idle_descriptors} descriptors in the end")
    # 3 is the listing; those from 10 on are the shell's.
    if observed.inherited and [number for number in observed.inherited if number < 10] != [0, 1, 2, 3]:
        found.append(f"the server was started with the descriptors {observed.inherited}")
    found.extend(f"left over: {what}" for what in observed.left)
    found.extend(status_faults(observed, expected, ends))
    found.extend(signal_faults(observed, ends))
    found.extend(request_faults(observed, expected))
    return found
