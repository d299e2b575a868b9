/*
 * Callbacks: parts of a program take part in what another does, and need not know each
 * other.
 *
 *   callbacks LITRES...
 *
 * A pump is asked for some litres at a time.
 *
 * - a callback list holds the checks before it runs: the first that refuses is the last
 * that runs
 * - the module registry holds who wants to know of what, by a number that the program gives
 * out
 *
 * SPDX-License-Identifier: MIT
 */
#include <groundwork/groundwork.h>

#include <stdio.h>
#include <stdlib.h>

/* Numbers of the registry: what has happened. */
enum { PUMPED = 1, TANK_LOW = 2 };

struct pump {
  int tank;          /* litres */
  GCallback* checks; /* called with the request */
};

struct request {
  int litres;
  const char* refusal; /* set by the check that refuses */
};

/* ---- Checks: 0 agrees, anything else refuses and ends the round ---------------------- */

static int is_sensible(void* arg, void* data) {
  struct request* request = arg;

  (void)data;
  if (request->litres > 0) return 0;
  request->refusal = "not a number of litres";
  return 1;
}

static int is_in_the_tank(void* arg, void* data) {
  struct request* request = arg;
  const struct pump* pump = data;

  if (request->litres <= pump->tank) return 0;
  request->refusal = "the tank holds less";
  return 1;
}

/* A function may remove its own entry, the same function with the same data. It must leave
 * the entry after it alone. */
static int greet(void* arg, void* data) {
  struct pump* pump = data;

  (void)arg;
  printf("the tank holds %d litres\n", pump->tank);
  return g_callback_remove(pump->checks, greet, pump);
}

/* ---- Who wants to know --------------------------------------------------------------- */

static int show(void* arg, void* data) {
  const struct request* request = arg;
  const struct pump* pump = data;

  printf("pumped %d litres, %d are left\n", request->litres, pump->tank);
  return 0;
}

static int add_up(void* arg, void* data) {
  const struct request* request = arg;
  int* total = data;

  *total += request->litres;
  return 0;
}

static int call_for_water(void* arg, void* data) {
  (void)arg;
  printf("%s: bring water\n", (const char*)data);
  return 0;
}

/* ---- The pump knows none of them ----------------------------------------------------- */

static void run(struct pump* pump, int litres) {
  struct request request = {litres, NULL};

  /* -1: one of them has refused. */
  if (g_callback_execute(pump->checks, &request) != 0) {
    printf("refused: %s\n", request.refusal);
    return;
  }
  pump->tank -= litres;
  /* Nobody need have registered. */
  g_module_callback_execute(PUMPED, &request);
  if (pump->tank < 50) g_module_callback_execute(TANK_LOW, NULL);
}

int main(int argc, char** argv) {
  struct pump pump = {120, g_callback_new()};
  int total = 0;

  if (argc < 2) {
    fprintf(stderr, "usage: callbacks LITRES...\n");
    return 2;
  }
  if (pump.checks == NULL) return 1;

  /* The smaller number runs first, in whatever order they are added. */
  g_callback_add(pump.checks, is_in_the_tank, &pump, 20);
  g_callback_add(pump.checks, is_sensible, NULL, 10);
  g_callback_add(pump.checks, greet, &pump, 0);

  g_module_init(); /* once for the process: a second call would lose the first registry */
  g_module_callback_register(PUMPED, show, &pump, 10);
  g_module_callback_register(PUMPED, add_up, &total,
                             10); /* equal: in the order of registration */
  g_module_callback_register(TANK_LOW, call_for_water, "watchman", 10);

  for (int i = 1; i < argc; ++i) run(&pump, atoi(argv[i]));
  printf("%d litres in all\n", total);

  /* A part that goes takes its entry along; the function and the data say which. */
  g_module_callback_cancel(PUMPED, show, &pump);
  g_module_cleanup();
  g_callback_free(pump.checks);
  return 0;
}
