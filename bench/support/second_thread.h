// A thread that waits while it exists. The C library takes shortcuts in programs with one
// thread; locks are for those with more.
//
// SPDX-License-Identifier: MIT

#ifndef GROUNDWORK_BENCH_SUPPORT_SECOND_THREAD_H
#define GROUNDWORK_BENCH_SUPPORT_SECOND_THREAD_H

#include <future>
#include <thread>

namespace groundwork::bench {

class SecondThread {
 public:
  ~SecondThread() {
    end_.set_value();
    thread_.join();
  }

 private:
  std::promise<void> end_;
  std::thread thread_{[this] { end_.get_future().wait(); }};
};

}  // namespace groundwork::bench

#endif
