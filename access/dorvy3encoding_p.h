// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// From a name of an encoding to Qt's text codec. Qt alone, so that a tool can say which codec a
// connection would get.
#ifndef DORVY3ENCODING_P_H
#define DORVY3ENCODING_P_H

class QTextCodec;

/*!
    The codec for PostgreSQL's \a encoding, which may be null; null if Qt has none. PostgreSQL's names
    of the Windows code pages, such as WIN1251, are also tried under Qt's, such as CP1251.

    Source: PostgreSQL documentation, Character Set Support.
*/
QTextCodec *hlpFindCodec(const char *encoding);

#endif // DORVY3ENCODING_P_H
