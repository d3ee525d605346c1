"""The recipes for Yocto and Buildroot: their fields, and their commands, run as the two systems run them for 32-bit ARM.

Configuring and installing are real. Compiled is one file of Buildroot's; for the rest empty files stand for what the
compiler would make, as it makes the same for the packages.
"""

import os
import pathlib
import re
import sys

import kconfiglib
import pytest

from bitbake import Recipe

TREE = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(TREE / "tests/install"))
import installation  # noqa: E402
from installation import command  # noqa: E402

LAYER = TREE / "packaging/yocto"
EXTERNAL = TREE / "packaging/buildroot"
PACKAGE = EXTERNAL / "package/dunmallow"
VERSION = re.search(r"project\(dunmallow VERSION ([\d.]+)", (TREE / "CMakeLists.txt").read_text())[1]
# What BitBake knows, as far as the recipe asks.
FOLDERS = {"prefix": "/usr", "bindir": "/usr/bin", "libdir": "/usr/lib", "libexecdir": "/usr/libexec",
           "includedir": "/usr/include", "datadir": "/usr/share", "docdir": "/usr/share/doc", "mandir": "/usr/share/man"}
[RECIPE_PATH] = LAYER.glob("recipes-*/*/*.bb")
RECIPE = Recipe(RECIPE_PATH, FOLDERS)


def listed(*components):
    """What an installation holds of these components, built as an image's Release."""
    return {f"/usr/{path}".replace("Targets-CONFIG.cmake", "Targets-release.cmake")
            for path in installation.listed(*components)}


def installed(root):
    return {f"/{path.relative_to(root)}" for path in root.rglob("*") if not path.is_dir()}


def cached(build, options):
    """The type and value that CMake holds of each option of the command line: without a type nobody asked for it."""
    cache = (build / "CMakeCache.txt").read_text(encoding="utf-8")
    for name, value in (option.removeprefix("-D").split("=", 1) for option in options):
        assert re.search(rf"^{name}:(?!UNINITIALIZED)\w+={re.escape(value)}$", cache, re.MULTILINE), (name, value)


def stand_in(build):
    """Empty files for all that the installation wants and the compiler has not made."""
    for script in build.rglob("cmake_install.cmake"):
        for made in re.findall(rf'"({re.escape(str(build))}/[^";]+)"', script.read_text(encoding="utf-8")):
            path = pathlib.Path(made)
            if not path.exists() and path.suffix != ".cmake":
                path.parent.mkdir(parents=True, exist_ok=True)
                path.touch()


def toolchain(path, lines):
    path.write_text("set(CMAKE_SYSTEM_NAME Linux)\nset(CMAKE_SYSTEM_PROCESSOR arm)\n"
                    "set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)\n"
                    "set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf)\n"
                    "set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)\nset(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)\n"
                    "set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)\nset(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)\n"
                    + lines, encoding="utf-8")
    return f"-DCMAKE_TOOLCHAIN_FILE={path}"


# Yocto.

def test_the_recipe_has_nothing_that_cannot_be_read():
    assert RECIPE.wrong == []


@pytest.mark.parametrize("name", ["SUMMARY", "DESCRIPTION", "SECTION", "LICENSE", "SRC_URI", "EXTRA_OECMAKE",
                                  "PACKAGECONFIG", "PACKAGECONFIG[sim]", "PACKAGE_BEFORE_PN", "FILES:${PN}",
                                  "FILES:${PN}-sim", "FILES:${PN}-dev", "FILES:${PN}-staticdev", "RDEPENDS:${PN}"])
def test_the_recipe_has_its_fields(name):
    assert RECIPE[name].strip()


def test_the_recipe_is_of_this_version():
    assert RECIPE_PATH.name == f"dunmallow_{VERSION}.bb"


def test_the_recipe_claims_no_licence_while_there_is_none():
    assert RECIPE["LICENSE"] == "CLOSED" and not list(TREE.glob("LICEN[CS]E*")) and not list(TREE.glob("COPYING*"))


def test_the_recipe_is_built_by_cmake():
    assert "cmake" in RECIPE.classes


def test_the_recipe_names_no_host():
    assert RECIPE["SRC_URI"] == f"file://dunmallow-{VERSION}.tar.gz"


def test_what_starts_the_server_is_in_the_image():
    assert RECIPE["RDEPENDS:${PN}"] == "busybox"
    assert "start-stop-daemon" in (TREE / "src/Hardware/ServerCommand.cpp").read_text()


