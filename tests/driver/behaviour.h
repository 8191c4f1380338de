// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Behaviour: what the tests of the driver's behaviour, written as an application, stand on.
#ifndef BEHAVIOUR_H
#define BEHAVIOUR_H

#include "tests/support/childprocess.h"
#include "tests/support/dorvydatabase.h"
#include "tests/support/pgcluster.h"

#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>
#include <QtTest/QtTest>

#include <functional>

// What a failure says: the server's words, and the driver's own beside them.
constexpr char Aborted[] = "ERROR:  current transaction is aborted, commands ignored until end of "
                           "transaction block\n";
constexpr char PrepareFailed[] = "Ошибка при подготовке запроса к СУБД";
constexpr char ExecuteFailed[] = "Ошибка при выполнении запроса к СУБД";

/*!
    A server, and an application's open database "app" on it. Each test finds an empty schema
    "public". What cluster.run() and cluster.value() see is what everybody else sees.
*/
class Behaviour
{
protected:
    /*! For initTestCase(). */
    bool start() { return cluster.start({QStringLiteral("log_min_messages = error")}); }

    /*! For init(); \a tables are commands that everybody sees the outcome of. */
    bool openAnew(const QString &tables = QString())
    {
        cluster.run(QStringLiteral("SET client_min_messages = warning; "
                                   "DO $$ DECLARE schema name; BEGIN "
                                   "FOR schema IN SELECT nspname FROM pg_namespace WHERE "
                                   "nspname !~ '^pg_' AND nspname <> 'information_schema' "
                                   "LOOP EXECUTE format('DROP SCHEMA %I CASCADE', schema); "
                                   "END LOOP; END $$; "
                                   "CREATE SCHEMA public; GRANT ALL ON SCHEMA public TO PUBLIC; ") +
                    tables);
        db = another(QStringLiteral("app"));
        return db.open();
    }

    /*! One more database like "app", not open yet; the test removes it. */
    QSqlDatabase another(const QString &name) const
    {
        return addDorvyDatabase(name, cluster, QStringLiteral("postgres"), pool);
    }

    /*! For cleanup(). The server's log has the reason of a failure. */
    void closeForGood()
    {
        if (QTest::currentTestFailed()) {
            qWarning("%s", qPrintable(cluster.log().mid(cluster.log().size() - 20).join(u'\n')));
        }
        db = QSqlDatabase();
        QSqlDatabase::removeDatabase(QStringLiteral("app"));
    }

    /*!
        Runs \a code in a process of its own, with a query on a database of its own. Returns the
        message that ended the process, or how the process ended without one.
    */
    QString fatalMessage(const std::function<void(QSqlQuery &)> &code) const
    {
        const ChildOutcome outcome = inChild(code);
        return outcome.aborted ? outcome.fatal
                               : QStringLiteral("the process went on: ") + outcome.output;
    }

    /*! What fatalMessage() does, with everything there is to know of the end. */
    ChildOutcome inChild(const std::function<void(QSqlQuery &)> &code) const
    {
        return runInChild([this, &code] {
            QSqlDatabase own = addDorvyDatabase(QStringLiteral("child"), cluster);
            if (own.open()) {
                QSqlQuery query(own);
                code(query);
            }
        });
    }

    PgCluster cluster;
    QSqlDatabase db;
    // The plugin has one for all databases of a process.
    QSharedPointer<Dorvy3Transacted> pool = QSharedPointer<Dorvy3Transacted>::create();
};

/*! The first line of what the server said. */
inline QString serversWords(const QSqlQuery &query)
{
    return query.lastError().driverText().section(u'\n', 0, 0);
}

/*! Compares both texts of a lastError(). */
#define COMPARE_TEXTS(error, driver, database)                                                     \
    do {                                                                                           \
        QCOMPARE((error).driverText(), QString::fromUtf8(driver));                                 \
        QCOMPARE((error).databaseText(), QString::fromUtf8(database));                             \
    } while (false)

#endif // BEHAVIOUR_H
