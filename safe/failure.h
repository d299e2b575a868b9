// Failure of a function of the safe layer.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SAFE_FAILURE_H
#define GROUNDWORK_SAFE_FAILURE_H

namespace groundwork {

// Sets errno and returns -1.
[[gnu::cold]] int fail(int error);

}  // namespace groundwork

#endif
