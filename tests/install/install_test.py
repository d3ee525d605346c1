"""What is installed: the files of the list, in their components, and nothing in them that names the build."""

import os
import pathlib
import shutil
import subprocess

import pytest

from installation import COMPONENTS, REPOSITORY, command, install, installed, listed


@pytest.mark.parametrize("component", COMPONENTS)
def test_a_component_is_what_is_listed(build, component, tmp_path):
    assert installed(install(build.folder, tmp_path, "--component", component)) == listed(component)


def test_no_file_belongs_to_no_component(stage):
    assert installed(stage) == listed(*COMPONENTS)


def test_no_file_belongs_to_two_components():
    assert sum(len(listed(component)) for component in COMPONENTS) == len(listed(*COMPONENTS))


def test_every_header_is_installed(stage):
    sources = {str(path.relative_to(REPOSITORY / "src")) for path in (REPOSITORY / "src").rglob("*.h")}
    include = stage / "include/dunmallow"
    assert {str(path.relative_to(include)) for path in include.rglob("*") if path.is_file()} == sources


def test_no_file_to_be_read_names_a_folder_of_the_build(build, stage):
    texts = [path for path in stage.rglob("*") if path.is_file() and path.suffix != ".a"
             and path.name not in {"dunmallow", "corvane"}]
    assert len(texts) > 100
    for path in texts:
        text = path.read_text(encoding="utf-8")
        assert str(REPOSITORY) not in text and str(build.folder) not in text, path


def test_the_simulated_server_is_in_no_folder_of_programs(stage):
    assert [path.parent.relative_to(stage) for path in stage.rglob("corvane")
            if path.is_file()] == [pathlib.PurePath("libexec/corvane-sim/bin")]


def test_the_simulated_server_finds_its_scenarios_where_it_is_installed(build, stage):
    server = stage / "libexec/corvane-sim/bin/corvane"
    wrong = {**os.environ, "CORVANE_SETTINGS": "refuse start 7"}
    done = subprocess.run([*build.emulator, server, "-f", "-s", "fast"], env=wrong, timeout=60, check=False)
    assert done.returncode == 7  # read the scenario, then did what the setting says


def test_find_package_refuses_another_major_version(stage, tmp_path):
    (tmp_path / "CMakeLists.txt").write_text(
        "cmake_minimum_required(VERSION 3.25)\nproject(other NONE)\nfind_package(dunmallow 2.0 REQUIRED)\n",
        encoding="utf-8")
    done = subprocess.run(["cmake", "-S", tmp_path, "-B", tmp_path / "build", f"-Ddunmallow_ROOT={stage}"],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=60, check=False)
    assert done.returncode != 0 and 'compatible with requested version "2.0"' in " ".join(done.stderr.split())


@pytest.fixture(scope="session")
def multiarch(build, tmp_path_factory):
    """An installation as Debian's packages have it, of the libraries that are built already."""
    folder = tmp_path_factory.mktemp("multiarch")
    build.configure(REPOSITORY, folder / "build", "-DCMAKE_INSTALL_PREFIX=/usr", "-DCMAKE_INSTALL_LIBDIR=lib/any-linux-gnu",
                    "-DCMAKE_BUILD_TYPE=Release", "-DDUNMALLOW_BUILD_SIM=OFF", "-DDUNMALLOW_BUILD_TESTS=OFF")
    for library in (build.folder / "src").rglob("*.a"):
        shutil.copy(library, folder / "build" / library.relative_to(build.folder))
    return install(folder / "build", folder / "usr", "--component", "libdunmallow-dev")


def test_the_folder_of_libraries_may_be_another(multiarch):
    assert (multiarch / "lib/any-linux-gnu/libdunmallow-app.a").exists()
    assert installed(multiarch) == listed("libdunmallow-dev")


def test_the_files_for_pkg_config_find_a_folder_of_libraries_that_is_another(multiarch):
    where = {"PATH": os.environ["PATH"], "PKG_CONFIG_LIBDIR": str(multiarch / "lib/any-linux-gnu/pkgconfig")}
    for variable, path in {"libdir": "lib/any-linux-gnu", "includedir": "include/dunmallow"}.items():
        said = command("pkg-config", f"--variable={variable}", "dunmallow-app", env=where).strip()
        assert pathlib.Path(said.replace("\\", "")).resolve() == multiarch / path
