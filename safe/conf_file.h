// Access to a configuration file.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SAFE_CONF_FILE_H
#define GROUNDWORK_SAFE_CONF_FILE_H

#include <cstddef>
#include <string_view>

#include <pthread.h>

#include "conf/fingerprint.h"
#include "conf/model.h"
#include "core/owned.h"

namespace groundwork {

// Makes other saves and reloads of a conf wait until the end of the scope. The caller holds
// off cancellation.
class ConfFileLock {
 public:
  explicit ConfFileLock(GConf* conf) : mutex_(file_mutex(conf)) {
    if (mutex_ != nullptr) pthread_mutex_lock(mutex_);
  }
  ~ConfFileLock() {
    if (mutex_ != nullptr) pthread_mutex_unlock(mutex_);
  }
  ConfFileLock(const ConfFileLock&) = delete;
  ConfFileLock& operator=(const ConfFileLock&) = delete;

 private:
  pthread_mutex_t* const mutex_;
};

// What a conf remembers about a file with these bytes.
inline FileContent content_of(std::string_view bytes) {
  return {FileContent::kText, fingerprint_of(bytes.data(), bytes.size())};
}

class ConfFile {
 public:
  // Reads a regular file like the loader, under a shared lock that it does not wait for. A
  // relative path begins at `directory`, a descriptor or AT_FDCWD.
  // Returns 0 or the error: EAGAIN if another process has locked the file or changes it
  // meanwhile, EFBIG for 2 GiB and more; ENOENT also for anything but a regular file. Logs
  // nothing. The caller holds off cancellation.
  int read(int directory, const char* path);

  // Empty unless read() returned 0; never null.
  std::string_view bytes() const {
    return bytes_ != nullptr ? std::string_view(bytes_.get(), size_) : "";
  }

 private:
  Owned<char> bytes_;
  size_t size_ = 0;
};

}  // namespace groundwork

#endif
