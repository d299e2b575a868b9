groundwork_test(containers/hash_test)
groundwork_test(containers/list_test)
