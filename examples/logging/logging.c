/*
 * Diagnostics: what a program reports, and who decides how much of it.
 *
 *   logging [LEVEL]
 *
 * A message is printed when its level is at least the threshold. Without LEVEL the
 * threshold comes from marker files, so that whoever services the device can set it without
 * a new program or a setting: `touch /tmp/vk_debug`, or `gw-log debug`, before the start
 * shows everything; without any marker the program is silent.
 *
 *   logging 3
 *
 * shows only warnings and errors, which is the default of a program that sets nothing.
 *
 * SPDX-License-Identifier: MIT
 */
#include <groundwork/groundwork.h>

#include <stdio.h>
#include <stdlib.h>

/* Every message says where it comes from. Most programs have a macro for that. The
 * arguments are always evaluated, but formatted only if the message is printed. */
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

/* Gets each line without its newline. It must not log: that would call it again. */
static int to_journal(const char* text, void* arg) {
  struct journal* journal = arg;

  ++journal->lines;
  return fprintf(journal->file, "journal: %s\n", text);
}

int main(int argc, char** argv) {
  struct journal journal = {stdout, 0};
  char* copy;

  /* The name is the prefix of each line, since several programs may share a console. Set it
   * and the threshold once, before there are threads. */
  g_package_set_name("waterworks");
  if (argc == 2) {
    g_debug_set_level2(atoi(argv[1])); /* g_debug_set_level() would do nothing */
  } else {
    g_debug_init(); /* prints the threshold that it chose */
  }

  /* A notice has neither tag nor source line: it is for the user of the device. */
  LOG(G_LOG_MESSAGE, "good morning");
  pump(40);
  pump(400);

  /* The library reports invalid arguments at the highest level, with the condition that
   * failed, and returns a failure value. Nothing aborts. */
  copy = g_strdup(NULL);
  LOG(G_LOG_INFORMATION, "a copy of nothing is %s", copy == NULL ? "nothing" : copy);
  free(copy);

  /* From here on lines go to our journal instead of standard error. */
  g_debug_set_handler(to_journal, &journal);
  pump(400);
  g_print("%d lines so far",
          journal.lines); /* whatever the threshold, and without a prefix */
  g_debug_set_handler(NULL, NULL);

  /* 99 is above all levels in use. */
  g_debug_set_level2(G_LOG_SILENT);
  pump(400);
  return 0;
}
