# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
#
# Sanitizers go into every object of a build tree, its test hosts included: a plugin that is
# built with one can only be loaded by a program that is, too.

if(DORVY_SANITIZE)
    add_compile_options(-fsanitize=${DORVY_SANITIZE} -fno-omit-frame-pointer
        -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${DORVY_SANITIZE})
endif()
