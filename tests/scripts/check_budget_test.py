"""That a figure that grows is noticed."""

import pathlib
import subprocess

import pytest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts/check-budget"
BUDGET = "# size: a remark\nsize\t1000\t5000\tbytes\nmemory\t3950\t4096\tkB\n"

FIGURES = {
    # name, figure, whether it is within the budget
    "as_planned": ("size", "1000", True),
    "less": ("size", "1", True),
    "a_tenth_more": ("size", "1100", True),
    "more_than_a_tenth_more": ("size", "1101", False),
    "many_more_digits": ("size", "10000", False),
    "at_the_limit": ("memory", "4096", True),
    "above_the_limit_though_not_a_tenth_more": ("memory", "4097", False),
    "nothing_measured": ("size", "", False),
    "zero": ("size", "0", False),
    "no_number": ("size", "1000 bytes", False),
    "a_figure_without_a_budget": ("siz", "1000", False),
}


@pytest.mark.parametrize("why", FIGURES)
def test_a_figure_is_compared_with_its_budget(tmp_path, why):
    name, figure, good = FIGURES[why]
    (tmp_path / "budget").write_text(BUDGET, encoding="utf-8")
    done = subprocess.run([SCRIPT, tmp_path / "budget", name, figure], capture_output=True, text=True, check=False)
    assert done.returncode == (0 if good else 1) and done.stderr == ""
    assert done.stdout.startswith(f"{name}: ") and ("FAILED" in done.stdout) != good
