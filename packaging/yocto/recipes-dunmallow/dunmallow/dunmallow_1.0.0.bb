SUMMARY = "Firmware flasher for modules on a CAN bus"
DESCRIPTION = "Starts the CAN server of the terminal, requests an upload from it and shows how it goes. \
With the libraries that its family of tools shares, and a simulated CAN server for rehearsals."
SECTION = "console/utils"
# The sources come without a licence file.
LICENSE = "CLOSED"

# A tarball beside this recipe, in the folder files; empty when EXTERNALSRC names a source tree.
DUNMALLOW_SOURCE ?= "file://${BP}.tar.gz"
SRC_URI = "${DUNMALLOW_SOURCE}"

inherit cmake bash-completion

# The tree that the version label shows: trunk, or tags/DUNMALLOW-Ver-1_00 for "DUNMALLOW 1.00".
DUNMALLOW_REPOSITORY_PATH ?= "trunk"

EXTRA_OECMAKE = "\
    -DCMAKE_BUILD_TYPE=Release \
    -DDUNMALLOW_INSTALL=ON \
    -DDUNMALLOW_BUILD_TESTS=OFF \
    -DDUNMALLOW_WARNINGS_AS_ERRORS=OFF \
    -DDUNMALLOW_STAMP_BUILD_DATE=ON \
    -DDUNMALLOW_REPOSITORY_PATH=${DUNMALLOW_REPOSITORY_PATH} \
"

PACKAGECONFIG ??= "sim"
PACKAGECONFIG[sim] = "-DDUNMALLOW_BUILD_SIM=ON,-DDUNMALLOW_BUILD_SIM=OFF"

PACKAGE_BEFORE_PN = "${PN}-sim ${PN}-zsh-completion"

FILES:${PN} = "${bindir}/dunmallow"
FILES:${PN}-sim = "${bindir}/corvane-sim ${libexecdir}/corvane-sim"
FILES:${PN}-zsh-completion = "${datadir}/zsh"
FILES:${PN}-dev = "${includedir} ${libdir}/cmake ${libdir}/pkgconfig ${datadir}/dunmallow"
FILES:${PN}-staticdev = "${libdir}/*.a"

SUMMARY:${PN}-sim = "Simulated CAN server for rehearsals of an upload"
SUMMARY:${PN}-zsh-completion = "Completion of dunmallow for zsh"

# Starts and stops the CAN server. dpkg-start-stop has it, too: set this where busybox is not wanted.
DUNMALLOW_START_STOP_DAEMON ?= "busybox"
RDEPENDS:${PN} = "${DUNMALLOW_START_STOP_DAEMON}"
RDEPENDS:${PN}-sim = "${PN}"
# The libraries need nothing of the program.
RDEPENDS:${PN}-dev = ""
