// A server on loopback that follows a test's script and records the requests.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_URL_SCRIPTED_SERVER_H
#define GROUNDWORK_TESTS_URL_SCRIPTED_SERVER_H

#include <sys/socket.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace test {

// The server's end of one connection. No wait in here is longer than 20 seconds.
class Connection {
 public:
  explicit Connection(int fd) : fd_(fd) {}

  // Up to and including the empty line, or to the end of the client's data.
  void read_request();
  // To the end of the client's data: the client has closed its sending side.
  void read_to_end();
  void send(std::string_view text);
  // Sends the text in single bytes, each in a segment of its own.
  void send_slowly(std::string_view text);
  // Closes so that the client gets a reset instead of an end.
  void reset();

  const std::string& received() const { return received_; }
  int fd() const { return fd_; }

 private:
  bool read_some();

  const int fd_;
  std::string received_;
};

// Runs its script once for each connection, one after the other, on its own thread.
class ScriptedServer {
 public:
  using Script = std::function<void(Connection&)>;
  explicit ScriptedServer(Script script, int family = AF_INET);
  // Reads a request, sends this and closes.
  explicit ScriptedServer(const std::string& reply);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  uint16_t port() const { return port_; }
  // "http://127.0.0.1:port" and the path.
  std::string url(std::string_view path = "/") const;
  // What came over the `index`-th connection (0 is the first) until its script was over
  // and the client had closed; waits for that.
  std::string request(size_t index = 0);
  // How many connections were accepted so far.
  size_t connections();

 private:
  void serve();

  const Script script_;
  int listener_;
  uint16_t port_;
  std::atomic<bool> stopping_{false};
  std::mutex mutex_;
  std::condition_variable changed_;
  size_t accepted_ = 0;                // guarded by mutex_
  std::vector<std::string> requests_;  // guarded by mutex_
  std::thread thread_;
};

// Sends only this, and then waits until the client has gone.
class SilentServer : public ScriptedServer {
 public:
  explicit SilentServer(const std::string& said)
      : ScriptedServer([said](Connection& connection) {
          connection.read_request();
          connection.send(said);
          connection.read_to_end();
        }) {}
};

// A port of 127.0.0.1 on which nothing listens.
uint16_t unused_port();

// False where the machine has no IPv6 loopback address.
bool has_ipv6_loopback();

// Listens and never accepts, with a queue that is full: a connection is never made.
class DeafServer {
 public:
  DeafServer();
  ~DeafServer();
  DeafServer(const DeafServer&) = delete;
  DeafServer& operator=(const DeafServer&) = delete;
  uint16_t port() const { return port_; }

 private:
  int listener_;
  uint16_t port_;
  std::vector<int> queued_;
};

}  // namespace test

#endif
