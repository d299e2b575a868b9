// Saving one changed key: by the editing save, by the kept one followed by a sync, and by
// the least that a replacement must do which survives a power cut, with the text at hand.
//
// Once with the syncs, which a disk decides, and once with syncs that do nothing: what is
// left is the time outside of them.
//
// SPDX-License-Identifier: MIT

#include <groundwork/conf.h>
#include <groundwork/safe.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include "support/job.h"
#include "support/temporary_file.h"

using namespace groundwork::bench;

namespace {

bool syncs_do_nothing = false;

}  // namespace

// The library's calls come here, too.
extern "C" int fsync(int descriptor) {
  static int (*const real)(int) = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"));
  return syncs_do_nothing ? 0 : real(descriptor);
}

namespace {

constexpr const char* kValues[] = {"10.0.0.1", "192.168.0.100"};

// With comments, which the kept way does not keep.
std::string text_of(int keys) {
  std::string text = "# settings\n";
  for (int i = 0; i < keys; ++i) {
    if (i % 10 == 0) text += "\n# group " + std::to_string(i / 10) + "\n";
    if (i % 100 == 0) text += "[section" + std::to_string(i / 100) + "]\n";
    text += "key." + std::to_string(i) + " = value of key." + std::to_string(i) + "\n";
  }
  return text;
}

void require(bool done, const char* what) {
  if (done) return;
  std::perror(what);
  std::exit(1);
}

void sync_path(const char* path, int flags) {
  const int descriptor = open(path, O_RDONLY | O_CLOEXEC | flags);
  require(descriptor >= 0 && fsync(descriptor) == 0 && close(descriptor) == 0, path);
}

class Saved {
 public:
  explicit Saved(const char* path) : conf_(g_conf_open(path)) {}
  ~Saved() { g_conf_close(conf_); }
  void save(const char* value) {
    g_conf_write_string(conf_, "section0", "key.5", value);
    require(g_conf_save(conf_, 0) == 0, "g_conf_save");
  }

 private:
  GConf* conf_;
};

class Synced {
 public:
  explicit Synced(const char* path) : conf_(g_conf_open(path)) {}
  ~Synced() { g_conf_close(conf_); }
  void save(const char* value) {
    g_conf_write_string(conf_, "section0", "key.5", value);
    g_conf_sync(conf_);
    sync_path(conf_->filename, 0);
  }

 private:
  GConf* conf_;
};

// Two ready texts, in turn.
class Replaced {
 public:
  explicit Replaced(const char* path) : path_(path), directory_(path) {
    std::FILE* const file = std::fopen(path, "r");
    require(file != nullptr, path);
    char piece[4096];
    for (size_t count; (count = std::fread(piece, 1, sizeof piece, file)) > 0;) {
      text_.append(piece, count);
    }
    std::fclose(file);
    const std::string before = "value of key.5\n";
    place_ = text_.find(before);
    rest_ = place_ + before.size() - 1;
    temporary_ = path_ + ".new";
    directory_.resize(directory_.rfind('/'));
  }
  void save(const char* value) {
    std::string& text = texts_[value == kValues[0]];
    if (text.empty()) text = text_.substr(0, place_) + value + text_.substr(rest_);
    const int file =
        open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    require(file >= 0, temporary_.c_str());
    const bool written =
        write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    require(written && fsync(file) == 0 && close(file) == 0, temporary_.c_str());
    require(std::rename(temporary_.c_str(), path_.c_str()) == 0, path_.c_str());
    sync_path(directory_.c_str(), O_DIRECTORY);
  }

 private:
  std::string path_, directory_, temporary_, text_;
  std::string texts_[2];
  size_t place_ = 0;
  size_t rest_ = 0;
};

template <typename Store>
void save(State& state, bool without_syncs) {
  const TemporaryFile file(text_of(static_cast<int>(state.range(0))));
  {
    Store store(file.path());
    syncs_do_nothing = without_syncs;
    bool odd = false;
    for (auto _ : state) {
      odd = !odd;
      store.save(kValues[odd]);
    }
    store.save(kValues[1]);
    store.save(kValues[0]);
    syncs_do_nothing = false;
  }
  Digest digest;
  GConf* const conf = g_conf_open(file.path());
  for (const GList* node = conf->sections; node != nullptr; node = node->next) {
    const auto* const section = static_cast<const GConfSection*>(node->data);
    for (const GList* line = section->entries; line != nullptr; line = line->next) {
      const auto* const entry = static_cast<const GConfEntry*>(line->data);
      digest.add(entry->key);
      digest.add(entry->value);
    }
  }
  g_conf_close(conf);
  report(state, 1, digest.value());
}

template <typename Store>
void register_store(const char* who) {
  for (const int size : {10, 1000, 100000}) {
    job("conf.save", who, [](State& state) { save<Store>(state, false); })->Arg(size);
    job("conf.save.nosync", who, [](State& state) { save<Store>(state, true); })->Arg(size);
  }
}

}  // namespace

void groundwork::bench::register_jobs() {
  register_store<Saved>("ours");
  register_store<Synced>("g_conf_sync+fsync");
  register_store<Replaced>("write+rename");
}
