/* A program that reads the library's exported tables. Where it is not position independent,
 * it gets copies of them.
 *
 * SPDX-License-Identifier: MIT */
#include "crypt/names_test.h"

#include <groundwork/des_tables.h>
#include <groundwork/groundwork.h>

int main(void) {
  CHECK(ip[0] == 58 && ip[63] == 7);
  CHECK(fp[0] == 40 && fp[63] == 25);
  CHECK(e[0] == 32 && e[47] == 1);
  CHECK(pc1[0] == 57 && pc1[55] == 4);
  CHECK(rotate[0] == 1 && rotate[15] == 28);
  CHECK(pc2[0] == 14 && pc2[47] == 32);
  CHECK(s_box[0] == 14 && s_box[511] == 11);
  CHECK(p32[0] == 16 && p32[31] == 25);
  CHECK(ciphers_give_the_known_answers());
  return 0;
}
