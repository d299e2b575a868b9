/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The library for C++17, header-only: an owner for every handle, `std::string_view` parameters,
 * results that own their text or carry an error (`std::optional`, Result), `std::chrono`
 * durations, lambdas as callbacks. Nothing here throws. Nothing costs more than the C call that it
 * wraps, except the memory of a lambda that is kept and the copy of a view that is not
 * NUL-terminated.
 *
 * The C function that a function wraps documents what it does, logs and returns on failure.
 * Objects can be moved but not copied; one that was moved from, or could not be created, converts
 * to false, and its functions then report a failed check, as the C functions do for null.
 */
#ifndef GROUNDWORK_GROUNDWORK_HPP
#define GROUNDWORK_GROUNDWORK_HPP

#if __cplusplus < 201703L
#error "groundwork.hpp needs C++17: compile with -std=c++17 or later"
#endif

#include <groundwork/groundwork.h>

#include <groundwork/cpp/conf.hpp>
#include <groundwork/cpp/containers.hpp>
#include <groundwork/cpp/crypt.hpp>
#include <groundwork/cpp/log.hpp>
#include <groundwork/cpp/mutex.hpp>
#include <groundwork/cpp/owner.hpp>
#include <groundwork/cpp/result.hpp>
#include <groundwork/cpp/safe.hpp>
#include <groundwork/cpp/system.hpp>
#include <groundwork/cpp/text.hpp>
#include <groundwork/cpp/thread.hpp>
#include <groundwork/cpp/time.hpp>
#include <groundwork/cpp/url.hpp>

#endif
