# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
#
# Counts for gcov: dorvy_coverage carries them to the objects of the product alone, as what the tests
# themselves run is no one's question.

add_library(dorvy_coverage INTERFACE)
if(DORVY_COVERAGE)
    # Drivers run in several threads at once.
    target_compile_options(dorvy_coverage INTERFACE --coverage -fprofile-update=atomic)
    # Whatever links a counting object needs the runtime.
    add_link_options(--coverage)
endif()
