# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
#
# Warnings are errors; dorvy_warnings carries them to every target of our own.

add_library(dorvy_warnings INTERFACE)
target_compile_options(dorvy_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
    $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes;-Wmissing-prototypes>
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor;-Woverloaded-virtual>)
