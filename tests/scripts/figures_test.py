"""The table of figures follows from the record, and the record from what the runs say."""

import pathlib
import shutil
import subprocess
import sys

import pytest

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]

FUZZ = "target           verdict   executions per-second  new-files    files\n" \
       "packets          ok           1200000      40000          3       30\n" \
       "client           FAILED          9000        300          0       28\n"
FUZZER = "#9\tNEW    cov: 1\nstat::number_of_executed_units: 9\nstat::average_exec_per_sec:     3\n"
SOAK = "     9 clean (done)\n     2 half close\n     1 kill bytes\n     2 kill moment\nexit statuses: 0: 14\n" \
       "ended from the dispatch thread: 11\n14 runs from seed 1 on in 3 s: 9 without a fault, 3 that waited to be ended; "
REPORT = """<testsuites><testsuite>
  <testcase name="OfEachCallAreSurvived/upload"><properties><property name="runs" value="{runs}"/></properties></testcase>
  <testcase name="OfEachCallAreSurvived/timers"><properties><property name="runs" value="40"/></properties></testcase>
  <testcase name="EveryFlippedBit/status"><properties><property name="streams" value="128"/></properties></testcase>
  <testcase name="test_a_bad_command_line[-x]"/><testcase name="test_a_bad_command_line[-y]"/>
  <testcase name="test_a_bad_command_line[-z]"><failure/></testcase>
  <testcase name="test_a_state_of_the_hex_file[a FIFO]"/><testcase name="test_another"/>
  <testcase name="EveryTruncation/status"/>
</testsuite></testsuites>"""
OF_REPORT = ["bad command lines\t2", "packets with a flipped bit\t128", "runs with failing calls\t{}",
             "states of the hex file and the installation\t1"]

ROWS = {
    # what files say: {name: text}, lines
    "a_failed_target_does_not_count": ({"a.log": FUZZ}, ["fuzz executions: packets\t1200000"]),
    "two_runs_are_added_up": ({"a.log": FUZZ, "b.log": FUZZ}, ["fuzz executions: packets\t2400000"]),
    "a_fuzzer_itself": ({"path.log": FUZZER + "Done 9 runs in 3 second(s)\n"}, ["fuzz executions: path\t9"]),
    "a_fuzzer_that_was_ended": ({"path.log": "==77== libFuzzer: run interrupted; exiting\n" + FUZZER},
                                ["fuzz executions: path\t9"]),
    "a_fuzzer_that_found_something": ({"path.log": FUZZER}, [""]),
    "uploads_by_kind": ({"a.log": SOAK + "14 as they should be, 0 not\n"}, [
        "uploads\t14", "uploads that end by `exit` on the dispatch thread\t11", "uploads: clean\t9",
        "uploads: half close\t2", "uploads: kill\t3"]),
    "a_soak_that_failed_does_not_count": ({"a.log": SOAK + "4 as they should be, 10 not\n"}, [""]),
    "torture": ({"a.log": "faults: 20123 runs with faults, 40000 in all\n[  PASSED  ] 23 tests.\n"},
                ["runs with failing calls\t20123"]),
    "torture_that_failed": ({"a.log": "faults: 20123 runs with faults, 40000 in all\n[  FAILED  ] 1 test.\n"}, [""]),
    "coverage": ({"a.log": "lines: 99.5% (1 out of 2)\nbranches: 95.0% (1 out of 2)\n"},
                 ["branches of `src/` reached\t95.0%", "lines of `src/` reached\t99.5%"]),
    "mutation": ({"a.log": "3420 of 3500 noticed, 97.7 %\n"},
                 ["changes to `src/`\t3500", "changes to `src/` that a test noticed\t97.7 %"]),
    "tests": ({"a.xml": REPORT.format(runs=60)}, [line.format(100) for line in OF_REPORT]),
    "a_test_of_two_builds_counts_once": ({"a.xml": REPORT.format(runs=9), "b.xml": REPORT.format(runs=60)},
                                         [line.format(100) for line in OF_REPORT]),
}


@pytest.fixture
def figures(tmp_path):
    """Runs the script in a tree of its own, with these files beside it."""
    for name in ("scripts", "docs"):
        (tmp_path / name).mkdir()
    shutil.copy(REPOSITORY / "scripts" / "figures", tmp_path / "scripts")
    (tmp_path / "docs" / "figures").write_text("scripts/test\tuploads\t300\n")
    (tmp_path / "docs" / "testing.md").write_text("above\n<!-- made by scripts/figures -->\n<!-- until here -->\nbelow\n")

    def run(*arguments, **files):
        for name, text in files.items():
            (tmp_path / name).write_text(text)
        return subprocess.run([sys.executable, "-B", tmp_path / "scripts" / "figures", *arguments, *files],
                              capture_output=True, text=True, cwd=tmp_path, check=False)

    return run


@pytest.mark.parametrize("why", ROWS)
def test_what_runs_say(figures, why):
    files, lines = ROWS[why]
    assert figures("--of", **files).stdout.split("\n")[:-1] == lines


def test_the_page_is_checked_against_the_record(figures, tmp_path):
    page = tmp_path / "docs" / "testing.md"
    assert figures("--check").returncode == 1
    assert figures("--write").returncode == 0
    assert page.read_text().startswith("above\n") and page.read_text().endswith("\nbelow\n")
    assert "| uploads | 300 |  | `tests/e2e/soak.py` | `scripts/soak N` |\n" in page.read_text()
    assert (figures("--check").returncode, figures("--check").stdout) == (0, "")
    page.write_text(page.read_text().replace("300", "3000"))
    assert figures("--check").returncode == 1


def test_a_longer_run_stands_beside_the_gate_and_takes_its_own_place(figures, tmp_path):
    good = SOAK + "14 as they should be, 0 not\n"
    assert figures("--add", "scripts/soak 14", **{"a.log": good}).returncode == 0
    assert figures("--add", "scripts/soak 14", **{"a.log": good}).returncode == 0
    assert figures("--add", "scripts/soak 14 --seed 9", **{"a.log": good.replace("14 runs", "1986 runs")}).returncode == 0
    row = "| uploads | 300 | 2,000 | `tests/e2e/soak.py` | `scripts/soak 14`, `scripts/soak 14 --seed 9` |\n"
    assert row in figures().stdout
    assert row in (tmp_path / "docs" / "testing.md").read_text()


def test_the_gate_misses_what_it_once_told(figures):
    good = SOAK + "14 as they should be, 0 not\n"
    assert figures("--gate", **{"a.log": good}).returncode == 0
    done = figures("--gate", **{"a.log": FUZZ})
    assert (done.returncode, done.stdout.splitlines()[-1]) == (1, "missing: uploads")


@pytest.mark.parametrize("arguments", [["--add"], ["--add", "scripts/soak"], ["--of"], ["--gate"], ["--check", "x"], ["-h"]])
def test_wrong_arguments(figures, arguments):
    assert figures(*arguments).returncode == 1


def test_our_page_has_the_figures_of_our_record():
    done = subprocess.run([sys.executable, "-B", REPOSITORY / "scripts" / "figures", "--check"],
                          stdout=subprocess.PIPE, text=True, check=False)
    assert (done.returncode, done.stdout) == (0, "")
