// Durable replacement of a file against the same by hand. In memory, where a sync takes no
// time: what is compared is the rest.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "support/job.h"

using namespace groundwork::bench;

namespace {

// A directory with the file to replace, removed in the end.
class Folder {
 public:
  explicit Folder(const std::string& content) {
    if (mkdtemp(path_.data()) == nullptr) {
      std::perror(path_.c_str());
      std::exit(1);
    }
    file_ = path_ + "/file";
    temporary_ = path_ + "/.file.new";
    std::ofstream(file_, std::ios::binary) << content;
  }
  ~Folder() {
    unlink(file_.c_str());
    rmdir(path_.c_str());
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const char* path() const { return path_.c_str(); }
  const char* file() const { return file_.c_str(); }
  const char* temporary() const { return temporary_.c_str(); }
  std::string content() const {
    std::ifstream file(file_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  static std::string base() {
    return access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : "/tmp";
  }

  std::string path_ = base() + "/groundwork-bench-XXXXXX";
  std::string file_;
  std::string temporary_;
};

int replace_ours(const Folder& folder, const std::string& content) {
  return g_file_replace(folder.file(), content.data(),
                        static_cast<int64_t>(content.size()));
}

// For one writer, a file in the working directory's reach and a mode that nobody changed.
int replace_bare(const Folder& folder, const std::string& content) {
  const int file = open(folder.temporary(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (write(file, content.data(), content.size()) != static_cast<ssize_t>(content.size()) ||
      fsync(file) != 0 || close(file) != 0) {
    std::abort();
  }
  if (rename(folder.temporary(), folder.file()) != 0) std::abort();
  const int directory = open(folder.path(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const int result = fsync(directory);
  close(directory);
  return result;
}

template <int (*replace_file)(const Folder&, const std::string&)>
void replace(State& state) {
  const Folder folder("old");
  const std::string content(static_cast<size_t>(state.range(0)), 'x');
  for (auto _ : state) {
    if (replace_file(folder, content) != 0) std::abort();
  }
  Digest digest;
  digest.add(folder.content());
  report(state, 1, digest.value());
}

}  // namespace

void groundwork::bench::register_jobs() {
  for (const int size : {1000, 100'000}) {
    job("replace", "ours", replace<replace_ours>)->Arg(size);
    job("replace", "write+rename", replace<replace_bare>)->Arg(size);
  }
}
