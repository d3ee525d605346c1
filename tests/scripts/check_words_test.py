"""Words that do not belong into tree or history are found in a small repository that is clean but for one line."""

import os
import pathlib
import shutil
import subprocess

import pytest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "check-words"

# Why, name of the file, its line, what is reported. The pieces keep the check from finding this file.
WRONG = [
    ("short_word", "a.md", "as in the sp" + "ec", "words for issues only, in the tree"),
    ("plural_in_capitals", "a.md", "SP" + "ECS", "words for issues only, in the tree"),
    ("long_word_inside_another", "a.cpp", "// unsp" + "ecificationed", "words for issues only, in the tree"),
    ("numbered_part", "a.h", "/// Part" + " 3.1", "words for issues only, in the tree"),
    ("hyphen_between", "a.h", "// clean" + "-room", "words for issues only, in the tree"),
    ("left_over", "a.cpp", "// TO" + "DO: later", "left-overs"),
    ("left_over_for_fixing", "a.py", "# FIX" + "ME", "left-overs"),
    ("left_over_mark", "CMakeLists.txt", "# X" + "XX", "left-overs"),
    ("path_of_one_machine", "a.md", "see /wo" + "rk/main/a.h", "paths of one machine"),
]
RIGHT = [
    ("longer_word", "a.md", "inspect, special, a specific part"),
    ("template_of_mkdtemp", "a.cpp", '"/tmp/toolsmisc-XXXXXX"'),
    ("part_without_number", "a.md", "Part 7.1 and part one"),
    ("path_inside_another", "a.md", "/home/me/wo" + "rk/x and a/wo" + "rk/x"),
]


def git(tree, *arguments):
    identity = {"GIT_CONFIG_GLOBAL": os.devnull, "GIT_CONFIG_SYSTEM": os.devnull}
    for role in ("AUTHOR", "COMMITTER"):
        identity.update({f"GIT_{role}_NAME": "Tester", f"GIT_{role}_EMAIL": "tester@example.org"})
    subprocess.run(["git", "-C", tree, *arguments], check=True, capture_output=True, env={**os.environ, **identity})


def check(tree, name, line, message="Begin"):
    """Result of the check in a new repository with one file of one line and one commit."""
    (tree / "scripts").mkdir()
    shutil.copy(SCRIPT, tree / "scripts")
    (tree / name).write_text(line + "\n", encoding="utf-8")
    git(tree, "init", "--quiet")
    git(tree, "add", ".")
    git(tree, "commit", "--quiet", "--message", message)
    done = subprocess.run([tree / "scripts" / "check-words"], capture_output=True, text=True, check=False)
    assert done.stderr == ""
    return done.returncode, done.stdout


@pytest.mark.parametrize("name,line,reason", [row[1:] for row in WRONG], ids=[row[0] for row in WRONG])
def test_a_wrong_line_is_reported_with_its_place(tmp_path, name, line, reason):
    assert check(tmp_path, name, line) == (1, f"{reason}:\n{name}:1:{line}\n")


@pytest.mark.parametrize("name,line", [row[1:] for row in RIGHT], ids=[row[0] for row in RIGHT])
def test_a_right_line_passes_silently(tmp_path, name, line):
    assert check(tmp_path, name, line) == (0, "")


def test_a_wrong_commit_message_is_reported(tmp_path):
    code, output = check(tmp_path, "a.md", "text", "Follow the sp" + "ec")
    assert code == 1
    assert output.startswith("words for issues only, in commit messages:\n")
    assert "Follow the sp" + "ec" in output


def test_outside_a_repository_the_check_fails(tmp_path):
    (tmp_path / "scripts").mkdir()
    shutil.copy(SCRIPT, tmp_path / "scripts")
    done = subprocess.run([tmp_path / "scripts" / "check-words"], capture_output=True, check=False,
                          env={**os.environ, "GIT_CEILING_DIRECTORIES": str(tmp_path.parent)})
    assert done.returncode != 0
