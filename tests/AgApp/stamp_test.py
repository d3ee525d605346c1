"""Stamping the build date and setting the repository keyword, in finished programs of the configured compiler.

Run by CTest, which says where things are:
  DUNMALLOW_TEST_SOURCE    folder of the sources         DUNMALLOW_TEST_COMPILER  C++ compiler
  DUNMALLOW_TEST_PROGRAMS  finished programs, ":"        DUNMALLOW_TEST_STRIP     strip for their machine
  DUNMALLOW_TEST_RUNNER    emulator command or nothing   DUNMALLOW_TEST_TOOLCHAIN CMake toolchain file or nothing
"""

import os
import re
import shutil
import stat
import subprocess
import time
from datetime import datetime, timezone
from pathlib import Path

import pytest

SOURCE = Path(os.environ["DUNMALLOW_TEST_SOURCE"])
COMPILER = os.environ["DUNMALLOW_TEST_COMPILER"]
STRIP = os.environ["DUNMALLOW_TEST_STRIP"]
RUNNER = os.environ["DUNMALLOW_TEST_RUNNER"].split()
TOOLCHAIN = os.environ["DUNMALLOW_TEST_TOOLCHAIN"]
PROGRAMS = [Path(program) for program in os.environ["DUNMALLOW_TEST_PROGRAMS"].split(":")]

SCRIPT = SOURCE / "scripts/stamp-build-date"
UNSTAMPED = b"!Build Date: 1901-01-01 00:00:00 UTC!\0"
STAMPED = b"!Build Date: 2024-02-29 12:34:56 UTC!\0"
DATE = "2024-02-29 12:34:56"
KEYWORD = "$HeadURL: svn+ssh://repository.example/usr/local/Repository/{path}/src/AgApp/SuiteVersions.cpp $"
WHOLE_KEYWORD = (rb"\$HeadURL: svn\+ssh://[^/ ]+/usr/local/Repository/(trunk|(branches|tags)/[^/ ]+)"
                 rb"/src/AgApp/SuiteVersions\.cpp \$\0")


def stamp(program, *arguments, environment=None):
    """Runs the script; the environment holds no date unless the test gives one."""
    clean = {name: value for name, value in os.environ.items() if name != "SOURCE_DATE_EPOCH"}
    return subprocess.run([SCRIPT, program, *arguments], env=clean | (environment or {}), text=True,
                          capture_output=True, check=False)


def fake_program(folder, content=b"\x7fELF code " + UNSTAMPED + b" more code"):
    program = folder / "program"
    program.write_bytes(content)
    program.chmod(0o755)
    return program


# The script

def test_overwrites_the_23_characters_and_nothing_else(tmp_path):
    program = fake_program(tmp_path)
    inode = program.stat().st_ino
    done = stamp(program, "--date", DATE)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    assert program.read_bytes() == b"\x7fELF code " + STAMPED + b" more code"
    assert program.stat().st_ino == inode, "stamped in place"


@pytest.mark.parametrize("mode", [0o644, 0o755, 0o700, 0o4755, 0o2755])
def test_keeps_the_mode(tmp_path, mode):
    program = fake_program(tmp_path)
    program.chmod(mode)
    assert stamp(program, "--date", DATE).returncode == 0
    assert stat.S_IMODE(program.stat().st_mode) == mode


def test_marker_at_the_very_start_and_end(tmp_path):
    program = fake_program(tmp_path, UNSTAMPED)
    assert stamp(program, "--date", DATE).returncode == 0
    assert program.read_bytes() == STAMPED


def test_stamps_a_stamped_program_again(tmp_path):
    program = fake_program(tmp_path)
    for date in ("1999-12-31 23:59:59", "9999-12-31 23:59:59", "0001-01-01 00:00:00", DATE, DATE):
        assert stamp(program, "--date", date).returncode == 0
        assert program.read_bytes() == b"\x7fELF code !Build Date: " + date.encode() + b" UTC!\0 more code"


def test_stamps_through_a_link(tmp_path):
    program = fake_program(tmp_path)
    (tmp_path / "link").symlink_to(program)
    assert stamp(tmp_path / "link", "--date", DATE).returncode == 0
    assert STAMPED in program.read_bytes()
    assert (tmp_path / "link").is_symlink()


@pytest.mark.parametrize("seconds, date", [
    ("0", b"1970-01-01 00:00:00"), ("1709210096", b"2024-02-29 12:34:56"), ("4294967296", b"2106-02-07 06:28:16"),
    ("-1", b"1969-12-31 23:59:59"), ("-2177452800", b"1901-01-01 00:00:00"), ("253402300799", b"9999-12-31 23:59:59"),
])
def test_takes_seconds(tmp_path, seconds, date):
    program = fake_program(tmp_path)
    assert stamp(program, "--epoch", seconds).returncode == 0
    assert b"!Build Date: " + date + b" UTC!\0" in program.read_bytes()


