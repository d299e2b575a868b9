// The configuration interface: checks, locking, conversion. While a conf's mutex is held,
// nothing is logged and no user code runs.
//
// SPDX-License-Identifier: MIT

#include <groundwork/conf.h>
#include <groundwork/file.h>
#include <groundwork/package.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "conf/callbacks.h"
#include "conf/load.h"
#include "conf/model.h"
#include "conf/name_compare.h"
#include "conf/write.h"
#include "core/built_for.h"
#include "core/cancellation.h"
#include "core/check.h"
#include "thread/mutex_lock.h"

using namespace groundwork;

namespace {

constexpr size_t kDefaultPathSize = sizeof g_package_name + sizeof "/etc/.conf";

// A path of the default file. Kept: it is built from the package name when it is first
// needed, and a later name does not change it.
//
// No lock: a child that was forked while another thread built the path uses its own copy.
struct DefaultPath {
  enum State : int { kUnmade, kBeingMade, kMade };
  std::atomic<int> state{kUnmade};
  char text[kDefaultPathSize];
};
constinit DefaultPath local_path{};
constinit DefaultPath system_path{};

// Returns the path; it is in `own` while another thread is building it.
const char* text_of(DefaultPath& path, const char* format, char (&own)[kDefaultPathSize]) {
  if (path.state.load(std::memory_order_acquire) == DefaultPath::kMade) return path.text;
  std::snprintf(own, sizeof own, format, g_package_name);
  int state = DefaultPath::kUnmade;
  if (!path.state.compare_exchange_strong(state, DefaultPath::kBeingMade,
                                          std::memory_order_acquire)) {
    return state == DefaultPath::kMade ? path.text : own;
  }
  std::memcpy(path.text, own, sizeof own);
  path.state.store(DefaultPath::kMade, std::memory_order_release);
  return path.text;
}

GConf* open_named(const char* filename) {
  if (g_file_exist(filename) != 0) return load_conf(filename);
  // Kept: log readers look for "confing".
  g_log(G_LOG_MESSAGE, kSource, __LINE__, "create new confing file - '%s'", filename);
  return new_conf(filename);
}

// Sets `path` to the path tried last, which may be in `own`.
GConf* open_default(const char** path, char (&own)[kDefaultPathSize]) {
  *path = text_of(local_path, "./%s.conf", own);
  if (g_file_exist(*path) != 0) {
    if (GConf* const conf = load_conf(*path); conf != nullptr) return conf;
  }
  *path = text_of(system_path, "/etc/%s.conf", own);
  return load_conf(*path);
}

// For a conf whose thread ends in an output handler.
void drop_conf(void* conf) {
  free_conf(static_cast<GConf*>(conf));
}

// Converts the stored value under the mutex, since another thread may replace it
// afterwards.
template <typename T, typename Convert>
T read_as(const GConf* conf, const char* section, const char* key, T def, Convert convert) {
  CHECK_ARG(section != NULL, def);
  CHECK_ARG(key != NULL, def);
  // A null conf alone is not an error: a program without its file runs with its defaults.
  if (conf == nullptr) return def;
  const BriefLock lock(conf->mutex);
  const char* const value = find_value(conf, section, key);
  return value != nullptr ? convert(value) : def;
}

}  // namespace

extern "C" GConfSection* g_find_section(GConf* conf, const char* name) {
  return find_section(conf, name);
}

extern "C" GConfEntry* g_find_line(GConfSection* section, const char* key) {
  return find_entry(section, key);
}

extern "C" GConf* g_conf_open(const char* filename) {
  const char* path = filename;
  char own[kDefaultPathSize];
  GConf* const conf = filename != nullptr ? open_named(filename) : open_default(&path, own);
  if (conf == nullptr) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't load config file '%s'.", path);
    return nullptr;
  }
  with_cleanup(drop_conf, conf, [conf] {
    g_log(G_LOG_DEBUG, kSource, __LINE__, "g_conf's file name = %s", conf->filename);
  });
  return conf;
}

extern "C" int g_conf_close(GConf* conf) {
  CHECK_ARG(conf != NULL, -1);
  with_cleanup(drop_conf, conf, [conf] {
    if (is_dirty(conf)) write_conf(conf);
  });
  free_conf(conf);
  return 0;
}

extern "C" void g_conf_sync(GConf* conf) {
  CHECK_ARG(conf != NULL);
  if (!is_dirty(conf)) return;
  write_conf(conf);
  // Kept: a failed write is not retried before the next change.
  set_dirty(conf, 0);
}

