/* gw-cat: writes the contents of a URL, a file or standard input to standard output or a
 * file.
 *
 * SPDX-License-Identifier: MIT
 */
#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <groundwork/url.h>
#include <inttypes.h>
#include <netdb.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

enum { EXIT_USAGE = 2 };
enum { BLOCK_SIZE = 32 * 1024 };

static const int64_t UNKNOWN = -1;

struct options {
  const char* name;   /* of the input */
  const char* output; /* null: standard output */
  int64_t offset;
  bool lines;
};

struct progress {
  bool shown;
  bool line_open; /* the cursor is at the end of a progress line */
  double start;
  double next; /* when to redraw */
};

struct copy {
  URL in;
  const char* in_name;
  int out;
  const char* out_name;
  int64_t expected; /* bytes to come, or UNKNOWN */
  bool bounded;     /* a server announced `expected`: fewer bytes are an error */
  int64_t done;
  struct progress progress;
};

/* ---- Progress ----------------------------------------------------------------------- */

static double now(void) {
  struct timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

static void format_size(char* text, size_t size, double bytes) {
  static const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  size_t unit = 0;
  while (bytes >= 1024 && unit + 1 < sizeof units / sizeof *units) {
    bytes /= 1024;
    ++unit;
  }
  snprintf(text, size, unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
}

static void format_time(char* text, size_t size, double seconds) {
  const double longest = 99 * 3600 + 59 * 60 + 59;
  const int whole = (int)(seconds < longest ? seconds + 0.5 : longest);
  if (whole >= 3600) {
    snprintf(text, size, "%d:%02d:%02d", whole / 3600, whole / 60 % 60, whole % 60);
  } else {
    snprintf(text, size, "%d:%02d", whole / 60, whole % 60);
  }
}

static int terminal_width(void) {
  struct winsize window;
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &window) == -1 || window.ws_col == 0) return 80;
  return window.ws_col;
}

/* "[=====>    ]" with room for `width` characters between the brackets. */
static void format_bar(char* text, int width, double fraction) {
  const int filled = (int)(fraction * width);
  text[0] = '[';
  memset(text + 1, '=', (size_t)filled);
  memset(text + 1 + filled, ' ', (size_t)(width - filled));
  if (filled < width) text[1 + filled] = '>';
  memcpy(text + 1 + width, "]", 2);
}

/* One line that fills the terminal's width except for the last column, so that it
 * overwrites the previous line and never wraps. */
static void draw(const struct copy* copy, double time, bool last) {
  enum { LONGEST_LINE = 500, LONGEST_BAR = 60, SHORTEST_BAR = 5 };
  const double elapsed = time - copy->progress.start;
  const double rate = elapsed > 0 ? (double)copy->done / elapsed : 0;
  const bool known = copy->expected > 0;
  char done[32], total[48] = "", speed[32], clock[32];
  format_size(done, sizeof done, (double)copy->done);
  format_size(speed, sizeof speed, rate);
  double fraction = 0;
  if (known) {
    char size[32];
    format_size(size, sizeof size, (double)copy->expected);
    snprintf(total, sizeof total, " of %s", size);
    fraction = (double)copy->done / (double)copy->expected;
    if (fraction > 1) fraction = 1; /* the file grows while it is read */
  }
  const bool left = known && !last && rate > 0;
  format_time(clock, sizeof clock,
              left ? (1 - fraction) * (double)copy->expected / rate : elapsed);

  char figures[200], bar[LONGEST_BAR + 16] = "";
  snprintf(figures, sizeof figures, "%s%s  %s/s  %s%s", done, total, speed, clock,
           left ? " left" : "");
  int width = terminal_width() - 1;
  if (width > LONGEST_LINE) width = LONGEST_LINE;
  if (known) {
    int bar_width = width - (int)strlen(figures) - (int)strlen("[] 100%  ");
    if (bar_width > LONGEST_BAR) bar_width = LONGEST_BAR;
    if (bar_width >= SHORTEST_BAR) {
      format_bar(bar, bar_width, fraction);
      sprintf(bar + strlen(bar), " %3d%%  ", (int)(fraction * 100));
    }
  }
  char line[LONGEST_LINE + 300];
  const int length = snprintf(line, sizeof line, "%s%s", bar, figures);
  fprintf(stderr, "\r%.*s%*s", width, line, length < width ? width - length : 0, "");
}

static void show_progress(struct copy* copy, bool last) {
  if (!copy->progress.shown) return;
  const double time = now();
  if (!last && time < copy->progress.next) return;
  draw(copy, time, last);
  copy->progress.line_open = true;
  copy->progress.next = time + 0.1;
}