def test_takes_the_environments_date(tmp_path):
    program = fake_program(tmp_path)
    assert stamp(program, environment={"SOURCE_DATE_EPOCH": "1709210096"}).returncode == 0
    assert STAMPED in program.read_bytes()


def test_options_come_before_the_environment(tmp_path):
    program = fake_program(tmp_path)
    assert stamp(program, "--date", DATE, environment={"SOURCE_DATE_EPOCH": "1"}).returncode == 0
    assert STAMPED in program.read_bytes()
    assert stamp(program, "--epoch", "2", environment={"SOURCE_DATE_EPOCH": "1"}).returncode == 0
    assert b" 00:00:02 UTC" in program.read_bytes()


def test_takes_the_time_of_now_in_utc(tmp_path):
    program = fake_program(tmp_path)
    before = int(time.time())
    assert stamp(program, environment={"TZ": "Asia/Tokyo"}).returncode == 0
    after = int(time.time())
    text = re.search(rb"!Build Date: (.{19}) UTC!", program.read_bytes()).group(1).decode()
    moment = datetime.strptime(text, "%Y-%m-%d %H:%M:%S").replace(tzinfo=timezone.utc).timestamp()
    assert before <= moment <= after


REFUSED_PROGRAMS = {
    "empty": (b"", "no build date marker"),
    "noMarker": (b"\x7fELF code", "no build date marker"),
    "damagedStart": (UNSTAMPED.replace(b"!B", b"?B"), "no build date marker"),
    "two": (UNSTAMPED + UNSTAMPED, "2 build date markers, expected one"),
    "wholeAndDamaged": (UNSTAMPED + b"!Build Date: ?", "2 build date markers, expected one"),
    "cutOff": (UNSTAMPED[:20], "the build date marker is damaged"),
    "cutBeforeTheZero": (UNSTAMPED[:-1], "the build date marker is damaged"),
    "noZeroAtTheEnd": (UNSTAMPED[:-1] + b"x", "the build date marker is damaged"),
    "noMarkAtTheEnd": (UNSTAMPED.replace(b"UTC!", b"UTC?"), "the build date marker is damaged"),
    "otherZone": (UNSTAMPED.replace(b"UTC", b"CET"), "the build date marker is damaged"),
    "noDigit": (UNSTAMPED.replace(b"1901", b"19O1"), "the build date marker is damaged"),
    "otherSeparator": (UNSTAMPED.replace(b"00:00:00", b"00.00.00"), "the build date marker is damaged"),
    "oneCharacterMore": (UNSTAMPED.replace(b"1901", b"12901"), "the build date marker is damaged"),
}


@pytest.mark.parametrize("content, reason", REFUSED_PROGRAMS.values(), ids=REFUSED_PROGRAMS.keys())
def test_refuses_a_program_and_leaves_it_alone(tmp_path, content, reason):
    program = fake_program(tmp_path, content)
    os.utime(program, ns=(10**9, 10**9))
    done = stamp(program, "--date", DATE)
    assert (done.returncode, done.stdout, done.stderr) == (1, "", f"stamp-build-date: {program}: {reason}\n")
    assert program.read_bytes() == content
    assert program.stat().st_mtime_ns == 10**9


@pytest.mark.parametrize("date", [
    "", "2024-02-29", "2023-02-29 00:00:00", "2024-13-01 00:00:00", "2024-01-01 24:00:00", "2024-01-01 00:00:60",
    "24-01-01 00:00:00", "2024-1-01 00:00:00", "2024-01-01T00:00:00", "2024-01-01 00:00:00 UTC", "0000-01-01 00:00:00",
    "2024-01-01 00:00:00\n", "٢٠٢٤-01-01 00:00:00",
])
def test_refuses_what_is_no_date(tmp_path, date):
    program = fake_program(tmp_path)
    done = stamp(program, "--date", date)
    assert done.returncode == 1
    assert done.stderr == f"stamp-build-date: '{date}' is no date: expected YYYY-MM-DD hh:mm:ss\n"
    assert UNSTAMPED in program.read_bytes()


