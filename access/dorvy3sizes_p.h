// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// How large texts, values and messages can become.
#ifndef DORVY3SIZES_P_H
#define DORVY3SIZES_P_H

/*!
    The most bytes of a message, its length word included, that a server reads. It answers a larger
    one by hanging up.

    Source: PostgreSQL, PQ_LARGE_MESSAGE_LIMIT.
*/
constexpr int MaxMessageBytes = 0x3ffffffe;

/*!
    The most UTF-16 units that Qt can be given to encode in UTF-8, and in anything else. Its codecs
    take a number of bytes for each unit and compute that in an int: for UTF-8 three, which overflows
    from 715827883 units on, for an encoding that ICU converts as many as eight.
*/
constexpr int MaxUtf8Units = 700000000;
constexpr int MaxEncodedUnits = 250000000;

/*! The most bytes that Qt can be given to decode: a QString has room for one unit more. */
constexpr int MaxDecodedBytes = 1073741809;

#endif // DORVY3SIZES_P_H
