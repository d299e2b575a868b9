/* SPDX-License-Identifier: MIT */
/**
 * @defgroup des_tables DES tables
 * @ingroup crypt
 *
 * The tables of the Data Encryption Standard, FIPS 46-3, as plain arrays.
 *
 * They are for programs that want to look at them. <groundwork/groundwork.h> does not include this
 * header because its names are short: include it where they do not clash. The ciphers of
 * <groundwork/crypt.h> do not read these arrays, so a program may define functions or variables of
 * the same names itself.
 *
 * An entry p refers to bit p - 1 of the source; bit 0 is the most significant bit of the first
 * byte.
 *
 * Threads: the arrays are read-only.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/des_tables.h>
 *
 * printf("the first bit is bit %d of the block\n", (int)ip[0]);
 * // prints: the first bit is bit 58 of the block
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_DES_TABLES_H
#define GROUNDWORK_DES_TABLES_H

#include <stdint.h>

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** IP, the initial permutation. */
G_API extern const int32_t ip[64];

/** The final permutation, the inverse of IP. */
G_API extern const int32_t fp[64];

/** E, the expansion of 32 bits to 48. */
G_API extern const int32_t e[48];

/** PC-1: the 56 bits of the key that are used; entries 0 to 27 are C, the others D. */
G_API extern const int32_t pc1[56];

/** By how many places C and D of each round are rotated to the left in all, counted from
 *  PC-1's result: 1, 2, 4, ... 27, 28. These are totals, not the shifts of each round. */
G_API extern const int32_t rotate[16];

/** PC-2: the 48 bits of C and D that make a round's subkey. */
G_API extern const int32_t pc2[48];

/** S1 to S8, box after box, each as 4 rows of 16 values from 0 to 15. */
G_API extern const uint8_t s_box[512];

/** P, the permutation after the S-boxes. */
G_API extern const int32_t p32[32];

/** @} */

#ifdef __cplusplus
}
#endif

#endif
