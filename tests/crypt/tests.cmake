# SPDX-License-Identifier: MIT
groundwork_test(crypt/base64_test)
if(NOT GROUNDWORK_SANITIZE)
  # Most of it happens in another program, where a sanitizer would see nothing.
  groundwork_test(crypt/base64_coreutils_test NOT_ON_THE_DEVICE)
endif()
# The model works bit by bit, and most of the time goes there: optimised, unlike the tests.
set_source_files_properties(crypt/des_model.cc PROPERTIES
  COMPILE_OPTIONS -O2 SKIP_PRECOMPILE_HEADERS ON)
groundwork_test(crypt/block_cipher_test COST 50 LABELS threads)
target_sources(crypt_block_cipher_test PRIVATE crypt/des_model.cc)
groundwork_test(crypt/des_tables_test)
target_sources(crypt_des_tables_test PRIVATE crypt/des_model.cc)

# OpenSSL is asked where it exists for the target. Elsewhere its answers, written down, are
# what d3des is held to; those are checked everywhere.
include(CheckCXXSourceCompiles)
set(CMAKE_REQUIRED_LIBRARIES crypto)
check_cxx_source_compiles("#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/des.h>
int main() { DES_key_schedule s; DES_cblock k = {}; DES_set_key_unchecked(&k, &s); }"
  GROUNDWORK_FINDS_OPENSSL_DES)
unset(CMAKE_REQUIRED_LIBRARIES)
if(GROUNDWORK_FINDS_OPENSSL_DES)
  groundwork_test(crypt/d3des_openssl_test LIBRARIES crypto NOT_ON_THE_DEVICE)
  target_sources(crypt_d3des_openssl_test PRIVATE crypt/des_model.cc)
endif()

# Programs with names of their own that are also the tables', as applications are linked:
# position independent or not, with the shared library or the static one; their own symbols
# are exported, so that they stand before those of the library.
function(groundwork_names_test source kind library)
  get_filename_component(name ${source} NAME_WE)
  set(target crypt_${name}_${kind}_${library})
  add_executable(${target} ${source})
  target_link_libraries(${target} PRIVATE ${library})
  target_include_directories(${target} PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}")
  groundwork_warnings(${target})
  if(kind STREQUAL "pie")
    target_compile_options(${target} PRIVATE -fPIE)
    target_link_options(${target} PRIVATE -pie -rdynamic)
  else()
    target_compile_options(${target} PRIVATE -fno-pie)
    target_link_options(${target} PRIVATE -no-pie -rdynamic)
  endif()
  add_test(NAME crypt/${name}_${kind}_${library} COMMAND ${target})
endfunction()
if(NOT GROUNDWORK_SANITIZE)  # their own symbols are checked for doubles
  foreach(kind IN ITEMS pie no_pie)
    foreach(library IN ITEMS groundwork groundwork_static)
      groundwork_names_test(crypt/names_as_variables.c ${kind} ${library})
      groundwork_names_test(crypt/names_as_functions.c ${kind} ${library})
      groundwork_names_test(crypt/names_of_tables.c ${kind} ${library})
    endforeach()
  endforeach()
endif()