static void end_progress(struct copy* copy) {
  if (!copy->progress.line_open) return;
  fputc('\n', stderr);
  copy->progress.line_open = false;
}

/* ---- Messages ----------------------------------------------------------------------- */

static int failed(const char* name, const char* text) {
  fprintf(stderr, "gw-cat: %s: %s\n", name, text);
  return EXIT_FAILURE;
}

static int read_failed(struct copy* copy, int32_t code) {
  end_progress(copy);
  return failed(copy->in_name, url_strerror(code));
}

/* When the reader of a pipe has gone away, as `head` does, there is no message; `cat` has
 * none, either. */
static int write_failed(struct copy* copy) {
  const int error = errno;
  end_progress(copy);
  if (error == EPIPE) return EXIT_FAILURE;
  return failed(copy->out_name, strerror(error));
}

/* ---- Copying ------------------------------------------------------------------------ */

static bool write_all(struct copy* copy, const char* bytes, size_t n) {
  while (n > 0) {
    const ssize_t written = write(copy->out, bytes, n);
    if (written == -1) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes += written;
    n -= (size_t)written;
    copy->done += written;
  }
  show_progress(copy, false);
  return true;
}

/* Called at the end of the input. */
static int finish(struct copy* copy) {
  show_progress(copy, true);
  end_progress(copy);
  if (copy->bounded && copy->done < copy->expected) {
    char text[100];
    snprintf(text, sizeof text, "ended after %" PRId64 " of %" PRId64 " bytes", copy->done,
             copy->expected);
    return failed(copy->in_name, text);
  }
  return EXIT_SUCCESS;
}

/* How many of `room` bytes to read. The stream's read limit has only 31 bits: it is lifted
 * each time, and the bound is kept here instead. */
static int32_t next_request(struct copy* copy, int32_t room) {
  url_set_readlimit(copy->in, -1);
  if (copy->bounded && copy->expected - copy->done < room) {
    return (int32_t)(copy->expected - copy->done);
  }
  return room;
}

/* Whether the connection of an HTTP stream has failed. The read returns what arrived before
 * the failure, even if that is 0 bytes, with the error in errno; the next read would just
 * report the end. */
static bool is_broken(URL in) {
  return in->type == URL_HTTP && ferror(((const URL_http*)in)->stream);
}

static int copy_blocks(struct copy* copy) {
  static char block[BLOCK_SIZE];
  for (;;) {
    const int32_t n = url_safe_read(copy->in, block, next_request(copy, BLOCK_SIZE));
    if (n < 0) return read_failed(copy, url_errno);
    const int error = is_broken(copy->in) ? errno : 0;
    if (n > 0 && !write_all(copy, block, (size_t)n)) return write_failed(copy);
    if (error != 0) return read_failed(copy, error);
    if (n == 0) return finish(copy);
  }
}

/* Byte by byte, so that no read waits for more than the line, and each line is written as
 * soon as it is complete. */
static int copy_lines(struct copy* copy) {
  static char line[BLOCK_SIZE];
  for (;;) {
    const int32_t room = next_request(copy, BLOCK_SIZE);
    int32_t n = 0;
    int32_t byte = 0;
    errno = 0;
    while (n < room && byte != '\n' && (byte = url_fgetc(copy->in)) != -1) {
      line[n++] = (char)byte;
    }
    const int error = byte == -1 ? errno : 0;
    if (n > 0 && !write_all(copy, line, (size_t)n)) return write_failed(copy);
    if (error == EINTR) continue;
    if (error != 0) return read_failed(copy, error);
    if (byte == -1 || n == 0) return finish(copy);
  }
}

/* ---- Why a server could not be read --------------------------------------------------
 *
 * The library only reports that there was no connection, or that the response was not
 * usable. Connecting once more finds out why. */

enum { CONNECT_TIMEOUT_S = 5 }; /* the library's own limit for a connection */

struct server {
  char host[256];
  char port[12];
  const char* target; /* of the request */
};

static void find_server(const char* url, struct server* server) {
  const char* const name = url + strlen("http://");
  const size_t length = strcspn(name, ":/");
  const char* const path = name + strcspn(name, "/");
  int port = name[length] == ':' ? atoi(name + length + 1) : 80;
  snprintf(server->host, sizeof server->host, "%.*s", (int)length, name);
  server->target = *path == '/' ? path : "/";
  if (url_http_proxy_host != NULL) {
    snprintf(server->host, sizeof server->host, "%s", url_http_proxy_host);
    port = url_http_proxy_port;
    server->target = url;
  }
  snprintf(server->port, sizeof server->port, "%d", port & 0xffff);
}

