/* gw-conf: reads, changes and checks configuration files by the library's own rules.
 *
 * SPDX-License-Identifier: MIT
 */
#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <groundwork/conf.h>
#include <groundwork/file.h>
#include <groundwork/hash.h>
#include <groundwork/log.h>
#include <groundwork/safe.h>
#include <groundwork/str.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

enum { EXIT_USAGE = 2 };

/* ---- Messages ----------------------------------------------------------------------- */

static int failed(const char* name, const char* text) {
  fprintf(stderr, "gw-conf: %s: %s\n", name, text);
  return EXIT_FAILURE;
}

static int usage_error(const char* format, const char* text) {
  fputs("gw-conf: ", stderr);
  fprintf(stderr, format, text);
  fputs("; see gw-conf --help\n", stderr);
  return EXIT_USAGE;
}

/* Suppresses the library's log lines: each failure is reported here, in one line with the
 * file and the reason. */
static int ignore(const char* line, void* arg) {
  (void)line;
  (void)arg;
  return 0;
}

/* ---- Opening and saving ------------------------------------------------------------- */

static bool force; /* --force */

static const char locked[] = "locked by another program";

/* Why a regular file could not be loaded. */
static int cannot_load(const char* file) {
  struct flock lock = {.l_type = F_RDLCK, .l_whence = SEEK_SET};
  struct stat status;
  const char* reason = "cannot be read";
  const int descriptor = open(file, O_RDONLY | O_CLOEXEC);
  if (descriptor == -1) return failed(file, strerror(errno));
  if (fcntl(descriptor, F_GETLK, &lock) != -1 && lock.l_type != F_UNLCK) {
    reason = locked;
  } else if (fstat(descriptor, &status) == 0 && status.st_size >= INT32_MAX) {
    reason = strerror(EFBIG);
  }
  close(descriptor);
  return failed(file, reason);
}

/* To g_conf_open(), a file that has just been removed is an empty one. Reads it once more;
 * returns null, after a message, if that fails. */
static GConf* or_missing(GConf* conf) {
  if (g_conf_reload(conf) != -1) return conf;
  failed(conf->filename, errno == EAGAIN ? locked : strerror(errno));
  g_conf_close(conf);
  return NULL;
}

/* Returns null, after a message, on failure. */
static GConf* open_conf(const char* file, bool may_be_missing) {
  struct stat stat_of_file;
  const bool found = stat(file, &stat_of_file) == 0;
  if (!found && !(may_be_missing && errno == ENOENT)) {
    failed(file, strerror(errno));
    return NULL;
  }
  /* The library would treat anything else as a file that does not exist yet. */
  if (found && !S_ISREG(stat_of_file.st_mode)) {
    failed(file, "not a regular file");
    return NULL;
  }
  GConf* const conf = g_conf_open(file);
  if (conf != NULL) {
    return conf->sections == NULL && !may_be_missing ? or_missing(conf) : conf;
  }
  if (found) {
    cannot_load(file);
  } else {
    failed(file, strerror(ENOMEM)); /* there was nothing to load */
  }
  return NULL;
}

static const char* reason_of_failed_save(int error) {
  switch (error) {
    case ESTALE:
      return "changed by another program meanwhile; --force changes it anyway";
    case EBADMSG:
      return "contains a NUL byte; --force rewrites it without comments and without what "
             "follows that byte";
    case EINVAL:
      return "the new contents would read back differently";
    case EAGAIN:
      return locked;
    case EPERM:
      return "its owner, group and mode cannot be kept; its owner or root can change it";
    default:
      return strerror(error);
  }
}

/* Saves the changes and closes the conf. */
static int save(GConf* conf) {
  int status = EXIT_SUCCESS;
  const int result = g_conf_save(conf, force);
  const int error = errno;
  if (result == 1) {
    fprintf(stderr, "gw-conf: %s: changed, but a power cut may undo it: %s\n",
            conf->filename, strerror(error));
  } else if (result != 0) {
    status = failed(conf->filename, reason_of_failed_save(error));
    conf->dirty = 0; /* so that closing does not write the file after all */
  }
  g_conf_close(conf);
  return status;
}

/* ---- get, set, unset, list ---------------------------------------------------------- */

