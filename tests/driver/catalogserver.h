// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// CatalogServer: what the tests of the catalog answers share: a server, a record of what is said to
// it, a driver, and names to look up.
#ifndef CATALOGSERVER_H
#define CATALOGSERVER_H

#include "access/dorvy3.h"
#include "driver/dorvydriver.h"
#include "driver/dorvydriver_p.h"
#include "tests/driver/opendriver.h"
#include "tests/support/connectionhelpers.h"
#include "tests/support/pgcluster.h"
#include "tests/support/testaccess.h"
#include "tests/support/wireproxy.h"

#include <QtSql/QSqlQuery>
#include <QtTest/QtTest>

#include <algorithm>
#include <memory>

/*! One that believes itself closed, whatever the connection is. */
class ShutDriver : public DorvyDriver
{
public:
    using DorvyDriver::DorvyDriver;

    bool isOpen() const override { return false; }
};

/*! A private server, a recording proxy before it, and a driver that is opened through the proxy. */
class CatalogServer
{
public:
    bool start()
    {
        if (!cluster.start()) {
            return false;
        }
        proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
        return true;
    }

    /*! A new database, made by the \a commands. */
    void createDatabase(const QString &name, std::initializer_list<const char *> commands)
    {
        cluster.createDatabase(name);
        for (const char *command : commands) {
            cluster.run(QString::fromUtf8(command), name);
        }
    }

    /*! The database few(): a table and a view each in the schemas "public" and "acc". */
    void createFew()
    {
        createDatabase(few(),
                       {"CREATE SCHEMA acc", "CREATE TABLE t (a int)", "CREATE TABLE acc.u (a int)",
                        "CREATE VIEW v AS SELECT 1 AS a", "CREATE VIEW acc.w AS SELECT 1 AS a"});
    }
    static QString few() { return QStringLiteral("few"); }

    /*! Opens \a target through the proxy. \a options come behind those that let the proxy read. */
    bool open(DorvyDriver &target, const QString &database,
              const QString &user = QStringLiteral("dorvy"),
              const QString &options = QString()) const
    {
        return target.open(database, user, QString(), proxy->host(), proxy->port(),
                           QStringLiteral("sslmode=disable;gssencmode=disable;") + options);
    }

    /*! A new driver, open to \a database, with a pool of its own and nothing recorded. */
    bool openDriver(const QString &database, const QString &user = QStringLiteral("dorvy"),
                    const QString &options = QString())
    {
        closeDriver();
        pool = QSharedPointer<Dorvy3Transacted>::create();
        driver.reset(new OpenDriver(pool));
        const bool opened = open(*driver, database, user, options);
        own = proxy->connectionCount();
        proxy->clear();
        return opened;
    }

    void closeDriver()
    {
        driver.reset();
        pool.reset();
    }

    /*! Runs \a sql as the application does; false when that fails. */
    bool execute(const QString &sql) const { return QSqlQuery(driver->createResult()).exec(sql); }

    /*! The texts of the Parse messages, of one connection or (0) of all. */
    QStringList parsed(int connection = 0) const
    {
        QStringList texts;
        for (const WireMessage &message : proxy->messages()) {
            if (message.fromClient && message.type == 'P' &&
                (connection == 0 || message.connection == connection)) {
                texts += QString::fromUtf8(message.body.split('\0').value(1)); // behind the name
            }
        }
        return texts;
    }

    /*! The recorded lines of \a connection, or (0) of all, that have one of the \a words. */
    QStringList linesWith(std::initializer_list<const char *> words, int connection = 0) const
    {
        const QString number = QString::number(connection);
        const auto isOf = [connection, &number](const QString &line) {
            return connection == 0 || line.startsWith(number + QLatin1Char('>')) ||
                   line.startsWith(number + QLatin1Char('<'));
        };
        const auto wanted = [&words](const QString &line) {
            return std::any_of(words.begin(), words.end(), [&line](const char *word) {
                return line.contains(QLatin1String(word));
            });
        };
        QStringList found;
        for (const QString &line : proxy->conversation()) {
            if (isOf(line) && wanted(line)) {
                found += line;
            }
        }
        return found;
    }

    ConnectionPtr ownConnection() const
    {
        return Dorvy3TestAccess::connection(driver->half().database);
    }
    ConnectionPtr borrowedConnection() const
    {
        return Dorvy3TestAccess::readConnection(driver->half().database);
    }
    QList<ConnectionPtr> spares() const
    {
        return Dorvy3TestAccess::spares(
            *pool, Dorvy3TestAccess::connectionString(driver->half().database));
    }

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
    QSharedPointer<Dorvy3Transacted> pool;
    std::unique_ptr<OpenDriver> driver;
    int own = 0; // the proxy's number of the driver's own connection; the borrowed one follows
};

/*!
    Counts Qt's messages while it lives, instead of having them printed: a query on a closed driver
    warns.
*/
class MessageCounter
{
public:
    MessageCounter()
        : old(qInstallMessageHandler(
              [](QtMsgType, const QMessageLogContext &, const QString &) { ++number(); }))
    {
        number() = 0;
    }
    ~MessageCounter() { qInstallMessageHandler(old); }

    int count() const { return number(); }

private:
    Q_DISABLE_COPY(MessageCounter)

    static int &number()
    {
        static int messages = 0;
        return messages;
    }

    QtMessageHandler old;
};

