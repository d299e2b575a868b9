/*
 * Callbacks: parts of a program react to what another part does, without knowing each
 * other.
 *
 *   callbacks LITRES...
 *
 * Each argument requests some litres from a pump.
 *
 * - a callback list holds the checks before a run; it stops at the first that refuses
 * - the module registry holds the functions to call for each event; the program assigns the
 *   events their numbers
 *
 * SPDX-License-Identifier: MIT
 */
#include <groundwork/groundwork.h>

#include <stdio.h>
#include <stdlib.h>

/* The numbers of the events in the registry. */
enum { PUMPED = 1, TANK_LOW = 2 };

struct pump {
  int tank;          /* litres */
  GCallback* checks; /* called with the request */
};

struct request {
  int litres;
  const char* refusal; /* set by the check that refuses */
};

/* ---- Checks: 0 accepts, anything else refuses and stops the list --------------------- */

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

/* A function may remove its own entry (the same function with the same data), but not the
 * entry after it. */
static int greet(void* arg, void* data) {
  struct pump* pump = data;

  (void)arg;
  printf("the tank holds %d litres\n", pump->tank);
  return g_callback_remove(pump->checks, greet, pump);
}

/* ---- Listeners ----------------------------------------------------------------------- */

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

/* ---- The pump, which knows none of them ---------------------------------------------- */

static void run(struct pump* pump, int litres) {
  struct request request = {litres, NULL};

  /* -1: one of them refused. */
  if (g_callback_execute(pump->checks, &request) != 0) {
    printf("refused: %s\n", request.refusal);
    return;
  }
  pump->tank -= litres;
  /* It is fine if nobody has registered. */
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

  /* Lower numbers run first, in whatever order they were added. */
  g_callback_add(pump.checks, is_in_the_tank, &pump, 20);
  g_callback_add(pump.checks, is_sensible, NULL, 10);
  g_callback_add(pump.checks, greet, &pump, 0);

  g_module_init(); /* once per process: a second call would lose the first registry */
  g_module_callback_register(PUMPED, show, &pump, 10);
  g_module_callback_register(PUMPED, add_up, &total,
                             10); /* same priority: in the order of registration */
  g_module_callback_register(TANK_LOW, call_for_water, "watchman", 10);

  for (int i = 1; i < argc; ++i) run(&pump, atoi(argv[i]));
  printf("%d litres in all\n", total);

  /* A part that ends removes its entry, which its function and data identify. */
  g_module_callback_cancel(PUMPED, show, &pump);
  g_module_cleanup();
  g_callback_free(pump.checks);
  return 0;
}
