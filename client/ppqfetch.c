/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * PPQfetch: a further page.
 */
#include "ppq_p.h"

#include "libppq.h"

static const char *ppqFetchFault(int maxRows, const char *portalName, const PGresult *previous)
{
    if (portalName == NULL)
        return "portal name is a null pointer";
    if (previous == NULL || PQresultStatus(previous) != PGRES_TUPLES_OK)
        return "the previous result is not a page of rows";
    if (maxRows < 1)
        return "number of rows must be at least 1";
    return NULL;
}

/* A command tag ends a page only when the portal ran to its end. */
static bool ppqIsExhausted(const PGresult *page)
{
    return page->cmdStatus[0] != '\0';
}

/* The tag that the server gives a portal that is run again at its end: the same, of no rows. */
static void ppqZeroTag(PGresult *page)
{
    char *count = strrchr(page->cmdStatus, ' ');

    if (count != NULL)
        strlcpy(count + 1, "0", 2);
}

static size_t ppqColumnBytes(const PGresult *page)
{
    size_t bytes = (size_t)page->numAttributes * sizeof(*page->attDescs);

    for (int i = 0; i < page->numAttributes; i++)
        bytes += strlen(page->attDescs[i].name) + 1;
    return bytes;
}

/* Copies the descriptions of the columns to descs, and their names behind them. */
static void ppqCopyDescs(const PGresult *page, PGresAttDesc *descs)
{
    char *names = (char *)(descs + page->numAttributes);

    for (int i = 0; i < page->numAttributes; i++) {
        descs[i] = page->attDescs[i];
        descs[i].name = names;
        names = stpcpy(names, page->attDescs[i].name) + 1;
    }
}

/* An empty page with the columns of another: PQcopyResult, with one allocation for all of them. */
static PGresult *ppqCopyColumns(const PGresult *page)
{
    PGresult *copy = PQmakeEmptyPGresult(NULL, PGRES_TUPLES_OK);

    if (copy == NULL)
        return NULL;
    copy->attDescs = pqResultAlloc(copy, ppqColumnBytes(page), true);
    if (copy->attDescs == NULL) {
        PQclear(copy);
        return NULL;
    }
    ppqCopyDescs(page, copy->attDescs);
    copy->numAttributes = page->numAttributes;
    copy->binary = page->binary;
    copy->client_encoding = page->client_encoding;
    strlcpy(copy->cmdStatus, page->cmdStatus, sizeof(copy->cmdStatus));
    return copy;
}

/*
 * Execute alone is answered without a column description: the rows join that of page.  It is handed
 * over once the answers to what came before are in.
 */
static PGresult *ppqFetchInto(PGconn *conn, int maxRows, const char *portalName, PGresult *page)
{
    if (!ppqReserve(conn, ppqNameBytes(portalName) + PPQ_HEADER_BYTES) ||
        !ppqBeginBehindClose(conn) || !ppqEnqueue(conn, PGQUERY_EXTENDED)) {
        PQclear(page);
        return NULL;
    }
    if (!ppqPutExecute(conn, portalName, maxRows) || !ppqPutSync(conn)) {
        PQclear(page);
        ppqGiveUp(conn);
        return NULL;
    }
    return ppqFinish(conn, page);
}

PGresult *PPQfetch(PGconn *conn, int maxRows, const char *portalName, const PGresult *previous)
{
    const char *fault;
    PGresult *page;

    if (conn == NULL || !ppqCanSend(conn))
        return NULL;
    fault = ppqFetchFault(maxRows, portalName, previous);
    if (fault != NULL) {
        ppqSetError(conn, fault);
        return NULL;
    }
    page = ppqCopyColumns(previous);
    if (page == NULL) {
        ppqSetError(conn, "out of memory");
        return NULL;
    }
    if (ppqIsExhausted(previous)) {
        ppqZeroTag(page);
        return page;
    }
    return ppqFetchInto(conn, maxRows, portalName, page);
}
