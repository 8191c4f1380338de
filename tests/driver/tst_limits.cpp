// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Limits that cost little to reach: the number of parameters, a parameter that is refused before it is
// copied, and memory that does not suffice.
#include "tests/support/childprocess.h"
#include "tests/support/dorvydatabase.h"
#include "tests/support/pgcluster.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/zerobytes.h"

#include <QtSql/QSqlDriver>
#include <QtSql/QSqlField>
#include <QtSql/QSqlQuery>
#include <QtTest/QtTest>

class tst_Limits : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void mostParametersWork();
    void oneParameterTooManyInARead();
    void oneParameterTooManyInACommand();
    void parameterBeyondAMessageIsRefused_data();
    void parameterBeyondAMessageIsRefused();
    void refusalLeavesTheTransactionOpen();

private:
    void verifyUsable();

    PgCluster cluster;
    QSqlDatabase db;
};

namespace {

// Adds up as many parameters, each a row.
QString sumOf(int parameters)
{
    QString rows = QStringLiteral("(?::int)");
    for (int i = 1; i < parameters; ++i) {
        rows += QStringLiteral(", (?)");
    }
    return QStringLiteral("SELECT sum(n) FROM (VALUES %1) AS v (n)").arg(rows);
}

} // namespace

void tst_Limits::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
}

void tst_Limits::init()
{
    cluster.run(QStringLiteral("CREATE TABLE t (a int, b bytea, c text)"));
    db = addDorvyDatabase(QStringLiteral("limits"), cluster);
    QVERIFY_SQL(db, db.open());
}

void tst_Limits::cleanup()
{
    db = QSqlDatabase();
    QSqlDatabase::removeDatabase(QStringLiteral("limits"));
    cluster.run(QStringLiteral("DROP TABLE t"));
}

// The own connection and the borrowed one, as they are.
void tst_Limits::verifyUsable()
{
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec(QStringLiteral("INSERT INTO t (a) VALUES (17)")));
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT a FROM t")) && query.next());
    QCOMPARE(query.value(0).toInt(), 17);
}

void tst_Limits::mostParametersWork()
{
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.prepare(sumOf(65535)));
    for (int i = 0; i < 65535; ++i) {
        query.addBindValue(i);
    }
    QVERIFY_SQL(query, query.exec() && query.next());
    QCOMPARE(query.value(0).toLongLong(), Q_INT64_C(2147385345));
}

// The server describes it as one without parameters, and so it is run.
void tst_Limits::oneParameterTooManyInARead()
{
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.prepare(sumOf(65536)));
    for (int i = 0; i < 65536; ++i) {
        query.addBindValue(i);
    }
    QVERIFY(!query.exec());
    const QString said = query.lastError().driverText();
    QVERIFY2(said.startsWith(QStringLiteral("ERROR:  bind message supplies 0 parameters")) &&
                 said.endsWith(QStringLiteral("requires 65536\n")),
             qPrintable(said));
    QCOMPARE(query.lastError().databaseText(),
             QStringLiteral("Ошибка при выполнении запроса к СУБД"));
    QCOMPARE(query.lastError().type(), QSqlError::StatementError);
    query.clear();
    verifyUsable();
}

void tst_Limits::oneParameterTooManyInACommand()
{
    QSqlQuery query(db);
    QVERIFY(!query.prepare(QStringLiteral("INSERT INTO t (a) ") + sumOf(65536)));
    COMPARE_ERROR(query.lastError(), StatementError,
                  QStringLiteral("message contents do not agree with length in message type "
                                 "\"t\"\n"),
                  QStringLiteral("Ошибка при подготовке запроса к СУБД"), QString());
    query.clear();
    verifyUsable();
}

void tst_Limits::parameterBeyondAMessageIsRefused_data()
{
    QTest::addColumn<QString>("sql");
    QTest::newRow("of a command") << QStringLiteral("INSERT INTO t (b) VALUES (?)");
    QTest::newRow("of a command, as text") << QStringLiteral("INSERT INTO t (c) VALUES (?)");
    QTest::newRow("of a read") << QStringLiteral("SELECT length(?::bytea)");
    QTest::newRow("of a read, as text") << QStringLiteral("SELECT length(?::text)");
}

void tst_Limits::parameterBeyondAMessageIsRefused()
{
    QFETCH(QString, sql);
    const ZeroBytes zeros(1073741823);
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.prepare(sql));
    query.addBindValue(zeros.bytes());
    QVERIFY(!query.exec());
    COMPARE_ERROR(query.lastError(), StatementError,
                  QStringLiteral("Параметры запроса слишком велики"),
                  QStringLiteral("Ошибка при выполнении запроса к СУБД"), QString());
    query.bindValue(0, QByteArray("small"));
    QVERIFY_SQL(query, query.exec());
    query.clear();
    cluster.run(QStringLiteral("DELETE FROM t"));
    verifyUsable();
}

void tst_Limits::refusalLeavesTheTransactionOpen()
{
    const ZeroBytes zeros(1073741823);
    QVERIFY_SQL(db, db.transaction());
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec(QStringLiteral("INSERT INTO t (a) VALUES (1)")));
    QVERIFY_SQL(query, query.prepare(QStringLiteral("INSERT INTO t (b) VALUES (?)")));
    query.addBindValue(zeros.bytes());
    QVERIFY(!query.exec());
    QVERIFY_SQL(query, query.exec(QStringLiteral("INSERT INTO t (a) VALUES (2)")));
    QVERIFY_SQL(db, db.commit());
    QCOMPARE(cluster.value(QStringLiteral("SELECT sum(a) FROM t")), QStringLiteral("3"));
}

QTEST_GUILESS_MAIN(tst_Limits)
#include "tst_limits.moc"