def test_the_layer_finds_the_recipe():
    text = (LAYER / "conf/layer.conf").read_text()
    [name] = re.findall(r'^BBFILE_COLLECTIONS \+= "(\w+)"$', text, re.MULTILINE)
    for variable in ("BBFILE_PATTERN_", "BBFILE_PRIORITY_", "LAYERDEPENDS_", "LAYERSERIES_COMPAT_"):
        assert re.search(rf'^{variable}{name} = "\S.*"$', text, re.MULTILINE), variable
    [pattern] = re.findall(r'^BBFILES \+= "\$\{LAYERDIR\}/(.*)"$', text, re.MULTILINE)
    assert RECIPE_PATH in LAYER.glob(pattern)


@pytest.mark.parametrize("page", [LAYER / "README.md", EXTERNAL / "README.md"], ids=["yocto", "buildroot"])
def test_the_tarball_that_the_page_makes_is_what_the_recipe_unpacks(page, tmp_path):
    if not (TREE / ".git").exists():
        pytest.skip("these sources are no repository")
    [line] = re.findall(r"^ *(git archive .*)$", page.read_text(), re.MULTILINE)
    words = line.split()
    tarball = tmp_path / pathlib.Path(words[words.index("-o") + 1]).name
    words[words.index("-o") + 1] = str(tarball)
    command("git", "-c", "safe.directory=*", *words[1:], cwd=TREE)
    assert tarball.name == f"dunmallow-{VERSION}.tar.gz"
    assert f"dunmallow-{VERSION}/CMakeLists.txt" in command("tar", "--list", "--file", tarball).splitlines()


@pytest.fixture(scope="module")
def image(tmp_path_factory):
    """What Yocto's class cmake installs of the recipe, with empty files for what would be compiled."""
    work = tmp_path_factory.mktemp("yocto")
    build, root = work / "build", work / "image"
    options = RECIPE.options(*RECIPE["PACKAGECONFIG"].split())
    folders = [f"-DCMAKE_INSTALL_{name}:PATH={os.path.relpath(FOLDERS[folder], '/usr')}" for name, folder in
               [("BINDIR", "bindir"), ("LIBEXECDIR", "libexecdir"), ("LIBDIR", "libdir"), ("INCLUDEDIR", "includedir"),
                ("DATAROOTDIR", "datadir")]]
    said = command("cmake", "-G", "Ninja", "-S", TREE, "-B", build, "-DCMAKE_INSTALL_PREFIX:PATH=/usr", *folders,
                   "-DCMAKE_INSTALL_SYSCONFDIR:PATH=/etc", "-DCMAKE_INSTALL_SO_NO_EXE=0",
                   toolchain(work / "toolchain.cmake",
                             'set(CMAKE_CXX_FLAGS "-O2 -pipe -g" CACHE STRING "CXXFLAGS")\n'
                             'set(CMAKE_CXX_FLAGS_RELEASE "-DNDEBUG" CACHE STRING "Additional CXXFLAGS")\n'),
                   *options, "-Wno-dev")
    assert "DUNMALLOW" not in said.partition("not used by the project")[2], said
    cached(build, options)
    stand_in(build)
    command("cmake", "--install", build, env={**os.environ, "DESTDIR": str(root)})
    return root


def package_of(path):
    """The first package that takes it, as in BitBake: a folder stands for all that is in it."""
    for package, patterns in RECIPE.files().items():
        for pattern in patterns:
            if path.startswith(f"{pattern}/") or pathlib.PurePath(path).match(pattern):
                return package
    return None


def test_yocto_installs_what_is_listed(image):
    assert installed(image) == listed("dunmallow", "libdunmallow-dev", "corvane-sim")


def test_every_package_of_yocto_gets_its_files_and_no_others(image):
    taken = {}
    for path in installed(image):
        taken.setdefault(package_of(path), set()).add(path)
    assert set(taken) == set(RECIPE.files())
    pages = {path for path in installed(image) if path.startswith(("/usr/share/man/", "/usr/share/doc/"))}
    assert taken["PN-doc"] == pages
    assert taken["PN"] == {"/usr/bin/dunmallow"}
    assert taken["PN-sim"] == listed("corvane-sim") - pages
    assert taken["PN-dev"] | taken["PN-staticdev"] == listed("libdunmallow-dev") - pages
    assert taken["PN-staticdev"] == {path for path in installed(image) if path.endswith(".a")}


# Buildroot.

