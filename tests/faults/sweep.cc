// The driver: which faults a scenario gets, what must hold after each, and the count.
//
// SPDX-License-Identifier: MIT

#include "faults/sweep.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <groundwork/groundwork.h>

#include "faults/library_symbols.h"

namespace faults {
namespace {

constexpr unsigned kPatienceSeconds = 60;  // for one pass; a machine may be busy
constexpr int kTooManyCalls = 300;         // of one function in one pass
constexpr int kFewCalls = 4;  // what the short form makes fail of each function

constexpr int kErrorsOfAny = 5;  // where everything fails

bool is_short_form = false;  // each call fails once, the effects taking turns

struct Module {
  std::vector<Scenario> scenarios;
  int faults = 0;  // passes in which one struck
};

std::map<std::string, Module>& modules() {
  static std::map<std::string, Module> all;
  return all;
}

// --- What is logged. Allocates nothing.

std::atomic<int> report_count{0};
char report[256];

int note_line(const char* text, void*) {
  const char* const tag = std::strchr(text, '[');
  if (tag == nullptr || (std::strncmp(tag, "[WARNING] ", 10) != 0 &&
                         std::strncmp(tag, "[CRITICAL] ", 11) != 0)) {
    return 0;
  }
  ++report_count;
  std::strncpy(report, std::strchr(tag, ']') + 2, sizeof report - 1);
  return 0;
}

void log_everything_here() {
  g_debug_set_level2(G_LOG_DEBUG);
  g_debug_set_handler(note_line, nullptr);
}

// --- A pass that does not end.

char pass_under_way[512];

[[noreturn]] void give_up(int) {
  constexpr char kHangs[] = "This pass does not end: ";
  syscall(SYS_write, 2, kHangs, sizeof kHangs - 1);
  syscall(SYS_write, 2, pass_under_way, std::strlen(pass_under_way));
  syscall(SYS_write, 2, "\n", 1);
  _exit(1);
}

// --- One pass.

int count_descriptors() {
  DIR* const directory = opendir("/proc/self/fd");
  int count = 0;
  while (readdir(directory) != nullptr) ++count;
  closedir(directory);
  return count;
}

// Waits until the count is stable.
int settled_descriptors() {
  int count = count_descriptors();
  for (int still = 0; still < 20; ++still) {
    usleep(1000);
    if (const int now = count_descriptors(); now != count) {
      count = now;
      still = 0;
    }
  }
  return count;
}

// A server's thread of the scenario may take a moment to close its own.
bool descriptors_return_to(int expected) {
  for (int tries = 0; tries < 5000; ++tries) {
    if (count_descriptors() == expected) return true;
    usleep(1000);
  }
  return false;
}

struct Outcome {
  int calls = 0;
  int strikes = 0;
};

// How many descriptors are open between passes. -1 in the first one of a scenario: blocks
// and descriptors may be kept from that on, as by a server of the test's or for the
// unwinder.
int usual_descriptors = -1;

Outcome run_pass(const char* module, const Scenario& scenario, const Fault& fault) {
  char text[256];
  describe(fault, text, sizeof text);
  std::snprintf(pass_under_way, sizeof pass_under_way, "%s, scenario %s, %s", module,
                scenario.name, text);
  SCOPED_TRACE(pass_under_way);
  log_everything_here();
  report_count = 0;
  report[0] = '\0';
  alarm(kPatienceSeconds);
  Outcome outcome;
  {
    const bool is_allocation = fault.call == Call::kAllocation;
    Pass pass(fault, is_allocation ? fault.nth : 0, is_allocation && fault.and_all_later);
    scenario.run(pass);
    outcome = {is_allocation ? pass.calls_of_heap() : calls(fault.call),
               pass.struck(fault.call)};
    EXPECT_TRUE(usual_descriptors == -1 || pass.outstanding_blocks() == 0)
        << pass.outstanding_blocks() << " blocks were not freed";
  }
  alarm(0);
  EXPECT_TRUE(usual_descriptors == -1 || descriptors_return_to(usual_descriptors))
      << "descriptors were not closed";
  return outcome;
}

// --- The faults of a scenario.

class Sweep {
 public:
  Sweep(const char* name, Module& module, const Scenario& scenario)
      : name_(name), module_(module), scenario_(scenario) {}

