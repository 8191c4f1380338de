// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Values and query texts that no message can hold: refused before they are encoded or sent.
#include "access/dorvy3.h"
#include "access/dorvy3encoder_p.h"

#include "tests/support/connectionhelpers.h"
#include "tests/support/pgcluster.h"
#include "tests/support/scriptedserver.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/wireproxy.h"
#include "tests/support/zerobytes.h"

#include <QtSql/QSqlField>
#include <QtTest/QtTest>

#include <memory>

namespace {

constexpr int Bytea = 17;
constexpr int Name = 19;
constexpr int Text = 25;
constexpr int Unknown = 705;
constexpr int Varchar = 1043;

constexpr int TooLarge = -1;
constexpr int MessageBytes = 1073741822; // the most that a server reads
constexpr size_t UnitBytes = 2;

QSqlField fieldOf(const QVariant &value)
{
    QSqlField field(QString(), value.type());
    field.setValue(value);
    return field;
}

} // namespace

class tst_Dorvy3Sizes : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void bytesBeyondAMessage_data();
    void bytesBeyondAMessage();
    void textBeyondTheCodec_data();
    void textBeyondTheCodec();
    void textBeyondAnotherCodec();
    void bytesBehindOthers_data();
    void bytesBehindOthers();
    void refusedParameterSendsNothing_data();
    void refusedParameterSendsNothing();
    void refusedParameterKeepsTheRunBefore();
    void refusedTextSendsNothing_data();
    void refusedTextSendsNothing();

private:
    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
    ConnectionPtr connection;
};

void tst_Dorvy3Sizes::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
}

void tst_Dorvy3Sizes::init()
{
    connection = connectThrough(*proxy, QStringLiteral("postgres"));
    QVERIFY(connection->isValid());
}

void tst_Dorvy3Sizes::cleanupTestCase()
{
    connection.reset();
    proxy.reset();
}

void tst_Dorvy3Sizes::bytesBeyondAMessage_data()
{
    QTest::addColumn<int>("ptype");
    QTest::addColumn<int>("count");
    QTest::newRow("bytea, a message's size and one") << Bytea << 1073741823;
    QTest::newRow("bytea, two gibibytes") << Bytea << 2147483647;
    QTest::newRow("unknown") << Unknown << 1073741823;
    QTest::newRow("text") << Text << 1073741823;
    QTest::newRow("text, one more than a QString holds") << Text << 1073741810;
    QTest::newRow("varchar") << Varchar << 1073741823;
    QTest::newRow("name") << Name << 1073741823;
}

void tst_Dorvy3Sizes::bytesBeyondAMessage()
{
    QFETCH(int, ptype);
    QFETCH(int, count);
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), connection, nullptr, nullptr));
    const ZeroBytes zeros(static_cast<size_t>(count));
    QByteArray out("before");
    QCOMPARE(statement.hlpEncodePSQLValue(fieldOf(zeros.bytes()), ptype, out), TooLarge);
    QCOMPARE(out, QByteArray("before"));
}

void tst_Dorvy3Sizes::textBeyondTheCodec_data()
{
    QTest::addColumn<int>("ptype");
    QTest::addColumn<int>("units");
    QTest::newRow("text") << Text << 700000001;
    QTest::newRow("text, three bytes each pass an int") << Text << 715827883;
    QTest::newRow("text, the longest") << Text << 1073741809;
    QTest::newRow("varchar") << Varchar << 700000001;
    QTest::newRow("name") << Name << 700000001;
    QTest::newRow("bytea") << Bytea << 700000001;
    QTest::newRow("bytea, the longest") << Bytea << 1073741809;
    QTest::newRow("unknown") << Unknown << 700000001;
}

void tst_Dorvy3Sizes::textBeyondTheCodec()
{
    QFETCH(int, ptype);
    QFETCH(int, units);
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), connection, nullptr, nullptr));
    const ZeroBytes zeros(static_cast<size_t>(units) * UnitBytes);
    QByteArray out("before");
    QCOMPARE(statement.hlpEncodePSQLValue(fieldOf(zeros.text()), ptype, out), TooLarge);
    QCOMPARE(out, QByteArray("before"));
}

void tst_Dorvy3Sizes::textBeyondAnotherCodec()
{
    ScriptedServer server("ISO-8859-5", "UTF8");
    const QSharedPointer<Dorvy3Connection> cyrillic(
        new Dorvy3Connection(PQconnectdb(server.conninfo().constData()), QString()));
    QCOMPARE(cyrillic->maxUnits(), 250000000);
    QCOMPARE(connection->maxUnits(), 700000000);
    const ZeroBytes zeros(250000001 * UnitBytes);
    QByteArray out("before");
    int length = 0;
    QCOMPARE(hlpEncode(zeros.text(), Text, *cyrillic, out, &length), Dorvy3Encoding::TooLarge);
    QCOMPARE(out, QByteArray("before"));
    Dorvy3Statement statement;
    QSqlError error;
    QVERIFY(!statement.prep(zeros.text(), cyrillic, &error, nullptr));
    COMPARE_ERROR(error, StatementError, QStringLiteral("Текст запроса слишком велик"),
                  QStringLiteral("Ошибка при подготовке запроса к СУБД"), QString());
    QCOMPARE(server.queries(), QList<QByteArray>({"SET DATESTYLE TO 'ISO'"}));
}