/* A blocking connection with a limit on each wait; -1 with errno on failure. */
static int connect_to(const struct addrinfo* address) {
  const int fd = socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd == -1) return -1;
  const struct timeval limit = {.tv_sec = CONNECT_TIMEOUT_S};
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  if (connect(fd, address->ai_addr, address->ai_addrlen) == 0) return fd;
  const int error = errno == EINPROGRESS ? ETIMEDOUT : errno;
  close(fd);
  errno = error;
  return -1;
}

/* Like the library, takes the first IPv4 address, else the first IPv6 address. Returns -1
 * on failure, with the reason in `why`. */
static int connect_again(const struct server* server, char* why, size_t size) {
  const struct addrinfo hints = {.ai_family = AF_UNSPEC, .ai_socktype = SOCK_STREAM};
  struct addrinfo* found = NULL;
  const int error = getaddrinfo(server->host, server->port, &hints, &found);
  if (error != 0) {
    snprintf(why, size, "cannot resolve '%s' (%s)", server->host, gai_strerror(error));
    return -1;
  }
  const struct addrinfo* address = found;
  while (address != NULL && address->ai_family != AF_INET) address = address->ai_next;
  const int fd = connect_to(address != NULL ? address : found);
  if (fd == -1) {
    snprintf(why, size, "no connection to %s:%s (%s)", server->host, server->port,
             strerror(errno));
  }
  freeaddrinfo(found);
  return fd;
}

/* Cuts off the line end and replaces control characters, which a terminal might interpret.
 * */
static char* clean(char* text) {
  text[strcspn(text, "\r\n")] = '\0';
  for (char* c = text; *c != '\0'; ++c) {
    if ((unsigned char)*c < ' ' || *c == 127) *c = '?';
  }
  return text + strspn(text, " ");
}

static bool is_redirection(const char* status) {
  static const char* const codes[] = {"301", "302", "303", "307", "308"};
  for (size_t i = 0; i < sizeof codes / sizeof *codes; ++i) {
    if (strncmp(status, codes[i], 3) == 0) return true;
  }
  return false;
}

/* Reads the status and headers of a response. False when they explain nothing. */
static bool explain_response(FILE* response, char* why, size_t size) {
  char status[200], line[4000];
  if (fgets(status, sizeof status, response) == NULL) return false;
  if (strncmp(status, "HTTP/1.", 7) != 0 || strlen(status) < 12) return false;
  const char* const code = clean(status + 9);
  if (strncmp(code, "200", 3) == 0 || strncmp(code, "206", 3) == 0) return false;
  snprintf(why, size, "the server returned %s", code);
  if (!is_redirection(code)) return true;
  while (fgets(line, sizeof line, response) != NULL && line[0] != '\r' && line[0] != '\n') {
    if (strncasecmp(line, "Location:", 9) != 0) continue;
    snprintf(why, size, "redirected to %s (%s), which is not followed", clean(line + 9),
             code);
    break;
  }
  return true;
}

/* Repeats a request that failed. */
static bool explain_refusal(const struct server* server, int64_t offset, char* why,
                            size_t size) {
  const int fd = connect_again(server, why, size);
  if (fd == -1) return true;
  char request[9000];
  int length = snprintf(request, sizeof request, "GET %s HTTP/1.0\r\nHost: %s\r\n",
                        server->target, server->host);
  if (url_user_agent != NULL) {
    length += snprintf(request + length, sizeof request - (size_t)length,
                       "User-Agent: %.500s\r\n", url_user_agent);
  }
  length += snprintf(request + length, sizeof request - (size_t)length,
                     offset > 0 ? "Range: bytes=%" PRId64 "-\r\n\r\n" : "\r\n", offset);
  FILE* const response = fdopen(fd, "rb");
  bool is_explained = false;
  if (response == NULL) {
    close(fd);
  } else {
    is_explained = send(fd, request, (size_t)length, MSG_NOSIGNAL) == length &&
                   explain_response(response, why, size);
    fclose(response);
  }
  return is_explained;
}

