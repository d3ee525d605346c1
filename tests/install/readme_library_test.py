"""The ten lines of README.md that link a library, with its commands, against the installation."""

import os
import re
import shlex
import subprocess

import pytest

from installation import REPOSITORY, command, listed

PAGE = (REPOSITORY / "README.md").read_text(encoding="utf-8")
FILES = dict(re.findall(r"`([\w.]+)`:\n\n```\w+\n(.*?)^```$", PAGE, re.MULTILINE | re.DOTALL))
SAYS = re.search(r"^It prints `([^`]+)`", PAGE, re.MULTILINE)[1]


def line_of(pattern):
    """The command of the page that the pattern describes."""
    [found] = set(re.findall(pattern, PAGE, re.MULTILINE))
    return found


@pytest.fixture
def project(tmp_path):
    for name, content in FILES.items():
        (tmp_path / name).write_text(content, encoding="utf-8")
    return tmp_path


def test_there_are_ten_lines():
    assert set(FILES) == {"CMakeLists.txt", "main.cpp"}
    assert sum(len(content.splitlines()) for content in FILES.values()) == 10


def test_the_command_of_the_page_builds_and_runs_the_program(project, stage):
    line = line_of(r"^cmake -B build && cmake --build build && build/mytool$")
    said = command("sh", "-c", line, cwd=project, env={**os.environ, "dunmallow_ROOT": str(stage), "CXXFLAGS": "-O0"})
    assert said.splitlines()[-1] == SAYS


def test_pkg_config_gives_the_same(project, stage, build):
    words = shlex.split(line_of(r"`(pkg-config [^`]+)`"))
    [folder] = {path.parent for path in stage.rglob("*.pc")}
    flags = command(*words, env={**os.environ, "PKG_CONFIG_LIBDIR": str(folder)})
    command(*build.compiler, "-std=c++20", "main.cpp", "-o", "mytool", *shlex.split(flags), cwd=project)
    assert subprocess.run([project / "mytool"], stdout=subprocess.PIPE, text=True, check=True).stdout == f"{SAYS}\n"


def test_the_program_alone_is_installed_by_the_command_of_the_page(build, tmp_path):
    words = shlex.split(line_of(r"`(cmake --install [^`]+)`"))
    places = {"build/armhf": build.folder, "FOLDER": tmp_path}
    command(*(places.get(word, word) for word in words))
    found = {str(path.relative_to(tmp_path)) for path in tmp_path.rglob("*") if path.is_file()}
    assert found == listed("dunmallow")
