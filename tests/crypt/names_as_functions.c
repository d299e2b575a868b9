/* A program with functions of its own under the names of the library's exported tables.
 *
 * SPDX-License-Identifier: MIT */
#include "crypt/names_test.h"

#include <groundwork/groundwork.h>

int ip(void);
int fp(void);
double e(void);
int pc1(int x);
unsigned rotate(unsigned x, unsigned count);
int pc2(int x);
int s_box(int x);
int p32(int x);

int ip(void) {
  return 1;
}
int fp(void) {
  return 2;
}
double e(void) {
  return 2.71828;
}
int pc1(int x) {
  return x + 1;
}
unsigned rotate(unsigned x, unsigned count) {
  return x << count | x >> (32 - count);
}
int pc2(int x) {
  return x + 2;
}
int s_box(int x) {
  return x ^ 0x55;
}
int p32(int x) {
  return x + 32;
}

static int own_functions_are_called(void) {
  /* Through pointers too: a non-PIE program has their addresses built in. */
  int (*volatile call)(int) = s_box;
  return ip() == 1 && fp() == 2 && e() > 2.7 && e() < 2.8 && pc1(1) == 2 &&
         rotate(0x80000000u, 1) == 1 && pc2(1) == 3 && call(0xAA) == 0xFF && p32(0) == 32;
}

int main(void) {
  CHECK(own_functions_are_called());
  CHECK(ciphers_give_the_known_answers());
  CHECK(own_functions_are_called());
  return 0;
}
