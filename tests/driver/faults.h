// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Faults: what the tests of lost servers and connections, written as an application, stand on.
#ifndef FAULTS_H
#define FAULTS_H

#include "tests/driver/behaviour.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/wireproxy.h"

#include <QtCore/QScopedPointer>
#include <QtCore/QtEndian>

// What libpq says of a connection that ended. Its own calls answer with their last result, which has
// this alone; the portal operations, and what goes out behind a close, have the server's last words
// in front of it.
constexpr char Closed[] = "server closed the connection unexpectedly\n"
                          "\tThis probably means the server terminated abnormally\n"
                          "\tbefore or while processing the request.\n";
constexpr char EndedAndClosed[] = "FATAL:  terminating connection due to administrator command\n"
                                  "server closed the connection unexpectedly\n"
                                  "\tThis probably means the server terminated abnormally\n"
                                  "\tbefore or while processing the request.\n";
constexpr char NoConnection[] = "Отсутствует соединение с СУБД";
constexpr char ConnectFailed[] = "Ошибка при установке соединения с СУБД";

/*! A QSqlError, field by field. */
struct Error
{
    QSqlError::ErrorType type;
    const char *driver;
    const char *database;
    const char *code;
};

// What the driver says of a connection that it knows to be lost.
constexpr Error StatementRefused{QSqlError::StatementError, "Невозможно выполнить запрос",
                                 NoConnection, ""};
constexpr Error PrepareRefused{QSqlError::StatementError, "Невозможно подготовить запрос",
                               NoConnection, "0"};
constexpr Error ExecuteRefused{QSqlError::StatementError,
                               "Невозможно выполнить подготовленный запрос", NoConnection, "0"};
constexpr Error CommitRefused{QSqlError::TransactionError, "Невозможно завершить транзакцию",
                              NoConnection, ""};
constexpr Error RollbackRefused{QSqlError::TransactionError, "Невозможно отменить транзакцию",
                                NoConnection, ""};

// What it says of one that is lost in the exchange.
constexpr Error PrepareLost{QSqlError::StatementError, Closed, PrepareFailed, ""};
constexpr Error PrepareEnded{QSqlError::StatementError, EndedAndClosed, PrepareFailed, ""};
constexpr Error ExecuteLost{QSqlError::StatementError, Closed, ExecuteFailed, ""};
constexpr Error ExecuteEnded{QSqlError::StatementError, EndedAndClosed, ExecuteFailed, ""};
constexpr Error BeginLost{QSqlError::TransactionError, "Ошибка при попытке начать транзакцию",
                          Closed, ""};
constexpr Error CommitLost{QSqlError::TransactionError, "Ошибка при попытке завершить транзакцию",
                           Closed, ""};
constexpr Error CommitEnded{QSqlError::TransactionError, "Ошибка при попытке завершить транзакцию",
                            EndedAndClosed, ""};
constexpr Error RollbackLost{QSqlError::TransactionError, "Ошибка при попытке отменить транзакцию",
                             Closed, ""};
constexpr Error NoError{QSqlError::NoError, "", "", ""};

/*! Compares an error that is known by its place in a table; COMPARE_ERROR takes one written out. */
inline void compareWith(const QSqlError &error, const Error &expected)
{
    QCOMPARE(error.driverText(), QString::fromUtf8(expected.driver));
    QCOMPARE(error.databaseText(), QString::fromUtf8(expected.database));
    QCOMPARE(error.type(), expected.type);
    QCOMPARE(error.nativeErrorCode(), QString::fromUtf8(expected.code));
}

/*! How an application's road ends. */
struct Outcome
{
    const char *step; // the first that fails; empty when none does
    Error error;
};

// What an application does, step by step: see Application.
constexpr char PlainRoad[] = "insert read walk clear append";
constexpr char TransactionRoad[] = "begin insert read walk clear commit";
constexpr char UncommittedRoad[] = "begin insert read walk clear";
constexpr char UndoneRoad[] = "begin insert rollback";
constexpr char ReuseRoad[] = "begin insert read clear again walk clear commit";

/*!
    An application on its way through a road of steps: "begin", "commit" and "rollback"; "insert"
    and "append" put the rows 2 and 3 into the table "t"; "read" asks for the numbers from 1 to 130,
    as does "again", "walk" takes them, in two pages, and "clear" lets them go.
*/
class Application
{
public:
    explicit Application(const QSqlDatabase &database)
        : db(database)
        , query(database)
        , command(database)
        , rows(0)
    {
    }

