// Collects what the library logs.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SUPPORT_LOG_CAPTURE_H
#define GROUNDWORK_TESTS_SUPPORT_LOG_CAPTURE_H

#include <string>
#include <vector>

namespace test {

// While alive, takes every line through the output handler, with the threshold at `level`
// and no package name. Restores threshold, handler and name afterwards. Lines may come from
// any thread.
class LogCapture {
 public:
  explicit LogCapture(int level = 3);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // The lines so far, with each source line number replaced by "#":
  // "g_mem:#: [CRITICAL] 'size > 0' FAILED.". Forgets them.
  std::vector<std::string> take();

 private:
  int former_level_;
  std::string former_package_;
};

// The line of a failed argument check, in the form of LogCapture::take().
std::string check_line(const std::string& source, const std::string& expression);

// A warning of a module, in the same form.
std::string warning_line(const std::string& source, const std::string& message);

}  // namespace test

#endif
