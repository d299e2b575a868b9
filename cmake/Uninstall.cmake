# SPDX-License-Identifier: MIT
# Removes the files that installations from BUILD_DIR listed, all together or by component, and
# then those folders of ours that are empty; DESTDIR as at installation.
file(GLOB manifests "${BUILD_DIR}/install_manifest*.txt")
if(NOT manifests)
  message(FATAL_ERROR "Nothing was installed from ${BUILD_DIR}")
endif()

set(folders "")
foreach(manifest IN LISTS manifests)
  file(STRINGS "${manifest}" files)
  foreach(file IN LISTS files)
    set(target "$ENV{DESTDIR}${file}")
    if(EXISTS "${target}" OR IS_SYMLINK "${target}")
      message(STATUS "Removing ${target}")
      file(REMOVE "${target}")
    endif()
    # include/groundwork, share/doc/groundwork/examples/files, ...: ours by their name.
    cmake_path(GET file PARENT_PATH folder)
    while(folder MATCHES "/groundwork(/|$)")
      list(APPEND folders "$ENV{DESTDIR}${folder}")
      cmake_path(GET folder PARENT_PATH folder)
    endwhile()
  endforeach()
endforeach()

# Inner folders first. One that holds anything else is not ours alone and stays.
list(REMOVE_DUPLICATES folders)
list(SORT folders ORDER DESCENDING)
foreach(folder IN LISTS folders)
  file(GLOB left LIST_DIRECTORIES true "${folder}/*" "${folder}/.*")
  list(FILTER left EXCLUDE REGEX "/\\.\\.?$")
  if(IS_DIRECTORY "${folder}" AND NOT left)
    message(STATUS "Removing ${folder}")
    file(REMOVE_RECURSE "${folder}")
  endif()
endforeach()
