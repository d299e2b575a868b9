// Reading values: defaults, conversions, checks.
//
// SPDX-License-Identifier: MIT

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "conf/conf_support.h"

using namespace test;

namespace {

class ConfRead : public testing::Test {
 protected:
  // The stored value read as an int, with -99 as the default.
  int as_int(const std::string& text) { return g_conf_read_int(with(text), "s", "k", -99); }
  int as_boolean(const std::string& text) {
    return g_conf_read_boolean(with(text), "s", "k", -99);
  }
  double as_double(const std::string& text) {
    return g_conf_read_double(with(text), "s", "k", -99);
  }
  float as_float(const std::string& text) {
    return g_conf_read_float(with(text), "s", "k", -99);
  }

  GConf* with(const std::string& text) {
    g_conf_write_string(conf_.get(), "s", "k", text.c_str());
    return conf_.get();
  }

  ConfFile file_{"[Net]\nIp = 10.0.0.1\nempty=\n"};
  Conf conf_ = file_.open();
};

TEST_F(ConfRead, AValueIsFoundIgnoringCase) {
  EXPECT_STREQ(g_conf_read_string(conf_.get(), "Net", "Ip", "d"), "10.0.0.1");
  EXPECT_STREQ(g_conf_read_string(conf_.get(), "nET", "iP", "d"), "10.0.0.1");
}

TEST_F(ConfRead, NamesAreNotTrimmed) {
  EXPECT_STREQ(g_conf_read_string(conf_.get(), "Net ", "Ip", "d"), "d");
  EXPECT_STREQ(g_conf_read_string(conf_.get(), "Net", " Ip", "d"), "d");
}

TEST_F(ConfRead, TheResultIsTheStoredStringItself) {
  GConfEntry* const entry = g_find_line(g_find_section(conf_.get(), "Net"), "Ip");
  EXPECT_EQ(g_conf_read_string(conf_.get(), "Net", "Ip", "d"), entry->value);
}

TEST_F(ConfRead, WhatIsMissingOrEmptyReadsAsTheDefaultWithoutALogLine) {
  LogCapture log(0);
  const char* const def = "default";
  EXPECT_EQ(g_conf_read_string(conf_.get(), "Net", "none", def), def);
  EXPECT_EQ(g_conf_read_string(conf_.get(), "none", "Ip", def), def);
  EXPECT_EQ(g_conf_read_string(conf_.get(), "Net", "empty", def), def);
  EXPECT_EQ(g_conf_read_string(conf_.get(), "Net", "empty", nullptr), nullptr);
  EXPECT_EQ(g_conf_read_int(conf_.get(), "Net", "empty", 7), 7);
  EXPECT_EQ(g_conf_read_boolean(conf_.get(), "Net", "empty", 7), 7);
  EXPECT_EQ(g_conf_read_float(conf_.get(), "Net", "none", 1.5F), 1.5F);
  EXPECT_EQ(g_conf_read_double(conf_.get(), "none", "Ip", 2.5), 2.5);
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(ConfRead, BlanksOnlyReadAsTheDefault) {
  g_conf_write_string(conf_.get(), "Net", "Ip", "  ");
  EXPECT_STREQ(g_conf_read_string(conf_.get(), "Net", "Ip", "d"), "d");
  EXPECT_EQ(loaded("[s]\nk=  \t\n"), (Sections{{"s", {{"k", ""}}}}));
}

TEST_F(ConfRead, ANullConfAloneReturnsTheDefaultSilently) {
  LogCapture log(0);
  EXPECT_STREQ(g_conf_read_string(nullptr, "s", "k", "d"), "d");
  EXPECT_EQ(g_conf_read_string(nullptr, "s", "k", nullptr), nullptr);
  EXPECT_EQ(g_conf_read_int(nullptr, "s", "k", 7), 7);
  EXPECT_EQ(g_conf_read_boolean(nullptr, "s", "k", 7), 7);
  EXPECT_EQ(g_conf_read_float(nullptr, "s", "k", 1.5F), 1.5F);
  EXPECT_EQ(g_conf_read_double(nullptr, "s", "k", 2.5), 2.5);
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(ConfRead, ANullNameIsReportedSectionFirstAndOnceAndReturnsTheDefault) {
  for (GConf* const conf : {conf_.get(), static_cast<GConf*>(nullptr)}) {
    const auto expect_check = [&](const char* section, const char* key, const char* text) {
      LogCapture log;
      EXPECT_STREQ(g_conf_read_string(conf, section, key, "d"), "d");
      EXPECT_EQ(log.take(), Lines{check_line("g_conf", text)});
      EXPECT_EQ(g_conf_read_int(conf, section, key, 7), 7);
      EXPECT_EQ(log.take(), Lines{check_line("g_conf", text)});
      EXPECT_EQ(g_conf_read_boolean(conf, section, key, 7), 7);
      EXPECT_EQ(log.take(), Lines{check_line("g_conf", text)});
      EXPECT_EQ(g_conf_read_float(conf, section, key, 1.5F), 1.5F);
      EXPECT_EQ(log.take(), Lines{check_line("g_conf", text)});
      EXPECT_EQ(g_conf_read_double(conf, section, key, 2.5), 2.5);
      EXPECT_EQ(log.take(), Lines{check_line("g_conf", text)});
    };
    expect_check(nullptr, "k", "section != NULL");
    expect_check("s", nullptr, "key != NULL");
    expect_check(nullptr, nullptr, "section != NULL");
  }
}

TEST_F(ConfRead, AFailedCheckIsSilentUnderTheSilentThreshold) {
  LogCapture log(99);
  EXPECT_EQ(g_conf_read_int(conf_.get(), nullptr, "k", 7), 7);
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(ConfRead, AnIntegerEndsAtTheFirstOtherCharacter) {
  EXPECT_EQ(as_int("12abc"), 12);
  EXPECT_EQ(as_int("-7"), -7);
  EXPECT_EQ(as_int("+8.9"), 8);
  EXPECT_EQ(as_int("010"), 10);
  EXPECT_EQ(as_int("0x10"), 0);
}

TEST_F(ConfRead, LeadingBlanksOfANumberAreAccepted) {
  EXPECT_EQ(as_int(" -7"), -7);
  // Blanks that were not trimmed: in the value of a record that the program made.
  GConfEntry* const entry = g_find_line(g_find_section(conf_.get(), "s"), "k");
  char text[] = " \t-8";
  char* const original = std::exchange(entry->value, text);
  EXPECT_EQ(g_conf_read_int(conf_.get(), "s", "k", 0), -8);
  entry->value = original;
}

TEST_F(ConfRead, AValueThatAProgramWroteIntoIsTrimmedInPlace) {
  GConfEntry* const entry = g_find_line(g_find_section(conf_.get(), "Net"), "Ip");
  char* const value = entry->value;
  std::strcpy(value, " \t12 3\r\n");
  EXPECT_EQ(g_conf_read_string(conf_.get(), "Net", "Ip", "d"), value);
  EXPECT_STREQ(value, "12 3");
  std::strcpy(value, "TRUE ");
  EXPECT_EQ(g_conf_read_boolean(conf_.get(), "Net", "Ip", 7), 1);
  EXPECT_STREQ(entry->value, "TRUE");
  std::strcpy(value, "  ");
  EXPECT_STREQ(g_conf_read_string(conf_.get(), "Net", "Ip", "d"), "d");
  EXPECT_STREQ(value, "");
  EXPECT_EQ(conf_->dirty, 0);
}

TEST_F(ConfRead, ATextWithoutDigitsIsZeroNotTheDefault) {
  EXPECT_EQ(as_int("abc"), 0);
  EXPECT_EQ(as_int("-"), 0);
  EXPECT_EQ(as_double("abc"), 0.0);
  EXPECT_EQ(as_float("abc"), 0.0F);
}

TEST_F(ConfRead, AnIntegerClampsTo32Bits) {
  EXPECT_EQ(as_int("2147483647"), INT32_MAX);
  EXPECT_EQ(as_int("2147483648"), INT32_MAX);
  EXPECT_EQ(as_int("4294967297"), INT32_MAX);
  EXPECT_EQ(as_int("99999999999999999999999"), INT32_MAX);
  EXPECT_EQ(as_int("-2147483648"), INT32_MIN);
  EXPECT_EQ(as_int("-2147483649"), INT32_MIN);
  EXPECT_EQ(as_int("-99999999999999999999999"), INT32_MIN);
}

TEST_F(ConfRead, OnlyTrueInAnyCaseIsTrue) {
  for (const char* const text : {"TRUE", "true", "True", "tRuE"})
    EXPECT_EQ(as_boolean(text), 1);
  for (const char* const text : {"FALSE", "yes", "1", "on", "TRUE1", "TRU", "T RUE"}) {
    EXPECT_EQ(as_boolean(text), 0) << text;
  }
}

TEST_F(ConfRead, FloatingNumbers) {
  EXPECT_EQ(as_double("1.5e3x"), 1500.0);
  EXPECT_EQ(as_double("-0.1"), -0.1);
  EXPECT_EQ(as_double("0x1p-2"), 0.25);
  EXPECT_EQ(as_double("1e999"), HUGE_VAL);
  EXPECT_TRUE(std::isnan(as_double("nan")));
  EXPECT_EQ(as_float("0.1"), 0.1F);
  EXPECT_EQ(as_float("1e300"), std::numeric_limits<float>::infinity());
  EXPECT_EQ(as_float("1e-300"), 0.0F);
  EXPECT_EQ(as_float("16777217"), 16777216.0F);
}

TEST_F(ConfRead, ReadingChangesNothing) {
  g_conf_read_string(conf_.get(), "new", "key", "d");
  g_conf_read_int(conf_.get(), "Net", "new", 1);
  EXPECT_EQ(content(conf_.get()), (Sections{{"Net", {{"Ip", "10.0.0.1"}, {"empty", ""}}}}));
  EXPECT_EQ(conf_->dirty, 0);
}

}  // namespace
