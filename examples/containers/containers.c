/*
 * Containers: counts the words of standard input, using each of the four where it fits.
 *
 *   containers < TEXT
 *
 * - a queue takes lines in at one end and returns them at the other; any number of threads
 *   could do either
 * - a hash table finds the counter of a word
 * - a ring of fixed size keeps the last three new words
 * - a list holds the counters in the order in which they are printed
 *
 * All of them hold pointers, and do not own what these point to.
 *
 * SPDX-License-Identifier: MIT
 */
#include <groundwork/groundwork.h>

#include <stdio.h>
#include <stdlib.h>

struct counter {
  char* word;
  int count;
};

/* ---- The queue: lines to be counted ------------------------------------------------- */

static void read_lines(GQueue* lines) {
  char buffer[1000];

  while (fgets(buffer, sizeof buffer, stdin) != NULL) {
    char* line = g_strdup(g_strchomp(buffer));

    if (line != NULL) g_queue_enqueue(lines, line);
  }
}

/* ---- The hash table: word to counter ------------------------------------------------ */

/* Called for each pair that is in the table when it is freed. */
static void free_counter(void* key, void* value) {
  free(key); /* the counter's word */
  free(value);
}

static struct counter* count_word(GHash* words, const char* word) {
  struct counter* counter = g_hash_find(words, word);

  if (counter == NULL) {
    counter = g_malloc0(sizeof *counter);
    if (counter == NULL) return NULL;
    counter->word = g_strdup(word);
    /* The table stores the pointer to the key: the key has to live as long as the pair. */
    if (counter->word == NULL || g_hash_insert(words, counter->word, counter) != 0) {
      free_counter(counter->word, counter);
      return NULL;
    }
  }
  ++counter->count;
  return counter;
}

/* ---- The ring: the newest words ----------------------------------------------------- */

static void keep_newest(GFifo* newest, struct counter* counter) {
  /* A full ring rejects new elements: make room first. */
  if (g_fifo_full(newest)) g_fifo_get(newest);
  g_fifo_put(newest, counter);
}

/* ---- The list: sorted by count ------------------------------------------------------ */

/* Most frequent first; equal counts in the order of first appearance. */
static GList* insert_sorted(GList* sorted, struct counter* counter) {
  int position = 0;

  for (const GList* node = sorted; node != NULL; node = node->next) {
    const struct counter* other = node->data;

    if (other->count < counter->count) break;
    ++position;
  }
  return g_list_insert_before(sorted, counter, position); /* the head may change */
}

static void print_counter(void* data, void* user_data) {
  const struct counter* counter = data;

  fprintf(user_data, "%4d %s\n", counter->count, counter->word);
}

int main(void) {
  GQueue* lines = g_queue_new(NULL, NULL);
  GHash* words = g_hash_new(64, g_hash_str, g_hash_str_equal, free_counter);
  GFifo* newest = g_fifo_new(3);
  GList* order = NULL; /* an empty list is a null pointer */
  GList* sorted = NULL;
  char* line;

  if (lines == NULL || words == NULL || newest == NULL) return 1;
  read_lines(lines);
  printf("%u lines\n", (unsigned)g_queue_count(lines));

  /* This never waits: an empty queue returns null. */
  while ((line = g_queue_dequeue(lines, NULL)) != NULL) {
    char** pieces = g_strsplit(line, " ", 0); /* two spaces make an empty piece */

    for (char** piece = pieces; piece != NULL && *piece != NULL; ++piece) {
      struct counter* counter = **piece == '\0' ? NULL : count_word(words, *piece);

      if (counter == NULL || counter->count > 1) continue;
      keep_newest(newest, counter);
      order = g_list_prepend(order, counter); /* at the front: no walk to the end */
    }
    g_strfreev(pieces);
    free(line);
  }
  printf("%u different words\n", g_hash_count(words));

  order = g_list_reverse(order);
  for (const GList* node = order; node != NULL; node = node->next) {
    sorted = insert_sorted(sorted, node->data);
  }
  g_list_foreach(sorted, print_counter, stdout);

  printf("the newest:");
  while (!g_fifo_empty(newest)) printf(" %s", ((struct counter*)g_fifo_get(newest))->word);
  printf("\n");

  g_list_free(sorted); /* only the nodes; the table owns the counters */
  g_list_free(order);
  g_fifo_free(newest);
  g_hash_free(words);
  g_queue_free(lines);
  return 0;
}
