"""The command that lays out a rehearsal root, and a whole upload in such a root with what is installed."""

import os
import pathlib
import shutil
import socket
import subprocess
import tempfile

import pytest

from installation import REPOSITORY, command

REFUSED_PATH = "a path that goes through a shell may hold letters, digits and /._+,:@%=- only"
USAGE = "usage: corvane-sim FOLDER\n"


@pytest.fixture
def folder():
    """A folder that every user may write in, with nothing in its name that a shell would split."""
    path = pathlib.Path(tempfile.mkdtemp(prefix="dunmallow-rehearsal-"))
    path.chmod(0o777)
    yield path
    shutil.rmtree(path)


@pytest.fixture
def lay_out(stage):
    def run(*arguments, program=stage / "bin/corvane-sim", **keywords):
        return subprocess.run([program, *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=60,
                              check=False, **keywords)
    return run


def files(path):
    return sorted(str(file.relative_to(path)) for file in path.rglob("*") if file.is_file())


WRONG_ARGUMENTS = {"none": [], "two": ["one", "two"], "an_empty_one": [""], "an_option": ["-h"], "a_long_option": ["--help"]}


@pytest.mark.parametrize("why", WRONG_ARGUMENTS)
def test_wrong_arguments_get_the_usage(lay_out, folder, why):
    done = lay_out(*WRONG_ARGUMENTS[why], cwd=folder)
    assert (done.returncode, done.stdout, done.stderr) == (2, "", USAGE)
    assert files(folder) == []


REFUSED_NAMES = {"a_blank": "two words", "a_quote": "it's", "a_dollar": "$HOME", "a_line_end": "a\n", "a_semicolon": "a;b",
                 "a_backslash": "a\\b", "a_tilde": "~", "a_star": "*", "a_tab": "a\tb"}


@pytest.mark.parametrize("why", REFUSED_NAMES)
def test_a_path_that_the_shell_would_change_is_refused(lay_out, folder, why):
    path = f"{folder}/{REFUSED_NAMES[why]}"
    done = lay_out(path)
    assert (done.returncode, done.stdout, done.stderr) == (1, "", f"corvane-sim: {path}: {REFUSED_PATH}\n")
    assert not os.path.exists(path)


def test_a_folder_above_that_the_shell_would_change_is_refused_too(lay_out, folder):
    (folder / "two words").mkdir()
    done = lay_out("root", cwd=folder / "two words")
    assert (done.returncode, done.stdout, done.stderr) == (1, "", f"corvane-sim: {folder}/two words/root: {REFUSED_PATH}\n")
    assert not (folder / "two words/root").exists()


TAKEN_NAMES = {"plain": "root", "in_folders_to_be_made": "a/b/root", "letters_of_other_languages": "Übung",
               "all_other_marks": "a.b_c+d,e:f@g%h=i-j"}


@pytest.mark.parametrize("why", TAKEN_NAMES)
def test_a_root_is_laid_out(lay_out, stage, folder, why):
    path = folder / TAKEN_NAMES[why]
    done = lay_out(TAKEN_NAMES[why], cwd=folder)
    assert (done.returncode, done.stderr) == (0, "")
    assert f"HOME={path} " in done.stdout
    assert files(path / ".varnex") == files(stage / "libexec/corvane-sim")
    assert os.access(path / ".varnex/bin/corvane", os.X_OK)


def test_the_scenarios_are_named(lay_out, stage, folder):
    said = lay_out(folder / "root").stdout.split()
    assert {path.stem for path in (stage / "libexec/corvane-sim/share/corvane/scenarios").iterdir()} <= {*said}


def test_an_empty_folder_is_taken(lay_out, folder):
    assert lay_out(folder).returncode == 0 and (folder / ".varnex").is_dir()


@pytest.mark.parametrize("name", ["something", ".hidden", ".varnex"])
def test_a_folder_that_is_not_empty_is_left_alone(lay_out, folder, name):
    (folder / name).mkdir()
    done = lay_out(folder)
    assert (done.returncode, done.stdout, done.stderr) == (1, "", f"corvane-sim: {folder}: the folder is not empty\n")
    assert os.listdir(folder) == [name] and os.listdir(folder / name) == []


def test_a_file_is_left_alone(lay_out, folder):
    (folder / "file").write_text("mine", encoding="utf-8")
    done = lay_out(folder / "file")
    assert (done.returncode, done.stdout) == (1, "") and "File exists" in done.stderr
    assert (folder / "file").read_text(encoding="utf-8") == "mine"


def test_it_runs_through_a_link(lay_out, stage, folder):
    (folder / "link").symlink_to(stage / "bin/corvane-sim")
    (folder / "another").symlink_to("link")
    assert lay_out(folder / "root", program=folder / "another").returncode == 0
    assert (folder / "root/.varnex/bin/corvane").exists()


def test_a_search_path_for_folders_does_not_mislead_it(lay_out, folder):
    (folder / "elsewhere/root").mkdir(parents=True)
    (folder / "here").mkdir()
    done = lay_out("root", cwd=folder / "here", env={**os.environ, "CDPATH": str(folder / "elsewhere")})
    assert done.returncode == 0 and (folder / "here/root/.varnex").is_dir()
    assert os.listdir(folder / "elsewhere/root") == []


def test_without_the_server_it_says_so(lay_out, stage, folder):
    shutil.copy(stage / "bin/corvane-sim", folder / "corvane-sim")
    done = lay_out(folder / "root", program=folder / "corvane-sim")
    assert done.returncode == 1 and done.stderr.endswith("/bin/corvane: not there\n")
    assert not (folder / "root").exists()


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


def rehearse(stage, folder, said, environment):
    """Runs the command that corvane-sim printed for folder/root, as an ordinary user; its exit status and output."""
    (folder / "fw.hex").write_text(command(REPOSITORY / "scripts/make-sample-hex", "4096"), encoding="utf-8")
    [line] = [line.strip() for line in said.splitlines() if line.startswith("    HOME=")]
    line = line.replace(" FILE ", f" {folder}/fw.hex ").replace("IDLE_SECONDS=30", "IDLE_SECONDS=1")
    search = f"{stage}/bin:/usr/sbin:/usr/bin:/sbin:/bin"
    # Where process names are not private, the next server is started when this one is gone.
    end = f"start-stop-daemon --quiet --oknodo --stop --retry 5 --exec {folder}/root/.varnex/bin/corvane"
    done = subprocess.run([REPOSITORY / "tests/e2e/as-user", "env", f"PATH={search}", *environment, "sh", "-c",
                           f"cd / && {line} -p {free_port()}; status=$?; {end}; exit $status"], stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=120, check=False)
    if "No private namespaces here" in done.stdout and "process already running" in done.stdout:
        pytest.skip("a server that somebody else started, or that nobody waits for, has the name")
    return done.returncode, done.stdout


def test_an_upload_is_rehearsed_with_what_is_installed(lay_out, stage, folder):
    said = lay_out(folder / "root").stdout
    status, output = rehearse(stage, folder, said, ["CORVANE_SCENARIO=fast", f"CORVANE_JOURNAL={folder}/journal"])
    assert status == 0 and "state    Done" in output and "progress 100%" in output, output
    assert (folder / "journal").stat().st_size > 0


def test_a_fault_is_rehearsed_with_what_is_installed(lay_out, stage, folder):
    said = lay_out(folder / "root").stdout
    status, output = rehearse(stage, folder, said, ["CORVANE_SCENARIO=device-not-found", "CORVANE_SETTINGS=speed 20"])
    assert status == 0 and "state    Error! Device not found." in output, output
