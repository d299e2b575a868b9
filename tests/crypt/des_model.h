// DES bit by bit, written as plainly as possible, with its own tables: the standard cipher,
// and the variant that the library also has.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_CRYPT_DES_MODEL_H
#define GROUNDWORK_TESTS_CRYPT_DES_MODEL_H

#include <array>
#include <cstdint>
#include <vector>

namespace test {

using Bytes8 = std::array<uint8_t, 8>;

// The tables as FIPS 46-3 has them, positions counted from 1.
extern const std::vector<int> kModelIp;
extern const std::vector<int> kModelFp;
extern const std::vector<int> kModelE;
extern const std::vector<int> kModelP;
extern const std::vector<int> kModelPc1;
extern const std::vector<int> kModelPc2;
extern const char* const kModelSBoxes[8];  // 4 rows of 16 hexadecimal digits, one by one

enum class Direction { kEncrypt, kDecrypt };

// FIPS 46-3.
Bytes8 standard_des(const Bytes8& block, const Bytes8& key, Direction direction);

// The variant: rotation totals that are added up again, three bits in an S-box lookup.
Bytes8 variant_des(const Bytes8& block, const Bytes8& key, Direction direction);

// Each byte's bits in the opposite order.
Bytes8 mirrored(const Bytes8& key);

}  // namespace test

#endif
