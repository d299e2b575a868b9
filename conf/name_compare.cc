// SPDX-License-Identifier: MIT

#include "conf/name_compare.h"

bool groundwork::same_but_for_case(const char* a, const char* b, size_t length) {
  if (length < 4) return same_word(short_word(a, length), short_word(b, length));
  const size_t last = length - 4;
  for (size_t at = 0; at < last; at += 4) {
    if (!same_word(load_word(a + at), load_word(b + at))) return false;
  }
  return same_word(load_word(a + last), load_word(b + last));
}