    /*! Calls \a fault before the step \a armed. Returns the first step that fails, if any. */
    QString go(const QString &road, const QString &armed, const std::function<void()> &fault)
    {
        for (const QString &step : road.split(QLatin1Char(' '))) {
            if (step == armed) {
                fault();
            }
            if (!take(step)) {
                return step;
            }
        }
        return QString();
    }

    bool take(const QString &step)
    {
        if (step == QStringLiteral("begin")) {
            return told(db.transaction(), db);
        }
        if (step == QStringLiteral("commit")) {
            return told(db.commit(), db);
        }
        if (step == QStringLiteral("rollback")) {
            return told(db.rollback(), db);
        }
        if (step == QStringLiteral("insert")) {
            return told(command.exec(QStringLiteral("INSERT INTO t VALUES (2)")), command);
        }
        if (step == QStringLiteral("append")) {
            return told(command.exec(QStringLiteral("INSERT INTO t VALUES (3)")), command);
        }
        if (step == QStringLiteral("read") || step == QStringLiteral("again")) {
            rows = 0;
            return told(query.exec(QStringLiteral("SELECT generate_series(1, 130)")), query);
        }
        if (step == QStringLiteral("walk")) {
            return told(walk(), query);
        }
        query.clear();
        return true;
    }

    /*! Of the step that was taken last. */
    QSqlError error() const { return last; }

    /*! How many rows the walk took; each was the number that it had to be. */
    int rowsRead() const { return rows; }

private:
    template<typename Teller>
    bool told(bool done, const Teller &teller)
    {
        last = teller.lastError();
        return done;
    }

    bool walk()
    {
        while (query.next()) {
            ++rows;
            if (query.value(0) != rows) {
                qFatal("row %d is %s", rows, qPrintable(query.value(0).toString()));
            }
        }
        return rows == 130;
    }

    QSqlDatabase db;
    QSqlQuery query;
    QSqlQuery command;
    QSqlError last;
    int rows;
};

/*!
    A server with the table "t" that holds the committed row 1, and an application's database "app"
    on it through a recording proxy. Its own connection is number 1, the borrowed one 2.
*/
class Faults : protected Behaviour
{
protected:
    /*! For initTestCase(). */
    bool startWithTable()
    {
        const bool started = start();
        if (started) {
            cluster.run(QStringLiteral("CREATE TABLE t (a int)"));
        }
        return started;
    }

    /*! For init(), and once more in a test that needs connections of its own. */
    bool openThroughProxy()
    {
        cluster.run(QStringLiteral("TRUNCATE t; INSERT INTO t VALUES (1)"));
        proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
        db = another(QStringLiteral("app"));
        db.setHostName(proxy->host());
        db.setPort(proxy->port());
        db.setConnectOptions(
            QStringLiteral("sslmode=disable;gssencmode=disable;application_name=faults"));
        return db.open();
    }

    /*! The process behind the proxy's \a connection. */
    int backend(int connection) const
    {
        for (const WireMessage &message : proxy->messages()) {
            if (message.connection == connection && message.type == 'K' && !message.fromClient) {
                return qFromBigEndian<int>(message.body.constData());
            }
        }
        return 0;
    }

    /*! Whether the server has answered all that was said on \a connection. */
    bool isAnswered(int connection) const
    {
        char last = 'Z'; // ReadyForQuery
        for (const WireMessage &message : proxy->messages()) {
            last = message.connection == connection ? message.type : last;
        }
        return last == 'Z';
    }

    /*! The rows of the table that everybody sees, such as "1 2". */
    QString committed() const
    {
        return cluster.run(QStringLiteral("SELECT a FROM t ORDER BY a")).join(QLatin1Char(' '));
    }

    /*! How many connections of the application the server has. */
    QString connections() const
    {
        return cluster.value(QStringLiteral(
            "SELECT count(*) FROM pg_stat_activity WHERE application_name = 'faults'"));
    }

    /*! Closes the database; the server then has nothing of it any more. */
    void verifyNothingIsLeft()
    {
        db.close();
        QTRY_COMPARE(connections(), QStringLiteral("0"));
    }

    /*! Closes the database, opens it again, and reads and writes. */
    void verifyReopens()
    {
        db.close();
        QVERIFY_SQL(db, db.open());
        Application again(db);
        QCOMPARE(again.go(TransactionRoad, QString(), {}), QString());
    }

    QScopedPointer<WireProxy> proxy;
};

Q_DECLARE_METATYPE(Error)
Q_DECLARE_METATYPE(Outcome)

#endif // FAULTS_H
