#!/usr/bin/python3
"""Seeded uploads of the real program against the simulated server, most of them with a fault.

    scripts/soak N [--seed S] [--jobs J] [--first] [--build BUILD] [--program PROGRAM]    runs with the seeds S, S + 1, ...
    scripts/soak --replay SEED [--build BUILD] [--program PROGRAM]                        one run, and all that was seen

Each run has an installation, a port and processes of its own. Its plan follows from the seed; only the moments depend on
the machine. Ends with status 1 when a run was not as it should be; its seed is printed.
"""

import argparse
import collections
import concurrent.futures
import contextlib
import functools
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import harness
import soak_oracle
import soak_plan
import soak_proxy
from soak_oracle import Link, Observed, Sent

HERE = pathlib.Path(__file__).resolve().parent
LIMIT = 40.0  # seconds for whatever has to happen
LONGEST_WAIT_FOR_ANSWERS = 1.3  # a report that follows from a request comes within a poll
TIME_TO_START = 0.05  # until the threads of a new link are there
OWN_OBJECTS = ("dunmallow", "corvane")


def task_state(process):
    """The letter of a process's state, "X" when it is gone."""
    with contextlib.suppress(OSError), open(f"/proc/{process}/stat", encoding="ascii", errors="replace") as file:
        return file.read().rpartition(")")[2].split()[0]
    return "X"


def dispositions(process, number):
    """What a stopped program may do with a signal."""
    try:
        with open(f"/proc/{process}/status", encoding="ascii", errors="replace") as file:
            masks = dict(line.split(":\t", 1) for line in file if ":\t" in line)
    except OSError:
        return set()
    has = {name: int(masks.get(name, "0"), 16) >> (number - 1) & 1 for name in ("SigBlk", "SigIgn", "SigCgt")}
    if has["SigIgn"]:
        return {"ignored"}
    if has["SigCgt"]:
        return {"handled"}
    return {"handled", "killed"} if has["SigBlk"] else {"killed"}


def send_signal(process, number, group):
    """Sends a signal to a program that is stopped meanwhile, so that what it will do with it is known."""
    allowed = set()
    with contextlib.suppress(ProcessLookupError):
        os.kill(process, signal.SIGSTOP)
        end = time.monotonic() + LIMIT
        while task_state(process) not in "TZX" and time.monotonic() < end:
            time.sleep(0.0005)
        if task_state(process) == "T":
            allowed = dispositions(process, number)
        (os.killpg if group else os.kill)(process, number)
        os.kill(process, signal.SIGCONT)
    return Sent(number, allowed)


def other_processes(states="ZX"):
    """What there is in this process namespace beside the first process and this one, but for processes in these states,
    as "id name"."""
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit() and int(entry.name) not in (1, os.getpid()) and task_state(entry.name) not in states:
            with contextlib.suppress(OSError):
                found.append(f"{entry.name} {(entry / 'comm').read_text().strip()}")
    return found


@functools.lru_cache
def most_threads(program):
    """Main, worker, timers, and three for the link. ThreadSanitizer has one of its own."""
    return 6 + (b"__tsan_init" in program.read_bytes())