@pytest.mark.parametrize("seconds", ["", "x", "1.5", "1e9", "253402300800", "-62135596801", "9" * 40, " 1", "1_0"])
def test_refuses_what_is_no_number_of_seconds(tmp_path, seconds):
    program = fake_program(tmp_path)
    reason = f" is '{seconds}': expected whole seconds of the years 1 to 9999\n"
    by_option = stamp(program, f"--epoch={seconds}")
    assert (by_option.returncode, by_option.stderr) == (1, "stamp-build-date: --epoch" + reason)
    by_environment = stamp(program, environment={"SOURCE_DATE_EPOCH": seconds})
    assert (by_environment.returncode, by_environment.stderr) == (1, "stamp-build-date: SOURCE_DATE_EPOCH" + reason)
    assert UNSTAMPED in program.read_bytes()


@pytest.mark.parametrize("arguments", [(), ("a", "b"), ("a", "--date"), ("a", "--date", DATE, "--epoch", "1"), ("a", "--x")])
def test_a_wrong_command_line_is_one_line_and_status_2(arguments):
    done = subprocess.run([SCRIPT, *arguments], text=True, capture_output=True, check=False)
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr.startswith("stamp-build-date: ") and done.stderr.count("\n") == 1


def test_refuses_what_is_no_program_file(tmp_path):
    missing = stamp(tmp_path / "missing", "--date", DATE)
    assert (missing.returncode, missing.stderr) == (1, f"stamp-build-date: {tmp_path}/missing: No such file or directory\n")
    folder = stamp(tmp_path, "--date", DATE)
    assert (folder.returncode, folder.stderr) == (1, f"stamp-build-date: {tmp_path}: Is a directory\n")
    os.mkfifo(tmp_path / "pipe")
    pipe = stamp(tmp_path / "pipe", "--date", DATE)
    assert (pipe.returncode, pipe.stderr) == (1, f"stamp-build-date: {tmp_path}/pipe: not a regular file\n")


def test_refuses_a_program_that_may_not_be_written(tmp_path):
    if os.geteuid() == 0:
        pytest.skip("the super-user may write every file")
    program = fake_program(tmp_path)
    program.chmod(0o555)
    assert stamp(program, "--date", DATE).stderr == f"stamp-build-date: {program}: Permission denied\n"


def test_refuses_a_running_program(tmp_path):
    program = tmp_path / "sleep"
    shutil.copy("/bin/sleep", program)
    with subprocess.Popen([program, "60"]) as running:
        done = stamp(program, "--date", DATE)
        running.kill()
    assert (done.returncode, done.stderr) == (1, f"stamp-build-date: {program}: Text file busy\n")


# Finished programs

def output_of(program, *arguments):
    done = subprocess.run([*RUNNER, program, *arguments], text=True, capture_output=True, check=True)
    return done.stdout.splitlines()


@pytest.mark.parametrize("program", PROGRAMS, ids=lambda program: program.name)
def test_the_builds_own_program_holds_the_keyword_once_and_whole(program):
    content = program.read_bytes()
    assert content.count(b"$HeadURL: ") == 1
    assert re.search(WHOLE_KEYWORD, content)


@pytest.mark.parametrize("program", PROGRAMS, ids=lambda program: program.name)
def test_the_builds_own_program_holds_the_marker_once_and_prints_what_is_stamped(program, tmp_path):
    content = program.read_bytes()
    assert content.count(b"!Build Date: ") == 1
    copy = shutil.copy(program, tmp_path)
    assert stamp(copy, "--date", DATE).returncode == 0
    label = output_of(copy, "-v")[0]
    assert re.fullmatch(r"Dev-.* 2024-02-29 12:34:56 UTC", label) or " UTC" not in label
    assert stamp(copy, "--date", "2025-12-31 23:59:59").returncode == 0
    label = output_of(copy, "-v")[0]
    assert re.fullmatch(r"Dev-.* 2025-12-31 23:59:59 UTC", label) or " UTC" not in label


def configure_keyword(path, file, check=True):
    """Runs the step of the build that turns the tree's name into a source file."""
    script = file.with_suffix(".cmake")
    script.write_text(f'include("{SOURCE}/cmake/RepositoryKeyword.cmake")\n'
                      f'dunmallow_repository_keyword("${{DUNMALLOW_REPOSITORY_PATH}}" "{file}")\n')
    tree = [] if path is None else [f"-DDUNMALLOW_REPOSITORY_PATH={path}"]
    return subprocess.run(["cmake", *tree, "-P", script], text=True, capture_output=True, check=check)


def compile_and_link(program, *arguments):
    definitions = ["-D_FILE_OFFSET_BITS=64", "-D_TIME_BITS=64"]
    subprocess.run([COMPILER, "-std=c++20", *definitions, "-I", SOURCE / "src", *arguments, "-o", program], check=True)


