"""What one soak run does, drawn from its seed: options, server, pace, and the fault with its moment."""

import dataclasses
import pathlib
import random
import signal
import struct

from harness import packet, sample_hex, status

SCENARIOS = pathlib.Path(__file__).resolve().parents[2] / "sim" / "scenarios"
MODES = ["ISOStyle", "MTCAN", "NewModule", "Global"]
CLEAN_SHARE = 0.4
FAULTS = [
    "kill", "reset", "close", "half close", "stall", "garbage", "reports", "drop", "delay", "pieces", "signal", "signal",
    "stop", "start",
]
# How a run without a fault may end: scenario of the server, state and progress of the last block; None: as `Done`.
ENDINGS = {
    "done": (None, 6, 100), "locked": ("locked", 0, 0), "no device": ("device-not-found", 100, 0),
    "no erase": ("erase-timeout", 101, 0), "bad file": (None, 105, 0), "unreadable file": (None, 104, 0),
    "unknown command": ("unknown-command", 6, 100), "unknown state": ("unknown-state", 6, 100),
    "offset": ("offset-12", 6, 100), "split": ("split", 6, 100), "coalesced": ("coalesced", 6, 100),
    "folder": (None, None, None),
}
STARTS = {
    "tool fails": {"tool": "exit 3"}, "no tool": {"tool": "exit 127"}, "tool does nothing": {"tool": "exit 0"},
    "server refuses": {"settings": "refuse start 7"}, "server is deaf": {"settings": "refuse connections"},
    "no server": {"server": "missing"}, "server is no program": {"server": "text"},
}
HEADER_BYTES, REPORT_BYTES, GREETING_BYTES = 8, 16, 50


@dataclasses.dataclass
class Plan:
    """All that is drawn. Seconds unless said otherwise; moments count from the start of the program."""

    seed: int
    kind: str = "clean"
    ending: str = "done"
    variant: str = ""
    mode: int = 0
    address: int = 0
    serial: int = 0
    interface: int = 0
    host: str = "localhost"
    size: int = 256  # bytes of the hex file
    settings: str = ""
    lasts: float = 0.1  # the upload, about
    proxied: bool = True
    fault_at: int = 0  # bytes from the server
    moment: float = None  # instead of `fault_at`
    signals: list = dataclasses.field(default_factory=list)  # (number, seconds after the first one)
    patience: float = 0.3
    last_signal: int = signal.SIGTERM
    pieces: str = "whole"
    dice: random.Random = dataclasses.field(default=None, repr=False)


def make_plan(seed):
    """The plan of a seed: the same one each time."""
    draw = random.Random(seed)
    plan = Plan(seed, dice=random.Random(seed + 1_000_000_007))
    if draw.random() >= CLEAN_SHARE:
        plan.kind = draw.choice(FAULTS)
    elif draw.random() < 0.5:
        plan.ending = draw.choice(list(ENDINGS))
    plan.mode, plan.address = draw.randrange(4), draw.choice([0, 1, 42, 253, draw.randrange(254)])
    plan.serial = draw.choice([0, 12345, 0x1FFFFFFE, 0x1FFFFFFF, 0xFFFFFFFF, draw.randrange(2**32)])
    plan.interface, plan.host = draw.choice([0, 1, -1, 7]), draw.choice(["localhost", "127.0.0.1"])
    blocks = draw.choice([1, 2, 16, 64, draw.randrange(1, 120)])
    plan.size = 16 * blocks
    plan.lasts = draw.uniform(0.8, 2.0) if plan.kind == "stop" else draw.choice([0.02, 0.1, 0.1, draw.uniform(0.1, 1.2)])
    plan.settings = _pace(blocks, plan.lasts)
    plan.proxied = plan.kind not in ("start", "clean") or draw.random() < 0.5
    plan.patience, plan.last_signal = draw.uniform(0.15, 0.6), draw.choice([signal.SIGINT, signal.SIGTERM])
    said = GREETING_BYTES + REPORT_BYTES * (6 + min(100, blocks))
    plan.fault_at = draw.randrange(said + 10)
    _draw_fault(plan, draw, blocks)
    return plan


