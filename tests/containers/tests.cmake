# SPDX-License-Identifier: MIT
groundwork_test(containers/fifo_test LABELS threads)
groundwork_test(containers/hash_reentry_test)
groundwork_test(containers/hash_test)
groundwork_test(containers/list_test)
groundwork_test(containers/queue_test LABELS threads)