class Play:
    """One run of a plan."""

    def __init__(self, plan, build, program, folder):
        self.plan = plan
        self.rig = harness.Rig(build, folder)
        self.most_threads = most_threads(self.rig.program)
        if program:
            self.rig.program = pathlib.Path(program)
        self.port = 2000 + 2 * (plan.seed % 14000)  # below the ports that connections get
        self.server_port = self.port + 1
        self.seen = Observed()
        self.proxy = None
        self.struck_at = None
        self.launched = self.ready = None
        self.hex_path = self._make_hex_file()
        self._install_server()

    # Before the run.

    def _make_hex_file(self):
        if self.plan.ending == "folder":
            return str(self.rig.folder)
        path = self.rig.hex_file("firmware.hex", soak_plan.hex_content(self.plan))
        if self.plan.ending == "unreadable file":
            os.chmod(path, 0)
        return path

    def _install_server(self):
        start = soak_plan.STARTS.get(self.plan.variant, {}) if self.plan.kind == "start" else {}
        server = self.rig.bin / "corvane"
        if "tool" in start:
            self.rig.stub_tool("start-stop-daemon", start["tool"])
        if start.get("server") == "missing":
            return
        if start.get("server") == "text":
            server.write_text("no program\n")
        elif not self.plan.proxied:
            self.rig.install_simulator()
        else:
            self._install_proxy(server)

    def _install_proxy(self, server):
        """The server becomes a script that starts the simulator elsewhere and returns when the proxy listens."""
        folder = self.rig.folder
        for name in ("launched", "ready"):
            os.mkfifo(folder / name)
        self.launched = os.open(folder / "launched", os.O_RDWR | os.O_NONBLOCK)
        self.ready = os.open(folder / "ready", os.O_RDWR | os.O_NONBLOCK)
        server.write_text(
            "#!/bin/sh\n"
            f'"{self.rig.simulator}" "$1" "$2" "$3" -p {self.server_port} || exit\n'
            f'echo "$*" = /proc/$$/fd/* >"{folder}/launched"\n'
            f'read -r go <"{folder}/ready"\n'
        )
        server.chmod(0o755)
        fault = getattr(self, "_strike_" + self.plan.kind.replace(" ", "_"), None)
        if self.plan.moment is not None:
            fault = None
        self.proxy = soak_proxy.Proxy(self.port, self.server_port, soak_plan.shape(self.plan), fault, self.plan.fault_at)
        self.proxy.start()

    # Faults at a byte of the stream; they run on the proxy's thread.

    def _strike_kill(self, *_):
        self._kill_server()

    def _strike_reset(self, proxy, pair):
        proxy.reset_link(pair, self.plan.variant == "settled")

    def _strike_close(self, proxy, pair):
        proxy.close_link(pair)

    def _strike_half_close(self, proxy, pair):
        pair.waiting.clear()
        proxy.end_stream(pair)

    def _strike_stall(self, proxy, _):
        proxy.hold(1e9 if self.plan.variant == "for ever" else self.plan.dice.uniform(0.2, 1.5))

    def _strike_garbage(self, proxy, pair):
        proxy.put(pair, soak_plan.junk(self.plan))
        self.struck_at = time.monotonic()

    def _strike_reports(self, proxy, pair):
        for _ in range(self.plan.dice.randint(1, 30)):
            proxy.put(pair, soak_plan.random_report(self.plan.dice))
        self.struck_at = time.monotonic()

    def _strike_drop(self, proxy, pair):
        """Between two packets of an upload: it is over, without an end. The program leaves the link and asks anew."""
        reports = [event.status for event in soak_oracle.events_of(pair.link.said) if event.status]
        if soak_oracle.packets_of(pair.link.said)[1] or not reports or not soak_oracle.is_busy(reports[-1][1]):
            return
        proxy.put(pair, harness.status(1, self.plan.mode, 7, self.plan.address, self.plan.serial))
        proxy.silence_link(pair)

    def _strike_signal(self, *_):
        self._send(self.plan.signals[0][0])

    def _kill_server(self):
        for process in harness.processes_named("corvane"):
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, signal.SIGKILL)
        self.struck_at = time.monotonic()

    def _send(self, number):
        self.seen.signals.append(send_signal(self.run.process.pid, number, self.plan.variant == "group"))

    # The run.

    def perform(self):
        """Plays the plan; returns what was seen."""
        plan, rig = self.plan, self.rig
        scenario = soak_plan.ENDINGS[plan.ending][0]
        settings = soak_plan.STARTS.get(plan.variant, {}).get("settings", plan.settings)
        self.run = rig.run(
            "-u", self.hex_path, "-m", soak_plan.MODES[plan.mode], "-a", plan.address, "-n", plan.serial,
            "-i", plan.interface, "-p", self.port, "-s", plan.host,
            CORVANE_SETTINGS=settings, CORVANE_JOURNAL=str(rig.journal), CORVANE_IDLE_SECONDS="120",
            CORVANE_SCENARIO=f"{soak_plan.SCENARIOS}/{scenario}.scenario" if scenario else "",
        )
        self.began = time.monotonic()
        self.todo = self._timed_actions()
        try:
            self._watch()
            if not self.seen.late:
                self.seen.code = self.run.wait(LIMIT)
        except AssertionError as late:
            self.seen.late = str(late)
        self.seen.output, self.seen.errors = self.run.output, self.run.errors
        return self.seen

    def _timed_actions(self):
        """(seconds after the start, action), sorted."""
        plan, actions = self.plan, []
        if plan.moment is None:
            return actions
        if plan.kind == "kill":
            actions = [(plan.moment, self._kill_server)]
        elif plan.kind == "signal":
            actions = [(plan.moment + later, lambda number=number: self._send(number)) for number, later in plan.signals]
        elif plan.kind == "stop":
            for cycle in range(3):
                actions += [(plan.moment + cycle, lambda: self._stop(signal.SIGSTOP)),
                            (plan.moment + cycle + 0.5, lambda: self._stop(signal.SIGCONT))]
        return sorted(actions, key=lambda action: action[0])

    def _stop(self, number):
        processes = [self.run.process.pid] if self.plan.variant == "program" else harness.processes_named("corvane")
        for process in processes:
            with contextlib.suppress(ProcessLookupError):
                if self.run.process.poll() is None:
                    os.kill(process, number)

    def _watch(self):
        """Acts in time until the program ends or waits for nothing."""
        end, quiet_since = self.began + LIMIT, None
        while self.run.process.poll() is None:
            now = time.monotonic()
            if now > end:
                self.seen.late = "neither an end nor silence within the limit"
                return
            if self.proxy and self.proxy.failure:
                self.seen.late = "the proxy failed"
                return
            self._answer_launch()
            if self.proxy and self.proxy.counting:
                time.sleep(TIME_TO_START)
                self._count_own()  # nothing of the former link may be left
                self.proxy.counting = False
            while self.todo and self.todo[0][0] <= now - self.began:
                self.todo.pop(0)[1]()
            quiet_since = (quiet_since or now) if self._quiet(now) else None
            if quiet_since and now - quiet_since > self.plan.patience and self._settled():
                self._end_the_wait()
                return
            time.sleep(0.004)

    def _answer_launch(self):
        if self.launched is None:
            return
        with contextlib.suppress(BlockingIOError):
            self.seen.launched, inherited = os.read(self.launched, 65536).decode().split(" = ")
            self.seen.inherited = sorted(int(name.rpartition("/")[2]) for name in inherited.split())
            self.proxy.listen()
            os.write(self.ready, b"go\n")

    def _quiet(self, now):
        """True when nothing more can come to the program."""
        if self.todo:
            return False
        if self.plan.ending == "folder":
            return self._linked() and now - self.began > 0.6
        if self.proxy is None:
            return self.struck_at is not None
        if self.plan.kind in ("garbage", "reports") and self.struck_at is not None:
            return self.proxy.quiet() or now - self.struck_at > self.plan.lasts + LONGEST_WAIT_FOR_ANSWERS
        return self.proxy.quiet()

    def _linked(self):
        return bool(self.proxy.pairs) if self.proxy else " + connected" in self._journal()

    def _journal(self):
        return self.rig.journal.read_text() if self.rig.journal.exists() else ""

    def _settled(self):
        """True when the program shows all that was said, and need not end by itself."""
        links = self.links()
        if soak_oracle.certain_end(links):
            return False
        return "waiting" in soak_oracle.Oracle(links, self.run.output, may_reset=True).ends()

    def _count_own(self):
        """Notes the most that there were. A thread that was joined may stand in the list for a moment more."""
        end = time.monotonic() + 1
        with contextlib.suppress(OSError):  # it may end meanwhile
            while (threads := self.run.threads()) > self.most_threads and time.monotonic() < end:
                time.sleep(0.002)
            descriptors = len(self.run.descriptors())
            self.seen.idle_threads = max(threads, self.seen.idle_threads)
            self.seen.idle_descriptors = max(descriptors, self.seen.idle_descriptors)

    def _end_the_wait(self):
        self._count_own()
        shown = self.run.output
        sent = send_signal(self.run.process.pid, self.plan.last_signal, False)
        if "handled" in sent.allowed:
            self.seen.shown_while_waiting = shown
        self.seen.signals.append(sent)

    def links(self):
        """What the server said on each link."""
        if self.proxy:
            return self.proxy.links()
        links = collections.defaultdict(Link)
        for line in self._journal().splitlines():
            fields = line.split()
            if len(fields) == 7 and fields[2] == ">":
                links[int(fields[1])].said += bytes.fromhex(fields[6])
                links[int(fields[1])].certain = self.plan.kind != "kill"
            elif len(fields) >= 3 and fields[2] == "+":
                links[int(fields[1])] = Link(certain=self.plan.kind != "kill")
        return [links[number] for number in sorted(links)]

    def asked(self):
        if self.proxy:
            return self.proxy.asked()
        asked = collections.defaultdict(bytes)
        for line in self._journal().splitlines():
            fields = line.split()
            if len(fields) == 7 and fields[2] == "<":
                asked[int(fields[1])] += bytes.fromhex(fields[6])
        return [asked[number] for number in sorted(asked)]

    # After the run.

    def close(self):
        """Ends everything; what could not be ended, or should not be there, is noted."""
        if self.run.process.poll() is None:
            self.run.process.kill()
        self.run.process.wait()
        if self.proxy:
            self.proxy.close()
            if self.proxy.failure:
                self.seen.left.append(f"proxy: {self.proxy.failure!r}")
        self.seen.links, self.seen.asked = self.links(), self.asked()
        for process in harness.processes_named("corvane"):
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, signal.SIGCONT)
        harness.end_processes("corvane")
        self.rig.close()
        for descriptor in (self.launched, self.ready):
            if descriptor is not None:
                os.close(descriptor)
        self._note_leftovers()

    def _note_leftovers(self):
        if harness.private_processes():
            end = time.monotonic() + 5
            while other_processes() and time.monotonic() < end:
                time.sleep(0.01)
            self.seen.left += [f"process {process}" for process in other_processes()]
            # The next launch would take a server that has ended and is not yet cleared away for one that runs.
            while other_processes(states="X") and time.monotonic() < end + LIMIT:
                time.sleep(0.01)
        objects = [name for name in os.listdir("/dev/shm") if any(own in name for own in OWN_OBJECTS)]
        self.seen.left += [f"shared object {name}" for name in objects]
        known = {"home", "tools", "launches", "journal", "firmware.hex", "launched", "ready"}
        self.seen.left += [f"file {name}" for name in os.listdir(self.rig.folder) if name not in known]

    def expected(self):
        plan = self.plan
        path = os.path.realpath(self.hex_path).encode() + b"\0"
        identity = bytes([plan.mode, plan.address]) + plan.serial.to_bytes(4, "little")
        _, state, progress = soak_plan.ENDINGS[plan.ending]
        clean = plan.kind in ("clean", "pieces", "delay", "stop") and state is not None
        return soak_oracle.Expected(
            launch=f"-q -i {plan.interface} -p {self.port}" if self.proxy else "",
            upload=harness.packet(1004, identity + path),
            server_path=self.rig.server_path,
            most_threads=self.most_threads,
            may_fail_start=plan.kind in ("start", "kill", "reset", "close", "half close", "garbage")
            or plan.variant == "group",
            must_fail_start=plan.kind == "start",
            requests_upload=clean,
            silent=plan.ending == "folder",
            last=(plan.mode, state, progress, plan.address, plan.serial) if clean else None,
        )


