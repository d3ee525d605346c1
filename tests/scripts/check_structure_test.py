"""Wrong arrows are found in a small tree that is right but for one line; the tree of this project has none."""

import pathlib
import subprocess
import sys

import pytest

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
SCRIPT = REPOSITORY / "scripts" / "check-structure"

RIGHT_TREE = {
    "src/toolsmisc/Text.h": "#pragma once\n#include <string>\n",
    "src/toolsmisc/Text.cpp": '#include "toolsmisc/Text.h"\n',
    "src/toolsmisc/CMakeLists.txt": "dunmallow_add_library(toolsmisc SOURCES Text.cpp HEADERS Text.h)\n",
    "src/sw_drv/RTkernel/linux/Mutex.h": "#pragma once\n",
    "src/sw_drv/RTkernel/linux/CMakeLists.txt": "dunmallow_add_library(threadfunc HEADERS Mutex.h)\n",
    "src/AgApp/Directories.h": '#include "toolsmisc/Text.h"\n',
    "src/AgApp/CMakeLists.txt": "dunmallow_add_library(agapp\n  HEADERS Directories.h\n  LINKS toolsmisc)\n",
    "src/platform/linux/base/Socket.h": '#include "sw_drv/RTkernel/linux/Mutex.h"\n#include "Packet.h"\n',
    "src/platform/linux/base/Packet.h": "#pragma once\n",
    "src/platform/linux/base/CMakeLists.txt": "dunmallow_add_library(packetsocket LINKS threadfunc)\n",
    "src/Hardware/Client.h": '#include "platform/linux/base/Socket.h"\n#include "sw_drv/RTkernel/linux/Mutex.h"\n',
    "src/Hardware/CMakeLists.txt": "dunmallow_add_library(canflasher LINKS packetsocket dunmallow::agapp)\n",
    "src/app/main.cpp": '#include "Hardware/Client.h"\n#include "toolsmisc/Text.h"\n',
    "src/app/CMakeLists.txt": "add_executable(flash main.cpp)\ntarget_link_libraries(flash PRIVATE canflasher)\n",
    "sim/Wire.h": "#pragma once\n",
    "sim/main.cpp": '#include "sim/Wire.h"\n',
    "sim/CMakeLists.txt": "add_library(parts main.cpp)\ntarget_link_libraries(parts Threads::Threads)\n",
    "tests/support/TempFolder.h": "#pragma once\n",
    "tests/support/CMakeLists.txt": "add_library(testsupport INTERFACE)\n",
    "tests/toolsmisc/Text_test.cpp": '#include "toolsmisc/Text.h"\n#include "tests/support/TempFolder.h"\n',
    "bench/Bench.h": "#pragma once\n",
    "fuzz/Fuzz.h": "#pragma once\n",
}