def _pace(blocks, lasts):
    micros = int(lasts * 1e6)
    return (
        f"bitrate 100000000; block 16; prepare-time {micros // 20}us; search-time {micros // 20}us; "
        f"erase-time {micros // 10}us; verify-time {micros // 20}us; write-time {micros * 3 // 4 // blocks}us"
    )


def _draw_fault(plan, draw, blocks):
    choices = {
        "kill": ["bytes", "moment", "moment, no proxy"], "reset": ["settled", "at once"],
        "stall": ["for a while", "for ever"], "garbage": ["random bytes", "short length", "huge length", "packets"],
        "delay": ["some", "all"], "pieces": ["single bytes", "pieces", "bundles"], "stop": ["program", "server"],
        "signal": ["one", "one", "two", "group", "bytes"], "start": list(STARTS),
    }
    plan.variant = draw.choice(choices.get(plan.kind, [""]))
    until = 0.45 + plan.lasts
    if plan.kind in ("kill", "signal", "stop") and plan.variant != "bytes":
        plan.moment = draw.uniform(0, until)
    if plan.variant == "moment, no proxy":
        plan.proxied = False
    if plan.kind == "signal":
        first, second = draw.sample([signal.SIGINT, signal.SIGTERM], 2)
        plan.signals = [(first, 0.0)] + ([(second, draw.choice([0.0, draw.uniform(0, 0.05)]))] if plan.variant == "two" else [])
    if plan.kind in ("pieces", "delay"):
        plan.pieces = plan.variant
    elif plan.proxied:
        plan.pieces = draw.choice(["whole", "whole", "single bytes", "pieces"])
    if plan.kind == "drop":
        plan.fault_at = GREETING_BYTES + REPORT_BYTES * draw.randrange(5, 6 + min(100, blocks))


def shape(plan):
    """The function that cuts what the server says: bytes to (piece, pause before it)."""
    draw = plan.dice

    def cut(data, longest):
        while data:
            size = draw.randint(1, longest)
            yield data[:size], 0.001 if draw.random() < 0.02 else 0.0
            data = data[size:]

    def whole(data):
        return [(data, 0.0)]

    return {
        "whole": whole, "single bytes": lambda data: cut(data, 1), "pieces": lambda data: cut(data, 40),
        "bundles": lambda data: [(data, draw.choice([0.0, 0.0, 0.0, draw.uniform(0.05, 0.4)]))],
        "some": lambda data: [(data, draw.uniform(0, 0.3) if draw.random() < 0.1 else 0.0)],
        "all": lambda data: [(data, draw.uniform(0, 0.02))],
    }[plan.pieces]


def random_report(draw):
    state = draw.choice([1, 2, 3, 4, 5, 5, 5, 7, 50, 99, draw.choice([0, 6, 100, 101, 102, 103, 104, 105, 106, 255])])
    return status(state, draw.choice([0, 1, 2, 3, 4, 255]), draw.randrange(256), draw.randrange(256), draw.randrange(2**32))


def junk(plan):
    """Bytes of a garbage fault."""
    draw = plan.dice
    if plan.variant == "short length":
        return struct.pack(">I", draw.randrange(8)) + draw.randbytes(4)
    if plan.variant == "huge length":
        return struct.pack(">I", draw.choice([2**31, 2**32 - 1, 2**30, 100_000])) + draw.randbytes(draw.randrange(100))
    if plan.variant == "random bytes":
        return draw.randbytes(draw.randrange(1, 400))
    return b"".join(
        packet(draw.choice([0, 1, 2, 1000, 1001, 1004, 1005, 65535]), draw.randbytes(draw.choice([0, 1, 7, 20])),
               offset=draw.choice([8, 8, 8, 9, 12, 65535]))
        for _ in range(draw.randint(1, 10))
    )


def hex_content(plan):
    return {"bad file": ":00000001FE\n"}.get(plan.ending, sample_hex(plan.size))
