"""What the packager refuses before it builds anything, and what time it takes."""

import os
import pathlib
import shutil
import subprocess

import pytest

TOP = pathlib.Path(__file__).resolve().parents[2]
COMMIT, CHANGELOG, GIVEN = "1700000000", "1795262400", "1600000000"

REFUSED = {
    "an_architecture_that_is_not_built": ["--arch", "sparc"],
    "an_architecture_without_its_name": ["--arch"],
    "an_option_that_there_is_not": ["--fast"],
    "two_folders": ["one", "other"],
    "a_setting_without_a_value": ["-DNAME"],
}


@pytest.mark.parametrize("why", REFUSED)
def test_a_wrong_command_line_shows_how_it_goes(why):
    done = subprocess.run([TOP / "scripts/make-packages", *REFUSED[why]], capture_output=True, text=True, check=False)
    assert done.returncode == 2 and done.stdout == "" and "scripts/make-packages [--arch amd64|armhf]" in done.stderr


@pytest.fixture
def tree(tmp_path):
    """The packager in a tree of its own, where cmake says what time it is told and fails."""
    for folder in ("scripts", "packaging/debian", "tools"):
        (tmp_path / folder).mkdir(parents=True)
    shutil.copy(TOP / "scripts/make-packages", tmp_path / "scripts")
    shutil.copy(TOP / "packaging/debian/changelog", tmp_path / "packaging/debian")
    for stand_in, body in (("scripts/install-packages", "exit 0"), ("tools/cmake", 'echo "time $SOURCE_DATE_EPOCH"; exit 1')):
        (tmp_path / stand_in).write_text(f"#!/bin/sh\n{body}\n", encoding="utf-8")
        (tmp_path / stand_in).chmod(0o755)
    return tmp_path


def time_of(tree, **variables):
    environment = {name: value for name, value in os.environ.items() if name != "SOURCE_DATE_EPOCH"}
    environment |= {"PATH": f"{tree}/tools:{os.environ['PATH']}", **variables}
    done = subprocess.run([tree / "scripts/make-packages"], env=environment, capture_output=True, text=True, check=False)
    assert done.returncode == 1, done.stderr
    return done.stdout.split()[-1]


def commit(tree):
    identity = {f"GIT_{who}_{what}": value for who in ("AUTHOR", "COMMITTER")
                for what, value in (("NAME", "nobody"), ("EMAIL", "nobody@example.org"), ("DATE", f"{COMMIT} +0000"))}
    for command in (["init", "--quiet"], ["commit", "--quiet", "--allow-empty", "--message", "All"]):
        subprocess.run(["git", *command], cwd=tree, env={**os.environ, **identity}, check=True)


def test_the_time_is_that_of_the_last_commit(tree):
    commit(tree)
    assert time_of(tree) == COMMIT


def test_a_time_that_is_given_wins(tree):
    commit(tree)
    assert time_of(tree, SOURCE_DATE_EPOCH=GIVEN) == GIVEN


def test_without_a_repository_the_time_is_that_of_the_changelog(tree):
    assert time_of(tree) == CHANGELOG
