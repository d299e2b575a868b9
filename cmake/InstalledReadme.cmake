# SPDX-License-Identifier: MIT
# The README as it is installed: what it links to is installed, too. Documents are pages of the reference
# there; what stays in the sources becomes plain text.
# GROUNDWORK_REFERENCE_LINK is where the HTML reference is, as the README sees it, for packages that
# divide what is installed; empty where there is none.
if(NOT DEFINED GROUNDWORK_REFERENCE_LINK)
  set(GROUNDWORK_REFERENCE_LINK "")
  if(GROUNDWORK_DOCS)
    set(GROUNDWORK_REFERENCE_LINK html)
  endif()
endif()

file(READ README.md readme)
# "<" and ">" replace the brackets of links that stay.
if(GROUNDWORK_REFERENCE_LINK)
  string(REGEX REPLACE "\\]\\(docs/start\\.md\\)" "]<${GROUNDWORK_REFERENCE_LINK}/index.html>" readme "${readme}")
  string(REGEX REPLACE "\\]\\(docs/([a-z]+)\\.md[^)]*\\)" "]<${GROUNDWORK_REFERENCE_LINK}/\\1.html>" readme "${readme}")
  string(REGEX REPLACE "\\]\\(docs/([a-z-]+\\.svg)\\)" "]<${GROUNDWORK_REFERENCE_LINK}/\\1>" readme "${readme}")
endif()
string(REGEX REPLACE "\\]\\((examples|LICENSE|CHANGELOG\\.md|https?:[^)]*)\\)" "]<\\1>" readme "${readme}")
string(REGEX REPLACE "!?\\[([^]]*)\\]\\([^)]*\\)" "\\1" readme "${readme}")
string(REGEX REPLACE "\\]<([^>]*)>" "](\\1)" readme "${readme}")
file(WRITE "${PROJECT_BINARY_DIR}/README.md" "${readme}")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS README.md)

install(FILES "${PROJECT_BINARY_DIR}/README.md" CHANGELOG.md LICENSE
  DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT development)
