// The definition of GFile, for the modules that need its descriptor.
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

// Cleanup handler for pthread_cleanup_push(): closes the file of a cancelled thread.
inline void close_cancelled_file(void* file) {
  g_file_close(static_cast<GFile*>(file));
}

}  // namespace groundwork

#endif
