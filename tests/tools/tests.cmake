if(TARGET gw-cat)
  add_test(NAME tools/gw_cat_test
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/tools/gw_cat_test.py"
      ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:gw-cat>)
  set_tests_properties(tools/gw_cat_test PROPERTIES TIMEOUT 300)
endif()
