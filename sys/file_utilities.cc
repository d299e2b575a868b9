// Whole files by path: remove, rename, touch, copy.
//
// SPDX-License-Identifier: MIT

#include <groundwork/file.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <unistd.h>

#include "core/cancellation.h"
#include "core/check.h"
#include "sys/descriptors.h"
#include "sys/file_handle.h"

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_file";
constexpr int kCopySize = 8192;

struct CopiedFiles {
  GFile from = kClosed;
  GFile to = kClosed;
};

void close_both(void* files) {
  auto* const opened = static_cast<CopiedFiles*>(files);
  close_file(&opened->to);
  close_file(&opened->from);
}

// Returns whether everything that was read was written.
// Kept: a read error ends the copy like the end of the file.
bool copy_content(GFile* from, GFile* to) {
  char buf[kCopySize];
  for (;;) {
    const int64_t count = g_file_read(from, buf, kCopySize);
    if (count < 1) return true;
    if (g_file_write(to, buf, count) != count) return false;
  }
}

}  // namespace

extern "C" int g_file_remove(const char* path) {
  if (unlink(path) == 0) return 0;
  g_log(G_LOG_WARNING, kSource, __LINE__, "%s - %s.", std::strerror(errno), path);
  return -1;
}

extern "C" int g_file_rename(const char* old_path, const char* new_path) {
  if (rename(old_path, new_path) == 0) return 0;
  g_log(G_LOG_WARNING, kSource, __LINE__, "%s - (%s -> %s).", std::strerror(errno),
        old_path, new_path);
  return -1;
}

// Kept: only descriptor 0 counts as a failure. Callers touch paths that cannot be created,
// and rely on the result of 0 even for a descriptor of -1.
extern "C" int g_file_touch(const char* filename) {
  CHECK_ARG(filename != NULL, -1);
  const int descriptor = above_output(open(filename, O_RDONLY | O_CREAT | O_CLOEXEC, 0644));
  const CancellationHeld held;
  close(descriptor);
  return descriptor != 0 ? 0 : -1;
}

extern "C" int g_file_copy(const char* old_path, const char* new_path) {
  CHECK_ARG(old_path != NULL, -1);
  CHECK_ARG(new_path != NULL, -1);
  CopiedFiles files;
  bool copied = false;
  with_cleanup(close_both, &files, [&] {
    if (!open_file(files.from, old_path, 0) || !open_file(files.to, new_path, 2)) return;
    copied = copy_content(&files.from, &files.to);
    if (copied) return;
    g_log(G_LOG_WARNING, kSource, __LINE__, "failed to write file from '%s' to '%s'.",
          old_path, new_path);
  });
  close_both(&files);
  return copied ? 0 : -1;
}
