/* SPDX-License-Identifier: MIT */
/**
 * @defgroup memory Checked allocation
 * @ingroup core
 *
 * Checked allocation on the system heap.
 *
 * Every block is ordinary heap memory, owned by the caller and released with free() or g_freep().
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
 * @param n_bytes  size in bytes, above 0.
 * @return the block, owned by the caller and released with free() or g_freep(); null when `n_bytes`
 *         is 0 or when memory is exhausted.
 *
 * @par Errors
 * - ``'size > 0' FAILED.``: critical; `n_bytes` is 0.
 * - ``failed to allocate %u bytes.``: warning, with the size; memory is exhausted.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char *text = g_malloc(16);
 * if (text == NULL) return 1; // it has been logged
 * strcpy(text, "pump");
 * puts(text); // prints: pump
 * free(text);
 * @endcode
 */
G_API void* g_malloc(unsigned n_bytes);

/**
 * Allocates a block filled with zeros.
 *
 * @param n_bytes  size in bytes, above 0.
 * @return the block, owned by the caller and released with free() or g_freep(); null when `n_bytes`
 *         is 0 or when memory is exhausted.
 *
 * @par Errors
 * - ``'size > 0' FAILED.``: critical; `n_bytes` is 0.
 * - ``failed to allocate %u bytes.``: warning, with the size; memory is exhausted.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * int *counts = g_malloc0(10 * sizeof(int));
 * if (counts == NULL) return 1; // it has been logged
 * printf("%d\n", counts[9]);    // prints: 0
 * free(counts);
 * @endcode
 */
G_API void* g_malloc0(unsigned n_bytes);

/**
 * Resizes a block, moving it if necessary. The content stays up to the smaller of both sizes.
 *
 * @param mem      a heap block, invalid after success; null to allocate a new one.
 * @param n_bytes  new size in bytes, above 0.
 * @return the resized block, owned by the caller and released with free() or g_freep(). Null when
 *         `n_bytes` is 0 or when memory is exhausted; `mem` is then untouched and still the
 *         caller's.
 *
 * @par Errors
 * - ``'size > 0' FAILED.``: critical; `n_bytes` is 0. Nothing is freed.
 * - ``failed to reallocate %u bytes.``: warning, with the size; memory is exhausted.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char *text = g_malloc(5);
 * if (text == NULL) return 1;
 * strcpy(text, "pump");
 * char *longer = g_realloc(text, 11);
 * if (longer != NULL) text = strcat(longer, " house");
 * puts(text); // prints: pump house
 * free(text);
 * @endcode
 */
G_API void* g_realloc(void* mem, unsigned n_bytes);

/**
 * Frees a block and sets the pointer to it to null.
 *
 * @param ptr  points to the pointer to the block, which may be null; not null itself, unchecked.
 *
 * Threads: any thread; no other thread may use the block or the pointer.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * void *block = g_malloc(64);
 * g_freep(&block);
 * g_freep(&block); // does nothing
 * @endcode
 */
G_API void g_freep(void** ptr);

/**
 * Copies a block of memory into a new block.
 *
 * @param mem      source, `n_bytes` bytes; not null.
 * @param n_bytes  number of bytes, above 0.
 * @return the copy, owned by the caller and released with free() or g_freep(); null when `mem` is
 *         null, when `n_bytes` is 0, or when memory is exhausted.
 *
 * @par Errors
 * - ``'mem != NULL' FAILED.``: critical; `mem` is null.
 * - ``'size > 0' FAILED.``: critical; `n_bytes` is 0.
 * - ``failed to allocate %u bytes.``: warning, with the size; memory is exhausted.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * const int levels[] = {1, 2, 3};
 * int *copy = g_memdup(levels, sizeof levels);
 * if (copy == NULL) return 1;
 * printf("%d\n", copy[2]); // prints: 3
 * free(copy);
 * @endcode
 */
G_API void* g_memdup(const void* mem, unsigned n_bytes);

/**
 * Logs the statistics of the heap, eight lines at level 0. On a C library without such statistics
 * the figures are 0.
 *
 * The lines are, with figures in bytes or numbers of blocks: "CURRENT malloc INFORMATION", then
 * "total space allocated from system", "number of non-inuse chunks", "number of mmapped regions",
 * "total space in mmapped regions", "total allocated space", "total non-inuse space", and
 * "top-most, releasable space".
 *
 * @return what the last call of g_log() returned: 1 when level 0 is below the threshold.
 *
 * Threads: any thread; the figures are a snapshot, and other threads may change the heap.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * g_debug_set_level2(G_LOG_DEBUG); // else nothing is shown
 * g_mem_profile();
 * @endcode
 */
G_API int g_mem_profile(void);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
