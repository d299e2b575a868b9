# SPDX-License-Identifier: MIT
# The warnings that every source of this project compiles without.
function(groundwork_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
endfunction()