LINKS = {
    "plain": ("-O0",),
    "debugInformation": ("-O2", "-g3"),
    "sectionsCollected": ("-O2", "-ffunction-sections", "-fdata-sections", "-Wl,--gc-sections"),
    "merged": ("-Os", "-g", "-fmerge-all-constants", "-Wl,-O2", "-Wl,--gc-sections"),
}


@pytest.mark.parametrize("flags", LINKS.values(), ids=LINKS.keys())
def test_marker_stands_once_and_is_read_when_the_program_runs(flags, tmp_path):
    main = tmp_path / "main.cpp"
    main.write_text(PRINT_MARKER)
    program = tmp_path / "program"
    compile_and_link(program, *flags, main, SOURCE / "src/AgApp/BuildMarker.cpp")
    check_constants(program, output_of_unstamped=[UNSTAMPED[:-1].decode()], output_of_stamped=[STAMPED[:-1].decode()])


@pytest.mark.parametrize("flags", LINKS.values(), ids=LINKS.keys())
def test_keyword_stands_once_and_whole(flags, tmp_path):
    configure_keyword("trunk", tmp_path / "RepositoryKeyword.cpp")
    main = tmp_path / "main.cpp"
    main.write_text(PRINT_MARKER.replace("readBuildMarker", "readRepositoryKeyword"))
    program = tmp_path / "program"
    compile_and_link(program, *flags, main, tmp_path / "RepositoryKeyword.cpp")
    assert program.read_bytes().count(b"$HeadURL: ") == 1
    assert program.read_bytes().count(KEYWORD.format(path="trunk").encode() + b"\0") == 1
    assert output_of(program) == [KEYWORD.format(path="trunk")]


PRINT_MARKER = """#include <cstdio>
#include "AgApp/BuildMarker.h"
int main() { std::puts(AgApp::readBuildMarker().c_str()); }
"""


def check_constants(program, output_of_unstamped, output_of_stamped, keyword=None):
    """The program as linked and as stripped holds one marker, one keyword if any, and prints what stands in them."""
    once = [b"Build Date: ", UNSTAMPED] + ([b"$HeadURL: ", keyword.encode() + b"\0"] if keyword else [])
    for stripped in (False, True):
        if stripped:
            subprocess.run([STRIP, program], check=True)
        assert [program.read_bytes().count(text) for text in once] == [1] * len(once)
        assert output_of(program) == output_of_unstamped
        copy = Path(shutil.copy(program, program.with_suffix(".stamped")))
        assert stamp(copy, "--date", DATE).returncode == 0
        assert output_of(copy) == output_of_stamped


@pytest.fixture(name="objects", scope="module")
def link_time_optimised_objects(tmp_path_factory):
    """Everything but the keyword, for link-time optimisation."""
    sources = [SOURCE / "src/AgApp" / name for name in ("BuildMarker.cpp", "SuiteVersions.cpp", "VersionFacts.cpp")]
    sources += [SOURCE / "tests/AgApp/versionprinter.cpp", SOURCE / "src/toolsmisc/Text.cpp"]
    folder = tmp_path_factory.mktemp("objects")
    trial = tmp_path_factory.mktemp("trial") / "trial.cpp"
    trial.write_text("int main() {}\n")
    if subprocess.run([COMPILER, *LINK_TIME, trial, "-o", trial.with_suffix("")], capture_output=True, check=False).returncode:
        pytest.skip("this compiler comes without link-time optimisation")
    for source in sources:
        compile_and_link(folder / f"{source.stem}.o", *LINK_TIME, "-c", source)
    return sorted(folder.iterdir())


LINK_TIME = ("-O2", "-flto", "-ffunction-sections", "-fdata-sections", "-Wl,--gc-sections")

TREES = {
    "trunk": ("Dev-trunk {date}", "| 0 0 letter 0"),
    "branches/newcan": ("Dev-newcan {date}", "branches/newcan| 0 0 letter 0"),
    "tags/DUNMALLOW-Ver-1_00":
        ("DUNMALLOW 1.00", "tags/DUNMALLOW-Ver-1_00|1.00 1 0 letter 0 isTagged hasVersion isReleaseVersion"),
    "tags/DUNMALLOW-Ver-2_05a":
        ("DUNMALLOW 2.05a", "tags/DUNMALLOW-Ver-2_05a|2.05a 2 5 letter 97 isTagged hasVersion hasVersionLetter"),
    "tags/DUNMALLOW-1_00": ("Dev-unknown TAG {date}", "tags/DUNMALLOW-1_00| 0 0 letter 0 isTagged isReleaseVersion"),
}


