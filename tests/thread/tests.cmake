groundwork_test(thread/event_test LABELS threads)
groundwork_test(thread/mutex_test LABELS threads)
groundwork_test(thread/thread_test LABELS threads)
