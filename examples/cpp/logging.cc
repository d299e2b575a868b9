// SPDX-License-Identifier: MIT
// Log lines by level, and a handler that counts them.
#include <groundwork/groundwork.hpp>

#include <cstdio>
#include <cstring>

int main() {
  g_package_set_name("waterworks");
  g_debug_set_level2(G_LOG_INFORMATION);  // lower levels are not even formatted

  const gw::Log log("pump");
  int warnings = 0;
  {
    const gw::LogHandler handler([&warnings](const char* line) noexcept {
      if (std::strstr(line, "[WARNING]") != nullptr) ++warnings;
      std::printf("journal: %s\n", line);
    });
    log.debug(1, "not shown");
    log.information(2, "pumped %d litres", 40);
    log.warning(3, "%d litres are too many", 400);
  }  // lines go to standard error again
  std::printf("%d warning\n", warnings);
}
// prints: journal: waterworks: pump:2: pumped 40 litres
// prints: journal: waterworks: pump:3: [WARNING] 400 litres are too many
// prints: 1 warning
