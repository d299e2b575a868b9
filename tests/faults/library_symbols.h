// What the library under test takes from the system.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_FAULTS_LIBRARY_SYMBOLS_H
#define GROUNDWORK_TESTS_FAULTS_LIBRARY_SYMBOLS_H

#include <string>
#include <vector>

namespace faults {

// The names that the shared library leaves undefined, read from its file.
std::vector<std::string> library_imports();

}  // namespace faults

#endif
