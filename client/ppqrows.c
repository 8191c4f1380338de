/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * The rows of a page: DataRow messages become rows of the result a run at a time, where libpq
 * allocates and copies field by field.
 *
 * Source: PostgreSQL protocol 3.0, message formats (DataRow).
 */
#include "ppq_p.h"

#include <limits.h>

#include "ppqbytes_p.h"

/*
 * Whether libpq's parser would add the rows to the result that is being built.  Rows that are
 * traced, or handed out one by one, are left to it.
 */
static bool ppqIsBuilding(const PGconn *conn)
{
    return conn->result != NULL && conn->result->resultStatus == PGRES_TUPLES_OK &&
           !conn->singleRowMode && conn->Pfdebug == NULL;
}

/*
 * The end of the run of whole DataRow messages that stand next, and their number.  One that is too
 * short for its values' lengths ends it: what is reserved for the values is then no more than some
 * times what the server has sent.
 */
static int ppqRunEnd(const PGconn *conn, int *rows)
{
    const int least = PPQ_HEADER_BYTES + 2 + PPQ_LENGTH_BYTES * conn->result->numAttributes;
    int at = conn->inStart;
    int end;

    *rows = 0;
    while ((end = ppqMessageEnd(conn, at)) >= at + least && conn->inBuffer[at] == 'D') {
        at = end;
        (*rows)++;
    }
    return at;
}

/* Makes room for so many more rows, as libpq does for one. */
static bool ppqReserveRows(PGresult *result, int rows)
{
    int wanted = result->tupArrSize > 0 ? result->tupArrSize : 128;
    PGresAttValue **tuples;

    if (rows > INT_MAX / 4 - result->ntups)
        return false;
    if (result->ntups + rows <= result->tupArrSize)
        return true;
    while (wanted < result->ntups + rows)
        wanted *= 2;
    tuples = realloc(result->tuples, (size_t)wanted * sizeof(PGresAttValue *));
    if (tuples == NULL)
        return false;
    result->memorySize += (size_t)(wanted - result->tupArrSize) * sizeof(PGresAttValue *);
    result->tuples = tuples;
    result->tupArrSize = wanted;
    return true;
}

/*
 * Points the values of a row at the bytes of its message, its header left out.  False: the message
 * does not hold just the values of the result's columns.
 *
 * A value ends where the length of the next one begins, or the next message; its terminator takes
 * that byte's place once it has been read.  unended is the end of the value before, which still
 * wants its terminator, and then that of the row's last one.
 */
static bool ppqPointAtValues(PGresult *result, PGresAttValue *values, PpqBytes row, char **unended)
{
    uint16 count;

    if (!ppqReadUint16(&row, &count) || count != result->numAttributes)
        return false;
    for (int i = 0; i < count; i++) {
        uint32 length;

        if (!ppqReadUint32(&row, &length))
            return false;
        **unended = '\0';
        if ((int32)length < 0) { /* -1, but libpq takes any */
            values[i].len = NULL_LEN;
            values[i].value = result->null_field;
            continue;
        }
        values[i].len = (int)length;
        values[i].value = ppqReadBytes(&row, length);
        if (values[i].value == NULL)
            return false;
        *unended = row.at;
    }
    return row.at == row.end;
}

/*
 * Adds the rows of a run of messages, up to the first that is none, and returns the bytes that they
 * had.  The byte behind the run is free for a terminator.
 */
static size_t ppqAddRows(PGresult *result, PGresAttValue *values, PpqBytes run)
{
    const char *start = run.at;
    char *unended = run.end;
    uint32 length;

    while (ppqReadMessageLength(run, &length)) {
        const PpqBytes row = {run.at + PPQ_HEADER_BYTES, run.at + 1 + length};

        if (!ppqPointAtValues(result, values, row, &unended))
            break;
        result->tuples[result->ntups++] = values;
        values += result->numAttributes;
        run.at = row.end;
    }
    *unended = '\0';
    return (size_t)(run.at - start);
}

bool ppqTakeRows(PGconn *conn)
{
    PGresult *result = conn->result;
    size_t valueBytes;
    size_t bytes;
    char *block;
    char *run;
    int rows;

    if (!ppqIsBuilding(conn))
        return false;
    bytes = (size_t)(ppqRunEnd(conn, &rows) - conn->inStart);
    valueBytes = (size_t)rows * (size_t)result->numAttributes * sizeof(PGresAttValue);
    if (rows == 0 || !ppqReserveRows(result, rows))
        return false;
    block = pqResultAlloc(result, valueBytes + bytes + 1, true);
    if (block == NULL)
        return false;
    run = block + valueBytes;
    ppqCopyBytes(ppqReceived(conn, conn->inStart), run, bytes);
    bytes = ppqAddRows(result, (PGresAttValue *)block, (PpqBytes){run, run + bytes});
    conn->inStart += (int)bytes;
    conn->inCursor = conn->inStart;
    return bytes > 0;
}
