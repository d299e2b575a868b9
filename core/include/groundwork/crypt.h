/* SPDX-License-Identifier: MIT */
/**
 * @defgroup crypt Ciphers and Base64
 *
 * Two block ciphers of the DES family, and Base64.
 *
 * The ciphers transform one block of 8 bytes under a key of 8 bytes. There is no chaining mode and
 * no padding: a caller loops over the blocks. `output` may be the same buffer as `input`, and any
 * buffer may have any alignment; the whole input is read before the first byte is written.
 *
 * DES keys have 56 bits, and tables indexed by secrets leak through the caches of a shared machine:
 * use these ciphers for the formats that need them, not for new secrets. Each cipher keeps the key
 * of a thread's last call, and the key schedule made from it, in memory of that thread until it
 * ends or calls with another key. To overwrite a secret key there, call once more with a key that
 * is not secret.
 *
 * Threads: each thread has its own key schedules, so calls may run at the same time; programs that
 * must also work with other versions of this library serialise the calls to each cipher. The
 * ciphers must not be called from a signal handler. Base64 keeps no state and may be used anywhere.
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
 * Encrypts a block of 8 bytes with a variant of DES that only g_crypt_des_decrypt() reverses.
 *
 * @param input   8 bytes; not null. Any alignment.
 * @param output  room for 8 bytes; not null. Any alignment; may be the same buffer as `input`.
 * @param key     8 bytes; not null. Any alignment. The low bit of each byte (parity) is ignored.
 * @return 0; -1, with nothing written, when an argument is null.
 *
 * @par Errors
 * - ``'input != NULL' FAILED.``: critical; `input` is null.
 * - ``'output != NULL' FAILED.``: critical; `output` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 *
 * Threads: any thread, but not a signal handler. Each thread has a key schedule of its own.
 *
 * @par Notes
 * - This is not DES as FIPS 46-3 defines it, and does not interoperate with it. The permutations
 *   are the standard's, but the rotations of the key schedule are running totals that are added up
 *   once more, and an S-box look-up uses three of its six bits. The cipher is much weaker than DES
 *   and protects nothing; it is kept for existing data. For standard DES see
 *   g_crypt_d3des_encrypt().
 * - The key and its schedule stay in the thread's memory. To overwrite them, call again with a
 *   meaningless key, or end the thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char block[8] = {'p', 'u', 'm', 'p', ' ', '4', '0', '.'};
 * const char *key = "8 bytes!";
 * g_crypt_des_encrypt(block, block, key);
 * g_crypt_des_decrypt(block, block, key);
 * printf("%.8s\n", block); // prints: pump 40.
 * @endcode
 */
G_API int g_crypt_des_encrypt(const void* input, void* output, const void* key);

/**
 * Decrypts a block of 8 bytes that g_crypt_des_encrypt() encrypted under the same key.
 *
 * @param input   8 bytes; not null. Any alignment.
 * @param output  room for 8 bytes; not null. Any alignment; may be the same buffer as `input`.
 * @param key     8 bytes; not null. Any alignment. The low bit of each byte (parity) is ignored.
 * @return 0; -1, with nothing written, when an argument is null.
 *
 * @par Errors
 * - ``'input != NULL' FAILED.``: critical; `input` is null.
 * - ``'output != NULL' FAILED.``: critical; `output` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 *
 * Threads: any thread, but not a signal handler. Each thread has a key schedule of its own.
 *
 * @par Notes
 * - This is not DES as FIPS 46-3 defines it, and does not interoperate with it.
 * - The key and its schedule stay in the thread's memory. To overwrite them, call again with a
 *   meaningless key, or end the thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char block[8] = {'p', 'u', 'm', 'p', ' ', '4', '0', '.'};
 * const char *key = "8 bytes!";
 * g_crypt_des_encrypt(block, block, key);
 * g_crypt_des_decrypt(block, block, key);
 * printf("%.8s\n", block); // prints: pump 40.
 * @endcode
 */
G_API int g_crypt_des_decrypt(const void* input, void* output, const void* key);

/**
 * Encrypts a block of 8 bytes with single DES under the key with the bits of each byte mirrored.
 *
 * @param input   8 bytes; not null. Any alignment.
 * @param output  room for 8 bytes; not null. Any alignment; may be the same buffer as `input`.
 * @param key     8 bytes; not null. Any alignment. The top bit of each byte is ignored.
 * @return 0; -1, with nothing written, when an argument is null.
 *
 * @par Errors
 * - ``'input != NULL' FAILED.``: critical; `input` is null.
 * - ``'output != NULL' FAILED.``: critical; `output` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 *
 * Threads: any thread, but not a signal handler. Each thread has a key schedule of its own.
 *
 * Standard: DES, FIPS 46-3, but for the order of the bits in the key.
 *
 * @par Notes
 * - Despite the name this is not triple DES.
 * - The bits of each key byte are read in the opposite order. The result is that of standard DES
 *   under the key whose bytes are mirrored: a key byte 0x01 here is 0x80 there. To exchange data
 *   with standard tools, mirror the key.
 * - The key and its schedule stay in the thread's memory. To overwrite them, call again with a
 *   meaningless key, or end the thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char block[8] = {'p', 'u', 'm', 'p', ' ', '4', '0', '.'};
 * const char *key = "8 bytes!";
 * g_crypt_d3des_encrypt(block, block, key);
 * g_crypt_d3des_decrypt(block, block, key);
 * printf("%.8s\n", block); // prints: pump 40.
 * @endcode
 */
