// SPDX-License-Identifier: MIT
// The owners of <groundwork/groundwork.hpp>: what they give, when they release, and that
// callbacks with state live as long as they are needed.

#include <groundwork/groundwork.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>

#include "support/log_capture.h"
#include "support/next_function.h"
#include "support/temporary_directory.h"

using test::LogCapture;
using test::TemporaryDirectory;

namespace {

std::atomic<bool> threads_fail{false};

template <typename T>
constexpr bool is_move_only =
    std::is_move_constructible_v<T>&& std::is_move_assignable_v<T> &&
    !std::is_copy_constructible_v<T> && !std::is_copy_assignable_v<T>;
static_assert(is_move_only<gw::Conf> && is_move_only<gw::List<int>> &&
              is_move_only<gw::Queue<int>> && is_move_only<gw::PointerQueue<int>> &&
              is_move_only<gw::Hash<const char, int>> && is_move_only<gw::Fifo<int>> &&
              is_move_only<gw::Callbacks<int>> && is_move_only<gw::Mutex> &&
              is_move_only<gw::Event> && is_move_only<gw::Thread> &&
              is_move_only<gw::Timeout> && is_move_only<gw::Timer> &&
              is_move_only<gw::File> && is_move_only<gw::FileMap> &&
              is_move_only<gw::Url> && is_move_only<gw::String> &&
              is_move_only<gw::Bytes> && is_move_only<gw::Pieces>);

// Waits up to ten seconds, which a loaded machine may need.
template <typename Condition>
bool happens(Condition condition) {
  for (int i = 0; i < 1000 && !condition(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return condition();
}

// Counts its live copies.
struct Counted {
  explicit Counted(std::atomic<int>& count) : alive(&count) { ++*alive; }
  Counted(const Counted& other) : alive(other.alive) { ++*alive; }
  Counted& operator=(const Counted&) = delete;
  ~Counted() { --*alive; }
  std::atomic<int>* alive;
};

TEST(CppText, AViewIsGivenWithoutWhatFollowsIt) {
  const std::string text = "server.port=80";
  const std::string_view name = std::string_view(text).substr(0, 6);
  EXPECT_STREQ("server", gw::Text(name));
  const std::string_view longer(text.c_str(), text.size());
  EXPECT_STREQ(text.c_str(), gw::Text(longer));
}

TEST(CppText, ALongViewIsCopiedToTheHeap) {
  const std::string text(1000, 'x');
  EXPECT_STREQ(text.c_str(), gw::Text(std::string_view(text)));
  const std::string edge(63, 'y');
  EXPECT_STREQ(edge.c_str(), gw::Text(std::string_view(edge)));
  const std::string beyond(64, 'z');
  EXPECT_STREQ(beyond.c_str(), gw::Text(std::string_view(beyond)));
}

TEST(CppText, ATextThatEndsInANulIsNotCopied) {
  const char* const text = "plain";
  EXPECT_EQ(text, static_cast<const char*>(gw::Text(text)));
  const std::string owned = "owned";
  EXPECT_EQ(owned.c_str(), static_cast<const char*>(gw::Text(owned)));
}

TEST(CppText, NullStaysNullAndIsReported) {
  EXPECT_EQ(nullptr, static_cast<const char*>(gw::Text(std::string_view())));
  LogCapture log;
  const gw::Pieces pieces = gw::split(std::string_view(), ",");
  EXPECT_FALSE(pieces);
  EXPECT_EQ(1u, log.take().size());
}

TEST(CppText, FormatAndSplit) {
  const gw::String text = gw::format("%s=%d", "port", 80);
  EXPECT_EQ("port=80", text.view());
  const gw::Pieces pieces = gw::split(std::string_view("a,b,,c"), ",");
  EXPECT_EQ((std::vector<std::string>{"a", "b", "", "c"}),
            std::vector<std::string>(pieces.begin(), pieces.end()));
  EXPECT_STREQ("c", pieces[3]);
}

TEST(CppConf, ReadsAndWritesByViews) {
  const TemporaryDirectory directory;
  const std::string path = directory.path() + "/a.conf";
  {
    gw::Conf conf(path);
    ASSERT_TRUE(conf);
    EXPECT_EQ(std::nullopt, conf.find("net", "port"));
    conf.write_int(std::string_view("netX", 3), "port", 8080);
    conf.write_boolean("net", "ipv6", true);
    conf.write_double("net", "rate", 0.5);
    conf.write_string("net", "name", std::string("gate"));
    EXPECT_EQ("8080", conf.find("net", "port"));
    EXPECT_EQ(8080, conf.read_int("NET", "Port", 1));
    EXPECT_TRUE(conf.read_boolean("net", "ipv6", false));
    EXPECT_EQ(0.5, conf.read_double("net", "rate", 0));
    EXPECT_EQ("gate", conf.read_string("net", "name", "?"));
    EXPECT_EQ("?", conf.read_string("net", "other", "?"));
    conf.remove_key("net", "rate");
  }
  EXPECT_EQ("[net]\nport=8080\nipv6=TRUE\nname=gate\n\n", test::read_file(path));
}

TEST(CppConf, CallbacksWithStateRunUntilTheClose) {
  const TemporaryDirectory directory;
  std::atomic<int> alive{0};
  std::string seen;
  {
    gw::Conf conf(directory.path() + "/a.conf");
    for (int i = 0; i < 3; ++i) {
      ASSERT_TRUE(conf.on_change(
          "a", "b",
          [&seen, i, counted = Counted(alive)](const GConfChange& change) noexcept {
            seen += std::to_string(i) + change.value + " ";
            return i < 1;  // the second stops the third
          }));
    }
    EXPECT_EQ(3, alive);
    gw::Conf moved(std::move(conf));
    moved.write_string("a", "b", "x");
    EXPECT_EQ("0x 1x ", seen);
    EXPECT_EQ(3, alive);
  }
  EXPECT_EQ(0, alive);
}

TEST(CppConf, AnAssignedOneIsClosedFirst) {
  const TemporaryDirectory directory;
  gw::Conf conf(directory.path() + "/a.conf");
  conf.write_int("a", "b", 1);
  conf = gw::Conf(directory.path() + "/b.conf");
  EXPECT_EQ("[a]\nb=1\n\n", test::read_file(directory.path() + "/a.conf"));
  EXPECT_TRUE(conf);
}

TEST(CppConf, SectionsCanBeWalked) {
  const TemporaryDirectory directory;
  gw::Conf conf(directory.path() + "/a.conf");
  conf.write_int("one", "k", 1);
  conf.write_int("two", "k", 1);
  std::string names;
  for (const GConfSection* section : conf.sections()) names += section->name;
  EXPECT_EQ("onetwo", names);
}

TEST(CppConf, OneThatIsNotOpenReportsAsTheCFunctionsDo) {
  gw::Conf conf;
  EXPECT_FALSE(conf);
  EXPECT_EQ(7, conf.read_int("a", "b", 7));
  LogCapture log;
  conf.write_int("a", "b", 1);
  EXPECT_EQ(1u, log.take().size());
}

TEST(CppContainers, ListKeepsOrderAndOwnsItsNodesOnly) {
  int numbers[] = {1, 2, 3};
  gw::List<int> list;
  list.append(&numbers[1]);
  list.append(&numbers[2]);
  list.prepend(&numbers[0]);
  std::string order;
  for (const int* number : list) order += std::to_string(*number);
  EXPECT_EQ("123", order);
  list.reverse();
  list.remove(&numbers[1]);
  gw::List<int> moved = std::move(list);
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(2u, moved.size());
  EXPECT_TRUE(moved.contains(&numbers[0]));
  EXPECT_FALSE(moved.contains(&numbers[1]));
}

TEST(CppContainers, QueueVisitsByLambda) {
  const char* const words[] = {"a", "b", "c"};
  gw::PointerQueue<const char> queue;
  ASSERT_TRUE(queue);
  for (const char* word : words) queue.enqueue(word);
  std::string seen;
  queue.for_each([&](const char* word) noexcept { seen += word; });
  queue.for_each_reverse([&](const char* word) noexcept {
    seen += word;
    return *word != 'b';
  });
  EXPECT_EQ("abccb", seen);
  EXPECT_EQ(nullptr, queue.dequeue(words[1]));
  EXPECT_EQ(words[0], queue.dequeue());
  EXPECT_EQ(2u, queue.size());
  EXPECT_EQ(words[1], queue.first());
  EXPECT_EQ(words[2], queue.last());
}

TEST(CppContainers, HashComparesByTheKindOfItsKeys) {
  int value = 1;
  gw::Hash<const char, int> texts;
  ASSERT_TRUE(texts.insert("key", &value));
  EXPECT_EQ(&value, texts.find(std::string("key").c_str()));
  EXPECT_TRUE(texts.remove("key"));
  EXPECT_FALSE(texts.remove("key"));

  const int32_t one = 1;
  const int32_t another_one = 1;
  gw::Hash<const int32_t, int> numbers;
  ASSERT_TRUE(numbers.insert(&one, &value));
  EXPECT_EQ(&value, numbers.find(&another_one));

  gw::Hash<const double, int> pointers;
  const double same[] = {1, 1};
  ASSERT_TRUE(pointers.insert(&same[0], &value));
  EXPECT_EQ(nullptr, pointers.find(&same[1]));
  EXPECT_EQ(&value, pointers.find(&same[0]));
}

TEST(CppContainers, FifoAndCallbacks) {
  int numbers[] = {1, 2};
  gw::Fifo<int> fifo(1);
  EXPECT_TRUE(fifo.put(&numbers[0]));
  LogCapture log;
  EXPECT_FALSE(fifo.put(&numbers[1]));
  EXPECT_EQ(&numbers[0], fifo.take());
  EXPECT_TRUE(fifo.empty());

  gw::Callbacks<std::string> callbacks;
  auto late = [](std::string& text) noexcept { text += "late"; };
  auto early = [](std::string& text) noexcept { text += "early "; };
  ASSERT_TRUE(callbacks.add(late, 2));
  ASSERT_TRUE(callbacks.add(early, 1));
  std::string text;
  EXPECT_TRUE(callbacks.execute(text));
  EXPECT_EQ("early late", text);
  callbacks.remove(early);
  EXPECT_TRUE(callbacks.execute(text));
  EXPECT_EQ("early latelate", text);
}

TEST(CppThread, RunsALambdaAndIsJoinedByItsEnd) {
  std::atomic<int> alive{0};
  std::atomic<int> runs{0};
  {
    gw::Thread thread([&runs, counted = Counted(alive)] { ++runs; });
  }
  EXPECT_EQ(1, runs);
  EXPECT_EQ(0, alive);
}

TEST(CppThread, OneThatCannotBeStartedReleasesItsLambda) {
  std::atomic<int> alive{0};
  std::atomic<int> runs{0};
  threads_fail = true;
  {
    gw::Thread thread([&runs, counted = Counted(alive)] { ++runs; });
    EXPECT_TRUE(thread);
    gw::Thread moved(std::move(thread));
  }
  threads_fail = false;
  EXPECT_EQ(0, runs);
  EXPECT_EQ(0, alive);
}

TEST(CppThread, ACancelledOneReleasesItsLambda) {
#ifndef __GLIBC__
  GTEST_SKIP() << "this C library ends a cancelled thread without unwinding it";
#endif
  std::atomic<int> alive{0};
  gw::Thread thread([counted = Counted(alive)] {
    for (;;) g_delay(10);
  });
  thread.cancel();
  thread.join();
  EXPECT_EQ(0, alive);
}

TEST(CppThread, MutexAndEvent) {
  gw::Mutex mutex;
  gw::Event event;
  std::atomic<bool> woken{false};
  int count = 0;
  gw::Thread waiter([&] {
    event.wait();
    woken = true;
  });
  gw::Thread other([&] {
    for (int i = 0; i < 1000; ++i) {
      const gw::Lock lock(mutex);
      ++count;
    }
  });
  for (int i = 0; i < 1000; ++i) {
    const std::lock_guard<gw::Mutex> lock(mutex);
    ++count;
  }
  other.join();
  EXPECT_EQ(2000, count);
  EXPECT_TRUE(happens([&] {
    event.signal();
    return woken.load();
  }));
}

TEST(CppTimeout, RunsUntilItsOwnerEnds) {
  std::atomic<int> alive{0};
  std::atomic<int> runs{0};
  {
    gw::Timeout timeout(1, [&runs, counted = Counted(alive)] { ++runs; });
    ASSERT_TRUE(timeout);
    EXPECT_TRUE(happens([&] { return runs >= 3; }));
  }
  EXPECT_EQ(0, alive);
}

TEST(CppTimeout, MayEndItselfAndBeEndedStill) {
  std::atomic<int> alive{0};
  std::atomic<int> runs{0};
  for (int i = 0; i < 50; ++i) {
    gw::Timeout timeout(1, [&runs, counted = Counted(alive)] {
      ++runs;
      return false;
    });
    EXPECT_TRUE(happens([&] { return runs == i + 1; }));
  }
  EXPECT_EQ(50, runs);
  EXPECT_EQ(0, alive);
}

TEST(CppTimer, RunsUntilItsOwnerEnds) {
  std::atomic<int> alive{0};
  std::atomic<int> runs{0};
  {
    gw::TimerService service;
    ASSERT_TRUE(service);
    {
      gw::Timer timer(10, [&runs, counted = Counted(alive)] { ++runs; });
      ASSERT_TRUE(timer);
      gw::Timer moved(std::move(timer));
      EXPECT_FALSE(timer);
      EXPECT_TRUE(happens([&] { return runs >= 3; }));
    }
    EXPECT_EQ(0, alive);
    const int runs_then = runs;
    g_delay(50);
    EXPECT_EQ(runs_then, runs);
  }
  EXPECT_EQ(nullptr, gw::detail::timer_states.first);
}

TEST(CppTimer, MayEndItselfInItsFunction) {
  std::atomic<int> alive{0};
  gw::TimerService service;
  std::atomic<bool> ended{false};
  gw::Timer timer;
  std::mutex mutex;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    timer = gw::Timer(10, [&, counted = Counted(alive)] {
      const std::lock_guard<std::mutex> set(mutex);
      timer.end();
      ended = true;
    });
  }
  EXPECT_TRUE(happens([&] { return ended.load(); }));
  EXPECT_TRUE(happens([&] { return alive == 0; }));
}

TEST(CppTimer, MayOutliveTheService) {
  std::atomic<int> alive{0};
  gw::Timer kept;
  {
    gw::TimerService service;
    kept = gw::Timer(60000, [counted = Counted(alive)] {});
    gw::Timer dropped(60000, [counted = Counted(alive)] {});
    EXPECT_EQ(2, alive);
  }
  EXPECT_EQ(1, alive);
  kept.end();
  EXPECT_EQ(0, alive);
}

TEST(CppTimer, ZeroEndsAndAnotherIntervalTakesEffect) {
  gw::TimerService service;
  std::atomic<int> runs{0};
  gw::Timer timer(10, [&runs] { return ++runs < 3 ? 20 : 0; });
  EXPECT_TRUE(happens([&] { return runs == 3; }));
  g_delay(60);
  EXPECT_EQ(3, runs);
}

TEST(CppTimer, WithoutAServiceThereIsNone) {
  std::atomic<int> alive{0};
  testing::internal::CaptureStdout();
  const gw::Timer timer(10, [counted = Counted(alive)] {});
  testing::internal::GetCapturedStdout();
  EXPECT_FALSE(timer);
  EXPECT_EQ(0, alive);
}

TEST(CppSystem, FilesAreWrittenReadAndMapped) {
  const TemporaryDirectory directory;
  const std::string path = directory.path() + "/a";
  {
    gw::File file(path, gw::File::kCreate);
    ASSERT_TRUE(file);
    EXPECT_EQ(5, file.write("hello"));
    EXPECT_TRUE(file.lock_write());
    EXPECT_TRUE(file.unlock());
    EXPECT_EQ(4, file.seek(4));
    EXPECT_TRUE(file.truncate());
  }
  EXPECT_EQ(4, gw::file_size(path));
  EXPECT_EQ("hell", gw::read_file(path).view());
  EXPECT_EQ("hell", gw::FileMap(path, 0, 4).bytes());
  EXPECT_EQ(std::nullopt, gw::file_size(directory.path() + "/b"));
  EXPECT_TRUE(gw::file_exists(path));
  EXPECT_TRUE(gw::directory_exists(directory.path()));
  const gw::Names names = gw::list_directory(directory.path());
  EXPECT_EQ((std::vector<std::string>{"a"}),
            std::vector<std::string>(names.begin(), names.end()));
  std::string seen;
  EXPECT_EQ(
      7, gw::scan_directory(directory.path(), [&](const char* name, const auto*) noexcept {
        seen = name;
        return 7;
      }));
  EXPECT_EQ(path, seen);
  EXPECT_TRUE(gw::filesystem_usage("/"));
}

TEST(CppSafe, AFileIsReplacedWhole) {
  const TemporaryDirectory directory;
  const std::string path = directory.path() + "/a";
  const gw::Saved saved = gw::replace_file(path, "new");
  EXPECT_TRUE(saved);
  EXPECT_TRUE(saved.durable());
  EXPECT_EQ("new", test::read_file(path));
  EXPECT_TRUE(gw::replace_file(path, std::string_view()));
  EXPECT_EQ("", test::read_file(path));
  EXPECT_TRUE(gw::duplicate_file(path, path + "2"));
  EXPECT_TRUE(gw::file_exists(path + "2"));
}

TEST(CppSafe, AFailureHasAReason) {
  const TemporaryDirectory directory;
  const gw::Saved saved = gw::replace_file(directory.path() + "/none/a", "new");
  EXPECT_FALSE(saved);
  EXPECT_FALSE(saved.durable());
  EXPECT_EQ(ENOENT, saved.error().number());
  EXPECT_STREQ(std::strerror(ENOENT), saved.error().text());
  const gw::Result<void> removed = gw::remove_tree(directory.path() + "/none");
  EXPECT_FALSE(removed);
  EXPECT_TRUE(removed.error() == ENOENT);
}

TEST(CppSafe, DirectoriesAreMadeAndRemovedWithAllInThem) {
  const TemporaryDirectory directory;
  const std::string path = directory.path() + "/a/b/c";
  EXPECT_TRUE(gw::make_directory(path));
  EXPECT_TRUE(gw::directory_exists(path));
  EXPECT_TRUE(gw::remove_tree(directory.path() + "/a"));
  EXPECT_FALSE(gw::directory_exists(directory.path() + "/a"));
}

TEST(CppSafe, TimesAreRoundedUpAndBounded) {
  using namespace std::chrono_literals;
  static_assert(gw::Milliseconds(7).count() == 7);
  static_assert(gw::Milliseconds(1500us).count() == 2);
  static_assert(gw::Milliseconds(-1500us).count() == -1);
  static_assert(gw::Milliseconds(2s).count() == 2000);
  static_assert(gw::Milliseconds(1000h).count() == INT_MAX);
  static_assert(gw::Milliseconds(std::chrono::duration<double>(0.25)).count() == 250);
  const auto begin = gw::MonotonicClock::now();
  gw::delay(20ms);
  EXPECT_GE(gw::MonotonicClock::now() - begin, 19ms);
}

TEST(CppSafe, ATryReturnsWhetherItLocked) {
  gw::Mutex mutex;
  gw::Mutex second;
  {
    const std::unique_lock<gw::Mutex> lock(mutex, std::try_to_lock);
    EXPECT_TRUE(lock);
    EXPECT_FALSE(mutex.try_lock());
  }
  const std::scoped_lock both(mutex, second);
  EXPECT_FALSE(second.try_lock());
}

TEST(CppSafe, AnEventIsWaitedForWithALimit) {
  using namespace std::chrono_literals;
  gw::Event event;
  EXPECT_FALSE(event.wait_for(1ms));
  const gw::Event::Ticket ticket = event.ticket();
  EXPECT_FALSE(event.wait_for(ticket, -5s));  // below 0 is no time, rather than no limit
  event.signal();
  EXPECT_TRUE(event.wait_for(ticket, 0ms));
  event.wait(ticket);
  EXPECT_FALSE(event.wait_for(event.ticket(), 1ms));
}

TEST(CppSafe, AConfigurationKeepsItsCommentsAndTakesInWhatOthersWrote) {
  const TemporaryDirectory directory;
  const std::string path = directory.path() + "/a.conf";
  ASSERT_TRUE(gw::write_file(path, "# by hand\n[net]\nport=1\n"));
  gw::Conf conf(path);
  conf.write_int("net", "port", 2);
  EXPECT_TRUE(conf.save());
  EXPECT_EQ("# by hand\n[net]\nport=2\n", test::read_file(path));

  ASSERT_TRUE(gw::write_file(path, "[net]\nport=3\n"));
  conf.write_int("net", "port", 4);
  EXPECT_EQ(EBUSY, conf.reload().error().number());
  EXPECT_EQ(ESTALE, conf.save().error().number());
  EXPECT_TRUE(conf.save(gw::Conf::Foreign::kOverwrite));
  ASSERT_TRUE(gw::write_file(path, "[net]\nport=5\n"));
  const gw::Result<int> changes = conf.reload();
  EXPECT_EQ(1, changes.value_or(-1));
  EXPECT_EQ(5, conf.read_int("net", "port", 0));
}

TEST(CppSafe, ATableIsWalkedAndMayChangeMeanwhile) {
  const char* const keys[] = {"a", "b", "c"};
  int values[] = {1, 2, 4};
  gw::Hash<const char, int> hash;
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(hash.insert(keys[i], &values[i]));
  int sum = 0;
  for (const auto [key, value] : hash) {
    sum += *value;
    EXPECT_TRUE(hash.remove(key));
  }
  EXPECT_EQ(7, sum);
  EXPECT_EQ(0u, hash.size());
  for ([[maybe_unused]] const auto& entry : hash) ADD_FAILURE();

  for (int i = 0; i < 3; ++i) ASSERT_TRUE(hash.insert(keys[i], &values[i]));
  int visits = 0;
  hash.for_each([&visits](const char*, int*) noexcept { return ++visits < 2; });
  EXPECT_EQ(2, visits);
}

TEST(CppContainers, AQueueOwnsObjectsThatOnlyMove) {
  std::atomic<int> alive{0};
  gw::Queue<std::unique_ptr<Counted>> queue;
  EXPECT_EQ(std::nullopt, queue.pop());
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(queue.push(std::make_unique<Counted>(alive)));
  EXPECT_EQ(3u, queue.size());
  EXPECT_TRUE(queue.pop());
  EXPECT_EQ(2, alive);
  gw::Queue<std::unique_ptr<Counted>> moved(std::move(queue));
  EXPECT_FALSE(queue);
  EXPECT_FALSE(queue.push(nullptr));
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(2u, moved.size());
  moved = gw::Queue<std::unique_ptr<Counted>>();
  EXPECT_EQ(0, alive);
}

TEST(CppContainers, AQueueGivesToOneThreadWhatAnotherPuts) {
  gw::Queue<int> queue;
  int64_t sum = 0;
  gw::Thread consumer([&] {
    for (int left = 1000; left > 0;) {
      if (const std::optional<int> number = queue.pop()) {
        sum += *number;
        --left;
      } else {
        gw::delay(1);
      }
    }
  });
  for (int i = 0; i < 1000; ++i) queue.push(i);
  consumer.join();
  EXPECT_EQ(499500, sum);
}

TEST(CppLog, LinesReachTheHandlerWhileItLives) {
  const int threshold = g_debug_get_level();
  g_debug_set_level2(G_LOG_WARNING);
  const gw::Log log("pump");
  std::vector<std::string> lines;
  {
    gw::LogHandler handler([&lines](const char* text) noexcept { lines.push_back(text); });
    ASSERT_TRUE(handler);
    log.information(7, "%d", 1);
    log.warning(8, "%d litres", 400);
    log.error(9, "burst");
  }
  g_debug_set_level2(threshold);
  ASSERT_EQ(2u, lines.size());
  EXPECT_NE(std::string::npos, lines[0].find("pump:8: [WARNING] 400 litres")) << lines[0];
  EXPECT_NE(std::string::npos, lines[1].find("pump:9: [CRITICAL] burst")) << lines[1];
  LogCapture silent(99);
}

TEST(CppSystem, LinesComeOneByOne) {
  const TemporaryDirectory directory;
  const std::string path = directory.path() + "/a";
  const auto lines = [&path](std::string_view content) {
    EXPECT_TRUE(gw::write_file(path, content));
    std::string joined;
    const gw::Lines found(path);
    EXPECT_TRUE(found);
    for (const std::string_view line : found) joined += "<" + std::string(line) + ">";
    return joined;
  };
  EXPECT_EQ("", lines(""));
  EXPECT_EQ("<one><><two>", lines("one\n\ntwo"));
  EXPECT_EQ("<one><>", lines("one\r\n\r\n"));
  LogCapture silent(99);
  EXPECT_FALSE(gw::Lines(directory.path() + "/none"));
  EXPECT_EQ(ENOENT, gw::write_file(directory.path() + "/none/a", "x").error().number());
}

TEST(CppCrypt, EveryTextIsEncodedRight) {
  EXPECT_EQ("Qf8=", gw::base64_encode("\x41\xff").view());
  for (int size = 0; size < 20; ++size) {
    std::string bytes;
    for (int i = 0; i < size; ++i) bytes += static_cast<char>(0xf0 + i);
    EXPECT_EQ(bytes, gw::base64_decode(gw::base64_encode(bytes).c_str()).view()) << size;
  }
}

TEST(CppCrypt, UndoesWhatItDid) {
  const gw::Block text{1, 2, 3, 4, 5, 6, 7, 8};
  const gw::Block key{8, 7, 6, 5, 4, 3, 2, 1};
  EXPECT_NE(text, gw::d3des_encrypt(text, key));
  EXPECT_EQ(text, gw::d3des_decrypt(gw::d3des_encrypt(text, key), key));
  EXPECT_EQ(text, gw::des_decrypt(gw::des_encrypt(text, key), key));
  EXPECT_EQ("Zm9vYmFy", gw::base64_encode("foobar").view());
  EXPECT_EQ("", gw::base64_encode("").view());
  EXPECT_EQ("foobar", gw::base64_decode("Zm9vYmFy").view());
  EXPECT_FALSE(gw::base64_decode("Zm9v!mFy"));
}

TEST(CppUrl, TheTimeLimitHoldsForABlock) {
  {
    const gw::HttpTimeout outer(std::chrono::seconds(2));
    {
      const gw::HttpTimeout inner(300);
      EXPECT_EQ(300, url_http_set_timeout(300));
    }
    EXPECT_EQ(2000, url_http_set_timeout(2000));
  }
  EXPECT_EQ(0, url_http_set_timeout(0));
}

TEST(CppUrl, ReadsLinesOfAFile) {
  const TemporaryDirectory directory;
  std::ofstream(directory.path() + "/a") << "one\ntwo\n";
  gw::use_files_and_http();
  gw::use_files_and_http();  // a second time changes nothing
  gw::Url url(directory.path() + "/a");
  ASSERT_TRUE(url);
  char line[64];
  EXPECT_EQ("one", url.line(line));
  EXPECT_EQ('t', url.byte());
  EXPECT_EQ("wo\n", url.dump(100).view());
  EXPECT_EQ(std::nullopt, url.line(line));
  EXPECT_EQ(0, url.seek(0));
  EXPECT_EQ(0, url.tell());
  EXPECT_FALSE(gw::Url("nothing:there"));
}

}  // namespace

extern "C" int pthread_create(pthread_t* id, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* arg) noexcept {
  if (threads_fail) return EAGAIN;
  return test::next_function<decltype(pthread_create)>("pthread_create")(id, attributes,
                                                                         start, arg);
}