SURROUNDINGS = """
config BR2_EXTERNAL_STAND_IN
    def_bool y
config BR2_USE_MMU
    def_bool y
{symbols}
source "Config.in"
"""
TOOLCHAIN = ["BR2_INSTALL_LIBSTDCPP", "BR2_TOOLCHAIN_HAS_THREADS", "BR2_TOOLCHAIN_GCC_AT_LEAST_12"]
OTHERS = [*TOOLCHAIN, "BR2_PACKAGE_BUSYBOX", "BR2_PACKAGE_START_STOP_DAEMON"]


@pytest.fixture
def configuration(tmp_path, monkeypatch):
    """Buildroot's menu, as far as our own entries look at it."""
    def load(*chosen):
        symbols = "\n".join(f'config {name}\n    bool "{name}"' for name in OTHERS)
        (tmp_path / "Kconfig").write_text(SURROUNDINGS.format(symbols=symbols).replace(
            "Config.in", str(EXTERNAL / "Config.in")))
        monkeypatch.setenv("BR2_EXTERNAL_DUNMALLOW_PATH", str(EXTERNAL))
        menu = kconfiglib.Kconfig(str(tmp_path / "Kconfig"), warn_to_stderr=False)
        for name in chosen:
            menu.syms[name].set_value(2)
        assert menu.warnings == []
        return menu
    return load


OURS = {"BR2_PACKAGE_DUNMALLOW", "BR2_PACKAGE_DUNMALLOW_SIM", "BR2_PACKAGE_DUNMALLOW_REPOSITORY_PATH",
        "BR2_PACKAGE_DUNMALLOW_TARBALL_FOLDER"}


def test_the_menu_and_the_makefile_name_the_same_symbols(configuration):
    defined = {name for name in configuration().syms if name.startswith("BR2_PACKAGE_DUNMALLOW")}
    used = set(re.findall(r"BR2_PACKAGE_DUNMALLOW\w*", (PACKAGE / "dunmallow.mk").read_text()))
    assert defined == OURS and used == OURS - {"BR2_PACKAGE_DUNMALLOW"}


def test_the_menu_leans_on_nothing_unknown(configuration):
    menu = configuration()
    assert {name for name, symbol in menu.syms.items() if name.startswith("BR2_") and not symbol.nodes} == set()


@pytest.mark.parametrize("missing", [None, *TOOLCHAIN])
def test_the_menu_offers_the_package_when_the_toolchain_can_build_it(missing, configuration):
    menu = configuration("BR2_PACKAGE_DUNMALLOW", *(name for name in TOOLCHAIN if name != missing))
    [comment] = [node for node in menu.node_iter() if node.item == kconfiglib.COMMENT]
    assert menu.syms["BR2_PACKAGE_DUNMALLOW"].str_value == ("n" if missing else "y")
    assert kconfiglib.expr_value(comment.dep) == (2 if missing else 0)


@pytest.mark.parametrize("busybox", [True, False])
def test_start_stop_daemon_is_there_with_and_without_busybox(busybox, configuration):
    menu = configuration("BR2_PACKAGE_DUNMALLOW", *TOOLCHAIN, *["BR2_PACKAGE_BUSYBOX"] * busybox)
    assert menu.syms["BR2_PACKAGE_START_STOP_DAEMON"].str_value == ("n" if busybox else "y")


def test_every_entry_of_the_menu_has_a_help_text(configuration):
    for name in OURS:
        [node] = configuration().syms[name].nodes
        assert node.help, name


def test_the_external_tree_has_its_name():
    text = (EXTERNAL / "external.desc").read_text()
    assert re.fullmatch(r"name: DUNMALLOW\ndesc: \S.*\n", text)
    for path in EXTERNAL.rglob("*"):
        if path.is_file():
            assert set(re.findall(r"BR2_EXTERNAL_(\w+)_PATH", path.read_text())) <= {"DUNMALLOW"}, path


def variables(*settings):
    """What the makefile sets when Buildroot includes it with these settings."""
    said = command("make", "--silent", "--no-print-directory", "--warn-undefined-variables", "-f",
                   TREE / "tests/packaging/buildroot.mk", f"BR2_EXTERNAL_DUNMALLOW_PATH={EXTERNAL}",
                   'BR2_PACKAGE_DUNMALLOW_REPOSITORY_PATH="trunk"', 'BR2_PACKAGE_DUNMALLOW_TARBALL_FOLDER=""',
                   "BR2_PACKAGE_DUNMALLOW_SIM=", *settings, env={"PATH": os.environ["PATH"]})
    return dict(line.split("=", 1) for line in said.splitlines())


