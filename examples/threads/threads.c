/*
 * Threads and timers: a timer reads a sensor, a thread adds up the values, and a watchdog
 * checks that it does.
 *
 *   threads [VALUES]
 *
 * What runs where:
 *
 * - the timer service has one thread for all timers; it calls read_sensor() every 20 ms
 * - the adder is our own thread, which sleeps until there is something to do
 * - the watchdog is a timeout: a function that is called periodically on its own thread
 *
 * SPDX-License-Identifier: MIT
 */
#include <groundwork/groundwork.h>

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

struct plant {
  GQueue* values;        /* of int*, from the timer to the adder; thread-safe */
  GThreadEvent* arrived; /* wakes the adder */
  int wanted;            /* how many values; constant once there are threads */
  int made;              /* only the timer uses it */
  int seen;              /* only the watchdog uses it: `added` at its last call */

  GMutex* lock; /* guards what follows */
  int added;
  int sum;
};

static int count_added(struct plant* plant) {
  int added;

  g_thread_mutex_lock(plant->lock);
  added = plant->added;
  g_thread_mutex_unlock(plant->lock);
  return added;
}

/* ---- On the timer's thread ----------------------------------------------------------- */

/* Must be short: while it runs, all other timers wait. */
static uint32_t read_sensor(uint32_t interval, void* param) {
  struct plant* plant = param;
  int* value = plant->made < plant->wanted ? g_malloc(sizeof *value) : NULL;

  if (value != NULL) {
    *value = ++plant->made;
    g_queue_enqueue(plant->values, value);
  }
  /* An event remembers nothing: a signal that comes while nobody waits is lost. So this
   * goes on until the adder has everything, rather than until everything has been sent. */
  g_thread_event_signal(plant->arrived);
  return count_added(plant) < plant->wanted ? interval : 0; /* 0 ends the timer */
}

/* ---- On the adder's thread ----------------------------------------------------------- */

static void* add_up(void* arg) {
  struct plant* plant = arg;

  while (count_added(plant) < plant->wanted) {
    int* value = g_queue_dequeue(plant->values, NULL);

    if (value == NULL) {
      /* It may also return without a signal: check the queue again in any case. */
      g_thread_event_wait(plant->arrived);
      continue;
    }
    g_thread_mutex_lock(plant->lock);
    plant->sum += *value;
    ++plant->added;
    g_thread_mutex_unlock(plant->lock);
    free(value);
  }
  return NULL;
}

/* ---- On the watchdog's thread -------------------------------------------------------- */

/* The first call comes immediately. Returning 0 would end the watchdog and free it;
 * g_timeout_free() must not be called then. */
static int watch(void* data) {
  struct plant* plant = data;
  int added = count_added(plant);

  if (added == plant->seen) {
    g_log(G_LOG_WARNING, "threads", __LINE__, "stuck after %d values", added);
  }
  plant->seen = added;
  return 1;
}

int main(int argc, char** argv) {
  struct plant plant = {.wanted = argc > 1 ? atoi(argv[1]) : 10, .seen = -1};
  GThread* adder;
  GTimeout* watchdog;

  plant.values = g_queue_new(NULL, NULL);
  plant.arrived = g_thread_event_new();
  plant.lock = g_thread_mutex_new();
  if (plant.values == NULL || plant.arrived == NULL || plant.lock == NULL) return 1;

  g_start_ticks(); /* before there are threads, since it resets the clock to 0 */
  adder = g_thread_create(add_up, &plant, "adder");
  watchdog = g_timeout_new("watchdog", 5000, watch, &plant);
  if (adder == NULL || watchdog == NULL || g_timer_init() != 0) return 1;
  if (g_add_timer(20, read_sensor, &plant) == NULL) return 1;

  g_thread_wait(adder); /* until add_up() returns; frees the handle */

  /* Stop the threads before freeing what they share. */
  g_timer_cleanup();
  g_timeout_free(watchdog);
  printf("the sum of %d values is %d\n", plant.added, plant.sum);
  fprintf(stderr, "%u ms, at 20 ms for each\n", (unsigned)g_get_ticks());

  g_queue_free(plant.values);
  g_thread_event_free(plant.arrived);
  g_thread_mutex_free(plant.lock);
  return 0;
}
