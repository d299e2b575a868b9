/* SPDX-License-Identifier: MIT */
/**
 * @defgroup hash Hash table
 * @ingroup containers
 *
 * Hash table of untyped pointers: one flat array of slots, open addressing, linear probing.
 *
 * A key lives in its home slot, hash modulo the number of slots, or in the first empty slot
 * after it, the last slot being followed by the first. One slot always stays empty: the
 * table doubles before it would fill up, and it never shrinks.
 *
 * The table owns neither keys nor values; the optional destroy callback is the caller's
 * hook to release both.
 *
 * With the ready functions of this header, paired by type, or pointers without an equality
 * function, the cost of a call does not grow with the table: a private index answers. A
 * stored string or int must then not be changed in place, for the index does not notice. Any
 * other combination of functions is asked about each entry that a search meets, stored keys
 * in the order of the slots; a search for an absent key meets them all.
 *
 * Removal leaves a hole and moves nothing. A search passes over holes, but an insertion ends
 * at the first one: a key that was stored beyond it is then stored a second time, and
 * searches meet the copy that is nearer to the home slot. Remove such a key until
 * g_hash_remove() returns -1 to be rid of all its copies.
 *
 * The callbacks may use the table that calls them, but for g_hash_free(), which only a destroy
 * function that g_hash_free() called may call:
 * - A destroy function finds the entry still there, and what it stores under that key goes with
 *   it. Removing that key takes the entry out at once, without a second call. Free the key and
 *   the value last: searches may compare the key.
 * - While a table is being freed it takes as many new keys as it had entries, and destroys
 *   them, too; then g_hash_insert() returns -1.
 * - A search whose equality function makes the table grow starts over, once. If the table grows
 *   again, the key may be missed.
 * - The entry of a destroy function that does not return (a thread that ends in it, longjmp())
 *   stays; the function is not called for it again.
 *
 * @warning Keys chosen by an adversary can make the calls slow: g_hash_str() is fixed and
 * unkeyed, so strings with one hash are easily made, and a search compares with each of them, as
 * in a list. The index does not help, because it knows keys by this hash; a keyed hash beside it
 * would make every call hash the text twice, or every entry larger. Limit how many such keys
 * you store.
 *
 * Threads: nothing is locked. Callers that share a table lock around every call, searches
 * included.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static void release(void *key, void *value) {
 *   free(key);
 *   free(value);
 * }
 *
 * GHash *ages = g_hash_new(16, g_hash_str, g_hash_str_equal, release);
 * if (ages == NULL) return 1;
 * g_hash_insert(ages, g_strdup("Ada"), g_strdup("36"));
 * const char *age = g_hash_find(ages, "Ada");
 * puts(age != NULL ? age : "unknown"); // prints: 36
 * g_hash_remove(ages, "Ada");
 * g_hash_free(ages);
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_HASH_H
#define GROUNDWORK_HASH_H

#include <stdint.h>

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A table; made by g_hash_new(). */
typedef struct GHash GHash;

/** Hashes a key. Keys that are equal must have equal hashes. @param key as inserted or looked
 *  for. @return the hash. */
typedef uint32_t (*GHashFunc)(const void* key);

/** Compares two keys. @param stored the one in the table. @param probe the one looked for.
 *  @return non-zero when they are equal. */
typedef int (*GEqualFunc)(const void* stored, const void* probe);

/** Releases a key and its value, which are still in the table while it runs.
 *  @param key as stored. @param value as stored. */
typedef void (*GHashDestroyFunc)(void* key, void* value);

/**
 * Makes an empty hash table.
 *
 * @param size          slots to begin with; 0 counts as 1. All but one can be filled before
 *                      the table grows.
 * @param hash_func     null means g_hash_direct().
 * @param equal_func    null compares keys as pointers, whatever they point to.
 * @param destroy_func  called for each entry that g_hash_remove() or g_hash_free() takes
 *                      out, but not for a pair that g_hash_insert() replaces; may be null.
 * @return a table to be released with g_hash_free(); null when memory is exhausted (nothing
 *         is logged).
 */
G_API GHash* g_hash_new(unsigned size, GHashFunc hash_func, GEqualFunc equal_func,
                        GHashDestroyFunc destroy_func);

/**
 * Frees a hash table, calling its destroy function for each entry in the order of the slots.
 *
 * @param hash  not null (logged as critical).
 */
G_API void g_hash_free(GHash* hash);

/**
 * Stores a key and its value in a hash table. A key that is already there has both its stored key
 * and its value replaced; the destroy function is not called, so the old pair is the caller's to
 * release.
 *
 * @param hash   not null (logged as critical).
 * @param key    stored as it is, not copied; must stay valid while it is in the table.
 * @param value  stored as it is; null looks like absence to g_hash_find().
 * @return 0; -1 on a failed check, when memory is exhausted, or when a table that is being freed
 *         takes no more keys (nothing is logged; the table is unchanged).
 */
G_API int g_hash_insert(GHash* hash, void* key, void* value);

/**
 * Looks up a key in a hash table.
 *
 * @param hash  not null (logged as critical).
 * @param key   the key to look for.
 * @return its value; null when it is absent or on a failed check.
 */
G_API void* g_hash_find(GHash* hash, const void* key);

/**
 * Removes a key from a hash table: the entry that g_hash_find() would find, calling the destroy
 * function with its stored key and value.
 *
 * @param hash  not null (logged as critical).
 * @param key   the key to look for; it may be the stored key itself, which the destroy
 *              function frees.
 * @return 0; -1 when the key is absent or on a failed check.
 */
G_API int g_hash_remove(GHash* hash, const void* key);

/** Counts the entries of a hash table. @param hash not null (logged as critical).
 *  @return the number of entries, second copies included; 0 on a failed check. */
G_API unsigned g_hash_count(GHash* hash);

/** Hashes a key that is a plain pointer or an integer cast to one. @param key any value.
 *  @return the pointer's value (its low 32 bits). */
G_API uint32_t g_hash_direct(const void* key);

/** Compares keys as pointers. @param a any value. @param b any value.
 *  @return 1 when both are the same, else 0. */
G_API int g_hash_direct_equal(const void* a, const void* b);

/** Hashes an integer by reference. @param key points to an int32_t, not null.
 *  @return the integer. */
G_API uint32_t g_hash_int(const void* key);

/** Compares integers by reference. @param a points to an int32_t, not null.
 *  @param b points to an int32_t, not null. @return 1 when both are equal, else 0. */
G_API int g_hash_int_equal(const void* a, const void* b);

/**
 * Hashes a string: h = h * 31 + c for each byte, modulo 2^32, where c is a signed byte:
 * bytes from 0x80 on count as -128 to -1 on every platform.
 *
 * @param key  NUL-terminated, not null.
 * @return the hash; 0 for the empty string.
 */
G_API uint32_t g_hash_str(const void* key);

/** Compares strings. @param a NUL-terminated, not null. @param b NUL-terminated, not null.
 *  @return 1 when strcmp() finds them equal, else 0. */
G_API int g_hash_str_equal(const void* a, const void* b);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
