// Configuration: a file loads whole or not at all, a change happens whole or not at all,
// and after a failed write the model is what it was, and clean.
//
// SPDX-License-Identifier: MIT

#include <string>

#include <groundwork/groundwork.h>

#include "faults/sweep.h"
#include "faults/working_directory.h"

using namespace faults;
using test::read_file;

namespace {

#define TEXT(port) \
  "[net]\nhost=here\nport=" port "\na=1\nb=2\nc=3\nd=4\n\n[ui]\nlang=en\ne=5\nf=6\n\n"
constexpr char kText[] = TEXT("80");
constexpr char kChanged[] = TEXT("81");

bool has_text(GConf* conf, const char* section, const char* key, const char* value) {
  return std::string(g_conf_read_string(conf, section, key, "")) == value;
}

// Opens without any fault.
GConf* open_conf(const WorkingDirectory& directory) {
  directory.write("conf", kText);
  GConf* const conf = g_conf_open("conf");
  EXPECT_NE(conf, nullptr);
  return conf;
}

void close_clean(GConf* conf) {
  conf->dirty = 0;
  g_conf_close(conf);
}

// A load that fails logs the path last. Without memory for a hash table or an index it
// succeeds nevertheless: look-ups walk the list.
void expect_loaded(const Pass& pass, GConf* conf, const std::string& path) {
  if (conf == nullptr) {
    EXPECT_TRUE(pass.struck());
    if (pass.struck(Call::kVsnprintf) == 0) {
      EXPECT_EQ(pass.last_report(), "can't load config file '" + path + "'.");
    }
    return;
  }
  EXPECT_EQ(pass.struck(Call::kOpen, Call::kRead), 0);
  EXPECT_TRUE(has_text(conf, "net", "host", "here"));
  EXPECT_TRUE(has_text(conf, "net", "port", "80"));
  EXPECT_TRUE(has_text(conf, "ui", "lang", "en"));
  EXPECT_EQ(conf->dirty, 0);
  EXPECT_EQ(g_find_section(conf, "none"), nullptr);
}

void open_existing(Pass& pass) {
  const WorkingDirectory directory;
  directory.write("conf", kText);
  GConf* const conf = faulty(pass, [] { return g_conf_open("conf"); });
  if (pass.struck(Call::kStat)) {
    // If the file is not found, the configuration is new; if its size cannot be read, it is
    // not loaded.
    if (conf != nullptr) {
      EXPECT_EQ(conf->sections, nullptr);
    }
  } else {
    expect_loaded(pass, conf, "conf");
  }
  if (pass.struck_only(Call::kClose)) {
    EXPECT_NE(conf, nullptr);
  }
  EXPECT_EQ(read_file("conf"), kText);
  if (conf == nullptr) return;
  EXPECT_EQ(faulty(pass, [&] { return g_conf_close(conf); }), 0);
  EXPECT_EQ(read_file("conf"), kText);
}

// Beyond 8 names there are indexes.
void open_large(Pass& pass) {
  const WorkingDirectory directory;
  std::string text;
  for (int i = 0; i < 12; ++i) text += "[s" + std::to_string(i) + "]\n";
  for (int i = 0; i < 12; ++i) text += "k" + std::to_string(i) + "=v\n";
  directory.write("conf", text);
  GConf* const conf = faulty(pass, [] { return g_conf_open("conf"); });
  if (conf == nullptr) {
    EXPECT_TRUE(pass.struck());
    return;
  }
  if (pass.struck(Call::kStat) == 0) {
    EXPECT_EQ(g_list_length(conf->sections), 12u);
    for (int i = 0; i < 12; ++i) {
      EXPECT_TRUE(has_text(conf, "S11", ("K" + std::to_string(i)).c_str(), "v"));
    }
  }
  g_conf_close(conf);
}

void open_new(Pass& pass) {
  const WorkingDirectory directory;
  GConf* const conf = faulty(pass, [] { return g_conf_open("new"); });
  if (conf == nullptr) {
    EXPECT_NE(pass.struck(Call::kAllocation), 0);
    return;
  }
  EXPECT_EQ(conf->sections, nullptr);
  EXPECT_EQ(faulty(pass, [&] { return g_conf_close(conf); }), 0);
  EXPECT_NE(access("new", F_OK), 0);
}

void open_default(Pass& pass) {
  g_package_set_name("groundwork-sweep");  // the path is made once
  const WorkingDirectory directory;
  directory.write("groundwork-sweep.conf", kText);
  GConf* const conf = faulty(pass, [] { return g_conf_open(nullptr); });
  g_package_set_name("");
  // If the local file cannot be found or loaded, the system's is tried, which does not
  // exist.
  expect_loaded(pass, conf, "/etc/groundwork-sweep.conf");
  if (conf != nullptr) g_conf_close(conf);
}

// Whether a text results from another by leaving out characters.
bool is_cut_from(const std::string& part, const std::string& whole) {
  size_t at = 0;
  for (const char c : whole) {
    if (at < part.size() && part[at] == c) ++at;
  }
  return at == part.size();
}

// After a write of the whole file, which held `previous` before.
void expect_file(const Pass& pass, const std::string& previous) {
  const std::string text = read_file("conf");
  if (pass.struck(Call::kOpen)) {
    EXPECT_EQ(text, previous);
  } else if (pass.struck(Call::kAllocation)) {
    // Without a handle nothing changes; without a buffer everything is written.
    EXPECT_TRUE(text == previous || text == kChanged);
  } else if (pass.struck_only(Call::kFcntl)) {
    EXPECT_TRUE(text.empty() || text == kChanged);  // emptied before it was to be locked
  } else if (pass.struck(Call::kWrite)) {
    EXPECT_TRUE(is_cut_from(text, kChanged)) << text;
  } else if (pass.struck_only(Call::kClose, Call::kFtruncate, Call::kLseek)) {
    EXPECT_EQ(text, kChanged);
  }
}

void sync_changes(Pass& pass) {
  const WorkingDirectory directory;
  GConf* const conf = open_conf(directory);
  g_conf_write_int(conf, "net", "port", 81);
  const int reports = pass.reports();
  faulty(pass, [&] {
    g_conf_sync(conf);
    return 0;
  });
  expect_file(pass, kText);
  EXPECT_EQ(conf->dirty, 0);  // not tried again before the next change
  EXPECT_TRUE(has_text(conf, "net", "port", "81"));
  if (pass.struck(Call::kOpen) || pass.struck_only(Call::kWrite)) {
    EXPECT_EQ(pass.reports() > reports, pass.struck() && pass.kind() == Effect::kError);
  }
  // The next change brings the whole file.
  g_conf_write_int(conf, "net", "port", 80);
  g_conf_sync(conf);
  EXPECT_EQ(read_file("conf"), kText);
  g_conf_close(conf);
}

void close_with_changes(Pass& pass) {
  const WorkingDirectory directory;
  GConf* const conf = open_conf(directory);
  g_conf_write_int(conf, "net", "port", 81);
  EXPECT_EQ(faulty(pass, [&] { return g_conf_close(conf); }), 0);
  expect_file(pass, kText);
}

void read_values(Pass& pass) {
  const WorkingDirectory directory;
  directory.write("conf", "[a]\ns=text\ni=7\nb=true\nd=1.5\n");
  GConf* const conf = g_conf_open("conf");
  const char* text = nullptr;
  int number = 0;
  int flag = 0;
  float narrow = 0;
  double wide = 0;
  const GConfEntry* entry = nullptr;
  {
    const Faults faults(pass);
    text = g_conf_read_string(conf, "a", "s", "none");
    number = g_conf_read_int(conf, "a", "i", 0);
    flag = g_conf_read_boolean(conf, "a", "b", 0);
    narrow = g_conf_read_float(conf, "a", "d", 0);
    wide = g_conf_read_double(conf, "a", "d", 0);
    entry = g_find_line(g_find_section(conf, "A"), "S");
    g_conf_remove_key(conf, "a", "i");
    g_conf_remove_section(conf, "none");
  }
  EXPECT_FALSE(pass.struck());  // nothing of this needs the system
  EXPECT_STREQ(text, "text");
  EXPECT_EQ(number, 7);
  EXPECT_EQ(flag, 1);
  EXPECT_EQ(narrow, 1.5F);
  EXPECT_EQ(wide, 1.5);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(g_conf_read_int(conf, "a", "i", -3), -3);
  faulty(pass, [&] {
    g_conf_remove_section(conf, "a");
    return 0;
  });
  EXPECT_EQ(conf->sections, nullptr);
  close_clean(conf);
}

int runs = 0;
int count_run(const GConfChange*, void*) {
  ++runs;
  return 0;
}

// A write is done whole, with its callback, or it is reported and nothing is done. Twice:
// the lock of the conf is free again.
template <typename Write>
void expect_write(Pass& pass, const char* section, const char* key, const char* text,
                  Write write) {
  const WorkingDirectory directory;
  GConf* const conf = open_conf(directory);
  ASSERT_EQ(g_conf_register_callback(conf, section, key, count_run, nullptr), 0);
  const int reports = pass.reports();
  runs = 0;
  faulty(pass, [&] {
    write(conf, section, key);
    return 0;
  });
  const bool is_done = has_text(conf, section, key, text);
  EXPECT_TRUE(is_done || pass.struck(Call::kAllocation));
  EXPECT_EQ(runs, is_done ? 1 : 0);
  EXPECT_EQ(conf->dirty, is_done ? 1 : 0);
  EXPECT_EQ(pass.reports(), reports + (is_done ? 0 : 1));
  EXPECT_TRUE(has_text(conf, "net", "host", "here"));
  write(conf, section, key);
  EXPECT_TRUE(has_text(conf, section, key, text));
  close_clean(conf);
}

void write_values(Pass& pass) {
  for (const char* const section : {"net", "new"}) {
    for (const char* const key : {"port", "newkey"}) {
      expect_write(pass, section, key, "text", [](GConf* conf, auto... names) {
        g_conf_write_string(conf, names..., "text");
      });
    }
  }
}

void write_numbers(Pass& pass) {
  expect_write(pass, "net", "port", "-5",
               [](GConf* conf, auto... names) { g_conf_write_int(conf, names..., -5); });
  expect_write(pass, "net", "flag", "TRUE",
               [](GConf* conf, auto... names) { g_conf_write_boolean(conf, names..., 5); });
  expect_write(pass, "net", "float", "1.5", [](GConf* conf, auto... names) {
    g_conf_write_float(conf, names..., 1.5F);
  });
  expect_write(pass, "net", "double", "2.5", [](GConf* conf, auto... names) {
    g_conf_write_double(conf, names..., 2.5);
  });
}

void register_callback(Pass& pass) {
  const WorkingDirectory directory;
  GConf* const conf = open_conf(directory);
  const std::string long_key(300, 'k');  // its key in the table needs memory of its own
  for (const char* const key : {"port", "port", long_key.c_str()}) {
    const Since since(pass);
    const int result = faulty(pass, [&] {
      return g_conf_register_callback(conf, "net", key, count_run, nullptr);
    });
    EXPECT_EQ(result, since.struck(Call::kAllocation) ? -1 : 0);
  }
  close_clean(conf);
}

const Scenarios scenarios(
    "conf", {
                {"OpenAFile", {"g_conf_open", "g_conf_close"}, open_existing},
                {"OpenALargeFile", {}, open_large},
                {"OpenANewFile", {}, open_new},
                {"OpenTheDefaultFile", {}, open_default},
                {"Sync", {"g_conf_sync"}, sync_changes},
                {"CloseWithChanges", {}, close_with_changes},
                {"ReadAndRemove",
                 {"g_conf_read_string", "g_conf_read_int", "g_conf_read_boolean",
                  "g_conf_read_float", "g_conf_read_double", "g_find_section",
                  "g_find_line", "g_conf_remove_key", "g_conf_remove_section"},
                 read_values},
                {"WriteText", {"g_conf_write_string"}, write_values},
                {"WriteNumbers",
                 {"g_conf_write_int", "g_conf_write_boolean", "g_conf_write_float",
                  "g_conf_write_double"},
                 write_numbers},
                {"RegisterACallback", {"g_conf_register_callback"}, register_callback},
            });

}  // namespace
