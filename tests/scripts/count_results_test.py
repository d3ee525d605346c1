"""The last line of the gate counts checks and test cases, and the exit status says whether all is well."""

import pathlib
import subprocess
import sys

import pytest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "count-results"

GOOGLETEST = """<?xml version="1.0" encoding="UTF-8"?>
<testsuites tests="4" failures="1" disabled="1" errors="0" name="AllTests">
  <testsuite name="Path" tests="4">
    <testcase name="Joins" status="run" result="completed" classname="Path" />
    <testcase name="Cuts" status="run" result="completed" classname="Path">
      <failure message="one&#x0A;two" type=""><![CDATA[one]]></failure>
      <failure message="three" type=""><![CDATA[three]]></failure>
    </testcase>
    <testcase name="Waits" status="run" result="skipped" classname="Path"><skipped message="not here" /></testcase>
    <testcase name="DISABLED_Old" status="notrun" result="suppressed" classname="Path" />
  </testsuite>
</testsuites>
"""
PYTEST = """<?xml version="1.0" encoding="utf-8"?>
<testsuites><testsuite name="pytest" errors="1" failures="0" skipped="1" tests="3">
  <testcase classname="e2e.test_flow" name="test_done" time="0.1" />
  <testcase classname="e2e.test_flow" name="test_rig" time="0.1"><error message="no rig">text</error></testcase>
  <testcase classname="e2e.test_flow" name="test_soak" time="0.1"><skipped type="pytest.skip" message="x" /></testcase>
</testsuite></testsuites>
"""
ALL_WELL = '<testsuites><testsuite><testcase classname="A" name="b" status="run" /></testsuite></testsuites>'

ROWS = [
    # why, checks, reports, status, last line
    ("checks_and_reports", "passed build\n", [ALL_WELL], 0, "2 passed, 0 failed"),
    ("failed_check", "passed build\nfailed lint\n", [ALL_WELL], 1, "2 passed, 1 failed"),
    ("googletest_report", "passed build\n", [GOOGLETEST], 1, "2 passed, 1 failed"),
    ("pytest_report", "passed build\n", [PYTEST], 1, "2 passed, 1 failed"),
    ("several_reports", "passed build\n", [GOOGLETEST, PYTEST, ALL_WELL], 1, "4 passed, 2 failed"),
    ("no_reports", "passed build\n", [], 0, "1 passed, 0 failed"),
    ("nothing_was_run", "", [], 1, "0 passed, 0 failed"),
]


def count(folder, checks, reports):
    (folder / "checks").write_text(checks, encoding="utf-8")
    names = [folder / f"{number}.xml" for number in range(len(reports))]
    for name, report in zip(names, reports):
        name.write_text(report, encoding="utf-8")
    return subprocess.run([sys.executable, "-B", SCRIPT, folder / "checks", *names], capture_output=True, text=True,
                          check=False)


@pytest.mark.parametrize("checks,reports,status,summary", [row[1:] for row in ROWS], ids=[row[0] for row in ROWS])
def test_summary_and_status(tmp_path, checks, reports, status, summary):
    done = count(tmp_path, checks, reports)
    assert (done.returncode, done.stdout.splitlines()[-1], done.stderr) == (status, summary, "")


def test_what_failed_or_was_skipped_stands_above_the_summary(tmp_path):
    assert count(tmp_path, "failed lint\n", [GOOGLETEST]).stdout.splitlines() == [
        "failed: lint", f"failed: {tmp_path}/0.xml: Path.Cuts", "1 skipped", "1 passed, 2 failed"]


def test_a_broken_report_is_no_success(tmp_path):
    # A test program that crashed leaves a report cut short or none; neither may pass unseen.
    assert count(tmp_path, "passed build\n", [GOOGLETEST[:200]]).returncode != 0
