/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * The one place where the extension reads bytes of the wire, always within their bounds.
 */
#ifndef PPQBYTES_P_H
#define PPQBYTES_P_H

#include "ppq_p.h"

#include <string.h>

#include "port/pg_bswap.h"

/* What is left to read: the bytes from at to end. */
typedef struct PpqBytes
{
    char *at;
    char *end;
} PpqBytes;

/* Each reads on from at; false, or NULL, where so much is not left. */

static inline bool ppqReadUint16(PpqBytes *bytes, uint16 *value)
{
    if (bytes->end - bytes->at < (ptrdiff_t)sizeof(*value))
        return false;
    memcpy(value, bytes->at, sizeof(*value));
    *value = pg_ntoh16(*value);
    bytes->at += sizeof(*value);
    return true;
}

static inline bool ppqReadUint32(PpqBytes *bytes, uint32 *value)
{
    if (bytes->end - bytes->at < (ptrdiff_t)sizeof(*value))
        return false;
    memcpy(value, bytes->at, sizeof(*value));
    *value = pg_ntoh32(*value);
    bytes->at += sizeof(*value);
    return true;
}

static inline char *ppqReadBytes(PpqBytes *bytes, size_t length)
{
    char *start = bytes->at;

    if ((size_t)(bytes->end - start) < length)
        return NULL;
    bytes->at = start + length;
    return start;
}

/* The length word of a message, which counts itself, behind the type byte that stands at at. */
static inline bool ppqReadMessageLength(PpqBytes bytes, uint32 *length)
{
    return ppqReadBytes(&bytes, 1) != NULL && ppqReadUint32(&bytes, length);
}

/* What has been received from the offset start on. */
static inline PpqBytes ppqReceived(const PGconn *conn, int start)
{
    return (PpqBytes){conn->inBuffer + start, conn->inBuffer + conn->inEnd};
}

/*
 * The end of the message that starts at the given offset of what has been received, or -1 where
 * more of it is to come.  Lengths that no message can have are left for libpq to complain about.
 */
static inline int ppqMessageEnd(const PGconn *conn, int start)
{
    uint32 length;

    if (!ppqReadMessageLength(ppqReceived(conn, start), &length) || length < PPQ_LENGTH_BYTES ||
        length >= (uint32)(conn->inEnd - start))
        return -1;
    return start + 1 + (int)length;
}

/* Copies so many bytes of those left to to. */
static inline bool ppqCopyBytes(PpqBytes bytes, char *to, size_t length)
{
    const char *start = ppqReadBytes(&bytes, length);

    if (start == NULL)
        return false;
    memcpy(to, start, length);
    return true;
}

#endif /* PPQBYTES_P_H */
