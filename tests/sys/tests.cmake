groundwork_test(sys/file_test)
groundwork_test(sys/file_lock_test)
groundwork_test(sys/file_map_test)
groundwork_test(sys/file_utilities_test)
