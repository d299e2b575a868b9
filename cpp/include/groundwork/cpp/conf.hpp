/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_CONF_HPP
#define GROUNDWORK_CPP_CONF_HPP

#include <groundwork/conf.h>
#include <groundwork/safe.h>
#include <groundwork/cpp/containers.hpp>
#include <groundwork/cpp/result.hpp>
#include <groundwork/cpp/text.hpp>

#include <optional>

namespace gw {

/**
 * An open configuration, closed by the destructor. Everything that conf.h says applies.
 *
 * @code{.cpp}
 * gw::Conf conf("gateway.conf");
 * conf.on_change("net", "port", [](const GConfChange& change) noexcept {
 *   printf("%s is %s\n", change.key, change.value);  // prints: port is 8080
 * });
 * conf.write_int("net", "port", 8080);
 * if (const gw::Saved saved = conf.save(); !saved) puts(saved.error().text());
 * for (const GConfSection* section : conf.sections()) puts(section->name);  // prints: net
 * @endcode
 */
class Conf {
 public:
  /** No configuration. */
  Conf() = default;
  /** Opens a file, as g_conf_open(). @param filename not null. */
  explicit Conf(const Text& filename) : conf_(g_conf_open(filename)) {}
  /** Opens the default file of the package, as g_conf_open(). @return the configuration; null on
   *  failure. */
  static Conf default_file() {
    Conf conf;
    conf.conf_.reset(g_conf_open(nullptr));
    return conf;
  }
  /** Moves the configuration. @param other empty afterwards. */
  Conf(Conf&& other) = default;
  /** Closes the current one first. @param other empty afterwards. @return this. */
  Conf& operator=(Conf&& other) noexcept {
    close();
    conf_ = std::move(other.conf_);
    callbacks_ = std::move(other.callbacks_);
    return *this;
  }
  ~Conf() { close(); }

  /** @return whether one is open. */
  explicit operator bool() const { return conf_ != nullptr; }
  /** @return the handle, still owned here. */
  [[nodiscard]] GConf* get() const { return conf_.get(); }

  /** Finds a value.
   *  @param section its name. @param key its name.
   *  @return the value, valid until the entry changes; none when it is absent or empty. */
  [[nodiscard]] std::optional<std::string_view> find(const Text& section,
                                                     const Text& key) const {
    const char* const value = g_conf_read_string(get(), section, key, nullptr);
    if (value == nullptr) return std::nullopt;
    return std::string_view(value);
  }
  /** Reads a text. @param section its name. @param key its name.
   *  @param fallback the result when there is no value.
   *  @return the value, valid until the entry changes, or `fallback`. */
  [[nodiscard]] std::string_view read_string(const Text& section, const Text& key,
                                             std::string_view fallback) const {
    const char* const value = g_conf_read_string(get(), section, key, nullptr);
    return value == nullptr ? fallback : std::string_view(value);
  }
  /** Reads a number, as g_conf_read_int(). @param section its name. @param key its name.
   *  @param fallback the result when there is no value.
   *  @return the number; `fallback` when there is no value. A text without digits is 0. */
  [[nodiscard]] int read_int(const Text& section, const Text& key, int fallback) const {
    return g_conf_read_int(get(), section, key, fallback);
  }
  /** Reads a truth value, as g_conf_read_boolean(). @param section its name. @param key its name.
   *  @param fallback the result when there is no value.
   *  @return true for "TRUE" in any case, false for any other value; `fallback` when there is
   *  none. */
  [[nodiscard]] bool read_boolean(const Text& section, const Text& key,
                                  bool fallback) const {
    return g_conf_read_boolean(get(), section, key, fallback) != 0;
  }
  /** Reads a number, as g_conf_read_double(). @param section its name. @param key its name.
   *  @param fallback the result when there is no value.
   *  @return the number; `fallback` when there is no value. A text without digits is 0. */
  [[nodiscard]] double read_double(const Text& section, const Text& key,
                                   double fallback) const {
    return g_conf_read_double(get(), section, key, fallback);
  }

