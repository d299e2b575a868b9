/*
 * Diagnostics: what a program tells about itself, and who decides how much of it.
 *
 *   logging [LEVEL]
 *
 * A message is printed when its level is at least the threshold. Without LEVEL the
 * threshold comes from the marker files, so that whoever stands before the device chooses
 * it, without a new program and without a setting: `touch /tmp/vk_debug`, or `gw-log
 * debug`, before the start shows everything, and without any marker there is silence.
 *
 *   logging 3
 *
 * shows warnings and errors only, which is what a program gets that chooses nothing.
 *
 * SPDX-License-Identifier: MIT
 */
#include <groundwork/groundwork.h>

#include <stdio.h>
#include <stdlib.h>

/* Every message says where it comes from. Most programs have a macro for that; the
 * arguments are evaluated in any case, but formatted only if the message is printed. */
#define LOG(level, ...) g_log(level, "logging", __LINE__, __VA_ARGS__)

/* ---- A pump that reports as it goes ------------------------------------------------- */

static int pump(int litres) {
  LOG(G_LOG_DEBUG, "pump(%d)", litres);
  if (litres > 100) {
    LOG(G_LOG_WARNING, "%d litres are too many, the tank holds %d", litres, 100);
    return -1;
  }
  LOG(G_LOG_INFORMATION, "pumped %d litres", litres);
  return 0;
}

/* ---- Lines can go elsewhere --------------------------------------------------------- */

struct journal {
  FILE* file;
  int lines;
};

/* Gets each line without its newline. Must not log itself: that would come back here. */
static int to_journal(const char* text, void* arg) {
  struct journal* journal = arg;

  ++journal->lines;
  return fprintf(journal->file, "journal: %s\n", text);
}

int main(int argc, char** argv) {
  struct journal journal = {stdout, 0};
  char* copy;

  /* The name stands in front of each line: several programs may share a console. Both are
   * done once, before there are threads. */
  g_package_set_name("waterworks");
  if (argc == 2) {
    g_debug_set_level2(atoi(argv[1])); /* g_debug_set_level() would do nothing */
  } else {
    g_debug_init(); /* prints the threshold that it found */
  }

  /* A notice has neither tag nor place: it is meant for the user of the device. */
  LOG(G_LOG_MESSAGE, "good morning");
  pump(40);
  pump(400);

  /* The library reports bad arguments at the highest level, with the condition that did not
   * hold, and answers with a failure value. Nothing aborts. */
  copy = g_strdup(NULL);
  LOG(G_LOG_INFORMATION, "a copy of nothing is %s", copy == NULL ? "nothing" : copy);
  free(copy);

  /* From here on the lines go into a journal of our own instead of standard error. */
  g_debug_set_handler(to_journal, &journal);
  pump(400);
  g_print("%d lines so far",
          journal.lines); /* whatever the threshold, and without a prefix */
  g_debug_set_handler(NULL, NULL);

  /* 99 is above all levels that are in use. */
  g_debug_set_level2(G_LOG_SILENT);
  pump(400);
  return 0;
}
