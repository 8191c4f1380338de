# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
#
# What is installed comes in four components. Programs and their pages have none of their own; "system" puts
# the plugin where Qt looks, below Qt's own prefix; "archive" lays the same out for a folder of its own, which
# may lie anywhere; "debian" is what Debian wants to be told. "cmake --install" takes the first two.

include(GNUInstallDirs)

set(DORVY_SYSTEM COMPONENT system)
set(DORVY_ARCHIVE COMPONENT archive EXCLUDE_FROM_ALL)
set(DORVY_DEBIAN COMPONENT debian EXCLUDE_FROM_ALL)

set(DORVY_ARCHIVE_PLUGIN_DIR plugins)
