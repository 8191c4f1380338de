// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the driver makes of PostgreSQL's types, in words.
#ifndef TYPETABLE_H
#define TYPETABLE_H

#include "finding.h"

#include <QtCore/QString>

/*! What reading a column of a type gives. */
struct ReadForm
{
    bool isRead;       // or else reading ends the process
    QString value;     // the C++ type that value() holds
    QString described; // the type of the field in record()
    QString note;      // what is lost or unexpected, and the way round; empty if nothing
    QString cast;      // what to write behind the column to read it, as "::text"
};

/*! What sending a value to a parameter of a type does. */
struct SendForm
{
    Status status;
    QString note; // empty if the value is sent as it is
    QString cast; // what to write behind the placeholder, as "::text::uuid"
};

/*! \a oid is the base type's, as the server sends it for a domain too. */
ReadForm readForm(int oid);

/*! \a typeName is the type as SQL writes it. */
SendForm sendForm(int oid, const QString &typeName);

#endif // TYPETABLE_H
