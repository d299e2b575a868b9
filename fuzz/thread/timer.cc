// The timer service against a model: which timers each pass calls, in which order, what is
// returned and printed. The clock is the input's, and so are the passes: the thread waits
// where it would sleep.
//
// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <groundwork/timer.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include "fuzz/support/check.h"
#include "fuzz/support/input.h"
#include "tests/support/gate.h"

namespace {

test::Gate gate;  // where the service's thread waits between two passes
int64_t now = 0;  // microseconds; set while the thread waits

}  // namespace

extern "C" int gettimeofday(timeval* time, void*) noexcept {
  time->tv_sec = static_cast<decltype(time->tv_sec)>(now / 1'000'000);
  time->tv_usec = static_cast<decltype(time->tv_usec)>(now % 1'000'000);
  return 0;
}

extern "C" int select(int, fd_set*, fd_set*, fd_set*, timeval*) {
  gate.stop_here();
  return 0;
}

namespace {

// --- What is printed.

class Printed {
 public:
  Printed() : file_(memfd_create("printed", MFD_CLOEXEC)) {
    REQUIRE(file_ >= 0);
    own_ = dup(STDOUT_FILENO);
    std::fflush(stdout);
    dup2(file_, STDOUT_FILENO);
  }
  ~Printed() {
    std::fflush(stdout);
    dup2(own_, STDOUT_FILENO);
    close(own_);
    close(file_);
  }
  // The lines since the last call, without source line and process id.
  std::string take() {
    std::fflush(stdout);
    std::string text;
    char piece[1024];
    ssize_t count;
    lseek(file_, 0, SEEK_SET);
    while ((count = read(file_, piece, sizeof piece)) > 0) {
      text.append(piece, static_cast<size_t>(count));
    }
    if (text.empty()) return text;
    REQUIRE(ftruncate(file_, 0) == 0);
    lseek(file_, 0, SEEK_SET);
    std::string lines;
    const std::string pid = " pid=" + std::to_string(getpid()) + " ";
    for (size_t at = 0; at < text.size();) {
      const size_t end = text.find('\n', at);
      const std::string line = text.substr(at, end - at);
      const size_t begin = line.find(pid);
      REQUIRE(line.rfind("g_timer:", 0) == 0 && begin != std::string::npos);
      lines += line.substr(begin + pid.size()) + "\n";
      at = end + 1;
    }
    return lines;
  }

 private:
  const int file_;
  int own_;
};

// --- The model.

struct Ticks {
  int64_t base_seconds = 0;
  int64_t base_microseconds = 0;
  uint32_t last = 0;

