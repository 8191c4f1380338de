// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Database: from a query text to a statement on the right connection.
#include "access/dorvy3database.h"

#include "access/dorvy3connection.h"
#include "access/dorvy3errors_p.h"
#include "access/dorvy3pgowners_p.h"
#include "access/dorvy3statement.h"
#include "access/dorvy3texts_p.h"
#include "access/dorvy3transacted.h"

using namespace Dorvy3Texts;

QSharedPointer<Dorvy3Statement> Dorvy3Database::statement(const QString &query, QSqlError *error)
{
    if (!connection || !connection->isReady()) {
        hlpReport(error, QSqlError(cannotExecute(), noConnection(), QSqlError::StatementError));
        return {};
    }
    auto statement = QSharedPointer<Dorvy3Statement>::create();
    if (!hlpPrepareOnOwn(*statement, query, error)) {
        return {};
    }
    if (statement->readonly() && !hlpMoveToBorrowed(*statement, query, error)) {
        return {};
    }
    return statement;
}

bool Dorvy3Database::hlpPrepareOnOwn(Dorvy3Statement &statement, const QString &query,
                                     QSqlError *error)
{
    // Read once: a failed preparation changes it.
    const bool savepoints = connection->transactionStatus() == PQTRANS_INTRANS;
    if (savepoints) {
        hlpSavepoint(QStringLiteral("SAVEPOINT %1"), statement);
    }
    const bool prepared = statement.prep(query, connection, error, nullptr);
    if (savepoints) {
        // PostgreSQL wants ROLLBACK TO and refuses this text, which leaves the application's
        // transaction failed, as the failed preparation made it. Meant; see
        // tst_dorvy3database_statement, failedPreparationLeavesTransactionFailed.
        hlpSavepoint(prepared ? QStringLiteral("RELEASE SAVEPOINT %1")
                              : QStringLiteral("ROLLBACK SAVEPOINT %1"),
                     statement);
    }
    return prepared;
}

void Dorvy3Database::hlpSavepoint(const QString &command, const Dorvy3Statement &statement)
{
    const QString sql = command.arg(QString::fromUtf8(statement.statementname()));
    connection->exec(sql.toLatin1().constData());
}

bool Dorvy3Database::hlpMoveToBorrowed(Dorvy3Statement &statement, const QString &query,
                                       QSqlError *error)
{
    if (!readConnection && !hlpBorrow(error)) {
        return false;
    }
    return statement.prep(query, readConnection, error, this);
}

bool Dorvy3Database::hlpBorrow(QSqlError *error)
{
    const QString searchPath = schema.isEmpty() ? hlpCurrentSchema() : schema;
    readConnection = pool->get(connectionString, searchPath, error);
    return !readConnection.isNull();
}

QString Dorvy3Database::hlpCurrentSchema()
{
    const QByteArray sql = connection->server(QStringLiteral("SELECT current_schema()"));
    const PgResultPtr result = connection->exec(sql.constData());
    if (PQresultStatus(result.get()) != PGRES_TUPLES_OK) { // a null result has failed, too
        return QString();
    }
    return connection->client(PQgetvalue(result.get(), 0, 0), -1);
}
