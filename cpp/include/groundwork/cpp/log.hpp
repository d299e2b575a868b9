/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_LOG_HPP
#define GROUNDWORK_CPP_LOG_HPP

#include <groundwork/log.h>
#include <groundwork/cpp/owner.hpp>

#include <cstdarg>

namespace gw {

/**
 * A source of log lines, such as a module of a program. A line below the threshold costs one
 * comparison and formats nothing.
 *
 * @code{.cpp}
 * const gw::Log log("pump");
 * g_debug_set_level2(G_LOG_WARNING);
 * log.information(__LINE__, "pumped %d litres", 40);         // not shown
 * log.warning(__LINE__, "%d litres are too many", 400);      // shown with "[WARNING] "
 * @endcode
 */
class Log {
 public:
  /** @param name shown in each line; must live as long as this object. */
  explicit constexpr Log(const char* name) : name_(name) {}

  /** Logs at level 0. @param line of the source. @param format as for printf(). */
  void debug(int line, const char* format, ...) const G_PRINTF(3, 4) {
    va_list arguments;
    va_start(arguments, format);
    g_logv(G_LOG_DEBUG, name_, line, format, arguments);
    va_end(arguments);
  }
  /** Logs at level 1. @param line of the source. @param format as for printf(). */
  void message(int line, const char* format, ...) const G_PRINTF(3, 4) {
    va_list arguments;
    va_start(arguments, format);
    g_logv(G_LOG_MESSAGE, name_, line, format, arguments);
    va_end(arguments);
  }
  /** Logs at level 2. @param line of the source. @param format as for printf(). */
  void information(int line, const char* format, ...) const G_PRINTF(3, 4) {
    va_list arguments;
    va_start(arguments, format);
    g_logv(G_LOG_INFORMATION, name_, line, format, arguments);
    va_end(arguments);
  }
  /** Logs at level 3. @param line of the source. @param format as for printf(). */
  void warning(int line, const char* format, ...) const G_PRINTF(3, 4) {
    va_list arguments;
    va_start(arguments, format);
    g_logv(G_LOG_WARNING, name_, line, format, arguments);
    va_end(arguments);
  }
  /** Logs at level 4. @param line of the source. @param format as for printf(). */
  void error(int line, const char* format, ...) const G_PRINTF(3, 4) {
    va_list arguments;
    va_start(arguments, format);
    g_logv(G_LOG_ERROR, name_, line, format, arguments);
    va_end(arguments);
  }

 private:
  const char* name_;
};

/**
 * Passes each text of the log to a function while this object exists; afterwards texts go to
 * standard error again. Only one can exist at a time: create it before other threads log, and
 * destroy it after them.
 *
 * @code{.cpp}
 * gw::LogHandler handler([](const char* text) noexcept { printf("log: %s\n", text); });
 * g_print("tank is full");  // prints: log: tank is full
 * @endcode
 */
class LogHandler {
 public:
  /** @param function takes a `const char *`, a finished line without its newline; may run on
   *                  any thread, and must neither throw nor log. */
  template <typename Function>
  [[nodiscard]] explicit LogHandler(Function&& function) {
    using Kept = Handler<std::decay_t<Function>>;
    detail::require_noexcept<std::decay_t<Function>, const char*>();
    handler_.reset(new (std::nothrow) Kept(std::forward<Function>(function)));
    if (handler_ == nullptr) return;
    g_debug_set_handler(Kept::call, handler_.get());
  }
  LogHandler(const LogHandler&) = delete;
  LogHandler& operator=(const LogHandler&) = delete;
  ~LogHandler() {
    if (handler_ != nullptr) g_debug_set_handler(nullptr, nullptr);
  }

  /** @return true on success; false when memory was exhausted. */
  explicit operator bool() const { return handler_ != nullptr; }

 private:
  struct AnyHandler {
    virtual ~AnyHandler() = default;
  };
  template <typename Function>
  struct Handler final : AnyHandler {
    template <typename Given>
    explicit Handler(Given&& given) : function(std::forward<Given>(given)) {}
    static int call(const char* text, void* handler) {
      static_cast<Handler*>(static_cast<AnyHandler*>(handler))->function(text);
      return 0;
    }
    Function function;
  };

  std::unique_ptr<AnyHandler> handler_;
};

}  // namespace gw

#endif
