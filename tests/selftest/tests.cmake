# SPDX-License-Identifier: MIT
# groundwork-selftest: every test program in one static program, to be copied to a device.
#
# Each becomes an object with a copy of the library in it (see isolate), because many stand in
# for functions of the system, each in its own way, and expect a fresh library. Left out is
# what asks other programs or libraries on the machine, and what is there already, under the
# same names, for programs with other times.
set(not_on_the_device crypt_base64_coreutils_test crypt_d3des_openssl_test
  sys_scandir_time64_test)

if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND NOT GROUNDWORK_SANITIZE AND GROUNDWORK_COMPLETE)
  set(support $<TARGET_OBJECTS:test_support>)
  set(own_support "$<FILTER:${support},INCLUDE,/support/(fake_clock|log_capture|temporary_)>")
  set(common_support "$<FILTER:${support},INCLUDE,gtest-all|/support/allocation_faults>")

  get_property(programs GLOBAL PROPERTY groundwork_test_programs)
  list(REMOVE_ITEM programs ${not_on_the_device})
  set(modules "")
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
      DEPENDS ${program} test_support groundwork_static ${libraries} selftest/isolate
      COMMAND_EXPAND_LISTS VERBATIM)
    list(APPEND modules "${module}")
  endforeach()
  file(MAKE_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/selftest")

  add_executable(groundwork-selftest
    selftest/main.cc selftest/board_facts.cc selftest/system_calls.cc ${modules}
    ${common_support})
  target_link_libraries(groundwork-selftest PRIVATE groundwork_static)
  target_include_directories(groundwork-selftest PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}"
    "${GROUNDWORK_GOOGLETEST_DIR}/googletest/include")
  target_compile_options(groundwork-selftest PRIVATE -Os)
  # The allocator of the tests stands before the C library's own, which is linked too.
  target_link_options(groundwork-selftest PRIVATE
    -static -no-pie -s -Wl,-z,muldefs -Wl,--gc-sections)

  add_test(NAME selftest/selftest_test
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/selftest/selftest_test.py"
      $<TARGET_FILE:groundwork-selftest> ${CMAKE_CROSSCOMPILING_EMULATOR})
  set_tests_properties(selftest/selftest_test PROPERTIES TIMEOUT 900)
endif()
