// Descriptors that a program's output cannot reach.
//
// In a program that closed its standard output or standard error, the next file would get
// that number, and what the program prints or logs would become the file's content.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SYS_DESCRIPTORS_H
#define GROUNDWORK_SYS_DESCRIPTORS_H

#include <dirent.h>
#include <unistd.h>

namespace groundwork {

inline bool is_output(int fd) {
  return fd == STDOUT_FILENO || fd == STDERR_FILENO;
}

// Moves a descriptor that is_output(), and closes it in any case. -1 with errno set when no
// other can be had.
int move_above_output(int fd);

// What open() gave, above standard output and standard error; -1 with errno set on failure.
// Descriptor 0 stays as it is: kept, see g_file_touch().
inline int above_output(int fd) {
  return is_output(fd) ? move_above_output(fd) : fd;
}

// opendir() with a descriptor above standard output and standard error.
DIR* open_directory(const char* path);

}  // namespace groundwork

#endif
