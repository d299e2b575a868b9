// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <groundwork/str.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cfenv>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ios>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <langinfo.h>

#include "support/allocation_faults.h"
#include "support/log_capture.h"
#include "support/next_function.h"

using test::AllocationFaults;
using test::LogCapture;
using test::warning_line;
using Lines = std::vector<std::string>;
using Sizes = std::vector<size_t>;

// The library's calls of the system formatter come through here.
namespace {
thread_local int formatter_calls = 0;
thread_local size_t formatter_bound = 0;  // of the last call
}  // namespace

extern "C" int vsnprintf(char* out, size_t bound, const char* fmt, va_list args) {
  static const auto system_formatter =
      test::next_function<decltype(vsnprintf)>("vsnprintf");
  ++formatter_calls;
  formatter_bound = bound;
  const int length = system_formatter(out, bound, fmt, args);
  errno = ENOTTY;  // as a formatter may leave it
  return length;
}

// What the library takes for the locale's decimal point; null for the real one.
static const char* decimal_point = nullptr;

extern "C" char* nl_langinfo(nl_item item) {
  static const auto system_query =
      test::next_function<decltype(nl_langinfo)>("nl_langinfo");
  if (item == RADIXCHAR && decimal_point != nullptr)
    return const_cast<char*>(decimal_point);
  return system_query(item);
}

// A sanitizer's own reading of formats stops at those that this test makes up.
extern "C" __attribute__((no_sanitize("address"))) const char* __asan_default_options() {
  return "check_printf=0";
}

// There when the program is built with a leak checker.
extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

