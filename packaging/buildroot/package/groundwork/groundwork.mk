################################################################################
#
# groundwork
#
################################################################################

# SPDX-License-Identifier: MIT
# The sources around this folder. For a release give the URL of its archive here, and the
# archive's hash in groundwork.hash.
GROUNDWORK_VERSION = 1.1.0
GROUNDWORK_SITE = $(realpath $(BR2_EXTERNAL_GROUNDWORK_PATH)/../..)
GROUNDWORK_SITE_METHOD = local
GROUNDWORK_LICENSE = MIT
GROUNDWORK_LICENSE_FILES = LICENSE
GROUNDWORK_INSTALL_STAGING = YES
GROUNDWORK_SUPPORTS_IN_SOURCE_BUILD = NO

GROUNDWORK_CONF_OPTS = \
	-DBUILD_TESTING=OFF \
	-DGROUNDWORK_EXAMPLES=OFF \
	-DGROUNDWORK_DOCS=OFF \
	-DGROUNDWORK_CONF=$(if $(BR2_PACKAGE_GROUNDWORK_CONF),ON,OFF) \
	-DGROUNDWORK_CRYPT=$(if $(BR2_PACKAGE_GROUNDWORK_CRYPT),ON,OFF) \
	-DGROUNDWORK_URL=$(if $(BR2_PACKAGE_GROUNDWORK_URL),ON,OFF) \
	-DGROUNDWORK_SAFE=$(if $(BR2_PACKAGE_GROUNDWORK_SAFE),ON,OFF) \
	-DGROUNDWORK_TOOLS=$(if $(BR2_PACKAGE_GROUNDWORK_TOOLS),ON,OFF)

$(eval $(cmake-package))
