# SPDX-License-Identifier: MIT
groundwork_test(conf/callbacks_test LABELS threads)
groundwork_test(conf/exhausted_memory_test)
groundwork_test(conf/file_faults_test)
groundwork_test(conf/growth_test COST 15)
groundwork_test(conf/lists_test)
groundwork_test(conf/load_test)
groundwork_test(conf/open_test)
groundwork_test(conf/random_test)
groundwork_test(conf/read_test)
groundwork_test(conf/replaced_file_test)
# It defines functions by the names that the library calls.
set_source_files_properties(conf/replaced_file_test.cc PROPERTIES
  SKIP_PRECOMPILE_HEADERS ON
  COMPILE_DEFINITIONS "_FILE_OFFSET_BITS=64;_TIME_BITS=64")
groundwork_test(conf/threads_test LABELS threads)
groundwork_test(conf/write_test)
