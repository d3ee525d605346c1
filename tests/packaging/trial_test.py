"""That the trial of the packages notices what is wrong with them. Stand-ins of a few lines take the place of the packages."""

import os
import pathlib
import subprocess

import pytest

TOP = pathlib.Path(__file__).resolve().parents[2]
ARCHITECTURE = subprocess.run(["dpkg", "--print-architecture"], capture_output=True, text=True, check=True).stdout.strip()
PAGE = ".Dd November 21, 2026\n.Dt {name} {section}\n.Os\n.Sh NAME\n.Nm {name}\n.Nd EXIT STATUS CmdUpload CORVANE_JOURNAL scenario\n"
PROGRAM = '#!/bin/sh\n[ "$1" = -v ] && echo label || echo Done\n'
FILES = {
    "dunmallow": {"usr/bin/dunmallow": PROGRAM,
                  "usr/share/man/man1/dunmallow.1": PAGE, "usr/share/man/man7/dunmallow-protocol.7": PAGE,
                  "usr/share/bash-completion/completions/dunmallow":
                      "_dunmallow() { COMPREPLY=(NewModule); } && complete -F _dunmallow dunmallow\n"},
    "libdunmallow-dev": {"usr/include/dunmallow/a.h": "\n"},
    "corvane-sim": {"usr/bin/corvane-sim": "#!/bin/sh\nmkdir $1\n", "usr/share/man/man1/corvane-sim.1": PAGE,
                    "usr/share/man/man5/corvane-scenario.5": PAGE},
}


def make(folder, name, depends="", scripts=None):
    tree = folder / name
    for path, text in {**FILES[name], **{f"DEBIAN/{script}": text for script, text in (scripts or {}).items()}}.items():
        file = tree / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text.replace("{name}", file.stem).replace("{section}", file.suffix[1:]), encoding="utf-8")
        file.chmod(0o755 if text.startswith("#!") else 0o644)
    (tree / "DEBIAN").mkdir(exist_ok=True)
    (tree / "DEBIAN/control").write_text(
        f"Package: {name}\nVersion: 1.0.0\nArchitecture: {ARCHITECTURE}\nMaintainer: nobody <nobody@example.org>\n"
        f"{depends}Description: stand-in\n", encoding="utf-8")
    subprocess.run(["dpkg-deb", "--root-owner-group", "--build", tree, folder / f"{name}_1.0.0_{ARCHITECTURE}.deb"],
                   capture_output=True, check=True)


def trial(folder, tmp_path):
    """Exit status and lines of the trial, and what it has left in the folder for temporary files."""
    temporary = tmp_path / "temporary"
    temporary.mkdir()
    done = subprocess.run([TOP / "scripts/try-packages", folder], env={**os.environ, "TMPDIR": str(temporary)},
                          capture_output=True, text=True, timeout=120, check=False)
    if "no private namespaces" in done.stderr:
        pytest.skip(done.stderr)
    assert not [*temporary.iterdir()]
    return done.returncode, done.stdout + done.stderr


def test_a_package_that_needs_what_is_not_there_is_not_installed(tmp_path):
    for name in FILES:
        make(tmp_path, name, depends="Depends: libstdc++6 (>= 99)\n" if name == "dunmallow" else "")
    status, output = trial(tmp_path, tmp_path)
    assert status == 1 and "install: FAILED" in output and "libstdc++6 (>= 99)" in output, output


def test_a_file_that_stays_is_noticed(tmp_path):
    for name in FILES:
        make(tmp_path, name, scripts={"postinst": "#!/bin/sh\ntouch /usr/share/forgotten\n"} if name == "dunmallow" else None)
    status, output = trial(tmp_path, tmp_path)
    assert status == 1 and "remove: ok\nnothing is left: FAILED\n" in output and "/usr/share/forgotten" in output, output


def test_a_package_that_is_not_there_is_missed(tmp_path):
    make(tmp_path, "dunmallow")
    status, output = trial(tmp_path, tmp_path)
    assert status == 1 and f"expected one libdunmallow-dev_VERSION_{ARCHITECTURE}.deb" in output, output


def test_a_folder_that_is_not_there_is_told_how_to_be_made(tmp_path):
    status, output = trial(tmp_path / "build/packages", tmp_path)
    assert status == 1 and output.count("\n") == 1 and "scripts/make-packages makes it" in output, output
