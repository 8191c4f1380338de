# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
#
# What each of CPack's generators packs, and below which prefix.

if(CPACK_GENERATOR STREQUAL "DEB")
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    set(components Unspecified system debian)
else()
    set(CPACK_PACKAGING_INSTALL_PREFIX /)
    set(CPACK_PACKAGE_FILE_NAME "dorvy-${CPACK_PACKAGE_VERSION}-linux-x86_64")
    set(components Unspecified archive)
endif()

list(GET CPACK_INSTALL_CMAKE_PROJECTS 0 build)
set(CPACK_INSTALL_CMAKE_PROJECTS "")
foreach(component IN LISTS components)
    list(APPEND CPACK_INSTALL_CMAKE_PROJECTS "${build}" dorvy ${component} /)
endforeach()
