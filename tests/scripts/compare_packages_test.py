"""That the comparison of packages notices whatever two builds could differ in, and says what it is."""

import io
import pathlib
import subprocess
import tarfile

import pytest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts/compare-packages"
FILES = (("./usr", None), ("./usr/program", b"code"), ("./usr/page", b"text"))


def tar(files=FILES, mode=0o644, mtime=1, owner="root", uid=0):
    made = io.BytesIO()
    with tarfile.open(fileobj=made, mode="w:xz") as archive:
        for name, content in files:
            member = tarfile.TarInfo(name)
            member.mode, member.mtime, member.uname, member.uid = mode, mtime, owner, uid
            member.type = tarfile.DIRTYPE if content is None else tarfile.REGTYPE
            member.size = len(content or b"")
            archive.addfile(member, io.BytesIO(content or b""))
    return made.getvalue()


def package(data, time="1", mode="100644", version=b"2.0\n", name="data.tar.xz"):
    made = b"!<arch>\n"
    for member, content in (("debian-binary", version), ("control.tar.xz", tar((("./control", b"Package: x\n"),))), (name, data)):
        made += f"{member:<16}{time:<12}{0:<6}{0:<6}{mode:<8}{len(content):<10}`\n".encode() + content + b"\n" * (len(content) % 2)
    return made


def compared(tmp_path, first, second):
    for folder, packages in (("one", first), ("other", second)):
        (tmp_path / folder).mkdir()
        for name, content in packages.items():
            (tmp_path / folder / name).write_bytes(content)
    done = subprocess.run([SCRIPT, tmp_path / "one", tmp_path / "other"], capture_output=True, text=True, check=False)
    assert done.stderr == ""
    return done.returncode, done.stdout


CHANGED = {
    "one_byte_of_a_program": (package(tar((*FILES[:1], ("./usr/program", b"cod3"), FILES[2]))), "./usr/program: content"),
    "an_added_file": (package(tar((*FILES, ("./usr/added", b"")))), "./usr/added: only in the second"),
    "a_file_less": (package(tar(FILES[:2])), "./usr/page: only in the first"),
    "the_order_of_files": (package(tar((FILES[0], FILES[2], FILES[1]))), "the order of the members"),
    "a_mode": (package(tar(mode=0o664)), "./usr/program: mode 420, 436"),
    "a_time": (package(tar(mtime=2)), "./usr/page: mtime 1, 2"),
    "an_owner": (package(tar(owner="builder")), "./usr: uname 'root', 'builder'"),
    "an_owner_by_number": (package(tar(uid=1000)), "./usr: uid 0, 1000"),
    "the_time_in_the_outer_archive": (package(tar(), time="2"), "data.tar.xz: time '1', '2'"),
    "the_mode_in_the_outer_archive": (package(tar(), mode="100640"), "debian-binary: mode '100644', '100640'"),
    "the_format": (package(tar(), version=b"2.1\n"), "debian-binary: content b'2.0\\n', b'2.1\\n'"),
    "the_compression": (package(tar(), name="data.tar"), "data.tar.xz: only in the first"),
}


@pytest.mark.parametrize("why", CHANGED)
def test_a_difference_is_noticed(tmp_path, why):
    other, said = CHANGED[why]
    status, output = compared(tmp_path, {"x.deb": package(tar())}, {"x.deb": other})
    assert status == 1 and output.startswith("x.deb: differs\n") and said in output, output


def test_equal_packages_are_equal(tmp_path):
    status, output = compared(tmp_path, {"x.deb": package(tar())}, {"x.deb": package(tar())})
    assert status == 0 and output.startswith("x.deb: equal, ")


@pytest.mark.parametrize("first, second, said", [(["x"], [], "x: only in"), ([], ["x"], "x: only in"), ([], [], "no packages")])
def test_packages_that_are_not_there_are_not_equal(tmp_path, first, second, said):
    status, output = compared(tmp_path, *({f"{name}.deb": package(tar()) for name in names} for names in (first, second)))
    assert status == 1 and said.replace("x:", "x.deb:") in output
