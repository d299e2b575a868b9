// A locale other than C, whether one is installed or not.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_CONF_OWN_LOCALE_H
#define GROUNDWORK_TESTS_CONF_OWN_LOCALE_H

#include <clocale>
#include <cstdlib>
#include <string>

#include "support/temporary_directory.h"

namespace test {

// While alive, German with eight-bit letters and a decimal comma, made by localedef.
class OwnLocale {
 public:
  OwnLocale() {
    const std::string path = directory_ / "de_DE.ISO-8859-1";
    const std::string command = "localedef -i de_DE -f ISO-8859-1 " + path + " 2>&1";
    if (std::system(command.c_str()) != 0) return;
    setenv("LOCPATH", directory_.path().c_str(), 1);
    is_chosen_ = std::setlocale(LC_ALL, "de_DE.ISO-8859-1") != nullptr;
    unsetenv("LOCPATH");
  }
  ~OwnLocale() { std::setlocale(LC_ALL, "C"); }
  OwnLocale(const OwnLocale&) = delete;
  OwnLocale& operator=(const OwnLocale&) = delete;

  // False without localedef and its sources, and where the C library cannot read what it
  // made: that of a target with the other order of bytes, or without locales.
  bool is_chosen() const { return is_chosen_; }

 private:
  TemporaryDirectory directory_;
  bool is_chosen_ = false;
};

}  // namespace test

#endif
