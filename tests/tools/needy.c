// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What needs the newer version of a library.
int provider_function(void);
__attribute__((visibility("default"))) int needy_function(void);

int needy_function(void)
{
    return provider_function();
}
