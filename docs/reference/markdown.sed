# SPDX-License-Identifier: MIT
# What Doxygen takes otherwise than other readers of Markdown. For sed -E.
/^<!-- SPDX/d
/^```[a-z]/,/^```$/b
# Headings of one word get that word as their name, for links to them from any document.
s/^(#+ )([A-Za-z]+)$/\1\2 {#\L\2}/
s/\([a-z]+\.md(#[a-z]+)\)/(\1)/g
# Links to what is no part of the reference become text.
s/\]\(((start|building|reliability)\.md|#[a-z]+|[a-z_]+\.html|https?:[^)]*)\)/]\x01(\1)/g
s/\[([^]]*)\]\([^)]*\)/\1/g
s/\x01//g
# It would drop a percent sign.
s/`%/`%%/g