@pytest.mark.parametrize("path, facts", TREES.items(), ids=TREES.keys())
def test_an_optimised_program_knows_its_tree_and_its_date(path, facts, objects, tmp_path):
    configure_keyword(path, tmp_path / "RepositoryKeyword.cpp")
    program = tmp_path / "program"
    compile_and_link(program, *LINK_TIME, tmp_path / "RepositoryKeyword.cpp", *objects)

    def lines(date, seconds):
        return [facts[0].format(date=date), date, seconds, facts[1]]
    check_constants(program, output_of_unstamped=lines("1901-01-01 00:00:00 UTC", "2117514496"),
                    output_of_stamped=lines("2024-02-29 12:34:56 UTC", "1709210096"), keyword=KEYWORD.format(path=path))


# The build's steps

@pytest.mark.parametrize("path", ["trunk", "branches/a", "branches/new-can_2.x+1", "tags/A-B-Ver-1_10", "tags/X-Ver-2_05a"])
def test_keyword_names_the_tree(path, tmp_path):
    file = tmp_path / "keyword.cpp"
    assert configure_keyword(path, file).stderr == ""
    text = re.sub(r'"\s*"', "", file.read_text())
    assert f'"{KEYWORD.format(path=path)}"' in text


def test_keyword_is_the_trunk_unless_set(tmp_path):
    configure_keyword(None, tmp_path / "keyword.cpp")
    assert "trunk/src/AgApp" in (tmp_path / "keyword.cpp").read_text()


def test_setting_the_same_tree_again_compiles_nothing(tmp_path):
    file = tmp_path / "keyword.cpp"
    configure_keyword("branches/a", file)
    os.utime(file, ns=(10**9, 10**9))
    configure_keyword("branches/a", file)
    assert file.stat().st_mtime_ns == 10**9
    configure_keyword("branches/b", file)
    assert file.stat().st_mtime_ns != 10**9


@pytest.mark.parametrize("path", [
    "", "branches", "branches/", "tags/", "trunk/", "Trunk", "vendor/x", "branches/a/b", "/trunk", "branches/a b",
    'branches/a"b', "branches/a\\b", "branches/a$b", "branches/..", "branches/a;b", "branches/a\nb",
])
def test_a_tree_of_another_shape_ends_the_configuration(path, tmp_path):
    done = configure_keyword(path, tmp_path / "keyword.cpp", check=False)
    assert done.returncode != 0 and "DUNMALLOW_REPOSITORY_PATH is '" in " ".join(done.stderr.split())
    assert not (tmp_path / "keyword.cpp").exists()


@pytest.mark.parametrize("path", ["tags/nightly", "tags/DUNMALLOW-1_00", "tags/X-Ver", "tags/X-Ver-1_00-rc", "tags/X-Ver-1_00A"])
def test_a_tag_that_is_no_version_is_warned_about(path, tmp_path):
    done = configure_keyword(path, tmp_path / "keyword.cpp")
    assert "is no version" in " ".join(done.stderr.split())
    assert path in (tmp_path / "keyword.cpp").read_text()


@pytest.mark.parametrize("option, linked, asked", [("OFF", UNSTAMPED, STAMPED), ("ON", STAMPED, STAMPED)])
def test_build_step_stamps_the_linked_program(option, linked, asked, tmp_path):
    (tmp_path / "main.cpp").write_text(PRINT_MARKER)
    (tmp_path / "CMakeLists.txt").write_text(f"""cmake_minimum_required(VERSION 3.25)
project(stamped LANGUAGES CXX)
include("{SOURCE}/cmake/BuildStamp.cmake")
add_executable(program main.cpp "{SOURCE}/src/AgApp/BuildMarker.cpp")
target_compile_features(program PRIVATE cxx_std_20)
target_include_directories(program PRIVATE "{SOURCE}/src")
dunmallow_stamp(program)
""")
    build = tmp_path / "build"
    environment = os.environ | {"SOURCE_DATE_EPOCH": "1709210096"}
    tools = [f"-DCMAKE_TOOLCHAIN_FILE={TOOLCHAIN}" if TOOLCHAIN else f"-DCMAKE_CXX_COMPILER={COMPILER}"]
    cmake = ["cmake", "-S", tmp_path, "-B", build, "-G", "Ninja", f"-DDUNMALLOW_STAMP_BUILD_DATE={option}", *tools]
    subprocess.run(cmake, check=True, capture_output=True)
    subprocess.run(["cmake", "--build", build], check=True, capture_output=True, env=environment)
    assert (build / "program").read_bytes().count(linked) == 1
    asking = ["cmake", "--build", build, "--target", "stamp-program"]
    subprocess.run(asking, check=True, capture_output=True, env=environment)
    assert output_of(build / "program") == [asked[:-1].decode()]