void tst_Dorvy3Sizes::bytesBehindOthers_data()
{
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("count");
    QTest::newRow("one too many") << MessageBytes << 1;
    QTest::newRow("of two halves") << 536870912 << 536870912;
    QTest::newRow("numbers have passed the limit") << MessageBytes + 8 << 1;
}

void tst_Dorvy3Sizes::bytesBehindOthers()
{
    QFETCH(int, before);
    QFETCH(int, count);
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), connection, nullptr, nullptr));
    const ZeroBytes zeros(static_cast<size_t>(count));
    QByteArray out(before, Qt::Uninitialized);
    QCOMPARE(statement.hlpEncodePSQLValue(fieldOf(zeros.bytes()), Bytea, out), TooLarge);
    QCOMPARE(out.size(), before);
}

void tst_Dorvy3Sizes::refusedParameterSendsNothing_data()
{
    QTest::addColumn<QString>("sql");
    QTest::newRow("of a read") << QStringLiteral("SELECT length($1::bytea)");
    QTest::newRow("of a command") << QStringLiteral("UPDATE t SET b = $1");
}

void tst_Dorvy3Sizes::refusedParameterSendsNothing()
{
    QFETCH(QString, sql);
    command(connection, "CREATE TEMPORARY TABLE t (b bytea)");
    Dorvy3Statement statement;
    QVERIFY(statement.prep(sql, connection, nullptr, nullptr));
    const ZeroBytes zeros(1073741823);
    QVERIFY(connection->settle());
    proxy->clear();
    QSqlError error;
    QVERIFY(!statement.exec({zeros.bytes()}, &error, -1));
    COMPARE_ERROR(error, StatementError, QStringLiteral("Параметры запроса слишком велики"),
                  QStringLiteral("Ошибка при выполнении запроса к СУБД"), QString());
    QVERIFY(!statement.exec({zeros.bytes()}, nullptr, -1));
    QCOMPARE(proxy->conversation(), QStringList());
    QVERIFY(statement.exec({QByteArray("small")}, &error, -1));
    VERIFY_NO_ERROR(error);
    QCOMPARE(ask(connection, "SELECT 'alive'"), QByteArray("alive"));
}

void tst_Dorvy3Sizes::refusedParameterKeepsTheRunBefore()
{
    command(connection, "BEGIN");
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT g, $1::bytea FROM generate_series(1, 3) g"),
                           connection, nullptr, nullptr));
    const QSharedPointer<Dorvy3Result> page = statement.exec({QByteArray("small")}, nullptr, 2);
    QVERIFY(page);
    const ZeroBytes zeros(1073741823);
    QVERIFY(!statement.exec({zeros.bytes()}, nullptr, 2));
    const QSharedPointer<Dorvy3Result> next = statement.exec(nullptr, 2, page);
    QVERIFY(next);
    QCOMPARE(PQntuples(next->result), 1);
    QCOMPARE(status(connection), PQTRANS_INTRANS);
}

void tst_Dorvy3Sizes::refusedTextSendsNothing_data()
{
    QTest::addColumn<int>("units");
    QTest::newRow("one more than is encoded") << 700000001;
    QTest::newRow("three bytes each pass an int") << 715827883;
    QTest::newRow("the longest") << 1073741809;
}

void tst_Dorvy3Sizes::refusedTextSendsNothing()
{
    QFETCH(int, units);
    Dorvy3Statement statement;
    const ZeroBytes zeros(static_cast<size_t>(units) * UnitBytes);
    proxy->clear();
    QSqlError error;
    QVERIFY(!statement.prep(zeros.text(), connection, &error, nullptr));
    COMPARE_ERROR(error, StatementError, QStringLiteral("Текст запроса слишком велик"),
                  QStringLiteral("Ошибка при подготовке запроса к СУБД"), QString());
    QVERIFY(!statement.prep(zeros.text(), connection, nullptr, nullptr));
    QCOMPARE(proxy->conversation(), QStringList());
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), connection, &error, nullptr));
    VERIFY_NO_ERROR(error);
}

QTEST_GUILESS_MAIN(tst_Dorvy3Sizes)
#include "tst_dorvy3sizes.moc"
