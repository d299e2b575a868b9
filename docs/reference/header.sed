# SPDX-License-Identifier: MIT
# "Threads:" and "Standard:" stay plain words in the headers and become headings. For sed -E.
s/^ \* (Threads|Standard): (.)/ * @par \1\n * \u\2/
# In ``a log line``, where Doxygen takes a "%" for a mark of its own, it is doubled.
:next
s/(``([^`%]|%%|`[^`%])*`?)%([^%`])/\1%%\3/
t next
