// Compares d3des with OpenSSL's DES where the target has OpenSSL. Elsewhere the known
// answers, which OpenSSL computed, replace it.
//
// SPDX-License-Identifier: MIT

#define OPENSSL_SUPPRESS_DEPRECATED
#include <groundwork/crypt.h>
#include <gtest/gtest.h>
#include <openssl/des.h>

#include <cstdint>
#include <random>

#include "crypt/des_model.h"

using test::Bytes8;

namespace {

Bytes8 openssl_des(Bytes8 block, const Bytes8& key, int encrypt) {
  DES_cblock key_block;
  std::copy(key.begin(), key.end(), key_block);
  DES_key_schedule schedule;
  DES_set_key_unchecked(&key_block, &schedule);
  DES_cblock buffer;
  std::copy(block.begin(), block.end(), buffer);
  DES_ecb_encrypt(&buffer, &buffer, &schedule, encrypt);
  std::copy(buffer, buffer + 8, block.begin());
  return block;
}

TEST(D3desAgainstOpenssl, AgreesUnderTheMirroredKey) {
  std::mt19937_64 random(1);
  const auto next = [&random] {
    Bytes8 bytes;
    for (auto& byte : bytes) byte = static_cast<uint8_t>(random());
    return bytes;
  };
  for (int i = 0; i < 20000; ++i) {
    const Bytes8 key = next();
    const Bytes8 block = next();
    Bytes8 result{};
    ASSERT_EQ(g_crypt_d3des_encrypt(block.data(), result.data(), key.data()), 0);
    ASSERT_EQ(result, openssl_des(block, test::mirrored(key), DES_ENCRYPT));
    ASSERT_EQ(g_crypt_d3des_decrypt(block.data(), result.data(), key.data()), 0);
    ASSERT_EQ(result, openssl_des(block, test::mirrored(key), DES_DECRYPT));
  }
}

}  // namespace
