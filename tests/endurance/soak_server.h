// A web server on loopback, inside the program under observation. It keeps nothing of the
// requests, so any growth is not its own.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_ENDURANCE_SOAK_SERVER_H
#define GROUNDWORK_TESTS_ENDURANCE_SOAK_SERVER_H

#include <pthread.h>

#include <atomic>
#include <string>

namespace test {

// Serves the same body for every request, one connection after the other.
class SoakServer {
 public:
  explicit SoakServer(const std::string& body);
  ~SoakServer();
  SoakServer(const SoakServer&) = delete;
  SoakServer& operator=(const SoakServer&) = delete;

  // "http://127.0.0.1:port/"
  const std::string& url() const { return url_; }

 private:
  static void* run(void* server);
  void serve(int connection) const;

  int listener_;
  std::string url_;
  std::string reply_;
  std::atomic<bool> stopping_{false};
  pthread_t thread_;
};

}  // namespace test

#endif
