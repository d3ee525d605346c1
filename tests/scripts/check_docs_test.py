"""A public name without a docstring is found; what needs none is left alone."""

import pathlib
import shutil
import subprocess

import pytest

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
HEADER = """#pragma once
namespace toolsmisc {{
/// A rectangle in millimetres.
class Rectangle {{
public:
    Rectangle();
    ~Rectangle();
    Rectangle(const Rectangle&) = delete;
    Rectangle& operator=(const Rectangle&) = delete;
    bool operator==(const Rectangle&) const = default;
    /// Its sides, 0 and more.
    /// @{{
    int widthMm() const;
    int heightMm() const;
    /// @}}
{member}
private:
    int width;
}};
{free}
}}
"""

ROWS = [
    # why, member of the class, free name, what is reported (None: nothing)
    ("all_is_documented", "", "", None),
    ("member_function", "int areaMm2() const;", "", "Member areaMm2() const"),
    ("data_member", "int depthMm;", "", "Member depthMm"),
    ("documented_behind", "int depthMm;  ///< 0 and more", "", None),
    ("nested_type", "struct Corner { int x; };", "", "Compound toolsmisc::Rectangle::Corner"),
    ("free_function", "", "int area();", "Member area()"),
    ("constant", "", "inline constexpr int kSides = 4;", "Member kSides"),
    ("alias", "", "using Area = int;", "Member Area"),
    ("class", "", "class Circle { public: int radius; };", "Compound toolsmisc::Circle"),
    ("class_template", "", "template <typename T> class Box { public: T t; };", "Compound toolsmisc::Box"),
    ("unknown_command_in_a_docstring", "", "/// Gives \\wrong things.\nint area();", "wrong"),
    ("lock_annotation_is_no_name", "int a GUARDED_BY(m);  ///< 0 and more", "", None),
]


@pytest.mark.skipif(shutil.which("doxygen") is None, reason="doxygen is not installed")
@pytest.mark.parametrize("member,free,report", [row[1:] for row in ROWS], ids=[row[0] for row in ROWS])
def test_names_without_docstring(tmp_path, member, free, report):
    for name in ("scripts/check-docs", "docs/Doxyfile", "docs/namespaces.dox"):
        (tmp_path / name).parent.mkdir(exist_ok=True)
        shutil.copy(REPOSITORY / name, tmp_path / name)
    (tmp_path / "src").mkdir()
    (tmp_path / "src" / "Rectangle.h").write_text(HEADER.format(member=member, free=free), encoding="utf-8")
    done = subprocess.run([tmp_path / "scripts" / "check-docs", tmp_path / "out"], capture_output=True, text=True,
                          check=False)
    assert (done.returncode != 0) == (report is not None), done.stderr
    assert report is None or report in done.stderr
