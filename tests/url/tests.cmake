add_library(url_test_support STATIC
  url/faked_calls.cc
  url/scripted_server.cc)
target_link_libraries(url_test_support PRIVATE ${CMAKE_DL_LIBS})
target_include_directories(url_test_support PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}")
groundwork_warnings(url_test_support)

groundwork_test(url/file_test)
groundwork_test(url/home_test)
groundwork_test(url/http_test LIBRARIES url_test_support)
groundwork_test(url/socket_test LIBRARIES url_test_support)
groundwork_test(url/stream_test)
