"""How the script runs the fuzzers, and what it says of them; builder and fuzzers are stand-ins."""

import os
import pathlib
import shutil
import subprocess

import pytest

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]

CMAKE = '#!/bin/sh\necho "$@" >>called\n[ ! -e build-fails ] || { echo "no such compiler"; exit 1; }\n'
FUZZER = '''#!/bin/sh
echo "$@" >>"called.${0##*_}"
[ ! -e "${0##*_}-fails" ] || { echo "check failed: 1 + 1 == 3"; exit 1; }
echo "stat::number_of_executed_units: 1234"
echo "stat::average_exec_per_sec: 56"
'''


@pytest.fixture
def fuzz(tmp_path):
    """Runs the script in a tree of two targets."""
    (tmp_path / "scripts").mkdir()
    shutil.copy(REPOSITORY / "scripts" / "fuzz", tmp_path / "scripts")
    programs = {"cmake": CMAKE}
    for target in ("packets", "timers"):
        (tmp_path / "fuzz" / "corpus" / target).mkdir(parents=True)
        (tmp_path / "fuzz" / "corpus" / target / "empty").touch()
        programs.update({f"build/{preset}/bin/fuzzer_{target}": FUZZER for preset in ("asan", "fuzz-long")})
    for name, text in programs.items():
        (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / name).write_text(text)
        (tmp_path / name).chmod(0o755)

    def run(*arguments, **settings):
        return subprocess.run([tmp_path / "scripts" / "fuzz", *arguments], capture_output=True, text=True, check=False,
                              env={"PATH": f"{tmp_path}:{os.environ['PATH']}", **settings})

    return run


ROWS = {
    # why: arguments, settings, preset, what the fuzzer is told, targets
    "gate": ([], {}, "asan", "-max_total_time=30 -max_len=800", ["packets", "timers"]),
    "shorter": ([], {"FUZZ_SECONDS": "2", "FUZZ_JOBS": "1"}, "asan", "-max_total_time=2 -max_len=800", ["packets", "timers"]),
    "minutes": (["60"], {}, "asan", "-max_total_time=3600 -max_len=800", ["packets", "timers"]),
    "one_of_them": (["1", "timers"], {}, "asan", "-max_total_time=60 -max_len=800", ["timers"]),
    "counted": (["--runs", "100000000", "packets"], {}, "fuzz-long",
                "-runs=100000000 -entropic=0 -reduce_inputs=0 -max_len=128", ["packets"]),
    "longer_inputs": (["--runs", "5"], {"FUZZ_LENGTH": "4096"}, "fuzz-long",
                      "-runs=5 -entropic=0 -reduce_inputs=0 -max_len=4096", ["packets", "timers"]),
}


@pytest.mark.parametrize("why", ROWS)
def test_what_is_run(fuzz, tmp_path, why):
    arguments, settings, preset, told, targets = ROWS[why]
    done = fuzz(*arguments, **settings)
    assert (done.returncode, done.stderr) == (0, "")
    lines = [line.split() for line in done.stdout.splitlines()]
    assert lines[0] == ["target", "verdict", "executions", "per-second", "new-files", "files"]
    assert sorted(lines[1:]) == [[target, "ok", "1234", "56", "0", "1"] for target in targets]
    assert (tmp_path / "called").read_text() == f"--preset {preset}\n--build --preset {preset} --target fuzz\n"
    for target in targets:
        called = (tmp_path / f"called.{target}").read_text()
        assert called.startswith(told + " ")
        assert called.endswith(f" build/fuzz/corpus/{target} fuzz/corpus/{target}\n")
    assert {file.name for file in tmp_path.glob("called.*")} == {f"called.{target}" for target in targets}


@pytest.mark.parametrize("arguments,preset", [([], "asan"), (["--runs", "9"], "fuzz-long")])
def test_a_finding(fuzz, tmp_path, arguments, preset):
    (tmp_path / "timers-fails").touch()
    done = fuzz(*arguments)
    assert done.returncode == 1
    lines = done.stdout.splitlines()
    assert [line.split()[:3] for line in lines if line.startswith(("packets", "timers"))] in (
        [["packets", "ok", "1234"], ["timers", "FAILED", "0"]], [["timers", "FAILED", "0"], ["packets", "ok", "1234"]])
    assert {"check failed: 1 + 1 == 3", f"again: build/{preset}/bin/fuzzer_timers FILE"} <= set(lines)


def test_a_build_that_fails(fuzz, tmp_path):
    (tmp_path / "build-fails").touch()
    done = fuzz()
    assert (done.returncode, done.stdout) == (1, "no such compiler\n")
    assert not [*tmp_path.glob("called.*")]


@pytest.mark.parametrize("arguments", [["0"], ["x"], ["-1"], ["--runs"], ["--runs", "0"], ["--runs", "x"], ["123456"]])
def test_wrong_arguments(fuzz, tmp_path, arguments):
    done = fuzz(*arguments)
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr == "usage: scripts/fuzz [MINUTES | --runs N] [TARGET ...]\n"
    assert not [*tmp_path.glob("called*")]
