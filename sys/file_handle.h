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

// Closes such a file, if it is open. Serves as a cleanup handler; its address takes no
// relocation, as it is known to be hidden.
[[gnu::visibility("hidden")]] void close_file(void* file);

}  // namespace groundwork

#endif
