/* SPDX-License-Identifier: MIT */
/**
 * @defgroup fifo Ring buffer
 * @ingroup containers
 *
 * Bounded ring buffer of untyped pointers, for one producer and one consumer.
 *
 * Nothing blocks and nothing is overwritten: putting into a full ring and getting from an empty one
 * fail immediately. The ring stores pointers and does not own the elements; only g_fifo_flush()
 * frees them.
 *
 * Threads: one producer and one consumer may run at the same time. Any thread may ask for the
 * state, which is read without a lock and may be out of date immediately. Several producers must
 * take turns, and so must several consumers; flushing is consuming.
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
 * @param max_buf  capacity in elements; at least 1.
 * @return the ring, owned by the caller and released with g_fifo_free(); null when `max_buf` is
 *         below 1, or, with nothing logged, when memory is exhausted.
 *
 * @par Errors
 * - ``'max_buf > 0' FAILED.``: critical; `max_buf` is below 1.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GFifo *fifo = g_fifo_new(8);
 * if (fifo == NULL) return 1;
 * printf("%d\n", g_fifo_avail(fifo)); // prints: 8
 * g_fifo_free(fifo);
 * @endcode
 */
G_API GFifo* g_fifo_new(int max_buf);

/**
 * Frees a ring buffer, but not the elements in it.
 *
 * @param fifo  from g_fifo_new(), invalid afterwards; null is logged.
 *
 * @par Errors
 * - ``'fifo != NULL' FAILED.``: critical; `fifo` is null.
 *
 * Threads: no other thread may use the ring during the call or afterwards.
 *
 * @par Notes
 * Elements that are still in the ring leak unless something else points to them: call
 * g_fifo_flush() first, or get them one by one.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GFifo *fifo = g_fifo_new(8);
 * if (fifo == NULL) return 1;
 * g_fifo_put(fifo, g_strdup("21.5"));
 * g_fifo_flush(fifo); // frees the element
 * g_fifo_free(fifo);
 * @endcode
 */
G_API void g_fifo_free(GFifo* fifo);

/**
 * Returns whether a ring buffer is empty.
 *
 * @param fifo  from g_fifo_new().
 * @return 1 when it holds no element, else 0; 1 when `fifo` is null.
 *
 * @par Errors
 * - ``'fifo != NULL' FAILED.``: critical; `fifo` is null.
 *
 * Threads: any thread at any time. It takes no lock, so the result may be out of date immediately.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * int sample = 21;
 * GFifo *fifo = g_fifo_new(8);
 * if (fifo == NULL) return 1;
 * g_fifo_put(fifo, &sample);
 * printf("%d\n", g_fifo_empty(fifo)); // prints: 0
 * g_fifo_free(fifo);
 * @endcode
 */
G_API int g_fifo_empty(GFifo* fifo);

/**
 * Returns whether a ring buffer is full.
 *
 * @param fifo  from g_fifo_new().
 * @return 1 when no slot is free, else 0; 1 when `fifo` is null.
 *
 * @par Errors
 * - ``'fifo != NULL' FAILED.``: critical; `fifo` is null.
 *
 * Threads: any thread at any time. It takes no lock, so the result may be out of date immediately.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * int sample = 21;
 * GFifo *fifo = g_fifo_new(1);
 * if (fifo == NULL) return 1;
 * g_fifo_put(fifo, &sample);
 * printf("%d\n", g_fifo_full(fifo)); // prints: 1
 * g_fifo_free(fifo);
 * @endcode
 */
G_API int g_fifo_full(GFifo* fifo);

/**
 * Puts an element into a ring buffer. Never blocks, never overwrites.
 *
 * @param fifo   from g_fifo_new().
 * @param _data  the element, not null. The ring stores the pointer and does not own what it points
 *               to; the consumer that gets it may take over ownership.
 * @return 0; -1, with the ring unchanged, when the ring is full or an argument is null.
 *
 * @par Errors
 * - ``'fifo != NULL' FAILED.``: critical; `fifo` is null.
 * - ``'_data != NULL' FAILED.``: critical; `_data` is null.
 * - ``fifo(%p) is full, failed to put.``: warning, with the address of the ring; no slot is free.
 *
 * Threads: one producer may run at the same time as one consumer. Several producers must take
 * turns.
 *
 * @par Notes
 * Two producers at the same time can both find the last free slot: one element is then refused.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * int first = 1, second = 2;
 * GFifo *fifo = g_fifo_new(1);
 * if (fifo == NULL) return 1;
 * printf("%d\n", g_fifo_put(fifo, &first));  // prints: 0
 * printf("%d\n", g_fifo_put(fifo, &second)); // prints: -1
 * g_fifo_free(fifo);
 * @endcode
 */