extern "C" const char* g_conf_read_string(GConf* conf, const char* section, const char* key,
                                          const char* def) {
  return read_as(conf, section, key, def, [](const char* value) { return value; });
}

extern "C" int g_conf_read_int(GConf* conf, const char* section, const char* key, int def) {
  return read_as(conf, section, key, def, [](const char* value) {
    // The limits of 32 bits even if a long is wider.
    return static_cast<int>(
        std::clamp<long>(std::strtol(value, nullptr, 10), INT32_MIN, INT32_MAX));
  });
}

extern "C" int g_conf_read_boolean(GConf* conf, const char* section, const char* key,
                                   int def) {
  // Kept: only "TRUE" is true, everything else is false.
  return read_as(conf, section, key, def,
                 [](const char* value) { return same_name(value, "TRUE") ? 1 : 0; });
}

extern "C" float g_conf_read_float(GConf* conf, const char* section, const char* key,
                                   float def) {
  return read_as(conf, section, key, def, [](const char* value) {
    return static_cast<float>(std::strtod(value, nullptr));
  });
}

extern "C" double g_conf_read_double(GConf* conf, const char* section, const char* key,
                                     double def) {
  return read_as(conf, section, key, def,
                 [](const char* value) { return std::strtod(value, nullptr); });
}

extern "C" void g_conf_write_string(GConf* conf, const char* section, const char* key,
                                    const char* value) {
  CHECK_ARG(conf != NULL);
  CHECK_ARG(section != NULL);
  CHECK_ARG(key != NULL);
  CHECK_ARG(value != NULL);
  char* old_value = nullptr;
  Stored stored;
  {
    const BriefLock lock(conf->mutex);
    stored = store(conf, section, key, value, &old_value);
    if (stored == Stored::kChanged) set_dirty(conf, 1);
  }
  if (stored == Stored::kSame) return;
  if (stored == Stored::kNoMemory) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't store '%s'->'%s'.", section, key);
    return;
  }
  // Frees the old value last: `value` may point into it.
  run_callbacks(conf, {section, key, value}, old_value);
}

extern "C" void g_conf_write_int(GConf* conf, const char* section, const char* key,
                                 int value) {
  CHECK_ARG(conf != NULL);
  CHECK_ARG(section != NULL);
  CHECK_ARG(key != NULL);
  char text[sizeof "-2147483648"];
  if constexpr (kForSpeed) {
    *std::to_chars(text, text + sizeof text - 1, value).ptr = '\0';
  } else {
    std::snprintf(text, sizeof text, "%d", value);
  }
  g_conf_write_string(conf, section, key, text);
}

extern "C" void g_conf_write_boolean(GConf* conf, const char* section, const char* key,
                                     int value) {
  CHECK_ARG(conf != NULL);
  CHECK_ARG(section != NULL);
  CHECK_ARG(key != NULL);
  g_conf_write_string(conf, section, key, value != 0 ? "TRUE" : "FALSE");
}

extern "C" void g_conf_write_float(GConf* conf, const char* section, const char* key,
                                   float value) {
  CHECK_ARG(conf != NULL);
  CHECK_ARG(section != NULL);
  CHECK_ARG(key != NULL);
  g_conf_write_double(conf, section, key, static_cast<double>(value));
}

extern "C" void g_conf_write_double(GConf* conf, const char* section, const char* key,
                                    double value) {
  CHECK_ARG(conf != NULL);
  CHECK_ARG(section != NULL);
  CHECK_ARG(key != NULL);
  // Sign, six digits, the longest decimal point of any locale, exponent.
  char text[16 + MB_LEN_MAX];
  std::snprintf(text, sizeof text, "%g", value);
  g_conf_write_string(conf, section, key, text);
}

extern "C" void g_conf_remove_key(GConf* conf, const char* section, const char* key) {
  CHECK_ARG(conf != NULL);
  CHECK_ARG(section != NULL);
  CHECK_ARG(key != NULL);
  const BriefLock lock(conf->mutex);
  GConfSection* const found = find_section(conf, section);
  GConfEntry* const entry = found != nullptr ? find_entry(found, key) : nullptr;
  if (entry == nullptr) return;
  remove_entry(found, entry);
  set_dirty(conf, 1);
}

extern "C" void g_conf_remove_section(GConf* conf, const char* section) {
  CHECK_ARG(conf != NULL);
  CHECK_ARG(section != NULL);
  const BriefLock lock(conf->mutex);
  GConfSection* const found = find_section(conf, section);
  if (found == nullptr) return;
  remove_section(conf, found);
  set_dirty(conf, 1);
}
