// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Models: what the tests of Qt's models, written as an application, stand on.
#ifndef MODELS_H
#define MODELS_H

#include "tests/support/childprocess.h"
#include "tests/support/dorvydatabase.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/wireproxy.h"

#include <QtCore/QAbstractItemModel>
#include <QtSql/QSqlQuery>
#include <QtTest/QtTest>

#include <functional>
#include <memory>

// What the models say of a table on a server that has lost the column adsrc.
constexpr char NoTable[] = "Unable to find table item";

// The first column of a model.
inline QList<int> firstColumn(const QAbstractItemModel &model)
{
    QList<int> values;
    for (int row = 0; row < model.rowCount(); ++row) {
        values += model.data(model.index(row, 0)).toInt();
    }
    return values;
}

inline QList<int> range(int first, int last)
{
    QList<int> numbers;
    for (int i = first; i <= last; ++i) {
        numbers += i;
    }
    return numbers;
}

// A sentence of the server's inside an error that a statement of the application met.
inline bool isServersError(const QSqlError &error, const char *sentence, const char *databaseText)
{
    return error.type() == QSqlError::StatementError && error.driverText().contains(sentence) &&
           error.databaseText() == databaseText && error.nativeErrorCode().isEmpty();
}

constexpr char FailedPreparation[] = "Ошибка при подготовке запроса к СУБД";
constexpr char FailedExecution[] = "Ошибка при выполнении запроса к СУБД";
constexpr char AbortedTransaction[] = "ERROR:  current transaction is aborted, commands ignored "
                                      "until end of transaction block\n";

/*!
    A server with the tables item (300 rows) and supplier (2), made anew for each test, and an
    application's database "models" on it, through a proxy that records what is said.
*/
class Models
{
protected:
    /*! For initTestCase(). */
    bool start()
    {
        if (!cluster.start()) {
            return false;
        }
        proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
        return true;
    }

    /*! For init(). */
    bool openAnew()
    {
        cluster.run(
            "CREATE TABLE supplier (id int PRIMARY KEY, name text);"
            "INSERT INTO supplier VALUES (1, 'Nord'), (2, 'Süd');"
            "CREATE TABLE item (id int PRIMARY KEY, name text NOT NULL, price numeric(8,2), "
            "supplier int);"
            "INSERT INTO item SELECT g, 'item ' || g, g + 0.25, 1 + g % 2 "
            "FROM generate_series(1, 300) g");
        db = addDorvyDatabase("models", cluster);
        db.setHostName(proxy->host());
        db.setPort(proxy->port());
        db.setConnectOptions("sslmode=disable;gssencmode=disable");
        const bool isOpen = db.open();
        ownConnection = proxy->connectionCount();
        proxy->clear();
        return isOpen;
    }

    /*! For cleanup(). */
    void closeForGood()
    {
        db = QSqlDatabase();
        QSqlDatabase::removeDatabase("models");
        cluster.run("SET client_min_messages TO warning;"
                    "DROP TABLE IF EXISTS item, supplier, fresh CASCADE");
    }

    /*! Runs \a code with a database of its own in a child process, which may end fatally. */
    ChildOutcome inChild(const std::function<void(QSqlDatabase)> &code) const
    {
        return runInChild([this, &code]() {
            QSqlDatabase own = addDorvyDatabase("child", cluster);
            own.open();
            code(own);
        });
    }

    /*!
        The texts that the driver has prepared, and on which connection; the two questions to the
        catalog by the word that tells them apart.
    */
    QStringList parsed() const
    {
        QStringList texts;
        for (const QString &line : proxy->frontend().filter("> Parse ")) {
            const bool isOwn = line.section('>', 0, 0).toInt() == ownConnection;
            QString text = line.section('"', 1, -2);
            if (text.contains("FROM pg_class, pg_attribute")) {
                text = "columns";
            } else if (text.contains("indisprimary")) {
                text = "primary key";
            }
            texts += (isOwn ? "own: " : "borrowed: ") + text;
        }
        return texts;
    }

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
    QSqlDatabase db;       // opened anew for each test
    int ownConnection = 0; // its number at the proxy
};

#endif // MODELS_H
