/**
 * @file
 * Marks of the public interface.
 *
 * SPDX-License-Identifier: MIT
 */
#ifndef GROUNDWORK_EXPORT_H
#define GROUNDWORK_EXPORT_H

/** Linkage of everything that libgroundwork exports. */
#if defined(__GNUC__)
#define G_API __attribute__((visibility("default")))
/** Lets the compiler check a printf format (parameter `fmt`) against its arguments, which
 *  begin at parameter `first`; 0 for a `va_list`. */
#define G_PRINTF(fmt, first) __attribute__((format(printf, fmt, first)))
#else
#define G_API
#define G_PRINTF(fmt, first)
#endif

#endif
