/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_THREAD_HPP
#define GROUNDWORK_CPP_THREAD_HPP

#include <groundwork/safe.h>
#include <groundwork/thread.h>
#include <groundwork/timeout.h>
#include <groundwork/timer.h>
#include <groundwork/cpp/mutex.hpp>
#include <groundwork/cpp/text.hpp>
#include <groundwork/cpp/time.hpp>

#include <atomic>
#include <cstdint>
#include <mutex>

namespace gw {

/**
 * An event that threads wait for. wait() remembers nothing: a signal that nobody waits for is
 * lost. wait_for() with a ticket loses no signal that comes after the ticket.
 *
 * @code{.cpp}
 * gw::Event ready;
 * const gw::Event::Ticket ticket = ready.ticket();
 * gw::Thread worker([&ready] { ready.signal(); });
 * const bool came = ready.wait_for(ticket, std::chrono::seconds(10));
 * puts(came ? "ready" : "too late");                                  // prints: ready
 * puts(ready.wait_for(std::chrono::milliseconds(5)) ? "?" : "quiet");  // prints: quiet
 * @endcode
 */
class Event {
 public:
  /** The number of signals so far. */
  using Ticket = uint32_t;

  /** Creates an event; null when memory is exhausted. */
  Event() : event_(g_thread_event_new()) {}

  /** @return whether there is one. */
  explicit operator bool() const { return event_ != nullptr; }
  /** @return the handle, still owned here. */
  [[nodiscard]] GThreadEvent* get() const { return event_.get(); }
  /** @return a ticket: wait_for() returns for signals that come after it. */
  [[nodiscard]] Ticket ticket() const { return g_thread_event_ticket(get()); }
  /** Waits for a signal that came, or comes, after a ticket. A cancellation point.
   *  @param ticket from ticket(). @param time the longest wait; not below 0.
   *  @return whether there was one. */
  [[nodiscard]] bool wait_for(Ticket ticket, Milliseconds time) {
    return g_thread_event_wait_for(get(), ticket, time.count() < 0 ? 0 : time.count()) == 0;
  }
  /** Waits for a signal from now on. A cancellation point. @param time the longest wait.
   *  @return whether there was one. */
  [[nodiscard]] bool wait_for(Milliseconds time) { return wait_for(ticket(), time); }
  /** Waits without limit for a signal that came, or comes, after a ticket. A cancellation
   *  point. @param ticket from ticket(). */
  void wait(Ticket ticket) { g_thread_event_wait_for(get(), ticket, -1); }
  /** Waits without limit, only for signals that come during the wait. */
  void wait() { g_thread_event_wait(get()); }
  /** Waits for a signal for a time, and then AGAIN without limit: read the warning of
   *  g_thread_event_wait_timeout(). @param time length of the first wait. */
  void wait_twice(Milliseconds time) { g_thread_event_wait_timeout(get(), time.count()); }
  /** Wakes one waiter. */
  void signal() { g_thread_event_signal(get()); }
  /** Wakes all waiters. */
  void broadcast() { g_thread_event_broadcast(get()); }

