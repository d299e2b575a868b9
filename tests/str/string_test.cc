// SPDX-License-Identifier: MIT

#include <groundwork/str.h>
#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "support/allocation_faults.h"
#include "support/log_capture.h"

using test::AllocationFaults;
using test::check_line;
using test::for_each_failed_allocation;
using test::LogCapture;
using Lines = std::vector<std::string>;
using Strings = std::vector<std::string>;

namespace {

TEST(Strdup, GivesACopyOfExactlyTheStringsSize) {
  const char text[] = "some text";
  AllocationFaults faults(0);
  char* const copy = g_strdup(text);
  faults.disarm();
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy, text);
  EXPECT_STREQ(copy, text);
  EXPECT_EQ(faults.calls(), 1);
  EXPECT_EQ(test::allocation_size(1), sizeof text);
  std::free(copy);
}

TEST(Strdup, CopiesTheEmptyString) {
  char* const copy = g_strdup("");
  EXPECT_STREQ(copy, "");
  std::free(copy);
}

TEST(Strdup, NullReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_strdup(nullptr), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_str", "str != NULL")});
}

TEST(Strdup, ExhaustedHeapGivesNullWithoutAReport) {
  LogCapture log(INT_MIN);
  {
    AllocationFaults faults(1);
    EXPECT_EQ(g_strdup("abc"), nullptr);
  }
  EXPECT_EQ(log.take(), Lines{});
}

// A writable copy that keeps the bytes after the terminator visible.
class Buffer {
 public:
  explicit Buffer(const std::string& text) : bytes_(text) { bytes_.push_back('\0'); }
  char* data() { return bytes_.data(); }
  // Every byte of the original string, as it is now.
  std::string bytes() const { return bytes_.substr(0, bytes_.size() - 1); }

 private:
  std::string bytes_;
};

TEST(Strchug, MovesTheRestToTheFrontAndReturnsItsArgument) {
  const char* const cases[][2] = {
      {"", ""},
      {"a", "a"},
      {" a", "a"},
      {" \t\n\v\f\ra b ", "a b "},
      {"   ", ""},
      {" ", ""},
      {"a  ", "a  "},
      {"\x1c"
       "a",
       "\x1c"
       "a"},
      {"\x08 a", "\x08 a"},
      {"\x0e a", "\x0e a"},
  };
  for (const auto& [text, expected] : cases) {
    Buffer buffer(text);
    EXPECT_EQ(g_strchug(buffer.data()), buffer.data());
    EXPECT_STREQ(buffer.data(), expected);
  }
}

TEST(Strchug, NullReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_strchug(nullptr), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_str", "str != NULL")});
}

TEST(Strchomp, OverwritesAllTrailingWhitespaceWithNuls) {
  const std::string nul(1, '\0');
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"a", "a"},
      {"a ", "a" + nul},
      {"a \r\n", "a" + nul + nul + nul},
      {" a b\t\n\v\f\r ", " a b" + nul + nul + nul + nul + nul + nul},
      {"   ", nul + nul + nul},
      {"a\x08", "a\x08"},
      {"a\x0e", "a\x0e"},
  };
  for (const auto& [text, expected] : cases) {
    Buffer buffer(text);
    EXPECT_EQ(g_strchomp(buffer.data()), buffer.data());
    EXPECT_EQ(buffer.bytes(), expected);
  }
}

TEST(Strchomp, NullReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_strchomp(nullptr), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_str", "str != NULL")});
}

TEST(Trimming, TakesNoByteAbove127ForWhitespaceInAnyLocale) {
  // Blank in some 8-bit locales; where none is installed the test checks less.
  const std::string previous = std::setlocale(LC_ALL, nullptr);
  for (const char* name : {"C", "en_US.ISO-8859-1", "de_DE", ""}) {
    if (std::setlocale(LC_ALL, name) == nullptr) continue;
    for (int byte = 128; byte < 256; ++byte) {
      const std::string text(1, static_cast<char>(byte));
      Buffer buffer(text);
      g_strchomp(g_strchug(buffer.data()));
      EXPECT_EQ(buffer.bytes(), text);
    }
  }
  std::setlocale(LC_ALL, previous.c_str());
}

