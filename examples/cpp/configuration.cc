// SPDX-License-Identifier: MIT
// A configuration that keeps its comments, reports changes, and survives a power cut.
#include <groundwork/groundwork.hpp>

#include <cstdio>

int main() {
  const gw::Result<void> written = gw::write_file(
      "gateway.conf", "# ask Ada before you change the port\n[net]\nport = 80\n");
  if (!written) {
    std::fprintf(stderr, "gateway.conf: %s\n", written.error().text());
    return 1;
  }

  gw::Conf conf("gateway.conf");
  conf.on_change("net", "port", [](const GConfChange& change) noexcept {
    std::printf("%s.%s is now %s\n", change.section, change.key, change.value);
  });
  conf.write_int("net", "port", conf.read_int("net", "port", 8079) + 1);
  conf.write_string("net", "name", "gate");

  // Comments, order and spaces are kept; a power cut leaves the old file or this one.
  if (const gw::Saved saved = conf.save(); !saved) {
    std::fprintf(stderr, "gateway.conf: %s\n", saved.error().text());
    return 1;
  }
  for (const std::string_view line : gw::Lines("gateway.conf")) {
    std::printf("| %.*s\n", static_cast<int>(line.size()), line.data());
  }

  // Somebody edits the file.
  if (!gw::replace_file("gateway.conf", "[net]\nport=8080\nname=gate\n")) return 1;
  std::printf("%d change\n", conf.reload().value_or(-1));
}
// prints: net.port is now 81
// prints: | # ask Ada before you change the port
// prints: | [net]
// prints: | port = 81
// prints: | name=gate
// prints: net.port is now 8080
// prints: 1 change