def test_the_makefile_is_a_package_of_cmake_of_this_version():
    found = variables()
    assert found["PACKAGES"].split() == ["dunmallow"]
    assert found["DUNMALLOW_VERSION"] == VERSION
    assert found["DUNMALLOW_INSTALL_STAGING"] == "YES"


def test_the_makefile_sets_nothing_that_buildroot_does_not_know():
    known = {"VERSION", "SITE", "SITE_METHOD", "SOURCE", "OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS", "LICENSE", "REDISTRIBUTE",
             "INSTALL_STAGING", "SUPPORTS_IN_SOURCE_BUILD", "CONF_OPTS"}
    for tarballs in ("", "/srv/tarballs"):
        found = variables(f'BR2_PACKAGE_DUNMALLOW_TARBALL_FOLDER="{tarballs}"')
        assert {name.removeprefix("DUNMALLOW_") for name in found} - {"PACKAGES", "TARBALL_FOLDER"} <= known


def test_the_sources_are_this_tree():
    found = variables()
    assert found["DUNMALLOW_SITE_METHOD"] == "local" and pathlib.Path(found["DUNMALLOW_SITE"]).resolve() == TREE
    assert found["DUNMALLOW_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS"] == "--exclude /build"


def test_the_sources_are_a_tarball():
    found = variables('BR2_PACKAGE_DUNMALLOW_TARBALL_FOLDER="/srv/tarballs"')
    assert found["DUNMALLOW_SITE_METHOD"] == "file" and found["DUNMALLOW_SITE"] == "file:///srv/tarballs"
    assert found["DUNMALLOW_SOURCE"] == f"dunmallow-{VERSION}.tar.gz"
    assert "DUNMALLOW_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS" not in found


@pytest.mark.parametrize("symbol, option", [("", "OFF"), ("y", "ON")])
def test_the_simulator_is_built_when_it_is_chosen(symbol, option):
    options = variables(f"BR2_PACKAGE_DUNMALLOW_SIM={symbol}")["DUNMALLOW_CONF_OPTS"].split()
    assert [word for word in options if "BUILD_SIM" in word] == [f"-DDUNMALLOW_BUILD_SIM={option}"]


@pytest.fixture(scope="module")
def target(tmp_path_factory):
    """What Buildroot's cmake-package configures and installs: the folders of build and target."""
    work = tmp_path_factory.mktemp("buildroot")
    build, root = work / "buildroot-build", work / "target"
    found = variables('BR2_PACKAGE_DUNMALLOW_REPOSITORY_PATH="tags/DUNMALLOW-Ver-1_00"')
    build.mkdir()
    options = found["DUNMALLOW_CONF_OPTS"].split()
    flags = "-D_LARGEFILE_SOURCE -D_LARGEFILE64_SOURCE -D_FILE_OFFSET_BITS=64 -Os -g0 -D_FORTIFY_SOURCE=3"
    said = command("cmake", "-G", "Unix Makefiles", found["DUNMALLOW_SITE"],
                   toolchain(work / "toolchainfile.cmake",
                             f'set(CMAKE_CXX_FLAGS "{flags}" CACHE STRING "Buildroot CXXFLAGS")\n'
                             'set(CMAKE_CXX_FLAGS_RELEASE " -DNDEBUG" CACHE STRING "Release CXXFLAGS")\n'
                             'set(CMAKE_BUILD_TYPE Release CACHE STRING "Buildroot build configuration")\n'),
                   "-DCMAKE_INSTALL_PREFIX=/usr", "-DCMAKE_COLOR_MAKEFILE=OFF", "-DBUILD_TESTING=OFF",
                   "-DBUILD_SHARED_LIBS=ON", *options, cwd=build)
    assert "DUNMALLOW" not in said.partition("not used by the project")[2], said
    cached(build, options)
    stand_in(build)
    command("make", "-C", build, f"DESTDIR={root}", "install/fast")
    return build, root


def test_buildroot_installs_what_is_listed(target):
    assert installed(target[1]) == listed("dunmallow", "libdunmallow-dev")


def test_a_warning_of_somebody_elses_compiler_ends_no_build(target):
    # A toolchain with a stronger _FORTIFY_SOURCE than ours: the compiler warns that it is set twice.
    said = command("make", "-C", target[0] / "src/toolsmisc", "Path.o", env={**os.environ, "LC_ALL": "C"})
    assert "warning:" in said


def test_buildroot_builds_what_the_label_names(target):
    [source] = target[0].rglob("RepositoryKeyword.cpp")
    assert "tags/DUNMALLOW-Ver-1_00" in source.read_text()