// Takes the strings of a vector and frees it.
Strings taken(char** vector) {
  Strings strings;
  if (vector == nullptr) {
    ADD_FAILURE() << "no vector";
    return strings;
  }
  for (char** string = vector; *string != nullptr; ++string) strings.emplace_back(*string);
  g_strfreev(vector);
  return strings;
}

struct SplitCase {
  const char* text;
  const char* delim;
  int max_tokens;
  Strings expected;
};

TEST(Strsplit, GivesThePiecesInOrder) {
  const SplitCase cases[] = {
      {"", ",", 0, {}},
      {"abc", ",", 0, {"abc"}},
      {"a,b", ",", 0, {"a", "b"}},
      {"a,,b", ",", 0, {"a", "", "b"}},
      {"a,", ",", 0, {"a", ""}},
      {",a", ",", 0, {"", "a"}},
      {",", ",", 0, {"", ""}},
      {",,", ",", 0, {"", "", ""}},
      {"a::b::c", "::", 0, {"a", "b", "c"}},
      {"a:::b", "::", 0, {"a", ":b"}},
      {"a:b", "::", 0, {"a:b"}},
      {"::", "::", 0, {"", ""}},
      {"abcabc", "abcabc", 0, {"", ""}},
      {"ab", "abc", 0, {"ab"}},
      {"a b\tc", " \t", 0, {"a b\tc"}},
      {"line\nline\n", "\n", 0, {"line", "line", ""}},
      {"a\xff"
       "b",
       "\xff",
       0,
       {"a", "b"}},
  };
  for (const SplitCase& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(taken(g_strsplit(c.text, c.delim, c.max_tokens)), c.expected);
  }
}

TEST(Strsplit, AtALimitKeepsTheRestUnsplitInTheLastPiece) {
  const SplitCase cases[] = {
      {"a,b,c", ",", 1, {"a,b,c"}},
      {"a,b,c", ",", 2, {"a", "b,c"}},
      {"a,b,c", ",", 3, {"a", "b", "c"}},
      {"a,b,c", ",", 4, {"a", "b", "c"}},
      {"a,b,c", ",", INT_MAX, {"a", "b", "c"}},
      {"a::b::c", "::", 2, {"a", "b::c"}},
      {"a,", ",", 1, {"a,"}},
      {"a,", ",", 2, {"a", ""}},
      {"", ",", 1, {}},
  };
  for (const SplitCase& c : cases) {
    SCOPED_TRACE(testing::Message() << c.text << " at most " << c.max_tokens);
    EXPECT_EQ(taken(g_strsplit(c.text, c.delim, c.max_tokens)), c.expected);
  }
}

TEST(Strsplit, HasNoLimitBelowOne) {
  for (int max_tokens : {0, -1, INT_MIN}) {
    EXPECT_EQ(taken(g_strsplit("a,b,c", ",", max_tokens)), (Strings{"a", "b", "c"}));
  }
}