static int http_failed(const struct options* options, int32_t code, double elapsed) {
  char why[5000] = "";
  struct server server;
  find_server(options->name, &server);
  switch (code) {
    case ETIMEDOUT:
      if (elapsed < CONNECT_TIMEOUT_S - 0.5) {
        const int fd = connect_again(&server, why, sizeof why);
        if (fd != -1) close(fd);
      }
      if (why[0] != '\0') return failed(options->name, why);
      snprintf(why, sizeof why, "no connection to %s:%s within %d seconds", server.host,
               server.port, CONNECT_TIMEOUT_S);
      return failed(options->name, why);
    case ENOENT:
    case URLERR_HTTP_NOT_FOUND:
      if (explain_refusal(&server, options->offset, why, sizeof why)) {
        return failed(options->name, why);
      }
      return failed(options->name, code == ENOENT
                                       ? "the server's status was neither 200 nor 206"
                                       : "the server returned 404");
    case URLERR_CANT_OPEN:
      return failed(options->name, "the server closed the connection without a response");
    default:
      return failed(options->name, url_strerror(code));
  }
}

/* ---- Opening ------------------------------------------------------------------------ */

/* Reads and discards `offset` bytes; stops at the end of the stream. */
static void skip_by_reading(URL in, int64_t offset) {
  const int64_t longest = 1 << 30; /* well inside the read limit */
  while (offset > 0) {
    const int64_t step = offset < longest ? offset : longest;
    url_set_readlimit(in, -1);
    url_skip(in, step);
    if (in->nread < step) return;
    offset -= step;
  }
}

static void seek_file(struct copy* copy, int64_t offset) {
  const int64_t size = copy->in->seek == NULL ? -1 : url_seek(copy->in, 0, SEEK_END);
  if (size == -1 || url_seek(copy->in, offset, SEEK_SET) == -1) {
    skip_by_reading(copy->in, offset);
  } else if (size > offset) {
    copy->expected = size - offset; /* a size of 0 means nothing: devices, /proc */
  }
}

static void limit_http(struct copy* copy, int64_t offset) {
  if (copy->in->readlimit == URL_NO_READLIMIT) return;
  /* The limit includes the offset; both are cut to 32 bits. */
  copy->expected = (uint32_t)(copy->in->readlimit - (uint32_t)offset);
  copy->bounded = true;
}

/* The library prints why a connection failed; we print it, too, in a line of our own.
 * Returns a descriptor for restore_standard_error(), -1 when there is nothing to restore.
 * */
static int silence_library(void) {
  const int saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (saved != -1 && nowhere != -1) dup2(nowhere, STDERR_FILENO);
  if (nowhere != -1) close(nowhere);
  return saved;
}

static void restore_standard_error(int saved) {
  if (saved == -1) return;
  dup2(saved, STDERR_FILENO);
  close(saved);
}

static bool open_input(struct copy* copy, const struct options* options) {
  const int64_t offset = options->offset;
  const bool http = url_check_type(options->name) == URL_HTTP;
  copy->in_name = options->name;
  const double start = now();
  const int standard_error = silence_library();
  copy->in = http && offset > 0 ? url_http_open_with_offset(options->name, offset)
                                : url_open(options->name);
  restore_standard_error(standard_error);
  if (copy->in == NULL) {
    if (http) {
      http_failed(options, url_errno, now() - start);
    } else if (url_errno == URLERR_UNKNOWN_URL &&
               strncasecmp(options->name, "https://", 8) == 0) {
      failed(options->name, "https is not supported, only http");
    } else {
      failed(options->name, url_strerror(url_errno));
    }
    return false;
  }
  copy->expected = UNKNOWN;
  if (http) {
    limit_http(copy, offset);
  } else {
    seek_file(copy, offset);
  }
  return true;
}

static bool same_file(URL in, const struct stat* out) {
  struct stat stat;
  return in->type == URL_FILE && S_ISREG(out->st_mode) &&
         fstat(((const URL_file*)in)->fd, &stat) == 0 && stat.st_dev == out->st_dev &&
         stat.st_ino == out->st_ino;
}

/* Opened after the input, so that a failure there leaves the file as it was. */
static bool open_output(struct copy* copy, const char* path) {
  copy->out = STDOUT_FILENO;
  copy->out_name = "standard output";
  if (path != NULL) {
    copy->out_name = path;
    copy->out = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  }
  struct stat stat;
  if (copy->out == -1 || fstat(copy->out, &stat) == -1) {
    write_failed(copy);
    return false;
  }
  if (same_file(copy->in, &stat)) {
    failed(copy->in_name, "input file is output file");
    return false;
  }
  if (path != NULL && S_ISREG(stat.st_mode) && ftruncate(copy->out, 0) == -1) {
    write_failed(copy);
    return false;
  }
  copy->progress.shown = path != NULL && isatty(STDERR_FILENO);
  copy->progress.start = now();
  copy->progress.next = copy->progress.start;
  return true;
}