namespace {

constexpr bool kLongIs64Bit = sizeof(long) == 8;
constexpr size_t kMargin = 1024;
constexpr size_t kPlaceholder = sizeof "ERROR_MSG: G_STR";

// Blocks allocated while alive may leak.
class LeaksExpected {
 public:
  LeaksExpected() {
    if (__lsan_disable != nullptr) __lsan_disable();
  }
  ~LeaksExpected() {
    if (__lsan_enable != nullptr) __lsan_enable();
  }
  LeaksExpected(const LeaksExpected&) = delete;
  LeaksExpected& operator=(const LeaksExpected&) = delete;
};

// A format out of the compiler's sight, which knows better than to accept it.
const char* unseen(const char* fmt) {
  const char* volatile pointer = fmt;
  return pointer;
}

// What one call of g_strdup_printf() did, with the log silent.
struct Formatted {
  bool null = false;
  std::string text;
  Sizes allocations;
  int formatter_calls = 0;
  size_t formatter_bound = 0;
};

template <typename... Args>
Formatted formatted(const char* fmt, Args... args) {
  LogCapture silent(99);
  Formatted result;
  char* text = nullptr;
  AllocationFaults faults(0);
  formatter_calls = 0;
  text = g_strdup_printf(fmt, args...);
  faults.disarm();
  result.formatter_calls = formatter_calls;
  result.formatter_bound = formatter_bound;
  for (int i = 1; i <= faults.calls(); ++i) {
    result.allocations.push_back(test::allocation_size(i));
  }
  result.null = text == nullptr;
  if (text != nullptr) result.text = text;
  std::free(text);
  return result;
}

// The estimated size. Checks on the way that the text is the system formatter's.
template <typename... Args>
size_t estimate(const char* fmt, Args... args) {
  char expected[5000] = "";
  std::snprintf(expected, sizeof expected, fmt, args...);
  const Formatted result = formatted(fmt, args...);
  EXPECT_EQ(result.text, expected) << fmt;
  return result.allocations.empty() ? 0 : result.allocations[0];
}

// Only the text is looked at, which is much quicker.
template <typename... Args>
void expect_text_of_the_formatter(const char* fmt, Args... args) {
  char expected[500] = "";
  std::snprintf(expected, sizeof expected, fmt, args...);
  char* const text = g_strdup_printf(fmt, args...);
  EXPECT_STREQ(text, expected) << fmt;
  std::free(text);
}

template <typename... Args>
Lines warnings(const char* fmt, Args... args) {
  LogCapture log(INT_MIN);
  std::free(g_strdup_printf(fmt, args...));
  return log.take();
}

std::string unknown_line(char c) {
  return warning_line("g_str",
                      std::string("(): unable to handle `") + c + "' while parsing format");
}
const std::string kWideLine =
    warning_line("g_str", "(): unable to handle wide char strings");
const std::string kPositionalLine =
    warning_line("g_str", "unable to handle positional parameters(%n$)");
const std::string kLongDoubleLine =
    warning_line("g_str", "(): unable to handle long double, collecting double only");

TEST(StrdupPrintf, EmptyFormatIsAnEmptyStringInOneByte) {
  EXPECT_EQ(estimate("", 0), 1u);
}

TEST(StrdupPrintf, NullFormatIsAnEmptyStringInOneByte) {
  const Formatted result = formatted(static_cast<const char*>(nullptr), 0);
  EXPECT_EQ(result.text, "");
  EXPECT_EQ(result.allocations, Sizes{1});
}

TEST(StrdupPrintf, AllocatesOnceAndExactlyTheEstimate) {
  EXPECT_EQ(formatted("%s=%s\n", "port", "80").allocations, Sizes{9});
  EXPECT_EQ(formatted("%5.2f", 1e10).allocations, Sizes{46});
}

TEST(StrdupPrintf, LeavesZerosAfterTheText) {
  char* const text = g_strdup_printf("%d|%5.1f", 7, 2.5);
  const size_t size = 1 + 16 + 1 + 35 + 1;
  const std::string expected = "7|  2.5" + std::string(size - 7, '\0');
  EXPECT_EQ(std::string(text, size), expected);
  std::free(text);
  char* const simple = g_strdup_printf("%d|", 7);
  EXPECT_EQ(std::string(simple, 18), "7|" + std::string(16, '\0'));
  std::free(simple);
}

TEST(StrdupPrintf, ExhaustedHeapGivesNullWithoutAReport) {
  LogCapture log(INT_MIN);
  test::for_each_failed_allocation([](AllocationFaults& faults) {
    char* const text = g_strdup_printf("%d %f", 7, 1e60);
    faults.disarm();
    EXPECT_EQ(text == nullptr, faults.failures() != 0);
    std::free(text);
  });
  // The block grows: two allocations.
  test::for_each_failed_allocation([](AllocationFaults& faults) {
    char* const text = g_strdup_printf("%.*s", -1, "longer than its estimate");
    faults.disarm();
    EXPECT_EQ(text == nullptr, faults.failures() != 0);
    std::free(text);
  });
  EXPECT_EQ(log.take(), Lines{});
}

TEST(StrdupPrintf, AnEstimateBeyondTheAddressSpaceGivesNull) {
  if (sizeof(void*) > 4) GTEST_SKIP() << "4 GiB are there";
  const Formatted result = formatted(unseen("%4294967295d"), 5);
  EXPECT_TRUE(result.null);
  EXPECT_TRUE(formatted(unseen("%99999999999999999999999d"), 5).null);
  EXPECT_TRUE(formatted(unseen("%.99999999999999999999999s%4294967295d"), "", 5).null);
}

char* through_list(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  char* const text = g_strdup_vprintf(fmt, args);
  va_end(args);
  return text;
}

TEST(StrdupVprintf, FormatsAnArgumentList) {
  char* text = through_list("%s %d %s", "a", 1, "b");
  EXPECT_STREQ(text, "a 1 b");
  std::free(text);
  text = through_list("%s %.2f %s", "a", 1.25, "b");
  EXPECT_STREQ(text, "a 1.25 b");
  std::free(text);
}

// --- sizes -------------------------------------------------------------------------------

TEST(Estimate, CountsLiteralsAndPercentSigns) {
  EXPECT_EQ(estimate("abc", 0), 4u);
  EXPECT_EQ(estimate("100%%", 0), 5u);
  EXPECT_EQ(estimate("%%%%", 0), 3u);
  EXPECT_EQ(formatted("%5%", 0).allocations[0], 6u);
  EXPECT_EQ(formatted("%#+%", 0).allocations[0], 1u + 1 + 2 + 1);
}

TEST(Estimate, OfIntegersReservesTheWidestNumberAndASign) {
  EXPECT_EQ(estimate("%x", 255u), 1u + 11);
  EXPECT_EQ(estimate("%X", 255u), 1u + 11);
  EXPECT_EQ(estimate("%u", UINT_MAX), 1u + 15);
  EXPECT_EQ(estimate("%d", INT_MIN), 1u + 16);
  EXPECT_EQ(estimate("%i", -5), 1u + 16);
  EXPECT_EQ(estimate("%o", UINT_MAX), 1u + 18);
}

TEST(Estimate, OfExtraLongIntegersDoublesTheLength) {
  for (const char* size : {"ll", "L", "q"}) {
    const auto with = [size](const char* conversion) {
      return std::string("%") + size + conversion;
    };
    EXPECT_EQ(estimate(with("x").c_str(), ~0ULL), 1u + 21) << size;
    EXPECT_EQ(estimate(with("X").c_str(), ~0ULL), 1u + 21) << size;
    EXPECT_EQ(estimate(with("u").c_str(), ~0ULL), 1u + 29) << size;
    EXPECT_EQ(estimate(with("d").c_str(), LLONG_MIN), 1u + 31) << size;
    EXPECT_EQ(estimate(with("i").c_str(), LLONG_MIN), 1u + 31) << size;
    EXPECT_EQ(estimate(with("o").c_str(), ~0ULL), 1u + 35) << size;
  }
}

TEST(Estimate, OfLongIntegersFollowsThePlatform) {
  constexpr size_t factor = kLongIs64Bit ? 2 : 1;
  EXPECT_EQ(estimate("%lx", ~0UL), 1 + 10 * factor + 1);
  EXPECT_EQ(estimate("%lu", ~0UL), 1 + 14 * factor + 1);
  EXPECT_EQ(estimate("%ld", LONG_MIN), 1 + 15 * factor + 1);
  EXPECT_EQ(estimate("%lo", ~0UL), 1 + 17 * factor + 1);
  EXPECT_EQ(estimate("%zu", SIZE_MAX), 1 + 14 * factor + 1);
  EXPECT_EQ(estimate("%Zu", SIZE_MAX), 1 + 14 * factor + 1);
  EXPECT_EQ(estimate("%zd", static_cast<size_t>(-1)), 1 + 15 * factor + 1);
  EXPECT_EQ(estimate("%td", PTRDIFF_MIN), 1 + 15 * factor + 1);
}

TEST(Estimate, OfHalfIntegersIsThatOfInt) {
  EXPECT_EQ(estimate("%hd", 70000), 1u + 16);
  EXPECT_EQ(estimate("%hhd", 300), 1u + 16);
  EXPECT_EQ(estimate("%hu", 70000), 1u + 15);
  EXPECT_EQ(estimate("%hhx", 300), 1u + 11);
}

TEST(Estimate, OfTheOldLongConversionsIsThatOfAnOctal) {
  for (const char* fmt : {"%D", "%I", "%O", "%U"}) {
    EXPECT_EQ(formatted(fmt, 5L).allocations[0], 1u + (kLongIs64Bit ? 34 : 17) + 1) << fmt;
  }
  for (const char* fmt : {"%llD", "%LI", "%qO", "%lU"}) {
    const bool doubled = kLongIs64Bit || std::strcmp(fmt, "%lU") != 0;
    EXPECT_EQ(formatted(fmt, 5LL).allocations[0], 1u + (doubled ? 34 : 17) + 1) << fmt;
  }
}

TEST(Estimate, OfIntmaxReservesAsForIntButTakes64Bits) {
  EXPECT_EQ(estimate("%jd|%s", INTMAX_C(5), "abc"), 1u + (kLongIs64Bit ? 31 : 16) + 1 + 3);
  EXPECT_EQ(estimate("%ju", UINTMAX_C(5)), 1u + (kLongIs64Bit ? 29 : 15));
  // More than was reserved: the block grows.
  EXPECT_EQ(estimate("%jd", INTMAX_MIN), 1u + (kLongIs64Bit ? 31 : 16));
}

TEST(Estimate, OfFloatsReserves24Digits) {
  for (const char* fmt : {"%e", "%E", "%g", "%G"}) {
    EXPECT_EQ(estimate(fmt, 1.5), 36u) << fmt;
  }
  EXPECT_EQ(estimate("%a", 1.5), 38u);
  EXPECT_EQ(estimate("%A", 1.5), 38u);
  EXPECT_EQ(estimate("%.24g", 1.5), 36u);
  EXPECT_EQ(estimate("%.25g", 1.5), 37u);
  EXPECT_EQ(estimate("%.25e", 1.5), 37u);
  EXPECT_EQ(estimate("%.30a", 1.5), 44u);
}

TEST(Estimate, OfAFixedPointFloatAddsDigitsByItsExponent) {
  EXPECT_EQ(estimate("%5.2f", 1e10), 46u);
  EXPECT_EQ(estimate("%f", 1.0), 37u);
  EXPECT_EQ(estimate("%f", -1.0), 37u);
  EXPECT_EQ(estimate("%f", 8.0), 37u);            // trunc(1.903)
  EXPECT_EQ(estimate("%f", 16.0), 38u);           // trunc(2.204)
  EXPECT_EQ(estimate("%f", 0.125), 36u);          // trunc(0.097)
  EXPECT_EQ(estimate("%f", 0.0625), 36u);         // trunc(-0.204), towards zero
  EXPECT_EQ(estimate("%f", 0.015625), 36u);       // trunc(-0.806)
  EXPECT_EQ(estimate("%f", 0.0078125), 37u);      // |trunc(-1.107)|
  EXPECT_EQ(estimate("%f", DBL_MAX), 36u + 308);  // trunc(308.95)
  EXPECT_EQ(estimate("%f", DBL_MIN), 36u + 306);  // |trunc(-306.65)|
}

TEST(Estimate, OfAFixedPointFloatWithoutAnOrdinaryExponentAddsNothing) {
  EXPECT_EQ(estimate("%f", 0.0), 36u);
  EXPECT_EQ(estimate("%f", -0.0), 36u);
  EXPECT_EQ(estimate("%f", 5e-324), 36u);
  EXPECT_EQ(estimate("%f", std::numeric_limits<double>::infinity()), 36u);
  EXPECT_EQ(estimate("%f", std::numeric_limits<double>::quiet_NaN()), 36u);
}

TEST(Estimate, OfAFixedPointFloatFollowsTheFormulaForEveryExponent) {
  for (int exponent = -1022; exponent <= 1023; ++exponent) {
    const double value = std::ldexp(1.7, exponent);
    const auto digits = static_cast<size_t>(
        std::fabs(std::trunc(exponent * static_cast<double>(0.3010299956639812L) + 1)));
    ASSERT_EQ(formatted("%f", value).allocations[0], 36 + digits) << exponent;
  }
}

TEST(Estimate, OfAGroupedFloatDoublesTheLength) {
  EXPECT_EQ(estimate("%'g", 1.5), 1u + 2 * (32 + 2) + 1);
  EXPECT_EQ(estimate("%'f", 1e10), 1u + 2 * (32 + 10 + 2) + 1);
  EXPECT_EQ(estimate("%'a", 1.5), 1u + 2 * (2 + 32 + 2) + 1);
  EXPECT_EQ(estimate("%'d", 1234567), 1u + 16);  // integers are not doubled
}

TEST(Estimate, OfCharacters) {
  EXPECT_EQ(estimate("%c", 'a'), 2u);
  EXPECT_EQ(estimate("%lc", static_cast<wint_t>(L'a')), 17u);
  EXPECT_EQ(estimate("%C", static_cast<wint_t>(L'a')), 17u);
  EXPECT_EQ(estimate("%5c", 'a'), 6u);
}

TEST(Estimate, OfAStringIsItsLengthOrThePrecision) {
  EXPECT_EQ(estimate("%s", ""), 1u);
  EXPECT_EQ(estimate("[%s]\n", "net"), 7u);
  EXPECT_EQ(estimate("%s", std::string(3000, 'a').c_str()), 3001u);
  EXPECT_EQ(estimate("%.3s", "a long string"), 4u);
  EXPECT_EQ(estimate("%.30s", "short"), 31u);
  EXPECT_EQ(estimate("%.s", "gone"), 1u);
  EXPECT_EQ(estimate("%.0s", "gone"), 1u);
  EXPECT_EQ(estimate("%8.3s", "string"), 9u);
}

TEST(Estimate, OfAStringWithPrecisionReadsNoFurther) {
  const char unterminated[3] = {'a', 'b', 'c'};
  EXPECT_EQ(estimate("%.3s", unterminated), 4u);
  EXPECT_EQ(estimate("%.*s", 2, unterminated), 3u);
}

TEST(Estimate, OfANullStringReservesEight) {
  const char* const null = nullptr;
  EXPECT_EQ(estimate("%s", null), 9u);
  EXPECT_EQ(estimate("%.3s", null), 9u);
  EXPECT_EQ(estimate("%.20s", null), 21u);
  EXPECT_EQ(estimate("%12s", null), 13u);
}

TEST(Estimate, OfAWideStringWarnsAndAddsAMargin) {
  const wchar_t* const wide = L"abc";
  // Measured by bytes: the first zero byte is near.
  const size_t bytes = std::strlen(reinterpret_cast<const char*>(wide));
  for (const char* fmt : {"%ls", "%S", "%lS"}) {
    EXPECT_EQ(estimate(fmt, wide), 1 + kMargin + bytes) << fmt;
    EXPECT_EQ(warnings(fmt, wide), Lines{kWideLine}) << fmt;
  }
  EXPECT_EQ(estimate("%.2ls", wide), 1 + kMargin + 2);
  // Not every formatter survives this one, but the library does.
  const Formatted null = formatted("%ls", static_cast<const wchar_t*>(nullptr));
  EXPECT_EQ(null.text, "(null)");
  EXPECT_EQ(null.allocations.back(), 1 + kMargin + 8);
  EXPECT_EQ(formatted("%Ls", "abc").allocations[0], 1 + kMargin + 3);
}

TEST(Estimate, OfAPointerReservesTheWidestAddress) {
  int object = 0;
  const size_t expected = 1u + (sizeof(void*) == 8 ? 20 : 10) + 2;
  EXPECT_EQ(estimate("%p", static_cast<void*>(&object)), expected);
  EXPECT_EQ(estimate("%p", static_cast<void*>(nullptr)), expected);
  EXPECT_EQ(formatted("%P", static_cast<void*>(&object)).allocations[0], expected);
}

TEST(Estimate, OfACountReservesNothing) {
  int count = -1;
  int wide_count = -1;
  const Formatted result = formatted("ab%n%s%5n", &count, "c", &wide_count);
  EXPECT_EQ(result.text, "abc");
  EXPECT_EQ(count, 2);
  EXPECT_EQ(wide_count, 3);
  EXPECT_EQ(result.allocations, Sizes{1 + 2 + 1 + 5});
  EXPECT_EQ(result.formatter_calls, 1);
}

TEST(Estimate, OfAnErrorTextReserves256AndLeaksItsPlaceholder) {
  const LeaksExpected leaks;
  LogCapture silent(99);
  errno = ENOENT;
  AllocationFaults faults(0);
  char* const text = g_strdup_printf(unseen("%m|%m"), 0);
  faults.disarm();
  EXPECT_STREQ(text, "No such file or directory|No such file or directory");
  std::free(text);
  ASSERT_EQ(faults.calls(), 3);
  EXPECT_EQ(test::allocation_size(1), kPlaceholder);
  EXPECT_EQ(test::allocation_size(2), kPlaceholder);
  EXPECT_EQ(test::allocation_size(3), 1u + 256 + 1 + 256);
  EXPECT_EQ(faults.outstanding(), 2);
}

TEST(Estimate, OfAnErrorTextIsTheSameWithoutMemoryForThePlaceholder) {
  LogCapture silent(99);
  errno = ENOENT;
  AllocationFaults faults(1);
  char* const text = g_strdup_printf(unseen("%m"), 0);
  faults.disarm();
  EXPECT_STREQ(text, "No such file or directory");
  EXPECT_EQ(test::allocation_size(2), 257u);
  std::free(text);
}

int clobber_errno(const char*, void*) {
  errno = EPERM;
  return 0;
}

TEST(StrdupPrintf, WarningsLeaveTheErrorTextAlone) {
  const LeaksExpected leaks;
  LogCapture log;
  g_debug_set_handler(clobber_errno, nullptr);
  errno = ENOENT;
  char* text = g_strdup_printf(unseen("%Lf %m"), 1.0L);
  EXPECT_STREQ(text, "1.000000 No such file or directory");
  std::free(text);
  // Also when the text is formatted again in a larger block.
  errno = ENOENT;
  text = g_strdup_printf(unseen("%Lf %m"), LDBL_MAX);
  EXPECT_NE(std::strstr(text, " No such file or directory"), nullptr);
  std::free(text);
}

TEST(Estimate, OfAPositionalParameterWarnsAndAddsAMargin) {
  EXPECT_EQ(estimate("%1$s", "abc"), 1 + kMargin + 1 + 1);
  EXPECT_EQ(warnings("%1$s", "abc"), Lines{kPositionalLine});
  EXPECT_EQ(estimate("%2$s %1$s", "a", "b"), 1 + kMargin + 2 + 1 + 1 + kMargin + 1 + 1);
  EXPECT_EQ(warnings("%2$s %1$s", "a", "b"), (Lines{kPositionalLine, kPositionalLine}));
#ifdef __GLIBC__  // musl's formatter takes those in turn from after the others
  // The arguments that are taken in turn are not touched by it.
  EXPECT_EQ(estimate("%1$s|%s", "abc"), 1 + kMargin + 1 + 1 + 1 + 3);
#endif
  // Beyond the margin the block grows.
  EXPECT_EQ(estimate("%1$2000d", 5), 1 + kMargin + 1 + 5);
}

TEST(Estimate, OfALongDoubleWarnsAndMeasuresItsFirstEightBytes) {
  for (const char* size : {"L", "ll", "q"}) {
    const std::string fmt = std::string("%") + size + "g";
    EXPECT_EQ(estimate(fmt.c_str(), 1.5L), 36u);
    EXPECT_EQ(warnings(fmt.c_str(), 1.5L), Lines{kLongDoubleLine});
  }
  const long double one = 1;
  uint64_t bits;
  std::memcpy(&bits, &one, sizeof bits);
  const bool is_double_one = bits == std::bit_cast<uint64_t>(1.0);
  // An extended format begins with its mantissa, which reads as a zero here.
  EXPECT_EQ(estimate("%Lf", one), is_double_one ? 37u : 36u);
}

TEST(Estimate, OfALongDoubleKeepsTheArgumentsInSync) {
  estimate("%Lf|%s|%Lg|%d|%s", 1.5L, "abc", -2.5L, 7, "def");
}

TEST(Estimate, OfAnUnfinishedConversionCountsItsCharacters) {
  EXPECT_EQ(estimate("100%", 0), 1u + 3 + 1);
  EXPECT_EQ(estimate("%", 0), 1u + 1);
  EXPECT_EQ(estimate("%l", 0), 1u + 2);
  EXPECT_EQ(estimate("%5l", 0), 1u + 5);  // width above the count
  EXPECT_EQ(estimate("%-2.1hh", 0), 1u + 7);
  EXPECT_EQ(estimate("%#", 0), 1u + 2 + 2);  // and what the flags add
  EXPECT_EQ(estimate("%+", 0), 1u + 2 + 1);
  EXPECT_EQ(warnings("%", 0), Lines{});
}

TEST(StrdupPrintf, KeepsTheTextInFrontOfAnUnfinishedConversion) {
#ifdef __GLIBC__
  EXPECT_EQ(formatted("100%", 0).text, "100");
#else
  EXPECT_EQ(formatted("100%", 0).text, "");  // musl's formatter looks ahead, and refuses
#endif
}

TEST(StrdupPrintf, KeepsTheTextInFrontOfAFailedConversion) {
  // No character of the C locale.
  const wchar_t wide[] = {0x20ac, 0};
  const Formatted result = formatted("abc%ls", wide);
  EXPECT_FALSE(result.null);
  EXPECT_EQ(result.text, "abc");
}

// Kept: the walk has never known "%F", unlike the system formatter.
TEST(Estimate, OfAnUpperCaseFixedPointFloatIsThatOfAnUnknownCharacter) {
  EXPECT_EQ(warnings("%F", 1.5), Lines{unknown_line('F')});
  EXPECT_EQ(estimate("%F", 1.5), 3u);        // its characters, the terminator counted
  EXPECT_EQ(estimate("%F|%d", 1.5, 5), 3u);  // "%F|%" is one conversion, "d" is text
  EXPECT_EQ(warnings("%F|%d", 1.5, 5), (Lines{unknown_line('F'), unknown_line('|')}));
  // "d" takes a part of the double: nothing after it is followed as a pointer or a width.
  EXPECT_EQ(estimate("%Fd|%s", 1.5, "abc"), 1u + 16 + 1);
  EXPECT_EQ(estimate("%Fd|%*d", 1.5, 3, 5), 1u + 16 + 1 + 16);
}

// The system formatter takes a number where the walk knows no conversion: what follows in
// the conversion is not followed as a pointer.
TEST(Estimate, OfBinaryNumbersIsThatOfAnUnknownCharacter) {
  for (const char* fmt : {"%bs|%s", "%Bs|%s"}) {
    EXPECT_EQ(warnings(fmt, 5, "abc"), Lines{unknown_line(fmt[1])});
    EXPECT_EQ(formatted(fmt, 5, "abc").allocations[0], 1u + 1) << fmt;
  }
}

TEST(Estimate, FollowsNoPointerAfterAConversionThatTheSystemFormatterLeavesAsText) {
  for (const char* odd : {"%D", "%O", "%U", "%P", "%5D", "%5Id", "%yd", "%5-d", "%l5d",
                          "%zld", "%.5 d", "%5.3.1d", "%lhd", "%-.5-s"}) {
    const std::string fmt = std::string("%d|") + odd + "|%s";
    estimate(fmt.c_str(), 1, "abc", 3, 4, 5, 6);
  }
  estimate("%D|%5d|%s", 1, "abc", 3, 4);  // once out of sync, always
  estimate("%*5d|%s", 1, "abc", 3, 4);    // to the formatter, a width and then text
  estimate("%y%d|%s", 1, "abc");          // to the walk, "%y%" and then text
}

TEST(Estimate, FollowsNoPointerAfterAConversionThatTakesMoreThanTheWalk) {
  estimate("%If|%s", 1.5, "abc");
  estimate("%Illd|%s", 5LL, "abc");
  // A width and a precision are taken in turn although the number itself is not.
  estimate("%1$*d|%s", 5, "abc");
  estimate("%1$-.*d|%s", 5, "abc");
  // To the walk, the second "%" begins a conversion.
  estimate("%1$%d|%s", "abc", 3, 4);
  // Here it takes the pointer for a width, which may be more memory than there is.
  formatted("%**$d|%s", 3, "abc", 4, 5);
#if defined(__i386__)
  // A long double of three words; the third is not a pointer.
  estimate("%jf|%s", 0xc000'0000'0000'0000, 0x3fff, "abc");
#endif
}

TEST(Estimate, OfLocaleDigitsKeepsTheArgumentsInSync) {
  // "%I" is a conversion, "d" is text.
  const size_t number = (kLongIs64Bit ? 34 : 17) + 1 + 1;
  EXPECT_EQ(estimate("%Id|%s", 5, "abc"), 1 + number + 1 + 3);
}

TEST(Estimate, StaysInSyncWithEveryWellFormedConversion) {
  const size_t expected = 1 + 3;
  EXPECT_EQ(estimate("%-+ #0'5.3hhd|%s", 5, "abc"), expected + 15 + 2 + 1 + 1);
  EXPECT_EQ(estimate("%*.*lld|%s", 5, 3, 5LL, "abc"), expected + 30 + 1 + 1);
  EXPECT_EQ(estimate("%.f|%s", 1.0, "abc"), expected + 36 + 1);
  EXPECT_EQ(estimate("%5c%p%s", 'c', nullptr, "abc"),
            expected + 5 + (sizeof(void*) == 8 ? 20 : 10) + 2);
  EXPECT_EQ(estimate("%5%|%s", "abc"), expected + 5 + 1);
}

TEST(Estimate, OfAnUnknownCharacterWarnsAndGoesOnWithTheConversion) {
  EXPECT_EQ(formatted("%yd", 5).allocations[0], 1u + 16);
  EXPECT_EQ(warnings("%yd", 5), Lines{unknown_line('y')});
  EXPECT_EQ(formatted("%!5?d", 5).allocations[0], 1u + 16);
  EXPECT_EQ(warnings("%!5?d", 5), (Lines{unknown_line('!'), unknown_line('?')}));
  EXPECT_EQ(formatted("%y", 0).allocations[0], 1u + 2);
  EXPECT_EQ(warnings("%y", 0), Lines{unknown_line('y')});
}

TEST(Estimate, KnowsTheSameCharactersOnEveryPlatform) {
  const std::string known = "#0- +'.123456789*hlLqzZtj%xXudioDIOUeEfFgGaAcCsSpPnm$";
  int object = 0;
  for (int byte = 1; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    if (known.find(c) != std::string::npos) continue;
    const std::string fmt = {'%', c, 'd'};
    EXPECT_EQ(warnings(fmt.c_str(), &object), Lines{unknown_line(c)}) << byte;
    EXPECT_EQ(formatted(fmt.c_str(), &object).allocations[0], 1u + 16) << byte;
  }
  for (const char c : std::string("#0- +'.123456789hlLqzZtj")) {
    const std::string fmt = {'%', c, 'd'};
    EXPECT_EQ(warnings(fmt.c_str(), 5LL), Lines{}) << c;
  }
}

TEST(Estimate, OfFlags) {
  EXPECT_EQ(estimate("%#x", 255u), 1u + 11 + 2);
  EXPECT_EQ(estimate("%#o", 255u), 1u + 18 + 2);
  EXPECT_EQ(estimate("%+d", 5), 1u + 16);  // one place for a sign, once
  EXPECT_EQ(estimate("% +d", 5), 1u + 16);
  EXPECT_EQ(estimate("%+s", "abc"), 1u + 3 + 1);
  EXPECT_EQ(estimate("% s", "abc"), 1u + 3 + 1);
  EXPECT_EQ(estimate("%+c", 'a'), 1u + 1 + 1);
  EXPECT_EQ(estimate("%#s", "abc"), 1u + 3 + 2);
  EXPECT_EQ(estimate("%#g", 1.5), 36u + 2);
  EXPECT_EQ(estimate("%0d", 5), 1u + 16);
  EXPECT_EQ(estimate("%-d", 5), 1u + 16);
}

TEST(Estimate, OfWidthsIsAtLeastTheWidth) {
  EXPECT_EQ(estimate("%20d", 5), 1u + 20 + 1);
  EXPECT_EQ(estimate("%020d", -5), 1u + 20 + 1);
  EXPECT_EQ(estimate("%-20d|", 5), 1u + 20 + 1 + 1);
  EXPECT_EQ(estimate("%10s", "abc"), 1u + 10);
  EXPECT_EQ(estimate("%-10s|", "abc"), 1u + 10 + 1);
  EXPECT_EQ(estimate("%2s", "abc"), 1u + 3);
  EXPECT_EQ(estimate("%50.3f", 1.0), 1u + 50 + 1);
  EXPECT_EQ(estimate("%.40d", 5), 1u + 40 + 1);
  EXPECT_EQ(estimate("%30.40d", 5), 1u + 40 + 1);
  EXPECT_EQ(estimate("%#40x", 5u), 1u + 40 + 2 + 1);
}

TEST(Estimate, OfSeveralNumbersInAConversionTakesTheLargest) {
  EXPECT_EQ(formatted("%30 20d", 5).allocations[0], 1u + 30 + 1);
  EXPECT_EQ(formatted("%20 30d", 5).allocations[0], 1u + 30 + 1);
  EXPECT_EQ(formatted("%.30 20d", 5).allocations[0], 1u + 30 + 1);
  EXPECT_EQ(formatted("%.20 30s", "abc").allocations[0], 1u + 30 + 1);
  EXPECT_EQ(formatted("%.20.30d", 5).allocations[0], 1u + 30 + 1);
  EXPECT_EQ(formatted("%30*d", 20, 5).allocations[0], 1u + 30 + 1);
  EXPECT_EQ(formatted("%20*d", -30, 5).allocations[0], 1u + 30 + 1);
  EXPECT_EQ(formatted("%.30*d", 20, 5).allocations[0], 1u + 30 + 1);
  EXPECT_EQ(formatted("%.20*d", 30, 5).allocations[0], 1u + 30 + 1);
}

TEST(Estimate, OfAnAsteriskTakesTheWidthFromTheArguments) {
  EXPECT_EQ(estimate("%*d", 30, 5), 1u + 30 + 1);
  EXPECT_EQ(estimate("%*d|", -30, 5), 1u + 30 + 1 + 1);
  EXPECT_EQ(estimate("%-*d", -12, 5), 1u + 15 + 1);
  EXPECT_EQ(estimate("%*s", 0, "abc"), 1u + 3);
  EXPECT_EQ(estimate("%*s|%s", 10, "abc", "def"), 1u + 10 + 1 + 3);
  EXPECT_EQ(estimate("%*s|", -10, "abc"), 1u + 10 + 1);
  EXPECT_EQ(estimate("%0*d|%0*d|", 10, -5, -10, -5), 1u + 16 + 1 + 16 + 1);
}

TEST(Estimate, OfAnAsteriskTakesThePrecisionFromTheArguments) {
  EXPECT_EQ(estimate("%.*d", 30, 5), 1u + 30 + 1);
  EXPECT_EQ(estimate("%.*s", 2, "abc"), 1u + 2);
  EXPECT_EQ(estimate("%.*s", 0, "abc"), 1u);
  EXPECT_EQ(estimate("%*.*f", 50, 30, 1.0), 1u + 50 + 1);
  EXPECT_EQ(estimate("%.*d", -30, 5), 1u + 16);
}

TEST(Estimate, OfANegativePrecisionForAStringIsZeroAndTheBlockGrows) {
  EXPECT_EQ(estimate("%.*s", -1, "abcdef"), 1u);
  EXPECT_EQ(formatted("%.*s", -1, "abcdef").allocations, (Sizes{1, 7}));
}

TEST(Estimate, OfTheSmallestWidthIsItsMagnitude) {
  if (sizeof(void*) > 4) GTEST_SKIP() << "2 GiB are there";
  const Formatted result = formatted("%*d", INT_MIN, 5);
  EXPECT_TRUE(result.null);
}

// --- the formatter -----------------------------------------------------------------------

TEST(StrdupPrintf, GrowsWhereTheSystemFormatterNeedsMoreThanTheEstimate) {
  const Formatted result = formatted("%F", 1e60);
  EXPECT_EQ(result.text.size(), 60u + 7);
  EXPECT_EQ(result.allocations, (Sizes{3, 68}));
  EXPECT_EQ(result.formatter_calls, 2);
}

TEST(StrdupPrintf, KeepsATextThatJustFits) {
  // 1000 digits and the terminator are the estimate, the place for the sign is taken too.
  const Formatted fits = formatted("%.1000d", -5);
  EXPECT_EQ(fits.text.size(), 1001u);
  EXPECT_EQ(fits.formatter_calls, 1);
  EXPECT_EQ(fits.allocations[0], 1002u);
}

TEST(StrdupPrintf, LeavesSimpleFormatsNotToTheSystemFormatter) {
  EXPECT_EQ(formatted("%s=%s\n", "port", "80").formatter_calls, 0);
  EXPECT_EQ(formatted("[%s]%c%%%d %u %x", "a", 'b', -1, 2u, 3u).formatter_calls, 0);
  EXPECT_EQ(
      formatted("%ld %lu %lx %lld %llu %llx %zu", 1L, 2UL, 3UL, 4LL, 5ULL, 6ULL, sizeof 0)
          .formatter_calls,
      0);
  EXPECT_EQ(formatted("%02d:%-5d|%08X|%5s|%-5s|", 1, 2, 3u, "a", "b").formatter_calls, 0);
  EXPECT_EQ(formatted("%*d|%0*x|%-*s|", 5, 1, 5, 2u, 5, "a").formatter_calls, 0);
}

TEST(StrdupPrintf, LeavesTheRestToTheSystemFormatterOnceAndBounded) {
  const Formatted result = formatted("%s %.1e", "abc", 1.5);
  EXPECT_EQ(result.formatter_calls, 1);
  EXPECT_EQ(result.formatter_bound, result.allocations[0]);
}

TEST(StrdupPrintf, LeavesLongRowsToTheSystemFormatter) {
  std::string fmt;
  for (int i = 0; i < 9; ++i) fmt += "%d,%s;";
  estimate(fmt.c_str(), 1, "a", 2, "b", 3, "c", 4, "d", 5, "e", 6, "f", 7, "g", 8, "h", 9,
           "i");
  fmt = "";
  for (int i = 0; i < 10; ++i) fmt += "%llu";
  estimate(fmt.c_str(), ~0ULL, ~0ULL, ~0ULL, ~0ULL, ~0ULL, ~0ULL, ~0ULL, ~0ULL, ~0ULL,
           ~0ULL);
  fmt = std::string(400, 'a');
  for (int i = 0; i < 20; ++i) fmt += "%c";
  estimate(fmt.c_str(), 'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l', 'm',
           'n', 'o', 'p', 'q', 'r', 's', 't');
}

TEST(StrdupPrintf, SpellsANumberWhereThereIsRoomForTheLongest) {
  constexpr auto kMost = ~0ULL;  // 20 digits
  const std::string fmt = "%llu%llu%llu%llu%llu%llu%llu%llu%c%c%c%c%c%c%c%c%c%c%c%c";
  const auto calls = [&](const std::string& tail, auto... more) {
    return formatted((fmt + tail).c_str(), kMost, kMost, kMost, kMost, kMost, kMost, kMost,
                     kMost, 'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l',
                     more...)
        .formatter_calls;
  };
  EXPECT_EQ(calls("%llu", kMost), 0);
  EXPECT_EQ(calls("%c%llu", 'm', kMost), 1);
}

// What is compared is the text; `spelled` is true if the system formatter was not called.
void expect_double(const char* fmt, double value, bool* spelled = nullptr) {
  char expected[600];
  std::snprintf(expected, sizeof expected, fmt, value);
  const Formatted result = formatted(fmt, value);
  ASSERT_EQ(result.text, expected) << fmt << " of " << std::hexfloat << value;
  if (spelled != nullptr) *spelled = result.formatter_calls == 0;
}

constexpr const char* kDoubleFormats[] = {
    "%f",     "%.0f",   "%.f", "%.1f", "%.2f", "%.3f", "%.9f", "%.10f", "%5.2f",
    "%-9.3f", "%09.4f", "%g",  "%.0g", "%.1g", "%.3g", "%.9g", "%.10g", "%12g",
    "%-12g",  "%012g",  "%+g", "% f",  "%#g",  "%e",   "%G",   "%a"};

TEST(StrdupPrintf, SpellsDoublesWithoutTheSystemFormatter) {
  for (const char* fmt : {"%f", "%.2f", "%5.2f", "%-9.3f", "%09.4f", "%g", "%.3g"}) {
    for (const double value : {0.0, -0.0, 1.5, -21.375, 0.1, 99.995, 409.0}) {
      bool spelled = false;
      expect_double(fmt, value, &spelled);
      EXPECT_TRUE(spelled) << fmt << " of " << value;
    }
  }
}

TEST(StrdupPrintf, AZeroAfterThePointPadsNothing) {
  for (const char* fmt : {"%8.0f", "%8.02f", "%8.00f", "%-8.0f|", "%12.03g", "%08.02f"}) {
    expect_double(fmt, 3.75);
  }
  EXPECT_EQ(formatted("%8.0s|%8.02s|", "abc", "abc").text, "        |      ab|");
}

// Around powers of ten, ties, and the limits of the type; with the neighbours of each.
std::vector<double> edges_of_doubles() {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  std::vector<double> values = {0.0,
                                kInfinity,
                                std::nan(""),
                                DBL_MAX,
                                DBL_MIN,
                                std::numeric_limits<double>::denorm_min(),
                                0.5,
                                1.5,
                                2.5,
                                0.125,
                                0.375,
                                999999.5,
                                999999.4999999,
                                9.9999995,
                                0.99999995,
                                0.09999999,
                                0.00099999,
                                0.00009999,
                                0.0001,
                                0.001,
                                0.01,
                                4294967295.0,
                                4294967295.5,
                                4294967296.0,
                                0x1p-11,
                                0x1p-12};
  for (double power = 1e-6; power < 1e12; power *= 10) {
    for (const double value : {power, 0.5 * power, 9.5 * power}) values.push_back(value);
  }
  const size_t count = values.size();
  for (size_t i = 0; i < count; ++i) {
    values.push_back(std::nextafter(values[i], 0.0));
    values.push_back(std::nextafter(values[i], kInfinity));
  }
  return values;
}

TEST(StrdupPrintf, FormatsDoublesAtTheEdges) {
  for (const double value : edges_of_doubles()) {
    for (const char* fmt : kDoubleFormats) {
      expect_double(fmt, value);
      expect_double(fmt, -value);
    }
  }
}

TEST(StrdupPrintf, FormatsRandomDoubles) {
  std::mt19937_64 random(20261121);
  for (int i = 0; i < 20'000; ++i) {
    // Of every size that is spelled and some besides; every other one with a short
    // fraction, as measured values and ties have.
    const int exponent = static_cast<int>(random() % 60) - 20;
    double value = std::ldexp(static_cast<double>(random() >> 11) * 0x1p-53, exponent);
    if (i % 2 == 0) value = std::nearbyint(value * 1024) / 1024;
    for (const char* fmt : {"%f", "%.0f", "%.1f", "%.2f", "%.9f", "%g", "%.3g", "%.9g"}) {
      expect_double(fmt, value);
    }
  }
}

TEST(StrdupPrintf, RoundsDoublesAsTheProcessorIsSetTo) {
  for (const int mode : {FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO, FE_TONEAREST}) {
    ASSERT_EQ(std::fesetround(mode), 0);
    for (const double value : {0.15, -0.15, 2.5, 1.005}) {
      for (const char* fmt : {"%.1f", "%.0f", "%.2g"}) expect_double(fmt, value);
    }
  }
}

TEST(StrdupPrintf, LeavesAForeignDecimalPointToTheSystemFormatter) {
  decimal_point = ",";
  const Formatted result = formatted("%.1f", 1.5);
  decimal_point = nullptr;
  EXPECT_EQ(result.formatter_calls, 1);
}

TEST(StrdupPrintf, CutsAStringAtThePrecisionWithoutTheSystemFormatter) {
  const char open[] = {'a', 'b', 'c', 'd'};  // no terminator within the precision
  const Formatted result =
      formatted("<%.4s|%.2s|%6.3s|%-4.1s|%.9s>", open, "xyz", "abcd", "q", "short");
  EXPECT_EQ(result.text, "<abcd|xy|   abc|q   |short>");
  EXPECT_EQ(result.formatter_calls, 0);
}

TEST(StrdupPrintf, WritesAZeroCharacterWithinTheText) {
  char* const text = g_strdup_printf("a%cb", 0);
  EXPECT_EQ(std::string(text, 4), std::string("a\0b\0", 4));
  std::free(text);
}

TEST(StrdupPrintf, FormatsIntegersAtTheirLimitsInEveryShape) {
  const int64_t values[] = {0,         1,         -1,         9,          10,
                            99,        100,       INT_MAX,    INT_MIN,    UINT_MAX,
                            INT64_MAX, INT64_MIN, 4294967296, -4294967297};
  for (const int64_t value : values) {
    for (const char* flags : {"", "-", "0", "-0", "0-", "+", " ", "#", "'", "."}) {
      for (const char* width : {"", "1", "12", "32", "33", "34"}) {
        for (const char* conversion : {"d", "i", "u", "x", "X", "o"}) {
          const std::string head = std::string("%") + flags + width;
          expect_text_of_the_formatter((head + conversion).c_str(),
                                       static_cast<int>(value));
          expect_text_of_the_formatter((head + "l" + conversion).c_str(),
                                       static_cast<long>(value));
          expect_text_of_the_formatter((head + "z" + conversion).c_str(),
                                       static_cast<size_t>(value));
          expect_text_of_the_formatter((head + "ll" + conversion).c_str(),
                                       static_cast<long long>(value));
        }
      }
    }
  }
}

// --- random formats ----------------------------------------------------------------------

std::mt19937 randomness(20);

unsigned below(unsigned limit) {
  return static_cast<unsigned>(randomness() % limit);
}

std::string one_of(std::initializer_list<const char*> choices) {
  return choices.begin()[below(static_cast<unsigned>(choices.size()))];
}

// A conversion as it was put together, and the size that this gives.
struct RandomConversion {
  std::string flags;
  int width = -1;
  int precision = -1;
  std::string size;
  char character = 0;

  RandomConversion(std::initializer_list<const char*> sizes, const std::string& characters)
      : size(one_of(sizes)), character(characters[below(unsigned(characters.size()))]) {
    if (below(2) == 0) return;
    for (const char flag : std::string("-0 +#'")) {
      if (below(4) == 0) flags += flag;
    }
    if (below(2) == 0) width = static_cast<int>(1 + below(45));
    if (below(3) == 0) precision = static_cast<int>(below(45));
  }

  std::string text() const {
    return "%" + flags + (width >= 0 ? std::to_string(width) : "") +
           (precision >= 0 ? "." + std::to_string(precision) : "") + size + character;
  }
  bool has(char flag) const { return flags.find(flag) != std::string::npos; }

  // `content`: a string's own length, or the digits by a double's exponent.
  size_t estimated(size_t content = 0) const {
    const size_t digits = precision > 0 ? static_cast<size_t>(precision) : 0;
    size_t length = 0;
    bool sign = has('+') || has(' ');
    switch (character) {
      case 'x':
      case 'X':
        length = 10;
        sign = true;
        break;
      case 'u':
        length = 14;
        sign = true;
        break;
      case 'd':
      case 'i':
        length = 15;
        sign = true;
        break;
      case 'o':
        length = 17;
        sign = true;
        break;
      case 'c':
        length = 1;
        break;
      case 's':
        length = precision >= 0 ? digits : content;
        break;
      case 'a':
        length = 2 + 8 + std::max<size_t>(24, digits) + 2;
        sign = true;
        break;
      case 'f':
        length = 8 + std::max<size_t>(24, digits) + content + 2;
        sign = true;
        break;
      default:
        length = 8 + std::max<size_t>(24, digits) + 2;
        sign = true;
        break;
    }
    if (size == "ll" || (kLongIs64Bit && (size == "l" || size == "z" || size == "t")))
      length *= 2;
    if (std::strchr("eEfFgGa", character) != nullptr && has('\'')) length *= 2;
    if (width > 0) length = std::max(length, static_cast<size_t>(width));
    length = std::max(length, digits);
    return length + (has('#') ? 2 : 0) + (sign ? 1 : 0);
  }
};

double random_double() {
  switch (below(4)) {
    case 0:
      return static_cast<int>(randomness()) / 100.0;
    case 1:
      return std::ldexp(static_cast<int>(randomness()), static_cast<int>(below(200)) - 100);
    case 2:
      return 0;
    default:
      return std::bit_cast<double>(uint64_t{randomness()} << 32 | randomness());
  }
}

size_t digits_by_exponent(double value) {
  if (!std::isnormal(value)) return 0;
  return static_cast<size_t>(
      std::fabs(std::trunc(std::ilogb(value) * 0.3010299956639812 + 1)));
}

uint64_t random_integer() {
  const uint64_t value = uint64_t{randomness()} << 32 | randomness();
  return below(2) == 0 ? value >> below(64) : 0 - (value >> below(64));
}

TEST(StrdupPrintf, AgreesWithTheSystemFormatterAndASimpleModelOnRandomFormats) {
  for (int round = 0; round < 5000; ++round) {
    const RandomConversion i({"", "", "h", "hh"}, "diuxXo");
    const RandomConversion s({""}, "s");
    const RandomConversion l({"l", "z", "t"}, "diuxXo");
    const RandomConversion ll({"ll"}, "diuxXo");
    const RandomConversion d({""}, "fffeEgGa");
    const RandomConversion c({""}, "c");
    const RandomConversion last({""}, "s");
    const auto integer = static_cast<int>(random_integer());
    const auto long_integer = static_cast<long>(random_integer());
    const auto long_long = static_cast<long long>(random_integer());
    const double number = random_double();
    const std::string string(below(60), static_cast<char>('a' + below(26)));
    const int character = static_cast<int>(1 + below(255));

    // Half of the rounds without a float, so that simple formats come up.
    const bool with_float = below(2) == 0;
    const std::string literal(below(4), '-');
    const std::string head = literal + i.text() + "%%" + s.text() + l.text() + ll.text();
    const std::string tail = c.text() + literal + last.text() + "\n";
    const size_t size = 1 + 2 * literal.size() + 1 + 1 + i.estimated() +
                        s.estimated(string.size()) + l.estimated() + ll.estimated() +
                        c.estimated() + last.estimated(4);
    const std::string fmt = with_float ? head + d.text() + tail : head + tail;
    SCOPED_TRACE(fmt);
    if (with_float) {
      ASSERT_EQ(estimate(fmt.c_str(), integer, string.c_str(), long_integer, long_long,
                         number, character, "last"),
                size + d.estimated(digits_by_exponent(number)));
    } else {
      ASSERT_EQ(estimate(fmt.c_str(), integer, string.c_str(), long_integer, long_long,
                         character, "last"),
                size);
    }
    ASSERT_FALSE(HasFailure());
  }
}

TEST(StrdupPrintf, AgreesWithTheSystemFormatterOnRandomBytesAfterThePercentSign) {
  // Whatever the conversions are made of, the arguments are good for any of them: small
  // numbers, which no string conversion may take.
  LogCapture silent(99);
  const std::string bytes = "#0- +'.123hlqzdiuxXc%y|";
  for (int round = 0; round < 10000; ++round) {
    std::string fmt;
    for (unsigned count = 1 + below(8); count > 0; --count) {
      fmt += below(3) == 0 ? '%' : bytes[below(static_cast<unsigned>(bytes.size()))];
    }
    SCOPED_TRACE(fmt);
    // Estimate and formatter may take different numbers of them.
    expect_text_of_the_formatter(fmt.c_str(), 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14,
                                 15, 16);
    ASSERT_FALSE(HasFailure());
  }
}

}  // namespace
