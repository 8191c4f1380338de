# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
#
# jemalloc, which the plugin is linked against (see docs/architecture.md, Allocator).

set(DORVY_JEMALLOC bundled CACHE STRING
    "jemalloc: bundled (built by scripts/setup), system (Debian's libjemalloc2) or off")
set_property(CACHE DORVY_JEMALLOC PROPERTY STRINGS bundled system off)
set(DORVY_JEMALLOC_DIR "${CMAKE_CURRENT_SOURCE_DIR}/.deps/jemalloc" CACHE PATH
    "Where scripts/setup puts the bundled jemalloc")

# Not in sqldrivers/: Qt tries to load every file there as a plugin.
set(DORVY_PRIVATE_DIR dorvy)

if(DORVY_JEMALLOC STREQUAL "bundled")
    set(DORVY_JEMALLOC_FILE "${DORVY_JEMALLOC_DIR}/lib/libjemalloc.so.2")
    if(NOT EXISTS "${DORVY_JEMALLOC_FILE}")
        message(FATAL_ERROR "Found no ${DORVY_JEMALLOC_FILE}; run scripts/setup, which builds it, "
            "or choose DORVY_JEMALLOC=system or off.")
    endif()
elseif(DORVY_JEMALLOC STREQUAL "system")
    find_library(DORVY_JEMALLOC_FILE NAMES jemalloc libjemalloc.so.2)
    if(NOT DORVY_JEMALLOC_FILE)
        message(FATAL_ERROR "Found no jemalloc of the system; DORVY_JEMALLOC=system needs one "
            "(Debian: libjemalloc2).")
    endif()
    message(WARNING "DORVY_JEMALLOC=system: Debian's jemalloc uses initial-exec thread-local "
        "storage, so the plugin loads only into a process that already has it: link the "
        "application against libjemalloc.so.2 or start it with LD_PRELOAD=libjemalloc.so.2.")
elseif(NOT DORVY_JEMALLOC STREQUAL "off")
    message(FATAL_ERROR "DORVY_JEMALLOC is \"${DORVY_JEMALLOC}\"; it must be bundled, system or off.")
endif()

# Links target against jemalloc, kept in its list of needed libraries although the C library
# would satisfy the same symbols.
function(dorvy_link_jemalloc target)
    if(DORVY_JEMALLOC STREQUAL "off")
        return()
    endif()
    target_link_libraries(${target} PRIVATE
        -Wl,--push-state,--no-as-needed ${DORVY_JEMALLOC_FILE} -Wl,--pop-state)
endfunction()
