# SPDX-License-Identifier: MIT
SUMMARY = "Runtime library for applications on small Linux devices"
DESCRIPTION = "Diagnostics, configuration files, containers, threads, timers, files, ciphers and \
streams in one small library that needs the C library and nothing else."
HOMEPAGE = "https://example.org/groundwork"
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=a85952c27373f0a239ad73fdb089eef2"

# Builds the source tree that this layer is part of. For a release, name its archive in SRC_URI
# instead.
inherit externalsrc
EXTERNALSRC = "${@os.path.realpath(d.getVar('THISDIR') + '/../../../..')}"
EXTERNALSRC_BUILD = "${WORKDIR}/build"

inherit cmake ptest

PACKAGECONFIG ??= "conf crypt url safe tools"
PACKAGECONFIG[conf] = "-DGROUNDWORK_CONF=ON,-DGROUNDWORK_CONF=OFF"
PACKAGECONFIG[crypt] = "-DGROUNDWORK_CRYPT=ON,-DGROUNDWORK_CRYPT=OFF"
PACKAGECONFIG[url] = "-DGROUNDWORK_URL=ON,-DGROUNDWORK_URL=OFF"
PACKAGECONFIG[safe] = "-DGROUNDWORK_SAFE=ON,-DGROUNDWORK_SAFE=OFF"
PACKAGECONFIG[tools] = "-DGROUNDWORK_TOOLS=ON,-DGROUNDWORK_TOOLS=OFF"
# The ptest is groundwork-selftest, the suite as one static program for 32-bit machines. It is built
# with GoogleTest's sources, which a recipe of this layer fetches.
GROUNDWORK_GOOGLETEST_DIR ?= "${STAGING_DATADIR}/groundwork-googletest"
PACKAGECONFIG[selftest] = "-DBUILD_TESTING=ON,-DBUILD_TESTING=OFF,groundwork-googletest"
PACKAGECONFIG:append = "${@' selftest' if d.getVar('PTEST_ENABLED') == '1' else ''}"
EXTRA_OECMAKE = "-DGROUNDWORK_EXAMPLES=OFF -DGROUNDWORK_DOCS=OFF \
-DGROUNDWORK_GOOGLETEST_DIR=${GROUNDWORK_GOOGLETEST_DIR}"
SRC_URI += "file://run-ptest"

do_install_ptest() {
    if [ -e ${B}/tests/groundwork-selftest ]; then
        install -m 0755 ${B}/tests/groundwork-selftest ${D}${PTEST_PATH}
    fi
}

PACKAGE_BEFORE_PN = "${PN}-tools"
FILES:${PN}-tools = "${bindir} ${datadir}/bash-completion"

BBCLASSEXTEND = "nativesdk"
