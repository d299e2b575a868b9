// What the programs of this folder share: how a way to do a job is registered, and what it
// reports, so that bench/run can set it against the other ways and knows that all of them
// did the same.
//
// SPDX-License-Identifier: MIT

#ifndef GROUNDWORK_BENCH_SUPPORT_JOB_H
#define GROUNDWORK_BENCH_SUPPORT_JOB_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace groundwork::bench {

using benchmark::DoNotOptimize;
using benchmark::State;

// Registers the jobs of a program; each program defines it.
void register_jobs();

// Registers `run` as the way in which `who` does a job: "ours", a peer's name, or "floor",
// the least that any implementation must do. bench/rows.py says of each job what it is,
// what ratio is aimed at, and what the floor does. Sizes are added with ->Arg(n).
template <typename Run>
benchmark::internal::Benchmark* job(const std::string& name, const std::string& who,
                                    Run run) {
  return benchmark::RegisterBenchmark((name + "/" + who).c_str(), run);
}

// Fingerprint of what was computed.
class Digest {
 public:
  void add(uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8)
      add_byte(static_cast<uint8_t>(value >> shift));
  }
  void add(std::string_view text) {
    for (const char byte : text) add_byte(static_cast<uint8_t>(byte));
    add_byte(0);
  }
  uint32_t value() const { return value_; }

 private:
  void add_byte(uint8_t byte) { value_ = (value_ ^ byte) * 16777619U; }

  uint32_t value_ = 2166136261U;
};

// Ends a run. The table shows the cost of one of the `operations` of an iteration. The
// digest must equal that of all others who do this job at this size, except the floor.
inline void report(State& state, double operations, uint32_t digest = 0) {
  state.counters["operations"] = operations;
  state.counters["digest"] = digest;
}

}  // namespace groundwork::bench

#endif
