// Ciphers and Base64: nothing of the system, and no memory, can get in their way.
//
// SPDX-License-Identifier: MIT

#include <cstring>

#include <groundwork/groundwork.h>

#include "faults/sweep.h"

using namespace faults;

namespace {

constexpr char kKey[] = "12345678";
constexpr char kBlock[] = "abcdefgh";

template <int encrypt(const void*, void*, const void*),
          int decrypt(const void*, void*, const void*)>
void encrypt_and_decrypt(Pass& pass) {
  char encrypted[8];
  char decrypted[8];
  {
    const Faults faults(pass);
    encrypt(kBlock, encrypted, kKey);
    decrypt(encrypted, decrypted, kKey);
  }
  EXPECT_FALSE(pass.struck());
  EXPECT_EQ(std::memcmp(decrypted, kBlock, sizeof decrypted), 0);
}

void encode_and_decode(Pass& pass) {
  char encoded[16];
  char decoded[16];
  int length = 0;
  {
    const Faults faults(pass);
    g_crypt_base64_encode("abcdef", encoded, 6);
    length = g_crypt_base64_decode(encoded, decoded);
  }
  EXPECT_FALSE(pass.struck());
  EXPECT_STREQ(encoded, "YWJjZGVm");
  EXPECT_EQ(length, 6);
  EXPECT_EQ(std::memcmp(decoded, "abcdef", 6), 0);
}

const Scenarios scenarios(
    "crypt",
    {
        {"Des",
         {"g_crypt_des_encrypt", "g_crypt_des_decrypt"},
         encrypt_and_decrypt<g_crypt_des_encrypt, g_crypt_des_decrypt>},
        {"D3des",
         {"g_crypt_d3des_encrypt", "g_crypt_d3des_decrypt"},
         encrypt_and_decrypt<g_crypt_d3des_encrypt, g_crypt_d3des_decrypt>},
        {"Base64", {"g_crypt_base64_encode", "g_crypt_base64_decode"}, encode_and_decode},
    });

}  // namespace
