# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
#
# Qt 5 with the private headers of its Sql module, and where it looks for SQL drivers.

find_package(Qt5 5.7 REQUIRED COMPONENTS Core Sql)
# The variable is older than the target Qt5::SqlPrivate, which Qt 5.7 does not have.
find_path(DORVY_QSQLRESULT_P_H private/qsqlresult_p.h PATHS ${Qt5Sql_PRIVATE_INCLUDE_DIRS}
    NO_DEFAULT_PATH)
mark_as_advanced(DORVY_QSQLRESULT_P_H)
if(NOT DORVY_QSQLRESULT_P_H)
    message(FATAL_ERROR "Found Qt ${Qt5Core_VERSION} without the private headers of its Sql module; "
        "DORVY derives from QSqlDriverPrivate and QSqlResultPrivate and needs them "
        "(Debian: qtbase5-private-dev).")
endif()

add_library(dorvy_qt INTERFACE)
target_link_libraries(dorvy_qt INTERFACE Qt5::Core Qt5::Sql)
target_compile_definitions(dorvy_qt INTERFACE QT_NO_CAST_TO_ASCII QT_NO_CAST_FROM_ASCII
    QT_DISABLE_DEPRECATED_BEFORE=0x050700)

add_library(dorvy_qt_private INTERFACE)
target_link_libraries(dorvy_qt_private INTERFACE dorvy_qt)
target_include_directories(dorvy_qt_private SYSTEM INTERFACE ${Qt5Sql_PRIVATE_INCLUDE_DIRS})

# Asks Qt for one of its install locations.
function(dorvy_qt_location property result)
    get_target_property(qmake Qt5::qmake IMPORTED_LOCATION)
    execute_process(COMMAND ${qmake} -query ${property}
        OUTPUT_VARIABLE location OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE status)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "${qmake} -query ${property} failed; DORVY needs it to know where Qt "
            "looks for plugins.")
    endif()
    set(${result} "${location}" PARENT_SCOPE)
endfunction()

dorvy_qt_location(QT_INSTALL_PREFIX DORVY_QT_PREFIX)
dorvy_qt_location(QT_INSTALL_PLUGINS dorvy_qt_plugins)
dorvy_qt_location(QT_HOST_DATA dorvy_qt_data)
# Relative, so that "cmake --install --prefix DIR" moves them.
file(RELATIVE_PATH DORVY_PLUGIN_DIR "${DORVY_QT_PREFIX}" "${dorvy_qt_plugins}")
file(RELATIVE_PATH DORVY_FEATURE_DIR "${DORVY_QT_PREFIX}" "${dorvy_qt_data}/mkspecs/features")
if(CMAKE_INSTALL_PREFIX_INITIALIZED_TO_DEFAULT)
    set(CMAKE_INSTALL_PREFIX "${DORVY_QT_PREFIX}" CACHE PATH "Install prefix: Qt's own" FORCE)
endif()
