// The main program of each benchmark.
//
// SPDX-License-Identifier: MIT

#include "support/job.h"

int main(int argc, char** argv) {
  groundwork::bench::register_jobs();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