def perform(seed, build, program=None):
    """Plays the plan of a seed. Returns (plan, what was seen, what was wrong)."""
    plan = soak_plan.make_plan(seed)
    before = sorted(os.listdir("/proc/self/fd"))
    folder = tempfile.mkdtemp(prefix=f"dunmallow-soak-{seed}-")
    try:
        play = Play(plan, build, program, folder)
        try:
            play.perform()
        finally:
            play.close()
        wrong = soak_oracle.faults(play.seen, play.expected())
        if sorted(os.listdir("/proc/self/fd")) != before:
            wrong.append("descriptors left")
    finally:
        shutil.rmtree(folder, ignore_errors=True)
    return plan, play.seen, wrong


def summary(seen):
    """What was seen of a run, in a line."""
    shown = {name: value if not isinstance(value, bytes) else value[-500:] for name, value in vars(seen).items()}
    shown["links"] = [(soak_oracle.events_of(link.said)[-3:], len(link.said), link.certain) for link in seen.links]
    shown["asked"] = [stream.hex() for stream in seen.asked]
    return str(shown)


# Driver and workers.


def worker(options):
    """Plays the seeds that come on standard input; one line of JSON for each."""
    for line in sys.stdin:
        began = time.monotonic()
        try:
            plan, seen, wrong = perform(int(line), options.build, options.program)
            kind = " ".join(word for word in (plan.kind, plan.variant) if word) if plan.kind != "clean" else f"clean ({plan.ending})"
            answer = {"kind": kind, "wrong": wrong, "code": seen.code, "waited": seen.shown_while_waiting is not None,
                      "final": soak_oracle.ended_by_itself(seen)}
            if wrong:
                answer["seen"] = summary(seen)
        except Exception as failure:  # pylint: disable=broad-except
            answer = {"kind": "?", "wrong": [f"the run could not be made: {failure!r}"], "code": None}
        answer["seconds"] = time.monotonic() - began
        print(json.dumps(answer), flush=True)


