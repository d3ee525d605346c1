"""Each program of docs/libraries.md prints what the page says, nothing else, and ends with status 0."""

import os
import pathlib
import subprocess

import pytest

EXPECTED = sorted(pathlib.Path(os.environ["DUNMALLOW_EXAMPLES"]).glob("*.txt"))
PROGRAMS = pathlib.Path(os.environ["DUNMALLOW_PROGRAMS"])
LIBRARIES = {"toolsmisc", "agapp", "threadfunc", "packetsocket", "canflasher", "dunmallow_app"}


def test_every_library_has_an_example():
    assert {expected.stem.split("-")[0] for expected in EXPECTED} == LIBRARIES


@pytest.mark.parametrize("expected", EXPECTED, ids=lambda expected: expected.stem)
def test_an_example_prints_what_the_page_says(expected, tmp_path):
    done = subprocess.run([PROGRAMS / f"example-{expected.stem}"], cwd=tmp_path, capture_output=True, text=True,
                          timeout=60, check=False)
    assert (done.stdout, done.stderr, done.returncode) == (expected.read_text(encoding="utf-8"), "", 0)