 private:
  Owner<GThreadEvent, g_thread_event_free> event_;
};

namespace detail {

// A function object on the heap that two sides refer to: the one that starts it and the one
// that runs it. The last reference deletes it.
struct SharedFunction {
  virtual ~SharedFunction() = default;
  void drop() {
    if (holders.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }
  std::atomic<int> holders{1};
  bool has_begun = false;  // written by the thread that runs it
};

struct Drop {
  void operator()(SharedFunction* function) const { function->drop(); }
};

}  // namespace detail

/**
 * A thread, which the destructor joins.
 *
 * @code{.cpp}
 * int sum = 0;
 * gw::Thread adder([&sum] { sum = 1 + 2; });
 * adder.join();
 * printf("%d\n", sum);  // prints: 3
 * @endcode
 */
class Thread {
 public:
  Thread() = default;
  /** Starts a thread; there is none when memory is exhausted. When the system cannot start one,
   *  `function` never runs, and there is no error (see g_thread_create()).
   *  @param function copied or moved, and called without arguments. Must not throw. */
  template <typename Function,
            typename = std::enable_if_t<!std::is_same_v<std::decay_t<Function>, Thread>>>
  explicit Thread(Function&& function) {
    using Kept = Run<std::decay_t<Function>>;
    auto* const run = new (std::nothrow) Kept(std::forward<Function>(function));
    function_.reset(run);
    if (run == nullptr) return;
    run->holders.store(2, std::memory_order_relaxed);
    thread_.reset(g_thread_create(Kept::call, run, nullptr));
    if (thread_ == nullptr) run->drop();
  }
  /** Moves the thread. @param other empty afterwards. */
  Thread(Thread&& other) = default;
  /** Joins the current one first. @param other empty afterwards. @return this. */
  Thread& operator=(Thread&& other) {
    join();
    thread_ = std::move(other.thread_);
    function_ = std::move(other.function_);
    return *this;
  }
  ~Thread() {
    const CancellationHeld held;
    join();
  }

  /** @return whether there is a thread to join. */
  explicit operator bool() const { return thread_ != nullptr; }
  /** @return the handle, still owned here. */
  [[nodiscard]] GThread* get() const { return thread_.get(); }
  /** Waits for its end. A cancellation point. */
  void join() {
    if (thread_ != nullptr) {
      g_thread_wait(thread_.release());
      // A thread that the system could not start drops nothing.
      if (!function_->has_begun) function_->drop();
    }
    function_.reset();
  }
  /** Asks it to stop at its next cancellation point. */
  void cancel() { g_thread_cancel(get()); }
  /** Sets scheduling class and priority, as g_thread_set_priority().
   *  @param priority 0 to 6. @return true on success. */
  bool set_priority(int priority) { return g_thread_set_priority(get(), priority) == 0; }

 private:
  template <typename Function>
  struct Run final : detail::SharedFunction {
    template <typename Given>
    explicit Run(Given&& given) : function(std::forward<Given>(given)) {}
    // Not noexcept: cancelling the thread unwinds through here.
    static void* call(void* data) {
      const std::unique_ptr<SharedFunction, detail::Drop> held(static_cast<Run*>(data));
      held->has_begun = true;
      static_cast<Run*>(data)->function();
      return nullptr;
    }
    Function function;
  };

  Owner<GThread, g_thread_free> thread_;
  std::unique_ptr<detail::SharedFunction, detail::Drop> function_;
};

/**
 * A function called periodically on its own thread, until the destructor ends it.
 *
 * @code{.cpp}
 * gw::Event done;
 * const gw::Event::Ticket ticket = done.ticket();
 * int left = 3;
 * const gw::Timeout countdown(std::chrono::milliseconds(5), [&] {
 *   if (--left > 0) return true;
 *   done.signal();
 *   return false;
 * });
 * puts(done.wait_for(ticket, std::chrono::seconds(10)) ? "lift off" : "?");  // prints: lift off
 * @endcode
 */
class Timeout {
 public:
  Timeout() = default;
  /** Starts a timeout, as g_timeout_new(); the first call comes immediately.
   *  @param period   above 0.
   *  @param function copied or moved, and called without arguments; returns nothing, or true to
   *                  be called again. Must not throw, and must not end this object: it returns
   *                  false instead. It may be cancelled at any cancellation point in it, so it
   *                  must not be noexcept. */
  template <typename Function>
  [[nodiscard]] Timeout(Milliseconds period, Function&& function) {
    using Kept = Run<std::decay_t<Function>>;
    run_.reset(new (std::nothrow) Kept(std::forward<Function>(function)));
    if (run_ == nullptr) return;
    timeout_ =
        g_timeout_new(nullptr, period.count(), Kept::call, static_cast<Kept*>(run_.get()));
    if (timeout_ == nullptr) run_.reset();
  }
  /** Moves the timeout. @param other empty afterwards. */
  Timeout(Timeout&& other) noexcept
      : timeout_(std::exchange(other.timeout_, nullptr)), run_(std::move(other.run_)) {}
  /** Ends the current one first. @param other empty afterwards. @return this. */
  Timeout& operator=(Timeout&& other) noexcept {
    end();
    timeout_ = std::exchange(other.timeout_, nullptr);
    run_ = std::move(other.run_);
    return *this;
  }
  ~Timeout() { end(); }