/*! How many \a objects, pg_prepared_statements or pg_cursors, there are on \a connection. */
inline QByteArray count(const ConnectionPtr &connection, const char *objects)
{
    return ask(connection, QByteArray("SELECT count(*) FROM ") + objects);
}

/*! \a list in ascending order, since the catalog's own order is none. */
inline QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

/*! The names of system tables that the server has itself, sorted: "pg" and any third character. */
inline QStringList systemTables(const PgCluster &cluster, const QString &database)
{
    return sorted(cluster.run(QStringLiteral("SELECT relname FROM pg_catalog.pg_class "
                                             "WHERE relkind = 'r' AND left(relname, 2) = 'pg' "
                                             "AND length(relname) > 2"),
                              database));
}

/*!
    Rows of names to look up: the name, and the schema and the table that the query asks for. An
    empty schema stands for a query without one.
*/
inline void namesToLookUp()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("schema");
    QTest::addColumn<QString>("table");
    const auto row = [](const char *tag, const char *name, const char *schema, const char *table) {
        QTest::newRow(tag) << QString::fromUtf8(name) << QString::fromUtf8(schema)
                           << QString::fromUtf8(table);
    };
    row("table", "orders", "", "orders");
    row("upper case", "ORDERS", "", "orders");
    row("mixed case", "Orders", "", "orders");
    row("schema and table", "acc.orders", "acc", "orders");
    row("mixed case with schema", "Acc.Orders", "acc", "orders");
    row("Russian", "Схема.Таблица", "схема", "таблица");

    row("quoted", "\"Orders\"", "", "orders");
    row("both quoted", "\"Acc\".\"Orders\"", "acc", "orders");
    row("schema quoted", "\"Acc\".Orders", "acc", "orders");
    row("table quoted", "Acc.\"Orders\"", "acc", "orders");
    row("one quoted character", "\"T\"", "", "t");
    row("quoted quote", "\"\"\"", "", "\"");
    row("two quotes alone", "\"\"", "", "\"\"");
    row("two quotes for a schema", "\"\".t", "\"\"", "t");
    row("two quotes for a table", "s.\"\"", "s", "\"\"");
    row("quote first only", "\"T", "", "\"t");
    row("quote last only", "T\"", "", "t\"");
    row("quote inside", "A\"B", "", "a\"b");
    row("doubled quote inside quotes", "\"A\"\"B\"", "", "a\"\"b");

    row("three parts", "a.b.c", "a", "b.c");
    row("four parts", "A.B.C.D", "a", "b.c.d");
    row("quoted full stop", "\"A.B\"", "\"a", "b\"");
    row("quoted full stop in a table", "A.\"B.C\"", "a", "b.c");
    row("empty", "", "", "");
    row("full stop alone", ".", "", "");
    row("two full stops", "..", "", ".");
    row("full stop first", ".T", "", "t");
    row("full stop last", "T.", "t", "");

    row("apostrophe", "o'brien", "", "o'brien");
    row("apostrophe in the schema", "o'brien.t", "o'brien", "t");
    row("doubled apostrophe", "o''brien", "", "o''brien");
    row("backslash", "a\\b", "", "a\\b");
    row("blanks", " my  table ", "", " my  table ");
    row("brackets", "[t]", "", "[t]");

    row("%1 in the table", "%1", "", "%1");
    row("%2 in the table", "%2", "", "%2");
    row("%L1 in the table", "%L1", "", "%l1");
    row("%1 behind a schema", "acc.%1", "acc", "%1");
    row("%2 behind a schema", "acc.%2", "acc", "%2");
    row("percent", "100%", "", "100%");
    // The table goes in last, in place of the lowest marker there is: the schema's own, if any.
    row("%1 in the schema", "%1.t", "t", "%2");
    row("%2 in the schema", "%2.t", "t", "t");
    row("%3 in the schema", "%3.t", "%3", "t");
    row("%L1 in the schema", "%L1.t", "%l1", "t");

    row("question mark", "a?", "", "a?");
    row("question mark in the schema", "a?.b?", "a?", "b?");
    row("question mark behind a quote", "a\"?", "", "a\"?");
    // The apostrophe ends the text of the query, and what stands behind it is a placeholder.
    row("question mark behind an apostrophe", "a'?", "", "a'$1");
}

/*! Verifies that \a connection holds no statement, no portal and no transaction. */
#define VERIFY_NOTHING_HELD(connection)                                                            \
    do {                                                                                           \
        const ConnectionPtr &heldBy = (connection);                                                \
        QCOMPARE(count(heldBy, "pg_prepared_statements"), QByteArray("0"));                        \
        QCOMPARE(count(heldBy, "pg_cursors"), QByteArray("0"));                                    \
        QCOMPARE(status(heldBy), PQTRANS_IDLE);                                                    \
    } while (false)

/*! Verifies that the driver has no result, statement or borrowed connection left. */
#define VERIFY_NOTHING_LEFT(catalogServer)                                                         \
    do {                                                                                           \
        QVERIFY((catalogServer).driver->half().results.isEmpty());                                 \
        QCOMPARE(Dorvy3TestAccess::boundCount((catalogServer).driver->half().database), 0);        \
        QVERIFY(!(catalogServer).borrowedConnection());                                            \
        VERIFY_NOTHING_HELD((catalogServer).ownConnection());                                      \
        for (const ConnectionPtr &spare : (catalogServer).spares()) {                              \
            VERIFY_NOTHING_HELD(spare);                                                            \
        }                                                                                          \
    } while (false)

#endif // CATALOGSERVER_H