static int get(const char* file, int n, char** arguments) {
  GConf* const conf = open_conf(file, false);
  if (conf == NULL) return EXIT_FAILURE;
  const char* const def = n == 3 ? arguments[2] : NULL;
  const char* const value = g_conf_read_string(conf, arguments[0], arguments[1], def);
  if (value != NULL) printf("%s\n", value);
  g_conf_close(conf);
  return value != NULL ? EXIT_SUCCESS : EXIT_FAILURE;
}

static char* trim(char* text) {
  return g_strchomp(g_strchug(text));
}

/* The file format has no escapes: refuses what would be read back as something else. */
static int set(const char* file, int n, char** arguments) {
  const char* const section = arguments[0];
  const char* const key = trim(arguments[1]);
  const char* const value = trim(arguments[2]);
  (void)n;
  if (strpbrk(section, "]\n") != NULL) {
    return usage_error("%s", "a section name cannot contain \"]\" or a newline");
  }
  if (*key == '#' || *key == '[' || strpbrk(key, "=\n") != NULL) {
    return usage_error("%s",
                       "a key cannot begin with \"#\" or \"[\", or contain \"=\" or a "
                       "newline");
  }
  if (strchr(value, '\n') != NULL) {
    return usage_error("%s", "a value cannot contain a newline");
  }

  GConf* const conf = open_conf(file, true);
  if (conf == NULL) return EXIT_FAILURE;
  g_conf_write_string(conf, section, key, value);
  /* A write that runs out of memory changes nothing and returns nothing. */
  if (strcmp(g_conf_read_string(conf, section, key, ""), value) != 0) {
    g_conf_close(conf);
    return failed(file, strerror(ENOMEM));
  }
  return save(conf);
}

static int unset(const char* file, int n, char** arguments) {
  GConf* const conf = open_conf(file, false);
  if (conf == NULL) return EXIT_FAILURE;
  GConfSection* const section = g_find_section(conf, arguments[0]);
  const bool found =
      section != NULL && (n == 1 || g_find_line(section, arguments[1]) != NULL);
  if (n == 1) {
    g_conf_remove_section(conf, arguments[0]);
  } else {
    g_conf_remove_key(conf, arguments[0], arguments[1]);
  }
  const int status = save(conf);
  return found ? status : EXIT_FAILURE;
}

static void print_entries(const GConfSection* section) {
  for (const GList* node = section->entries; node != NULL; node = node->next) {
    const GConfEntry* const entry = node->data;
    printf("%s=%s\n", entry->key, entry->value);
  }
}

/* Prints the whole configuration as g_conf_sync() would write it. */
static int list(const char* file, int n, char** arguments) {
  GConf* const conf = open_conf(file, false);
  if (conf == NULL) return EXIT_FAILURE;
  int status = EXIT_SUCCESS;
  if (n == 1) {
    const GConfSection* const section = g_find_section(conf, arguments[0]);
    if (section != NULL) print_entries(section);
    if (section == NULL) status = EXIT_FAILURE;
  } else {
    for (const GList* node = conf->sections; node != NULL; node = node->next) {
      const GConfSection* const section = node->data;
      if (section->entries == NULL) continue;
      printf("[%s]\n", section->name);
      print_entries(section);
      putchar('\n');
    }
  }
  g_conf_close(conf);
  return status;
}

/* ---- lint --------------------------------------------------------------------------- */

/* A piece of the file's text. */
struct span {
  const char* begin;
  size_t size;
};

/* A section, or a key of a section, and the line where it was seen. */
struct seen {
  int line;
  char name[]; /* lower case; a key follows its section and a newline */
};

struct lint {
  const char* file;
  int line;
  int findings;
  bool out_of_memory;
  GHash* seen;          /* by name */
  struct seen* section; /* the current one; null before the first */
};

static void free_record(void* key, void* value) {
  (void)key;
  free(value);
}

G_PRINTF(2, 3) static void finding(struct lint* lint, const char* format, ...) {
  va_list arguments;
  printf("%s:%d: ", lint->file, lint->line);
  va_start(arguments, format);
  vprintf(format, arguments);
  va_end(arguments);
  putchar('\n');
  ++lint->findings;
}

static struct span between(const char* begin, const char* end) {
  const struct span span = {begin, (size_t)(end - begin)};
  return span;
}

static struct span trimmed(struct span text) {
  while (text.size > 0 && isspace((unsigned char)*text.begin)) {
    ++text.begin;
    --text.size;
  }
  while (text.size > 0 && isspace((unsigned char)text.begin[text.size - 1])) --text.size;
  return text;
}