def start_worker(options):
    command = [HERE / "as-user", sys.executable, "-B", HERE / "soak.py", "--worker", "--build", options.build]
    if options.program:
        command += ["--program", options.program]
    return subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)


def play_all(options):
    """Plays all seeds, several at once. Returns the answers by seed."""
    seeds = iter(range(options.seed, options.seed + options.count))
    answers, wanted = {}, [True]  # emptied when no more runs are wanted

    def serve(process):
        with process:
            for seed in seeds:
                process.stdin.write(f"{seed}\n")
                process.stdin.flush()
                answer = json.loads(process.stdout.readline() or '{"kind": "?", "wrong": ["the worker died"], "code": null, "seconds": 0}')
                answers[seed] = answer
                for text in answer["wrong"]:
                    print(f"seed {seed} ({answer['kind']}): {text}", flush=True)
                if answer["wrong"]:
                    print(f"    {answer.get('seen', '')}", flush=True)
                if process.poll() is not None or (options.first and answer["wrong"]):
                    wanted.clear()
                if not wanted:
                    break
            process.stdin.close()

    # Without process names of their own the runs would take each other's servers for theirs.
    shared = subprocess.run([HERE / "as-user", "true"], stderr=subprocess.PIPE, check=True).stderr
    jobs = 1 if shared else min(options.jobs, options.count)
    # The iterator is shared: each worker takes the next seed when it is free.
    workers = [start_worker(options) for _ in range(jobs)]
    with concurrent.futures.ThreadPoolExecutor(len(workers)) as pool:
        list(pool.map(serve, workers))
    return answers


