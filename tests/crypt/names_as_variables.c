/* A program with variables of its own under the names of the library's exported tables.
 * They take the tables' places for the whole process, and must not change the ciphers.
 *
 * SPDX-License-Identifier: MIT */
#include "crypt/names_test.h"

#include <groundwork/groundwork.h>

int ip = 1;
int fp = 2;
double e = 2.71828;
const char* pc1 = "pc1";
int rotate[3] = {3, 4, 5};
char pc2[1] = {'p'};
unsigned char s_box[512] = {6};
long p32 = 7;

static int own_values_are_seen(void) {
  return ip == 1 && fp == 2 && e > 2.7 && e < 2.8 && strcmp(pc1, "pc1") == 0 &&
         rotate[0] == 3 && rotate[1] == 4 && rotate[2] == 5 && pc2[0] == 'p' &&
         s_box[0] == 6 && s_box[511] == 0 && p32 == 7;
}

int main(void) {
  CHECK(own_values_are_seen());
  CHECK(ciphers_give_the_known_answers());
  CHECK(own_values_are_seen());
  ++ip;
  memset(s_box, 0x55, sizeof s_box);
  CHECK(ciphers_give_the_known_answers());
  CHECK(ip == 2 && s_box[511] == 0x55);
  return 0;
}
