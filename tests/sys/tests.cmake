# SPDX-License-Identifier: MIT
groundwork_test(sys/directory_test COST 10 TIMEOUT 600)
groundwork_test(sys/file_test)
groundwork_test(sys/file_lock_test)
groundwork_test(sys/file_map_test)
groundwork_test(sys/file_utilities_test)
groundwork_test(sys/signals_test)
groundwork_test(sys/standard_streams_test)
groundwork_test(sys/system_test)
groundwork_test(sys/scandir_test ALSO_ALONE)
# It has names in common with scandir_test.
groundwork_test(sys/scandir_time64_test NOT_ON_THE_DEVICE)
set_target_properties(sys_scandir_time64_test PROPERTIES DISABLE_PRECOMPILE_HEADERS ON)
target_compile_definitions(sys_scandir_time64_test PRIVATE
  _FILE_OFFSET_BITS=64 _TIME_BITS=64)
