// The tests of g_scandir() in a program compiled with 64-bit times.
//
// SPDX-License-Identifier: MIT

#define GROUNDWORK_TEST_TIME64

#include "sys/scandir_test.cc"
