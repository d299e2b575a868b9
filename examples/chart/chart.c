/*
 * Draws the CSV file of the device monitor: processor, memory and filesystem over time,
 * with a mark wherever a setting was changed.
 *
 *   chart monitor.csv > monitor.svg
 *
 * Reads a whole file, splits it into lines and the lines into fields, and keeps the samples
 * in a list.
 *
 * SPDX-License-Identifier: MIT
 */
#include <groundwork/groundwork.h>

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

enum { WIDTH = 720, HEIGHT = 240, LEFT = 44, RIGHT = 16, TOP = 36, BOTTOM = 32 };
enum { FIELDS = 7 };

struct sample {
  double time;       /* milliseconds */
  double percent[3]; /* processor, memory, filesystem; negative when unknown */
  long interval, threshold;
};

static const char* const names[3] = {"processor", "memory", "filesystem"};
static const char* const colours[3] = {"#c2410c", "#1d4ed8", "#15803d"};

/* Parses a line; null for the header and for a truncated line. */
static struct sample* parse(const char* line) {
  char** fields = g_strsplit(line, ",", FIELDS);
  struct sample* sample = NULL;
  int count = 0;

  while (fields != NULL && fields[count] != NULL) count++;
  if (count == FIELDS && fields[0][0] >= '0' && fields[0][0] <= '9' &&
      (sample = g_malloc(sizeof *sample)) != NULL) {
    double total = strtod(fields[3], NULL);
    sample->time = strtod(fields[0], NULL);
    sample->percent[0] = strtod(fields[1], NULL);
    sample->percent[1] = strtod(fields[2], NULL);
    sample->percent[2] = total > 0 ? 100 - 100 * strtod(fields[4], NULL) / total : -1;
    sample->interval = strtol(fields[5], NULL, 10);
    sample->threshold = strtol(fields[6], NULL, 10);
  }
  if (fields != NULL) g_strfreev(fields);
  return sample;
}

/* Returns the samples of a file, oldest first. */
static GList* load(const char* name) {
  int64_t length = 0;
  char* text = g_file_read_buf(name, &length); /* ends in a NUL byte */
  char** lines = text != NULL ? g_strsplit(text, "\n", 0) : NULL;
  GList* samples = NULL;
  int i;

  for (i = 0; lines != NULL && lines[i] != NULL; i++) {
    struct sample* sample = parse(lines[i]);
    if (sample != NULL) samples = g_list_prepend(samples, sample);
  }
  if (lines != NULL) g_strfreev(lines);
  free(text);
  return g_list_reverse(samples);
}

static double x_of(double time, double first, double last) {
  return LEFT +
         (WIDTH - LEFT - RIGHT) * (last > first ? (time - first) / (last - first) : 0);
}

static double y_of(double percent) {
  return TOP + (HEIGHT - TOP - BOTTOM) * (100 - percent) / 100;
}

static void draw_frame(double seconds) {
  int percent, i;

  printf(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %d\""
      " font-family=\"sans-serif\" font-size=\"12\">\n"
      "<rect width=\"%d\" height=\"%d\" fill=\"#fff\"/>\n",
      WIDTH, HEIGHT, WIDTH, HEIGHT);
  for (percent = 0; percent <= 100; percent += 25) {
    printf(
        "<path d=\"M%d,%.1f H%d\" stroke=\"#ddd\"/>"
        "<text x=\"%d\" y=\"%.1f\" text-anchor=\"end\" fill=\"#555\">%d %%</text>\n",
        LEFT, y_of(percent), WIDTH - RIGHT, LEFT - 6, y_of(percent) + 4, percent);
  }
  for (i = 0; i < 3; i++) {
    printf("<text x=\"%d\" y=\"16\" fill=\"%s\">%s</text>\n", LEFT + 100 * i, colours[i],
           names[i]);
  }
  printf("<text x=\"%d\" y=\"%d\" text-anchor=\"end\" fill=\"#555\">%.1f s</text>\n",
         WIDTH - RIGHT, HEIGHT - 10, seconds);
}

static void draw_line(GList* samples, int which, double first, double last) {
  GList* node;

  printf("<polyline fill=\"none\" stroke=\"%s\" stroke-width=\"2\" points=\"",
         colours[which]);
  for (node = samples; node != NULL; node = node->next) {
    const struct sample* sample = node->data;
    if (sample->percent[which] >= 0) {
      printf("%.1f,%.1f ", x_of(sample->time, first, last), y_of(sample->percent[which]));
    }
  }
  printf("\"/>\n");
}

static void draw_mark(double x, int row, const char* what, long value) {
  int at_the_edge = x > WIDTH - 120;

  printf(
      "<path d=\"M%.1f,%d V%d\" stroke=\"#555\" stroke-dasharray=\"4 3\"/>"
      "<text x=\"%.1f\" y=\"%d\" text-anchor=\"%s\" fill=\"#555\" stroke=\"#fff\""
      " stroke-width=\"4\" paint-order=\"stroke\">%s %ld</text>\n",
      x, TOP - 6, HEIGHT - BOTTOM, at_the_edge ? x - 4 : x + 4, TOP + 14 + 14 * row,
      at_the_edge ? "end" : "start", what, value);
}

static void draw_marks(GList* samples, double first, double last) {
  GList* node;

  for (node = samples; node->next != NULL; node = node->next) {
    const struct sample *before = node->data, *after = node->next->data;
    double x = x_of(after->time, first, last);
    if (before->interval != after->interval) draw_mark(x, 0, "interval", after->interval);
    if (before->threshold != after->threshold)
      draw_mark(x, 1, "threshold", after->threshold);
  }
}

int main(int argc, char** argv) {
  GList *samples, *node;
  double first, last;
  int i;

  g_package_set_name("chart");
  if (argc != 2) {
    fprintf(stderr, "usage: %s monitor.csv > monitor.svg\n", argv[0]);
    return 2;
  }
  samples = load(argv[1]);
  if (samples == NULL) {
    fprintf(stderr, "chart: no samples in %s\n", argv[1]);
    return 1;
  }
  first = ((const struct sample*)samples->data)->time;
  last = ((const struct sample*)g_list_last(samples)->data)->time;

  draw_frame((last - first) / 1000);
  for (i = 0; i < 3; i++) draw_line(samples, i, first, last);
  draw_marks(samples, first, last); /* last, so that no line hides their text */
  printf("</svg>\n");

  for (node = samples; node != NULL; node = node->next)
    free(node->data); /* the list does not own them */
  g_list_free(samples);
  return fflush(stdout) == 0 ? 0 : 1;
}
