// The exported tables. The names are so short that programs have functions and variables
// with the same names, and a program's symbol replaces the library's. So the ciphers never
// read through these names, and only this file knows them: as symbols, not as C++ names,
// which would shadow many local variables.
//
// SPDX-License-Identifier: MIT

#include <groundwork/des_tables.h>

#include "crypt/des_standard.h"

namespace des = groundwork::des;

// A std::array has the layout of the array in it.
#define EXPORT_AS(symbol, table)                                         \
  extern G_API const decltype(table) exported_##symbol __asm__(#symbol); \
  constexpr decltype(table) exported_##symbol = table;                   \
  static_assert(sizeof exported_##symbol == sizeof(symbol))

EXPORT_AS(ip, des::kInitialPermutation);
EXPORT_AS(fp, des::kFinalPermutation);
EXPORT_AS(e, des::kExpansion);
EXPORT_AS(pc1, des::kPermutedChoice1);
EXPORT_AS(rotate, des::kRotationTotals);
EXPORT_AS(pc2, des::kPermutedChoice2);
EXPORT_AS(s_box, des::kSBoxes);
EXPORT_AS(p32, des::kPermutation);
