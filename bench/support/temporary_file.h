// A file of the benchmark's own, removed in the end.
//
// SPDX-License-Identifier: MIT

#ifndef GROUNDWORK_BENCH_SUPPORT_TEMPORARY_FILE_H
#define GROUNDWORK_BENCH_SUPPORT_TEMPORARY_FILE_H

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

namespace groundwork::bench {

class TemporaryFile {
 public:
  explicit TemporaryFile(std::string_view text) {
    const int descriptor = mkstemp(path_.data());
    if (descriptor < 0) {
      std::perror(path_.c_str());
      std::exit(1);
    }
    close(descriptor);
    std::ofstream(path_, std::ios::binary) << text;
  }
  ~TemporaryFile() { unlink(path_.c_str()); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  const char* path() const { return path_.c_str(); }
  std::string text() const {
    std::ostringstream text;
    text << std::ifstream(path_, std::ios::binary).rdbuf();
    return text.str();
  }

 private:
  static std::string folder() {
    const char* const named = std::getenv("TMPDIR");
    return named != nullptr ? named : "/tmp";
  }

  std::string path_ = folder() + "/groundwork-bench-XXXXXX";
};

}  // namespace groundwork::bench

#endif
