// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Statement: preparation and lifetime.
#include "access/dorvy3statement.h"

#include "access/dorvy3connection.h"
#include "access/dorvy3database.h"
#include "access/dorvy3errors_p.h"
#include "access/dorvy3pgowners_p.h"
#include "access/dorvy3result.h"
#include "access/dorvy3sizes_p.h"
#include "access/dorvy3texts_p.h"
#include "client/libppq.h"
#include "client/ppqcall.h"

#include <cstdlib>

using namespace Dorvy3Texts;

Dorvy3Statement::Dorvy3Statement()
    : name(QByteArrayLiteral("pdstmt") + QByteArray::number(reinterpret_cast<qint64>(this), 16))
    , database(nullptr)
    , params(nullptr)
    , paramValues(nullptr)
    , paramLengths(nullptr)
    , paramFormats(nullptr)
    , paramTypes(nullptr)
{
}

Dorvy3Statement::~Dorvy3Statement()
{
    hlpClear();
}

const char *Dorvy3Statement::portalname() const
{
    return name.constData();
}

const char *Dorvy3Statement::statementname() const
{
    return name.constData() + 1;
}

bool Dorvy3Statement::readonly() const
{
    return description && PQnfields(description->result) > 0;
}

bool Dorvy3Statement::isDescribing(const Dorvy3Result &page) const
{
    return description && description->hasColumnsOf(page);
}

bool Dorvy3Statement::prep(const QString &text, const QSharedPointer<Dorvy3Connection> &connection,
                           QSqlError *error, Dorvy3Database *registrar)
{
    hlpClearError(error);
    hlpClear();
    if (!connection || !connection->isReady()) {
        hlpReport(error, hlpRefusal(cannotPrepare(), noConnection()));
        return false;
    }
    if (!hlpPrepare(text, connection, error) || !hlpDescribe(text, connection, error)) {
        return false;
    }
    database = registrar;
    if (database) {
        database->bind(this);
    }
    return true;
}

bool Dorvy3Statement::hlpPrepare(const QString &text,
                                 const QSharedPointer<Dorvy3Connection> &connection,
                                 QSqlError *error)
{
    constexpr int FixedBytes = 4 + 1 + 1 + 2; // of Parse: its length, two terminators, a count
    const bool isEncodable = text.size() <= connection->maxUnits();
    const QByteArray sql = isEncodable ? connection->server(text) : QByteArray();
    if (!isEncodable || sql.size() > MaxMessageBytes - FixedBytes - name.size()) {
        hlpReport(error, QSqlError(queryTooLarge(), prepareFailed(), QSqlError::StatementError));
        return false;
    }
    const PgResultPtr prepared(
        ppqPrepare(connection->connection(), statementname(), sql.constData()));
    return PQresultStatus(prepared.get()) == PGRES_COMMAND_OK ||
           hlpFailPrep(prepared.get(), connection, error);
}

bool Dorvy3Statement::hlpDescribe(const QString &text,
                                  const QSharedPointer<Dorvy3Connection> &connection,
                                  QSqlError *error)
{
    PgResultPtr described(ppqDescribePrepared(connection->connection(), statementname()));
    if (PQresultStatus(described.get()) != PGRES_COMMAND_OK) {
        return hlpFailPrep(described.get(), connection, error);
    }
    query = text;
    description = QSharedPointer<Dorvy3Result>::create(described.get(), connection);
    described.release(); // NOLINT(bugprone-unused-return-value): the description has it
    hlpAllocateParams();
    return true;
}

// The failing result may be null.
bool Dorvy3Statement::hlpFailPrep(const PGresult *result,
                                  const QSharedPointer<Dorvy3Connection> &connection,
                                  QSqlError *error)
{
    hlpReport(error, hlpError(result, connection, prepareFailed()));
    // The name is taken on the server when it was the description that failed. On a connection
    // that cannot be closed on, it goes with the connection.
    PPQclose(connection->connection(), nullptr, statementname());
    return false;
}

// One block for the four arrays, allocated once per preparation; an execution only fills it.
void Dorvy3Statement::hlpAllocateParams()
{
    const int count = PQnparams(description->result);
    if (count < 1) {
        return;
    }
    const auto n = static_cast<size_t>(count);
    params = std::malloc(n * (sizeof(*paramValues) + sizeof(*paramLengths) + sizeof(*paramFormats) +
                              sizeof(*paramTypes)));
    paramValues = static_cast<const char **>(params);
    paramLengths = reinterpret_cast<int *>(paramValues + n);
    paramFormats = paramLengths + n;
    paramTypes = reinterpret_cast<Oid *>(paramFormats + n);
    for (int i = 0; i < count; ++i) {
        paramTypes[i] = PQparamtype(description->result, i);
    }
}

void Dorvy3Statement::hlpFreeParams()
{
    std::free(params);
    params = nullptr;
    paramValues = nullptr;
    paramLengths = nullptr;
    paramFormats = nullptr;
    paramTypes = nullptr;
}

void Dorvy3Statement::hlpClear()
{
    if (description) {
        const QSharedPointer<Dorvy3Connection> connection = description->connection;
        if (connection && connection->isValid()) {
            // A name that cannot be closed goes with its connection.
            PPQclose(connection->connection(), portalname(), statementname());
        }
        description.reset();
    }
    hlpFreeParams();
    if (database) {
        database->unbind(this);
        database = nullptr;
    }
}

QSqlError Dorvy3Statement::hlpError(const PGresult *result,
                                    const QSharedPointer<Dorvy3Connection> &connection,
                                    const QString &text) const
{
    QString message;
    if (connection) {
        message = connection->client(
            result ? PQresultErrorMessage(result) : PQerrorMessage(connection->connection()), -1);
    }
    return QSqlError(message, text, QSqlError::StatementError);
}
