// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SELFTEST_BOARD_FACTS_H
#define GROUNDWORK_TESTS_SELFTEST_BOARD_FACTS_H

// Measures this board for some seconds and writes what was found to standard output, each
// line with a prefix: resolution of the clock, jitter of sleeps and timers, cost of a lock,
// cost of having a file on the disk (in $TMPDIR, else /tmp).
void write_board_facts(const char* prefix);

#endif
