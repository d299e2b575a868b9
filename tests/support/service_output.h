// What the timer service prints, out of the way.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SUPPORT_SERVICE_OUTPUT_H
#define GROUNDWORK_TESTS_SUPPORT_SERVICE_OUTPUT_H

#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace test {

// While alive, standard output goes to a file; what is not of the timer service, such as
// the report of a failure, is printed in the end.
class ServiceOutputHidden {
 public:
  ServiceOutputHidden() : file_(std::tmpfile()), own_(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    dup2(fileno(file_), STDOUT_FILENO);
  }

  ~ServiceOutputHidden() {
    std::fflush(stdout);
    dup2(own_, STDOUT_FILENO);
    close(own_);
    std::rewind(file_);
    for (char line[512]; std::fgets(line, sizeof line, file_) != nullptr;) {
      if (std::strncmp(line, "g_timer:", 8) != 0) std::fputs(line, stdout);
    }
    std::fclose(file_);
  }

  ServiceOutputHidden(const ServiceOutputHidden&) = delete;
  ServiceOutputHidden& operator=(const ServiceOutputHidden&) = delete;

 private:
  std::FILE* const file_;
  const int own_;
};

}  // namespace test

#endif
