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
#include <string_view>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
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

std::string content_of(const char* path) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  struct stat status;
  require(file >= 0 && fstat(file, &status) == 0, path);
  std::string text(static_cast<size_t>(status.st_size), '\0');
  require(read(file, text.data(), text.size()) == status.st_size && close(file) == 0, path);
  return text;
}

class Replacing {
 public:
  explicit Replacing(const char* path)
      : path_(path),
        directory_(path_.substr(0, path_.rfind('/'))),
        temporary_(path_ + ".new") {}
  const char* path() const { return path_.c_str(); }
  void replace(const std::string& text) const {
    const int file =
        open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    require(file >= 0, temporary_.c_str());
    const bool written =
        write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    require(written && fsync(file) == 0 && close(file) == 0, temporary_.c_str());
    require(std::rename(temporary_.c_str(), path()) == 0, path());
    sync_path(directory_.c_str(), O_DIRECTORY);
  }

 private:
  std::string path_, directory_, temporary_;
};

// Where the value of key.5 is.
class Place {
 public:
  explicit Place(const std::string& text)
      : begin_(text.find("value of key.5\n")), end_(text.find('\n', begin_)) {}
  std::string with(const std::string& text, std::string_view value) {
    std::string result;
    result.reserve(text.size() + value.size());
    result.append(text, 0, begin_).append(value).append(text, end_);
    end_ = begin_ + value.size();
    return result;
  }

 private:
  size_t begin_;
  size_t end_;
};

// Two ready texts, in turn.
class Replaced {
 public:
  explicit Replaced(const char* path) : file_(path) {
    const std::string text = content_of(path);
    for (const bool odd : {false, true}) texts_[odd] = Place(text).with(text, kValues[odd]);
  }
  void save(const char* value) { file_.replace(texts_[value == kValues[1]]); }

 private:
  Replacing file_;
  std::string texts_[2];
};

// Keeps the text of the file, and notices when somebody else has changed it. Is told which
// line to change, and keeps a copy of the text to compare with.
class Checked {
 public:
  explicit Checked(const char* path)
      : file_(path), known_(content_of(path)), place_(known_) {}
  void save(const char* value) {
    const std::string text = content_of(file_.path());
    require(text == known_, file_.path());
    known_ = place_.with(text, value);
    file_.replace(known_);
  }

 private:
  Replacing file_;
  std::string known_;
  Place place_;
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

constexpr int kSizes[] = {10, 1000, 100000};

template <typename Store>
void register_without_syncs(const char* who) {
  for (const int size : kSizes) {
    job("conf.save.nosync", who, [](State& state) { save<Store>(state, true); })->Arg(size);
  }
}

template <typename Store>
void register_store(const char* who) {
  for (const int size : kSizes) {
    job("conf.save", who, [](State& state) { save<Store>(state, false); })->Arg(size);
  }
  register_without_syncs<Store>(who);
}

}  // namespace

void groundwork::bench::register_jobs() {
  register_store<Saved>("ours");
  register_store<Synced>("g_conf_sync+fsync");
  register_store<Replaced>("write+rename");
  register_without_syncs<Checked>("floor");
}
