// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The parameter encoder's verdict, without its consequences.
#ifndef DORVY3ENCODER_P_H
#define DORVY3ENCODER_P_H

#include <QtCore/QByteArray>
#include <QtCore/QVariant>

class Dorvy3Connection;

enum class Dorvy3Encoding {
    Done,
    UnknownType,  // the type is not among those that the encoder knows
    NoConversion, // the value has no form in that type
    TooLarge      // its bytes do not fit into one message with those before them
};

/*!
    Writes \a value, which is not null, in PostgreSQL's binary format for type \a ptype behind the
    end of \a out, into its reserved space and without changing its size. Texts go through \a
    connection's server codec. \a length receives the number of bytes to take in.

    Source: PostgreSQL's send and receive functions of the types.
*/
Dorvy3Encoding hlpEncode(const QVariant &value, int ptype, const Dorvy3Connection &connection,
                         QByteArray &out, int *length);

#endif // DORVY3ENCODER_P_H
