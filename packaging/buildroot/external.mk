# SPDX-License-Identifier: MIT
include $(sort $(wildcard $(BR2_EXTERNAL_GROUNDWORK_PATH)/package/*/*.mk))
