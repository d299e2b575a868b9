// Compares what the library did with what a model says.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_FUZZ_SUPPORT_CHECK_H
#define GROUNDWORK_FUZZ_SUPPORT_CHECK_H

#include <cstdio>
#include <cstdlib>
#include <string>
#include <type_traits>

namespace fuzz {

template <typename T>
std::string shown(const T& value) {
  if constexpr (std::is_same_v<T, std::nullptr_t>) {
    return "null";
  } else if constexpr (std::is_pointer_v<T>) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", static_cast<const void*>(value));
    return text;
  } else if constexpr (std::is_arithmetic_v<T>) {
    return std::to_string(value);
  } else {
    std::string text = "\"";
    for (const char c : value) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped,
                    c >= ' ' && c <= '~' && c != '"' && c != '\\' ? "%c" : "\\x%02x",
                    static_cast<unsigned char>(c));
      text += escaped;
    }
    return text + "\" (" + std::to_string(value.size()) + " bytes)";
  }
}

// Ends the process with a core signal, which fuzzer and replay both take for a finding.
[[noreturn]] inline void fail(const char* file, int line, const std::string& message) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s:%d: %s\n", file, line, message.c_str());
  std::abort();
}

template <typename A, typename B>
void require_equal(const char* file, int line, const char* what, const A& library,
                   const B& model) {
  if (library == model) [[likely]]
    return;
  fail(file, line,
       std::string(what) + "\n  library: " + shown(library) +
           "\n  model:   " + shown(model));
}

}  // namespace fuzz

// What the library gave, and what it should have given.
#define REQUIRE_EQUAL(library, model) \
  ::fuzz::require_equal(__FILE__, __LINE__, #library " is not " #model, library, model)

#define REQUIRE(condition)                                                  \
  do {                                                                      \
    if (!(condition)) ::fuzz::fail(__FILE__, __LINE__, "not: " #condition); \
  } while (0)

#endif