  /** @return whether one was started and not ended by end(). */
  explicit operator bool() const { return run_ != nullptr; }
  /** Ends it: its function no longer runs. */
  void end() {
    if (run_ == nullptr) return;
    // The library itself frees a timeout whose function returned 0, and its handle then
    // dangles. Whichever side sets `ending` first decides.
    if (!run_->ending.exchange(true, std::memory_order_acq_rel)) {
      const CancellationHeld held;
      g_timeout_free(timeout_);
    }
    timeout_ = nullptr;
    run_.reset();
  }

 private:
  struct AnyRun {
    virtual ~AnyRun() = default;
    std::atomic<bool> ending{false};
  };
  template <typename Function>
  struct Run final : AnyRun {
    template <typename Given>
    explicit Run(Given&& given) : function(std::forward<Given>(given)) {}
    static int call(void* data) {
      Run& run = *static_cast<Run*>(data);
      if (detail::stops(run.function) == 0) return 1;
      return run.ending.exchange(true, std::memory_order_acq_rel) ? 1 : 0;
    }
    Function function;
  };

  GTimeout* timeout_ = nullptr;
  std::unique_ptr<AnyRun> run_;
};

namespace detail {

// The shared state of a Timer: its owner and the service's entry each keep it alive, and its
// lock keeps the function from running once the owner has gone. The lock is recursive because
// the owner may be destroyed inside the function.
struct TimerState {
  virtual ~TimerState() = default;
  virtual uint32_t call(uint32_t interval) = 0;
  virtual void drop_function() = 0;

  std::recursive_mutex mutex;
  bool is_running = false;
  bool has_owner = true;
  bool has_entry = true;
  TimerState* next = nullptr;
};

// States that still have an entry in the service. When the service stops it frees its entries
// without calling their functions, so the states are notified through this list.
struct TimerStates {
  std::mutex mutex;
  TimerState* first = nullptr;

  void add(TimerState* state) {
    const std::lock_guard<std::mutex> lock(mutex);
    state->next = first;
    first = state;
  }
  void remove(TimerState* state) {
    const std::lock_guard<std::mutex> lock(mutex);
    TimerState** link = &first;
    while (*link != nullptr && *link != state) link = &(*link)->next;
    if (*link != nullptr) *link = state->next;
  }
  // Called when the service has stopped: its thread has ended, and it has freed all entries.
  void forget_entries() {
    TimerState* state;
    {
      const std::lock_guard<std::mutex> lock(mutex);
      state = std::exchange(first, nullptr);
    }
    while (state != nullptr) {
      TimerState* const next = state->next;
      bool has_owner;
      {
        const std::lock_guard<std::recursive_mutex> lock(state->mutex);
        state->has_entry = false;
        has_owner = state->has_owner;
      }
      if (!has_owner) delete state;
      state = next;
    }
  }
};

inline TimerStates timer_states;

// The result of a timer's function, in milliseconds.
template <typename Rep, typename Period>
uint32_t interval_of(std::chrono::duration<Rep, Period> interval) {
  return static_cast<uint32_t>(Milliseconds(interval).count());
}
template <typename Number>
uint32_t interval_of(Number milliseconds) {
  return static_cast<uint32_t>(milliseconds);
}

inline uint32_t run_timer(uint32_t interval, void* param) {
  auto* const state = static_cast<TimerState*>(param);
  uint32_t next = 0;
  bool has_owner;
  {
    const std::lock_guard<std::recursive_mutex> lock(state->mutex);
    if (state->has_owner) {
      state->is_running = true;
      next = state->call(interval);
      state->is_running = false;
    }
    has_owner = state->has_owner;
    if (!has_owner) next = 0;
    if (next == 0) {
      timer_states.remove(state);
      state->has_entry = false;  // from here on the owner, if there is one, owns the state
    }
  }
  if (!has_owner) delete state;
  return next;
}

}  // namespace detail

/**
 * The timer service, stopped by the destructor.
 *
 * @code{.cpp}
 * gw::TimerService service;
 * if (!service) puts("somebody else runs it");
 * @endcode
 */
class TimerService {
 public:
  /** Starts it, as g_timer_init(). */
  [[nodiscard]] TimerService() : is_running_(g_timer_init() == 0) {}
  TimerService(const TimerService&) = delete;
  TimerService& operator=(const TimerService&) = delete;
  ~TimerService() {
    if (!is_running_) return;
    const CancellationHeld held;
    g_timer_cleanup();
    detail::timer_states.forget_entries();
  }

