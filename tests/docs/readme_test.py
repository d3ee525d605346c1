"""Every command of README.md is run: here, in a tree of its own where it can do no harm, or by what is named below."""

import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

import pytest

from sources import PROGRAMS, REPOSITORY, STATE_TEXTS, one, source, squeezed

sys.path.append(str(REPOSITORY / "tests/packaging"))
from captures import segments  # noqa: E402
from pcap import pcap  # noqa: E402

PAGE = source("README.md")
VERSION = one(r"project\(dunmallow VERSION ([\d.]+)", "CMakeLists.txt")

# What this page writes before a command's arguments; other words in backquotes are no commands.
NAMES = {"bash", "cmake", "ctest", "corvane", "corvane-sim", "dumpcap", "dunmallow", "git", "make", "man",
         "pkg-config", "source", "start-stop-daemon", "sudo", "text2pcap", "tshark", "wireshark", "zsh"}
FENCE = re.compile(r"^```(\w*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)


def commands(page):
    """The lines of the fences for a shell, up to the three blanks before a comment, and the spans that are commands."""
    found = set()
    for kind, content in FENCE.findall(page):
        if kind == "sh":
            found |= {squeezed(re.split(" {3,}", line)[0]) for line in content.splitlines() if line}
    for span in re.findall(r"`([^`\n]+)`", page.replace("```", "")):
        words = span.split()
        if words[0].startswith("scripts/") or (len(words) > 1 and words[0] in NAMES):
            found.add(squeezed(span))
    return found


# Command, what comes before it in the same shell, what comes after it, what both must say.
HURRY = "export CORVANE_SETTINGS='speed 20' CORVANE_IDLE_SECONDS=60"
INSTALLED = "mkdir -p ~/.varnex/bin; cp build/demo/bin/corvane ~/.varnex/bin; PATH=$PWD/build/demo/bin:$PATH"
DEVICE = ["MT CAN", "2a", "12345", "Done"]
RUN = {
    "scripts/demo": (HURRY, "", ["Done", "ended with status 0."]),
    "scripts/demo --scenario erase-timeout": (HURRY, "", ["Timed out while waiting for FLASH erase"]),
    "scripts/demo my.hex -m MTCAN -a 0x2A -n 12345": (f"{HURRY}; scripts/make-sample-hex 512 >my.hex", "", DEVICE),
    "dunmallow -u firmware.hex -m MTCAN -a 0x2A -n 12345":
        (f"{HURRY}; {INSTALLED}; scripts/make-sample-hex 512 >firmware.hex", "", DEVICE),
    "start-stop-daemon -K -n corvane":
        (f"{INSTALLED}; ~/.varnex/bin/corvane -f -q -p 5000 & until [ -n \"$(pidof corvane)\" ]; do sleep 0.01; done",
         "while pidof corvane >pid; do sleep 0.01; done; echo gone", ["gone"]),
    "man -l docs/man/dunmallow.1": ("export MANPAGER=cat", "", ["EXIT STATUS", "DIAGNOSTICS"]),
    "source completions/dunmallow": ("", "complete -p dunmallow", ["-F"]),
    "fpath=($PWD/completions $fpath)":
        ("", "autoload -Uz compinit; compinit -u -D; echo $_comps[dunmallow]", ["_dunmallow"]),
    "scripts/install-packages build": ("", "echo nothing missing", ["nothing missing"]),
    "scripts/stamp-build-date PROGRAM":
        ("export SOURCE_DATE_EPOCH=1000000000", "build/demo/bin/dunmallow -v", ["2001-09-09 01:46:40 UTC"]),
    'sudo dumpcap -i lo -f "tcp port 41265" -w upload.pcapng':
        ("", "tshark -r upload.pcapng", [" → 41265 "]),
    "tshark -X lua_script:packaging/wireshark/dunmallow.lua -Y dunmallow -r upload.pcapng":
        ("cp capture.pcap upload.pcapng", "", ["CmdUpload", "CmdStatus"]),
}
PLACES = {"PROGRAM": "build/demo/bin/dunmallow"}

# Command, and where the gate runs it: files and what stands in them.
BUILD = ("scripts/test", 'cmake --preset "$1" && cmake --build --preset "$1"')
LINKED = "tests/install/readme_library_test.py"
MADE = ("scripts/test", " scripts/check-packages\n")
TRIED = ("scripts/test", " scripts/try-packages\n")
ELSEWHERE = {
    "scripts/test": [(".ci/run", "exec scripts/test")],
    "scripts/test quick": [("scripts/test", 'if [ "$mode" = quick ]; then\n    tests_of native')],
    "cmake --preset native && cmake --build --preset native": [BUILD, ("scripts/test", "    tests_of native\n")],
    "cmake --preset armhf && cmake --build --preset armhf": [BUILD, ("scripts/test", "    tests_of armhf\n")],
    "cmake --install build/armhf --prefix FOLDER --component dunmallow": [(LINKED, "`(cmake --install ")],
    "cmake -B build && cmake --build build && build/mytool": [(LINKED, "&& build/mytool")],
    "pkg-config --cflags --libs dunmallow-toolsmisc": [(LINKED, "`(pkg-config ")],
    "scripts/make-packages": [MADE, ("scripts/check-packages", " scripts/make-packages ")],
    "scripts/make-packages --arch armhf": [MADE, ("scripts/check-packages", "--arch armhf")],
    **{f"sudo apt install ./build/packages/{package}_{VERSION}_amd64.deb":
       [TRIED, ("scripts/try-packages", '"$folder/${package}"_*_"$arch.deb"'),
        ("tests/packaging/trial/steps", "dpkg --install /trial/packages/*.deb")]
       for package in ("dunmallow", "libdunmallow-dev", "corvane-sim")},
    "sudo apt remove dunmallow libdunmallow-dev corvane-sim":
        [TRIED, ("tests/packaging/trial/steps", "packages=(dunmallow libdunmallow-dev corvane-sim)"),
         ("tests/packaging/trial/steps", 'dpkg --purge "${packages[@]}"')],
}


def test_every_command_is_run():
    assert commands(PAGE) == set(RUN) | set(ELSEWHERE)


def test_every_fence_says_what_it_holds():
    assert {kind for kind, _ in FENCE.findall(PAGE)} == {"sh", "text", "cmake", "cpp"}


@pytest.mark.parametrize("page, found", [
    ("```sh\nscripts/demo     a whole upload, `scripts/test quick` is less\n```\n", {"scripts/demo", "scripts/test quick"}),
    ("```text\ncmake --build build\n```\n", set()),
    ("Stop it (`start-stop-daemon -K -n corvane`), in `bin/corvane`, with `start-stop-daemon`.", {"start-stop-daemon -K -n corvane"}),
    ("`scripts/demo` and `sim/scenarios`, `Dev-trunk 1901-01-01`", {"scripts/demo"}),
], ids=["a fence and its comment", "a fence of text", "spans", "a script alone"])
def test_commands_are_found(page, found):
    assert commands(page) == found


@pytest.mark.parametrize("command", ELSEWHERE)
def test_what_is_run_elsewhere_is(command):
    for file, text in ELSEWHERE[command]:
        assert text in source(file), file


def test_the_screen_is_the_programs():
    screen = next(content for kind, content in FENCE.findall(PAGE) if kind == "text")
    assert re.search(r"state +(.*)", screen)[1] in STATE_TEXTS


@pytest.fixture(scope="module")
def tree(tmp_path_factory):
    """What the commands use of the tree, and programs in place of some that are not for a test."""
    top = tmp_path_factory.mktemp("tree")
    for folder in ("completions", "docs/man", "sim/scenarios", "packaging/wireshark"):
        shutil.copytree(REPOSITORY / folder, top / folder)
    for folder in ("scripts", "build/demo/bin", "tools"):
        (top / folder).mkdir(parents=True)
    for script in ("demo", "make-sample-hex", "install-packages", "stamp-build-date"):
        shutil.copy(REPOSITORY / "scripts" / script, top / "scripts")
    for program in ("dunmallow", "corvane"):
        shutil.copy(PROGRAMS / program, top / "build/demo/bin")
    (top / "capture.pcap").write_bytes(pcap(segments("whole-upload", 50000)))
    tools = {"cmake": "exit 0", "sudo": f"exec unshare --user --map-root-user --net {top}/tools/capture \"$@\"",
             "capture": CAPTURE}
    if not shutil.which("man"):
        tools["man"] = "mman \"$@\" | sed 's/.\\x08//g'"  # bold is overstruck
    for name, body in tools.items():
        (top / "tools" / name).write_text(f"#!/bin/bash\n{body}\n")
        (top / "tools" / name).chmod(0o755)
    return top


# Runs the capturing command, lets a packet come by, and ends it like Ctrl-C.
CAPTURE = """ip link set lo up
"$@" 2>said &
until grep -q File: said; do kill -0 $! || exit; sleep 0.05; done
until [ "$(stat -c %s upload.pcapng)" -gt 500 ]; do (: <>/dev/tcp/127.0.0.1/41265) 2>&-; sleep 0.05; done
kill -INT $!
wait $!
"""


def start(command, tree):
    """Runs it in a copy of the tree, in namespaces of its own."""
    before, after, _ = RUN[command]
    shell = ["zsh", "-f", "-c"] if command.startswith("fpath") else ["bash", "-c"]
    for word, place in PLACES.items():
        command = command.replace(word, place)
    script = "\n".join([f"cp -r {shlex.quote(str(tree))} /tmp/tree && mkdir /tmp/home && cd /tmp/tree",
                        "export HOME=/tmp/home PATH=$PWD/tools:$PATH:/usr/sbin:/sbin", before, command, "ended=$?", after, "exit $ended"])
    return subprocess.Popen([REPOSITORY / "scripts/confine", "--see", tree, *shell, script], stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True, env={**os.environ, "TERM": "dumb", "LC_ALL": "C.UTF-8"})


@pytest.fixture(scope="module")
def runs(tree):
    """All at the same time: they wait more than they work."""
    started = {command: start(command, tree) for command in RUN}
    yield started
    for run in started.values():
        run.kill()
        run.communicate()


@pytest.mark.parametrize("command", RUN)
def test_the_command_does_what_the_page_says(command, runs):
    out, errors = runs[command].communicate(timeout=120)
    status = runs[command].returncode
    if status == 125:
        pytest.skip(f"this system does not allow the namespaces: {errors}")
    assert status == 0, out + errors
    for text in RUN[command][2]:
        assert text in out, out + errors
