/*
 * A device monitor: a complete application of the kind that this library is for.
 *
 *   monitor [--for SECONDS]
 *
 * It opens ./monitor.conf (or /etc/monitor.conf), samples CPU, memory and filesystem on a
 * timer, and passes the samples through a queue to a writer thread that appends them to a
 * CSV file. Settings can be changed while it runs, by lines on standard input such as
 *
 *   interval 200
 *   path /var
 *   threshold 75
 *
 * They take effect through callbacks, as does an edited monitor.conf after SIGHUP. Comments
 * in that file are kept. `touch /tmp/vk_warning` before the start shows warnings. SIGINT,
 * SIGTERM or the end of --for stops it cleanly: every sample is in the CSV file, and the
 * counters in monitor.conf are up to date. The example "chart" draws the CSV file.
 *
 * SPDX-License-Identifier: MIT
 */
#define _POSIX_C_SOURCE 200809L
#define _FILE_OFFSET_BITS 64
#define _TIME_BITS 64 /* for times after January 2038 */

#include <groundwork/groundwork.h>
#include <groundwork/safe.h>

#include <errno.h>
#include <inttypes.h>
#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#define SECTION "monitor"

struct sample {
  int64_t time; /* milliseconds since 1970 */
  int cpu;      /* percent, since the previous sample; -1 when unknown */
  int memory;   /* percent; -1 when unknown */
  uint32_t total_kb;
  uint32_t avail_kb;
  uint32_t interval; /* the settings at that time */
  int threshold;
};

struct monitor {
  GConf* conf;
  GQueue* samples;    /* struct sample*, from the timer to the writer */
  GThreadEvent* news; /* signalled after each sample, and when no more will follow */
  GMutex* lock;       /* guards the four fields below */
  uint32_t interval;
  char* path;
  int threshold;
  int finished; /* no sample will follow */

  GFile* csv;
  int written; /* samples in the CSV file; only the writer uses it, until it has ended */
  int failed;  /* the CSV file could not be written */
  int live;    /* standard output is a terminal */
  int warned;  /* only the timer uses it: the threshold is currently exceeded */
  unsigned long long busy, total; /* only the timer: the counters at the last sample */
};

static volatile sig_atomic_t stop_requested, reload_requested;

static void request_stop(int signal_number) {
  (void)signal_number;
  stop_requested = 1;
}

static void request_reload(int signal_number) {
  (void)signal_number;
  reload_requested = 1;
}

/* signal() may handle only the first one, depending on the macros above. */
static void handle(int signal_number, void (*handler)(int)) {
  struct sigaction action;

  memset(&action, 0, sizeof action);
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigaction(signal_number, &action, NULL);
}

static uint32_t read_interval(GConf* conf) {
  int interval = g_conf_read_int(conf, SECTION, "interval", 1000);
  return interval < 10 ? 10 : (uint32_t)interval;
}

static int read_threshold(GConf* conf) {
  return g_conf_read_int(conf, SECTION, "threshold", 90);
}

static char* read_path(GConf* conf) {
  return g_strdup(g_conf_read_string(conf, SECTION, "path", "/"));
}

/* Registered for all three settings. Runs on the thread that wrote one or reloaded the
 * file, before that call returns. For a setting that is no longer in the file, the value is
 * "". */
static int on_setting(const GConfChange* change, void* data) {
  struct monitor* monitor = data;

  g_log(G_LOG_INFORMATION, "monitor", __LINE__, "%s is now %s", change->key, change->value);
  g_thread_mutex_lock(monitor->lock);
  if (strcmp(change->key, "interval") == 0) {
    monitor->interval = read_interval(monitor->conf);
  } else if (strcmp(change->key, "threshold") == 0) {
    monitor->threshold = read_threshold(monitor->conf);
  } else {
    char* path = read_path(monitor->conf);
    if (path != NULL) {
      free(monitor->path);
      monitor->path = path;
    }
  }
  g_thread_mutex_unlock(monitor->lock);
  return 0; /* further callbacks of this key may run */
}

/* Reads the beginning of a file of the kernel. These report a size of 0, so
 * g_file_read_buf(), which asks for the size, is of no use here. */
