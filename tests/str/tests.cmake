# SPDX-License-Identifier: MIT
groundwork_test(str/printf_test)
groundwork_test(str/string_test)
