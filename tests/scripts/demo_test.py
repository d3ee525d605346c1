"""What the demonstration hands to the flasher. Nothing is built: stand-ins take the place of compiler and programs."""

import os
import pathlib
import shutil
import subprocess

import pytest

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]


@pytest.fixture
def demo(tmp_path):
    """Runs the script in a tree of its own, from a folder beside it, and returns the flasher's arguments."""
    tree, here, tools = tmp_path / "tree", tmp_path / "here", tmp_path / "tools"
    for folder in (tree / "scripts", tree / "sim" / "scenarios", tree / "build" / "demo" / "bin", here, tools):
        folder.mkdir(parents=True)
    for name in ("demo", "make-sample-hex"):
        shutil.copy(REPOSITORY / "scripts" / name, tree / "scripts")
    (tree / "sim" / "scenarios" / "normal.scenario").touch()
    for stand_in, body in ((tree / "scripts" / "install-packages", "exit 0"), (tools / "cmake", "exit 0"),
                           (tree / "build" / "demo" / "bin" / "corvane", "exit 0"),
                           (tree / "build" / "demo" / "bin" / "dunmallow", 'printf "argument:%s\\n" "$@"; exit 3')):
        stand_in.write_text(f"#!/bin/sh\n{body}\n")
        stand_in.chmod(0o755)

    def run(*arguments):
        done = subprocess.run([tree / "scripts" / "demo", *arguments], capture_output=True, text=True, cwd=here, check=False,
                              env={**os.environ, "PATH": f"{tools}:{os.environ['PATH']}"})
        assert done.returncode == 3, done
        return [line.partition(":")[2] for line in done.stdout.splitlines() if line.startswith("argument:")]

    run.here = here
    return run


PATHS = {
    # what stands in the caller's folder, the path that is typed
    "a_folder": (lambda here: (here / "some folder").mkdir(), "some folder"),
    "a_fifo": (lambda here: os.mkfifo(here / "fifo"), "./fifo"),
    "nothing": (lambda here: None, "nothing.hex"),
    "nothing_but_a_namesake_in_the_rehearsal": (lambda here: None, "home"),
}


@pytest.mark.parametrize("why", PATHS)
def test_a_path_that_is_no_file_means_what_it_means_to_the_caller(demo, why):
    make, path = PATHS[why]
    make(demo.here)
    assert demo(path) == ["-u", f"{demo.here}/{path}", "-a", "0x2A", "-n", "12345"]
    assert demo(f"{demo.here}/{path}")[1] == f"{demo.here}/{path}"


def test_a_file_is_taken_along(demo):
    (demo.here / "my.hex").write_text(":00000001FF\n")
    first, path, *rest = demo("my.hex", "-m", "MTCAN")
    assert (first, pathlib.PurePath(path).name, rest) == ("-u", "my.hex", ["-a", "0x2A", "-n", "12345", "-m", "MTCAN"])
    assert not path.startswith(f"{demo.here}/")
