# SPDX-License-Identifier: MIT
add_library(url_test_support STATIC
  url/faked_calls.cc
  url/scripted_server.cc)
target_link_libraries(url_test_support PRIVATE ${CMAKE_DL_LIBS})
target_include_directories(url_test_support PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}")
groundwork_warnings(url_test_support)

groundwork_test(url/file_test)
groundwork_test(url/home_test)
groundwork_test(url/http_test LIBRARIES url_test_support)
groundwork_test(url/socket_test COST 10 LIBRARIES url_test_support)
groundwork_test(url/signals_test LIBRARIES url_test_support)
groundwork_test(url/standard_streams_test LIBRARIES url_test_support)
groundwork_test(url/stream_test)

# Against real servers, which the script starts. Emulated, reading 100 MiB takes too long.
if(CMAKE_CROSSCOMPILING_EMULATOR)
  set(big_mib 4)
else()
  set(big_mib 100)
endif()
if(GROUNDWORK_SANITIZE MATCHES "thread")
  return()  # it has one thread
endif()
add_executable(url_servers_test url/servers_test.cc)
target_link_libraries(url_servers_test PRIVATE test_support)
target_compile_options(url_servers_test PRIVATE -O0 -g1)
target_precompile_headers(url_servers_test REUSE_FROM test_headers)
groundwork_warnings(url_servers_test)
add_test(NAME url/servers_test
  COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/url/servers_test.py" ${big_mib}
    ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:url_servers_test>)
set_tests_properties(url/servers_test PROPERTIES TIMEOUT 300 COST 30)
