groundwork_test(crypt/base64_test)
groundwork_test(crypt/block_cipher_test LABELS threads)
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
  groundwork_test(crypt/d3des_openssl_test LIBRARIES crypto)
  target_sources(crypt_d3des_openssl_test PRIVATE crypt/des_model.cc)
endif()
