// The string functions against models. Each text is in a block of exactly its length.
//
// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <groundwork/str.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/support/buffer.h"
#include "fuzz/support/check.h"
#include "fuzz/support/input.h"

namespace {

using fuzz::Text;

constexpr std::string_view kBlank = " \t\n\v\f\r";

std::vector<std::string> model_split(const std::string& text, const std::string& delimiter,
                                     int max_tokens) {
  std::vector<std::string> pieces;
  size_t cursor = 0;
  while (max_tokens < 1 || pieces.size() + 1 < static_cast<size_t>(max_tokens)) {
    const size_t found = text.find(delimiter, cursor);
    if (found == text.npos) break;
    pieces.push_back(text.substr(cursor, found - cursor));
    cursor = found + delimiter.size();
  }
  if (!text.empty()) pieces.push_back(text.substr(cursor));
  return pieces;
}

void check_split(const std::string& text, const std::string& delimiter, int max_tokens) {
  char** const pieces = g_strsplit(Text(text).data(), Text(delimiter).data(), max_tokens);
  if (delimiter.empty()) {
    REQUIRE(pieces == nullptr);
    return;
  }
  REQUIRE(pieces != nullptr);
  const std::vector<std::string> expected = model_split(text, delimiter, max_tokens);
  for (size_t i = 0; i < expected.size(); ++i) {
    REQUIRE(pieces[i] != nullptr);
    REQUIRE_EQUAL(std::string(pieces[i]), expected[i]);
  }
  REQUIRE(pieces[expected.size()] == nullptr);
  g_strfreev(pieces);
}

size_t leading_blanks(const std::string& text) {
  return std::min(text.find_first_not_of(kBlank), text.size());
}

void check_trimmers(const std::string& text) {
  Text front(text);
  REQUIRE_EQUAL(g_strchug(front.data()), front.data());
  REQUIRE_EQUAL(std::string(front.data()), text.substr(leading_blanks(text)));

  Text back(text);
  const size_t kept = text.find_last_not_of(kBlank) + 1;  // 0 when there is none
  REQUIRE_EQUAL(g_strchomp(back.data()), back.data());
  // What was there is overwritten, not only cut.
  REQUIRE_EQUAL(back.content(),
                text.substr(0, kept) + std::string(back.size() - kept, '\0'));

  Text packed(text);
  const auto blanks = static_cast<int>(std::count(text.begin(), text.end(), ' '));
  std::string without = text;
  std::erase(without, ' ');
  REQUIRE_EQUAL(g_strpack(packed.data()), blanks);
  REQUIRE_EQUAL(std::string(packed.data()), without);
}

void check_affixes(const std::string& text, const std::string& affix) {
  REQUIRE_EQUAL(g_str_has_prefix(Text(text).data(), Text(affix).data()),
                text.starts_with(affix) ? 1 : 0);
  REQUIRE_EQUAL(g_str_has_suffix(Text(text).data(), Text(affix).data()),
                text.ends_with(affix) ? 1 : 0);
}

void check_copies(const std::string& text, unsigned length) {
  char* const copy = g_strdup(Text(text).data());
  REQUIRE(copy != nullptr);
  REQUIRE_EQUAL(std::string(copy), text);
  std::free(copy);

  // A bounded source need not be terminated.
  fuzz::Buffer cut(std::string_view(text).substr(0, length));
  Text whole(text);
  fuzz::Buffer dest(length + 1);
  std::string expected = text.substr(0, length);
  expected.resize(length + 1);
  const char* const source = text.size() >= length ? cut.data() : whole.data();
  REQUIRE_EQUAL(g_strncpy(dest.data(), source, length), dest.data());
  REQUIRE_EQUAL(dest.content(), expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  g_debug_set_level2(99);
  fuzz::Input input(data, size);
  const int max_tokens = static_cast<int8_t>(input.byte());
  const unsigned length = input.byte();
  const std::string delimiter = input.field('\0');
  const std::string text = input.field('\0');
  check_split(text, delimiter, max_tokens);
  check_trimmers(text);
  check_affixes(text, delimiter);
  check_affixes(delimiter + text, delimiter);
  check_affixes(text + delimiter, delimiter);
  check_copies(text, length);
  return 0;
}