static int read_beginning(const char* name, char* text, size_t size) {
  GFile* file = g_file_open(name, 0);
  int64_t length = file != NULL ? g_file_read(file, text, (int64_t)size - 1) : -1;

  if (file != NULL) g_file_close(file);
  text[length > 0 ? length : 0] = '\0';
  return length > 0;
}

/* The processor load since the last sample, in percent. g_sys_cpu_load() is the average
 * since boot, which hardly moves after a day. */
static int cpu_load(struct monitor* monitor) {
  unsigned long long busy = 0, total = 0, passed;
  char text[1024];
  char* at = text;
  int field, load = -1;

  if (!read_beginning("/proc/stat", text, sizeof text) || strncmp(text, "cpu ", 4) != 0)
    return -1;
  at += 4;
  /* user nice system idle iowait irq softirq steal; the fourth and fifth are idle time. */
  for (field = 1; field <= 8; field++) {
    unsigned long long ticks = strtoull(at, &at, 10);
    total += ticks;
    if (field != 4 && field != 5) busy += ticks;
  }
  passed = total - monitor->total;
  if (monitor->total != 0 && total > monitor->total && busy >= monitor->busy) {
    load = (int)((busy - monitor->busy) * 100 / passed);
  }
  monitor->busy = busy;
  monitor->total = total;
  return load;
}

/* Memory that is not available to new programs, in percent. g_sys_mem_use() reads the
 * format of kernels before 3.14, and returns 100 with today's. */
static int memory_use(void) {
  static const char total_name[] = "MemTotal:", available_name[] = "MemAvailable:";
  char text[1024];
  const char *total, *available;
  unsigned long long all;

  if (!read_beginning("/proc/meminfo", text, sizeof text)) return -1;
  total = strstr(text, total_name);
  available = strstr(text, available_name);
  if (total == NULL || available == NULL) return -1;
  all = strtoull(total + sizeof total_name - 1, NULL, 10);
  if (all == 0) return -1;
  return (int)(100 - strtoull(available + sizeof available_name - 1, NULL, 10) * 100 / all);
}

