// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// RandomUser: a driver put to every use, at random, with every answer checked.
#ifndef RANDOMUSER_H
#define RANDOMUSER_H

#include "tests/driver/opendriver.h"
#include "tests/support/pgcluster.h"

#include <QtCore/QMap>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtSql/QSqlQuery>

#include <memory>
#include <random>
#include <vector>

class Dorvy3Transacted;

/*!
    A walk over the rows (1, "row 1") to (last, "row <last>") that a query has, in any number of
    portions. It tells a wrong row from the end.
*/
class Walk
{
public:
    Walk(const QSqlQuery &startedQuery, int lastRow);

    /*! Goes on by up to \a rows rows; false when one is wrong, or missing. */
    bool goOn(int rows);

    /*! Goes on to the end; false also when there are more rows. */
    bool goToTheEnd();

    /*!
        Goes on although the server has gone; false when a row is wrong, or when the end comes before
        the last row and without an error.
    */
    bool goOnWithoutServer();

    /*! True when there is no next row, whatever the query has on the server. */
    bool isEmpty();

private:
    bool hlpIsRight() const;

    QSqlQuery query;
    int row; // the one reached
    int last;
};

/*!
    Has a driver of its own on a shared pool, and a table of its own, "kept_<number>" (a int PRIMARY
    KEY). Made on any thread; work() then runs on one. Every connection's application_name is
    "threads" with the remainder of \a number by 2, so that users share their spares with half of
    the others.
*/
class RandomUser
{
public:
    RandomUser(const PgCluster &server, const QSharedPointer<Dorvy3Transacted> &sharedPool,
               int number, unsigned seed);
    ~RandomUser();

    /*! The command that makes the table. */
    static QString table(int number);

    /*!
        Uses the driver for \a msec, or until the first surprise. It stays open then, without a
        query.
    */
    void work(int msec);

    /*! What was not as it had to be; empty if all was. */
    QString surprise() const { return what; }

    /*! Operations done, by kind. */
    QMap<QString, int> done() const { return counts; }

private:
    Q_DISABLE_COPY(RandomUser)

    using Operation = bool (RandomUser::*)();
    struct Kind
    {
        const char *name;
        Operation operation;
        int weight;
    };
    static const std::vector<Kind> &hlpKinds();

    int hlpRandom(int from, int to);
    bool hlpExpect(bool holds, const char *expectation, const QSqlError &error = QSqlError());
    void hlpStep();
    QSqlQuery hlpQuery() const;
    bool hlpOpen();
    std::unique_ptr<Walk> hlpStart(int rows);
    bool hlpInsert(int rows);
    bool hlpCompareTable();
    bool hlpTerminate(const QString &sql, const QString &words);

    bool hlpRead();
    bool hlpAbandon();
    bool hlpContinue();
    bool hlpTransact();
    bool hlpLoseOwn();
    bool hlpLoseBorrowed();
    bool hlpReopen();
    bool hlpUnsubscribe();
    bool hlpReplaceDriver();
    bool hlpLookUpKey();

    const PgCluster &cluster;
    QSharedPointer<Dorvy3Transacted> pool;
    int number;
    std::mt19937 random;
    std::unique_ptr<OpenDriver> driver;
    std::vector<std::unique_ptr<Walk>> walks; // half-read
    int kept;                                 // rows in the table
    QString what;
    QMap<QString, int> counts;
};

#endif // RANDOMUSER_H
