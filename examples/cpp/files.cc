// SPDX-License-Identifier: MIT
// Files replaced as a whole, directories created, listed and removed.
#include <groundwork/groundwork.hpp>

#include <cstdio>

int main() {
  if (const auto made = gw::make_directory("var/lib/gate"); !made) {
    std::fprintf(stderr, "var/lib/gate: %s\n", made.error().text());
    return 1;
  }
  // Readers see the old levels or the new ones, even after a power cut.
  if (!gw::replace_file("var/lib/gate/levels", "low\nhigh\n")) return 1;
  if (!gw::duplicate_file("var/lib/gate/levels", "var/lib/gate/levels.bak")) return 1;

  for (const char* name : gw::list_directory("var/lib/gate")) std::puts(name);
  for (const std::string_view level : gw::Lines("var/lib/gate/levels")) {
    std::printf("level %.*s\n", static_cast<int>(level.size()), level.data());
  }
  std::printf("%lld bytes\n",
              static_cast<long long>(gw::file_size("var/lib/gate/levels").value_or(-1)));

  const gw::Saved failed = gw::replace_file("no/such/place", "x");
  std::printf("no/such/place: %s\n", failed.error().text());
  if (const auto removed = gw::remove_tree("var"); !removed) return 1;
  std::puts(gw::directory_exists("var") ? "still there" : "gone");
}
// prints: levels
// prints: levels.bak
// prints: level low
// prints: level high
// prints: 9 bytes
// prints: no/such/place: No such file or directory
// prints: gone
