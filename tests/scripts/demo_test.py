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

    def start(*arguments):
        return subprocess.Popen([tree / "scripts" / "demo", *arguments], stdout=subprocess.PIPE, text=True, cwd=here,
                                env={**os.environ, "PATH": f"{tools}:{os.environ['PATH']}"})

    def run(*arguments):
        demo = start(*arguments)
        output, _ = demo.communicate()
        assert demo.returncode == 3, output
        return [line.partition(":")[2] for line in output.splitlines() if line.startswith("argument:")]

    run.start, run.here = start, here
    run.scenarios, run.programs = tree / "sim" / "scenarios", tree / "build" / "demo" / "bin"
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


@pytest.mark.parametrize("words", [["--scenario", "slow", "my.hex", "-m", "MTCAN"], ["my.hex", "--scenario=slow", "-m", "MTCAN"],
                                   ["my.hex", "-m", "MTCAN", "--scenario", "slow"]], ids=" ".join)
def test_the_scenario_may_stand_anywhere(demo, words):
    (demo.here / "my.hex").touch()
    (demo.scenarios / "slow.scenario").touch()
    first, path, *rest = demo(*words)
    assert (first, pathlib.PurePath(path).name, rest) == ("-u", "my.hex", ["-a", "0x2A", "-n", "12345", "-m", "MTCAN"])


def test_the_end_of_the_script_is_the_end_of_the_rehearsal(demo):
    (demo.programs / "dunmallow").write_text("#!/bin/sh\necho begun\nexec sleep 1000\n")
    run = demo.start()
    try:
        while run.stdout.readline() != "begun\n":
            assert run.poll() is None
        run.terminate()
        assert run.wait(30) == 143
        assert run.stdout.read() == ""  # nobody holds the other end any more
    finally:
        run.kill()
        run.stdout.close()
