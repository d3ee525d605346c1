"""What a program lacks is found: a small program, built hardened and then with one thing left out."""

import pathlib
import shutil
import subprocess

import pytest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "check-hardening"
SOURCE = """
#include <cstdio>
#include <cstring>
int main(int argc, char** argv) {
    char text[64];
    std::snprintf(text, sizeof text, "%s %d", argv[0], argc);
    return std::puts(text) < 0;
}
"""
COMPILE = ["-g", "-O2", "-fPIE", "-fstack-protector-strong", "-fstack-clash-protection", "-D_FORTIFY_SOURCE=2"]
LINK = ["-pie", "-Wl,-z,relro,-z,now"]

# why: what is put instead of a switch, what is added, and what is reported
LACKS = {
    "fixed place": ({"-pie": "-no-pie"}, [], "not position independent"),
    "a library is no program": ({"-pie": "-shared", "-fPIE": "-fPIC"}, [], "not position independent"),
    "writable relocations": ({"-Wl,-z,relro,-z,now": "-Wl,-z,norelro,-z,now"}, [], "no read-only relocations"),
    "lazy binding": ({"-Wl,-z,relro,-z,now": "-Wl,-z,relro,-z,lazy"}, [], "not bound at once"),
    "executable stack": ({}, ["-Wl,-z,execstack"], "the stack can be executed"),
    "search path": ({}, ["-Wl,-rpath,/nowhere"], "a search path for libraries of its own"),
    "strange library": ({}, ["-Wl,--no-as-needed", "-lresolv"], "needs the library libresolv.so.2"),
    "no checked calls": ({"-D_FORTIFY_SOURCE=2": "-U_FORTIFY_SOURCE"}, [], "calls no checked function"),
    "no stack protector": ({"-fstack-protector-strong": "-fno-stack-protector"}, [], "compiled without -fstack-protector-strong"),
    "weak stack protector": ({"-fstack-protector-strong": "-fstack-protector"}, [], "compiled without -fstack-protector-strong"),
    "no clash protection": ({"-fstack-clash-protection": "-fno-stack-clash-protection"}, [],
                            "compiled without -fstack-clash-protection"),
    "not optimised": ({"-O2": "-O0"}, [], "not optimised"),
    "stripped": ({}, ["-s"], "no debugging information"),
}


def build(folder, instead, more):
    (folder / "x.cpp").write_text(SOURCE)
    program = folder / "x"
    switches = [instead.get(switch, switch) for switch in COMPILE + LINK]
    subprocess.run(["g++", *switches, folder / "x.cpp", *more, "-o", program], check=True, stderr=subprocess.DEVNULL)
    return program


def check(*programs):
    return subprocess.run([SCRIPT, *programs], capture_output=True, text=True, check=False)


def test_a_hardened_program_is_accepted(tmp_path):
    program = build(tmp_path, {}, [])
    result = check(program)
    assert (result.stdout, result.returncode) == (f"{program}: hardened\n", 0)


@pytest.mark.parametrize("why", LACKS)
def test_what_is_missing_is_found(tmp_path, why):
    instead, more, message = LACKS[why]
    result = check(build(tmp_path, instead, more))
    assert result.returncode == 1
    assert message in result.stdout
    if why != "no checked calls" and why != "not optimised":
        assert "_FORTIFY_SOURCE" not in result.stdout


def test_one_of_two_sources_is_enough(tmp_path):
    (tmp_path / "y.cpp").write_text("int y(const char* text) { char copy[9]; copy[0] = text[0]; return copy[0]; }\n")
    weak = tmp_path / "y.o"
    subprocess.run(["g++", "-g", "-O2", "-fPIE", "-c", tmp_path / "y.cpp", "-o", weak], check=True)
    result = check(build(tmp_path, {}, [str(weak)]))
    assert result.returncode == 1
    assert f"{tmp_path / 'y.cpp'}: compiled without -fstack-clash-protection" in result.stdout
    assert "x.cpp:" not in result.stdout


def test_another_processor(tmp_path):
    if not shutil.which("arm-linux-gnueabihf-g++"):
        pytest.skip("no cross compiler")
    (tmp_path / "x.cpp").write_text(SOURCE)
    for switches, status in ((COMPILE + LINK, 0), ([*COMPILE, "-pie"], 1)):
        subprocess.run(["arm-linux-gnueabihf-g++", *switches, tmp_path / "x.cpp", "-o", tmp_path / "x"], check=True)
        assert check(tmp_path / "x").returncode == status


def test_another_compiler_does_not_say_enough(tmp_path):
    if not shutil.which("clang++-14"):
        pytest.skip("no second compiler")
    (tmp_path / "x.cpp").write_text(SOURCE)
    subprocess.run(["clang++-14", *COMPILE, *LINK, tmp_path / "x.cpp", "-o", tmp_path / "x"], check=True)
    result = check(tmp_path / "x")
    assert result.returncode == 1
    assert f"{tmp_path / 'x.cpp'}: its compiler does not say what it was told" in result.stdout


@pytest.mark.parametrize("content", ["", "no program\n"])
def test_what_is_no_program_is_refused(tmp_path, content):
    (tmp_path / "x").write_text(content)
    result = check(tmp_path / "x")
    assert result.returncode == 1
    assert "x" in result.stderr


def test_help_and_nothing():
    assert check("--help").returncode == 0
    assert check().returncode == 2
