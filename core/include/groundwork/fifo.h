/* SPDX-License-Identifier: MIT */
/**
 * @defgroup fifo Ring buffer
 * @ingroup containers
 *
 * Bounded ring buffer of untyped pointers, for one producer and one consumer.
 *
 * Nothing blocks and nothing is overwritten: putting into a full ring and getting from an
 * empty one fail at once. Elements are heap blocks that belong to whoever holds them; while
 * they are in the ring, to nobody but g_fifo_flush().
 *
 * Threads: one producer and one consumer may run at the same time, and any thread may ask
 * for the state, which is read without a lock and may be out of date at once. Several
 * producers must take turns, and so must several consumers; flushing is consuming.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GFifo *fifo = g_fifo_new(8);
 * if (fifo == NULL) return 1;
 *
 * // The producer. A full ring takes nothing, and the element stays the producer's.
 * char *sample = g_strdup("21.5");
 * if (g_fifo_put(fifo, sample) != 0) free(sample);
 *
 * // The consumer.
 * if (!g_fifo_empty(fifo)) {
 *   char *taken = g_fifo_get(fifo);
 *   puts(taken); // prints: 21.5
 *   free(taken);
 * }
 * g_fifo_flush(fifo); // frees what nobody fetched
 * g_fifo_free(fifo);
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_FIFO_H
#define GROUNDWORK_FIFO_H

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A ring; made by g_fifo_new(). */
typedef struct GFifo GFifo;

/**
 * Makes an empty ring buffer of fixed capacity.
 *
 * @param max_buf  capacity in elements; at least 1 (logged as critical).
 * @return a ring to be released with g_fifo_free(); null on a failed check, or, with nothing
 *         logged, when memory is exhausted.
 */
G_API GFifo* g_fifo_new(int max_buf);

/** Frees a ring buffer. Elements that are still held are NOT freed: call g_fifo_flush() first.
 *  @param fifo not null (logged as critical). */
G_API void g_fifo_free(GFifo* fifo);

/** Tells whether a ring buffer is empty. @param fifo not null (logged as critical).
 *  @return 1 when nothing is held, else 0; 1 on a failed check. */
G_API int g_fifo_empty(GFifo* fifo);

/** Tells whether a ring buffer is full. @param fifo not null (logged as critical).
 *  @return 1 when no slot is free, else 0; 1 on a failed check. */
G_API int g_fifo_full(GFifo* fifo);

/**
 * Puts an element into a ring buffer. Never blocks, never overwrites.
 *
 * @param fifo   from g_fifo_new().
 * @param _data  not null; the ring stores the pointer and does not own what it points to.
 * @return 0; -1 when the ring is full ("fifo(%p) is full, failed to put.", a warning) or an
 *         argument is null (logged as critical). The ring is then unchanged.
 */
G_API int g_fifo_put(GFifo* fifo, void* _data);

/**
 * Takes the oldest element out of a ring buffer.
 *
 * @param fifo  not null (logged as critical).
 * @return the element, now the caller's; null when the ring is empty ("fifo(%p) is empty,
 *         failed to get.", a warning) or on a failed check.
 */
G_API void* g_fifo_get(GFifo* fifo);

/**
 * Empties a ring buffer: takes the elements one by one and frees each with free(). What a
 * producer puts meanwhile is freed too.
 *
 * @param fifo  not null (logged as critical).
 * @return 0; -1 on a failed check.
 */
G_API int g_fifo_flush(GFifo* fifo);

/** Counts the elements in a ring buffer. @param fifo not null (logged as critical).
 *  @return the number of elements held; -1 on a failed check. */
G_API int g_fifo_count(GFifo* fifo);

/** Counts the free slots of a ring buffer. @param fifo not null (logged as critical).
 *  @return the number of free slots; -1 on a failed check. */
G_API int g_fifo_avail(GFifo* fifo);

/** Tells the capacity of a ring buffer. @param fifo not null (logged as critical).
 *  @return the capacity; -1 on a failed check. */
G_API int g_fifo_size(GFifo* fifo);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