static int shown_length(struct span text) {
  enum { LONGEST = 100 };
  return text.size < LONGEST ? (int)text.size : LONGEST;
}

static char* append_lower(char* to, struct span text) {
  for (size_t i = 0; i < text.size; ++i)
    *to++ = (char)tolower((unsigned char)text.begin[i]);
  *to = '\0';
  return to;
}

/* Returns the record of a section, or of a key in `section`; a new one gets the number of
 * the current line. Null when memory is exhausted. */
static struct seen* remember(struct lint* lint, const struct seen* section,
                             struct span text) {
  const size_t section_size = section == NULL ? 0 : strlen(section->name);
  const size_t prefix = section == NULL ? 0 : section_size + 1;
  struct seen* const added = malloc(sizeof *added + prefix + text.size + 1);
  if (added == NULL) {
    lint->out_of_memory = true;
    return NULL;
  }
  if (section != NULL) {
    memcpy(added->name, section->name, section_size);
    added->name[section_size] = '\n';
  }
  append_lower(added->name + prefix, text);
  added->line = lint->line;
  struct seen* const known = g_hash_find(lint->seen, added->name);
  if (known == NULL && g_hash_insert(lint->seen, added->name, added) == 0) return added;
  if (known == NULL) lint->out_of_memory = true;
  free(added);
  return known;
}

static void lint_header(struct lint* lint, struct span line) {
  const char* const close = memchr(line.begin, ']', line.size);
  if (close == NULL) {
    finding(lint, "section header without \"]\" is ignored");
    return;
  }
  const struct span name = between(line.begin + 1, close);
  const struct span rest = trimmed(between(close + 1, line.begin + line.size));
  if (rest.size > 0) finding(lint, "text after \"]\" is ignored");
  struct seen* const section = remember(lint, NULL, name);
  if (section == NULL) return;
  if (section->line != lint->line) {
    finding(lint, "section \"%.*s\" continues the one on line %d", shown_length(name),
            name.begin, section->line);
  }
  lint->section = section;
}

static void lint_key(struct lint* lint, struct span key) {
  struct seen* const seen = remember(lint, lint->section, key);
  if (seen == NULL || seen->line == lint->line) return;
  finding(lint, "key \"%.*s\" replaces the value on line %d", shown_length(key), key.begin,
          seen->line);
  seen->line = lint->line;
}

static const char* kind_of(struct span text) {
  return *text.begin == '['   ? "indented section header"
         : *text.begin == '#' ? "indented comment"
                              : NULL;
}

/* Only the first character of a line makes it a header or a comment. */
static void lint_line(struct lint* lint, struct span line) {
  const struct span text = trimmed(line);
  if (text.size == 0 || *line.begin == '#') return;
  if (*line.begin == '[') {
    lint_header(lint, line);
    return;
  }
  const char* const kind = kind_of(text);
  const char* const equals = memchr(text.begin, '=', text.size);
  if (kind != NULL && (lint->section == NULL || equals == NULL)) {
    finding(lint, "%s is ignored", kind);
  } else if (lint->section == NULL) {
    finding(lint, "line before the first section is ignored");
  } else if (equals == NULL) {
    finding(lint, "line without \"=\" is ignored");
  } else {
    const struct span key = trimmed(between(text.begin, equals));
    if (kind != NULL) {
      finding(lint, "%s is read as the key \"%.*s\"", kind, shown_length(key), key.begin);
    }
    lint_key(lint, key);
  }
}

static void lint_text(struct lint* lint, const char* text, size_t size) {
  const char* const end = text + strnlen(text, size);
  for (const char* line = text; !lint->out_of_memory;) {
    const char* newline = memchr(line, '\n', (size_t)(end - line));
    ++lint->line;
    lint_line(lint, between(line, newline == NULL ? end : newline));
    if (newline == NULL) break;
    line = newline + 1;
  }
  if ((size_t)(end - text) < size)
    finding(lint, "NUL byte: the rest of the file is ignored");
}

