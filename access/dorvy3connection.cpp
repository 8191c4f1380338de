// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Connection: one libpq connection with its text codecs and transaction commands.
#include "access/dorvy3connection.h"

#include "access/dorvy3codec_p.h"
#include "access/dorvy3pgowners_p.h"
#include "access/dorvy3sizes_p.h"
#include "access/dorvy3texts_p.h"
#include "client/ppqcall.h"
#include "client/ppqsettle.h"

#include <QtCore/QTextCodec>

#include <cstring>
#include <new>

using namespace Dorvy3Texts;

namespace {

// From UTF-8 Qt converts faster without a codec in between, and to the same texts: see
// tst_dorvy3connection_utf8.
// To UTF-8 it does not: half a surrogate pair becomes a question mark.
bool hlpIsUtf8(const QTextCodec *codec)
{
    constexpr int Utf8 = 106; // IANA, Character Sets (MIBenum)
    static const QTextCodec *const utf8 = QTextCodec::codecForMib(Utf8);
    return codec && codec == utf8;
}

QString hlpFromUtf8(const char *bytes, size_t length)
{
    if (length > static_cast<size_t>(MaxDecodedBytes)) {
        throw std::bad_alloc(); // as the codec does; Qt itself would give an empty text
    }
    return QString::fromUtf8(bytes, static_cast<int>(length));
}

} // namespace

Dorvy3Connection::Dorvy3Connection(PGconn *connection, const QString &searchPath)
    : handle(connection)
    , serverCodec(nullptr)
    , clientCodec(nullptr)
{
    if (handle) {
        hlpSetUp();
        setSearchPath(searchPath);
    }
}

Dorvy3Connection::~Dorvy3Connection()
{
    close();
}

void Dorvy3Connection::hlpSetUp()
{
    const Dorvy3Codecs codecs = hlpCodecs(handle, QTextCodec::codecForLocale());
    serverCodec = codecs.server;
    clientCodec = codecs.client;
    // A failed SET leaves the server's setting in force.
    exec("SET DATESTYLE TO 'ISO'");
}

void Dorvy3Connection::setSearchPath(const QString &searchPath)
{
    if (searchPath.isEmpty()) {
        return;
    }
    exec(server(QStringLiteral("SET SEARCH_PATH TO ") + searchPath).constData());
}

PGconn *Dorvy3Connection::connection()
{
    return handle;
}

bool Dorvy3Connection::isOpen() const
{
    return handle != nullptr;
}

bool Dorvy3Connection::isValid() const
{
    return handle && PQstatus(handle) == CONNECTION_OK;
}

bool Dorvy3Connection::isAlive()
{
    if (isValid()) {
        // The verdict is the connection's status. Twice, as a server that goes says why before it
        // hangs up, and one read takes in either.
        PQconsumeInput(handle);
        PQconsumeInput(handle);
    }
    return isValid();
}

void Dorvy3Connection::close()
{
    if (!handle) {
        return;
    }
    PQfinish(handle);
    handle = nullptr;
}

QByteArray Dorvy3Connection::server(const QString &text) const
{
    return serverCodec ? serverCodec->fromUnicode(text) : text.toLatin1();
}

int Dorvy3Connection::maxUnits() const
{
    return serverCodec && !hlpIsUtf8(serverCodec) ? MaxEncodedUnits : MaxUtf8Units;
}

QString Dorvy3Connection::client(const char *bytes, int length) const
{
    if (!bytes) {
        return QString();
    }
    if (hlpIsUtf8(clientCodec)) {
        return hlpFromUtf8(bytes, length < 0 ? std::strlen(bytes) : static_cast<size_t>(length));
    }
    if (!clientCodec) {
        return QString::fromLatin1(bytes, length);
    }
    return length < 0 ? clientCodec->toUnicode(bytes) : clientCodec->toUnicode(bytes, length);
}

bool Dorvy3Connection::isReady()
{
    return ppqIsReady(handle) && isValid();
}

PGTransactionStatusType Dorvy3Connection::transactionStatus()
{
    const PGTransactionStatusType status = ppqTransactionStatus(handle);
    if (status != PQTRANS_UNKNOWN) {
        return status;
    }
    settle(); // a server that has told no state at all tells another with the answer to a close
    return PQtransactionStatus(handle);
}

PgResultPtr Dorvy3Connection::exec(const char *sql)
{
    return PgResultPtr(ppqExec(connection(), sql));
}

bool Dorvy3Connection::settle()
{
    return ppqSettle(handle) && isValid();
}

QSqlError Dorvy3Connection::hlpCommand(const char *sql, const QString &failure)
{
    return hlpOutcome(exec(sql).get(), failure);
}

QSqlError Dorvy3Connection::hlpOutcome(const PGresult *result, const QString &failure) const
{
    if (!result) {
        return QSqlError(failure, client(PQerrorMessage(handle), -1), QSqlError::TransactionError);
    }
    if (PQresultStatus(result) != PGRES_COMMAND_OK) {
        return QSqlError(failure, client(PQresultErrorMessage(result), -1),
                         QSqlError::TransactionError);
    }
    return QSqlError();
}

// Nothing is sent that the answer to a close would be taken in with, and it may tell of a loss.
QSqlError Dorvy3Connection::hlpRefusal(const QString &refused, const QString &reason)
{
    return QSqlError(refused, settle() ? reason : noConnection(), QSqlError::TransactionError);
}

QSqlError Dorvy3Connection::beginTransaction()
{
    if (!isReady()) {
        return QSqlError(cannotBegin(), noConnection(), QSqlError::TransactionError);
    }
    if (transactionStatus() != PQTRANS_IDLE) {
        return hlpRefusal(cannotBegin(), beginForbidden());
    }
    return hlpCommand("BEGIN", beginFailed());
}

QSqlError Dorvy3Connection::commitTransaction()
{
    if (!isReady()) {
        return QSqlError(cannotCommit(), noConnection(), QSqlError::TransactionError);
    }
    if (transactionStatus() != PQTRANS_INTRANS) {
        return hlpRefusal(cannotCommit(), commitForbidden());
    }
    const PgResultPtr result = exec("COMMIT");
    if (qstrcmp(PQcmdStatus(result.get()), "ROLLBACK") == 0) {
        // The close that was under way has failed the transaction.
        return hlpRefusal(cannotCommit(), commitForbidden());
    }
    return hlpOutcome(result.get(), commitFailed());
}

QSqlError Dorvy3Connection::rollbackTransaction()
{
    if (!isReady()) {
        return QSqlError(cannotRollback(), noConnection(), QSqlError::TransactionError);
    }
    const PGTransactionStatusType status = transactionStatus();
    if (status == PQTRANS_INTRANS || status == PQTRANS_INERROR) {
        return hlpCommand("ROLLBACK", rollbackFailed());
    }
    return settle() ? QSqlError()
                    : QSqlError(cannotRollback(), noConnection(), QSqlError::TransactionError);
}
