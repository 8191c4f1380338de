// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Stands for the headers that the tests have in common; see CMakeLists.txt.
