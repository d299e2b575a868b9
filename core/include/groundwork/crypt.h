/* SPDX-License-Identifier: MIT */
/**
 * @defgroup crypt Ciphers and Base64
 *
 * Two block ciphers of the DES family, and Base64.
 *
 * The ciphers transform one block of 8 bytes under a key of 8 bytes. There is no chaining
 * mode and no padding: a caller loops over the blocks. `output` may be the same buffer as
 * `input`, and any buffer may have any alignment; the whole input is read before the first
 * byte is written.
 *
 * DES keys have 56 bits, and tables indexed by secrets leak through the caches of a shared
 * machine: use these ciphers for the formats that need them, not for new secrets. Each
 * cipher keeps the key of a thread's last call, and the key schedule made from it, in
 * memory of that thread until it ends or calls with another key. To have a secret key
 * replaced there, call once more with a key that is none.
 *
 * Threads: each thread has its own schedules, so calls may run side by side; programs that
 * must also work with other versions of this library serialise the calls to each cipher.
 * The ciphers may not be called from a signal handler. Base64 keeps no state and may be
 * used anywhere.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char text[] = "two whole blocks"; // of 8 bytes each
 * const char *key = "8 bytes!";
 * for (int at = 0; at < 16; at += 8) g_crypt_d3des_encrypt(text + at, text + at, key);
 * for (int at = 0; at < 16; at += 8) g_crypt_d3des_decrypt(text + at, text + at, key);
 * puts(text); // prints: two whole blocks
 *
 * char line[5]; // four characters for three bytes, and a NUL
 * g_crypt_base64_encode("hi!", line, 3);
 * puts(line); // prints: aGkh
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_CRYPT_H
#define GROUNDWORK_CRYPT_H

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Encrypts a block with a variant of DES that only g_crypt_des_decrypt() undoes.
 *
 * @warning This is not DES as FIPS 46-3 has it and does not interoperate with it. The
 * permutations are the standard's, but the rotations of the key schedule are totals that
 * are added up once more, and an S-box lookup uses three of its six bits; the cipher is
 * much weaker than DES. Kept for the data that exists. For standard DES see
 * g_crypt_d3des_encrypt().
 *
 * @param input   8 bytes, not null.
 * @param output  room for 8 bytes, not null.
 * @param key     8 bytes, not null; the low bit of each (parity) is ignored.
 * @return 0; -1 with nothing written when an argument is null (logged as critical).
 */
G_API int g_crypt_des_encrypt(const void* input, void* output, const void* key);

/**
 * Undoes g_crypt_des_encrypt() under the same key.
 *
 * @param input   8 bytes, not null.
 * @param output  room for 8 bytes, not null.
 * @param key     8 bytes, not null.
 * @return as g_crypt_des_encrypt().
 */
G_API int g_crypt_des_decrypt(const void* input, void* output, const void* key);

/**
 * Encrypts a block with single DES (FIPS 46-3); there is no triple encryption despite the
 * name.
 *
 * @warning The bits of each key byte are read in the opposite order. The result is that of
 * standard DES under the key whose bytes are mirrored: a key byte 0x01 here is 0x80 there.
 * So the top bit of each byte, not the low one, is ignored.
 *
 * @param input   8 bytes, not null.
 * @param output  room for 8 bytes, not null.
 * @param key     8 bytes, not null.
 * @return 0; -1 with nothing written when an argument is null (logged as critical).
 */
G_API int g_crypt_d3des_encrypt(const void* input, void* output, const void* key);

/**
 * Undoes g_crypt_d3des_encrypt() under the same key.
 *
 * @param input   8 bytes, not null.
 * @param output  room for 8 bytes, not null.
 * @param key     8 bytes, not null.
 * @return as g_crypt_d3des_encrypt().
 */
G_API int g_crypt_d3des_decrypt(const void* input, void* output, const void* key);

/**
 * Encodes bytes as Base64 (RFC 4648: standard alphabet, "=" as padding, no line breaks).
 *
 * @warning When two bytes are left over for the last group and the second is 0x80 or above,
 * the group is not what RFC 4648 asks for: it begins with "/", then the character number
 * 48 + (second byte >> 4), so the text decodes to 0xFF in place of the first of the two
 * bytes, which is lost. Kept because readers of such texts expect it. Give a multiple of
 * three bytes, or a rest of one, where every byte value matters.
 *
 * @param src     `length` bytes, not null; may not overlap `dest`.
 * @param dest    room for 4 * ceil(length / 3) characters and a NUL, not null; the size is
 *                not checked.
 * @param length  bytes to encode; below 1 only the NUL is written.
 * @return the number of characters without the NUL. -1 with nothing written when an
 *         argument is null (logged as critical), or when the number would exceed an int:
 *         for more than 1,610,612,733 bytes (not logged).
 */
G_API int g_crypt_base64_encode(const void* src, char* dest, int length);

/**
 * Decodes Base64 text (RFC 4648: standard alphabet, no line breaks or blanks).
 *
 * @warning `str` may not be null. Its length is taken before anything is checked, so null
 * ends the program.
 *
 * "=" is accepted as the last character of the text, and as the last but one; then the last
 * may be any character of the alphabet too and is ignored. Bits that stand in a final group
 * but belong to no byte are ignored.
 *
 * @param str   NUL-terminated text.
 * @param dest  room for 3 bytes for every 4 characters and a NUL, not null; the size is not
 *              checked. May be the buffer that `str` is in, at its start.
 * @return the number of bytes written, not counting a NUL written after them. -1 when
 *         `dest` is null or the length of the text is no multiple of 4 (both logged as
 *         critical, nothing written); -1 for a character or a "=" that may not be there
 *         (not logged): the bytes of the groups before it are then in `dest`, without a NUL.
 */
G_API int g_crypt_base64_decode(const char* str, void* dest);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