  /** @return whether this object started it. */
  explicit operator bool() const { return is_running_; }

 private:
  bool is_running_;
};

/**
 * A periodic callback on the service's thread, ended by the destructor: afterwards its function is
 * not running (unless the function itself ended it) and will not run again. Do not use it together
 * with g_set_timer() and g_timer_cleanup(), which end timers without their owners' knowledge.
 *
 * @code{.cpp}
 * gw::TimerService service;
 * gw::Event done;
 * const gw::Event::Ticket ticket = done.ticket();
 * gw::Timer timer(std::chrono::milliseconds(20), [&done, beats = 0]() mutable {
 *   if (++beats == 3) done.signal();
 * });
 * puts(done.wait_for(ticket, std::chrono::seconds(10)) ? "3 beats" : "?");  // prints: 3 beats
 * @endcode
 */
class Timer {
 public:
  Timer() = default;
  /** Registers a timer, as g_add_timer().
   *  @param interval until the first call.
   *  @param function copied or moved, and called without arguments; returns nothing to be called
   *                  again after the same interval, or the next interval, 0 to end. Must not
   *                  throw. */
  template <typename Function>
  [[nodiscard]] Timer(Milliseconds interval, Function&& function) {
    using Kept = State<std::decay_t<Function>>;
    auto* const state = new (std::nothrow) Kept(std::forward<Function>(function));
    if (state == nullptr) return;
    detail::timer_states.add(state);
    if (g_add_timer(interval.count(), detail::run_timer,
                    static_cast<detail::TimerState*>(state)) == nullptr) {
      detail::timer_states.remove(state);
      delete state;
      return;
    }
    state_ = state;
  }
  /** Moves the timer. @param other empty afterwards. */
  Timer(Timer&& other) noexcept : state_(std::exchange(other.state_, nullptr)) {}
  /** Ends the current one first. @param other empty afterwards. @return this. */
  Timer& operator=(Timer&& other) noexcept {
    if (this != &other) {
      end();
      state_ = std::exchange(other.state_, nullptr);
    }
    return *this;
  }
  ~Timer() { end(); }

  /** @return whether one was registered and not ended by end(). */
  explicit operator bool() const { return state_ != nullptr; }
  /** Ends it. The service keeps an empty entry until the interval is over. */
  void end() {
    detail::TimerState* const state = std::exchange(state_, nullptr);
    if (state == nullptr) return;
    bool has_entry;
    {
      const std::lock_guard<std::recursive_mutex> lock(state->mutex);
      state->has_owner = false;
      has_entry = state->has_entry;
      if (!state->is_running) state->drop_function();
    }
    if (!has_entry) delete state;
  }

 private:
  template <typename Function>
  struct State final : detail::TimerState {
    template <typename Given>
    explicit State(Given&& given)
        : function(new (std::nothrow) Function(std::forward<Given>(given))) {}
    uint32_t call(uint32_t interval) override {
      if (function == nullptr) return 0;
      if constexpr (std::is_void_v<decltype((*function)())>) {
        (*function)();
        return interval;
      } else {
        return detail::interval_of((*function)());
      }
    }
    void drop_function() override { function.reset(); }
    std::unique_ptr<Function> function;
  };

  detail::TimerState* state_ = nullptr;
};

}  // namespace gw

#endif
