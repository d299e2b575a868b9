// Writing and removing values, and what that leaves in the file.
//
// SPDX-License-Identifier: MIT

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>

#include "conf/conf_support.h"
#include "conf/own_locale.h"

using namespace test;

namespace {

class ConfWrite : public testing::Test {
 protected:
  void write(const char* section, const char* key, const char* value) {
    g_conf_write_string(conf_.get(), section, key, value);
  }
  const char* read(const char* section, const char* key) {
    return g_conf_read_string(conf_.get(), section, key, "(none)");
  }
  Sections now() { return content(conf_.get()); }

  ConfFile file_{"[Net]\nIp=10.0.0.1\nPort=80\n[b]\nk=v\n"};
  Conf conf_ = file_.open();
  const Sections before_ = now();
};

TEST_F(ConfWrite, AChangedValueReplacesInPlaceAndKeepsTheSpelling) {
  GConfEntry* const entry = g_find_line(g_find_section(conf_.get(), "net"), "ip");
  write("NET", "IP", "1.1.1.1");
  EXPECT_EQ(now(),
            (Sections{{"Net", {{"Ip", "1.1.1.1"}, {"Port", "80"}}}, {"b", {{"k", "v"}}}}));
  EXPECT_EQ(g_find_line(g_find_section(conf_.get(), "net"), "ip"), entry);
  EXPECT_EQ(conf_->dirty, 1);
  write("NET", "IP", "2");
  EXPECT_STREQ(entry->value, "2");
}

TEST_F(ConfWrite, ANewKeyIsAppendedToItsSection) {
  write("net", "Mask", "x");
  EXPECT_EQ(now()[0], (Sections::value_type{
                          "Net", {{"Ip", "10.0.0.1"}, {"Port", "80"}, {"Mask", "x"}}}));
  EXPECT_EQ(conf_->dirty, 1);
}

TEST_F(ConfWrite, ANewSectionIsAppendedNamedAsGiven) {
  write(" New ", " key ", " va lue ");
  EXPECT_EQ(now().size(), 3u);
  EXPECT_EQ(now()[2], (Sections::value_type{" New ", {{"key", "va lue"}}}));
}

TEST_F(ConfWrite, AnEqualValueChangesNothing) {
  write("net", "port", "80");
  EXPECT_EQ(conf_->dirty, 0);
  EXPECT_EQ(now(), before_);
}

TEST_F(ConfWrite, ValuesAreComparedWithTheirCase) {
  write("b", "k", "V");
  EXPECT_STREQ(read("b", "k"), "V");
  EXPECT_EQ(conf_->dirty, 1);
}

TEST_F(ConfWrite, AnEmptyValueForAMissingKeyStoresNothing) {
  write("b", "new", "");
  write("new", "k", "");
  EXPECT_EQ(now(), before_);
  EXPECT_EQ(conf_->dirty, 0);
}

TEST_F(ConfWrite, AnEmptyValueReplacesAValueAndThenCountsAsAbsent) {
  write("b", "k", "");
  EXPECT_EQ(now()[1], (Sections::value_type{"b", {{"k", ""}}}));
  EXPECT_EQ(conf_->dirty, 1);
  g_conf_sync(conf_.get());
  write("b", "k", "");
  EXPECT_EQ(conf_->dirty, 0);
}

TEST_F(ConfWrite, BlanksOnlyForAMissingKeyStoreAnEmptyValue) {
  write("b", "new", "  ");
  EXPECT_EQ(now()[1], (Sections::value_type{"b", {{"k", "v"}, {"new", ""}}}));
  EXPECT_EQ(conf_->dirty, 1);
}

TEST_F(ConfWrite, ABlankMoreCountsAsAChangeAlthoughTheStoredTextStays) {
  write("b", "k", " v");
  EXPECT_EQ(now(), before_);
  EXPECT_EQ(conf_->dirty, 1);
}

TEST_F(ConfWrite, BlanksOfEveryKindAreTrimmedAndNoOtherByte) {
  const std::string blanks = " \t\n\v\f\r";
  for (int byte = 1; byte < 256; ++byte) {
    const std::string around(1, static_cast<char>(byte));
    write("b", (around + "t" + around).c_str(), (around + "x y" + around).c_str());
    const bool is_blank = blanks.find(around) != std::string::npos;
    const auto expected =
        is_blank ? Keys::value_type{"t", "x y"}
                 : Keys::value_type{around + "t" + around, around + "x y" + around};
    EXPECT_EQ(now()[1].second.back(), expected) << byte;
    g_conf_remove_key(conf_.get(), "b", expected.first.c_str());
    EXPECT_EQ(now()[1].second.size(), 1u);
  }
}

TEST_F(ConfWrite, AValueThatAProgramWroteIntoIsComparedTrimmed) {
  GConfEntry* const entry = g_find_line(g_find_section(conf_.get(), "net"), "ip");
  std::strcpy(entry->value, " 1 ");
  write("net", "ip", "1");
  EXPECT_STREQ(entry->value, "1");
  EXPECT_EQ(conf_->dirty, 0);
  std::strcpy(entry->value, " 2 ");
  write("net", "ip", entry->value);  // by then it is trimmed
  EXPECT_STREQ(entry->value, "2");
  EXPECT_EQ(conf_->dirty, 0);
}

TEST_F(ConfWrite, ABlankKeyComparesAsAbsentAndSetsTheTrimmedOne) {
  write("b", " k ", "v");  // differs from what " k " holds: nothing
  EXPECT_EQ(now(), before_);
  EXPECT_EQ(conf_->dirty, 1);
  g_conf_sync(conf_.get());
  write("b", " k ", "w");
  EXPECT_EQ(now()[1], (Sections::value_type{"b", {{"k", "w"}}}));
  g_conf_sync(conf_.get());
  write("b", " k ", "");  // equals what " k " holds
  EXPECT_EQ(now()[1], (Sections::value_type{"b", {{"k", "w"}}}));
  EXPECT_EQ(conf_->dirty, 0);
  write("b", " ", "e");
  EXPECT_EQ(now()[1], (Sections::value_type{"b", {{"k", "w"}, {"", "e"}}}));
}

TEST_F(ConfWrite, AValueMayBeAPieceOfTheStoredOne) {
  write("b", "k", "0123456789");
  write("b", "k", read("b", "k") + 4);
  EXPECT_STREQ(read("b", "k"), "456789");
  write("b", "k", read("net", "ip"));
  EXPECT_STREQ(read("b", "k"), "10.0.0.1");
  // The names too may come from the records.
  GConfSection* const section = g_find_section(conf_.get(), "b");
  write(section->name, g_find_line(section, "k")->key, section->name);
  EXPECT_STREQ(read("b", "k"), "b");
}

TEST_F(ConfWrite, IntegersAreStoredInDecimal) {
  const std::vector<std::pair<int, const char*>> rows = {
      {1, "1"}, {0, "0"}, {-1, "-1"}, {INT_MAX, "2147483647"}, {INT_MIN, "-2147483648"}};
  for (const auto& [value, text] : rows) {
    g_conf_write_int(conf_.get(), "t", "int", value);
    EXPECT_STREQ(read("t", "int"), text);
  }
}

TEST_F(ConfWrite, TruthIsStoredAsAWord) {
  g_conf_write_boolean(conf_.get(), "t", "b", 5);
  EXPECT_STREQ(read("t", "b"), "TRUE");
  g_conf_write_boolean(conf_.get(), "t", "b", 0);
  EXPECT_STREQ(read("t", "b"), "FALSE");
  g_conf_write_boolean(conf_.get(), "t", "b", -1);
  EXPECT_STREQ(read("t", "b"), "TRUE");
}

TEST_F(ConfWrite, FloatingNumbersKeepSixDigits) {
  const std::vector<std::pair<double, const char*>> rows = {
      {3.14159265, "3.14159"},     {1234567.0, "1.23457e+06"}, {0.0, "0"},
      {-0.0001, "-0.0001"},        {100000, "100000"},         {HUGE_VAL, "inf"},
      {-DBL_MAX, "-1.79769e+308"}, {-5e-324, "-4.94066e-324"}};
  for (const auto& [value, text] : rows) {
    g_conf_write_double(conf_.get(), "t", "double", value);
    EXPECT_STREQ(read("t", "double"), text);
  }
  g_conf_write_float(conf_.get(), "t", "float", 0.1F);
  EXPECT_STREQ(read("t", "float"), "0.1");
  g_conf_write_float(conf_.get(), "t", "float", 16777216.0F);
  EXPECT_STREQ(read("t", "float"), "1.67772e+07");
}

TEST_F(ConfWrite, ATypedWriteOfTheStoredTextChangesNothing) {
  g_conf_write_int(conf_.get(), "net", "port", 80);
  EXPECT_EQ(conf_->dirty, 0);
  g_conf_write_double(conf_.get(), "net", "port", 80.0000001);
  EXPECT_EQ(conf_->dirty, 0);
}

TEST_F(ConfWrite, ChecksInOrderEachReportedOnceAndNothingDone) {
  LogCapture log;
  const auto expect_checks = [&](const char* name, auto call) {
    SCOPED_TRACE(name);
    call(nullptr, nullptr, nullptr);
    EXPECT_EQ(log.take(), Lines{check_line("g_conf", "conf != NULL")});
    call(conf_.get(), nullptr, nullptr);
    EXPECT_EQ(log.take(), Lines{check_line("g_conf", "section != NULL")});
    call(conf_.get(), "new", nullptr);
    EXPECT_EQ(log.take(), Lines{check_line("g_conf", "key != NULL")});
  };
  using Conf_ = GConf*;
  using Text = const char*;
  expect_checks("string",
                [](Conf_ c, Text s, Text k) { g_conf_write_string(c, s, k, nullptr); });
  expect_checks("int", [](Conf_ c, Text s, Text k) { g_conf_write_int(c, s, k, 1); });
  expect_checks("boolean",
                [](Conf_ c, Text s, Text k) { g_conf_write_boolean(c, s, k, 1); });
  expect_checks("float", [](Conf_ c, Text s, Text k) { g_conf_write_float(c, s, k, 1); });
  expect_checks("double", [](Conf_ c, Text s, Text k) { g_conf_write_double(c, s, k, 1); });
  expect_checks("remove", [](Conf_ c, Text s, Text k) { g_conf_remove_key(c, s, k); });
  g_conf_write_string(conf_.get(), "new", "k", nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_conf", "value != NULL")});
  g_conf_remove_section(nullptr, nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_conf", "conf != NULL")});
  g_conf_remove_section(conf_.get(), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_conf", "section != NULL")});
  EXPECT_EQ(now(), before_);
  EXPECT_EQ(conf_->dirty, 0);
}

TEST_F(ConfWrite, ARemovedKeyIsGoneAndTheConfDirty) {
  g_conf_remove_key(conf_.get(), "NET", "IP");
  EXPECT_EQ(now()[0], (Sections::value_type{"Net", {{"Port", "80"}}}));
  EXPECT_EQ(conf_->dirty, 1);
  write("net", "ip", "2");
  EXPECT_EQ(now()[0], (Sections::value_type{"Net", {{"Port", "80"}, {"ip", "2"}}}));
}

TEST_F(ConfWrite, ARemovedSectionIsGoneAndTheConfDirty) {
  g_conf_remove_section(conf_.get(), "NET");
  EXPECT_EQ(now(), (Sections{{"b", {{"k", "v"}}}}));
  EXPECT_EQ(conf_->dirty, 1);
  g_conf_remove_section(conf_.get(), "b");
  EXPECT_EQ(conf_->sections, nullptr);
}

TEST_F(ConfWrite, RemovingWhatIsMissingLeavesTheConfClean) {
  LogCapture log(0);
  g_conf_remove_key(conf_.get(), "net", "none");
  g_conf_remove_key(conf_.get(), "none", "ip");
  g_conf_remove_key(conf_.get(), "net", " ip");
  g_conf_remove_section(conf_.get(), "none");
  EXPECT_EQ(now(), before_);
  EXPECT_EQ(conf_->dirty, 0);
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(ConfWrite, SyncWritesTheModelAndClearsTheFlag) {
  write("Net", "Ip", "1");
  g_conf_sync(conf_.get());
  EXPECT_EQ(conf_->dirty, 0);
  EXPECT_EQ(file_.text(), "[Net]\nIp=1\nPort=80\n\n[b]\nk=v\n\n");
}

TEST_F(ConfWrite, SyncOfACleanConfWritesNothing) {
  g_conf_sync(conf_.get());
  EXPECT_EQ(file_.text(), "[Net]\nIp=10.0.0.1\nPort=80\n[b]\nk=v\n");
  write("b", "k", "w");
  g_conf_sync(conf_.get());
  file_.remove();
  write("b", "k", "w");  // equal
  g_conf_sync(conf_.get());
  EXPECT_FALSE(file_.exists());
}

TEST_F(ConfWrite, SectionsWithoutKeysAreNotWritten) {
  g_conf_remove_key(conf_.get(), "b", "k");
  g_conf_sync(conf_.get());
  EXPECT_EQ(file_.text(), "[Net]\nIp=10.0.0.1\nPort=80\n\n");
  EXPECT_EQ(now().size(), 2u);
  g_conf_remove_section(conf_.get(), "Net");
  g_conf_sync(conf_.get());
  EXPECT_EQ(file_.text(), "");
}

TEST_F(ConfWrite, AShorterTextLeavesNothingOfTheLonger) {
  write("Net", "Ip", "x");
  g_conf_remove_section(conf_.get(), "b");
  conf_.reset();
  EXPECT_EQ(file_.text(), "[Net]\nIp=x\nPort=80\n\n");
}

TEST_F(ConfWrite, WhatWasWrittenLoadsAgain) {
  write("Net", "Empty", "x");
  write("Net", "Empty", "");
  write("c", "a=b", "");  // stores nothing
  write("c", "k", "=x=");
  const Sections written = now();
  conf_.reset();
  EXPECT_EQ(content(file_.open().get()), written);
}

TEST_F(ConfWrite, NothingIsEscaped) {
  write("b", "k", "1\n[x]\nl=2");
  EXPECT_STREQ(read("b", "k"), "1\n[x]\nl=2");
  g_conf_remove_section(conf_.get(), "Net");
  conf_.reset();
  EXPECT_EQ(file_.text(), "[b]\nk=1\n[x]\nl=2\n\n");
}

TEST_F(ConfWrite, PercentSignsAreWrittenAsTheyAre) {
  write("%s%n", "%d", "100%");
  g_conf_remove_section(conf_.get(), "Net");
  g_conf_remove_section(conf_.get(), "b");
  conf_.reset();
  EXPECT_EQ(file_.text(), "[%s%n]\n%d=100%\n\n");
}

TEST_F(ConfWrite, TheDecimalPointFollowsTheLocale) {
  const OwnLocale locale;
  if (!locale.is_chosen()) GTEST_SKIP() << "no locale but C";
  if (std::strcmp(std::localeconv()->decimal_point, ",") != 0) {
    GTEST_SKIP() << "this C library takes every name and has a point in every locale";
  }
  g_conf_write_double(conf_.get(), "t", "d", 1.5);
  EXPECT_STREQ(read("t", "d"), "1,5");
  EXPECT_EQ(g_conf_read_double(conf_.get(), "t", "d", 0), 1.5);
}

}  // namespace
