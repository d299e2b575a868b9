// The definition of GFile, and files that are open only during a call: these need no block
// of the heap.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SYS_FILE_HANDLE_H
#define GROUNDWORK_SYS_FILE_HANDLE_H

#include <groundwork/file.h>

struct GFile {
  int descriptor;
};
static_assert(sizeof(GFile) == sizeof(int));

namespace groundwork {

// g_file_open() with a handle of the caller's. Returns true on success.
bool open_file(GFile& file, const char* filename, int mode);

inline constexpr GFile kClosed = {-1};

// Closes such a file, if it is open. Serves as a cleanup handler.
void close_file(void* file);

// Cleanup handler for pthread_cleanup_push(): closes the file of a cancelled thread.
inline void close_cancelled_file(void* file) {
  g_file_close(static_cast<GFile*>(file));
}

}  // namespace groundwork

#endif