G_API int g_crypt_d3des_encrypt(const void* input, void* output, const void* key);

/**
 * Decrypts a block of 8 bytes that g_crypt_d3des_encrypt() encrypted under the same key.
 *
 * @param input   8 bytes; not null. Any alignment.
 * @param output  room for 8 bytes; not null. Any alignment; may be the same buffer as `input`.
 * @param key     8 bytes; not null. Any alignment. The top bit of each byte is ignored.
 * @return 0; -1, with nothing written, when an argument is null.
 *
 * @par Errors
 * - ``'input != NULL' FAILED.``: critical; `input` is null.
 * - ``'output != NULL' FAILED.``: critical; `output` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 *
 * Threads: any thread, but not a signal handler. Each thread has a key schedule of its own.
 *
 * Standard: DES, FIPS 46-3, but for the order of the bits in the key.
 *
 * @par Notes
 * - Despite the name this is not triple DES.
 * - The bits of each key byte are read in the opposite order. To exchange data with standard tools,
 *   mirror the key.
 * - The key and its schedule stay in the thread's memory. To overwrite them, call again with a
 *   meaningless key, or end the thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char block[8] = {'p', 'u', 'm', 'p', ' ', '4', '0', '.'};
 * const char *key = "8 bytes!";
 * g_crypt_d3des_encrypt(block, block, key);
 * g_crypt_d3des_decrypt(block, block, key);
 * printf("%.8s\n", block); // prints: pump 40.
 * @endcode
 */
G_API int g_crypt_d3des_decrypt(const void* input, void* output, const void* key);

/**
 * Encodes bytes as Base64: standard alphabet, "=" as padding, no line breaks.
 *
 * @param src     `length` bytes; not null. Must not overlap `dest`.
 * @param dest    room for 4 * ceil(length / 3) characters and a NUL; not null. The size is not
 *                checked.
 * @param length  number of bytes to encode; below 1 only the NUL is written.
 * @return the number of characters, without the NUL. -1, with nothing written, when an argument is
 *         null, or, with nothing logged, when the number would exceed an int: for more than
 *         1,610,612,733 bytes.
 *
 * @par Errors
 * - ``'src && dest' FAILED.``: critical; `src` or `dest` is null.
 *
 * Threads: any thread, also in a signal handler; no state.
 *
 * Standard: RFC 4648, except for the case in the notes.
 *
 * @par Notes
 * When two bytes are left over for the last group and the second is 0x80 or above, the group is not
 * what RFC 4648 requires: it begins with "/" and then the character number 48 + (second byte >> 4).
 * The text decodes to 0xFF in place of the first of the two bytes, which is lost silently. It is
 * kept because readers of such texts expect it. Where every byte matters, pass a multiple of three
 * bytes, or one more.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char line[9]; // four characters for every three bytes, and a NUL
 * printf("%d\n", g_crypt_base64_encode("pump", line, 4)); // prints: 8
 * puts(line);                                             // prints: cHVtcA==
 * @endcode
 */
G_API int g_crypt_base64_encode(const void* src, char* dest, int length);

/**
 * Decodes Base64 text: standard alphabet, no line breaks or blanks.
 *
 * "=" is accepted as the last character of the text, and as the last but one; then the last may
 * also be any character of the alphabet and is ignored. Bits in the final group that belong to no
 * byte are ignored.
 *
 * @param str   NUL-terminated text; not null.
 * @param dest  room for 3 bytes for every 4 characters, and a NUL; not null. The size is not
 *              checked. May be the buffer that `str` is in, at its start.
 * @return the number of bytes written, without the NUL that follows them. -1 when `dest` is null or
 *         when the length of the text is not a multiple of 4, with nothing written. -1, with
 *         nothing logged, for a character or a "=" that is not allowed in its place: `dest` then
 *         holds the bytes of the groups before it, without a NUL.
 *
 * @par Errors
 * - ``'src && dest' FAILED.``: critical; `dest` is null.
 * - ``'!(length % 4)' FAILED.``: critical; the length of the text is not a multiple of 4.
 *
 * Threads: any thread; no state.
 *
 * Standard: RFC 4648.
 *
 * @par Notes
 * The length of the text is taken before the check: a null `str` ends the process. Check it before
 * the call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char bytes[7]; // three bytes for every four characters, and a NUL
 * printf("%d\n", g_crypt_base64_decode("cHVtcA==", bytes)); // prints: 4
 * puts(bytes);                                              // prints: pump
 * @endcode
 */
G_API int g_crypt_base64_decode(const char* str, void* dest);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
