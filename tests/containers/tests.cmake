groundwork_test(containers/list_test)
