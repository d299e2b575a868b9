/* SPDX-License-Identifier: MIT */
/**
 * @defgroup export Marks of the interface
 * @ingroup core
 *
 * Marks of the public interface: nothing that a program needs itself.
 *
 * @{
 */
#ifndef GROUNDWORK_EXPORT_H
#define GROUNDWORK_EXPORT_H

/* The definition of G_API is also in url.h, word for word, which a compiler accepts. */
#if defined(__GNUC__)
/** Linkage of everything that libgroundwork exports. */
#define G_API __attribute__((visibility("default")))
/** Lets the compiler check a printf format (parameter `fmt`) against its arguments, which
 *  begin at parameter `first`; 0 for a `va_list`. */
#define G_PRINTF(fmt, first) __attribute__((format(printf, fmt, first)))
#else
#define G_API
#define G_PRINTF(fmt, first)
#endif

/** @} */

#endif
