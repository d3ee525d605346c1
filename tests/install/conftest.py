"""The build that is installed, and the installation that the tests of this folder use."""

import os
import pathlib
import shlex
import shutil
import subprocess
import tempfile

import pytest

from installation import command, install


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
