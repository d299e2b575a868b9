// SPDX-License-Identifier: MIT
// The lines of a file or of an HTTP resource, through one kind of handle; a time limit for
// HTTP.
//   urls [URL]
#include <groundwork/groundwork.hpp>

#include <chrono>
#include <cstdio>

int main(int argc, char** argv) {
  gw::use_files_and_http();
  const gw::HttpTimeout limit(std::chrono::seconds(5));
  if (argc < 2 && !gw::write_file("notes", "one\n\ntwo\n")) return 1;

  gw::Url url(argc > 1 ? argv[1] : "notes");
  if (!url) {
    std::fprintf(stderr, "%s: %s\n", argc > 1 ? argv[1] : "notes", url_strerror(url_errno));
    return 1;
  }
  char buffer[256];
  int count = 0;
  while (const auto line = url.line(buffer)) {
    std::printf("%d %.*s\n", ++count, static_cast<int>(line->size()), line->data());
  }
}
// prints: 1 one
// prints: 2 two
