// The safe layer.
//
// SPDX-License-Identifier: MIT

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <groundwork/safe.h>
#include <groundwork/timer.h>
#include <groundwork/url.h>

#include "faults/sweep.h"
#include "faults/working_directory.h"
#include "url/scripted_server.h"

using namespace faults;
using test::read_file;

namespace {

void read_clock(Pass& pass) {
  EXPECT_GT(faulty(pass, [] { return g_monotonic_ms(); }), 0);
}

// --- Files.

struct Result {
  int value;
  int error;
};

// Whether a fault struck that every replacement must report. A descriptor that cannot be
// closed, or a lock that cannot be released, may be of no importance.
bool is_refused(const Pass& pass) {
  if (pass.struck(Call::kAllocation, Call::kOpenat, Call::kFstat, Call::kStat,
                  Call::kFstatat, Call::kReadlinkat, Call::kFchown, Call::kFchmod,
                  Call::kFutimens, Call::kRenameat, Call::kRead, Call::kWrite,
                  Call::kFcntl) == 0) {
    return false;
  }
  return pass.kind() == Effect::kError && pass.error() != EINTR;
}

// What holds after each replacement of "file", which held `old` before.
void expect_promise(const Pass& pass, const Result& result, const std::string& old,
                    const std::string& wanted) {
  EXPECT_EQ(pass.reports(), 0);
  EXPECT_EQ(read_file("file"), result.value == -1 ? old : wanted);
  EXPECT_TRUE(access(".file.new", F_OK) == -1 ||
              (pass.struck(Call::kUnlinkat) != 0 && pass.error() != EINTR))
      << "the temporary file was left";
  if (pass.error() == EINTR && pass.struck(Call::kFsync) == 0) {
    EXPECT_NE(result.value, -1) << "not called again: " << result.error;
  }
  if (is_refused(pass)) {
    EXPECT_EQ(result.value, -1);
  }
  if (result.value == 0) {
    EXPECT_EQ(pass.struck(Call::kFsync), 0);
  } else {
    EXPECT_TRUE(pass.struck()) << "failed without a fault: " << result.error;
    EXPECT_TRUE(result.value != 1 || pass.struck(Call::kFsync) != 0);
    int error = pass.is_of_memory() ? ENOMEM : pass.error();
    if (pass.struck(Call::kFchown) != 0 && error == EINVAL) error = EPERM;
    // A leftover file is in the way, yet is missing when it is to be removed.
    if (pass.struck(Call::kUnlinkat) != 0 && error == ENOENT) error = EEXIST;
    if (error != -1) {
      EXPECT_EQ(result.error, error);
    }
  }
  struct stat status;
  ASSERT_EQ(stat("file", &status), 0);
  EXPECT_EQ(status.st_mode & 07777, mode_t{0640});
  EXPECT_EQ(status.st_uid, geteuid() == 0 ? 4321 : geteuid());
}

// Everything that a replacement may find: a link, an owner and a mode to keep, and what a
// power cut left.
void prepare(const WorkingDirectory& directory, const std::string& content) {
  directory.write("file", content);
  if (geteuid() == 0) {
    EXPECT_EQ(chown("file", 4321, 4321), 0);
  }
  EXPECT_EQ(chmod("file", 0640), 0);
  EXPECT_EQ(symlink("file", "link"), 0);
  directory.write(".file.new", "left");
}

void replace_file(Pass& pass) {
  const WorkingDirectory directory;
  prepare(directory, "old");
  const Result result = faulty(pass, [] {
    errno = 0;
    const int value = g_file_replace("link", "the new content", 15);
    return Result{value, errno};
  });
  if (result.value == -1 && access(".file.new", F_OK) == 0 &&
      read_file(".file.new") == "left") {
    EXPECT_EQ(unlink(".file.new"), 0);  // it did not come that far
  }
  expect_promise(pass, result, "old", "the new content");
}

// Each descriptor has to be moved then.
void replace_without_standard_input(Pass& pass) {
  const WorkingDirectory directory;
  prepare(directory, "old");
  EXPECT_EQ(unlink(".file.new"), 0);
  const int input = fcntl(0, F_DUPFD_CLOEXEC, 3);
  close(0);
  const Result result = faulty(pass, [] {
    errno = 0;
    const int value = g_file_replace("link", "the new content", 15);
    return Result{value, errno};
  });
  EXPECT_EQ(dup2(input, 0), 0);
  close(input);
  expect_promise(pass, result, "old", "the new content");
}

void make_file(Pass& pass) {
  const WorkingDirectory directory;
  const Result result = faulty(pass, [] {
    errno = 0;
    const int value = g_file_replace("file", "content", 7);
    return Result{value, errno};
  });
  EXPECT_EQ(access("file", F_OK) == 0, result.value != -1);
  if (result.value != -1) {
    EXPECT_EQ(read_file("file"), "content");
  }
  if (is_refused(pass)) {
    EXPECT_EQ(result.value, -1);
  }
  if (!pass.struck()) {
    EXPECT_EQ(result.value, 0);
  }
  EXPECT_TRUE(access(".file.new", F_OK) == -1 || pass.struck(Call::kUnlinkat) != 0);
}

void duplicate_file(Pass& pass) {
  const WorkingDirectory directory;
  std::string content;
  for (int i = 0; content.size() < 9000; ++i) content += std::to_string(i) + " ";
  prepare(directory, "old");
  directory.write("from", content);
  EXPECT_EQ(chmod("from", 0640), 0);
  const Result result = faulty(pass, [] {
    errno = 0;
    const int value = g_file_duplicate("from", "link");
    return Result{value, errno};
  });
  if (result.value == -1 && access(".file.new", F_OK) == 0 &&
      read_file(".file.new") == "left") {
    EXPECT_EQ(unlink(".file.new"), 0);
  }
  const bool ends_early = pass.struck(Call::kRead) != 0 && pass.kind() == Effect::kEnd;
  const std::string copy = read_file("file");
  expect_promise(pass, result, "old",
                 ends_early ? content.substr(0, copy.size()) : content);
  EXPECT_EQ(read_file("from"), content);
}

// --- Directories.

void make_directory_with_parents(Pass& pass) {
  const WorkingDirectory directory;
  const mode_t previous = umask(0300);  // so that parents need more than was asked for
  const Result result = faulty(pass, [] {
    errno = 0;
    const int value = g_dir_make("a/b/c", 0755);
    return Result{value, errno};
  });
  umask(previous);
  EXPECT_EQ(pass.reports(), 0);
  if (result.value == 0) {
    struct stat status;
    ASSERT_EQ(stat("a/b/c", &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode));
  } else {
    EXPECT_TRUE(pass.struck()) << "failed without a fault: " << result.error;
    EXPECT_NE(result.error, 0);
    EXPECT_NE(result.error, EINTR);
  }
  if (pass.struck(Call::kAllocation, Call::kChmod, Call::kLstat) != 0 &&
      pass.error() != EINTR) {
    EXPECT_EQ(result.value, -1);
  }
}

// Deeper than the directories that stay open.
void remove_tree(Pass& pass) {
  const WorkingDirectory directory;
  directory.make("outside");
  directory.write("outside/canary", "alive");
  std::string path = "tree";
  for (int level = 0; level < 11; ++level) {
    directory.make(path);
    directory.write(path + "/file", "");
    EXPECT_EQ(symlink("/proc/self/cwd/outside", (path + "/link").c_str()), 0);
    path += "/d";
  }
  const Result result = faulty(pass, [] {
    errno = 0;
    const int value = g_dir_remove("tree");
    return Result{value, errno};
  });
  EXPECT_EQ(pass.reports(), 0);
  EXPECT_EQ(read_file("outside/canary"), "alive");
  struct stat status;
  const bool is_there = lstat("tree", &status) == 0;
  // What is said to be gone already, and is not, may stay.
  EXPECT_TRUE(is_there == (result.value != 0) || pass.error() == ENOENT);
  if (pass.struck_only(Call::kClose, Call::kClosedir) || pass.error() == EINTR) {
    EXPECT_EQ(result.value, 0);
  }
  if (result.value == -1) {
    EXPECT_TRUE(pass.struck()) << "failed without a fault: " << result.error;
    EXPECT_NE(result.error, 0);
    if (pass.is_of_memory()) {
      EXPECT_EQ(result.error, ENOMEM);
    }
  }
  EXPECT_EQ(g_dir_remove("tree"), is_there ? 0 : -1);
}

// --- Configuration.

constexpr char kConfText[] = "#c\n[net]\nhost = here\nport=80\n\n[ui]\nlang=en\n";
constexpr char kConfEdited[] =
    "#c\n[net]\nhost = there\nmtu=9\n\n[ui]\nlang=en\n\n[new]\na=1\n";

GConf* open_conf(const WorkingDirectory& directory) {
  directory.write("file", kConfText);
  EXPECT_EQ(chmod("file", 0640), 0);
  GConf* const conf = g_conf_open("file");
  EXPECT_NE(conf, nullptr);
  return conf;
}

void close_clean(GConf* conf) {
  conf->dirty = 0;
  g_conf_close(conf);
}

std::string value_of(GConf* conf, const char* section, const char* key) {
  return g_conf_read_string(conf, section, key, "");
}

// Saves completely or not at all. What failed is done by the next save.
void save_conf(Pass& pass) {
  const WorkingDirectory directory;
  GConf* const conf = open_conf(directory);
  ASSERT_NE(conf, nullptr);
  g_conf_write_string(conf, "net", "host", "there");
  g_conf_remove_key(conf, "net", "port");
  g_conf_write_string(conf, "net", "mtu", "9");
  g_conf_write_string(conf, "new", "a", "1");
  const Result result = faulty(pass, [conf] {
    errno = 0;
    const int value = g_conf_save(conf, 0);
    return Result{value, errno};
  });
  EXPECT_EQ(pass.reports(), 0);
  EXPECT_EQ(read_file("file"), result.value == -1 ? kConfText : kConfEdited);
  EXPECT_EQ(conf->dirty, result.value == -1 ? 1 : 0);
  EXPECT_TRUE(access(".file.new", F_OK) == -1 || pass.struck(Call::kUnlinkat) != 0);
  if (result.value == 0) {
    EXPECT_EQ(pass.struck(Call::kFsync), 0);
  }
  if (result.value != 0) {
    EXPECT_TRUE(pass.struck()) << "failed without a fault: " << result.error;
    EXPECT_NE(result.error, 0);
  }
  if (is_refused(pass)) {
    EXPECT_EQ(result.value, -1);
  }
  if (pass.is_of_memory() && result.value == -1) {
    EXPECT_EQ(result.error, ENOMEM);
  }
  g_conf_write_string(conf, "net", "mtu", "9");
  EXPECT_EQ(g_conf_save(conf, 0), 0);
  EXPECT_EQ(read_file("file"), kConfEdited);
  close_clean(conf);
}

// All changes are taken in and reported, or none.
void reload_conf(Pass& pass) {
  const WorkingDirectory directory;
  GConf* const conf = open_conf(directory);
  ASSERT_NE(conf, nullptr);
  std::string reported;
  const auto report = [](const GConfChange* change, void* data) {
    // Short enough to need no memory, which may fail.
    static_cast<std::string*>(data)->push_back(change->value[0]);
    return 0;
  };
  EXPECT_EQ(g_conf_register_callback(conf, "net", "host", report, &reported), 0);
  EXPECT_EQ(g_conf_register_callback(conf, "net", "mtu", report, &reported), 0);
  directory.write("file", kConfEdited);
  const Result result = faulty(pass, [conf] {
    errno = 0;
    const int value = g_conf_reload(conf);
    return Result{value, errno};
  });
  EXPECT_EQ(pass.reports(), 0);
  EXPECT_EQ(conf->dirty, 0);
  const bool is_new = result.value != -1;
  if (is_new) {
    EXPECT_EQ(result.value, 4);
  } else {
    EXPECT_TRUE(pass.struck()) << "failed without a fault: " << result.error;
    EXPECT_NE(result.error, 0);
  }
  // Where all fail, each in its way, the file may only seem to end where it does.
  if (is_refused(pass) && pass.error() != -1) {
    EXPECT_FALSE(is_new);
  }
  EXPECT_EQ(reported, is_new ? "t9" : "");
  EXPECT_EQ(value_of(conf, "net", "host"), is_new ? "there" : "here");
  EXPECT_EQ(value_of(conf, "net", "port"), is_new ? "" : "80");
  EXPECT_EQ(value_of(conf, "net", "mtu"), is_new ? "9" : "");
  EXPECT_EQ(value_of(conf, "new", "a"), is_new ? "1" : "");
  EXPECT_EQ(value_of(conf, "ui", "lang"), "en");
  EXPECT_EQ(g_conf_reload(conf), is_new ? 0 : 4);
  EXPECT_EQ(value_of(conf, "net", "mtu"), "9");
  close_clean(conf);
}

// --- Containers.

int count_entry(void*, void*, void* count) {
  ++*static_cast<int*>(count);
  return 0;
}

void walk_hash(Pass& pass) {
  GHash* const hash = g_hash_new(4, nullptr, nullptr, nullptr);
  ASSERT_NE(hash, nullptr);
  char keys[10];
  for (char& key : keys) EXPECT_EQ(g_hash_insert(hash, &key, &key), 0);
  int count = 0;
  EXPECT_EQ(faulty(pass, [&] { return g_hash_foreach(hash, count_entry, &count); }), 0);
  EXPECT_FALSE(pass.struck());
  EXPECT_EQ(count, 10);
  g_hash_free(hash);
}

// --- Threads and time.

// A signal that comes first ends the wait before anything can fail.
void wait_for_an_event(Pass& pass) {
  GThreadEvent* const event = g_thread_event_new();
  const uint32_t ticket = faulty(pass, [&] { return g_thread_event_ticket(event); });
  EXPECT_EQ(ticket, 0u);
  errno = 0;
  const int timed_out =
      faulty(pass, [&] { return g_thread_event_wait_for(event, ticket, 2); });
  if (timed_out == -1) {
    EXPECT_TRUE(pass.struck(Call::kPthreadCondInit, Call::kPthreadCondTimedwait));
    EXPECT_NE(errno, 0);
  } else {
    EXPECT_EQ(timed_out, 1);
  }
  g_thread_event_signal(event);
  EXPECT_EQ(faulty(pass, [&] { return g_thread_event_wait_for(event, ticket, 2); }), 0);
  EXPECT_EQ(pass.reports(), 0);
  g_thread_event_free(event);
}

// Without a limit: as long as it waits, or until the wait fails.
void wait_without_limit(Pass& pass) {
  struct Waiter {
    GThreadEvent* event;
    std::atomic<int> result{-7};
    std::atomic<bool> is_done{false};
  } waiter;
  waiter.event = g_thread_event_new();
  GThread* thread;
  {
    const Faults faults(pass);
    thread = g_thread_create(
        [](void* data) -> void* {
          auto* const own = static_cast<Waiter*>(data);
          own->result = g_thread_event_wait_for(own->event, 0, -1);
          own->is_done = true;
          return nullptr;
        },
        &waiter, nullptr);
    for (int tries = 0; tries < 30 && thread != nullptr && !waiter.is_done; ++tries) {
      usleep(500);
      g_thread_event_signal(waiter.event);
    }
  }
  const bool is_started =
      thread != nullptr && pass.struck(Call::kPthreadCreate, Call::kAllocation) == 0;
  if (is_started) {
    for (int tries = 0; tries < 20000 && !waiter.is_done; ++tries) {
      g_thread_event_signal(waiter.event);
      usleep(500);
    }
    EXPECT_TRUE(waiter.is_done);
    if (pass.struck(Call::kPthreadCondWait, Call::kPthreadCondInit) == 0) {
      EXPECT_EQ(waiter.result, 0);
    }
  }
  if (thread != nullptr) g_thread_wait(thread);
  g_thread_event_free(waiter.event);
}

void try_a_mutex(Pass& pass) {
  GMutex* const mutex = g_thread_mutex_new();
  EXPECT_EQ(faulty(pass, [&] { return g_thread_mutex_try(mutex); }), 0);
  EXPECT_EQ(faulty(pass, [&] { return g_thread_mutex_try(mutex); }), 1);
  g_thread_mutex_unlock(mutex);
  g_thread_mutex_free(mutex);
}

std::atomic<int> fired{0};

uint32_t fire(uint32_t interval, void*) {
  ++fired;
  return interval;
}

// Whatever happens to its waits, a timer fires and the service can be stopped.
void save_power(Pass& pass) {
  g_start_ticks();
  fired = 0;
  GTimerEntry* timer = nullptr;
  {
    const Faults faults(pass);
    EXPECT_EQ(g_timer_save_power(1), 0);
    g_timer_init();
    timer = g_add_timer(20, fire, nullptr);
    for (int tries = 0; tries < 40 && fired == 0; ++tries) usleep(500);
  }
  const bool runs = pass.struck(Call::kAllocation, Call::kPthreadCreate) == 0;
  for (int tries = 0; tries < 20000 && runs && fired == 0; ++tries) usleep(500);
  if (runs) {
    EXPECT_NE(timer, nullptr);
    EXPECT_GT(fired, 0);
  }
  faulty(pass, [] {
    g_timer_cleanup();
    return g_timer_save_power(0);
  });
  EXPECT_EQ(g_timer_save_power(0), 0);
  EXPECT_EQ(g_timer_pid, 0);
}

// --- HTTP.

constexpr char kBody[] = "first line\nsecond line\nthe rest of it\n";

// Whether a request comes whole; given up as soon as a fault has kept the client from that.
bool has_request(int fd) {
  std::string request;
  char part[1024];
  pollfd wait{fd, POLLIN, 0};
  for (int tries = 0; tries < 4000; ++tries) {
    const bool is_hopeless = strikes(Call::kSend) + strikes(Call::kVsnprintf) != 0;
    if (poll(&wait, 1, 5) > 0) {
      const ssize_t count = recv(fd, part, sizeof part, 0);
      if (count <= 0) return false;
      request.append(part, static_cast<size_t>(count));
      if (request.find("\r\n\r\n") != request.npos) return true;
    } else if (is_hopeless) {
      return false;
    }
  }
  return false;
}

// One server for all passes: its thread belongs to the test.
test::ScriptedServer& server() {
  static test::ScriptedServer one([](test::Connection& connection) {
    if (!has_request(connection.fd())) return connection.reset();
    connection.send(std::string("HTTP/1.0 200 OK\r\n\r\n") + kBody +
                    std::string(9000, 'x'));
  });
  return one;
}

void read_http_in_time(Pass& pass) {
  const std::string name = server().url();
  const std::string whole = kBody + std::string(9000, 'x');
  std::string text(8021, '.');
  EXPECT_EQ(faulty(pass, [] { return url_http_set_timeout(20000); }), 0);
  url_errno = 0;
  const URL url = faulty(pass, [&] { return url_http_open(name.c_str()); });
  EXPECT_EQ(url_http_set_timeout(0), 20000);
  if (url == nullptr) {
    EXPECT_TRUE(pass.struck());
    EXPECT_NE(url_errno, URLERR_NONE);
    if (pass.error() == EINTR && pass.struck(Call::kFgets) == 0) {
      EXPECT_NE(url_errno, EINTR);
    }
    return;
  }
  const Since since(pass);
  const char* const line = faulty(pass, [&] { return url_gets(url, text.data(), 16); });
  size_t length = line == nullptr ? 0 : std::strlen(line);
  for (const int size : {10, 8000}) {
    const int32_t count =
        faulty(pass, [&] { return url_read(url, text.data() + length, size); });
    EXPECT_GE(count, 0);
    length += static_cast<size_t>(std::max(count, 0));
  }
  const int32_t byte = faulty(pass, [&] { return url_fgetc(url); });
  if (!pass.struck()) {
    EXPECT_EQ(length, text.size());
    EXPECT_EQ(byte, 'x');
  }
  if (!pass.struck() || pass.struck_only(Call::kFclose) || pass.error() == EINTR) {
    EXPECT_EQ(text.substr(0, length), whole.substr(0, length));
  }
  // A wait that ends without a byte is the last of the stream.
  if (since.struck(Call::kPoll) && pass.kind() == Effect::kEnd) {
    EXPECT_EQ(url_errno, ETIMEDOUT);
    EXPECT_EQ(byte, -1);
  }
  url_close(url);
}

const Scenarios scenarios(
    "safe", {
                {"ReadTheClock", {"g_monotonic_ms"}, read_clock},
                {"ReplaceAFile", {"g_file_replace"}, replace_file},
                {"ReplaceAFileWithoutStandardInput", {}, replace_without_standard_input},
                {"MakeAFile", {}, make_file},
                {"DuplicateAFile", {"g_file_duplicate"}, duplicate_file},
                {"MakeADirectory", {"g_dir_make"}, make_directory_with_parents},
                {"RemoveATree", {"g_dir_remove"}, remove_tree},
                {"SaveAConf", {"g_conf_save"}, save_conf},
                {"ReloadAConf", {"g_conf_reload"}, reload_conf},
                {"WaitForAnEvent",
                 {"g_thread_event_ticket", "g_thread_event_wait_for"},
                 wait_for_an_event},
                {"WaitWithoutLimit", {}, wait_without_limit, 4},
                {"TryAMutex", {"g_thread_mutex_try"}, try_a_mutex},
                {"SavePower", {"g_timer_save_power"}, save_power, 4},
                {"ReadHttpInTime", {"url_http_set_timeout"}, read_http_in_time},
                {"WalkAHashTable", {"g_hash_foreach"}, walk_hash},
            });

}  // namespace
