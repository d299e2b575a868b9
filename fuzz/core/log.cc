// Log lines against a model: the threshold, prefix, tag and cut of each line, what reaches
// the handler or standard error, and what is returned. Formats with matching arguments; the
// package name and the handler change on the way.
//
// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <groundwork/package.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/support/check.h"
#include "fuzz/support/input.h"

namespace {

struct Handled {
  int count = 0;
  std::string text;
  int result = 0;
};

int handle(const char* text, void* arg) {
  auto& handled = *static_cast<Handled*>(arg);
  ++handled.count;
  handled.text = text;
  return handled.result;
}

// Standard error in a file, as long as a line is logged without a handler.
class StandardError {
 public:
  StandardError() : file_(memfd_create("log", MFD_CLOEXEC)), own_(dup(STDERR_FILENO)) {
    REQUIRE(file_ >= 0 && own_ >= 0);
  }
  ~StandardError() {
    close(file_);
    close(own_);
  }
  template <typename Action>
  std::string written_by(Action action) {
    dup2(file_, STDERR_FILENO);
    action();
    dup2(own_, STDERR_FILENO);
    std::string text(8192, '\0');
    const ssize_t count = pread(file_, text.data(), text.size(), 0);
    REQUIRE(count >= 0 && ftruncate(file_, 0) == 0);
    lseek(file_, 0, SEEK_SET);
    text.resize(static_cast<size_t>(count));
    return text;
  }

 private:
  const int file_;
  const int own_;
};

std::string formatted(const char* format, ...) {
  std::va_list list;
  va_start(list, format);
  char text[8192];
  std::vsnprintf(text, sizeof text, format, list);
  va_end(list);
  return text;
}

int log_by_list(int level, const char* file, int line, const char* format, ...) {
  std::va_list list;
  va_start(list, format);
  const int result = g_logv(level, file, line, format, list);
  va_end(list);
  return result;
}

std::string without_nul(const std::string& text) {
  return text.substr(0, text.find('\0'));
}

// A line as it leaves: 1591 bytes at most, the newline among them.
std::string line_of(const std::string& package, int level, const std::string& file,
                    int line, const std::string& message, bool has_handler) {
  std::string text = package;
  if (!text.empty()) text += ": ";
  if (level == 0 || (level >= 2 && level <= 4))
    text += file + ":" + std::to_string(line) + ": ";
  if (level == 3) text += "[WARNING] ";
  if (level == 4) text += "[CRITICAL] ";
  text += message.substr(0, 1591);
  if (!has_handler) text += "\n";
  return text.substr(0, 1591);
}

// What was set, in the library and for the model.
struct Settings {
  int threshold = 3;
  std::string package;
  bool has_handler = false;
  Handled handled;
};

void change_setting(fuzz::Input& input, uint8_t operation, Settings& settings) {
  switch (operation % 8) {
    case 0:
      settings.threshold =
          (operation & 0x80) != 0 ? input.int32() : static_cast<int8_t>(input.byte());
      g_debug_set_level2(settings.threshold);
      REQUIRE_EQUAL(g_debug_get_level(), settings.threshold);
      break;
    case 1:
      g_debug_set_level(input.int32());
      REQUIRE_EQUAL(g_debug_get_level(), settings.threshold);
      break;
    case 2:
      settings.has_handler = (operation & 0x80) == 0;
      settings.handled.result = input.int32();
      g_debug_set_handler(settings.has_handler ? handle : nullptr, &settings.handled);
      break;
    default:
      settings.package = without_nul(input.field('\n'));
      g_package_set_name(settings.package.c_str());
      settings.package = settings.package.substr(0, 20);
      break;
  }
}

// A call of one of the logging functions.
struct LogCall {
  enum Function { kLog, kLogv, kPrint } function;
  int level;
  int line;
  std::string file;
  std::string argument;  // percent signs in it are no conversions
  uint8_t format;
  int number;
};

LogCall call_from(fuzz::Input& input, uint8_t operation) {
  LogCall call;
  call.function = operation % 8 == 7   ? LogCall::kPrint
                  : operation % 8 == 6 ? LogCall::kLogv
                                       : LogCall::kLog;
  call.level =
      (operation & 0x40) != 0 ? input.int32() : static_cast<int8_t>(input.byte()) % 7;
  call.line = input.int32();
  call.file = without_nul(input.field('\n'));
  const int repeat = 1 + input.byte() * 16;
  const std::string piece = without_nul(input.field('\n'));
  while (call.argument.size() < static_cast<size_t>(repeat) && !piece.empty()) {
    call.argument += piece;
  }
  call.argument = call.argument.substr(0, 4000);
  call.format = input.byte();
  call.number = input.int32();
  return call;
}

// Makes the call and returns its result, 0 for g_print(), which has none. `message` becomes
// the formatted text.
int make(const LogCall& call, std::string& message) {
  const auto emit = [&](const char* format, auto... arguments) {
    message = formatted(format, arguments...);
    switch (call.function) {
      case LogCall::kPrint:
        g_print(format, arguments...);
        return 0;
      case LogCall::kLogv:
        return log_by_list(call.level, call.file.c_str(), call.line, format, arguments...);
      default:
        return g_log(call.level, call.file.c_str(), call.line, format, arguments...);
    }
  };
  const char* const argument = call.argument.c_str();
  const int number = call.number;
  switch (call.format % 6) {
    case 0:
      return emit("%s", argument);
    case 1:
      return emit("%d: %s, %x%%", number, argument, number);
    case 2:
      return emit("%*d|%-30s|", number % 2000, number, argument);
    case 3:
      return emit("%.20s%c%5.3f", argument, 'x', number / 8.0);
    case 4:
      return emit("%lld %s %p", static_cast<long long>(number) << 20, argument,
                  static_cast<const void*>(&call));
    default:
      return emit("nothing");
  }
}

void make_and_compare(const LogCall& call, Settings& settings) {
  static StandardError standard_error;
  Handled& handled = settings.handled;
  handled.count = 0;
  handled.text.clear();
  std::string message;
  int result = 0;
  const std::string written =
      standard_error.written_by([&] { result = make(call, message); });

  const bool is_print = call.function == LogCall::kPrint;
  const bool is_emitted = is_print || call.level >= settings.threshold;
  const std::string expected = !is_emitted ? ""
                               : is_print
                                   ? message.substr(0, 1019)
                                   : line_of(settings.package, call.level, call.file,
                                             call.line, message, settings.has_handler);
  REQUIRE_EQUAL(written, settings.has_handler ? "" : expected);
  REQUIRE_EQUAL(handled.text, settings.has_handler ? expected : "");
  REQUIRE_EQUAL(handled.count, settings.has_handler && is_emitted ? 1 : 0);
  if (is_print) return;
  if (!is_emitted) {
    REQUIRE_EQUAL(result, 1);
  } else if (settings.has_handler) {
    REQUIRE_EQUAL(result, handled.result);
  } else {
    REQUIRE(result >= 0);
  }
}

// The settings of a process that has just begun.
void reset() {
  g_debug_set_handler(nullptr, nullptr);
  g_debug_set_level2(3);
  g_package_set_name("");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  Settings settings;
  reset();
  while (!input.empty()) {
    const uint8_t operation = input.byte();
    if (operation % 8 < 4) {
      change_setting(input, operation, settings);
    } else {
      make_and_compare(call_from(input, operation), settings);
    }
  }
  reset();
  return 0;
}
