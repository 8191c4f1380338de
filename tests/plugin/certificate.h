// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A self-signed certificate for a test's server.
#ifndef CERTIFICATE_H
#define CERTIFICATE_H

#include <QtCore/QByteArray>

struct Certificate
{
    QByteArray certificate; // PEM
    QByteArray key;         // PEM
};

/*! A new key and a certificate of it for "localhost", valid for an hour. */
Certificate makeSelfSigned();

#endif // CERTIFICATE_H
