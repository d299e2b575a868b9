# SPDX-License-Identifier: MIT
groundwork_test(core/log_test LABELS threads)
groundwork_test(core/memory_test)
groundwork_test(core/package_test)
