// The generic operations, over streams that a test scripts: with and without each slot.
// Each call of a slot is recorded with its arguments.
//
// SPDX-License-Identifier: MIT

#include <groundwork/url.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/allocation_faults.h"
#include "url/errors.h"

namespace {

using Calls = std::vector<std::string>;

using test::kOtherErrno;
using test::kOtherError;
using test::set_errors;

// A stream over `content`. Each slot does its work and records its call in `calls`, with
// "!" if the errors were not cleared.
struct Script {
  URL_record common;
  std::string* content;
  size_t position;
  Calls* calls;
  std::vector<int>* read_results;  // errno values for the next reads to fail with; 0 reads
  int32_t largest_read;            // a read gives no more than this
  bool seek_fails;
};

Script& script_of(URL url) {
  return *reinterpret_cast<Script*>(url);
}

void note(Script& script, const std::string& call) {
  const bool clear = url_errno == URLERR_NONE && errno == 0;
  script.calls->push_back(clear ? call : call + "!");
}

int32_t script_read(URL url, void* buf, int32_t n) {
  Script& script = script_of(url);
  note(script, "read " + std::to_string(n));
  if (!script.read_results->empty()) {
    const int result = script.read_results->front();
    script.read_results->erase(script.read_results->begin());
    if (result != 0) {
      errno = result;
      return -1;
    }
  }
  const auto wanted = static_cast<size_t>(std::min(n, script.largest_read));
  const size_t count =
      script.content->copy(static_cast<char*>(buf), wanted, script.position);
  script.position += count;
  return static_cast<int32_t>(count);
}

char* script_gets(URL url, char* buf, int32_t n) {
  Script& script = script_of(url);
  note(script, "gets " + std::to_string(n));
  if (script.position == script.content->size()) return nullptr;
  size_t length = script.content->find('\n', script.position) + 1 - script.position;
  length = std::min({length, static_cast<size_t>(std::max(n, 1) - 1),
                     script.content->size() - script.position});
  script.content->copy(buf, length, script.position);
  buf[length] = '\0';
  script.position += length;
  return buf;
}

int32_t script_fgetc(URL url) {
  Script& script = script_of(url);
  note(script, "fgetc");
  if (script.position == script.content->size()) return -1;
  return static_cast<unsigned char>((*script.content)[script.position++]);
}

int64_t script_seek(URL url, int64_t offset, int32_t whence) {
  Script& script = script_of(url);
  note(script, "seek " + std::to_string(offset) + " " + std::to_string(whence));
  if (script.seek_fails) return -1;
  const auto base = whence == SEEK_SET   ? int64_t{0}
                    : whence == SEEK_CUR ? static_cast<int64_t>(script.position)
                                         : static_cast<int64_t>(script.content->size());
  script.position = static_cast<size_t>(base + offset);
  return base + offset;
}

int64_t script_tell(URL url) {
  Script& script = script_of(url);
  note(script, "tell");
  return static_cast<int64_t>(script.position);
}

void script_close(URL url) {
  note(script_of(url), "close");
  errno = kOtherErrno + 1;
  url_errno = kOtherError + 1;
}

enum Slots : unsigned { kReadOnly = 0, kGets = 1, kFgetc = 2, kSeek = 4, kTell = 8 };

class Stream {
 public:
  explicit Stream(std::string content, unsigned slots = kReadOnly)
      : content_(std::move(content)), url_(alloc_url(sizeof(Script))) {
    url_->type = 9;
    url_->read = script_read;
    url_->close = script_close;
    if ((slots & kGets) != 0) url_->gets = script_gets;
    if ((slots & kFgetc) != 0) url_->fgetc = script_fgetc;
    if ((slots & kSeek) != 0) url_->seek = script_seek;
    if ((slots & kTell) != 0) url_->tell = script_tell;
    script().content = &content_;
    script().calls = &calls_;
    script().read_results = &read_results_;
    script().largest_read = INT32_MAX;
    set_errors();
  }
  ~Stream() { std::free(url_); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  operator URL() { return url_; }
  URL operator->() { return url_; }
  Script& script() { return script_of(url_); }
  Calls take_calls() { return std::exchange(calls_, {}); }
  void fail_reads(std::vector<int> results) { read_results_ = std::move(results); }
  size_t position() { return script().position; }

 private:
  std::string content_;
  Calls calls_;
  std::vector<int> read_results_;
  URL url_;
};

// ---- Records ------------------------------------------------------------------------

TEST(UrlRecord, BeginsWithTypeSlotsAndCountersInThisOrder) {
  constexpr size_t word = sizeof(void*);
  EXPECT_EQ(offsetof(URL_record, type), 0u);
  EXPECT_EQ(offsetof(URL_record, read), word);
  EXPECT_EQ(offsetof(URL_record, gets), 2 * word);
  EXPECT_EQ(offsetof(URL_record, fgetc), 3 * word);
  EXPECT_EQ(offsetof(URL_record, seek), 4 * word);
  EXPECT_EQ(offsetof(URL_record, tell), 5 * word);
  EXPECT_EQ(offsetof(URL_record, close), 6 * word);
  EXPECT_EQ(offsetof(URL_record, nread), 7 * word);
  EXPECT_EQ(offsetof(URL_record, readlimit), 7 * word + 4);
  EXPECT_EQ(offsetof(URL_record, eof), 7 * word + 8);
}

TEST(UrlModule, HasTypeNameCheckInitOpenAndNextInThisOrder) {
  EXPECT_EQ(offsetof(URL_module, type), 0u);
  EXPECT_EQ(offsetof(URL_module, name_check), sizeof(void*));
  EXPECT_EQ(offsetof(URL_module, init), 2 * sizeof(void*));
  EXPECT_EQ(offsetof(URL_module, open), 3 * sizeof(void*));
  EXPECT_EQ(offsetof(URL_module, next), 4 * sizeof(void*));
}

TEST(UrlGlobals, StartAsDocumented) {
  // In a child: other tests of this process have used some of them.
  EXPECT_EXIT(
      {
        static_assert(std::is_same_v<decltype(url_lib_version), const char*>);
        static_assert(std::is_same_v<decltype(user_mailaddr), char*>);
        static_assert(std::is_same_v<decltype(uudecode_unquote_html), int32_t>);
        EXPECT_EQ(url_newline_code, 10);
        EXPECT_STREQ(url_lib_version, "1.9.5");
        EXPECT_EQ(uudecode_unquote_html, 0);
        EXPECT_EQ(user_mailaddr, nullptr);
        std::exit(testing::Test::HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

int32_t url_errno_at_start = url_errno;

TEST(UrlGlobals, UrlErrnoStartsAsZero) {
  EXPECT_EQ(url_errno_at_start, 0);
}

// ---- Modules ------------------------------------------------------------------------
// Modules stay registered, so each of these tests runs in a child of its own.

#define IN_CHILD(...)                                    \
  EXPECT_EXIT(                                           \
      {                                                  \
        __VA_ARGS__;                                     \
        std::fflush(stdout);                             \
        std::_Exit(testing::Test::HasFailure() ? 1 : 0); \
      },                                                 \
      testing::ExitedWithCode(0), "")

Calls module_calls;
int32_t init_result = 0;
URL_record opened_by_a;
URL_record opened_by_b;

int32_t takes_a_or_ab(const char* url) {
  module_calls.push_back(std::string("check a ") + url);
  return *url == 'a' ? 7 : 0;
}
int32_t takes_b_or_ab(const char* url) {
  module_calls.push_back(std::string("check b ") + url);
  return *url == 'b' || std::strncmp(url, "ab", 2) == 0 ? -1 : 0;
}
URL open_a(const char* url) {
  module_calls.push_back(std::string("open a ") + url);
  EXPECT_EQ(url_errno, URLERR_NONE);
  EXPECT_EQ(errno, 0);
  url_errno = 5;
  errno = 6;
  return &opened_by_a;
}
URL open_b(const char*) {
  return &opened_by_b;
}
int32_t init_a() {
  module_calls.push_back("init");
  return init_result;
}

URL_module module_a = {11, takes_a_or_ab, nullptr, open_a, nullptr};
URL_module module_b = {12, takes_b_or_ab, nullptr, open_b, nullptr};

void no_module() {
  set_errors();
  EXPECT_EQ(url_check_type("a"), -1);
  EXPECT_ERRORS_UNTOUCHED();
  EXPECT_EQ(url_open("a"), nullptr);
  EXPECT_ERRORS(URLERR_UNKNOWN_URL, ENOENT);
}

TEST(UrlOpen, WithoutAnyModuleKnowsNoUrl) {
  IN_CHILD(no_module());
}

void no_module_takes_it() {
  url_add_module(&module_a);
  set_errors();
  EXPECT_EQ(url_check_type("x"), -1);
  EXPECT_ERRORS_UNTOUCHED();
  EXPECT_EQ(url_open("x"), nullptr);
  EXPECT_ERRORS(URLERR_UNKNOWN_URL, ENOENT);
}

TEST(UrlOpen, OfAnUnknownNameSetsUnknownUrlAndEnoent) {
  IN_CHILD(no_module_takes_it());
}

void newest_first() {
  url_add_module(&module_a);
  url_add_module(&module_b);
  EXPECT_EQ(module_b.next, &module_a);
  EXPECT_EQ(module_a.next, nullptr);
  set_errors();
  EXPECT_EQ(url_check_type("ab"), 12);
  EXPECT_EQ(url_check_type("a"), 11);
  EXPECT_ERRORS_UNTOUCHED();
  EXPECT_EQ(module_calls, (Calls{"check b ab", "check b a", "check a a"}));
  EXPECT_EQ(url_open("ab"), &opened_by_b);
  EXPECT_EQ(url_open("b"), &opened_by_b);
  EXPECT_EQ(url_open("a"), &opened_by_a);
}

TEST(UrlAddModule, PutsTheNewestFirst) {
  IN_CHILD(newest_first());
}

void added_twice() {
  url_add_module(&module_a);
  url_add_module(&module_a);
  EXPECT_EQ(module_a.next, &module_a);
  EXPECT_EQ(url_check_type("a"), 11);
}

TEST(UrlAddModule, DoesNotLookWhetherTheModuleIsThere) {
  IN_CHILD(added_twice());
}

void in_order() {
  url_add_modules(nullptr, &module_a, static_cast<URL_module*>(nullptr));
  EXPECT_EQ(url_check_type("a"), -1);
  url_add_modules(&module_a, &module_b, static_cast<URL_module*>(nullptr));
  EXPECT_EQ(module_b.next, &module_a);
  EXPECT_EQ(url_check_type("ab"), 12);
}

TEST(UrlAddModules, AddsInOrderUpToTheNullAndNothingWhenItComesFirst) {
  IN_CHILD(in_order());
}

void one_module() {
  url_add_modules(&module_a, static_cast<URL_module*>(nullptr));
  EXPECT_EQ(url_check_type("ab"), 11);
}

TEST(UrlAddModules, AddsASingleModule) {
  IN_CHILD(one_module());
}

void disabled() {
  url_add_modules(&module_a, &module_b, static_cast<URL_module*>(nullptr));
  module_b.type = 0;
  EXPECT_EQ(url_check_type("ab"), 11);
  EXPECT_EQ(url_check_type("b"), -1);
  EXPECT_EQ(module_calls, (Calls{"check a ab", "check a b"}));
  module_b.type = 12;
  module_b.name_check = nullptr;
  EXPECT_EQ(url_check_type("ab"), 11);
  EXPECT_EQ(url_open("b"), nullptr);
}

TEST(UrlModule, OfTypeZeroOrWithoutANameCheckIsPassedOver) {
  IN_CHILD(disabled());
}

void open_reports() {
  url_add_module(&module_a);
  set_errors();
  EXPECT_EQ(url_open("a1"), &opened_by_a);
  EXPECT_ERRORS(5, 6);
  EXPECT_EQ(module_calls, (Calls{"check a a1", "open a a1"}));
}

TEST(UrlOpen, ClearsTheErrorsAndHandsOverToTheModule) {
  IN_CHILD(open_reports());
}

void init_once() {
  module_a.init = init_a;
  url_add_module(&module_a);
  EXPECT_EQ(url_check_type("a"), 11);
  EXPECT_EQ(module_calls, (Calls{"check a a"}));
  module_calls.clear();
  url_open("a");
  url_open("a");
  EXPECT_EQ(module_calls,
            (Calls{"check a a", "init", "open a a", "check a a", "open a a"}));
  ASSERT_NE(module_a.init, nullptr);
  ASSERT_NE(module_a.init, init_a);
  EXPECT_EQ(module_a.init(), 1);
}

TEST(UrlOpen, InitialisesAModuleOnceAndMarksIt) {
  IN_CHILD(init_once());
}

void marker_without_init() {
  url_add_modules(&module_a, &module_b, static_cast<URL_module*>(nullptr));
  url_open("a");
  url_open("b");
  ASSERT_NE(module_a.init, nullptr);
  EXPECT_EQ(module_a.init, module_b.init);
  EXPECT_EQ(module_a.init(), 1);
}

TEST(UrlOpen, MarksAModuleWithoutInitialisationToo) {
  IN_CHILD(marker_without_init());
}

void init_failure() {
  module_a.init = init_a;
  init_result = -3;
  url_add_module(&module_a);
  set_errors();
  EXPECT_EQ(url_open("a"), nullptr);
  EXPECT_ERRORS_UNTOUCHED();
  EXPECT_EQ(module_a.init, init_a);
  init_result = 0;
  EXPECT_EQ(url_open("a"), &opened_by_a);
  EXPECT_EQ(module_calls, (Calls{"check a a", "init", "check a a", "init", "open a a"}));
}

void positive_init() {
  module_a.init = init_a;
  init_result = 7;
  url_add_module(&module_a);
  EXPECT_EQ(url_open("a"), &opened_by_a);
  EXPECT_NE(module_a.init, init_a);
}

TEST(UrlOpen, TakesOnlyANegativeResultOfTheInitialisationForAFailure) {
  IN_CHILD(positive_init());
}

TEST(UrlOpen, WhenInitialisationFailsLeavesAllAsItIsAndTriesAgainNextTime) {
  IN_CHILD(init_failure());
}

// ---- url_read -----------------------------------------------------------------------

TEST(UrlRead, WithNothingToDoChangesNothing) {
  Stream url("abc");
  url_set_readlimit(url, 0);  // would set `eof` otherwise
  char buf[4] = "xyz";
  for (const int32_t n : {0, -1, INT_MIN}) EXPECT_EQ(url_read(url, buf, n), 0);
  EXPECT_EQ(url_read(nullptr, buf, 3), 0);
  EXPECT_EQ(url_read(url, nullptr, 3), 0);
  EXPECT_ERRORS_UNTOUCHED();
  EXPECT_EQ(url->eof, 0);
  EXPECT_STREQ(buf, "xyz");
  EXPECT_EQ(url.take_calls(), Calls{});
}

TEST(UrlRead, ClearsTheErrorsAndCountsWhatCame) {
  Stream url("abcdef");
  url.script().largest_read = 4;
  char buf[8] = "";
  EXPECT_EQ(url_read(url, buf, 7), 4);
  EXPECT_STREQ(buf, "abcd");
  EXPECT_EQ(url->nread, 4u);
  EXPECT_ERRORS(URLERR_NONE, 0);
  EXPECT_EQ(url.take_calls(), Calls{"read 7"});
}

TEST(UrlRead, StopsAtTheLimitAndThenSetsEof) {
  Stream url("a longer stream");
  url_set_readlimit(url, 5);
  char buf[16] = "";
  EXPECT_EQ(url_read(url, buf, 10), 5);
  EXPECT_STREQ(buf, "a lon");
  EXPECT_EQ(url->eof, 0);
  set_errors();
  EXPECT_EQ(url_read(url, buf, 10), 0);
  EXPECT_EQ(url->eof, 1);
  EXPECT_ERRORS(URLERR_NONE, 0);
  EXPECT_EQ(url->nread, 5u);
  EXPECT_EQ(url.take_calls(), Calls{"read 5"});
}

TEST(UrlRead, NeverTakesEofBack) {
  Stream url("abcdef", kFgetc);
  url_set_readlimit(url, 2);
  char buf[8];
  EXPECT_EQ(url_read(url, buf, 8), 2);
  EXPECT_EQ(url_read(url, buf, 8), 0);
  EXPECT_EQ(url->eof, 1);
  url_rewind(url);
  EXPECT_EQ(url_read(url, buf, 1), 1);
  EXPECT_EQ(url_fgetc(url), 'd');
  url_set_readlimit(url, -1);
  EXPECT_EQ(url_seek(url, 1, SEEK_CUR), 0);
  EXPECT_EQ(url_gets(url, buf, 8), buf);
  EXPECT_STREQ(buf, "f");
  EXPECT_EQ(url->eof, 1);
}

TEST(UrlRead, OfExactlyWhatTheLimitLeavesIsNotLowered) {
  Stream url("abcdef");
  url_set_readlimit(url, 5);
  char buf[8];
  EXPECT_EQ(url_read(url, buf, 5), 5);
  EXPECT_EQ(url.take_calls(), Calls{"read 5"});
}

TEST(UrlRead, AtTheEndSetsNoEof) {
  Stream url("");
  char buf[8];
  EXPECT_EQ(url_read(url, buf, 5), 0);
  EXPECT_EQ(url->eof, 0);
}

TEST(UrlRead, OnErrorCountsNothing) {
  Stream url("abc");
  url.fail_reads({EIO});
  char buf[8];
  EXPECT_EQ(url_read(url, buf, 5), -1);
  EXPECT_EQ(url->nread, 0u);
  EXPECT_ERRORS(URLERR_NONE, EIO);
}

TEST(UrlRead, ComparesCountsAsUnsigned) {
  Stream url("abcdef");
  url->readlimit = 0xc0000000u;
  url->nread = 0xbffffffdu;
  char buf[8];
  EXPECT_EQ(url_read(url, buf, 6), 3);
  EXPECT_EQ(url->nread, 0xc0000000u);
  EXPECT_EQ(url_read(url, buf, 6), 0);
  EXPECT_EQ(url->eof, 1);
  url->nread = 0xffffffffu;  // beyond the limit is at the limit
  EXPECT_EQ(url_read(url, buf, 6), 0);
}

TEST(UrlRead, AddsCountAndLimitInThirtyTwoBits) {
  Stream url("abcdef");
  url->readlimit = 0xfffffff8u;
  url->nread = 0xfffffff0u;
  char buf[32];
  EXPECT_EQ(url_read(url, buf, 16), 6);  // the sum wraps to 0, which passes no limit
  EXPECT_EQ(url.take_calls(), Calls{"read 16"});
  EXPECT_EQ(url->nread, 0xfffffff6u);
  url_read(url, buf, 9);
  EXPECT_EQ(url.take_calls(), Calls{"read 2"});
}

// ---- url_safe_read, url_nread -------------------------------------------------------

TEST(UrlSafeRead, RepeatsWhileInterrupted) {
  Stream url("abc");
  url.fail_reads({EINTR, EINTR});
  char buf[8];
  EXPECT_EQ(url_safe_read(url, buf, 5), 3);
  EXPECT_EQ(url.take_calls(), (Calls{"read 5", "read 5", "read 5"}));
  EXPECT_ERRORS(URLERR_NONE, 0);
}

TEST(UrlSafeRead, RepeatsNothingButMinusOne) {
  static int32_t result;
  static int calls;
  for (const int32_t given : {0, -2, 1}) {
    Stream url("abc");
    result = given;
    calls = 0;
    url->read = [](URL, void*, int32_t) -> int32_t {
      errno = EINTR;
      return ++calls == 1 ? result : 4;
    };
    char buf[8];
    EXPECT_EQ(url_safe_read(url, buf, 5), given);
    EXPECT_EQ(calls, 1);
    EXPECT_ERRORS(URLERR_NONE, EINTR);
  }
}

TEST(UrlSafeRead, GivesUpOnOtherErrors) {
  Stream url("abc");
  url.fail_reads({EINTR, EAGAIN});
  char buf[8];
  EXPECT_EQ(url_safe_read(url, buf, 5), -1);
  EXPECT_EQ(url.take_calls(), (Calls{"read 5", "read 5"}));
  EXPECT_ERRORS(URLERR_NONE, EAGAIN);
}

TEST(UrlSafeRead, OfNothingChangesNothing) {
  Stream url("abc");
  char buf[8];
  EXPECT_EQ(url_safe_read(url, buf, 0), 0);
  EXPECT_EQ(url_safe_read(url, buf, -4), 0);
  EXPECT_ERRORS_UNTOUCHED();
  EXPECT_EQ(url.take_calls(), Calls{});
}

TEST(UrlSafeRead, ClearsErrnoEvenForANullStream) {
  char buf[8];
  set_errors();
  EXPECT_EQ(url_safe_read(nullptr, buf, 1), 0);
  EXPECT_ERRORS(kOtherError, 0);
}

TEST(UrlNread, ReadsOnUntilComplete) {
  Stream url("abcdefgh");
  url.script().largest_read = 3;
  char buf[8] = "";
  EXPECT_EQ(url_nread(url, buf, 7), 7);
  EXPECT_STREQ(buf, "abcdefg");
  EXPECT_EQ(url.take_calls(), (Calls{"read 7", "read 4", "read 1"}));
  EXPECT_EQ(url->nread, 7u);
}

TEST(UrlNread, ReturnsWhatCameBeforeTheEndOrAnError) {
  Stream ended("abc");
  char buf[8];
  EXPECT_EQ(url_nread(ended, buf, 7), 3);
  EXPECT_EQ(ended.take_calls(), (Calls{"read 7", "read 4"}));
  EXPECT_EQ(url_nread(ended, buf, 7), 0);

  Stream failing("abc");
  failing.fail_reads({EIO, EINTR, 0, EIO});
  EXPECT_EQ(url_nread(failing, buf, 7), -1);
  EXPECT_EQ(url_nread(failing, buf, 7), 3);
  EXPECT_EQ(failing.take_calls(), (Calls{"read 7", "read 7", "read 7", "read 4"}));
}

TEST(UrlNread, OfNothingReadsNothing) {
  Stream url("abc");
  char buf[8];
  EXPECT_EQ(url_nread(url, buf, 0), 0);
  EXPECT_EQ(url_nread(url, buf, -1), 0);
  EXPECT_ERRORS_UNTOUCHED();
  EXPECT_EQ(url.take_calls(), Calls{});
}

// ---- url_gets -----------------------------------------------------------------------

TEST(UrlGets, UsesTheLineReaderOfTheModuleAndCountsItsText) {
  Stream url("one\ntwo", kGets | kFgetc);
  char buf[16];
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  EXPECT_STREQ(buf, "one\n");
  EXPECT_EQ(url->nread, 4u);
  EXPECT_ERRORS(URLERR_NONE, 0);
  EXPECT_EQ(url.take_calls(), Calls{"gets 16"});
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  EXPECT_STREQ(buf, "two");
  set_errors();
  EXPECT_EQ(url_gets(url, buf, 16), nullptr);
  EXPECT_ERRORS(URLERR_NONE, 0);
  EXPECT_EQ(url->nread, 7u);
  EXPECT_EQ(url->eof, 0);
}

TEST(UrlGets, CountsTheTextOnlyUpToANul) {
  Stream url(std::string("a\0b\nc", 5), kGets);
  char buf[16];
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  EXPECT_EQ(url->nread, 1u);
  EXPECT_EQ(url.position(), 4u);
}

TEST(UrlGets, LowersTheSizeToWhatTheLimitLeavesAndTheNul) {
  Stream url("a longer line\n", kGets);
  url_set_readlimit(url, 5);
  char buf[16];
  EXPECT_EQ(url_gets(url, buf, 5), buf);
  EXPECT_STREQ(buf, "a lo");
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  EXPECT_STREQ(buf, "n");
  EXPECT_EQ(url.take_calls(), (Calls{"gets 5", "gets 2"}));
}

TEST(UrlGets, RaisesNoNegativeSizeToTheLimit) {
  Stream url("line\n", kGets);
  url_set_readlimit(url, 100);
  char buf[1] = {'x'};
  EXPECT_EQ(url_gets(url, buf, -1), buf);
  EXPECT_EQ(url.take_calls(), Calls{"gets -1"});
}

TEST(UrlGets, AtTheLimitGivesNullAndTouchesNeitherErrorsNorEof) {
  for (const unsigned slots : {kReadOnly, kGets, kFgetc}) {
    Stream url("abc", slots);
    url_set_readlimit(url, 0);
    char buf[4] = "xyz";
    for (const int32_t n : {4, 1, 0, -1}) EXPECT_EQ(url_gets(url, buf, n), nullptr);
    EXPECT_STREQ(buf, "xyz");
    EXPECT_EQ(url->eof, 0);
    EXPECT_ERRORS_UNTOUCHED();
    EXPECT_EQ(url.take_calls(), Calls{});
  }
}

TEST(UrlGetsByBytes, EndsALineWithTheNewlineCode) {
  Stream url("one\r\ntwo;three", kFgetc);
  char buf[16];
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  EXPECT_STREQ(buf, "one\r\n");
  EXPECT_EQ(url->nread, 5u);
  url_newline_code = ';';
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  EXPECT_STREQ(buf, "two;");
  url_newline_code = 10;
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  EXPECT_STREQ(buf, "three");
  EXPECT_EQ(url->nread, 15u);  // the byte asked for at the end counts
  EXPECT_EQ(url_gets(url, buf, 16), nullptr);
}

TEST(UrlGetsByBytes, KeepsBytesAbove127AndNul) {
  Stream url(std::string("\xff\0\x80\n", 4), kFgetc);
  char buf[8];
  EXPECT_EQ(url_gets(url, buf, 8), buf);
  EXPECT_EQ(std::memcmp(buf, "\xff\0\x80\n", 5), 0);
}

TEST(UrlGetsByBytes, StopsWhenTheBufferIsFull) {
  Stream url("abcdef\n", kFgetc);
  char buf[5] = "....";
  EXPECT_EQ(url_gets(url, buf, 4), buf);
  EXPECT_STREQ(buf, "abc");
  EXPECT_EQ(url->nread, 3u);
  EXPECT_EQ(url.take_calls(), (Calls{"fgetc!", "fgetc!", "fgetc!"}));
}

TEST(UrlGetsByBytes, LeavesTheErrorsAloneWhenTheModuleReadsBytes) {
  Stream url("a\n", kFgetc);
  char buf[8];
  url_gets(url, buf, 8);
  EXPECT_ERRORS_UNTOUCHED();
}

TEST(UrlGetsByBytes, ClearsTheErrorsWhenItReadsThroughUrlFgetc) {
  Stream url("a\n");
  char buf[8];
  EXPECT_EQ(url_gets(url, buf, 8), buf);
  EXPECT_STREQ(buf, "a\n");
  EXPECT_ERRORS(URLERR_NONE, 0);
  EXPECT_EQ(url->nread, 4u);  // each byte counts twice there
}

TEST(UrlGetsByBytes, OfSizeOneGivesAnEmptyTextWithoutReading) {
  Stream url("abc", kFgetc);
  char buf[2] = {'x', 'y'};
  EXPECT_EQ(url_gets(url, buf, 1), buf);
  EXPECT_EQ(buf[0], '\0');
  EXPECT_EQ(buf[1], 'y');
  buf[0] = 'x';
  EXPECT_EQ(url_gets(url, buf, 0), buf);
  EXPECT_EQ(url_gets(url, buf, -5), buf);
  EXPECT_EQ(buf[0], 'x');
  EXPECT_EQ(url.take_calls(), Calls{});
  EXPECT_ERRORS_UNTOUCHED();
}

TEST(UrlGetsByBytes, SetsEofWhenTheLimitComesInsideALine) {
  Stream url("abcdef", kFgetc);
  url_set_readlimit(url, 3);
  char buf[8];
  EXPECT_EQ(url_gets(url, buf, 8), buf);
  EXPECT_STREQ(buf, "abc");
  EXPECT_EQ(url->eof, 1);
  EXPECT_EQ(url->nread, 3u);
}

TEST(UrlGetsByBytes, LeavesTheBufferAloneAtTheEnd) {
  Stream url("", kFgetc);
  char buf[4] = "xyz";
  EXPECT_EQ(url_gets(url, buf, 4), nullptr);
  EXPECT_STREQ(buf, "xyz");
  EXPECT_EQ(url->nread, 1u);
  EXPECT_EQ(url->eof, 0);
}

// ---- url_readline -------------------------------------------------------------------

TEST(UrlReadline, StripsEndsAndPassesOverEmptyLines) {
  Stream url("a\r\n\r\nb", kFgetc | kGets);
  char buf[16];
  EXPECT_EQ(url_readline(url, buf, 16), 1);
  EXPECT_STREQ(buf, "a");
  EXPECT_EQ(url.position(), 2u);  // the "\n" is an empty line of the next call
  EXPECT_EQ(url_readline(url, buf, 16), 1);
  EXPECT_STREQ(buf, "b");
  EXPECT_EQ(url_readline(url, buf, 16), 0);
  EXPECT_ERRORS_UNTOUCHED();
  for (const std::string& call : url.take_calls()) EXPECT_EQ(call, "fgetc!");
}

TEST(UrlReadline, DoesNotHeedTheNewlineCode) {
  url_newline_code = ';';
  Stream url("a;b\nc\rd", kFgetc);
  char buf[16];
  EXPECT_EQ(url_readline(url, buf, 16), 3);
  EXPECT_STREQ(buf, "a;b");
  EXPECT_EQ(url_readline(url, buf, 16), 1);
  EXPECT_STREQ(buf, "c");
  url_newline_code = 10;
}

TEST(UrlReadline, CutsALongLineAtTheSizeOfTheBuffer) {
  Stream url("abcdef\ngh", kFgetc);
  char buf[5] = "....";
  EXPECT_EQ(url_readline(url, buf, 4), 3);
  EXPECT_STREQ(buf, "abc");
  EXPECT_EQ(url_readline(url, buf, 4), 3);
  EXPECT_STREQ(buf, "def");
  EXPECT_EQ(url_readline(url, buf, 4), 2);
  EXPECT_STREQ(buf, "gh");
}

TEST(UrlReadline, WithRoomForOneByteGivesSingleBytes) {
  Stream url("a\nb", kFgetc);
  char buf[2];
  EXPECT_EQ(url_readline(url, buf, 2), 1);
  EXPECT_STREQ(buf, "a");
  EXPECT_EQ(url_readline(url, buf, 2), 1);
  EXPECT_STREQ(buf, "b");
  EXPECT_EQ(url_readline(url, buf, 2), 0);
}

TEST(UrlReadline, OfSizeBelowTwoReadsNothing) {
  Stream url("abc", kFgetc);
  char buf[2] = {'x', 'y'};
  EXPECT_EQ(url_readline(url, buf, 0), 0);
  EXPECT_EQ(url_readline(url, buf, -3), 0);
  EXPECT_EQ(buf[0], 'x');
  EXPECT_EQ(url_readline(url, buf, 1), 0);
  EXPECT_EQ(buf[0], '\0');
  EXPECT_EQ(url.take_calls(), Calls{});
}

TEST(UrlReadline, AtTheEndLeavesTheBufferAsItIs) {
  Stream url("\n", kFgetc);
  char buf[4] = "xyz";
  EXPECT_EQ(url_readline(url, buf, 4), 0);
  EXPECT_EQ(std::memcmp(buf, "\nyz", 4), 0);  // the byte of the empty line, no terminator
  EXPECT_EQ(url->eof, 0);
}

TEST(UrlReadline, AtTheLimitSetsEof) {
  Stream url("abc", kFgetc);
  url_set_readlimit(url, 0);
  char buf[4];
  EXPECT_EQ(url_readline(url, buf, 4), 0);
  EXPECT_EQ(url->eof, 1);
  EXPECT_ERRORS_UNTOUCHED();
}

TEST(UrlReadline, ReadsThroughUrlFgetcWithoutAnFgetcSlot) {
  Stream url("ab\ncd");
  char buf[8];
  EXPECT_EQ(url_readline(url, buf, 8), 2);
  EXPECT_STREQ(buf, "ab");
  EXPECT_EQ(url->nread, 6u);
  EXPECT_ERRORS(URLERR_NONE, 0);
}

// ---- url_fgetc ----------------------------------------------------------------------

TEST(UrlFgetc, CountsAndClearsTheErrors) {
  Stream url("\xfe", kFgetc);
  EXPECT_EQ(url_fgetc(url), 0xfe);
  EXPECT_EQ(url->nread, 1u);
  EXPECT_ERRORS(URLERR_NONE, 0);
  EXPECT_EQ(url_fgetc(url), -1);
  EXPECT_EQ(url->nread, 2u);
  EXPECT_EQ(url.take_calls(), (Calls{"fgetc", "fgetc"}));
}

TEST(UrlFgetc, ClearsTheErrnoOfEachThreadThatCalls) {
  Stream url("abcdef", kFgetc);
  EXPECT_EQ(url_fgetc(url), 'a');
  set_errors();
  std::thread([&url] {
    for (const char byte : {'b', 'c', 'd'}) {
      set_errors();
      EXPECT_EQ(url_fgetc(url), byte);
      EXPECT_ERRORS(URLERR_NONE, 0);
    }
  }).join();
  const int own_error = errno;
  EXPECT_EQ(own_error, kOtherErrno);
  EXPECT_EQ(url_fgetc(url), 'e');
  EXPECT_ERRORS(URLERR_NONE, 0);
  EXPECT_EQ(url.take_calls(), Calls(5, "fgetc"));
}

TEST(UrlFgetc, AtTheLimitTouchesNeitherErrorsNorEof) {
  for (const unsigned slots : {kReadOnly, kFgetc}) {
    Stream url("abc", slots);
    url_set_readlimit(url, 0);
    EXPECT_EQ(url_fgetc(url), -1);
    EXPECT_EQ(url->eof, 0);
    EXPECT_EQ(url->nread, 0u);
    EXPECT_ERRORS_UNTOUCHED();
    EXPECT_EQ(url.take_calls(), Calls{});
  }
}

TEST(UrlFgetc, WithoutASlotCountsTwiceAndRefusesTheLastByte) {
  Stream url(
      "\xfe"
      "bcdef");
  url_set_readlimit(url, 5);
  EXPECT_EQ(url_fgetc(url), 0xfe);
  EXPECT_EQ(url->nread, 2u);
  EXPECT_EQ(url_fgetc(url), 'b');
  EXPECT_EQ(url->nread, 4u);
  EXPECT_EQ(url->eof, 0);
  EXPECT_EQ(url_fgetc(url), -1);
  EXPECT_EQ(url->nread, 5u);
  EXPECT_EQ(url->eof, 1);  // set by the read underneath
  EXPECT_EQ(url.take_calls(), (Calls{"read 1", "read 1"}));
}

TEST(UrlFgetc, WithoutASlotGivesMinusOneForAnError) {
  Stream url("abc");
  url.fail_reads({EIO});
  EXPECT_EQ(url_fgetc(url), -1);
  EXPECT_EQ(url->nread, 1u);
  EXPECT_ERRORS(URLERR_NONE, EIO);
}

// ---- url_seek, url_tell -------------------------------------------------------------

TEST(UrlSeek, GoesToTheModuleAndRestartsTheCount) {
  Stream url("abcdefghij", kSeek);
  url->nread = 7;
  url->eof = 1;
  EXPECT_EQ(url_seek(url, -3, SEEK_END), 7);
  EXPECT_EQ(url->nread, 0u);
  EXPECT_EQ(url->eof, 1);
  EXPECT_ERRORS(URLERR_NONE, 0);
  EXPECT_EQ(url.take_calls(), Calls{"seek -3 2"});
}

TEST(UrlSeek, RestartsTheCountEvenWhenTheModuleFails) {
  Stream url("abc", kSeek);
  url->nread = 2;
  url.script().seek_fails = true;
  EXPECT_EQ(url_seek(url, 1, SEEK_SET), -1);
  EXPECT_EQ(url->nread, 0u);
}

TEST(UrlSeekByReading, ReturnsThePositionFromBefore) {
  Stream url(std::string(200, 'x'));
  char buf[40];
  ASSERT_EQ(url_read(url, buf, 40), 40);
  url.take_calls();
  EXPECT_EQ(url_seek(url, 100, SEEK_SET), 40);
  EXPECT_EQ(url.position(), 100u);
  EXPECT_EQ(url.take_calls(), Calls{"read 60"});
  EXPECT_EQ(url_seek(url, 10, SEEK_CUR), 100);
  EXPECT_EQ(url.position(), 110u);
  EXPECT_EQ(url->nread, 110u);
}

TEST(UrlSeekByReading, AsksTheTellSlot) {
  Stream url(std::string(200, 'x'), kTell);
  url.script().position = 40;
  EXPECT_EQ(url_seek(url, 100, SEEK_SET), 40);
  EXPECT_EQ(url.take_calls(), (Calls{"tell", "read 60"}));
  EXPECT_EQ(url->nread, 60u);
}

TEST(UrlSeekByReading, ComparesPositionsIn64Bits) {
  Stream url(std::string(200, 'x'), kTell);
  url.script().position = 40;
  EXPECT_EQ(url_seek(url, int64_t{1} << 32, SEEK_SET), 40);
  EXPECT_EQ(url.position(), 200u);
  url->tell = [](URL) { return int64_t{1} << 32; };
  EXPECT_EQ(url_seek(url, 100, SEEK_SET), -1);
  EXPECT_ERRORS(EPERM, EPERM);
}

TEST(UrlSeekByReading, ToTheCurrentPositionReadsNothing) {
  Stream url("abcdef");
  url->nread = 4;
  EXPECT_EQ(url_seek(url, 4, SEEK_SET), 4);
  EXPECT_ERRORS(URLERR_NONE, 0);
  EXPECT_EQ(url_seek(url, 0, SEEK_CUR), 4);
  EXPECT_EQ(url.take_calls(), Calls{});
}

TEST(UrlSeekByReading, LiftsTheLimitMeanwhile) {
  Stream url(std::string(200, 'x'));
  url_set_readlimit(url, 50);
  EXPECT_EQ(url_seek(url, 100, SEEK_SET), 0);
  EXPECT_EQ(url.position(), 100u);
  EXPECT_EQ(url->readlimit, 50u);
  EXPECT_EQ(url->nread, 100u);
  EXPECT_EQ(url->eof, 0);
}

TEST(UrlSeekByReading, RefusesWhatReadingCannotDo) {
  struct {
    int64_t offset;
    int32_t whence;
  } const moves[] = {{10, SEEK_SET}, {-1, SEEK_SET}, {-1, SEEK_CUR}, {0, SEEK_END},
                     {5, SEEK_END},  {50, 3},        {50, -1}};
  for (const auto& move : moves) {
    Stream url(std::string(200, 'x'));
    url->nread = 40;
    EXPECT_EQ(url_seek(url, move.offset, move.whence), -1);
    EXPECT_ERRORS(1, EPERM);
    EXPECT_EQ(url->nread, 40u);
    EXPECT_EQ(url.take_calls(), Calls{});
  }
}

TEST(UrlSeekByReading, RefusesAnAbsoluteMoveFromAnUnknownPosition) {
  Stream url("abc");
  url->tell = [](URL) -> int64_t { return -1; };
  EXPECT_EQ(url_seek(url, 2, SEEK_SET), -1);
  EXPECT_ERRORS(1, EPERM);
  EXPECT_EQ(url_seek(url, 2, SEEK_CUR), -1);  // moves nevertheless
  EXPECT_EQ(url.position(), 2u);
  EXPECT_ERRORS(URLERR_NONE, 0);
}

TEST(UrlTell, AsksTheModuleElseGivesTheCount) {
  Stream with("abcdef", kTell);
  with.script().position = 5;
  with->nread = 2;
  EXPECT_EQ(url_tell(with), 5);
  EXPECT_ERRORS(URLERR_NONE, 0);
  EXPECT_EQ(with.take_calls(), Calls{"tell"});

  Stream without("abcdef");
  without->nread = 0xfffffffeu;
  EXPECT_EQ(url_tell(without), 0xfffffffeLL);
  EXPECT_ERRORS(URLERR_NONE, 0);
}

// ---- url_skip, url_rewind -----------------------------------------------------------

TEST(UrlSkip, MovesWithinTheLimitAndLeavesTheErrorsAlone) {
  Stream url("abcdefghij", kSeek);
  url_set_readlimit(url, 7);
  url_skip(url, 4);
  EXPECT_EQ(url->nread, 4u);
  url_skip(url, 4);
  EXPECT_EQ(url->nread, 7u);
  url_skip(url, 4);
  EXPECT_EQ(url->eof, 0);
  EXPECT_EQ(url.take_calls(), (Calls{"seek 4 1!", "seek 3 1!"}));
  EXPECT_ERRORS_UNTOUCHED();
}

TEST(UrlSkip, LowersAnyCountToTheLimit) {
  Stream url("abcdefghij", kSeek);
  url->nread = 1;
  url_skip(url, INT64_MAX);
  EXPECT_EQ(url.take_calls(), Calls{"seek 2147483646 1!"});
  EXPECT_EQ(url->nread, 0x7fffffffu);
}

TEST(UrlSkip, ByANegativeCountMovesBack) {
  Stream url("abcdefghij", kSeek);
  url.script().position = 6;
  url->nread = 6;
  url_skip(url, -2);
  EXPECT_EQ(url.position(), 4u);
  EXPECT_EQ(url->nread, 4u);
  Stream unseekable("abc");
  url_skip(unseekable, -2);
  url_skip(unseekable, 0);
  EXPECT_EQ(unseekable.take_calls(), Calls{});
  EXPECT_ERRORS_UNTOUCHED();
}

TEST(UrlSkip, ReadsWhenTheMoveFails) {
  Stream url("abcdefghij", kSeek);
  url_set_readlimit(url, 7);
  url.script().seek_fails = true;
  url_skip(url, 9);
  EXPECT_EQ(url.take_calls(), (Calls{"seek 7 1!", "read 7"}));
  EXPECT_EQ(url->nread, 7u);
  EXPECT_EQ(url->eof, 0);
}

TEST(UrlSkip, WithoutASeekSlotReadsUpTo8192BytesAtATime) {
  Stream url(std::string(30000, 'x'));
  url_skip(url, 20000);
  EXPECT_EQ(url.take_calls(), (Calls{"read 8192", "read 8192", "read 3616"}));
  EXPECT_EQ(url->nread, 20000u);
  EXPECT_ERRORS(URLERR_NONE, 0);
}

TEST(UrlSkip, ByReadingStopsAtTheEndTheLimitAndErrors) {
  Stream ended("abc");
  url_skip(ended, 10);
  EXPECT_EQ(ended.take_calls(), (Calls{"read 10", "read 7"}));
  Stream limited("abcdef");
  url_set_readlimit(limited, 4);
  url_skip(limited, 10);
  EXPECT_EQ(limited.take_calls(), Calls{"read 4"});
  EXPECT_EQ(limited->eof, 1);
  Stream failing("abcdef");
  failing.fail_reads({EINTR});
  url_skip(failing, 3);
  EXPECT_EQ(failing.take_calls(), Calls{"read 3"});
}

TEST(UrlRewind, MovesASeekableStreamButKeepsItsCount) {
  Stream url("abcdef", kSeek);
  url.script().position = 4;
  url->nread = 4;
  url_rewind(url);
  EXPECT_EQ(url.position(), 0u);
  EXPECT_EQ(url->nread, 4u);
  EXPECT_EQ(url.take_calls(), Calls{"seek 0 0!"});
  EXPECT_ERRORS_UNTOUCHED();
}

TEST(UrlRewind, OnlyRenewsTheBudgetOfAnUnseekableStream) {
  Stream url("abcdef");
  url_set_readlimit(url, 3);
  char buf[8] = "";
  url_read(url, buf, 8);
  set_errors();
  url_rewind(url);
  EXPECT_EQ(url->nread, 0u);
  EXPECT_ERRORS_UNTOUCHED();
  EXPECT_EQ(url_read(url, buf, 8), 3);
  EXPECT_STREQ(buf, "def");
}

// ---- url_set_readlimit, alloc_url, url_close ----------------------------------------

TEST(UrlSetReadlimit, StoresTheLimitAndRestartsTheCountButNotEof) {
  Stream url("abc");
  url->nread = 9;
  url->eof = 1;
  url_set_readlimit(url, 5);
  EXPECT_EQ(url->readlimit, 5u);
  EXPECT_EQ(url->nread, 0u);
  EXPECT_EQ(url->eof, 1);
  url->nread = 9;
  url_set_readlimit(url, -3);
  EXPECT_EQ(url->readlimit, 0x7fffffffu);
  EXPECT_EQ(url->nread, 0u);
  url_set_readlimit(url, 0);
  EXPECT_EQ(url->readlimit, 0u);
  EXPECT_ERRORS_UNTOUCHED();
}

TEST(AllocUrl, GivesAZeroFilledRecordWithoutLimit) {
  // Dirty the heap first.
  void* const dirt = std::malloc(200);
  std::memset(dirt, 0xa5, 200);
  std::free(dirt);
  test::AllocationFaults faults(0);
  const URL url = alloc_url(200);
  faults.disarm();
  ASSERT_NE(url, nullptr);
  EXPECT_EQ(faults.calls(), 1);
  EXPECT_EQ(test::allocation_size(1), 200u);
  EXPECT_EQ(url->readlimit, 0x7fffffffu);
  url->readlimit = 0;
  const char zeros[200] = {};
  EXPECT_EQ(std::memcmp(url, zeros, 200), 0);
  std::free(url);
}

TEST(AllocUrl, WithoutMemoryGivesNullAndErrnoInUrlErrno) {
  set_errors();
  test::AllocationFaults faults(1);
  const URL url = alloc_url(100);
  faults.disarm();
  EXPECT_EQ(url, nullptr);
  EXPECT_ERRORS(ENOMEM, ENOMEM);
}

TEST(AllocUrl, OfANegativeSizeIsMoreThanThereIs) {
  for (const int32_t size : {-1, -4096, INT32_MIN}) {
    set_errors();
    EXPECT_EQ(alloc_url(size), nullptr) << size;
    EXPECT_ERRORS(ENOMEM, ENOMEM);
  }
}

TEST(AllocUrl, MakesRoomForTheCommonPartAtLeast) {
  test::AllocationFaults faults(0);
  const URL url = alloc_url(4);
  faults.disarm();
  ASSERT_NE(url, nullptr);
  EXPECT_EQ(test::allocation_size(1), sizeof(URL_record));
  std::free(url);
}

std::string stderr_of(void (*function)()) {
  testing::internal::CaptureStderr();
  function();
  return testing::internal::GetCapturedStderr();
}

TEST(UrlClose, OfNullComplainsAndKeepsErrno) {
  EXPECT_EQ(stderr_of([] {
              set_errors();
              url_close(nullptr);
              EXPECT_ERRORS_UNTOUCHED();
            }),
            "URL stream structure is NULL?\n");
}

TEST(UrlClose, WithoutASlotComplainsAndLeavesTheRecord) {
  EXPECT_EQ(stderr_of([] {
              URL_record record = {};
              record.type = -5;
              set_errors();
              url_close(&record);
              EXPECT_ERRORS_UNTOUCHED();
            }),
            "URL Error: Already URL is closed (type=-5)\n");
}

TEST(UrlClose, KeepsErrnoButNotUrlErrno) {
  Stream url("abc");
  url_close(url);
  EXPECT_ERRORS(kOtherError + 1, kOtherErrno);
  EXPECT_EQ(url.take_calls(), Calls{"close!"});
  EXPECT_NE(url->close, nullptr);  // the core never clears the slot
}

// ---- url_strerror -------------------------------------------------------------------

TEST(UrlStrerror, KnowsTheCodesOfTheLayer) {
  EXPECT_STREQ(url_strerror(10001), "Unknown URL");
  EXPECT_STREQ(url_strerror(10002), "Operation not permitted");
  EXPECT_STREQ(url_strerror(10003), "Can't open a URL");
  EXPECT_STREQ(url_strerror(10004), "Invalid URL form");
  EXPECT_STREQ(url_strerror(10005), "URL too long");
  EXPECT_STREQ(url_strerror(10006), "No mail address");
}

TEST(UrlStrerror, CallsEverythingFrom10007OnInternal) {
  for (const int32_t code : {10007, 10008, 10009, 20000, INT_MAX}) {
    EXPECT_STREQ(url_strerror(code), "Internal error");
  }
}

TEST(UrlStrerror, GivesTheTextOfTheSystemBelow10001) {
  for (const int32_t code : {2, 0, -1, 9999, 10000, INT_MIN}) {
    const std::string expected = std::strerror(code);
    EXPECT_EQ(url_strerror(code), expected);
  }
}

// ---- url_dump -----------------------------------------------------------------------

TEST(UrlDump, OfSizeZeroGivesNullAndLengthZero) {
  Stream url("abc");
  int32_t length = 77;
  EXPECT_EQ(url_dump(url, 0, &length), nullptr);
  EXPECT_EQ(length, 0);
  EXPECT_EQ(url_dump(url, 0, nullptr), nullptr);
  EXPECT_ERRORS_UNTOUCHED();
  EXPECT_EQ(url.take_calls(), Calls{});
}

TEST(UrlDump, ReadsUpToTheSize) {
  Stream url("abcdef");
  url.script().largest_read = 2;
  int32_t length = 77;
  test::AllocationFaults faults(0);
  void* const data = url_dump(url, 5, &length);
  faults.disarm();
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(test::allocation_size(1), 5u);
  EXPECT_EQ(length, 5);
  EXPECT_EQ(std::memcmp(data, "abcde", 5), 0);
  std::free(data);
  void* const rest = url_dump(url, 5, nullptr);
  ASSERT_NE(rest, nullptr);
  EXPECT_EQ(*static_cast<char*>(rest), 'f');
  std::free(rest);
}

TEST(UrlDump, AtTheEndGivesNullAndLengthZero) {
  Stream url("");
  int32_t length = 77;
  EXPECT_EQ(url_dump(url, 5, &length), nullptr);
  EXPECT_EQ(length, 0);
}

TEST(UrlDump, WhenTheFirstReadFailsGivesTheBufferAndMinusOne) {
  Stream url("abc");
  url.fail_reads({EIO});
  int32_t length = 77;
  void* const data = url_dump(url, 5, &length);
  EXPECT_NE(data, nullptr);
  EXPECT_EQ(length, -1);
  std::free(data);
}

TEST(UrlDump, OfANegativeSizeGivesNullWithoutReading) {
  Stream url("abc");
  for (const int32_t size : {-1, -1024, INT_MIN}) {
    int32_t length = 77;
    EXPECT_EQ(url_dump(url, size, &length), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(url_dump(url, size, nullptr), nullptr);
  }
  EXPECT_EQ(url.take_calls(), Calls{});
}

TEST(UrlDump, WithoutMemoryGivesNullAndReadsNothing) {
  Stream url("abc");
  int32_t length = 77;
  test::AllocationFaults faults(1);
  void* const data = url_dump(url, 5, &length);
  faults.disarm();
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(length, 0);
  EXPECT_EQ(url.take_calls(), Calls{});
}

}  // namespace
