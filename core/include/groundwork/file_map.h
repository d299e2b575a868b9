/* SPDX-License-Identifier: MIT */
/**
 * @defgroup file_map File maps
 * @ingroup system
 *
 * Files mapped into memory, shared with every other user of the file.
 *
 * A map covers one region of a file and can be moved to another. The system requires offsets that
 * are multiples of g_file_map_page_size(), which is not checked here. It is not checked either that
 * the region is within the file: touching a page past its end raises SIGBUS. What the system
 * refuses is logged.
 *
 * Every function logs a failed check as critical.
 *
 * @warning When a map is unmapped or moved, as many bytes are unmapped as the number of the file's
 * descriptor says, not as the region is long: the first page, and nothing at all when the
 * descriptor is 0 (logged). The rest stays mapped until the process ends. To release all of it,
 * munmap() the pages after the first, counted from g_file_map_get_addr(), before the map is moved
 * or unmapped.
 *
 * Threads: no shared state; callers that share a map lock around it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * void *view = NULL;
 * GFile *file = g_file_open("levels", 2);
 * if (file == NULL) return 1;
 * g_file_write(file, "low high", 8);
 * g_file_close(file);
 *
 * GFileMap *map = g_file_map("levels", 0, 8, 0, &view); // 0: to read
 * if (map == NULL) return 1;
 * printf("%.3s\n", (const char *)view); // prints: low
 * g_file_unmap(map);
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_FILE_MAP_H
#define GROUNDWORK_FILE_MAP_H

#include <stdint.h>

#include <groundwork/export.h>
#include <groundwork/file.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A mapped region; from g_file_map() or g_file_remap(), released with g_file_unmap(). */
typedef struct GFileMap GFileMap;

/**
 * Opens a file and maps a region of it.
 *
 * @param filename  path of an existing file; not null.
 * @param offset    in bytes from the start of the file, a multiple of the page size.
 * @param length    in bytes; its low 32 bits are mapped.
 * @param mode      0 to read, 1 to write, any other value for both; only 0 can succeed.
 * @param addr      receives the address; may be null. Untouched on failure.
 * @return the map, which owns the open file. The caller owns the map and releases it with
 *         g_file_unmap(). Null on failure.
 *
 * @par Errors
 * - ``'filename != NULL' FAILED.``: critical; `filename` is null.
 * - ``can't open file '%s' - %s``: warning, with the file name and the system's text; open()
 *   failed.
 * - ``can't open '%s' for file map.``: warning, with the file name; the file could not be opened.
 * - ``can't map file - %s``: warning, with the system's text; mmap() failed.
 * - ``can't unmap file - %s``: warning, with the system's text; the descriptor is 0, which does no
 *   harm here.
 * - ``failed to allocate %u bytes.``: warning; memory is exhausted.
 *
 * Threads: any thread.
 *
 * @par Notes
 * - Only mode 0 can succeed. Any other mode opens the file write-only, and the system refuses a
 *   shared mapping of a file that is not open for reading ("can't map file - Permission denied").
 *   For a writable map use mmap().
 * - With offset 0 and length 0, nothing is mapped: the result is a map, its address is null, and
 *   `*addr` is untouched.
 * - g_file_unmap() does not release all of the region: each map costs address space for the life of
 *   the process. Map once.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * void *view = NULL;
 * GFileMap *map = g_file_map("notes.txt", 0, 9, 0, &view);
 * if (map == NULL) return 1;            // the reason has been logged
 * printf("%.3s\n", (const char *)view); // prints: one
 * g_file_unmap(map);
 * @endcode
 */
G_API GFileMap* g_file_map(const char* filename, int64_t offset, int64_t length, int mode,
                           void** addr);

