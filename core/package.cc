// The package name.
//
// SPDX-License-Identifier: MIT

#include <groundwork/package.h>

#include <cstring>

#include "core/check.h"

namespace {

constexpr char kSource[] = "g_package";

}  // namespace

extern "C" {

char g_package_name[21];

const char* g_package_set_name(const char* name) {
  CHECK_ARG(name != NULL, nullptr);
  const size_t length = strnlen(name, sizeof g_package_name - 1);
  // memmove(): a program may pass the array itself.
  std::memmove(g_package_name, name, length);
  g_package_name[length] = '\0';
  return g_package_name;
}

}  // extern "C"
