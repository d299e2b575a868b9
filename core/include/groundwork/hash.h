/* SPDX-License-Identifier: MIT */
/**
 * @defgroup hash Hash table
 * @ingroup containers
 *
 * Hash table of untyped pointers: one flat array of slots, open addressing, linear probing.
 *
 * A key is stored in its home slot, its hash modulo the number of slots, or in the first empty slot
 * after it; after the last slot comes the first. One slot always stays empty: the table doubles
 * before it would fill up, and it never shrinks.
 *
 * The table owns neither keys nor values. An optional destroy function, which the caller supplies,
 * releases both.
 *
 * With the ready functions of this header, paired by type, or pointers without an equality
 * function, the cost of a call does not grow with the table: look-ups use a private index. Do not
 * change a stored string or int in place then, because the index does not notice. With any other
 * combination of functions, a look-up probes the slots in order and calls the equality function for
 * each entry that it meets; a miss meets them all.
 *
 * Removal leaves a hole and moves nothing. A look-up passes over holes, but an insertion ends at
 * the first one: a key that was stored beyond it is then stored a second time, and look-ups find
 * the copy that is nearer to the home slot. To get rid of all copies of such a key, remove it until
 * g_hash_remove() returns -1.
 *
 * The user's functions may use the table that calls them, except for g_hash_free(), which only a
 * destroy function that g_hash_free() called may call:
 * - While a destroy function runs, its entry is still in the table, and a value that it stores
 *   under that key is removed with the entry. If it removes that key, the entry leaves immediately,
 *   without a second call. Free the key and the value last: look-ups may compare the key.
 * - A table that is being freed takes as many new keys as it had entries, and destroys them, too;
 *   after that g_hash_insert() returns -1.
 * - A look-up whose equality function makes the table grow starts over, once. If the table grows
 *   again, the look-up may miss the key.
 * - If a destroy function does not return (its thread ends, or it calls longjmp()), its entry
 *   stays, and the function is not called for it again.
 *
 * Entries are allocated several at a time. Removal keeps an entry's memory for the next insertion;
 * when the last entry is removed, the memory of all but a few is freed.
 *
 * @warning Keys chosen by an attacker can make calls slow: g_hash_str() is fixed and unkeyed, so
 * many strings with the same hash are easy to make, and a look-up compares with each of them, as in
 * a list. The index does not help, because it uses the same hash; a keyed hash in addition would
 * make every call hash the text twice, or every entry larger. Limit how many such keys you store.
 *
 * Threads: nothing is locked. Callers that share a table lock around every call, look-ups included.
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
 * printf("%u\n", g_hash_count(ages)); // prints: 0
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
 *  up. @return the hash. */
typedef uint32_t (*GHashFunc)(const void* key);

/** Compares two keys. @param stored the one in the table. @param probe the one looked up.
 *  @return non-zero when they are equal. */
typedef int (*GEqualFunc)(const void* stored, const void* probe);

/** Releases a key and its value, which are still in the table while it runs.
 *  @param key as stored. @param value as stored. */
typedef void (*GHashDestroyFunc)(void* key, void* value);

/**
 * Makes an empty hash table.
 *
 * @param size          number of slots to begin with; 0 counts as 1. All but one can be filled
 *                      before the table grows.
 * @param hash_func     hashes a key; null means g_hash_direct().
 * @param equal_func    compares two keys; null compares them as pointers, whatever they point to.
 * @param destroy_func  called with key and value of each entry that g_hash_remove() or
 *                      g_hash_free() takes out, but not for a pair that g_hash_insert() replaces;
 *                      may be null.
 * @return the table, owned by the caller and released with g_hash_free(); null, with nothing
 *         logged, when memory is exhausted.
 *
 * Threads: any thread.
 *
 * @par Notes
 * g_hash_str() is fixed and unkeyed: an attacker who chooses the keys can make look-ups as slow as
 * in a list.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GHash *ports = g_hash_new(16, g_hash_str, g_hash_str_equal, NULL); // owns nothing
 * if (ports == NULL) return 1;
 * int http = 80;
 * g_hash_insert(ports, "http", &http);
 * printf("%d\n", *(int *)g_hash_find(ports, "http")); // prints: 80
 * g_hash_free(ports);
 * @endcode
 */
G_API GHash* g_hash_new(unsigned size, GHashFunc hash_func, GEqualFunc equal_func,
                        GHashDestroyFunc destroy_func);

