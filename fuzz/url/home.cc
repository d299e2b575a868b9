// Home directories put for "~" and back, against a model. Users are invented here.
//
// SPDX-License-Identifier: MIT

#include <groundwork/url.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <string>

#include <pwd.h>
#include <unistd.h>

#include "fuzz/support/buffer.h"
#include "fuzz/support/check.h"
#include "fuzz/support/input.h"

namespace {

constexpr size_t kLongest = 8191;

std::map<std::string, std::string> users;  // and their home directories

// What a call gave: text in its buffer, or a pointer into what it was given.
struct Result {
  std::string text;
  std::optional<size_t> offset;  // into the argument
};

Result model_expanded(const std::string& path, const std::optional<std::string>& home) {
  if (!path.starts_with('~')) return {path, 0};
  const size_t slash = std::min(path.find('/'), path.size());
  const std::string rest = path.substr(slash);
  std::string directory;
  if (slash == 1 && !rest.empty()) {
    if (!home.has_value()) return {rest, 1};
    directory = *home;
  } else {
    const auto user = users.find(path.substr(1, slash - 1).substr(0, kLongest));
    if (user == users.end()) return {path, 0};
    directory = user->second;
  }
  return {(directory.substr(0, kLongest) + rest).substr(0, kLongest), std::nullopt};
}

Result model_contracted(const std::string& path, const std::optional<std::string>& home) {
  const Result unchanged{path, 0};
  if (!path.starts_with('/') || !home.has_value()) return unchanged;
  if (home->empty() || home->size() >= 8190) return unchanged;
  const std::string directory = home->ends_with('/') ? *home : *home + "/";
  if (!path.starts_with(directory)) return unchanged;
  const std::string rest = path.substr(directory.size());
  if (rest.size() >= 8189) return unchanged;
  return {"~/" + rest, std::nullopt};
}

void check(const char* result, const char* argument, const Result& model) {
  REQUIRE_EQUAL(std::string(result), model.text);
  const bool inside = result >= argument && result <= argument + std::strlen(argument);
  REQUIRE_EQUAL(inside, model.offset.has_value());
  if (inside) REQUIRE_EQUAL(static_cast<size_t>(result - argument), *model.offset);
}

void check_both(const std::string& path, const std::optional<std::string>& home) {
  const fuzz::Text argument(path);
  check(url_expand_home_dir(argument.data()), argument.data(), model_expanded(path, home));
  check(url_unexpand_home_dir(argument.data()), argument.data(),
        model_contracted(path, home));
}

// The environment of the calls: HOME and home, or less. Not by setenv(), which forgets no
// value that it ever set.
class Environment {
 public:
  Environment(const std::optional<std::string>& home,
              const std::optional<std::string>& second)
      : former_(environ) {
    if (home.has_value()) texts_[0] = "HOME=" + *home;
    if (second.has_value()) texts_[1] = "home=" + *second;
    size_t count = 0;
    for (std::string& text : texts_) {
      if (!text.empty()) entries_[count++] = text.data();
    }
    environ = entries_;
  }
  ~Environment() { environ = former_; }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  char** former_;
  std::string texts_[2];
  char* entries_[3] = {};
};

// Long texts from short inputs.
std::string repeated(std::string text, uint8_t times) {
  std::string result;
  for (unsigned i = 0; i <= times && result.size() < 3 * kLongest; ++i) result += text;
  return result;
}

}  // namespace

// Comes before the C library's.
extern "C" passwd* getpwnam(const char* name) {
  static passwd found;
  const auto user = users.find(name);
  if (user == users.end()) return nullptr;
  found.pw_dir = user->second.data();
  return &found;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const uint8_t options = input.byte();
  const uint8_t times[] = {input.byte(), input.byte(), input.byte()};
  const std::string home = repeated(input.field('\0'), (options & 4) != 0 ? times[0] : 0);
  const std::string path = repeated(input.field('\0'), (options & 8) != 0 ? times[1] : 0);
  const std::string user = repeated(input.field('\0'), (options & 16) != 0 ? times[2] : 0);

  const bool has_home = (options & 1) == 0;
  const bool has_second = (options & 2) == 0;
  const std::string second = "/second" + home;
  const Environment environment(has_home ? std::optional(home) : std::nullopt,
                                has_second ? std::optional(second) : std::nullopt);
  users = {{user.substr(0, kLongest), home}};
  std::optional<std::string> effective;
  if (has_home) {
    effective = home;
  } else if (has_second) {
    effective = second;
  }

  check_both(path, effective);
  check_both("~" + path, effective);
  check_both("~/" + path, effective);
  check_both("~" + user + path, effective);
  check_both("~" + user + "/" + path, effective);
  check_both(home + path, effective);
  check_both(home + "/" + path, effective);
  check_both(second + path, effective);
  return 0;
}
