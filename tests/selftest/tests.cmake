# SPDX-License-Identifier: MIT
# groundwork-selftest: every test program in one static program, to be copied to a device.
#
# Each becomes an object with a copy of the library in it (see isolate), because many stand in
# for functions of the system, each in its own way, and expect a fresh library.
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND NOT GROUNDWORK_SANITIZE AND GROUNDWORK_COMPLETE)
  set(support $<TARGET_OBJECTS:test_support>)
  set(own_support "$<FILTER:${support},INCLUDE,/support/(fake_clock|log_capture|temporary_)>")
  set(common_support "$<FILTER:${support},INCLUDE,gtest-all|/support/allocation_faults>")

  get_property(programs GLOBAL PROPERTY groundwork_test_programs)
  set(modules "")
  set(all_objects "${support}")
  # The objects alone: the program itself may be wanted by nobody. Other generators than Ninja know
  # programs only.
  set(wants_objects 0)
  if(CMAKE_GENERATOR MATCHES "Ninja")
    set(wants_objects 1)
  endif()
  foreach(program IN LISTS programs)
    set(module "${CMAKE_CURRENT_BINARY_DIR}/selftest/${program}.o")
    get_target_property(libraries ${program} SELFTEST_LIBRARIES)
    set(archives "")
    foreach(library IN LISTS libraries)
      list(APPEND archives $<TARGET_FILE:${library}>)
    endforeach()
    add_custom_command(OUTPUT "${module}"
      COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/selftest/isolate" ${program} "${module}"
        "${CMAKE_CXX_COMPILER} ${CMAKE_CXX_FLAGS}" "${CMAKE_NM}" "${CMAKE_OBJCOPY}"
        "$<TARGET_OBJECTS:${program}>" "${own_support}" ${archives}
        $<TARGET_FILE:groundwork_static>
      DEPENDS "$<IF:${wants_objects},$<TARGET_OBJECTS:${program}>,${program}>" test_support groundwork_static ${libraries} selftest/isolate
      COMMAND_EXPAND_LISTS VERBATIM)
    list(APPEND modules "${module}")
    list(APPEND all_objects "$<TARGET_OBJECTS:${program}>" ${archives})
  endforeach()
  set(stand_ins "${CMAKE_CURRENT_BINARY_DIR}/selftest/system_calls.inc")
  add_custom_command(OUTPUT "${stand_ins}"
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/selftest/stand-ins" "${stand_ins}" "${CMAKE_NM}"
      $<TARGET_FILE:groundwork_static> ${all_objects}
    DEPENDS ${modules} selftest/stand-ins
    COMMAND_EXPAND_LISTS VERBATIM)
  set_source_files_properties(selftest/system_calls.cc PROPERTIES OBJECT_DEPENDS "${stand_ins}")
  file(MAKE_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/selftest")

  add_executable(groundwork-selftest
    selftest/main.cc selftest/board_facts.cc selftest/system_calls.cc ${modules}
    ${common_support})
  target_link_libraries(groundwork-selftest PRIVATE groundwork_static)
  target_include_directories(groundwork-selftest PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}"
    "${CMAKE_CURRENT_BINARY_DIR}/selftest"
    "${GROUNDWORK_GOOGLETEST_DIR}/googletest/include")
  target_compile_options(groundwork-selftest PRIVATE -Os)
  # The allocator of the tests stands before the C library's own, which is linked too: of
  # musl's archive by the names that it has there alone.
  target_link_options(groundwork-selftest PRIVATE
    -static -no-pie -s -Wl,-z,muldefs -Wl,--gc-sections
    -Wl,-u,__libc_malloc_impl -Wl,-u,__libc_realloc -Wl,-u,__libc_free -Wl,-u,__libc_version)

  # Where every test has a program of its own, this one is built by those who want it.
  if(NOT CMAKE_CROSSCOMPILING)
    set_target_properties(groundwork-selftest PROPERTIES EXCLUDE_FROM_ALL ON)
  endif()
  set(labels "")
  if(NOT IN_ONE_PROGRAM)
    set(labels slow)
  endif()
  # So that a test that was built anew is also the one that is run.
  add_test(NAME selftest/program
    COMMAND "${CMAKE_COMMAND}" --build "${PROJECT_BINARY_DIR}" --target groundwork-selftest)
  set_tests_properties(selftest/program PROPERTIES TIMEOUT 900 COST 2000 LABELS "${labels}"
    FIXTURES_SETUP selftest_program RESOURCE_LOCK build_folder)

  # The suites of each folder: in place of its programs where there are none, once more elsewhere.
  set(selftest "${CMAKE_CURRENT_SOURCE_DIR}/selftest/selftest_test.py"
    $<TARGET_FILE:groundwork-selftest>)
  set(filters "")
  get_property(folders GLOBAL PROPERTY groundwork_folders_on_the_device)
  list(REMOVE_DUPLICATES folders)
  foreach(folder IN LISTS folders)
    get_property(filter GLOBAL PROPERTY groundwork_filters_of_${folder})
    list(JOIN filter ":" filter)
    list(APPEND filters "${filter}")
    if(IN_ONE_PROGRAM)
      set(test ${folder}/suites)
    else()
      set(test selftest/${folder})
    endif()
    add_test(NAME ${test}
      COMMAND ${selftest} --filter "${filter}" ${CMAKE_CROSSCOMPILING_EMULATOR})
    set_tests_properties(${test} PROPERTIES TIMEOUT 900 COST 200 LABELS "${labels}"
      FIXTURES_REQUIRED selftest_program)
  endforeach()

  list(JOIN filters ":" filters)
  file(CONFIGURE OUTPUT selftest/filters @ONLY CONTENT "@filters@\n")
  add_test(NAME selftest/selftest_test
    COMMAND ${selftest} --filters "${CMAKE_CURRENT_BINARY_DIR}/selftest/filters"
      ${CMAKE_CROSSCOMPILING_EMULATOR})
  set_tests_properties(selftest/selftest_test PROPERTIES TIMEOUT 900 COST 30
    LABELS "${labels}" FIXTURES_REQUIRED selftest_program)
endif()

# What scripts/power-cuts runs on an emulated board.
if(GROUNDWORK_CONF AND GROUNDWORK_SAFE AND NOT GROUNDWORK_SANITIZE)
  add_executable(power_cut_program EXCLUDE_FROM_ALL board/power_cut_program.c)
  target_link_libraries(power_cut_program PRIVATE groundwork_static)
  target_link_options(power_cut_program PRIVATE -static -no-pie)
  groundwork_warnings(power_cut_program)
endif()