def report(answers, seconds):
    """Prints the figures; returns the exit status."""
    kinds = collections.Counter(answer["kind"] for answer in answers.values())
    for kind, count in sorted(kinds.items()):
        print(f"{count:6} {kind}")
    codes = collections.Counter(str(answer["code"]) for answer in answers.values())
    bad = sorted(seed for seed, answer in answers.items() if answer["wrong"])
    print(f"exit statuses: {', '.join(f'{code}: {count}' for code, count in sorted(codes.items()))}")
    print(f"slowest: {max(answer['seconds'] for answer in answers.values()):.1f} s")
    for seed in bad:
        print(f"replay with: scripts/soak --replay {seed}")
    clean = sum(answer["kind"].startswith("clean") for answer in answers.values())
    waited, final = (sum(answer.get(what, False) for answer in answers.values()) for what in ("waited", "final"))
    print(f"ended from the dispatch thread: {final}")
    print(f"{len(answers)} runs from seed {min(answers)} on in {seconds:.0f} s: {clean} without a fault, {waited} that waited "
          f"to be ended; {len(answers) - len(bad)} as they should be, {len(bad)} not")
    return 1 if bad else 0


def replay(options):
    plan, seen, wrong = perform(options.replay, options.build, options.program)
    print(plan)
    print(f"exit status {seen.code}, signals {seen.signals}, launched {seen.launched!r}")
    print(f"errors {seen.errors!r}\noutput {seen.output!r}")
    for number, link in enumerate(seen.links):
        print(f"link {number}: {len(link.said)} bytes, {'certain' if link.certain else 'not certain'}")
        print("   ", *soak_oracle.events_of(link.said), sep="\n    ")
    for number, asked in enumerate(seen.asked):
        print(f"asked on link {number}: {asked.hex()}")
    print("\n".join(wrong) or "as it should be")
    return 1 if wrong else 0


def parse_arguments():
    parser = argparse.ArgumentParser(prog="soak", description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("count", nargs="?", type=int, metavar="N")
    parser.add_argument("--seed", type=int, default=1, metavar="S")
    parser.add_argument("--jobs", type=int, default=8 * os.cpu_count(), metavar="J")
    parser.add_argument("--first", action="store_true", help="end after the first run that is not as it should be")
    parser.add_argument("--build", default=str(HERE.parents[1] / "build" / "native"))
    parser.add_argument("--program", help="played instead of the build's")
    parser.add_argument("--replay", type=int, metavar="SEED")
    parser.add_argument("--worker", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if not options.worker and options.replay is None and (options.count is None or options.count < 1):
        parser.error("expected a number of runs, or --replay")
    options.build = os.path.abspath(options.build)
    return options


def main():
    options = parse_arguments()
    if options.worker:
        worker(options)
        return 0
    if options.replay is not None:
        if not options.inside:
            os.execv(HERE / "as-user", [str(HERE / "as-user"), sys.executable, "-B", str(HERE / "soak.py"), "--inside", *sys.argv[1:]])
        return replay(options)
    began = time.monotonic()
    answers = play_all(options)
    return report(answers, time.monotonic() - began)


if __name__ == "__main__":
    sys.exit(main())
