"""Which changes are made to a piece of code, and that what runs them can do no harm."""

import os
import pathlib
import runpy
import subprocess

import pytest

SCRIPTS = pathlib.Path(__file__).resolve().parents[2] / "scripts"
CHANGES = runpy.run_path(str(SCRIPTS / "mutate"))["changes"]

ROWS = [
    # why, code, the code after each change
    ("comparison", "bool f(int a) { return a < b; }", ["bool f(int a) { return a <= b; }",
                                                       "bool f(int a) { return !(a < b); }",
                                                       "bool f(int a) { return {}; }"]),
    ("equality_is_swapped_only", "x = a == b ? c : d", ["x = a != b ? c : d"]),
    ("logic", "x = a && b || c", ["x = a || b || c", "x = a && b && c"]),
    ("arithmetic", "x = a + b - c", ["x = a - b - c", "x = a + b + c"]),
    ("template_arguments_are_no_comparison", "std::vector<int> a", []),
    ("pointers_are_no_product", "char* a", []),
    ("references_are_no_logic", "T&& a", []),
    ("streams_are_no_comparison", "a << b >> c", []),
    ("constant", "x = 9", ["x = 10"]),
    ("hexadecimal_constant", "x = 0xFFU", ["x = 256U"]),
    ("constant_with_separators", "x = 1'000", ["x = 1001"]),
    ("fraction", "x = 0.49 + 9.5e3", ["x = 9.49 + 9.5e3", "x = 0.49 - 9.5e3", "x = 0.49 + 8.5e3"]),
    ("digits_in_a_name_are_no_constant", "x = int32 a2", []),
    ("text", 'x = "ab"', ['x = "_ab"']),
    ("raw_text", 'x = R"(a"b)"', ['x = R"(_a"b)"']),
    ("character", "x = 'a'", ["x = '~'"]),
    ("truth", "x = true", ["x = false"]),
    ("counting", "++x", ["--x"]),
    ("condition", "if (ready(a)) b", ["if (!(ready(a))) b"]),
    ("condition_of_one_equality_is_swapped_only", "if (a == b) c", ["if (a != b) c"]),
    ("condition_of_a_loop", "while (more()) b", ["while (!(more())) b"]),
    ("call", "{ unlock(); }", ["{ ; }"]),
    ("call_of_a_member", "{ a.b->post(c, d); }", ["{ ; }"]),
    ("assignment", "{ a.b = c; }", ["{ ; }"]),
    ("call_behind_a_condition", "if (a) b();", ["if (!(a)) b();", "if (a) ;"]),
    ("leaving", "{ return; }", ["{ ; }"]),
    ("lock_for_a_scope", "{ const MutexLock lock(guard); }", ["{ ; }"]),
    ("declaration_stays", "{ int a; std::string b; Type& c = d; }", []),
    ("returned_value", "{ return f(a); }", ["{ return !(f(a)); }", "{ return {}; }"]),
    ("returned_nothing_special", "{ return {}; }", []),
    ("condition_of_a_counting_loop", "for (int i; next(i); last(i)) { }", ["for (int i; ; last(i)) { }"]),
    ("comment", "// a < 1\n/* b = 2; */", []),
    ("apostrophe_in_a_comment", "// don't\nx = 1  // can't", ["// don't\nx = 2  // can't"]),
    ("preprocessor", '#include "a.h"\n#define A \\\n  1', []),
    ("static_assertion", 'static_assert(a == 1, "a");', []),
    ("attribute", '[[nodiscard("1")]] int a', []),
    ("lock_annotation", 'int a GUARDED_BY(b[1]); class CAPABILITY("mutex") c', []),
    ("deleted_function", "struct A { A(const A&) = delete; };", []),
]


@pytest.mark.parametrize("code,changed", [row[1:] for row in ROWS], ids=[row[0] for row in ROWS])
def test_changes(code, changed):
    assert sorted(code[:start] + new + code[end:] for start, end, new in CHANGES(code)) == sorted(changed)


def confine(*command):
    done = subprocess.run([SCRIPTS / "confine", *command], capture_output=True, text=True, check=False)
    if done.returncode == 125:
        pytest.skip(done.stderr)
    return done


@pytest.mark.parametrize("folder", ["/var/tmp", "/dev", "/", os.path.expanduser("~"), str(SCRIPTS)])
def test_what_is_confined_can_write_nowhere(folder):
    name = pathlib.Path(folder) / "confine-test"
    done = confine("touch", name)
    assert not name.exists()
    assert done.returncode != 0


def test_what_is_confined_has_a_folder_for_temporary_files_of_its_own(tmp_path):
    assert confine("bash", "-c", f"echo a >/tmp/a && cat /tmp/a && ls {tmp_path} 2>/dev/null").stdout == "a\n"


def test_a_folder_may_be_seen_and_not_written(tmp_path):
    if not str(tmp_path).startswith("/tmp/"):
        pytest.skip("temporary files are elsewhere")
    (tmp_path / "seen").write_text("here\n", encoding="utf-8")
    done = confine("--see", tmp_path, "bash", "-c", f"cat {tmp_path}/seen; echo changed >{tmp_path}/seen")
    assert done.stdout == "here\n"
    assert done.returncode != 0
    assert (tmp_path / "seen").read_text(encoding="utf-8") == "here\n"


def test_what_is_confined_sees_no_other_process():
    assert confine("bash", "-c", "kill -0 -1; ls -d /proc/[0-9]* | wc -l").stdout.strip() in ("2", "3", "4")


def test_the_status_of_the_command_comes_back():
    assert confine("bash", "-c", "exit 7").returncode == 7