G_API int g_fifo_put(GFifo* fifo, void* _data);

/**
 * Takes the oldest element out of a ring buffer. Never blocks.
 *
 * @param fifo  from g_fifo_new().
 * @return the element, which is no longer in the ring; null when the ring is empty or `fifo` is
 *         null.
 *
 * @par Errors
 * - ``'fifo != NULL' FAILED.``: critical; `fifo` is null.
 * - ``fifo(%p) is empty, failed to get.``: warning, with the address of the ring; it holds no
 *   element.
 *
 * Threads: one consumer may run at the same time as one producer. Several consumers must take
 * turns.
 *
 * @par Notes
 * - To poll without log lines, ask g_fifo_empty() first.
 * - Two consumers at the same time can both find the last element: one then gets null.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * int sample = 21;
 * GFifo *fifo = g_fifo_new(8);
 * if (fifo == NULL) return 1;
 * g_fifo_put(fifo, &sample);
 * printf("%d\n", *(int *)g_fifo_get(fifo)); // prints: 21
 * g_fifo_free(fifo);
 * @endcode
 */
G_API void* g_fifo_get(GFifo* fifo);

/**
 * Empties a ring buffer: takes the elements out one by one and frees each with free(). Elements
 * that a producer puts during the call are freed, too.
 *
 * @param fifo  from g_fifo_new().
 * @return 0; -1 when `fifo` is null.
 *
 * @par Errors
 * - ``'fifo != NULL' FAILED.``: critical; `fifo` is null.
 *
 * Threads: flushing is consuming. It may run at the same time as one producer, but takes turns with
 * other consumers.
 *
 * @par Notes
 * An element that is not from malloc() crashes the process. Get such elements one by one until the
 * ring is empty.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GFifo *fifo = g_fifo_new(8);
 * if (fifo == NULL) return 1;
 * g_fifo_put(fifo, g_strdup("21.5"));
 * g_fifo_flush(fifo);
 * printf("%d\n", g_fifo_count(fifo)); // prints: 0
 * g_fifo_free(fifo);
 * @endcode
 */
G_API int g_fifo_flush(GFifo* fifo);

/**
 * Counts the elements in a ring buffer.
 *
 * @param fifo  from g_fifo_new().
 * @return the number of elements; -1 when `fifo` is null.
 *
 * @par Errors
 * - ``'fifo != NULL' FAILED.``: critical; `fifo` is null.
 *
 * Threads: any thread at any time. It takes no lock, so the result may be out of date immediately.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * int sample = 21;
 * GFifo *fifo = g_fifo_new(8);
 * if (fifo == NULL) return 1;
 * g_fifo_put(fifo, &sample);
 * printf("%d\n", g_fifo_count(fifo)); // prints: 1
 * g_fifo_free(fifo);
 * @endcode
 */
G_API int g_fifo_count(GFifo* fifo);

/**
 * Counts the free slots of a ring buffer.
 *
 * @param fifo  from g_fifo_new().
 * @return the number of free slots; -1 when `fifo` is null.
 *
 * @par Errors
 * - ``'fifo != NULL' FAILED.``: critical; `fifo` is null.
 *
 * Threads: any thread at any time. It takes no lock, so the result may be out of date immediately.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * int sample = 21;
 * GFifo *fifo = g_fifo_new(8);
 * if (fifo == NULL) return 1;
 * g_fifo_put(fifo, &sample);
 * printf("%d\n", g_fifo_avail(fifo)); // prints: 7
 * g_fifo_free(fifo);
 * @endcode
 */
G_API int g_fifo_avail(GFifo* fifo);

/**
 * Returns the capacity of a ring buffer.
 *
 * @param fifo  from g_fifo_new().
 * @return the capacity in elements; -1 when `fifo` is null.
 *
 * @par Errors
 * - ``'fifo != NULL' FAILED.``: critical; `fifo` is null.
 *
 * Threads: any thread at any time; the capacity never changes.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * int sample = 21;
 * GFifo *fifo = g_fifo_new(8);
 * if (fifo == NULL) return 1;
 * g_fifo_put(fifo, &sample);
 * printf("%d\n", g_fifo_size(fifo)); // prints: 8
 * g_fifo_free(fifo);
 * @endcode
 */
G_API int g_fifo_size(GFifo* fifo);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