static int lint(const char* file, int n, char** arguments) {
  (void)n;
  (void)arguments;
  /* Programs could not load it, either. */
  GConf* const conf = open_conf(file, false);
  if (conf == NULL) return EXIT_FAILURE;
  g_conf_close(conf);

  int64_t size = 0;
  errno = 0;
  char* const text = g_file_read_buf(file, &size);
  struct lint lint = {.file = file};
  lint.seen = g_hash_new(64, g_hash_str, g_hash_str_equal, free_record);
  if (text != NULL && lint.seen != NULL) lint_text(&lint, text, (size_t)size);
  int status = lint.findings > 0 ? EXIT_FAILURE : EXIT_SUCCESS;
  if (text == NULL && errno != 0) {
    status = failed(file, strerror(errno));
  } else if (text == NULL || lint.seen == NULL || lint.out_of_memory) {
    status = failed(file, strerror(ENOMEM));
  }
  if (lint.seen != NULL) g_hash_free(lint.seen);
  free(text);
  return status;
}

/* ---- Command line ------------------------------------------------------------------- */

static const char usage[] =
    "Usage: gw-conf FILE get SECTION KEY [DEFAULT]\n"
    "       gw-conf [--force] FILE set SECTION KEY VALUE\n"
    "       gw-conf [--force] FILE unset SECTION [KEY]\n"
    "       gw-conf FILE list [SECTION]\n"
    "       gw-conf FILE lint\n"
    "Reads, changes and checks a configuration file.\n"
    "\n"
    "  get     print a value; if there is none, DEFAULT or nothing\n"
    "  set     store a value; creates file, section and key if necessary\n"
    "  unset   remove a key, or a section with all its keys\n"
    "  list    print all sections without comments, or the keys of one section\n"
    "  lint    report lines that are ignored, merged or cut when the file is read\n"
    "\n"
    "Comments, order and spacing of the file are kept.\n"
    "\n"
    "      --force     change the file even if another program has just changed it\n"
    "      --help      print this and exit\n"
    "      --version   print the version and exit\n"
    "\n"
    "Exit status: 0 on success; 1 on failure, if the section or key does not exist, or if\n"
    "lint found something; 2 on wrong usage.\n";

struct command {
  const char* name;
  int least, most; /* arguments */
  int (*run)(const char* file, int n, char** arguments);
};

static const struct command* find_command(const char* name) {
  static const struct command commands[] = {
      {"get", 2, 3, get},   {"set", 3, 3, set},   {"unset", 1, 2, unset},
      {"list", 0, 1, list}, {"lint", 0, 0, lint},
  };
  for (size_t i = 0; i < sizeof commands / sizeof *commands; ++i) {
    if (strcmp(commands[i].name, name) == 0) return &commands[i];
  }
  return NULL;
}

/* Output may fail as late as the flush. */
static int finish(int status) {
  if (fflush(stdout) != EOF && !ferror(stdout)) return status;
  /* The reader of the pipe has gone away: no message, even where SIGPIPE is ignored. */
  if (errno == EPIPE) return EXIT_FAILURE;
  return failed("standard output", strerror(errno));
}

static int run(int n, char** arguments) {
  if (n < 2) return usage_error("expected a file and a command%s", "");
  const struct command* const command = find_command(arguments[1]);
  if (command == NULL && find_command(arguments[0]) != NULL) {
    return usage_error("the file comes first, then '%s'", arguments[0]);
  }
  if (command == NULL && arguments[1][0] == '-') {
    return usage_error("options come before the file, '%s' too", arguments[1]);
  }
  if (command == NULL) return usage_error("unknown command '%s'", arguments[1]);
  if (n - 2 < command->least)
    return usage_error("too few arguments for '%s'", command->name);
  if (n - 2 > command->most)
    return usage_error("too many arguments for '%s'", command->name);
  return finish(command->run(arguments[0], n - 2, arguments + 2));
}

int main(int argc, char** argv) {
  enum { HELP = 256, VERSION, FORCE };
  static const struct option long_options[] = {{"force", no_argument, NULL, FORCE},
                                               {"help", no_argument, NULL, HELP},
                                               {"version", no_argument, NULL, VERSION},
                                               {NULL, 0, NULL, 0}};

  g_debug_set_handler(ignore, NULL);
  for (;;) {
    /* "+": options end at the file, so that a value may begin with "-". */
    switch (getopt_long(argc, argv, "+", long_options, NULL)) {
      case -1:
        return run(argc - optind, argv + optind);
      case FORCE:
        force = true;
        break;
      case HELP:
        fputs(usage, stdout);
        return finish(EXIT_SUCCESS);
      case VERSION:
        puts("gw-conf (groundwork) " GROUNDWORK_VERSION);
        return finish(EXIT_SUCCESS);
      default: /* getopt_long() has printed the error */
        return EXIT_USAGE;
    }
  }
}
