// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Certificates for the servers, the clients and the authorities of the tests.
#ifndef CERTIFICATE_H
#define CERTIFICATE_H

#include <QtCore/QByteArray>

struct Certificate
{
    QByteArray certificate; // PEM
    QByteArray key;         // PEM
};

/*! What a certificate says: the common name, and from when to when, in seconds from now. */
struct CertificateTerms
{
    explicit CertificateTerms(const QByteArray &commonName, long from = -60, long to = 3600)
        : name(commonName)
        , fromSeconds(from)
        , toSeconds(to)
    {
    }

    QByteArray name;
    long fromSeconds;
    long toSeconds;
};

/*! A new key and a certificate of it, signed with that key; it can sign others. */
Certificate makeSelfSigned(const CertificateTerms &terms = CertificateTerms("localhost"));

/*! A new key and a certificate of it, signed by \a authority. */
Certificate makeSigned(const Certificate &authority, const CertificateTerms &terms);

#endif // CERTIFICATE_H
