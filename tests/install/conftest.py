"""The build that is installed, and the installation that the tests of this folder use."""

import os
import pathlib
import re
import shlex
import shutil
import subprocess
import tempfile

import pytest

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
COMPONENTS = ("dunmallow", "libdunmallow-dev", "corvane-sim")
DEADLINE = 250.0  # seconds; only a failing test waits this long


def command(*words, **keywords):
    """Runs it to its end and returns its output; a failure shows all that it said."""
    done = subprocess.run([str(word) for word in words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=DEADLINE, check=False, **keywords)
    assert done.returncode == 0, done.stdout
    return done.stdout


def install(build_folder, prefix, *words):
    command("cmake", "--install", build_folder, "--prefix", prefix, *words, umask=0o022)  # for every user to read
    return prefix


def installed(prefix):
    """The files below the folder, as the list has them: without what depends on the machine or the build type."""
    paths = {str(path.relative_to(prefix)) for path in prefix.rglob("*") if not path.is_dir()}
    paths = {re.sub(r"^lib/[\w-]+-linux-\w+/", "lib/", path) for path in paths}
    return {re.sub(r"dunmallowTargets-\w+\.cmake$", "dunmallowTargets-CONFIG.cmake", path) for path in paths}


def listed(*components):
    """The paths of these components in the list."""
    lines = (REPOSITORY / "tests/install/files").read_text(encoding="utf-8").splitlines()
    return {path for component, path in (line.split("\t") for line in lines) if component in components}


class Build:
    """A build tree, and how programs for its machine are made and run."""

    def __init__(self):
        self.folder = pathlib.Path(os.environ["DUNMALLOW_BUILD"])
        self.examples = pathlib.Path(os.environ["DUNMALLOW_EXAMPLES"])
        self.compiler = shlex.split(os.environ["DUNMALLOW_COMPILER"])
        self.emulator = shlex.split(os.environ.get("DUNMALLOW_EMULATOR", ""))
        toolchain = os.environ.get("DUNMALLOW_TOOLCHAIN")
        self.machine = [f"-DCMAKE_TOOLCHAIN_FILE={toolchain}" if toolchain else f"-DCMAKE_CXX_COMPILER={self.compiler[0]}"]

    def configure(self, source, folder, *definitions):
        command("cmake", "-G", "Ninja", "-S", source, "-B", folder, *self.machine, *definitions)

    def check(self, example, program, cwd):
        """The example prints what its page says, and nothing else."""
        done = subprocess.run([*self.emulator, program], cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              timeout=60, check=False)
        expected = (self.examples / f"{example}.txt").read_text(encoding="utf-8")
        assert (done.stdout, done.stderr, done.returncode) == (expected, "", 0)


@pytest.fixture(scope="session")
def build():
    return Build()


@pytest.fixture(scope="session")
def stage(build):
    """The whole installation, for every user to read: moved after it was laid out, to a folder with a blank in its
    name, so that nothing in it can lean on where it was made."""
    folder = pathlib.Path(tempfile.mkdtemp(prefix="dunmallow-install-"))
    try:
        folder.chmod(0o755)
        install(build.folder, folder / "first")
        yield (folder / "first").rename(folder / "moved later")
    finally:
        shutil.rmtree(folder)
