// Keeps files off the descriptors of standard output and standard error.
//
// In a program that closed these, the next file would get such a number, and what the
// program prints or logs would go into the file.
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

// Moves a descriptor that is_output(); closes it in any case. Returns -1 with errno set
// when there is no other.
int move_above_output(int fd);

// Returns a descriptor from open(), moved above standard output and standard error; -1 with
// errno set on failure. Kept: descriptor 0 is not moved, see g_file_touch().
inline int above_output(int fd) {
  return is_output(fd) ? move_above_output(fd) : fd;
}

// opendir() with a descriptor above standard output and standard error.
DIR* open_directory(const char* path);

}  // namespace groundwork

#endif