/**
 * Frees a hash table, calling its destroy function for each entry in the order of the slots.
 *
 * @param hash  from g_hash_new(), invalid afterwards; null is logged.
 *
 * @par Errors
 * - ``'hash != NULL' FAILED.``: critical; `hash` is null.
 *
 * Threads: no lock; no other thread may use the table during the call or afterwards.
 *
 * @par Notes
 * Without a destroy function, keys and values are not freed.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static void release(void *key, void *value) {
 *   (void)value;
 *   free(key);
 * }
 *
 * GHash *seen = g_hash_new(16, g_hash_str, g_hash_str_equal, release);
 * if (seen == NULL) return 1;
 * g_hash_insert(seen, g_strdup("Ada"), seen); // any value but null
 * g_hash_free(seen);                          // frees the key, too
 * @endcode
 */
G_API void g_hash_free(GHash* hash);

/**
 * Stores a key and its value in a hash table. If the key is already there, the new key and value
 * replace the stored ones.
 *
 * @param hash   from g_hash_new().
 * @param key    stored as it is, not copied; must stay valid and unchanged while it is in the
 *               table.
 * @param value  stored as it is, not copied. Null looks like a miss to g_hash_find().
 * @return 0; -1 when `hash` is null, when memory is exhausted, or when a table that is being freed
 *         takes no more keys (the last two without a log line). The table is then unchanged, and
 *         key and value stay the caller's.
 *
 * @par Errors
 * - ``'hash != NULL' FAILED.``: critical; `hash` is null.
 *
 * Threads: no lock; callers that share a table lock around every call.
 *
 * @par Notes
 * - When a known key is replaced, the destroy function is not called: the caller has to release the
 *   old key and value, so look them up first.
 * - After removals, a known key may be stored a second time: an insertion ends at the first hole,
 *   and a look-up does not. The count is then one too high, and the older value is found again when
 *   the newer one is removed. Remove a key before you insert it anew.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GHash *ports = g_hash_new(16, g_hash_str, g_hash_str_equal, NULL);
 * if (ports == NULL) return 1;
 * g_hash_insert(ports, "http", "80");
 * g_hash_insert(ports, "http", "8080"); // replaces the value
 * puts(g_hash_find(ports, "http"));     // prints: 8080
 * g_hash_free(ports);
 * @endcode
 */
G_API int g_hash_insert(GHash* hash, void* key, void* value);

/**
 * Looks up a key in a hash table.
 *
 * @param hash  from g_hash_new().
 * @param key   the key to look up; stays the caller's.
 * @return its value, which stays in the table; null on a miss, or when `hash` is null.
 *
 * @par Errors
 * - ``'hash != NULL' FAILED.``: critical; `hash` is null.
 *
 * Threads: no lock; callers that share a table lock around every call, look-ups included.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GHash *names = g_hash_new(16, NULL, NULL, NULL); // keys are integers cast to pointers
 * if (names == NULL) return 1;
 * g_hash_insert(names, (void *)7, "seven");
 * puts(g_hash_find(names, (void *)7));                                  // prints: seven
 * puts(g_hash_find(names, (void *)8) == NULL ? "no eight" : "eight"); // prints: no eight
 * g_hash_free(names);
 * @endcode
 */
G_API void* g_hash_find(GHash* hash, const void* key);

/**
 * Removes a key from a hash table: the entry that g_hash_find() would find. The destroy function is
 * called with its stored key and value.
 *
 * @param hash  from g_hash_new().
 * @param key   the key to look up. It may be the stored key itself, which the destroy function
 *              frees.
 * @return 0; -1 when the key is not in the table, or when `hash` is null.
 *
 * @par Errors
 * - ``'hash != NULL' FAILED.``: critical; `hash` is null.
 *
 * Threads: no lock; callers that share a table lock around every call.
 *
 * @par Notes
 * The slot becomes a hole. A key beyond it that is inserted again is stored a second time; to get
 * rid of all copies of a key, remove it until the result is -1.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GHash *ports = g_hash_new(16, g_hash_str, g_hash_str_equal, NULL);
 * if (ports == NULL) return 1;
 * g_hash_insert(ports, "http", "80");
 * printf("%d\n", g_hash_remove(ports, "http")); // prints: 0
 * printf("%d\n", g_hash_remove(ports, "http")); // prints: -1
 * g_hash_free(ports);
 * @endcode
 */
