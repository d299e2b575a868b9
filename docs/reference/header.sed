# SPDX-License-Identifier: MIT
# "Threads:" and "Standard:" stay plain words in the headers and become headings. For sed -E.
s/^ \* (Threads|Standard): (.)/ * @par \1\n * \u\2/
