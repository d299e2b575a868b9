/* SPDX-License-Identifier: MIT */
/**
 * @defgroup file_map File maps
 * @ingroup system
 *
 * Files mapped into memory, shared with every other user of the file.
 *
 * A map covers one region of a file and can be moved to another. Offsets are the system's:
 * multiples of g_file_map_page_size(), which is not checked here; nor is it checked that
 * the region lies within the file (touching a page beyond its end raises SIGBUS). What the
 * system refuses is logged.
 *
 * Every function logs a failed check as critical.
 *
 * @warning Releasing a map, on unmapping and on moving, unmaps as many bytes as the number
 * of the file's descriptor says, not as the region is long: the first page, and nothing at
 * all when the descriptor is 0 (logged). The rest stays mapped until the process ends. To
 * give all of it back, munmap() the pages after the first, taken from
 * g_file_map_get_addr(), before the map is moved or unmapped.
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
 * @warning Only mode 0 can succeed. Any other opens the file write-only, and the system
 * refuses a shared mapping of a file that is not open for reading ("can't map file -
 * Permission denied").
 *
 * @warning Offset 0 with length 0 is the region that a new map starts with, so nothing is
 * mapped, the address is null and `*addr` is untouched.
 *
 * @param filename  not null; an existing file.
 * @param offset    in bytes from the start of the file.
 * @param length    in bytes; its low 32 bits are mapped.
 * @param mode      0 for memory to read, 1 to write, any other value for both.
 * @param addr      receives the address; may be null. Untouched on failure.
 * @return the map, which owns its file. Null on a failed check; when the file cannot be
 *         opened (logged by g_file_open(), then "can't open '%s' for file map.", a
 *         warning); or when g_file_remap() fails (logged there).
 */
G_API GFileMap* g_file_map(const char* filename, int64_t offset, int64_t length, int mode,
                           void** addr);

/**
 * Maps a region of an open file, or moves a map to another region of its own file.
 *
 * A map that covers exactly this offset and length already is returned as it is, whatever
 * the mode, and `*addr` is not written.
 *
 * @warning On failure the map given is freed, too, and must not be used again; its file
 * stays open. A map that was moved has lost the ownership of its file: if g_file_map()
 * made it, its file is not closed any more.
 *
 * @warning A new map at offset 0 of length 0 maps nothing, and its g_file_unmap() closes
 * `file`.
 *
 * @param map     null for a new one, which borrows `file`: keep it open until the map is
 *                unmapped, then close it.
 * @param file    not null; not used otherwise for an existing map.
 * @param offset  in bytes from the start of the file.
 * @param length  in bytes; its low 32 bits are mapped.
 * @param mode    0 for memory to read, 1 to write, any other value for both. The system
 *                wants a file open for reading, and for writing too where `mode` is not 0.
 * @param addr    receives the address; may be null. Untouched on failure.
 * @return the map. Null on a failed check (the map is then untouched); when the system
 *         refuses ("can't map file - %s", a warning); or when memory is exhausted
 *         ("failed to allocate %u bytes.", a warning).
 */
G_API GFileMap* g_file_remap(GFileMap* map, GFile* file, int64_t offset, int64_t length,
                             int mode, void** addr);

/** Unmaps a file and frees the map. Releases the mapping (see the warning above; "can't unmap
 *  file - %s", a warning, if the system refuses), closes the file if the map owns it, and frees the
 *  map.
 *  @param map not null. */
G_API void g_file_unmap(GFileMap* map);

/** Tells where a file map lies. @param map not null. @param length receives the region's length
 *  in bytes, all 64 bits as asked for; may be null. @return the region's address; null on a
 *  failed check. */
G_API void* g_file_map_get_addr(GFileMap* map, int64_t* length);

/** Tells the page size, the unit of the offsets of file maps. @return the system's page size in
 *  bytes. */
G_API int64_t g_file_map_page_size(void);

/**
 * Starts to write the changed pages of a file map back and drops copies that are out of date:
 * msync() with `MS_ASYNC | MS_INVALIDATE` over the low 32 bits of the length.
 *
 * @param map  not null.
 * @return 0; -1 on an error (`errno` set, nothing logged). On a failed check what g_log()
 *         returned: the log handler's result, usually not negative.
 */
G_API int g_file_map_sync(GFileMap* map);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