/**
 * Maps a region of an open file, or moves a map to another region of its own file.
 *
 * A map that already covers exactly this offset and length is returned as it is, whatever the mode,
 * and `*addr` is not written.
 *
 * @param map     null for a new map, which borrows `file`: keep the file open until the map is
 *                unmapped, then close it.
 * @param file    an open file; not null. Not used otherwise when `map` is not null.
 * @param offset  in bytes from the start of the file, a multiple of the page size.
 * @param length  in bytes; its low 32 bits are mapped.
 * @param mode    0 to read, 1 to write, any other value for both. The system requires a file that
 *                is open for reading, and for writing too if `mode` is not 0.
 * @param addr    receives the address; may be null. Untouched on failure.
 * @return the map, owned by the caller and released with g_file_unmap(). Null when `file` is null
 *         (the map is then untouched), when the system refuses, or when memory is exhausted.
 *
 * @par Errors
 * - ``'file != NULL' FAILED.``: critical; `file` is null.
 * - ``can't map file - %s``: warning, with the system's text; mmap() failed.
 * - ``can't unmap file - %s``: warning, with the system's text; munmap() of the old region failed,
 *   which happens when the descriptor is 0.
 * - ``failed to allocate %u bytes.``: warning; memory is exhausted.
 *
 * Threads: any thread; callers that share a map lock around it.
 *
 * @par Notes
 * - When mmap() fails, the caller's map is freed, too, and must not be used again; its file stays
 *   open.
 * - A map that was moved no longer owns its file: if g_file_map() made it, the file is never
 *   closed.
 * - A new map with offset 0 and length 0 maps nothing, and g_file_unmap() of it closes `file`.
 * - Moving releases one page of the old region; the rest stays mapped until the process ends.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * void *view = NULL;
 * GFile *file = g_file_open("notes.txt", 0);
 * if (file == NULL) return 1;
 * GFileMap *map = g_file_remap(NULL, file, 0, 9, 0, &view);
 * if (map != NULL) printf("%.3s\n", (const char *)view); // prints: one
 * if (map != NULL) g_file_unmap(map);
 * g_file_close(file);
 * @endcode
 */
G_API GFileMap* g_file_remap(GFileMap* map, GFile* file, int64_t offset, int64_t length,
                             int mode, void** addr);

/**
 * Unmaps a file, closes the file if the map owns it, and frees the map.
 *
 * @param map  from g_file_map() or g_file_remap(), invalid afterwards; null is logged.
 *
 * @par Errors
 * - ``'map != NULL' FAILED.``: critical; `map` is null.
 * - ``can't unmap file - %s``: warning, with the system's text; munmap() failed, which happens when
 *   the descriptor is 0.
 *
 * Threads: no other thread may use the map during the call or afterwards.
 *
 * @par Notes
 * As many bytes are unmapped as the number of the file's descriptor says: the first page. The rest
 * stays mapped until the process ends; munmap() it before this call to release it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GFileMap *map = g_file_map("notes.txt", 0, 9, 0, NULL);
 * if (map == NULL) return 1;
 * g_file_unmap(map); // closes the file, too
 * @endcode
 */
G_API void g_file_unmap(GFileMap* map);

/**
 * Returns the address and the length of a file map.
 *
 * @param map     from g_file_map() or g_file_remap(); not null.
 * @param length  receives the length of the region in bytes, all 64 bits as requested; may be null.
 * @return the address of the region, null when nothing is mapped, or when `map` is null.
 *
 * @par Errors
 * - ``'map != NULL' FAILED.``: critical; `map` is null.
 *
 * Threads: any thread; callers that share a map lock around it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * int64_t length = 0;
 * GFileMap *map = g_file_map("notes.txt", 0, 9, 0, NULL);
 * if (map == NULL) return 1;
 * const char *text = g_file_map_get_addr(map, &length);
 * printf("%.3s of %d bytes\n", text, (int)length); // prints: one of 9 bytes
 * g_file_unmap(map);
 * @endcode
 */
G_API void* g_file_map_get_addr(GFileMap* map, int64_t* length);

/**
 * Returns the page size of the system. Offsets of file maps are multiples of it.
 *
 * @return the page size in bytes.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * int64_t page = g_file_map_page_size();
 * int64_t offset = 10000 / page * page; // the page that holds byte 10000
 * if (offset <= 10000) puts("a whole number of pages"); // prints: a whole number of pages
 * @endcode
 */
G_API int64_t g_file_map_page_size(void);

/**
 * Starts writing the changed pages of a file map back to the file, and invalidates other copies of
 * them: msync() with `MS_ASYNC | MS_INVALIDATE` over the low 32 bits of the length.
 *
 * @param map  from g_file_map() or g_file_remap(); not null.
 * @return 0; -1 on an error, with the reason in `errno`, which is not logged. When `map` is null,
 *         what g_log() returned.
 *
 * @par Errors
 * - ``'map != NULL' FAILED.``: critical; `map` is null.
 * - `EINVAL`: the address is not a multiple of the page size.
 * - `EBUSY`: pages of the region are locked in memory.
 * - `ENOMEM`: a part of the region is not mapped.
 *
 * Threads: any thread; callers that share a map lock around it.
 *
 * @par Notes
 * The call does not wait until the pages are written. When `map` is null the result is that of the
 * log handler, which may look like success.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GFileMap *map = g_file_map("notes.txt", 0, 9, 0, NULL);
 * if (map == NULL) return 1;
 * if (g_file_map_sync(map) == -1) perror("notes.txt");
 * g_file_unmap(map);
 * @endcode
 */
G_API int g_file_map_sync(GFileMap* map);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