static int64_t milliseconds_since_1970(void) {
  struct timespec now;

  clock_gettime(CLOCK_REALTIME, &now);
  return (int64_t)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

static void check_threshold(struct monitor* monitor, const struct sample* sample,
                            const char* path, int threshold) {
  int used = sample->total_kb == 0
                 ? 0
                 : (int)(100 - (uint64_t)sample->avail_kb * 100 / sample->total_kb);
  int passed = used >= threshold;

  if (passed && !monitor->warned) {
    g_log(G_LOG_WARNING, "monitor", __LINE__, "%s is %d%% full, the threshold is %d%%",
          path, used, threshold);
  }
  monitor->warned = passed;
}

/* Runs on the timer thread; returns the next interval. */
static uint32_t on_timer(uint32_t interval, void* param) {
  struct monitor* monitor = param;
  struct sample* sample = g_malloc0(sizeof *sample);
  char* path;
  int threshold;

  if (sample == NULL) return interval; /* logged; try again next time */

  g_thread_mutex_lock(monitor->lock);
  path = g_strdup(monitor->path);
  threshold = monitor->threshold;
  interval = monitor->interval;
  g_thread_mutex_unlock(monitor->lock);

  sample->time = milliseconds_since_1970();
  sample->cpu = cpu_load(monitor);
  sample->memory = memory_use();
  sample->interval = interval;
  sample->threshold = threshold;
  if (path != NULL &&
      g_sys_get_filesystem_usage(path, &sample->total_kb, &sample->avail_kb) == 0) {
    check_threshold(monitor, sample, path, threshold);
  }
  free(path);

  if (monitor->live) {
    printf("\rcpu %3d%%  memory %3d%%  free %" PRIu32 " of %" PRIu32 " KiB\033[K",
           sample->cpu, sample->memory, sample->avail_kb, sample->total_kb);
    fflush(stdout);
  }
  g_queue_enqueue(monitor->samples, sample);
  g_thread_event_signal(monitor->news);
  return interval;
}

static int write_text(GFile* file, const char* text) {
  return g_file_write(file, text, (int64_t)strlen(text)) == (int64_t)strlen(text);
}

static void write_sample(struct monitor* monitor, const struct sample* sample) {
  char* line = g_strdup_printf("%lld,%d,%d,%u,%u,%u,%d\n", (long long)sample->time,
                               sample->cpu, sample->memory, sample->total_kb,
                               sample->avail_kb, sample->interval, sample->threshold);
  int ok = line != NULL && write_text(monitor->csv, line);

  monitor->written += ok;
  monitor->failed |= !ok;
  free(line);
}

/* The writer thread. Queues do not block, so it waits for the event. */
static void* run_writer(void* arg) {
  struct monitor* monitor = arg;
  int finished = 0;

  while (!finished) {
    struct sample* sample;
    /* The ticket comes first: a signal from now on ends the wait below. */
    uint32_t ticket = g_thread_event_ticket(monitor->news);
    /* Read before the queue is emptied, so that samples before the end are all written. */
    g_thread_mutex_lock(monitor->lock);
    finished = monitor->finished;
    g_thread_mutex_unlock(monitor->lock);
    while ((sample = g_queue_dequeue(monitor->samples, NULL)) != NULL) {
      write_sample(monitor, sample);
      free(sample);
    }
    if (!finished) g_thread_event_wait_for(monitor->news, ticket, -1);
  }
  return NULL;
}

/* Opens the CSV file for appending; a new one starts with a header line. */
static GFile* open_csv(const char* name) {
  static const char header[] =
      "time_ms,cpu_percent,memory_percent,total_kb,avail_kb,interval_ms,threshold_"
      "percent\n";
  int exists = g_file_exist(name);
  GFile* file = g_file_open(name, exists ? 1 : 2);

  if (file != NULL && exists) g_file_seek(file, 0, SEEK_END);
  if (file != NULL && !exists) write_text(file, header);
  return file;
}

/* Saves the changes. If somebody has edited the file meanwhile, the edit wins. */
static int save(GConf* conf) {
  if (g_conf_save(conf, 0) != -1) return 0;
  g_log(G_LOG_WARNING, "monitor", __LINE__, "can't save '%s' - %s", conf->filename,
        strerror(errno));
  conf->dirty = 0; /* or closing would overwrite the file */
  return -1;
}

/* Merges the edited file. If it is missing or unchanged, nothing changes. */
static void reload(GConf* conf) {
  int changes = g_conf_reload(conf);

  if (changes == -1) {
    g_log(G_LOG_WARNING, "monitor", __LINE__, "can't reload '%s' - %s", conf->filename,
          strerror(errno));
  } else {
    g_log(G_LOG_INFORMATION, "monitor", __LINE__, "%d settings have changed", changes);
  }
}

/* Handles "key value" by a write to the configuration, so that the callbacks run. */
static void obey(struct monitor* monitor, char* line) {
  char** words = g_strsplit(g_strchomp(g_strchug(line)), " ", 2);

  if (words != NULL && words[0] != NULL && words[1] != NULL &&
      (strcmp(words[0], "interval") == 0 || strcmp(words[0], "path") == 0 ||
       strcmp(words[0], "threshold") == 0)) {
    g_conf_write_string(monitor->conf, SECTION, words[0], g_strchug(words[1]));
    save(monitor->conf);
  } else if (line[0] != '\0') {
    fprintf(stderr, "monitor: expected \"interval|path|threshold VALUE\", not \"%s\"\n",
            line);
  }
  if (words != NULL) g_strfreev(words);
}

/* Handles lines from standard input until a signal, or until `seconds` have passed
 * (negative: never). It goes on after the end of the input. */
static void run(struct monitor* monitor, int seconds) {
  struct pollfd input = {STDIN_FILENO, POLLIN, 0};
  uint32_t start = g_get_ticks();
  char line[512];
  size_t length = 0;

  while (!stop_requested &&
         (seconds < 0 || g_get_ticks() - start < (uint32_t)seconds * 1000)) {
    char byte;
    if (reload_requested) {
      reload_requested = 0;
      reload(monitor->conf);
    }
    /* poll() ignores a negative descriptor and just waits. */
    if (poll(&input, 1, 100) <= 0) continue;
    if (read(STDIN_FILENO, &byte, 1) != 1) {
      input.fd = -1;
    } else if (byte == '\n') {
      line[length] = '\0';
      obey(monitor, line);
      length = 0;
    } else if (length + 1 < sizeof line) {
      line[length++] = byte;
    }
  }
}

/* Reads the settings, registers for changes and opens the CSV file; 0 on success. */
static int set_up(struct monitor* monitor) {
  static const char* const followed[] = {"interval", "path", "threshold"};
  size_t i;

  monitor->conf = g_conf_open(NULL);
  if (monitor->conf == NULL) return -1;
  monitor->interval = read_interval(monitor->conf);
  monitor->threshold = read_threshold(monitor->conf);
  monitor->path = read_path(monitor->conf);
  for (i = 0; i < sizeof followed / sizeof followed[0]; i++) {
    if (g_conf_register_callback(monitor->conf, SECTION, followed[i], on_setting,
                                 monitor) != 0)
      return -1;
  }
  monitor->csv = open_csv(g_conf_read_string(monitor->conf, SECTION, "csv", "monitor.csv"));
  monitor->samples = g_queue_new(NULL, NULL);
  monitor->news = g_thread_event_new();
  monitor->lock = g_thread_mutex_new();
  monitor->live = isatty(STDOUT_FILENO);
  cpu_load(monitor); /* so that the first sample has something to compare with */
  return monitor->path != NULL && monitor->csv != NULL && monitor->samples != NULL &&
                 monitor->news != NULL && monitor->lock != NULL
             ? 0
             : -1;
}

static void count(GConf* conf, const char* key, int by) {
  g_conf_write_int(conf, "counters", key, g_conf_read_int(conf, "counters", key, 0) + by);
}

static void tear_down(struct monitor* monitor) {
  if (monitor->csv != NULL) g_file_close(monitor->csv);
  if (monitor->samples != NULL) g_queue_free(monitor->samples);
  if (monitor->news != NULL) g_thread_event_free(monitor->news);
  if (monitor->lock != NULL) g_thread_mutex_free(monitor->lock);
  if (monitor->conf != NULL) g_conf_close(monitor->conf);
  free(monitor->path);
}

int main(int argc, char** argv) {
  static struct monitor monitor; /* all zero */
  GThread* writer = NULL;
  int seconds = -1;

  if (argc == 3 && strcmp(argv[1], "--for") == 0) {
    seconds = atoi(argv[2]);
  } else if (argc != 1) {
    fprintf(stderr, "usage: %s [--for SECONDS]\n", argv[0]);
    return 2;
  }

  g_package_set_name("monitor");
  g_debug_init();
  handle(SIGINT, request_stop);
  handle(SIGTERM, request_stop);
  handle(SIGHUP, request_reload);

  g_start_ticks();
  g_get_ticks(); /* the first reading sets the base of the clock */
  if (set_up(&monitor) != 0 || g_timer_init() != 0 ||
      (writer = g_thread_create(run_writer, &monitor, "writer")) == NULL ||
      g_add_timer((int)monitor.interval, on_timer, &monitor) == NULL) {
    monitor.failed = 1;
  } else {
    run(&monitor, seconds);
  }

  /* Stop in the order of the data flow: timer, writer, then the counters. */
  g_timer_cleanup();
  if (writer != NULL) {
    g_thread_mutex_lock(monitor.lock);
    monitor.finished = 1;
    g_thread_mutex_unlock(monitor.lock);
    g_thread_event_signal(monitor.news);
    g_thread_wait(writer);
    reload(monitor.conf); /* adds to the counters now in the file */
    count(monitor.conf, "runs", 1);
    count(monitor.conf, "samples", monitor.written);
    if (save(monitor.conf) != 0) monitor.failed = 1;
  }
  if (monitor.live) putchar('\n');
  tear_down(&monitor);
  if (monitor.failed) fputs("monitor: could not do all of its work\n", stderr);
  return monitor.failed;
}
