# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
#
# The distribution's libpq 15, static and with its internal headers: the client extension works
# inside libpq's own connection structure, so the code that lays the structure out and the code
# that uses it must be of one build.

set(DORVY_PG_MAJOR 15)

find_program(DORVY_PG_CONFIG NAMES pg_config
    HINTS /usr/lib/postgresql/${DORVY_PG_MAJOR}/bin NO_CMAKE_ENVIRONMENT_PATH
    DOC "pg_config of the PostgreSQL whose static libraries are linked")
if(NOT DORVY_PG_CONFIG)
    message(FATAL_ERROR "Found no pg_config; DORVY needs libpq ${DORVY_PG_MAJOR} "
        "(Debian: libpq-dev and postgresql-server-dev-${DORVY_PG_MAJOR}).")
endif()

function(dorvy_pg_location option result)
    execute_process(COMMAND ${DORVY_PG_CONFIG} ${option}
        OUTPUT_VARIABLE location OUTPUT_STRIP_TRAILING_WHITESPACE)
    set(${result} "${location}" PARENT_SCOPE)
endfunction()

dorvy_pg_location(--includedir dorvy_pg_include)
dorvy_pg_location(--includedir-server dorvy_pg_include_server)
dorvy_pg_location(--pkglibdir dorvy_pg_pkglib)
dorvy_pg_location(--libdir dorvy_pg_lib)
dorvy_pg_location(--bindir dorvy_pg_bin)

# PostgreSQL's own programs, for the tests.
set(DORVY_PG_BINDIR "${dorvy_pg_bin}" CACHE PATH "Folder of initdb and postgres")

find_path(DORVY_LIBPQ_INCLUDE libpq-fe.h HINTS ${dorvy_pg_include} NO_DEFAULT_PATH)
find_path(DORVY_LIBPQ_INTERNAL libpq-int.h HINTS ${dorvy_pg_include}/internal NO_DEFAULT_PATH)
find_path(DORVY_PG_SERVER_INCLUDE getaddrinfo.h HINTS ${dorvy_pg_include_server} NO_DEFAULT_PATH)
# Nowhere else: an archive of another build would lay the connection structure out otherwise.
find_library(DORVY_LIBPQ_ARCHIVE libpq.a HINTS ${dorvy_pg_lib} NO_DEFAULT_PATH)
# pg_config puts these two into the folder above the one of loadable modules.
find_library(DORVY_PGCOMMON_ARCHIVE libpgcommon_shlib.a
    HINTS ${dorvy_pg_pkglib} ${dorvy_pg_pkglib}/.. ${dorvy_pg_bin}/../lib)
find_library(DORVY_PGPORT_ARCHIVE libpgport_shlib.a
    HINTS ${dorvy_pg_pkglib} ${dorvy_pg_pkglib}/.. ${dorvy_pg_bin}/../lib)

foreach(part IN ITEMS LIBPQ_INCLUDE LIBPQ_INTERNAL PG_SERVER_INCLUDE LIBPQ_ARCHIVE
        PGCOMMON_ARCHIVE PGPORT_ARCHIVE)
    if(NOT DORVY_${part})
        message(FATAL_ERROR "Found ${DORVY_PG_CONFIG}, but not ${part}; DORVY needs the static "
            "libpq ${DORVY_PG_MAJOR} with its internal headers "
            "(Debian: libpq-dev and postgresql-server-dev-${DORVY_PG_MAJOR}).")
    endif()
    mark_as_advanced(DORVY_${part})
endforeach()

# Both header sets must be of the one major version: libpq-dev and postgresql-server-dev are
# separate packages and can differ.
function(dorvy_require_major what directory)
    if(NOT EXISTS "${directory}/pg_config.h")
        message(FATAL_ERROR "Found no pg_config.h in ${directory}; DORVY needs ${what} "
            "${DORVY_PG_MAJOR}.")
    endif()
    file(STRINGS "${directory}/pg_config.h" line REGEX "#define PG_MAJORVERSION_NUM ")
    string(REGEX REPLACE ".*PG_MAJORVERSION_NUM +([0-9]+).*" "\\1" major "${line}")
    if(NOT major STREQUAL DORVY_PG_MAJOR)
        message(FATAL_ERROR "Found ${what} ${major} in ${directory}; DORVY needs ${what} "
            "${DORVY_PG_MAJOR}, because it extends that version's private connection structure.")
    endif()
endfunction()
dorvy_require_major(libpq "${DORVY_LIBPQ_INCLUDE}")
dorvy_require_major("the PostgreSQL server headers" "${DORVY_PG_SERVER_INCLUDE}")

# The archive's version, as 15.3: it comes with the public header.
file(STRINGS "${DORVY_LIBPQ_INCLUDE}/pg_config.h" dorvy_pg_version REGEX "#define PG_VERSION ")
string(REGEX REPLACE ".*\"([0-9.]+).*" "\\1" DORVY_LIBPQ_VERSION "${dorvy_pg_version}")

find_package(OpenSSL REQUIRED)
find_library(DORVY_GSSAPI_LIBRARY gssapi_krb5 REQUIRED)
find_library(DORVY_LDAP_LIBRARY ldap REQUIRED)
find_package(Threads REQUIRED)
mark_as_advanced(DORVY_GSSAPI_LIBRARY DORVY_LDAP_LIBRARY)

# What everyone above the client extension sees of libpq: its public header and its code.
add_library(dorvy_libpq INTERFACE)
target_include_directories(dorvy_libpq SYSTEM INTERFACE ${DORVY_LIBPQ_INCLUDE})
target_link_libraries(dorvy_libpq INTERFACE
    ${DORVY_LIBPQ_ARCHIVE} ${DORVY_PGCOMMON_ARCHIVE} ${DORVY_PGPORT_ARCHIVE}
    OpenSSL::SSL OpenSSL::Crypto ${DORVY_GSSAPI_LIBRARY} ${DORVY_LDAP_LIBRARY} Threads::Threads m)

# The internal header, for client/ alone.
add_library(dorvy_libpq_internal INTERFACE)
target_include_directories(dorvy_libpq_internal SYSTEM INTERFACE
    ${DORVY_LIBPQ_INTERNAL} ${DORVY_LIBPQ_INCLUDE} ${DORVY_PG_SERVER_INCLUDE})
target_link_libraries(dorvy_libpq_internal INTERFACE dorvy_libpq)
