# SPDX-License-Identifier: MIT
groundwork_test(containers/fifo_test COST 30 LABELS threads)
groundwork_test(containers/hash_reentry_test COST 10)
groundwork_test(containers/hash_test COST 20)
groundwork_test(containers/list_test)
groundwork_test(containers/queue_test COST 10 LABELS threads)