  void run() {
    usual_descriptors = -1;
    run_pass(name_, scenario_, {});
    usual_descriptors = settled_descriptors();
    run_pass(name_, scenario_, {});
    bool is_called[kCalls];
    for (size_t i = 0; i < kCalls; ++i) is_called[i] = calls(static_cast<Call>(i)) != 0;
    is_called[static_cast<size_t>(Call::kAllocation)] = true;  // counted elsewhere
    if (testing::Test::HasFailure()) return;
    for (size_t index = 0; index < kCalls; ++index) {
      if (!is_called[index]) continue;
      const auto call = static_cast<Call>(index);
      if (call == Call::kAny) {
        // With less than all later ones it would be the failure of one function.
        for (int error = 0; error < (is_short_form ? 1 : kErrorsOfAny); ++error) {
          fail_each(call, {Effect::kError, error}, true);
        }
      } else if (is_short_form) {
        fail_in_turn(call);
      } else {
        for (const Effect& effect : faultable(call).effects) {
          fail_each(call, effect, false);
          fail_each(call, effect, true);
        }
      }
      if (testing::Test::HasFailure()) return;
    }
  }

 private:
  // With the first call failing, then the second, until a pass has none so late.
  void fail_each(Call call, const Effect& effect, bool and_all_later) {
    for (int nth = 1; is_wanted(nth); ++nth) {
      if (!fail({call, nth, and_all_later, effect})) return;
    }
  }

  void fail_in_turn(Call call) {
    const std::span<const Effect> effects = faultable(call).effects;
    for (int nth = 1; is_wanted(nth); ++nth) {
      const auto turn = static_cast<size_t>(nth - 1 + module_.faults);
      if (!fail({call, nth, turn % 2 == 1, effects[turn % effects.size()]})) return;
    }
  }

  bool is_wanted(int nth) const {
    const int limit =
        scenario_.occurrences == 0 && is_short_form ? kFewCalls : scenario_.occurrences;
    if (limit != 0) return nth <= limit;
    EXPECT_LT(nth, kTooManyCalls) << scenario_.name << " has no end";
    return nth < kTooManyCalls;
  }

  // One pass with the fault and one without, which must find all as it was. False when
  // there is nothing later to fail.
  bool fail(const Fault& fault) {
    if (testing::Test::HasFailure()) return false;
    const Outcome outcome = run_pass(name_, scenario_, fault);
    if (testing::Test::HasFailure() || outcome.calls < fault.nth) return false;
    if (outcome.strikes == 0) return true;
    ++module_.faults;
    char text[256];
    describe(fault, text, sizeof text);
    SCOPED_TRACE(testing::Message() << "afterwards, when this had happened: " << text);
    run_pass(name_, scenario_, {});
    return !testing::Test::HasFailure();
  }

  const char* const name_;
  Module& module_;
  const Scenario& scenario_;
};

class SweepTest : public testing::Test {
 public:
  SweepTest(const std::string& module, const Scenario& scenario)
      : module_(module), scenario_(scenario) {}

