/* SPDX-License-Identifier: MIT */
/*
 * What runs on an emulated board whose power is cut: see scripts/power-cuts.
 *
 *   power_cut_program save FILE    changes all keys and saves, without end, with
 * g_conf_save() power_cut_program sync FILE    the same with g_conf_sync()
 *   power_cut_program check FILE   reports what is left
 *
 * All keys hold the number of the round. "done N" is written when the call of round N has
 * returned; "whole N" when a file holds round N in all keys, else "empty" or "torn".
 */
#include <groundwork/groundwork.h>
#include <groundwork/safe.h>

#include <stdio.h>
#include <string.h>
#include <unistd.h>

enum { kSections = 5, kKeys = 20 };

static void name_of(char* name, char first, int number) {
  sprintf(name, "%c%02d", first, number);
}

static void set_all(GConf* conf, int round) {
  char section[8], key[8];
  int i, j;

  for (i = 0; i < kSections; ++i) {
    for (j = 0; j < kKeys; ++j) {
      name_of(section, 's', i);
      name_of(key, 'k', j);
      g_conf_write_int(conf, section, key, round);
    }
  }
}

static int write_rounds(const char* file, int with_save) {
  GConf* conf = g_conf_open(file);
  int round;

  if (conf == NULL) return 1;
  set_all(conf, 0);
  if (g_conf_save(conf, 0) != 0) return 1; /* so that there is something to lose */
  for (round = 1;; ++round) {
    set_all(conf, round);
    if (!with_save) {
      g_conf_sync(conf);
    } else if (g_conf_save(conf, 0) != 0) {
      perror("g_conf_save");
      return 1;
    }
    printf("done %d\n", round);
    fflush(stdout);
  }
}

static int check(const char* file) {
  char section[8], key[8];
  int missing = 0, differing = 0, first = -1, i, j;
  GConf* conf;

  conf = g_file_exist(file) ? g_conf_open(file) : NULL;
  if (conf == NULL) {
    puts("none");
    return 0;
  }
  for (i = 0; i < kSections; ++i) {
    for (j = 0; j < kKeys; ++j) {
      int value;

      name_of(section, 's', i);
      name_of(key, 'k', j);
      value = g_conf_read_int(conf, section, key, -1);
      if (value < 0) {
        ++missing;
      } else if (first < 0) {
        first = value;
      } else if (value != first) {
        ++differing;
      }
    }
  }
  if (missing == kSections * kKeys) {
    puts("empty");
  } else if (missing > 0 || differing > 0) {
    printf("torn: %d keys missing, %d of another round\n", missing, differing);
  } else {
    printf("whole %d\n", first);
  }
  return 0;
}

int main(int argc, char** argv) {
  if (argc == 3 && strcmp(argv[1], "check") == 0) return check(argv[2]);
  if (argc == 3 && strcmp(argv[1], "save") == 0) return write_rounds(argv[2], 1);
  if (argc == 3 && strcmp(argv[1], "sync") == 0) return write_rounds(argv[2], 0);
  fputs("usage: power_cut_program save|sync|check FILE\n", stderr);
  return 2;
}
