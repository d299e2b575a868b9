// What a program without standard streams prints must not reach a peer.
//
// SPDX-License-Identifier: MIT

#include <groundwork/url.h>
#include <gtest/gtest.h>

#include <string>

#include "support/closed_descriptors.h"
#include "support/temporary_directory.h"
#include "url/scripted_server.h"

using test::Descriptors;
using test::is_open;
using test::kClosedSets;
using test::run_without;
using test::ScriptedServer;
using test::taken_outputs;
using test::TemporaryDirectory;
using test::to_text;

namespace {

TEST(WithoutStandardStreams, AFileStreamDoesNotTakeThePlaceOfStandardOutputOrError) {
  TemporaryDirectory dir;
  const std::string path = dir.write("file", "text");
  for (const Descriptors& closed : kClosedSets) {
    EXPECT_EQ(run_without(closed,
                          [&]() -> std::string {
                            for (int i = 0; i < 3; ++i) {
                              const URL url = url_file_open(path.c_str());
                              if (url == nullptr || url_fgetc(url) != 't') return "failed";
                            }
                            return taken_outputs(closed);
                          }),
              "")
        << to_text(closed);
  }
}

TEST(WithoutStandardStreams, ASocketDoesNotTakeThePlaceOfStandardOutputOrError) {
  ScriptedServer server("HTTP/1.0 200 OK\r\n\r\nbody");
  for (const Descriptors& closed : kClosedSets) {
    EXPECT_EQ(run_without(closed,
                          [&]() -> std::string {
                            const URL url = url_http_open(server.url().c_str());
                            if (url == nullptr || url_fgetc(url) != 'b') return "failed";
                            const int fd = url_internal_sock(url);
                            if (fcntl(fd, F_GETFD) != FD_CLOEXEC) return "kept by exec";
                            if ((fcntl(fd, F_GETFL) & O_NONBLOCK) != 0) return "no wait";
                            return taken_outputs(closed);
                          }),
              "")
        << to_text(closed);
  }
}

// Such a stream is one of standard input, which has no limit and cannot be moved.
TEST(WithoutStandardStreams, AFileStreamStillTakesThePlaceOfStandardInput) {
  TemporaryDirectory dir;
  const std::string path = dir.write("file", "text");
  EXPECT_EQ(run_without({0},
                        [&]() -> std::string {
                          const URL url = url_file_open(path.c_str());
                          if (!is_open(0)) return "another place";
                          return url->seek == nullptr ? "" : "it can be moved";
                        }),
            "");
}

}  // namespace
