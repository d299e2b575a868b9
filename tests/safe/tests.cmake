# SPDX-License-Identifier: MIT
groundwork_test(safe/file_duplicate_test)
groundwork_test(safe/dir_make_test)
groundwork_test(safe/dir_remove_test)
groundwork_test(safe/file_replace_test COST 10)
if(GROUNDWORK_URL)
  groundwork_test(safe/http_timeout_test COST 15 LIBRARIES url_test_support)
endif()
groundwork_test(safe/hash_foreach_test)
groundwork_test(safe/file_writers_test LABELS threads)
set(with_64_bit_calls safe_dir_make_test safe_dir_remove_test safe_file_duplicate_test
  safe_file_replace_test safe_file_writers_test)

if(GROUNDWORK_CONF)
  groundwork_test(safe/conf_save_test)
  list(APPEND with_64_bit_calls safe_conf_save_test)
  groundwork_test(safe/conf_real_files_test)
  groundwork_test(safe/conf_reload_test)
  groundwork_test(safe/conf_threads_test COST 20 LABELS threads)
endif()

# These stand in for functions of the system, under the names that the library imports, see
# times after 2038, or read directories, whose positions need 64 bits on some disks.
foreach(target IN LISTS with_64_bit_calls)
  set_target_properties(${target} PROPERTIES DISABLE_PRECOMPILE_HEADERS ON)
  target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endforeach()

groundwork_test(safe/clock_test)
groundwork_test(safe/event_wait_test LABELS threads)
groundwork_test(safe/mutex_try_test LABELS threads)
groundwork_test(safe/timer_fork_test)
groundwork_test(safe/timer_power_test COST 15 LABELS threads)