/* Closing a stream over standard input rewinds it, but others may go on reading there. */
static void close_input(URL in) {
  const bool standard_input = in->type == URL_FILE && in->seek == NULL;
  const off_t position = standard_input ? lseek(STDIN_FILENO, 0, SEEK_CUR) : -1;
  url_close(in);
  if (position != -1) lseek(STDIN_FILENO, position, SEEK_SET);
}

static int run(const struct options* options) {
  struct copy copy = {0};
  if (!open_input(&copy, options)) return EXIT_FAILURE;
  int status = EXIT_FAILURE;
  if (open_output(&copy, options->output)) {
    status = options->lines ? copy_lines(&copy) : copy_blocks(&copy);
    /* Some filesystems report a full disk only here. */
    if (close(copy.out) == -1 && status == EXIT_SUCCESS) status = write_failed(&copy);
  }
  close_input(copy.in);
  return status;
}

/* ---- Command line ------------------------------------------------------------------- */

static const char usage[] =
    "Usage: gw-cat [OPTION]... URL\n"
    "Writes the contents of a URL, a file or standard input (-) to standard output.\n"
    "\n"
    "  -o, --output FILE       write to FILE; with a progress bar on a terminal\n"
    "      --offset N          start at byte N\n"
    "      --lines             write each line as soon as it arrives\n"
    "      --proxy HOST:PORT   send HTTP requests to this proxy\n"
    "      --agent TEXT        send TEXT as the user agent in HTTP requests\n"
    "      --help              print this and exit\n"
    "      --version           print the version and exit\n"
    "\n"
    "Exit status: 0 if everything was written, 1 on failure, 2 on wrong usage.\n";

static int usage_error(const char* format, const char* text) {
  fputs("gw-cat: ", stderr);
  fprintf(stderr, format, text);
  fputs("; see gw-cat --help\n", stderr);
  return EXIT_USAGE;
}

/* Parses a decimal number from 0 to `highest`; -1 if the text is anything else. */
static int64_t parse_number(const char* text, int64_t highest) {
  char* end = NULL;
  errno = 0;
  const long long value = strtoll(text, &end, 10);
  if (*text < '0' || *text > '9' || *end != '\0' || errno != 0 || value > highest)
    return -1;
  return value;
}

/* Cuts the text at its last colon. */
static bool set_proxy(char* text) {
  char* const colon = strrchr(text, ':');
  if (colon == NULL || colon == text) return false;
  const int64_t port = parse_number(colon + 1, 65535);
  if (port < 1) return false;
  *colon = '\0';
  url_http_proxy_host = text;
  url_http_proxy_port = (uint16_t)port;
  return true;
}

static int print(const char* text) {
  if (fputs(text, stdout) == EOF || fflush(stdout) == EOF) {
    if (errno == EPIPE) return EXIT_FAILURE;
    return failed("standard output", strerror(errno));
  }
  return EXIT_SUCCESS;
}

int main(int argc, char** argv) {
  enum { OFFSET = 256, LINES, PROXY, AGENT, HELP, VERSION };
  static const struct option long_options[] = {{"output", required_argument, NULL, 'o'},
                                               {"offset", required_argument, NULL, OFFSET},
                                               {"lines", no_argument, NULL, LINES},
                                               {"proxy", required_argument, NULL, PROXY},
                                               {"agent", required_argument, NULL, AGENT},
                                               {"help", no_argument, NULL, HELP},
                                               {"version", no_argument, NULL, VERSION},
                                               {NULL, 0, NULL, 0}};
  struct options options = {0};
  int option;
  while ((option = getopt_long(argc, argv, "o:", long_options, NULL)) != -1) {
    switch (option) {
      case 'o':
        options.output = optarg;
        break;
      case OFFSET:
        options.offset = parse_number(optarg, INT64_MAX);
        if (options.offset == -1) return usage_error("'%s' is not an offset", optarg);
        break;
      case LINES:
        options.lines = true;
        break;
      case PROXY:
        if (!set_proxy(optarg)) return usage_error("'%s' is not HOST:PORT", optarg);
        break;
      case AGENT:
        url_user_agent = optarg;
        break;
      case HELP:
        return print(usage);
      case VERSION:
        return print("gw-cat (groundwork) " GROUNDWORK_VERSION "\n");
      default: /* getopt_long() has printed the error */
        return EXIT_USAGE;
    }
  }
  if (argc - optind != 1) {
    return usage_error("expected one URL%s", argc == optind ? "" : ", not several");
  }
  options.name = argv[optind];

  url_add_modules(&URL_module_file, &URL_module_http, (URL_module*)NULL);
  return run(&options);
}
