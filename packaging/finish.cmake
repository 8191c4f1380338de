# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
#
# Finishes the folder that CPack is about to pack: CPack strips our own binaries, not the jemalloc that was
# built elsewhere; and Debian wants its changelog, and that and the manual compressed.

function(finish_run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(folder "${CPACK_TEMPORARY_DIRECTORY}")
file(GLOB_RECURSE libraries "${folder}/*.so.*")
foreach(library IN LISTS libraries)
    finish_run(strip --strip-unneeded "${library}")
endforeach()

set(docs "${folder}/usr/share/doc/${CPACK_DEBIAN_PACKAGE_NAME}")
if(CPACK_GENERATOR STREQUAL "DEB")
    finish_run("${CMAKE_CURRENT_LIST_DIR}/debian-changelog" ${CPACK_DEBIAN_PACKAGE_NAME}
        ${CPACK_DEBIAN_PACKAGE_RELEASE} "${CPACK_PACKAGE_CONTACT}" "${docs}/changelog"
        "${docs}/changelog.Debian")
    file(GLOB pages "${folder}/usr/share/man/man1/*.1")
    finish_run(gzip -9n "${docs}/changelog" "${docs}/changelog.Debian" ${pages})
endif()
