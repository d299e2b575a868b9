# SPDX-License-Identifier: MIT
groundwork_test(thread/callback_test)
groundwork_test(thread/event_test LABELS threads)
groundwork_test(thread/module_test)
groundwork_test(thread/mutex_test LABELS threads)
groundwork_test(thread/thread_test LABELS threads)
groundwork_test(thread/ticks_test LABELS threads)
groundwork_test(thread/timer_test LABELS threads)
groundwork_test(thread/timeout_test LABELS threads)
