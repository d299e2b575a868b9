/* What the small programs about the names of the tables share. They are C programs without
 * the test framework, so that nothing but the library meets their names.
 *
 * SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_TESTS_CRYPT_NAMES_TEST_H
#define GROUNDWORK_TESTS_CRYPT_NAMES_TEST_H

#include <groundwork/crypt.h>

#include <stdio.h>
#include <string.h>

#define CHECK(condition)                                                      \
  do {                                                                        \
    if (!(condition)) {                                                       \
      fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
      return 1;                                                               \
    }                                                                         \
  } while (0)

static int ciphers_give_the_known_answers(void) {
  static const unsigned char key[8] = {0x13, 0x34, 0x57, 0x79, 0x9B, 0xBC, 0xDF, 0xF1};
  static const unsigned char plain[8] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
  static const unsigned char des[8] = {0xED, 0x25, 0x22, 0x6A, 0x55, 0x99, 0xFB, 0x0F};
  static const unsigned char d3des[8] = {0xCE, 0xE5, 0x5A, 0xCD, 0x23, 0x86, 0xB2, 0x3F};
  static const unsigned char other_key[8] = {0};
  unsigned char block[8];
  return g_crypt_des_encrypt(plain, block, key) == 0 && memcmp(block, des, 8) == 0 &&
         g_crypt_des_decrypt(block, block, key) == 0 && memcmp(block, plain, 8) == 0 &&
         g_crypt_d3des_encrypt(plain, block, key) == 0 && memcmp(block, d3des, 8) == 0 &&
         g_crypt_d3des_decrypt(block, block, key) == 0 && memcmp(block, plain, 8) == 0 &&
         /* so that the next time computes the schedules afresh */
         g_crypt_des_encrypt(plain, block, other_key) == 0 &&
         g_crypt_d3des_encrypt(plain, block, other_key) == 0;
}

#endif
