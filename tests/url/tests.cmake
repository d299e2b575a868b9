groundwork_test(url/home_test)
groundwork_test(url/stream_test)