  /** Writes a text, as g_conf_write_string(). @param section its name, created if it does not
   *  exist. @param key its name. @param value the new value. */
  void write_string(const Text& section, const Text& key, const Text& value) {
    g_conf_write_string(get(), section, key, value);
  }
  /** Writes a number, as g_conf_write_int(). @param section its name, created if it does not
   *  exist. @param key its name. @param value the new value. */
  void write_int(const Text& section, const Text& key, int value) {
    g_conf_write_int(get(), section, key, value);
  }
  /** Writes "TRUE" or "FALSE", as g_conf_write_boolean(). @param section its name, created if it
   *  does not exist. @param key its name. @param value the new value. */
  void write_boolean(const Text& section, const Text& key, bool value) {
    g_conf_write_boolean(get(), section, key, value ? 1 : 0);
  }
  /** Writes a number with six significant digits, as g_conf_write_double(). @param section its
   *  name, created if it does not exist. @param key its name. @param value the new value. */
  void write_double(const Text& section, const Text& key, double value) {
    g_conf_write_double(get(), section, key, value);
  }
  /** Removes a key, as g_conf_remove_key(). @param section its name. @param key its name. */
  void remove_key(const Text& section, const Text& key) {
    g_conf_remove_key(get(), section, key);
  }
  /** Removes a section, as g_conf_remove_section(). @param section its name. */
  void remove_section(const Text& section) { g_conf_remove_section(get(), section); }

  /** Registers a function to be called with the change after each write that changed a key. It is
   *  kept until the configuration is closed.
   *  @param section  as for g_conf_register_callback(): compared exactly. @param key likewise.
   *  @param function takes a `const GConfChange &`, and is noexcept; returns nothing, or true
   *                  to let the next function of the key run.
   *  @return whether it is registered. */
  template <typename Function>
  bool on_change(const Text& section, const Text& key, Function&& function) {
    detail::require_noexcept<std::decay_t<Function>, const GConfChange&>();
    using Kept = Callback<std::decay_t<Function>>;
    std::unique_ptr<AnyCallback> kept(new (std::nothrow)
                                          Kept(std::forward<Function>(function)));
    if (kept == nullptr ||
        g_conf_register_callback(get(), section, key, Kept::call, kept.get()) != 0) {
      return false;
    }
    kept->next = std::move(callbacks_);
    callbacks_ = std::move(kept);
    return true;
  }

  /** @return the sections in order, as read-only records. Takes no lock. */
  [[nodiscard]] ListView<const GConfSection> sections() const {
    return ListView<const GConfSection>(get() == nullptr ? nullptr : get()->sections);
  }
  /** What save() does when the file has changed since it was loaded or written. */
  enum class Foreign {
    kRefuse,   /**< fails with ESTALE */
    kOverwrite /**< edits the changed file until it reads as this configuration */
  };
  /** Writes the changes to the file, as g_conf_save(): durable, and comments and order are kept.
   *  @param foreign what to do about changes by others. @return the result. */
  Saved save(Foreign foreign = Foreign::kRefuse) {
    return Saved(g_conf_save(get(), foreign == Foreign::kOverwrite ? 1 : 0));
  }
  /** Merges the file's current contents, as g_conf_reload().
   *  @return the number of keys that were added, changed or removed; the reason on failure, EBUSY
   *          if this program has unsaved changes. */
  Result<int> reload() {
    const int changes = g_conf_reload(get());
    if (changes < 0) return Error(errno);
    return changes;
  }
  /** Rewrites the file if anything changed, as g_conf_sync(): comments are lost, and a power cut
   *  may leave it empty. See save(). */
  void sync() { g_conf_sync(get()); }
  /** Writes the file if anything changed, and closes, as g_conf_close(). */
  void close() {
    conf_.reset();
    // One by one: a chain of owners would destroy itself recursively.
    while (callbacks_ != nullptr) callbacks_ = std::move(callbacks_->next);
  }

 private:
  struct AnyCallback {
    virtual ~AnyCallback() = default;
    std::unique_ptr<AnyCallback> next;
  };
  template <typename Function>
  struct Callback final : AnyCallback {
    template <typename Given>
    explicit Callback(Given&& given) : function(std::forward<Given>(given)) {}
    static int call(const GConfChange* change, void* data) {
      return detail::stops(
          static_cast<Callback*>(static_cast<AnyCallback*>(data))->function, *change);
    }
    Function function;
  };

  SystemOwner<GConf, g_conf_close> conf_;
  std::unique_ptr<AnyCallback> callbacks_;
};

}  // namespace gw

#endif
