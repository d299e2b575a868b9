/* SPDX-License-Identifier: MIT */
/*
 * Loads the library while the program runs, as a plug-in does that was linked to it, and
 * uses what a thread has of its own there. A C library may refuse a library whose
 * thread-local data must be there from the start.
 *
 *   late_load LIBRARY
 */
#include <dlfcn.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef int Encrypt(const void* input, void* output, const void* key);
typedef char* Printf(const char* fmt, ...);

static Encrypt* encrypt;
static unsigned char blocks[2][8];

static void* function(void* library, const char* name) {
  void* found = dlsym(library, name);
  if (found == NULL) fprintf(stderr, "%s\n", dlerror());
  return found;
}

static void* use_own_key(void* block) {
  encrypt("12345678", block, "abcdefgh");
  return NULL;
}

int main(int argc, char** argv) {
  void* library = argc == 2 ? dlopen(argv[1], RTLD_NOW) : NULL;
  void* symbol;
  Printf* format;
  pthread_t thread;
  char* text;

  if (library == NULL) {
    fprintf(stderr, "%s\n", argc == 2 ? dlerror() : "usage: late_load LIBRARY");
    return 1;
  }
  symbol = function(library, "g_crypt_des_encrypt");
  memcpy(&encrypt, &symbol, sizeof symbol);
  symbol = function(library, "g_strdup_printf");
  memcpy(&format, &symbol, sizeof symbol);
  if (encrypt == NULL || format == NULL) return 1;

  use_own_key(blocks[0]);
  if (pthread_create(&thread, NULL, use_own_key, blocks[1]) != 0) return 1;
  pthread_join(thread, NULL);
  if (memcmp(blocks[0], blocks[1], sizeof blocks[0]) != 0) return 1;
  text = format("%d", 5);
  if (text == NULL || strcmp(text, "5") != 0) return 1;
  free(text);
  return 0;
}
