// SPDX-License-Identifier: MIT
// A little of everything in the wrapper, for compilers and options that the test programs
// do not use. Returns 0 when all was right.

#include <groundwork/groundwork.hpp>

#include <atomic>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  int wrong = 0;
  const auto check = [&wrong](bool right) { wrong += right ? 0 : 1; };

  const gw::String path = gw::format("%s/tour.conf", argv[1]);
  int changes = 0;
  {
    gw::Conf conf(path.view());
    check(conf.on_change("a", "b", [&changes](const GConfChange&) noexcept { ++changes; }));
    conf.write_int("a", "b", 5);
    check(conf.read_int("a", "b", 0) == 5);
  }
  check(changes == 1);
  check(gw::read_file(path.view()).view() == "[a]\nb=5\n\n");

  int number = 7;
  gw::PointerQueue<int> queue;
  queue.enqueue(&number);
  int sum = 0;
  queue.for_each([&sum](int* element) noexcept { sum += *element; });
  check(sum == 7 && queue.dequeue() == &number);
  gw::Hash<const char, int> hash;
  check(hash.insert("key", &number) && hash.find("key") == &number);
  gw::List<int> list;
  list.append(&number);
  for (int* element : list) check(element == &number);
  gw::Fifo<int> fifo(2);
  check(fifo.put(&number) && fifo.take() == &number);

  std::atomic<int> runs{0};
  {
    gw::TimerService service;
    gw::Mutex mutex;
    gw::Thread thread([&runs, &mutex] {
      const gw::Lock lock(mutex);
      ++runs;
    });
    gw::Timer timer(10, [&runs] { ++runs; });
    gw::Timeout timeout(10, [&runs] { return ++runs < 0; });
    thread.join();
    for (int i = 0; i < 1000 && runs < 3; ++i) g_delay(10);
  }
  check(runs >= 3);

  const gw::Block text{1, 2, 3, 4, 5, 6, 7, 8};
  check(gw::d3des_decrypt(gw::d3des_encrypt(text, text), text) == text);
  check(gw::base64_decode(gw::base64_encode("gw").c_str()).view() == "gw");
  gw::use_files_and_http();
  gw::Url url(path.view());
  char line[16];
  check(url.line(line) == "[a]");
  return wrong;
}
