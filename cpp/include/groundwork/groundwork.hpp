/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The library for C++17, header only: owners for every handle, `std::string_view` in, owned
 * texts, `std::optional` or a Result with the reason out, durations of `std::chrono`, lambdas
 * as callbacks. Nothing here throws, and nothing costs more than the C call that it stands
 * for, beyond the memory of a lambda that is kept and the copy of a view that is not
 * NUL-terminated.
 *
 * What a function does, logs and returns on failure is said at the C function of its name.
 * Objects move and do not copy; one that was moved from, or could not be made, is false, and
 * its functions then report a failed check, as the C functions do for null.
 */
#ifndef GROUNDWORK_GROUNDWORK_HPP
#define GROUNDWORK_GROUNDWORK_HPP

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
