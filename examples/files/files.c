/*
 * Files and directories: keeps two versions of a small log in a folder, examines it in
 * several ways and removes it.
 *
 *   files FOLDER
 *
 * FOLDER must not exist.
 *
 * SPDX-License-Identifier: MIT
 */
#include <groundwork/groundwork.h>

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* ---- Writing through a handle -------------------------------------------------------- */

/* Several programs may append to one file: the lock keeps their lines apart. It does not
 * wait; here, a lock held elsewhere is a failure. */
static int append(const char* name, const char* text) {
  int64_t length = (int64_t)strlen(text);
  GFile* file;
  int done;

  g_file_touch(name);          /* creates it if it does not exist */
  file = g_file_open(name, 1); /* for writing, contents kept; 2 would empty it */
  if (file == NULL) return -1; /* the reason has been logged */
  done = g_file_lock_write(file) == 0 && g_file_seek(file, 0, SEEK_END) >= 0 &&
         g_file_write(file, text, length) == length;
  g_file_unlock(file);
  g_file_close(file);
  return done ? 0 : -1;
}

/* ---- Reading ------------------------------------------------------------------------- */

/* Reads the whole file; a NUL follows, so that text can be used as a string. */
static int count_lines(const char* name) {
  int64_t length = 0;
  char* text = g_file_read_buf(name, &length);
  int lines = 0;

  if (text == NULL) return -1;
  for (const char* at = text; (at = strchr(at, '\n')) != NULL; ++at) ++lines;
  free(text);
  return lines;
}

/* A view of the file itself, without a copy in memory. Only one page: that is how much
 * g_file_unmap() unmaps, and the rest of a longer view would stay mapped. */
static void print_first_line(const char* name) {
  int64_t size = g_file_size(name);
  int64_t page = g_file_map_page_size();
  void* view = NULL;
  GFileMap* map;
  const char* end;

  if (size > page) size = page;
  map = g_file_map(name, 0, size, 0, &view);
  if (map == NULL) return;
  end = memchr(view, '\n', (size_t)size);
  printf("  begins with \"%.*s\"\n", (int)(end == NULL ? size : end - (char*)view),
         (const char*)view);
  g_file_unmap(map);
}

/* ---- Walking ------------------------------------------------------------------------- */

/* Called for each file below the folder. The walk returns the sum of the results for the
 * files directly in the folder. */
static int count_file(const char* path, const struct stat64* status, void* data) {
  int64_t* bytes = data;

  (void)status; /* the result of stat() */
  *bytes += g_file_size(path);
  return 1;
}

static void print_names(const char* folder) {
  char** names = g_dir_list(folder, 0, NULL); /* 1: directories only, 2: all others */

  for (char** name = names; name != NULL && *name != NULL; ++name) {
    printf("  %s\n", *name); /* sorted, and without "." and ".." */
  }
  if (names != NULL) g_dir_list_free(names);
}

/* A path inside the folder; the caller frees it. */
static char* inside(const char* folder, const char* name) {
  return g_strdup_printf("%s/%s", folder, name);
}

static int work(const char* folder, const char* current, const char* old) {
  int64_t bytes = 0;
  int files;

  if (append(current, "started\n") != 0 || append(current, "stopped\n") != 0) return 1;
  if (g_file_copy(current, old) != 0 || append(current, "started again\n") != 0) return 1;

  printf("%s: %d lines\n", "today.log", count_lines(current));
  print_first_line(current);
  printf("%s: %d lines\n", "old/yesterday.log", count_lines(old));

  printf("the folder holds:\n");
  print_names(folder);
  files = g_scandir(folder, count_file, &bytes);
  printf("%d file here, %" PRId64 " bytes in all\n", files, bytes);

  /* A file that already has the new name is replaced. */
  if (g_file_rename(current, old) != 0) return 1;
  printf("after renaming: %d lines, today.log %s\n", count_lines(old),
         g_file_exist(current) ? "is still there" : "is gone");
  return 0;
}

int main(int argc, char** argv) {
  char *folder, *current, *old;
  int status = 1;

  if (argc != 2 || g_file_exist(argv[1]) || g_dir_exist(argv[1])) {
    fprintf(stderr, "usage: files FOLDER, which must not exist\n");
    return 2;
  }

  /* Creates missing parents as well, but then the last component only if a "/" follows it.
   * The path must be writable memory. */
  folder = inside(argv[1], "old/");
  current = inside(argv[1], "today.log");
  old = inside(argv[1], "old/yesterday.log");
  if (folder != NULL && current != NULL && old != NULL && g_mkdir(folder) == 0) {
    status = work(argv[1], current, old);
  }

  /* With everything in it. This follows links to directories: use g_dir_remove() for
   * folders in which others can create some. */
  g_rmdir(argv[1]);
  printf("the folder %s\n", g_dir_exist(argv[1]) ? "is still there" : "is gone");
  free(folder);
  free(current);
  free(old);
  return status;
}
