# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
#
# The version, which stands in project() and nowhere else: dorvy_version gives it to programs as the
# text DORVY_VERSION.

add_library(dorvy_version INTERFACE)
target_compile_definitions(dorvy_version INTERFACE DORVY_VERSION="${PROJECT_VERSION}")
