# SPDX-License-Identifier: MIT
# Removes the files that an installation listed; DESTDIR as at installation.
if(NOT EXISTS "${MANIFEST}")
  message(FATAL_ERROR "Nothing was installed from here: ${MANIFEST} is missing")
endif()
file(STRINGS "${MANIFEST}" files)
foreach(file IN LISTS files)
  set(target "$ENV{DESTDIR}${file}")
  if(EXISTS "${target}" OR IS_SYMLINK "${target}")
    message(STATUS "Removing ${target}")
    file(REMOVE "${target}")
  endif()
endforeach()
