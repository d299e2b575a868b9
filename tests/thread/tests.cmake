# SPDX-License-Identifier: MIT
groundwork_test(thread/callback_test)
groundwork_test(thread/event_test LABELS threads)
groundwork_test(thread/fork_test)
groundwork_test(thread/module_test)
groundwork_test(thread/mutex_test LABELS threads)
groundwork_test(thread/thread_test LABELS threads)
groundwork_test(thread/ticks_test LABELS threads)
groundwork_test(thread/timer_test LABELS threads)
groundwork_test(thread/timeout_test COST 20 LABELS threads)

# A program that loads the library and closes it: not linked with it.
add_executable(thread_unload_test thread/unload_test.cc)
target_include_directories(thread_unload_test PRIVATE
  "${PROJECT_SOURCE_DIR}/core/include" "${CMAKE_CURRENT_SOURCE_DIR}")
target_link_libraries(thread_unload_test PRIVATE ${CMAKE_DL_LIBS})
groundwork_warnings(thread_unload_test)
add_test(NAME thread/unload_test COMMAND thread_unload_test $<TARGET_FILE:groundwork>)
