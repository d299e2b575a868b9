/*
 * Streams: reads what a URL names, with the same calls for files, standard input and HTTP.
 *
 *   urls URL...
 *
 * For example
 *
 *   urls /etc/hosts file:~/notes.txt http://192.0.2.7:8080/status - < INPUT
 *
 * counts the lines and bytes of each, and shows the longest line.
 *
 * SPDX-License-Identifier: MIT
 */
#include <groundwork/url.h>

#include <stdint.h>
#include <stdio.h>
#include <string.h>

enum { LINE_SIZE = 4096 };

struct measure {
  long lines;
  long bytes;
  char longest[61]; /* the start of the longest line */
  size_t length;    /* its full length */
};

static void measure_line(struct measure* measure, const char* line) {
  size_t length = strcspn(line, "\r\n");

  ++measure->lines;
  measure->bytes += (long)strlen(line);
  if (length <= measure->length) return;
  measure->length = length;
  snprintf(measure->longest, sizeof measure->longest, "%.*s", (int)length, line);
}

/* Lines keep their line ends, and a line longer than the buffer comes in pieces. In files a
 * carriage return ends a line as well. */
static void read_all(URL url, struct measure* measure) {
  char line[LINE_SIZE] = "";

  while (url_gets(url, line, sizeof line) != NULL) {
    measure_line(measure, line);
    /* When the input ends without a newline, one byte that the buffer held before follows
     * the text: make sure that it is a NUL. */
    memset(line, 0, sizeof line);
  }
}

/* Programs may read the record of a stream: its type is that of the module that opened it,
 * and operations that it does not support are null. */
static const char* describe(URL url) {
  if (url->type == URL_HTTP) return "HTTP";
  return url->seek != NULL ? "file" : "standard input";
}

/* Only streams that can seek can go back to the start; a connection can only move forwards.
 * */
static void print_first_bytes(URL url) {
  char begin[9] = "";
  int32_t n;

  if (url->seek == NULL || url_seek(url, 0, SEEK_SET) == -1) return;
  n = url_nread(url, begin, sizeof begin - 1); /* fewer only if the stream ends */
  if (n > 0) printf("  begins with \"%.*s\"\n", (int)strcspn(begin, "\r\n"), begin);
}

static int show(const char* name) {
  struct measure measure = {0, 0, "", 0};
  URL url = url_open(name);

  if (url == NULL) {
    /* Either an errno value or a URLERR_ code, from 10000 on. */
    fprintf(stderr, "urls: %s: %s (%d)\n", name, url_strerror(url_errno), (int)url_errno);
    return 1;
  }
  read_all(url, &measure);
  printf("%s: %s, %ld lines, %ld bytes\n", name, describe(url), measure.lines,
         measure.bytes);
  if (measure.length > 0) {
    printf("  the longest line has %lu: \"%s\"\n", (unsigned long)measure.length,
           measure.longest);
  }
  print_first_bytes(url);
  url_close(url);
  return 0;
}

int main(int argc, char** argv) {
  int status = 0;

  if (argc < 2) {
    fprintf(stderr, "usage: urls URL...\n");
    return 2;
  }

  /* Only registered modules are used: a program that must not open files leaves out that
   * module. The last one is tried first, since the file module accepts every name without a
   * scheme. */
  url_add_modules(&URL_module_file, &URL_module_http, (URL_module*)NULL);

  url_user_agent = "urls/1.0"; /* sent to servers; null sends none */

  for (int i = 1; i < argc; ++i) status |= show(argv[i]);
  return status;
}
