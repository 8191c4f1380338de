// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Login: an application's database that is about to be opened, and what a refusal has to look like.
#ifndef LOGIN_H
#define LOGIN_H

#include "tests/driver/opendriver.h"
#include "tests/support/libpqowners.h"
#include "tests/support/testaccess.h"

#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlError>
#include <QtTest/QtTest>

#include <chrono>
#include <future>

/*! The password of the logins that have one; no text may tell it. */
constexpr char Secret[] = "geheim";

/*!
    The database "login", with the driver linked in, gone with the object: at 127.0.0.1 by the name
    "localhost", to "postgres", as "guest" with the password Secret.
*/
class Login
{
public:
    explicit Login(
        int port, const QByteArray &options = QByteArray(),
        const QSharedPointer<Dorvy3Transacted> &pool = QSharedPointer<Dorvy3Transacted>::create(),
        const QString &name = QStringLiteral("login"))
        : driver(new OpenDriver(pool))
        , db(QSqlDatabase::addDatabase(driver, name))
    {
        db.setHostName(QStringLiteral("localhost"));
        db.setPort(port);
        db.setDatabaseName(QStringLiteral("postgres"));
        db.setUserName(QStringLiteral("guest"));
        db.setPassword(QLatin1String(Secret));
        // The name is for the certificate; no resolver is asked.
        db.setConnectOptions(QStringLiteral("hostaddr=127.0.0.1;gssencmode=disable;") +
                             QString::fromLatin1(options));
    }
    ~Login()
    {
        const QString name = db.connectionName();
        db = QSqlDatabase();
        QSqlDatabase::removeDatabase(name);
    }

    QString connectionString() const
    {
        return Dorvy3TestAccess::connectionString(driver->half().database);
    }
    PGconn *own() const
    {
        return Dorvy3TestAccess::connection(driver->half().database)->connection();
    }
    /*! The connection of the reads; there is one while a query has rows. */
    PGconn *borrowed() const
    {
        return Dorvy3TestAccess::readConnection(driver->half().database)->connection();
    }

    OpenDriver *const driver; // belongs to db
    QSqlDatabase db;

private:
    Q_DISABLE_COPY(Login)
};

using Parameter = QPair<QByteArray, QByteArray>; // keyword, value

/*! Each keyword of a connection string with the value that \a connection goes by. */
inline QList<Parameter> parameters(PGconn *connection)
{
    const std::unique_ptr<PQconninfoOption, decltype(&PQconninfoFree)> options(
        PQconninfo(connection), &PQconninfoFree);
    QList<Parameter> found;
    for (const PQconninfoOption *option = options.get(); option && option->keyword; ++option) {
        found.append(Parameter(option->keyword, option->val));
    }
    return found;
}

/*! Verifies that no text of \a error tells the password \a secret. */
inline void verifySilent(const QSqlError &error, const QString &secret = QLatin1String(Secret))
{
    QVERIFY(!error.text().contains(secret));
    QVERIFY(!error.driverText().contains(secret));
    QVERIFY(!error.databaseText().contains(secret));
}

/*! Verifies that \a error is that of a refused connection, with libpq's \a words in it. */
inline void verifyRefusal(const QSqlError &error, const QString &words)
{
    QCOMPARE(error.type(), QSqlError::ConnectionError);
    QCOMPARE(error.databaseText(), QStringLiteral("Ошибка при установке соединения с СУБД"));
    QCOMPARE(error.nativeErrorCode(), QString());
    QVERIFY2(error.driverText().contains(words), qPrintable(error.driverText()));
    verifySilent(error);
}

/*! Opens \a login, which must be refused with libpq's \a words. */
inline void verifyRefused(Login &login, const QString &words)
{
    QVERIFY(!login.db.open());
    QVERIFY(!login.db.isOpen());
    verifyRefusal(login.db.lastError(), words);
}

/*! What a peer's script has promised to tell; \a otherwise where it does not within ten seconds. */
template<typename Value>
Value told(std::promise<Value> &promise, const Value &otherwise)
{
    std::future<Value> future = promise.get_future();
    return future.wait_for(std::chrono::seconds(10)) == std::future_status::ready ? future.get()
                                                                                  : otherwise;
}

#endif // LOGIN_H
