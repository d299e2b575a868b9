# SPDX-License-Identifier: MIT
SUMMARY = "Runtime library for applications on small Linux devices"
DESCRIPTION = "Diagnostics, configuration files, containers, threads, timers, files, ciphers and \
streams in one small library that needs the C library and nothing else."
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=a85952c27373f0a239ad73fdb089eef2"

# The sources around this layer. For a release give its archive in SRC_URI instead.
inherit externalsrc
EXTERNALSRC = "${@os.path.realpath(d.getVar('THISDIR') + '/../../../..')}"
EXTERNALSRC_BUILD = "${WORKDIR}/build"

inherit cmake

PACKAGECONFIG ??= "conf crypt url tools"
PACKAGECONFIG[conf] = "-DGROUNDWORK_CONF=ON,-DGROUNDWORK_CONF=OFF"
PACKAGECONFIG[crypt] = "-DGROUNDWORK_CRYPT=ON,-DGROUNDWORK_CRYPT=OFF"
PACKAGECONFIG[url] = "-DGROUNDWORK_URL=ON,-DGROUNDWORK_URL=OFF"
PACKAGECONFIG[tools] = "-DGROUNDWORK_TOOLS=ON,-DGROUNDWORK_TOOLS=OFF"
EXTRA_OECMAKE = "-DBUILD_TESTING=OFF -DGROUNDWORK_EXAMPLES=OFF"

# No ptest here: groundwork-selftest, the suite as one static program with TAP output, is built from
# GoogleTest's sources (-DBUILD_TESTING=ON -DGROUNDWORK_GOOGLETEST_DIR=...), which no recipe of the
# core layers installs. A layer that has them runs `groundwork-selftest` as its run-ptest.

# Tested with glibc alone.
COMPATIBLE_HOST:libc-musl = "null"

PACKAGE_BEFORE_PN = "${PN}-tools"
FILES:${PN}-tools = "${bindir} ${datadir}/bash-completion"

BBCLASSEXTEND = "nativesdk"
