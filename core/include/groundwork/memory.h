/* SPDX-License-Identifier: MIT */
/**
 * @defgroup memory Checked allocation
 * @ingroup core
 *
 * Checked allocation on the system heap.
 *
 * Every block is ordinary heap memory, owned by the caller, released with free() or
 * g_freep().
 *
 * Threads: as safe as the system heap.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * void *block = g_malloc0(64);
 * if (block == NULL) return 1; // it has been logged
 * void *larger = g_realloc(block, 128);
 * if (larger != NULL) block = larger; // else the old block is still there
 * g_freep(&block);
 * puts(block == NULL ? "gone" : "still there"); // prints: gone
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_MEMORY_H
#define GROUNDWORK_MEMORY_H

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Allocates an uninitialised block.
 *
 * @param n_bytes  size; 0 fails the check "size > 0".
 * @return the block; null on a failed check (logged as critical) or when memory is
 *         exhausted ("failed to allocate %u bytes.", logged as a warning).
 */
G_API void* g_malloc(unsigned n_bytes);

/** Allocates a block filled with zeros, as g_malloc(). @param n_bytes size. @return the block,
 *  or null. */
G_API void* g_malloc0(unsigned n_bytes);

/**
 * Resizes a block, moving it if need be.
 *
 * @param mem      a heap block, or null for a fresh one.
 * @param n_bytes  new size; 0 fails the check "size > 0" and frees nothing.
 * @return the resized block. Null on a failed check (logged as critical) or when memory is
 *         exhausted ("failed to reallocate %u bytes.", a warning); `mem` is then untouched
 *         and still owned by the caller.
 */
G_API void* g_realloc(void* mem, unsigned n_bytes);

/** Frees a block and clears its pointer: `*ptr`, unless it is null. @param ptr not null; unchecked.
 *  */
G_API void g_freep(void** ptr);

/**
 * Copies a block.
 *
 * @param mem      source; null fails the check "mem != NULL".
 * @param n_bytes  bytes to copy; 0 is reported as by g_malloc().
 * @return a new block, or null as g_malloc() gives it.
 */
G_API void* g_memdup(const void* mem, unsigned n_bytes);

/**
 * Logs the allocator's statistics, eight lines at level 0.
 *
 * @return the result of the last g_log() call.
 */
G_API int g_mem_profile(void);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
