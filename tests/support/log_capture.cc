// SPDX-License-Identifier: MIT

#include "support/log_capture.h"

#include <groundwork/log.h>
#include <groundwork/package.h>

#include <cctype>
#include <mutex>
#include <utility>

namespace {

std::mutex lines_mutex;
std::vector<std::string> lines;

int collect(const char* text, void*) {
  const std::lock_guard<std::mutex> lock(lines_mutex);
  lines.emplace_back(text);
  return 0;
}

// "source:12: rest" becomes "source:#: rest".
std::string without_line_number(const std::string& line) {
  size_t at = 0;
  while (at < line.size() && (std::isalpha(line[at]) != 0 || line[at] == '_')) ++at;
  if (at == 0 || at == line.size() || line[at] != ':') return line;
  size_t end = ++at;
  while (end < line.size() && std::isdigit(line[end]) != 0) ++end;
  if (end == at || line.compare(end, 2, ": ") != 0) return line;
  return line.substr(0, at) + "#" + line.substr(end);
}

}  // namespace

namespace test {

LogCapture::LogCapture(int level)
    : former_level_(g_debug_get_level()), former_package_(g_package_name) {
  {
    const std::lock_guard<std::mutex> lock(lines_mutex);
    lines.clear();
  }
  g_package_set_name("");
  g_debug_set_level2(level);
  g_debug_set_handler(collect, nullptr);
}

LogCapture::~LogCapture() {
  g_debug_set_handler(nullptr, nullptr);
  g_debug_set_level2(former_level_);
  g_package_set_name(former_package_.c_str());
}

std::vector<std::string> LogCapture::take() {
  std::vector<std::string> taken;
  {
    const std::lock_guard<std::mutex> lock(lines_mutex);
    taken = std::exchange(lines, {});
  }
  for (std::string& line : taken) line = without_line_number(line);
  return taken;
}

std::string check_line(const std::string& source, const std::string& expression) {
  return source + ":#: [CRITICAL] '" + expression + "' FAILED.";
}

std::string warning_line(const std::string& source, const std::string& message) {
  return source + ":#: [WARNING] " + message;
}

}  // namespace test
