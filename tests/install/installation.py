"""What the tests of installations share: how to run a command, what was installed, and what should be."""

import pathlib
import re
import subprocess

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
