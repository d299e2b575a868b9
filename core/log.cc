// Diagnostics: threshold, line format, output hook. Allocates nothing, so that it works
// when memory is exhausted. Threshold and handler are relaxed atomics: any thread may log
// while another changes them; they order nothing else.
//
// SPDX-License-Identifier: MIT

#include <groundwork/log.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>

#include <groundwork/package.h>

#include "core/check.h"

namespace {

constexpr auto relaxed = std::memory_order_relaxed;

constexpr size_t kLineSize = 1592;   // message and line, terminator included
constexpr size_t kPrintSize = 1024;  // g_print's text before the cut
constexpr size_t kPrintCut = 1020;   // g_print emits at most 1019 bytes

std::atomic<int> threshold{G_LOG_WARNING};
std::atomic<GLogHandler> output_handler{nullptr};
std::atomic<void*> handler_argument{nullptr};

struct Marker {
  char path[20];
  int level;
};

// The more verbose file wins when several exist.
constexpr Marker kMarkers[] = {
    {"/tmp/vk_debug", G_LOG_DEBUG},
    {"/tmp/vk_message", G_LOG_MESSAGE},
    {"/tmp/vk_information", G_LOG_INFORMATION},
    {"/tmp/vk_warning", G_LOG_WARNING},
    {"/tmp/vk_error", G_LOG_ERROR},
};

bool is_regular_file(const char* path) {
  struct stat status;
  return stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

int emit(GLogHandler handler, const char* text) {
  if (handler != nullptr) return handler(text, handler_argument.load(relaxed));
  return std::fputs(text, stderr);
}

bool shows_location(int level) {
  return level == G_LOG_DEBUG || level == G_LOG_INFORMATION || level == G_LOG_WARNING ||
         level == G_LOG_ERROR;
}

const char* tag_of(int level) {
  switch (level) {
    case G_LOG_WARNING:
      return "[WARNING] ";
    case G_LOG_ERROR:
      return "[CRITICAL] ";
    default:
      return "";
  }
}

// Appends as much of `text` as fits, leaving room for the terminator.
size_t append(char (&line)[kLineSize], size_t length, const char* text) {
  const size_t count = strnlen(text, kLineSize - 1 - length);
  std::memcpy(line + length, text, count);
  return length + count;
}

}  // namespace

int groundwork::report_failed_check(const char* source, int line, const char* expression) {
  return g_log(G_LOG_ERROR, source, line, "'%s' FAILED.", expression);
}

extern "C" void g_debug_init(void) {
  int level = G_LOG_SILENT;
  for (const Marker& marker : kMarkers) {
    if (is_regular_file(marker.path)) {
      level = marker.level;
      break;
    }
  }
  threshold.store(level, relaxed);
  g_print("[%s]: USING DEBUGLEVEL : %d\n", "g_debug_init", level);
}

extern "C" void g_debug_set_level2(int level) {
  threshold.store(level, relaxed);
}

// Kept: programs call this with levels that must have no effect.
extern "C" void g_debug_set_level(int) {}

extern "C" int g_debug_get_level(void) {
  return threshold.load(relaxed);
}

extern "C" void g_debug_set_handler(GLogHandler handler, void* arg) {
  handler_argument.store(arg, relaxed);
  output_handler.store(handler, relaxed);
}

// Has no buffer for the stack protector to guard, which would take a suppressed line half
// of its time on ARM.
extern "C" __attribute__((no_stack_protector)) int g_log(int level, const char* file,
                                                         int line, const char* fmt, ...) {
  if (level < threshold.load(relaxed)) return 1;
  va_list ap;
  va_start(ap, fmt);
  const int result = g_logv(level, file, line, fmt, ap);
  va_end(ap);
  return result;
}

extern "C" int g_logv(int level, const char* file, int line, const char* fmt, va_list ap) {
  if (level < threshold.load(relaxed)) return 1;

  char message[kLineSize];
  message[0] = '\0';
  std::vsnprintf(message, sizeof message, fmt, ap);

  char text[kLineSize];
  size_t length = append(text, 0, g_package_name);
  if (length != 0) length = append(text, length, ": ");
  if (shows_location(level)) {
    const size_t room = sizeof text - length;
    const int printed = std::snprintf(text + length, room, "%s:%d: ", file, line);
    if (printed > 0) {
      length +=
          static_cast<size_t>(printed) < room ? static_cast<size_t>(printed) : room - 1;
    }
  }
  length = append(text, length, tag_of(level));
  length = append(text, length, message);

  // A handler gets the line without a newline. A line that fills the buffer has none,
  // either.
  const GLogHandler handler = output_handler.load(relaxed);
  if (handler == nullptr) length = append(text, length, "\n");
  text[length] = '\0';
  return emit(handler, text);
}

extern "C" void g_print(const char* fmt, ...) {
  char text[kPrintSize];
  text[0] = '\0';
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(text, sizeof text, fmt, ap);
  va_end(ap);
  // Kept: programs rely on the cut at 1019 bytes, although the buffer holds more.
  text[kPrintCut - 1] = '\0';
  emit(output_handler.load(relaxed), text);
}

extern "C" void test_out(void) {}
