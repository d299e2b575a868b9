// Strings. Only memory can be short.
//
// SPDX-License-Identifier: MIT

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>

#include <groundwork/groundwork.h>

#include "faults/sweep.h"

using namespace faults;

namespace {

void duplicate(Pass& pass) {
  char* const copy = faulty(pass, [] { return g_strdup("some text"); });
  EXPECT_EQ(copy == nullptr, pass.struck());
  EXPECT_EQ(pass.reports(), 0);
  if (copy != nullptr) {
    EXPECT_STREQ(copy, "some text");
  }
  std::free(copy);
}

void split(Pass& pass) {
  static constexpr char kText[] = "a,bb,ccc,,d,e,f,g,h,i,j,k,l,m,n,o,p,q";
  char** const pieces = faulty(pass, [] { return g_strsplit(kText, ",", 0); });
  EXPECT_EQ(pieces == nullptr, pass.struck());
  if (pieces == nullptr) return;
  std::string joined = pieces[0];
  for (char** piece = pieces + 1; *piece != nullptr; ++piece)
    joined += std::string(",") + *piece;
  EXPECT_EQ(joined, kText);
  faulty(pass, [&] {
    g_strfreev(pieces);
    return 0;
  });
}

void split_nothing(Pass& pass) {
  char** const pieces = faulty(pass, [] { return g_strsplit("", ",", 3); });
  EXPECT_EQ(pieces == nullptr, pass.struck());
  if (pieces == nullptr) return;
  EXPECT_EQ(pieces[0], nullptr);
  g_strfreev(pieces);
}

void change_in_place(Pass& pass) {
  char text[32] = " \t a b \n ";
  char field[16];
  int results[3];
  {
    const Faults faults(pass);
    g_strchomp(g_strchug(text));
    results[0] = g_strpack(text);
    results[1] = g_str_has_prefix(text, "a");
    results[2] = g_str_has_suffix(text, "c");
    g_strncpy(field, "abc", 15);
  }
  EXPECT_FALSE(pass.struck());
  EXPECT_STREQ(text, "ab");
  EXPECT_EQ(results[0], 1);
  EXPECT_EQ(results[1], 1);
  EXPECT_EQ(results[2], 0);
  EXPECT_STREQ(field, "abc");
}

// Null, or the text, unless the system's formatter was needed and failed.
void expect_text(const Pass& pass, char* text, const char* expected) {
  if (pass.struck(Call::kAllocation)) {
    EXPECT_TRUE(text == nullptr || std::strcmp(text, expected) == 0);
  } else {
    ASSERT_NE(text, nullptr);
    if (pass.struck(Call::kVsnprintf) == 0) {
      EXPECT_STREQ(text, expected);
    }
  }
  std::free(text);
}

void format_pieces(Pass& pass) {
  expect_text(pass, faulty(pass, [] { return g_strdup_printf("%s=%d", "key", 42); }),
              "key=42");
}

void format_numbers(Pass& pass) {
  expect_text(pass,
              faulty(pass, [] { return g_strdup_printf("%8.3f|%-5s|%x", 1.5, "ab", 255); }),
              "   1.500|ab   |ff");
}

// The estimate is smaller than the text: a negative precision counts as 0.
void format_beyond_the_estimate(Pass& pass) {
  const std::string text(500, 'x');
  expect_text(pass, faulty(pass, [&] { return g_strdup_printf("%.*s", -1, text.c_str()); }),
              text.c_str());
}

char* format_list(const char* format, ...) {
  va_list args;
  va_start(args, format);
  char* const text = g_strdup_vprintf(format, args);
  va_end(args);
  return text;
}

void format_arguments(Pass& pass) {
  expect_text(pass, faulty(pass, [] { return format_list("%c%s%5u", 'a', "bc", 7u); }),
              "abc    7");
}

const Scenarios scenarios(
    "str", {
               {"Duplicate", {"g_strdup"}, duplicate},
               {"Split", {"g_strsplit", "g_strfreev"}, split},
               {"SplitOfNothing", {}, split_nothing},
               {"ChangesInPlace",
                {"g_strchug", "g_strchomp", "g_strpack", "g_str_has_prefix",
                 "g_str_has_suffix", "g_strncpy"},
                change_in_place},
               {"FormattedText", {"g_strdup_printf"}, format_pieces},
               {"FormattedNumbers", {}, format_numbers},
               {"FormattedBeyondTheEstimate", {}, format_beyond_the_estimate},
               {"FormattedArguments", {"g_strdup_vprintf"}, format_arguments},
           });

}  // namespace
