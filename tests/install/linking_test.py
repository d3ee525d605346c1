"""A project of somebody else's links with the libraries, found in three ways, and gets nothing else of ours."""

import json
import os
import re
import shlex
import shutil
import textwrap

import pytest

from installation import REPOSITORY, command

CONSUMER = REPOSITORY / "tests/install/consumer"
LIBRARIES = ("agapp", "canflasher", "dunmallow_app", "packetsocket", "threadfunc", "toolsmisc")


@pytest.fixture(scope="session")
def found_by_cmake(build, stage, tmp_path_factory):
    folder = tmp_path_factory.mktemp("found")
    build.configure(CONSUMER, folder, f"-DCONSUMER_PROGRAMS={build.examples}", f"-Ddunmallow_ROOT={stage}")
    command("cmake", "--build", folder)
    return folder


@pytest.mark.parametrize("library", LIBRARIES)
def test_find_package_gives_a_library(build, found_by_cmake, library, tmp_path):
    build.check(f"{library}-1", found_by_cmake / f"{library}-1", tmp_path)


def block_of_the_page(first_word):
    """The indented lines of docs/libraries.md that begin with the word, as they are typed."""
    page = (REPOSITORY / "docs/libraries.md").read_text(encoding="utf-8")
    [found] = [block for block in re.findall(r"(?m)^(?: {4}.*\n|\n(?= {4}))+", page) if block.strip().startswith(first_word)]
    return textwrap.dedent(found)


def test_the_project_of_the_page_builds(build, stage, tmp_path):
    (tmp_path / "CMakeLists.txt").write_text(block_of_the_page("cmake_minimum_required"), encoding="utf-8")
    (tmp_path / "mytool.cpp").write_text('#include "sw_drv/RTkernel/linux/Clock.h"\nint main() {}\n', encoding="utf-8")
    build.configure(tmp_path, tmp_path / "build", f"-Ddunmallow_ROOT={stage}")
    command("cmake", "--build", tmp_path / "build")
    command(*build.emulator, tmp_path / "build/mytool")


def test_there_is_no_other_library(stage):
    names = {path.stem.removeprefix("libdunmallow-") for path in stage.rglob("*.a")}
    assert names == {library.removeprefix("dunmallow_") for library in LIBRARIES}


@pytest.fixture(scope="session")
def taken_in(build, tmp_path_factory):
    folder = tmp_path_factory.mktemp("taken")
    build.configure(CONSUMER, folder, f"-DCONSUMER_PROGRAMS={build.examples}", f"-DCONSUMER_SOURCE={REPOSITORY}",
                    "-DCMAKE_UNITY_BUILD=ON", "-DCMAKE_UNITY_BUILD_BATCH_SIZE=0")  # a third of the time
    return folder


def test_add_subdirectory_gives_a_library(build, taken_in, tmp_path):
    command("cmake", "--build", taken_in, "--target", "toolsmisc-1")
    build.check("toolsmisc-1", taken_in / "toolsmisc-1", tmp_path)


def test_a_project_that_takes_us_in_installs_nothing_of_ours(taken_in, tmp_path):
    command("cmake", "--install", taken_in, "--prefix", tmp_path / "prefix")
    assert not (tmp_path / "prefix").exists()


@pytest.mark.parametrize("way", ["found_by_cmake", "taken_in"])
def test_a_project_gets_no_option_but_what_the_headers_need(request, way):
    commands = json.loads((request.getfixturevalue(way) / "compile_commands.json").read_text(encoding="utf-8"))
    [words] = [shlex.split(entry["command"]) for entry in commands if "toolsmisc-1.dir/" in entry["command"]]
    options = {word for word in words[1:words.index("-o")] if word.startswith("-") and not word.startswith("-I")}
    # With the compiler's extensions or without: that is the project's own choice, and it made none.
    assert options - {"-isystem", "-pthread"} == {"-std=gnu++20", "-D_FILE_OFFSET_BITS=64", "-D_TIME_BITS=64"}


def test_a_project_that_takes_us_in_finds_its_own_settings_untouched(taken_in):
    assert (taken_in / "changed").read_text(encoding="utf-8").splitlines() == []


def only_of(stage):
    """An environment in which pkg-config knows what is in the installation, and nothing else."""
    return {"PATH": os.environ["PATH"], "PKG_CONFIG_LIBDIR": str(stage / "lib/pkgconfig")}


def flags(stage, library):
    """What a compiler needs for the library."""
    return shlex.split(command("pkg-config", "--cflags", "--libs", library, env=only_of(stage)))


def test_pkg_config_gives_the_libraries(build, stage, tmp_path):
    # From a folder without a blank in its name: the shell splits what pkg-config prints.
    (tmp_path / "stage").symlink_to(stage)
    shutil.copy(build.examples / "dunmallow_app-1.cpp", tmp_path / "mytool.cpp")  # the library above all others
    line = block_of_the_page("c++").replace("c++", shlex.join(build.compiler), 1)
    command("sh", "-c", line, cwd=tmp_path, env=only_of(tmp_path / "stage"))
    build.check("dunmallow_app-1", tmp_path / "mytool", tmp_path)


@pytest.mark.parametrize("library", LIBRARIES)
def test_a_file_for_pkg_config_names_folders_of_the_installation_only(stage, library):
    named = [word[2:] for word in flags(stage, f"dunmallow-{library.removeprefix('dunmallow_')}") if word[:2] in {"-I", "-L"}]
    assert {os.path.realpath(folder) for folder in named} == {f"{stage}/include/dunmallow", f"{stage}/lib"}


def test_the_files_for_pkg_config_are_without_fault(stage):
    for path in (stage / "lib/pkgconfig").iterdir():
        command("pkg-config", "--validate", path.stem, env=only_of(stage))


def test_the_headers_need_no_others(build, stage, tmp_path):
    if build.emulator:
        pytest.skip("the same text on every machine")
    include = stage / "include/dunmallow"
    headers = sorted(path.relative_to(include) for path in include.rglob("*.h"))
    (tmp_path / "all.cpp").write_text("".join(f'#include "{header}"\n' for header in headers), encoding="utf-8")
    command(*build.compiler, "-std=c++20", "-Wall", "-Wextra", "-Werror", "-fsyntax-only", "-I", include, tmp_path / "all.cpp")
