// What the library is built for.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CORE_BUILT_FOR_H
#define GROUNDWORK_CORE_BUILT_FOR_H

namespace groundwork {

// False for builds for size (-Os), which leave out code that only makes functions faster.
#ifdef __OPTIMIZE_SIZE__
constexpr bool kForSpeed = false;
#define IN_LINE_FOR_SPEED inline
#define FLAT_FOR_SPEED
#else
constexpr bool kForSpeed = true;
#define IN_LINE_FOR_SPEED [[gnu::always_inline]] inline
#define FLAT_FOR_SPEED [[gnu::flatten]]
#endif

}  // namespace groundwork

#endif