TEST(Strsplit, EachStringIsABlockOfItsOwn) {
  AllocationFaults faults(0);
  char** const vector = g_strsplit("a,bb,ccc", ",", 0);
  for (char** string = vector; *string != nullptr; ++string) std::free(*string);
  std::free(vector);
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST(Strsplit, ReportsTheFirstFailedCheckOnly) {
  LogCapture log;
  EXPECT_EQ(g_strsplit(nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_str", "str != NULL")});
  EXPECT_EQ(g_strsplit("a", nullptr, 0), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_str", "delim != NULL")});
  EXPECT_EQ(g_strsplit("a", "", 0), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_str", "delim[0] != '\\0'")});
  EXPECT_EQ(g_strsplit(nullptr, "", 0), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_str", "str != NULL")});
  EXPECT_EQ(g_strsplit("", "", 0), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_str", "delim[0] != '\\0'")});
}

TEST(Strsplit, ExhaustedHeapGivesNullAndLeaksNothing) {
  LogCapture log(INT_MIN);
  for (const char* text : {"", "a", "1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18"}) {
    for_each_failed_allocation([text](AllocationFaults& faults) {
      char** const vector = g_strsplit(text, ",", 0);
      faults.disarm();
      EXPECT_EQ(vector == nullptr, faults.failures() != 0);
      if (vector != nullptr) g_strfreev(vector);
    });
  }
  EXPECT_EQ(log.take(), Lines{});
}

Strings model_of_split(const std::string& text, const std::string& delim, int max_tokens) {
  Strings pieces;
  size_t cursor = 0;
  while (max_tokens < 1 || static_cast<int>(pieces.size()) + 1 < max_tokens) {
    const size_t found = text.find(delim, cursor);
    if (found == std::string::npos) break;
    pieces.push_back(text.substr(cursor, found - cursor));
    cursor = found + delim.size();
  }
  if (!text.empty()) pieces.push_back(text.substr(cursor));
  return pieces;
}

TEST(Strsplit, AgreesWithASimpleModelOnRandomStrings) {
  std::mt19937 random(1);
  const auto string = [&random](size_t length) {
    std::string text;
    for (; length > 0; --length) text += static_cast<char>('a' + random() % 2);
    return text;
  };
  for (int round = 0; round < 20000; ++round) {
    const std::string text = string(random() % 30);
    const std::string delim = string(1 + random() % 3);
    const int max_tokens = static_cast<int>(random() % 8) - 2;
    ASSERT_EQ(taken(g_strsplit(text.c_str(), delim.c_str(), max_tokens)),
              model_of_split(text, delim, max_tokens))
        << text << " on " << delim << " at most " << max_tokens;
  }
}

TEST(Strsplit, SplitsALargeTextIntoItsLines) {
  std::string text;
  Strings expected;
  for (int i = 0; i < 20000; ++i) {
    expected.push_back("key" + std::to_string(i) + "=value");
    text += expected.back() + "\n";
  }
  expected.emplace_back("");
  EXPECT_EQ(taken(g_strsplit(text.c_str(), "\n", 0)), expected);
}

TEST(Strfreev, OfAVectorWithoutStringsFreesJustTheArray) {
  AllocationFaults faults(0);
  char** const vector = g_strsplit("", ",", 0);
  faults.disarm();
  ASSERT_NE(vector, nullptr);
  EXPECT_EQ(vector[0], nullptr);
  EXPECT_EQ(faults.outstanding(), 1);
  g_strfreev(vector);
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST(Strfreev, FreesEveryStringAndTheArray) {
  AllocationFaults faults(0);
  g_strfreev(g_strsplit("a,b,c", ",", 0));
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST(Strfreev, NullReportsTheCheck) {
  LogCapture log;
  g_strfreev(nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_str", "str_array != NULL")});
}

TEST(Suffix, MatchesTheEndExactly) {
  EXPECT_EQ(g_str_has_suffix("file.conf", ".conf"), 1);
  EXPECT_EQ(g_str_has_suffix("file.conf", ".CONF"), 0);
  EXPECT_EQ(g_str_has_suffix("file.conf.", ".conf"), 0);
  EXPECT_EQ(g_str_has_suffix("abc", "abc"), 1);
  EXPECT_EQ(g_str_has_suffix("a", "abc"), 0);
  EXPECT_EQ(g_str_has_suffix("", "a"), 0);
  EXPECT_EQ(g_str_has_suffix("abc", ""), 1);
  EXPECT_EQ(g_str_has_suffix("", ""), 1);
}

TEST(Suffix, LongerThanTheStringDoesNotMatchTheBytesInFrontOfIt) {
  const char text[] = "abc";
  EXPECT_EQ(g_str_has_suffix(text + 2, "abc"), 0);
}

TEST(Suffix, NullReportsTheFirstCheckOnly) {
  LogCapture log;
  EXPECT_EQ(g_str_has_suffix(nullptr, nullptr), 0);
  EXPECT_EQ(log.take(), Lines{check_line("g_str", "str != NULL")});
  EXPECT_EQ(g_str_has_suffix("a", nullptr), 0);
  EXPECT_EQ(log.take(), Lines{check_line("g_str", "suffix != NULL")});
}

TEST(Prefix, MatchesTheStartExactly) {
  EXPECT_EQ(g_str_has_prefix("http://host", "http:"), 1);
  EXPECT_EQ(g_str_has_prefix("http://host", "HTTP:"), 0);
  EXPECT_EQ(g_str_has_prefix("ahttp:", "http:"), 0);
  EXPECT_EQ(g_str_has_prefix("abc", "abc"), 1);
  EXPECT_EQ(g_str_has_prefix("a", "abc"), 0);
  EXPECT_EQ(g_str_has_prefix("", "a"), 0);
  EXPECT_EQ(g_str_has_prefix("abc", ""), 1);
  EXPECT_EQ(g_str_has_prefix("", ""), 1);
}

TEST(Prefix, NullReportsTheFirstCheckOnly) {
  LogCapture log;
  EXPECT_EQ(g_str_has_prefix(nullptr, nullptr), 0);
  EXPECT_EQ(log.take(), Lines{check_line("g_str", "str != NULL")});
  EXPECT_EQ(g_str_has_prefix("a", nullptr), 0);
  EXPECT_EQ(log.take(), Lines{check_line("g_str", "prefix != NULL")});
}

TEST(Strpack, RemovesSpacesOnlyAndCountsThem) {
  const struct {
    const char* text;
    const char* expected;
    int removed;
  } cases[] = {
      {" a b\tc ", "ab\tc", 3}, {"", "", 0},       {"   ", "", 3}, {"abc", "abc", 0},
      {"\t\n\r", "\t\n\r", 0},  {"a  b", "ab", 2},
  };
  for (const auto& c : cases) {
    Buffer buffer(c.text);
    EXPECT_EQ(g_strpack(buffer.data()), c.removed) << c.text;
    EXPECT_STREQ(buffer.data(), c.expected);
  }
}

TEST(Strpack, WorksWithoutAnyMemory) {
  Buffer buffer(" a b ");
  int removed = 0;
  {
    AllocationFaults faults(1, true);
    removed = g_strpack(buffer.data());
  }
  EXPECT_EQ(removed, 3);
  EXPECT_STREQ(buffer.data(), "ab");
}

TEST(Strncpy, CutsALongSourceAndAlwaysTerminates) {
  char dst[6] = {'#', '#', '#', '#', '#', '#'};
  EXPECT_EQ(g_strncpy(dst, "abcdef", 3), dst);
  EXPECT_EQ(std::memcmp(dst, "abc\0##", 6), 0);
}

TEST(Strncpy, PadsWithNulsAfterAShortSource) {
  char dst[7] = {'#', '#', '#', '#', '#', '#', '#'};
  EXPECT_EQ(g_strncpy(dst, "ab", 5), dst);
  EXPECT_EQ(std::memcmp(dst, "ab\0\0\0\0#", 7), 0);
}

TEST(Strncpy, TerminatesASourceOfExactlyTheLength) {
  char dst[5] = {'#', '#', '#', '#', '#'};
  g_strncpy(dst, "abc", 3);
  EXPECT_EQ(std::memcmp(dst, "abc\0#", 5), 0);
}

TEST(Strncpy, OfLengthZeroStoresTheTerminatorAlone) {
  char dst[2] = {'#', '#'};
  g_strncpy(dst, "abc", 0);
  EXPECT_EQ(std::memcmp(dst, "\0#", 2), 0);
}

TEST(Strncpy, DoesNotReadBeyondItsLength) {
  const char source[3] = {'a', 'b', 'c'};  // no terminator
  char dst[4];
  g_strncpy(dst, source, 3);
  EXPECT_STREQ(dst, "abc");
}

TEST(Strncpy, MovesAStringWithinItsOwnBuffer) {
  char text[] = "abcdef";
  g_strncpy(text, text + 2, 4);
  EXPECT_STREQ(text, "cdef");
  char other[8] = "abcdef";
  g_strncpy(other + 1, other, 6);
  EXPECT_STREQ(other, "aabcdef");
}

}  // namespace
