// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A library whose one function belongs to a version.
__attribute__((visibility("default"))) int provider_function(void);

int provider_function(void)
{
    return 0;
}
