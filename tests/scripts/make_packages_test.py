"""What the packager refuses before it builds anything, what time it takes, and what it does not take from earlier runs."""

import fcntl
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
    "a_setting_for_what_is_built_already": ["--built", "-DNAME=VALUE"],
}


@pytest.mark.parametrize("why", REFUSED)
def test_a_wrong_command_line_shows_how_it_goes(why):
    done = subprocess.run([TOP / "scripts/make-packages", *REFUSED[why]], capture_output=True, text=True, check=False)
    assert done.returncode == 2 and done.stdout == "" and "scripts/make-packages [--arch amd64|armhf]" in done.stderr


@pytest.mark.parametrize("time", ["yesterday", "-1", "1.5", " 1", "1600000000\n", "999999999999"])
def test_a_time_that_is_none_is_refused(time):
    done = subprocess.run([TOP / "scripts/make-packages"], env={**os.environ, "SOURCE_DATE_EPOCH": time},
                          capture_output=True, text=True, check=False)
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr == f"SOURCE_DATE_EPOCH is '{time}': expected whole seconds since 1970.\n"


@pytest.fixture
def tree(tmp_path):
    """The packager in a tree of its own, where cmake says how it is called and what time it is told, and fails."""
    for folder in ("scripts", "packaging/debian", "tools"):
        (tmp_path / folder).mkdir(parents=True)
    shutil.copy(TOP / "scripts/make-packages", tmp_path / "scripts")
    shutil.copy(TOP / "packaging/debian/changelog", tmp_path / "packaging/debian")
    for stand_in, body in (("scripts/install-packages", "exit 0"), ("tools/cmake", 'echo "$@" "time $SOURCE_DATE_EPOCH"; exit 1')):
        (tmp_path / stand_in).write_text(f"#!/bin/sh\n{body}\n", encoding="utf-8")
        (tmp_path / stand_in).chmod(0o755)
    return tmp_path


def start(tree, **variables):
    environment = {name: value for name, value in os.environ.items() if name != "SOURCE_DATE_EPOCH"}
    environment |= {"PATH": f"{tree}/tools:{os.environ['PATH']}", **variables}
    return subprocess.Popen([tree / "scripts/make-packages"], env=environment, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True)


def words_of_cmake(tree, **variables):
    process = start(tree, **variables)
    output, errors = process.communicate()
    assert process.returncode == 1, errors
    return output.split()


def time_of(tree, **variables):
    return words_of_cmake(tree, **variables)[-1]


def git(tree, *words):
    identity = {f"GIT_{who}_{what}": value for who in ("AUTHOR", "COMMITTER")
                for what, value in (("NAME", "nobody"), ("EMAIL", "nobody@example.org"), ("DATE", f"{COMMIT} +0000"))}
    subprocess.run(["git", *words], cwd=tree, env={**os.environ, **identity}, check=True)


def commit(tree):
    git(tree, "init", "--quiet")
    git(tree, "commit", "--quiet", "--allow-empty", "--message", "All")


def test_the_time_is_that_of_the_last_commit(tree):
    commit(tree)
    assert time_of(tree) == COMMIT


def test_a_time_that_is_given_wins(tree):
    commit(tree)
    assert time_of(tree, SOURCE_DATE_EPOCH=GIVEN) == GIVEN


def test_without_a_repository_the_time_is_that_of_the_changelog(tree):
    assert time_of(tree) == CHANGELOG


def test_the_repository_may_belong_to_another_user(tree):
    commit(tree)
    assert time_of(tree, GIT_TEST_ASSUME_DIFFERENT_OWNER="1") == COMMIT


def test_without_a_commit_the_time_is_that_of_the_changelog(tree):
    git(tree, "init", "--quiet")
    assert time_of(tree) == CHANGELOG


def test_an_empty_time_is_none(tree):
    assert time_of(tree, SOURCE_DATE_EPOCH="") == CHANGELOG


def test_the_settings_of_an_earlier_run_are_forgotten(tree):
    assert "--fresh" in words_of_cmake(tree)


def test_another_run_waits_for_its_turn(tree):
    with open(tree / "scripts/make-packages", "rb") as first:
        fcntl.flock(first, fcntl.LOCK_EX)
        second = start(tree)
        with pytest.raises(subprocess.TimeoutExpired):
            second.wait(timeout=0.5)
    output, errors = second.communicate(timeout=60)
    assert output != "" and second.returncode == 1, errors
