# SPDX-License-Identifier: MIT
SUMMARY = "Sources of GoogleTest, for the ptest of groundwork"
DESCRIPTION = "GoogleTest is built with the tests that use it, for the target, so this recipe has its \
sources and nothing else. No image needs it."
HOMEPAGE = "https://github.com/google/googletest"
SECTION = "devel"
LICENSE = "BSD-3-Clause"
LIC_FILES_CHKSUM = "file://LICENSE;md5=cbbd27594afd089daa160d3a16dd515a"

# The upstream archive, byte for byte, as Debian keeps it.
SRC_URI = "${DEBIAN_MIRROR}/main/g/googletest/googletest_${PV}.orig.tar.gz"
SRC_URI[sha256sum] = "81964fe578e9bd7c94dfdb09c8e4d6e6759e19967e397dbea48d1c10e45d0df2"

# Where archives are unpacked: older series have no name for it.
UNPACKDIR ??= "${WORKDIR}"
S = "${UNPACKDIR}/googletest-release-${PV}"

inherit allarch
INHIBIT_DEFAULT_DEPS = "1"

do_configure[noexec] = "1"
do_compile[noexec] = "1"

do_install() {
    install -d ${D}${datadir}/groundwork-googletest
    cp -R --no-preserve=ownership ${S}/googletest ${D}${datadir}/groundwork-googletest/
}

# All of it is for building.
FILES:${PN}-dev += "${datadir}/groundwork-googletest"