  void start() {
    base_seconds = now / 1'000'000;
    base_microseconds = now % 1'000'000;
  }
  uint32_t read() {
    const int64_t seconds = now / 1'000'000;
    const int64_t microseconds = now % 1'000'000;
    auto ticks = static_cast<uint32_t>((seconds - base_seconds) * 1000 +
                                       (microseconds - base_microseconds) / 1000);
    if (std::llabs(static_cast<int32_t>(ticks - last)) >= 30001) {
      const auto rest = static_cast<uint32_t>(seconds * 1000 + microseconds / 1000 - last);
      ticks = last + 10;
      base_seconds = rest / 1000;
      base_microseconds = static_cast<int64_t>(rest % 1000) * 1000;
    }
    return last = ticks;
  }
};
Ticks ticks;  // as long as the process, like the library's

// What a timer does when it is called.
struct Plan {
  int number;
  uint32_t result;  // 1: what it was called with
  enum Action { kNothing, kAdd, kRemoveItself, kRemoveAnother, kClear } action;
  GTimerEntry* id = nullptr;
};

struct Entry {
  const GTimerEntry* id;
  Plan* plan;  // null for one without a callback
  uint32_t interval;
  uint32_t last;
};

struct Call {
  int number;
  uint32_t interval;
  bool operator==(const Call&) const = default;
};

std::string shown_calls(const std::vector<Call>& calls) {
  std::string text;
  for (const Call& call : calls) {
    text += std::to_string(call.number) + "(" + std::to_string(call.interval) + ") ";
  }
  return text;
}

struct World {
  std::vector<std::unique_ptr<Plan>> plans;  // of every timer that there ever was
  std::vector<Entry> entries;                // newest first
  std::vector<Call> calls;                   // the library's, in a pass
  std::vector<Call> expected;
  std::vector<GTimerEntry*> added;  // in callbacks; the model adds them later
  std::string expected_lines;
  bool is_set_up = false;
  bool is_running = false;
  Plan* single = nullptr;  // what g_set_timer()'s callback does
};
World* world = nullptr;

uint32_t rounded(int32_t interval) {
  const auto sum = static_cast<int32_t>(static_cast<uint32_t>(interval) + 9);
  return static_cast<uint32_t>(sum / 10 * 10);
}

// The timer that removals by number mean.
Plan* plan_before(const Plan& plan) {
  return plan.number == 0 ? nullptr
                          : world->plans[static_cast<size_t>(plan.number - 1)].get();
}

uint32_t called(uint32_t interval, Plan& plan);

uint32_t run(uint32_t interval, void* param) {
  return called(interval, *static_cast<Plan*>(param));
}

uint32_t run_single(uint32_t interval, void* param) {
  REQUIRE(param == reinterpret_cast<void*>(run_single));
  return called(interval, *world->single);
}

uint32_t called(uint32_t interval, Plan& plan) {
  world->calls.push_back({plan.number, interval});
  switch (plan.action) {
    case Plan::kAdd:
      if (world->entries.size() < 400) {
        world->added.push_back(g_add_timer(100, nullptr, nullptr));
      }
      break;
    case Plan::kRemoveItself:
      g_remove_timer(plan.id);
      break;
    case Plan::kRemoveAnother:
      if (Plan* const other = plan_before(plan)) g_remove_timer(other->id);
      break;
    case Plan::kClear:
      g_set_timer(0, nullptr);
      break;
    case Plan::kNothing:
      break;
  }
  return plan.result == 1 ? interval : plan.result;
}

// By id, as the library: another timer may have got the address of one that is gone.
bool model_remove(const GTimerEntry* id) {
  if (id == nullptr) return false;  // g_set_timer()'s entry, too, whose id nobody knows
  const auto found = std::find_if(world->entries.begin(), world->entries.end(),
                                  [&](const Entry& entry) { return entry.id == id; });
  if (found == world->entries.end()) return false;
  world->entries.erase(found);
  return true;
}

void model_not_found(const GTimerEntry* id) {
  char line[80];
  std::snprintf(line, sizeof line, "g_remove_timer: *ERR* id=%p not found\n",
                static_cast<const void*>(id));
  world->expected_lines += line;
}

// Does the action of a plan to the model; true when the list changed.
bool model_act(Plan& plan) {
  switch (plan.action) {
    case Plan::kAdd: {
      if (world->added.empty()) return false;
      const GTimerEntry* const id = world->added.front();
      world->added.erase(world->added.begin());
      world->entries.insert(world->entries.begin(), {id, nullptr, 100, ticks.read()});
      return true;
    }
    case Plan::kRemoveItself:
      if (model_remove(plan.id)) return true;
      model_not_found(plan.id);
      return false;
    case Plan::kRemoveAnother:
      if (const Plan* const other = plan_before(plan)) {
        if (model_remove(other->id)) return true;
        model_not_found(other->id);
      }
      return false;
    case Plan::kClear: {
      const bool had_some = !world->entries.empty();
      world->entries.clear();
      return had_some;
    }
    case Plan::kNothing:
      break;
  }
  return false;
}

void model_scan() {
  const uint32_t time = ticks.read();
  for (size_t i = 0; i < world->entries.size();) {
    Entry& entry = world->entries[i];
    const uint32_t elapsed = time - entry.last;
    if (elapsed <= entry.interval - 10) {
      ++i;
      continue;
    }
    entry.last = elapsed < entry.interval ? entry.last + entry.interval : time;
    const uint32_t interval = entry.interval;
    uint32_t result = interval;
    if (entry.plan != nullptr) {
      Plan& plan = *entry.plan;
      world->expected.push_back({plan.number, interval});
      if (plan.result != 1) result = plan.result;
      if (model_act(plan)) return;
    }
    if (result == interval) {
      ++i;
    } else if (result == 0) {
      world->entries.erase(world->entries.begin() + static_cast<ptrdiff_t>(i));
    } else {
      entry.interval = (result + 9) / 10 * 10;
      ++i;
    }
  }
}

void compare_calls() {
  REQUIRE_EQUAL(shown_calls(world->calls), shown_calls(world->expected));
  world->calls.clear();
  world->expected.clear();
}

void pass() {
  gate.pass();
  model_scan();
  compare_calls();
}

// After a jump of the clock only the second reading is as all later ones.
void settle_ticks() {
  REQUIRE_EQUAL(g_get_ticks(), ticks.read());
  REQUIRE_EQUAL(g_get_ticks(), ticks.read());
}

// Until a pass at this time calls nothing: so it does not matter how many follow.
void settle() {
  settle_ticks();
  size_t count;
  do {
    gate.pass();
    model_scan();
    count = world->expected.size();
    compare_calls();
  } while (count != 0);
}

Plan* new_plan(fuzz::Input& input) {
  const uint8_t kind = input.byte();
  auto plan = std::make_unique<Plan>();
  plan->number = static_cast<int>(world->plans.size());
  plan->result = (kind & 3) == 0   ? 0
                 : (kind & 3) == 1 ? input.word()
                 : (kind & 3) == 2 ? static_cast<uint32_t>(input.int32())
                                   : 1;
  plan->action = static_cast<Plan::Action>((kind >> 2) % 12 < 8 ? 0 : (kind >> 2) % 12 - 7);
  world->plans.push_back(std::move(plan));
  return world->plans.back().get();
}

void add_timer(int32_t interval, Plan* plan) {
  plan->id = g_add_timer(interval, run, plan);
  if (!world->is_set_up) {
    world->expected_lines += "you must call g_init(g_init_timer) first\n";
    REQUIRE(plan->id == nullptr);
    return;
  }
  if (interval < 10) {
    world->expected_lines +=
        "**WARNING** g_add_timer interval=" + std::to_string(interval) + " < 10\n";
  }
  if (!world->is_running) world->expected_lines += "WARNING timer is not running\n";
  REQUIRE(plan->id != nullptr);
  world->entries.insert(world->entries.begin(),
                        {plan->id, plan, rounded(interval), ticks.read()});
}

void remove_timer(GTimerEntry* id) {
  const bool is_there = model_remove(id);
  REQUIRE_EQUAL(g_remove_timer(id), is_there ? 1 : 0);
  if (!is_there) model_not_found(id);
}

void start(bool by_init) {
  settle_ticks();
  gate.close();
  if (by_init) {
    REQUIRE_EQUAL(g_timer_init(), 0);
    world->is_set_up = true;
  } else {
    REQUIRE_EQUAL(g_timer_enable(1), 0);
  }
  world->is_running = true;
  gate.await_arrival();
  // Its first pass looks at the timers if its handle was stored in time.
  if (!world->calls.empty()) {
    model_scan();
    compare_calls();
  }
  settle();
}

std::string quit_line() {
  return "timer thead=" + std::to_string(getpid()) + " quit\n";
}

void before_stop() {
  if (!world->is_running) {
    world->expected_lines += "g_timer_enable: not running\n";
    return;
  }
  settle();
  gate.open();
  world->expected_lines += "g_timer_enable(0)\n" + quit_line();
  world->is_running = false;
}

void add_random_timer(fuzz::Input& input, bool is_any_interval) {
  if (world->plans.size() >= 400) return;
  Plan* const plan = new_plan(input);
  const uint16_t interval = input.word();
  add_timer(is_any_interval ? input.int32() : interval % 500, plan);
}

// So many that the library makes an index of them.
void add_many_timers() {
  if (world->plans.size() >= 200 || !world->is_set_up) return;
  for (int i = 0; i < 90; ++i) {
    auto plan = std::make_unique<Plan>();
    plan->number = static_cast<int>(world->plans.size());
    plan->result = 1;
    plan->action = Plan::kNothing;
    world->plans.push_back(std::move(plan));
    add_timer(1000 + i, world->plans.back().get());
  }
}

void remove_some_timer(fuzz::Input& input) {
  const uint16_t index = input.word();
  if (world->plans.empty() || !world->is_set_up) return;
  remove_timer(world->plans[index % world->plans.size()]->id);
}

// g_set_timer(): one timer instead of all, or none.
void set_timer(fuzz::Input& input, bool is_none) {
  if (!world->is_set_up) return;
  const uint16_t interval = input.word();
  world->entries.clear();
  // The new timer, whose address is unknown, may get the address of one of these.
  for (const auto& plan : world->plans) plan->id = nullptr;
  if (is_none || world->plans.size() >= 400) {
    REQUIRE_EQUAL(g_set_timer(0, nullptr), 0);
    return;
  }
  Plan* const plan = new_plan(input);
  if (plan->action == Plan::kRemoveItself) plan->action = Plan::kNothing;  // has no id
  world->single = plan;
  REQUIRE_EQUAL(g_set_timer(interval, run_single), 0);
  if (interval != 0) {
    world->entries.push_back({nullptr, plan, rounded(interval), ticks.read()});
  }
}

void start_or_fail(bool by_init) {
  if (!world->is_running) return start(by_init || !world->is_set_up);
  REQUIRE_EQUAL(g_timer_enable(1), 0);
  REQUIRE_EQUAL(g_timer_init(), -1);
  world->expected_lines += "*ERR* g_timer_init fail: thread runnin\n";
}

void clean_up() {
  if (!world->is_set_up) return;
  before_stop();
  g_timer_cleanup();
  world->entries.clear();
  world->is_set_up = false;
}

void operate(fuzz::Input& input) {
  const uint8_t operation = input.byte();
  const bool is_variant = (operation & 0x80) != 0;
  switch (operation % 16) {
    case 0:
    case 1:
    case 2:
      return add_random_timer(input, is_variant);
    case 3:
      return add_many_timers();
    case 4:
    case 5:
      return remove_some_timer(input);
    case 6:
      if (!world->is_set_up) return;
      // No timer of ours has such an address.
      return remove_timer(reinterpret_cast<GTimerEntry*>(uintptr_t{input.byte()} * 4));
    case 7:
      return set_timer(input, is_variant);
    case 8:
      return start_or_fail(is_variant);
    case 9:
      before_stop();
      REQUIRE_EQUAL(g_timer_enable(0), 0);
      return;
    case 10:
      if (is_variant) clean_up();
      return;
    case 11:
      now += int64_t{input.int32()} * 100;  // steps, either way
      now = std::clamp(now, int64_t{0}, int64_t{8'000'000'000'000'000});
      return;
    case 12:
      REQUIRE_EQUAL(g_get_ticks(), ticks.read());
      return;
    case 13:
      REQUIRE_EQUAL(g_start_ticks(), 0);
      ticks.start();
      return;
    default:
      now += int64_t{input.byte()} * 1000;
      if (is_variant) now -= 20'000;
      if (world->is_running) pass();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  g_debug_set_level2(99);
  Printed printed;
  World own;
  world = &own;
  now = 1'700'000'000'000'000;
  REQUIRE_EQUAL(g_start_ticks(), 0);
  ticks.start();
  start(true);
  for (int steps = 0; steps < 200 && !input.empty(); ++steps) {
    operate(input);
    REQUIRE_EQUAL(printed.take(), own.expected_lines);
    own.expected_lines.clear();
    REQUIRE_EQUAL(own.calls.size(), size_t{0});
  }
  if (own.is_set_up) {
    before_stop();
    g_timer_cleanup();
    REQUIRE_EQUAL(printed.take(), own.expected_lines);
  }
  world = nullptr;
  return 0;
}