G_API int g_hash_remove(GHash* hash, const void* key);

/**
 * Counts the entries of a hash table.
 *
 * @param hash  from g_hash_new().
 * @return the number of entries, second copies of a key included; 0 when `hash` is null.
 *
 * @par Errors
 * - ``'hash != NULL' FAILED.``: critical; `hash` is null.
 *
 * Threads: no lock; callers that share a table lock around every call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GHash *ports = g_hash_new(16, g_hash_str, g_hash_str_equal, NULL);
 * if (ports == NULL) return 1;
 * g_hash_insert(ports, "http", "80");
 * g_hash_insert(ports, "ssh", "22");
 * printf("%u\n", g_hash_count(ports)); // prints: 2
 * g_hash_free(ports);
 * @endcode
 */
G_API unsigned g_hash_count(GHash* hash);

/**
 * Hashes a key that is a plain pointer or an integer cast to one; for g_hash_new().
 *
 * @param key  any value; not dereferenced.
 * @return the value of the pointer, its low 32 bits.
 *
 * Threads: any thread; no state.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GHash *names = g_hash_new(16, g_hash_direct, g_hash_direct_equal, NULL);
 * if (names == NULL) return 1;
 * g_hash_insert(names, (void *)7, "seven");
 * puts(g_hash_find(names, (void *)7)); // prints: seven
 * g_hash_free(names);
 * @endcode
 */
G_API uint32_t g_hash_direct(const void* key);

/**
 * Compares two keys as pointers; for g_hash_new().
 *
 * @param a  any value; not dereferenced.
 * @param b  any value; not dereferenced.
 * @return 1 when both are the same, else 0.
 *
 * Threads: any thread; no state.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char first[] = "one", second[] = "one";
 * printf("%d\n", g_hash_direct_equal(first, second)); // prints: 0
 * printf("%d\n", g_hash_direct_equal(first, first));  // prints: 1
 * @endcode
 */
G_API int g_hash_direct_equal(const void* a, const void* b);

/**
 * Hashes a key that points to an integer; for g_hash_new().
 *
 * @param key  points to an int32_t; not null, unchecked.
 * @return the integer.
 *
 * Threads: any thread; no state.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int32_t ids[] = {17, 42};
 * int32_t wanted = 42;
 * GHash *names = g_hash_new(16, g_hash_int, g_hash_int_equal, NULL);
 * if (names == NULL) return 1;
 * g_hash_insert(names, &ids[0], "inlet");
 * g_hash_insert(names, &ids[1], "outlet");
 * puts(g_hash_find(names, &wanted)); // prints: outlet
 * g_hash_free(names);
 * @endcode
 */
G_API uint32_t g_hash_int(const void* key);

/**
 * Compares two keys that point to integers; for g_hash_new().
 *
 * @param a  points to an int32_t; not null, unchecked.
 * @param b  points to an int32_t; not null, unchecked.
 * @return 1 when the integers are equal, else 0.
 *
 * Threads: any thread; no state.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * int32_t stored = 42, probe = 42;
 * printf("%d\n", g_hash_int_equal(&stored, &probe)); // prints: 1
 * @endcode
 */
G_API int g_hash_int_equal(const void* a, const void* b);

/**
 * Hashes a string; for g_hash_new(). The hash is h = h * 31 + c for each byte, modulo 2^32, where c
 * is a signed byte: bytes from 0x80 on count as -128 to -1 on every platform.
 *
 * @param key  NUL-terminated string; not null, unchecked.
 * @return the hash; 0 for the empty string.
 *
 * Threads: any thread; no state.
 *
 * @par Notes
 * The function is fixed and unkeyed: an attacker can make many strings with the same hash.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * printf("%u\n", (unsigned)g_hash_str("ab")); // prints: 3105
 * @endcode
 */
G_API uint32_t g_hash_str(const void* key);

/**
 * Compares two strings; for g_hash_new().
 *
 * @param a  NUL-terminated string; not null, unchecked.
 * @param b  NUL-terminated string; not null, unchecked.
 * @return 1 when strcmp() finds them equal, else 0.
 *
 * Threads: any thread; no state.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char first[] = "one", second[] = "one";
 * printf("%d\n", g_hash_str_equal(first, second)); // prints: 1
 * @endcode
 */
G_API int g_hash_str_equal(const void* a, const void* b);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
