# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
#
# Taking the plugin along with an application, which finds it in sqldrivers/ beside its own binary: there Qt
# looks wherever the application lies.

# dorvy_deploy_plugin(target [DESTINATION folder])
# Copies the plugin, and the jemalloc that it finds from there, beside the target when that is built, and
# installs them below folder, where the target itself is installed: CMAKE_INSTALL_BINDIR, or bin. To be called
# in the folder that the target is made in.
function(dorvy_deploy_plugin target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "DESTINATION" "")
    if(NOT arg_DESTINATION)
        set(arg_DESTINATION "${CMAKE_INSTALL_BINDIR}")
    endif()
    if(NOT arg_DESTINATION)
        set(arg_DESTINATION bin)
    endif()
    get_target_property(private_dir Dorvy::Plugin DORVY_PRIVATE_DIR)
    get_target_property(private_files Dorvy::Plugin DORVY_PRIVATE_FILES)
    dorvy_deploy_files(${target} "${arg_DESTINATION}" sqldrivers "$<TARGET_FILE:Dorvy::Plugin>")
    # A plugin that was built without a jemalloc of its own has none to take along.
    if(private_files)
        dorvy_deploy_files(${target} "${arg_DESTINATION}" ${private_dir} ${private_files})
    endif()
endfunction()

function(dorvy_deploy_files target destination folder)
    set(beside "$<TARGET_FILE_DIR:${target}>/${folder}")
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND "${CMAKE_COMMAND}" -E make_directory "${beside}"
        COMMAND "${CMAKE_COMMAND}" -E copy_if_different ${ARGN} "${beside}"
        VERBATIM)
    install(FILES ${ARGN} DESTINATION "${destination}/${folder}")
endfunction()