# why, file that gets one more line, the line, what is reported behind "file:line: "
WRONG = [
    ("upwards", "src/toolsmisc/Text.h", '#include "AgApp/Directories.h"',
     "includes AgApp/Directories.h: src/toolsmisc uses src/AgApp, where no arrow leads"),
    ("far_upwards", "src/sw_drv/RTkernel/linux/Mutex.h", '#include "Hardware/Client.h"',
     "includes Hardware/Client.h: src/sw_drv/RTkernel/linux uses src/Hardware, where no arrow leads"),
    ("between_branches", "src/AgApp/Directories.h", '#include "sw_drv/RTkernel/linux/Mutex.h"',
     "includes sw_drv/RTkernel/linux/Mutex.h: src/AgApp uses src/sw_drv/RTkernel/linux, where no arrow leads"),
    ("from_the_socket_layer_to_text", "src/platform/linux/base/Socket.h", '#include "toolsmisc/Text.h"',
     "includes toolsmisc/Text.h: src/platform/linux/base uses src/toolsmisc, where no arrow leads"),
    ("by_a_relative_path", "src/toolsmisc/Text.h", '#include "../AgApp/Directories.h"',
     "includes ../AgApp/Directories.h: src/toolsmisc uses src/AgApp, where no arrow leads"),
    ("with_angle_brackets_and_blanks", "src/toolsmisc/Text.h", "  #  include <AgApp/Directories.h>",
     "includes AgApp/Directories.h: src/toolsmisc uses src/AgApp, where no arrow leads"),
    ("simulator_to_product", "sim/Wire.h", '#include "toolsmisc/Text.h"',
     "includes toolsmisc/Text.h: sim uses src/toolsmisc, where no arrow leads"),
    ("product_to_simulator", "src/app/main.cpp", '#include "sim/Wire.h"',
     "includes sim/Wire.h: src/app uses sim, where no arrow leads"),
    ("product_to_tests", "src/app/main.cpp", '#include "tests/support/TempFolder.h"',
     "includes tests/support/TempFolder.h: src/app uses tests, which nothing uses"),
    ("product_to_benchmarks", "src/app/main.cpp", '#include "bench/Bench.h"',
     "includes bench/Bench.h: src/app uses bench, which nothing uses"),
    ("simulator_to_fuzzers", "sim/main.cpp", '#include "fuzz/Fuzz.h"',
     "includes fuzz/Fuzz.h: sim uses fuzz, which nothing uses"),
    ("product_to_test_framework", "src/app/main.cpp", "#include <gtest/gtest_prod.h>",
     "includes gtest/gtest_prod.h: src/app uses a library for tests"),
    ("link_upwards", "src/toolsmisc/CMakeLists.txt", "target_link_libraries(toolsmisc PUBLIC agapp)",
     "links agapp: src/toolsmisc uses src/AgApp, where no arrow leads"),
    ("link_upwards_by_alias", "src/toolsmisc/CMakeLists.txt", "target_link_libraries(toolsmisc dunmallow::agapp)",
     "links dunmallow::agapp: src/toolsmisc uses src/AgApp, where no arrow leads"),
    ("simulator_links_product", "sim/CMakeLists.txt", "target_link_libraries(parts PRIVATE threadfunc)",
     "links threadfunc: sim uses src/sw_drv/RTkernel/linux, where no arrow leads"),
    ("product_links_tests", "src/app/CMakeLists.txt", "target_link_libraries(flash PRIVATE testsupport)",
     "links testsupport: src/app uses tests, which nothing uses"),
    ("product_links_test_framework", "src/app/CMakeLists.txt", "target_link_libraries(flash GTest::gmock)",
     "links GTest::gmock: src/app uses a library for tests"),
    ("link_in_a_comment", "src/toolsmisc/CMakeLists.txt", "# target_link_libraries(toolsmisc agapp)", None),
    ("include_in_a_comment", "src/toolsmisc/Text.h", '// #include "AgApp/Directories.h"', None),
]


def check(tree):
    done = subprocess.run([sys.executable, "-B", SCRIPT, tree], capture_output=True, text=True, check=False)
    assert done.stderr == ""
    return done.returncode, done.stdout


def write(tree, files):
    for name, content in files.items():
        (tree / name).parent.mkdir(parents=True, exist_ok=True)
        (tree / name).write_text(content, encoding="utf-8")


def test_a_tree_with_right_arrows_passes_silently(tmp_path):
    write(tmp_path, RIGHT_TREE)
    assert check(tmp_path) == (0, "")


@pytest.mark.parametrize("name,line,message", [row[1:] for row in WRONG], ids=[row[0] for row in WRONG])
def test_one_wrong_line_is_reported_with_its_place(tmp_path, name, line, message):
    write(tmp_path, {**RIGHT_TREE, name: RIGHT_TREE[name] + line + "\n"})
    number = RIGHT_TREE[name].count("\n") + 1
    assert check(tmp_path) == ((0, "") if message is None else (1, f"{name}:{number}: {message}\n"))


def test_a_link_in_the_middle_of_a_command_is_reported_where_the_command_begins(tmp_path):
    write(tmp_path, RIGHT_TREE)
    write(tmp_path, {"src/AgApp/CMakeLists.txt": "\ndunmallow_add_library(agapp\n  LINKS toolsmisc\n  threadfunc)\n"})
    assert check(tmp_path) == (1, "src/AgApp/CMakeLists.txt:2: links threadfunc: "
                                  "src/AgApp uses src/sw_drv/RTkernel/linux, where no arrow leads\n")


def test_what_is_included_must_be_linked(tmp_path):
    write(tmp_path, RIGHT_TREE)
    write(tmp_path, {"src/AgApp/CMakeLists.txt": "dunmallow_add_library(agapp HEADERS Directories.h)\n"})
    code, output = check(tmp_path)
    assert code == 1
    assert "src/AgApp/Directories.h:1: includes toolsmisc/Text.h: " \
           "src/AgApp does not link the library of src/toolsmisc\n" in output


def test_a_source_outside_the_folders_is_reported(tmp_path):
    write(tmp_path, {**RIGHT_TREE, "src/misc/New.h": "#pragma once\n"})
    assert check(tmp_path) == (1, "src/misc/New.h:1: stands in none of the folders\n")


def test_this_project_has_right_arrows():
    assert check(REPOSITORY) == (0, "")
