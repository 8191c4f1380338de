// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The Debian packages of the libraries that the driver needs.
#ifndef DEBIANPACKAGE_H
#define DEBIANPACKAGE_H

#include <QtCore/QString>

/*! The package of Debian 12 that has the library \a name; empty if it is none that is known. */
QString debianPackage(const QString &name);

#endif // DEBIANPACKAGE_H
