/* gw-log: shows and switches the marker files that set how much programs log.
 *
 * SPDX-License-Identifier: MIT
 */
#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <groundwork/file.h>
#include <groundwork/log.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

enum { EXIT_USAGE = 2 };

struct level {
  int number;
  const char* name;
  const char* marker; /* null: chosen when no marker exists */
};

static const struct level levels[] = {
    {G_LOG_DEBUG, "debug", "/tmp/vk_debug"},
    {G_LOG_MESSAGE, "message", "/tmp/vk_message"},
    {G_LOG_INFORMATION, "information", "/tmp/vk_information"},
    {G_LOG_WARNING, "warning", "/tmp/vk_warning"},
    {G_LOG_ERROR, "error", "/tmp/vk_error"},
    {G_LOG_SILENT, "silent", NULL},
};
enum { LEVELS = sizeof levels / sizeof *levels };

static int failed(const char* name, const char* text) {
  fprintf(stderr, "gw-log: %s: %s\n", name, text);
  return EXIT_FAILURE;
}

/* ---- The markers -------------------------------------------------------------------- */

static int ignore_announcement(const char* text, void* arg) {
  (void)text;
  (void)arg;
  return 0;
}

/* The level that a program would choose if it started now, as the library itself finds it.
 * */
static int chosen_level(void) {
  g_debug_set_handler(ignore_announcement, NULL);
  g_debug_init();
  const int chosen = g_debug_get_level();
  g_debug_set_handler(NULL, NULL);
  return chosen;
}

static const char* state_of(const char* marker) {
  struct stat status;
  if (g_file_exist(marker)) return "present";
  return lstat(marker, &status) == 0 ? "not a regular file, ignored" : "absent";
}

static int show(void) {
  const int chosen = chosen_level();
  for (int i = 0; i < LEVELS; ++i) {
    if (levels[i].number == chosen) printf("%s\n", levels[i].name);
  }
  for (int i = 0; i < LEVELS; ++i) {
    if (levels[i].marker == NULL) continue;
    printf("  %d  %-11s  %-19s  %s\n", levels[i].number, levels[i].name, levels[i].marker,
           state_of(levels[i].marker));
  }
  return EXIT_SUCCESS;
}

/* Anyone can put a link into /tmp, so this follows none, and never changes what is there.
 * */
static bool create_marker(const char* marker) {
  if (g_file_exist(marker)) return true;
  const int fd = open(marker, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd == -1) {
    failed(marker, errno == EEXIST ? "not a regular file" : strerror(errno));
    return false;
  }
  close(fd);
  return true;
}

static bool remove_marker(const char* marker) {
  if (!g_file_exist(marker) || unlink(marker) == 0 || errno == ENOENT) return true;
  failed(marker, strerror(errno));
  return false;
}

/* Creates the marker before it removes the others: a program that starts in between must
 * not find none and fall silent. */
static int set_level(const struct level* wanted) {
  if (wanted->marker != NULL && !create_marker(wanted->marker)) return EXIT_FAILURE;
  bool done = true;
  for (int i = 0; i < LEVELS; ++i) {
    if (&levels[i] == wanted || levels[i].marker == NULL) continue;
    done = remove_marker(levels[i].marker) && done;
  }
  return done ? EXIT_SUCCESS : EXIT_FAILURE;
}

/* ---- Command line ------------------------------------------------------------------- */

static const char usage[] =
    "Usage: gw-log [LEVEL]\n"
    "Shows how much programs will log when they start, or sets it to LEVEL.\n"
    "\n"
    "  debug, 0        everything\n"
    "  message, 1      notices, and everything below\n"
    "  information, 2  information from applications, and everything below\n"
    "  warning, 3      failed system calls, and errors\n"
    "  error, 4        failed argument checks only\n"
    "  silent, 99      nothing\n"
    "\n"
    "      --help      print this and exit\n"
    "      --version   print the version and exit\n"
    "\n"
    "Exit status: 0 on success, 1 on failure, 2 on wrong usage.\n";

static const struct level* find_level(const char* text) {
  for (int i = 0; i < LEVELS; ++i) {
    char number[12];
    snprintf(number, sizeof number, "%d", levels[i].number);
    if (strcmp(text, levels[i].name) == 0 || strcmp(text, number) == 0) return &levels[i];
  }
  return NULL;
}

static int run(int n, char** arguments) {
  if (n == 0) return show();
  const struct level* const level = n == 1 ? find_level(arguments[0]) : NULL;
  if (level != NULL) return set_level(level);
  if (n > 1) {
    fputs("gw-log: expected one level, not several; see gw-log --help\n", stderr);
  } else {
    fprintf(stderr, "gw-log: unknown level '%s'; see gw-log --help\n", arguments[0]);
  }
  return EXIT_USAGE;
}

/* Output may fail as late as the flush. When the reader of a pipe has gone away, there is
 * no message. */
static int finish(int status) {
  if (fflush(stdout) == EOF || ferror(stdout)) {
    if (errno == EPIPE) return EXIT_FAILURE;
    return failed("standard output", strerror(errno));
  }
  return status;
}

int main(int argc, char** argv) {
  enum { HELP = 256, VERSION };
  static const struct option long_options[] = {{"help", no_argument, NULL, HELP},
                                               {"version", no_argument, NULL, VERSION},
                                               {NULL, 0, NULL, 0}};

  switch (getopt_long(argc, argv, "", long_options, NULL)) {
    case -1:
      return finish(run(argc - optind, argv + optind));
    case HELP:
      fputs(usage, stdout);
      return finish(EXIT_SUCCESS);
    case VERSION:
      puts("gw-log (groundwork) " GROUNDWORK_VERSION);
      return finish(EXIT_SUCCESS);
    default: /* getopt_long() has printed the error */
      return EXIT_USAGE;
  }
}
