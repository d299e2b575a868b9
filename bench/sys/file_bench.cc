// Whole files in one call against NSPR and the bare system calls.
//
// SPDX-License-Identifier: MIT

#include <groundwork/file.h>

#include <fcntl.h>
#include <nspr.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/job.h"
#include "support/temporary_file.h"

using namespace groundwork::bench;

namespace {

constexpr size_t kCopyBuffer = 8192;  // as g_file_copy() has

// Two files that go with the measurement: one with content, one to copy into.
class Files {
 public:
  explicit Files(size_t size)
      : from_(std::string(size, 'x')), to_(std::string(from_.path()) + ".copy") {}
  ~Files() { unlink(to_.c_str()); }
  Files(const Files&) = delete;
  Files& operator=(const Files&) = delete;

  const char* from() const { return from_.path(); }
  const char* to() const { return to_.c_str(); }

 private:
  TemporaryFile from_;
  std::string to_;
};

char* read_ours(const char* path) {
  int64_t length;
  return g_file_read_buf(path, &length);
}

char* read_nspr(const char* path) {
  PRFileDesc* const file = PR_Open(path, PR_RDONLY, 0);
  PRFileInfo64 info;
  PR_GetOpenFileInfo64(file, &info);
  const auto size = static_cast<PRInt32>(info.size);
  char* const buf = static_cast<char*>(PR_Malloc(static_cast<PRUint32>(size) + 1));
  const PRInt32 count = PR_Read(file, buf, size);
  PR_Close(file);
  buf[count == size ? size : 0] = '\0';
  return buf;
}

char* read_bare(const char* path) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  struct stat status;
  fstat(fd, &status);
  char* const buf =
      static_cast<char*>(std::malloc(static_cast<size_t>(status.st_size) + 1));
  const ssize_t count = read(fd, buf, static_cast<size_t>(status.st_size));
  close(fd);
  buf[count > 0 ? count : 0] = '\0';
  return buf;
}

template <char* (*read_all)(const char*), void (*release)(void*)>
void read_buf(State& state) {
  const Files files(static_cast<size_t>(state.range(0)));
  char* const content = read_all(files.from());
  Digest digest;
  digest.add(content);
  release(content);
  for (auto _ : state) {
    char* const buf = read_all(files.from());
    DoNotOptimize(buf);
    release(buf);
  }
  report(state, 1, digest.value());
}

int copy_bare(const char* from, const char* to) {
  const int in = open(from, O_RDONLY | O_CLOEXEC);
  const int out = open(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  char buf[kCopyBuffer];
  int result = 0;
  ssize_t count;
  while (result == 0 && (count = read(in, buf, sizeof buf)) > 0) {
    if (write(out, buf, static_cast<size_t>(count)) != count) result = -1;
  }
  close(in);
  close(out);
  return result;
}

template <int (*copy_file)(const char*, const char*)>
void copy(State& state) {
  const Files files(static_cast<size_t>(state.range(0)));
  for (auto _ : state) DoNotOptimize(copy_file(files.from(), files.to()));
  char* const content = read_bare(files.to());
  Digest digest;
  digest.add(content);
  std::free(content);
  report(state, 1, digest.value());
}

}  // namespace

void groundwork::bench::register_jobs() {
  for (const int size : {1000, 100'000}) {
    job("file.read_buf", "ours", read_buf<read_ours, std::free>)->Arg(size);
    job("file.read_buf", "NSPR", read_buf<read_nspr, PR_Free>)->Arg(size);
    job("file.read_buf", "floor", read_buf<read_bare, std::free>)->Arg(size);
  }
  for (const int size : {1000, 100'000}) {
    job("file.copy", "ours", copy<g_file_copy>)->Arg(size);
    job("file.copy", "read+write", copy<copy_bare>)->Arg(size);
  }
}