 private:
  void TestBody() override { Sweep(module_.c_str(), modules()[module_], scenario_).run(); }
  const std::string module_;
  const Scenario& scenario_;
};

void register_scenarios() {
  for (const auto& [name, module] : modules()) {
    for (const Scenario& scenario : module.scenarios) {
      testing::RegisterTest(name.c_str(), scenario.name, nullptr, nullptr, __FILE__,
                            __LINE__, [name = name, &scenario]() -> testing::Test* {
                              return new SweepTest(name, scenario);
                            });
    }
  }
}

void print_summary() {
  int faults = 0;
  std::printf("faults injected%s:", is_short_form ? " (short form)" : "");
  for (const auto& [name, module] : modules()) {
    std::printf(" %s %d,", name.c_str(), module.faults);
    faults += module.faults;
  }
  std::printf(" in all %d\n", faults);
}

// --- Nothing is forgotten.

TEST(FaultSweep, EveryExportedFunctionHasAScenario) {
  std::set<std::string> covered;
  for (const auto& [name, module] : modules()) {
    for (const Scenario& scenario : module.scenarios) {
      covered.insert(scenario.covers.begin(), scenario.covers.end());
    }
  }
  std::ifstream file(GROUNDWORK_EXPORTS);
  std::string name;
  std::string kind;
  std::string node;
  int functions = 0;
  while (file >> name >> kind >> node) {
    if (kind != "function") continue;
    ++functions;
    EXPECT_TRUE(covered.erase(name) == 1) << name << " has no scenario";
  }
  EXPECT_GT(functions, 100);
  EXPECT_EQ(covered, std::set<std::string>{}) << "are not exported";
}

// What the library imports and no fault is injected into.
constexpr struct {
  const char* names;  // blanks between and around them
  const char* reason;
} kLeftOut[] = {
    {" memchr memcmp memcpy memmove memset strchr strrchr strcmp strcspn strlen strncmp "
     "strnlen"
     " strpbrk strchrnul strstr strtod strtol strtoll strtoull __isoc23_strtol "
     "__isoc23_strtoll"
     " __isoc23_strtoull __rawmemchr stpcpy strcpy __memcpy_chk __memmove_chk ",
     "work on memory alone"},
    {" calloc realloc free ", "counted and followed with malloc"},
    {" __errno_location __libc_single_threaded __fsetlocking alphasort64 clearerr_unlocked "
     "dirfd rewinddir "
     "fileno"
     " getauxval getpagesize ungetc getpid mallinfo2 nl_langinfo"
     " stderr strerror __sigsetjmp __cxa_finalize pthread_self"
     " pthread_setcancelstate pthread_testcancel __h_errno_location pthread_condattr_init"
     " pthread_condattr_destroy pthread_condattr_setclock clock_gettime __clock_gettime64 ",
     "cannot fail as they are called"},
    {" __register_atfork pthread_atfork ",
     "called once in a process; without memory for it a lock works, but not across a fork"},
    {" getenv ", "a variable that is not set is no failure: tests/url unsets it"},
    {" snprintf __snprintf_chk ",
     "cannot fail for the numbers and names that it formats here"},
    {" __pthread_register_cancel __pthread_unregister_cancel __pthread_unwind_next"
     " __aeabi_unwind_cpp_pr0 __aeabi_unwind_cpp_pr1 __cxa_begin_cleanup"
     " __cxa_call_unexpected __cxa_type_match __gnu_Unwind_Find_exidx ",
     "part of cleanup handlers"},
    {" _pthread_cleanup_pop _pthread_cleanup_push alphasort htons pthread_equal ",
     "work on memory alone, with musl"},
    {" getc_unlocked __freadahead ",
     "with musl examine the stream's buffer, which most bytes come out of"},
    {" syscall ", "musl calls it for statx(), which it lacks"},
    {" pthread_mutex_lock pthread_mutex_unlock pthread_mutex_trylock ",
     "cannot fail on a mutex of the plain kind, or fail when it is held: tests/thread"
     " holds one"},
    {" pthread_cancel pthread_detach pthread_join ",
     "fail for a wrong thread only, which then is not waited for"},
    {" _ITM_deregisterTMCloneTable _ITM_registerTMCloneTable __gmon_start__ abort raise"
     " __tls_get_addr ___tls_get_addr __stack_chk_fail __stack_chk_guard ",
     "the compiler's own"},
};

bool is_left_out(const std::string& name) {
  if (name.starts_with("__asan") || name.starts_with("__ubsan") ||
      name.starts_with("__tsan") || name.starts_with("__sanitizer")) {
    return true;
  }
  for (const auto& [names, reason] : kLeftOut) {
    if (std::strstr(names, (" " + name + " ").c_str()) != nullptr) return true;
  }
  return false;
}

TEST(FaultSweep, EveryFunctionOfTheSystemFailsOrIsLeftOutForAReason) {
  const std::vector<std::string> imports = library_imports();
  EXPECT_GT(imports.size(), 50u);
  for (const std::string& name : imports) {
    bool is_faultable = false;
    for (size_t i = 0; i < kCalls; ++i) {
      const Faultable& function = faultable(static_cast<Call>(i));
      is_faultable |= name == function.symbol || (function.checked_symbol != nullptr &&
                                                  name == function.checked_symbol);
    }
    EXPECT_TRUE(is_faultable || is_left_out(name))
        << name << " is imported and never made to fail";
  }
}

}  // namespace

// --- The interface.

Pass::Pass(const Fault& fault, int nth_allocation, bool later_allocations_too)
    : allocations_(nth_allocation, later_allocations_too),
      kind_(fault.effect.kind),
      error_(fault.call != Call::kAny ? fault.effect.error : -1),
      and_all_later_(fault.and_all_later),
      is_of_memory_(fault.call == Call::kAllocation) {
  allocations_.pause();
  begin_plan(fault);
}

Pass::~Pass() {
  end_plan();
}

int Pass::struck(Call call) const {
  return call == Call::kAllocation ? allocations_.failures() : strikes(call);
}

bool Pass::struck() const {
  return struck(Call::kAny, Call::kAllocation) != 0;
}

int Pass::reports() const {
  return report_count;
}

const char* Pass::last_report() const {
  return report;
}

Scenarios::Scenarios(const char* module, std::vector<Scenario> scenarios) {
  modules()[module].scenarios = std::move(scenarios);
}

}  // namespace faults

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    faults::is_short_form |= std::strcmp(argv[i], "--short") == 0;
  }
  std::signal(SIGALRM, faults::give_up);
  test::warm_up_threads();
  faults::register_scenarios();
  const int result = RUN_ALL_TESTS();
  faults::print_summary();
  return result;
}
