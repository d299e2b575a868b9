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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  static StandardError standard_error;
  Handled handled;
  bool has_handler = false;
  int threshold = 3;
  std::string package;
  g_debug_set_level2(threshold);
  g_debug_set_handler(nullptr, nullptr);
  g_package_set_name("");
  while (!input.empty()) {
    const uint8_t operation = input.byte();
    switch (operation % 8) {
      case 0:
        threshold =
            (operation & 0x80) != 0 ? input.int32() : static_cast<int8_t>(input.byte());
        g_debug_set_level2(threshold);
        REQUIRE_EQUAL(g_debug_get_level(), threshold);
        break;
      case 1:
        g_debug_set_level(input.int32());
        REQUIRE_EQUAL(g_debug_get_level(), threshold);
        break;
      case 2:
        has_handler = (operation & 0x80) == 0;
        handled.result = input.int32();
        g_debug_set_handler(has_handler ? handle : nullptr, &handled);
        break;
      case 3:
        package = without_nul(input.field('\n'));
        g_package_set_name(package.c_str());
        package = package.substr(0, 20);
        break;
      default: {
        const int level =
            (operation & 0x40) != 0 ? input.int32() : static_cast<int8_t>(input.byte()) % 7;
        const int line = input.int32();
        const std::string file = without_nul(input.field('\n'));
        const int repeat = 1 + input.byte() * 16;
        const std::string piece = without_nul(input.field('\n'));
        std::string argument;
        while (argument.size() < static_cast<size_t>(repeat) && !piece.empty())
          argument += piece;
        argument = argument.substr(0, 4000);
        // Percent signs in an argument are no conversions.
        const uint8_t kind = input.byte();
        const int number = input.int32();
        const bool is_print = operation % 8 == 7;
        int result = -12345;
        std::string message;
        const auto emit = [&](const char* format, auto... arguments) {
          message = formatted(format, arguments...);
          if (is_print) {
            g_print(format, arguments...);
          } else if (operation % 8 == 6) {
            result = log_by_list(level, file.c_str(), line, format, arguments...);
          } else {
            result = g_log(level, file.c_str(), line, format, arguments...);
          }
        };
        const auto act = [&] {
          switch (kind % 6) {
            case 0:
              return emit("%s", argument.c_str());
            case 1:
              return emit("%d: %s, %x%%", number, argument.c_str(), number);
            case 2:
              return emit("%*d|%-30s|", number % 2000, number, argument.c_str());
            case 3:
              return emit("%.20s%c%5.3f", argument.c_str(), 'x', number / 8.0);
            case 4:
              return emit("%lld %s %p", static_cast<long long>(number) << 20,
                          argument.c_str(), static_cast<const void*>(&package));
            default:
              return emit("nothing");
          }
        };
        handled.count = 0;
        handled.text.clear();
        const std::string written = standard_error.written_by(act);
        const bool is_emitted = is_print || level >= threshold;
        const std::string expected =
            !is_emitted ? ""
            : is_print  ? message.substr(0, 1019)
                        : line_of(package, level, file, line, message, has_handler);
        REQUIRE_EQUAL(written, has_handler ? "" : expected);
        REQUIRE_EQUAL(handled.text, has_handler ? expected : "");
        REQUIRE_EQUAL(handled.count, has_handler && is_emitted ? 1 : 0);
        if (is_print) break;
        if (!is_emitted) {
          REQUIRE_EQUAL(result, 1);
        } else if (has_handler) {
          REQUIRE_EQUAL(result, handled.result);
        } else {
          REQUIRE(result >= 0);
        }
        break;
      }
    }
  }
  g_debug_set_handler(nullptr, nullptr);
  g_debug_set_level2(3);
  g_package_set_name("");
  return 0;
}
