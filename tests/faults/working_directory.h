// An empty directory that a scenario works in, so that its paths are short and lead nowhere
// else.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_FAULTS_WORKING_DIRECTORY_H
#define GROUNDWORK_TESTS_FAULTS_WORKING_DIRECTORY_H

#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "support/temporary_directory.h"

namespace faults {

class WorkingDirectory {
 public:
  WorkingDirectory() { is_there_ = chdir(directory_.path().c_str()) == 0; }
  ~WorkingDirectory() { is_there_ = chdir("/") == 0; }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;

  void write(const std::string& name, const std::string& content) const {
    directory_.write(name, content);
  }
  void make(const std::string& name) const { mkdir((directory_ / name).c_str(), 0755); }

 private:
  test::TemporaryDirectory directory_;
  bool is_there_ = false;
};

}  // namespace faults

#endif
