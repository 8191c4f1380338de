// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyResult: running and preparing texts, describing columns, reading values.
#include "driver/dorvyresult.h"

#include "access/dorvy3.h"
#include "driver/dorvydriver.h"
#include "driver/dorvydriver_p.h"
#include "driver/dorvyfield_p.h"
#include "driver/dorvyresult_p.h"
#include "tests/driver/openresult.h"
#include "tests/support/childprocess.h"
#include "tests/support/pgcluster.h"
#include "tests/support/someerror.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/wireproxy.h"

#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlField>
#include <QtSql/QSqlQuery>
#include <QtSql/QSqlRecord>
#include <QtTest/QtTest>

#include <cstdio>
#include <memory>
#include <type_traits>

Q_DECLARE_METATYPE(QVariant::Type)

namespace {

// Whether an operation is declared in Class and not in one of its bases.
template<typename Class, typename Declaring, typename Signature>
bool declaredIn(Signature Declaring::* /*operation*/)
{
    return std::is_same<Class, Declaring>::value;
}

QString executeFailed()
{
    return QStringLiteral("Ошибка при выполнении запроса к СУБД");
}

QString prepareFailed()
{
    return QStringLiteral("Ошибка при подготовке запроса к СУБД");
}

// Name, type, OID, length and precision of each column.
QStringList columnsOf(const QSqlRecord &record)
{
    QStringList columns;
    for (int i = 0; i < record.count(); ++i) {
        const QSqlField field = record.field(i);
        columns += QStringLiteral("%1 %2 %3 %4 %5")
                       .arg(field.name())
                       .arg(int(field.type()))
                       .arg(field.typeID())
                       .arg(field.length())
                       .arg(field.precision());
    }
    return columns;
}

// A result is in this state after any failure.
#define VERIFY_INACTIVE(result)                                                                    \
    do {                                                                                           \
        QVERIFY(!(result).isActive());                                                             \
        QVERIFY((result).record().isEmpty());                                                      \
        QCOMPARE((result).size(), -1);                                                             \
    } while (false)

#define VERIFY_NOT_PREPARED(result)                                                                \
    do {                                                                                           \
        QVERIFY(!(result).exec());                                                                 \
        COMPARE_ERROR((result).lastError(), StatementError,                                        \
                      QStringLiteral("Невозможно выполнить запрос"),                               \
                      QStringLiteral("Запрос не подготовлен"), QStringLiteral("0"));               \
        VERIFY_INACTIVE(result);                                                                   \
    } while (false)

} // namespace

class tst_DorvyResult : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void newResultIsIdle();
    void dataOfItsOwn();
    void operationsOfItsOwn();
    void operationsThatStayQts();
    void handleIsInvalid();
    void fieldSerialCountsFromOne();
    void placeholders_data();
    void placeholders();
    void namedPlaceholders();
    void valuesGoInPositionalOrder();
    void valuesGoInBinary();

    void resetOfSelect();
    void resetOfUpdate();
    void resetOfReturning();
    void resetReplacesEverything();
    void prepareDescribesNothing();
    void prepareDropsTheEarlierRun();
    void prepareOfCommand();
    void execDescribes();
    void execAgainReplacesThePage();
    void positionStays();
    void successClearsTheError();
    void failureLeavesTheSelectFlag();
    void newTextKeepsTheBorrowedConnection();

    void rejectedText();
    void rejectedTextLeavesNoStatement();
    void failedRun();
    void failedExecKeepsTheStatement();
    void execWithoutPrepare();
    void execAfterDetach();
    void closedDriver();
    void lostConnection();
    void noConnectionInThePool();
    void emptyText();
    void tooFewValues();
    void surplusValuesAreIgnored();
    void runningATextWithParameters();

    void columns_data();
    void columns();
    void columnsNoServerMakes_data();
    void columnsNoServerMakes();
    void columnAttributesAreQts();
    void columnsAreInOrder();
    void columnsOfEveryRun();
    void columnsOfAnotherText_data();
    void columnsOfAnotherText();
    void columnsAfterDetach();
    void columnsAreACopy();
    void columnOfUnknownTypeIsFatal_data();
    void columnOfUnknownTypeIsFatal();

    void dataWithoutPageIsInvalid();
    void dataBeyondTheColumnsIsInvalid();
    void dataOfNothingIsSilent();
    void dataOfNegativeColumnIsFatal();
    void nullHasItsType_data();
    void nullHasItsType();
    void nullOfUnknownTypeIsFatal();
    void dataBesideTheRowsIsNull();
    void dataOfTextResult();
    void timeInTextResultIsFatal();
    void isNullTellsNullsFromValues();
    void isNullOfNoColumnIsTrue();
    void valuesOfEveryPage();

    void resultLeavesTheDriversList();
    void resultOutlivesItsDriver();

private:
    bool openDriver();
    QList<QByteArray> parsed() const;
    QString conninfo() const { return QString::fromUtf8(cluster.conninfo()); }

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
    std::unique_ptr<DorvyDriver> driver;
    std::unique_ptr<OpenResult> result;
};

void tst_DorvyResult::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
    cluster.run(QStringLiteral("CREATE TABLE t (a int PRIMARY KEY, b text)"));
}

void tst_DorvyResult::cleanupTestCase()
{
    proxy.reset();
}

void tst_DorvyResult::init()
{
    cluster.run(QStringLiteral("TRUNCATE t"));
    cluster.run(
        QStringLiteral("INSERT INTO t SELECT g, 'text ' || g FROM generate_series(1, 5) g"));
    QVERIFY(openDriver());
}

bool tst_DorvyResult::openDriver()
{
    driver.reset(new DorvyDriver(QSharedPointer<Dorvy3Transacted>::create()));
    const bool open =
        driver->open(QStringLiteral("postgres"), QStringLiteral("dorvy"), QString(), proxy->host(),
                     proxy->port(), QStringLiteral("sslmode=disable;gssencmode=disable"));
    result.reset(new OpenResult(driver.get()));
    proxy->clear();
    return open;
}

void tst_DorvyResult::cleanup()
{
    result.reset();
    driver.reset();
}

// The texts of all Parse messages.
QList<QByteArray> tst_DorvyResult::parsed() const
{
    QList<QByteArray> texts;
    for (const WireMessage &message : proxy->messages()) {
        if (message.fromClient && message.type == 'P') {
            texts += message.body.split('\0').value(1); // behind the statement's name
        }
    }
    return texts;
}

void tst_DorvyResult::newResultIsIdle()
{
    QVERIFY(!result->isActive());
    QVERIFY(!result->isSelect());
    QCOMPARE(result->at(), int(QSql::BeforeFirstRow));
    VERIFY_NO_ERROR(result->lastError());
    QVERIFY(result->record().isEmpty());
    QVERIFY(!result->half().page);
    QCOMPARE(result->size(), -1);
    QCOMPARE(result->boundValueCount(), 0);
    QCOMPARE(result->bindingSyntax(), OpenResult::PositionalBinding);
}

void tst_DorvyResult::dataOfItsOwn()
{
    QCOMPARE(sizeof(DorvyResult), sizeof(QSqlResult) + sizeof(QSharedPointer<Dorvy3Statement>));
    const auto address = [](const auto &field) { return reinterpret_cast<quintptr>(&field); };
    QVERIFY(address(result->half().page) < address(result->half().record));
}

void tst_DorvyResult::operationsOfItsOwn()
{
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::handle));
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::exec));
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::prepare));
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::data));
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::isNull));
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::reset));
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::fetch));
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::fetchNext));
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::fetchPrevious));
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::fetchFirst));
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::fetchLast));
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::size));
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::numRowsAffected));
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::record));
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::lastInsertId));
    QVERIFY(declaredIn<DorvyResult>(&OpenResult::detachFromResultSet));
}

void tst_DorvyResult::operationsThatStayQts()
{
    QVERIFY(declaredIn<QSqlResult>(&OpenResult::setAt));
    QVERIFY(declaredIn<QSqlResult>(&OpenResult::setActive));
    QVERIFY(declaredIn<QSqlResult>(&OpenResult::setLastError));
    QVERIFY(declaredIn<QSqlResult>(&OpenResult::setQuery));
    QVERIFY(declaredIn<QSqlResult>(&OpenResult::setSelect));
    QVERIFY(declaredIn<QSqlResult>(&OpenResult::setForwardOnly));
    QVERIFY(declaredIn<QSqlResult>(&OpenResult::savePrepare));
    QVERIFY(declaredIn<QSqlResult>(&OpenResult::virtual_hook));
    QVERIFY(declaredIn<QSqlResult>(&OpenResult::execBatch));
    QVERIFY(declaredIn<QSqlResult>(&OpenResult::setNumericalPrecisionPolicy));
    QVERIFY(declaredIn<QSqlResult>(&OpenResult::nextResult));
}

void tst_DorvyResult::handleIsInvalid()
{
    QVERIFY(!result->handle().isValid());
    QVERIFY(result->reset(QStringLiteral("SELECT 1")));
    QVERIFY(!result->handle().isValid());
}

void tst_DorvyResult::fieldSerialCountsFromOne()
{
    QCOMPARE(result->half().fieldSerial(0), QStringLiteral("$1"));
    QCOMPARE(result->half().fieldSerial(1), QStringLiteral("$2"));
    QCOMPARE(result->half().fieldSerial(9), QStringLiteral("$10"));
    QCOMPARE(result->half().fieldSerial(65534), QStringLiteral("$65535"));
}

void tst_DorvyResult::placeholders_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("sent");
    const auto row = [](const char *tag, const char *text, const char *sent) {
        QTest::newRow(tag) << QString::fromUtf8(text) << QByteArray(sent);
    };
    row("none", "SELECT 1", "SELECT 1");
    row("in single quotes", "SELECT b FROM t WHERE a = ? AND b = '?'",
        "SELECT b FROM t WHERE a = $1 AND b = '?'");
    row("in double quotes", "SELECT ? AS \"?\", ?", "SELECT $1 AS \"?\", $2");
    row("in back quotes", "SELECT `?`, ?", "SELECT `?`, $1");
    row("in square brackets", "SELECT (ARRAY[?, ?])[?]", "SELECT (ARRAY[$1, $2])[$3]");
    row("quote in other quotes", "SELECT '\"?', \"'?\", ?", "SELECT '\"?', \"'?\", $1");
    row("doubled quote", "SELECT 'it''s ?', ?", "SELECT 'it''s ?', $1");
    row("open quote", "SELECT ?, '?", "SELECT $1, '?");
    row("in a comment", "SELECT ? -- why?", "SELECT $1 -- why$2");
    row("side by side", "SELECT ??", "SELECT $1$2");
    row("first and last", "? SELECT ?", "$1 SELECT $2");
    row("eleven", "SELECT ?,?,?,?,?,?,?,?,?,?,?", "SELECT $1,$2,$3,$4,$5,$6,$7,$8,$9,$10,$11");
    row("numbered passes", "SELECT $2, $1", "SELECT $2, $1");
    row("beside a numbered one", "SELECT $1, ?", "SELECT $1, $1");
    row("beside Russian", "SELECT 'что?', ?, \"имя?\"", "SELECT 'что?', $1, \"имя?\"");
}

void tst_DorvyResult::placeholders()
{
    QFETCH(QString, text);
    QFETCH(QByteArray, sent);
    result->prepare(text);
    QCOMPARE(parsed().value(0), sent);
    proxy->clear();
    result->reset(text); // the same, also where no value can be bound
    QCOMPARE(parsed().value(0), sent);
}

void tst_DorvyResult::namedPlaceholders()
{
    QSqlQuery query(new OpenResult(driver.get()));
    QVERIFY_SQL(query, query.prepare(QStringLiteral(
                           "SELECT :first::int - :second::int, :first::int, ':first'")));
    QCOMPARE(parsed().value(0), QByteArray("SELECT $1::int - $2::int, $3::int, ':first'"));
    proxy->clear();
    query.bindValue(QStringLiteral(":second"), 7);
    query.bindValue(QStringLiteral(":first"), 5);
    QVERIFY_SQL(query, query.exec());
    const QString bind = QString::number(proxy->connectionCount()) +
                         QLatin1String("> Bind P1 S1 [00000005:1, 00000007:1, 00000005:1] 1");
    QVERIFY2(proxy->frontend().contains(bind),
             qPrintable(proxy->frontend().join(QLatin1Char('\n'))));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toInt(), -2);
    QCOMPARE(query.value(1).toInt(), 5);
    QCOMPARE(query.value(2).toString(), QStringLiteral(":first"));
}

void tst_DorvyResult::valuesGoInPositionalOrder()
{
    QVERIFY(result->prepare(QStringLiteral("SELECT ?::int - ?::int")));
    result->bindValue(1, 1, QSql::In);
    result->bindValue(0, 10, QSql::In);
    QVERIFY_SQL(*result, result->exec());
    QVERIFY(result->fetchFirst());
    QCOMPARE(result->data(0).toInt(), 9);
}

void tst_DorvyResult::valuesGoInBinary()
{
    QVERIFY(result->prepare(QStringLiteral("INSERT INTO t VALUES (?, ?)")));
    proxy->clear();
    result->addBindValue(258, QSql::In);
    result->addBindValue(QVariant(QVariant::String), QSql::In);
    QVERIFY_SQL(*result, result->exec());
    const QString own = QString::number(proxy->connectionCount());
    QCOMPARE(proxy->frontend(proxy->connectionCount()),
             QStringList({own + QLatin1String("> Bind \"\" S1 [00000102:1, NULL:1] 1"),
                          own + QLatin1String("> Describe P \"\""),
                          own + QLatin1String("> Execute \"\" 0"), own + QLatin1String("> Sync")}));
}

void tst_DorvyResult::resetOfSelect()
{
    QVERIFY_SQL(*result, result->reset(QStringLiteral("SELECT a, b FROM t")));
    QVERIFY(result->isActive());
    QVERIFY(result->isSelect());
    QCOMPARE(result->record().count(), 2);
    QCOMPARE(result->size(), 5);
}

void tst_DorvyResult::resetOfUpdate()
{
    QVERIFY_SQL(*result, result->reset(QStringLiteral("UPDATE t SET b = 'new'")));
    QVERIFY(result->isActive());
    QVERIFY(!result->isSelect());
    QVERIFY(result->record().isEmpty());
    QCOMPARE(cluster.value(QStringLiteral("SELECT count(*) FROM t WHERE b = 'new'")),
             QStringLiteral("5"));
}

void tst_DorvyResult::resetOfReturning()
{
    // What has columns is a select, whatever it writes.
    QVERIFY_SQL(*result,
                result->reset(QStringLiteral("UPDATE t SET b = 'new' WHERE a = 3 RETURNING a")));
    QVERIFY(result->isActive());
    QVERIFY(result->isSelect());
    QCOMPARE(result->record().fieldName(0), QStringLiteral("a"));
    QVERIFY(result->fetchFirst());
    QCOMPARE(result->data(0).toInt(), 3);
}

void tst_DorvyResult::resetReplacesEverything()
{
    QVERIFY(result->reset(QStringLiteral("SELECT a, b FROM t")));
    const QWeakPointer<Dorvy3Result> page = result->half().page;
    QVERIFY(result->reset(QStringLiteral("UPDATE t SET b = 'new' WHERE a = 1")));
    QVERIFY(!page.toStrongRef()); // released at once
    QVERIFY(!result->isSelect());
    QVERIFY(result->record().isEmpty());
    QVERIFY(result->reset(QStringLiteral("SELECT a FROM t")));
    QVERIFY(result->isSelect());
    QCOMPARE(result->record().count(), 1);
}

void tst_DorvyResult::prepareDescribesNothing()
{
    QVERIFY_SQL(*result, result->prepare(QStringLiteral("SELECT a, b FROM t WHERE a = ?")));
    QVERIFY(result->isSelect());
    QVERIFY(!result->isActive());
    QVERIFY(result->record().isEmpty());
    QVERIFY(!result->half().page);
}

void tst_DorvyResult::prepareDropsTheEarlierRun()
{
    QVERIFY(result->reset(QStringLiteral("SELECT a, b FROM t")));
    const QWeakPointer<Dorvy3Result> page = result->half().page;
    QVERIFY(result->prepare(QStringLiteral("SELECT a, b FROM t")));
    QVERIFY(!page.toStrongRef());
    VERIFY_INACTIVE(*result);
}

void tst_DorvyResult::prepareOfCommand()
{
    QVERIFY(result->prepare(QStringLiteral("SELECT 1")));
    QVERIFY(result->isSelect());
    QVERIFY(result->prepare(QStringLiteral("UPDATE t SET b = 'new'")));
    QVERIFY(!result->isSelect());
    QVERIFY(!result->isActive());
    QCOMPARE(cluster.value(QStringLiteral("SELECT count(*) FROM t WHERE b = 'new'")),
             QStringLiteral("0"));
}

void tst_DorvyResult::execDescribes()
{
    QVERIFY(result->prepare(QStringLiteral("SELECT a, b FROM t WHERE a = ?")));
    result->addBindValue(3, QSql::In);
    QVERIFY_SQL(*result, result->exec());
    QVERIFY(result->isActive());
    QVERIFY(result->isSelect());
    QCOMPARE(result->record().count(), 2);
    QCOMPARE(result->record().fieldName(0), QStringLiteral("a"));
    QCOMPARE(result->record().fieldName(1), QStringLiteral("b"));
    QCOMPARE(result->size(), 1);
}

void tst_DorvyResult::execAgainReplacesThePage()
{
    QVERIFY(result->prepare(QStringLiteral("SELECT a FROM t WHERE a <= ?")));
    result->bindValue(0, 3, QSql::In);
    QVERIFY(result->exec());
    const QWeakPointer<Dorvy3Result> page = result->half().page;
    result->bindValue(0, 5, QSql::In);
    QVERIFY_SQL(*result, result->exec());
    QVERIFY(!page.toStrongRef());
    QCOMPARE(result->size(), 5);
    QCOMPARE(result->record().count(), 1);
}

void tst_DorvyResult::positionStays()
{
    result->setAt(3);
    QVERIFY(result->reset(QStringLiteral("SELECT a FROM t")));
    QCOMPARE(result->at(), 3);
    QVERIFY(result->prepare(QStringLiteral("SELECT a FROM t")));
    QCOMPARE(result->at(), 3);
    QVERIFY(result->exec());
    QCOMPARE(result->at(), 3);
    QVERIFY(!result->reset(QStringLiteral("nonsense")));
    QVERIFY(!result->prepare(QStringLiteral("nonsense")));
    QVERIFY(!result->exec());
    QCOMPARE(result->at(), 3);
}

void tst_DorvyResult::successClearsTheError()
{
    result->setLastError(someError());
    QVERIFY(result->reset(QStringLiteral("SELECT 1")));
    VERIFY_NO_ERROR(result->lastError());
    result->setLastError(someError());
    QVERIFY(result->prepare(QStringLiteral("SELECT 1")));
    VERIFY_NO_ERROR(result->lastError());
    result->setLastError(someError());
    QVERIFY(result->exec());
    VERIFY_NO_ERROR(result->lastError());
}

void tst_DorvyResult::failureLeavesTheSelectFlag()
{
    QVERIFY(result->reset(QStringLiteral("SELECT 1")));
    QVERIFY(!result->reset(QStringLiteral("nonsense")));
    QVERIFY(result->isSelect());
    QVERIFY(!result->prepare(QStringLiteral("nonsense")));
    QVERIFY(result->isSelect());
    QVERIFY(!result->exec());
    QVERIFY(result->isSelect());
    QVERIFY(result->reset(QStringLiteral("UPDATE t SET b = 'new'")));
    QVERIFY(!result->reset(QStringLiteral("SELECT 1 / 0 FROM t"))); // prepared, but not run
    QVERIFY(!result->isSelect());
}

void tst_DorvyResult::newTextKeepsTheBorrowedConnection()
{
    // The old statement goes when the new one is there, so the reading transaction goes on.
    QVERIFY(result->reset(QStringLiteral("SELECT a FROM t")));
    for (const bool prepared : {false, true}) {
        proxy->clear();
        QVERIFY_SQL(*result, prepared ? result->prepare(QStringLiteral("SELECT b FROM t"))
                                      : result->reset(QStringLiteral("SELECT b FROM t")));
        QCOMPARE(proxy->frontend().filter(QStringLiteral("Query")), QStringList());
    }
}

void tst_DorvyResult::rejectedText()
{
    const QString text =
        QStringLiteral("ERROR:  syntax error at or near \"SELEC\"\nLINE 1: SELEC 1\n        ^\n");
    QVERIFY(result->reset(QStringLiteral("SELECT 1")));
    QVERIFY(!result->reset(QStringLiteral("SELEC 1")));
    COMPARE_ERROR(result->lastError(), StatementError, text, prepareFailed(), QString());
    VERIFY_INACTIVE(*result);
    QVERIFY(result->reset(QStringLiteral("SELECT 1")));
    QVERIFY(!result->prepare(QStringLiteral("SELEC 1")));
    COMPARE_ERROR(result->lastError(), StatementError, text, prepareFailed(), QString());
    VERIFY_INACTIVE(*result);
}

void tst_DorvyResult::rejectedTextLeavesNoStatement()
{
    QVERIFY(result->prepare(QStringLiteral("SELECT 1")));
    QVERIFY(!result->prepare(QStringLiteral("SELEC 1")));
    VERIFY_NOT_PREPARED(*result);
    QVERIFY(result->reset(QStringLiteral("SELECT 1")));
    QVERIFY(!result->reset(QStringLiteral("SELEC 1")));
    VERIFY_NOT_PREPARED(*result);
}

void tst_DorvyResult::failedRun()
{
    QVERIFY(!result->reset(QStringLiteral("SELECT 1 / (a - 1) FROM t")));
    COMPARE_ERROR(result->lastError(), StatementError, QStringLiteral("ERROR:  division by zero\n"),
                  executeFailed(), QString());
    VERIFY_INACTIVE(*result);
}

void tst_DorvyResult::failedExecKeepsTheStatement()
{
    QVERIFY(result->prepare(QStringLiteral("INSERT INTO t VALUES (?)")));
    result->bindValue(0, 1, QSql::In);
    QVERIFY(!result->exec());
    COMPARE_ERROR(result->lastError(), StatementError,
                  QStringLiteral("ERROR:  duplicate key value violates unique constraint "
                                 "\"t_pkey\"\nDETAIL:  Key (a)=(1) already exists.\n"),
                  executeFailed(), QString());
    VERIFY_INACTIVE(*result);
    result->bindValue(0, 6, QSql::In);
    QVERIFY_SQL(*result, result->exec());
    QVERIFY(result->isActive());
    VERIFY_NO_ERROR(result->lastError());
    QCOMPARE(result->numRowsAffected(), 1);
}

void tst_DorvyResult::execWithoutPrepare()
{
    proxy->clear();
    VERIFY_NOT_PREPARED(*result);
    QCOMPARE(proxy->frontend(proxy->connectionCount()), QStringList());
}

void tst_DorvyResult::execAfterDetach()
{
    QVERIFY(result->prepare(QStringLiteral("SELECT 1")));
    result->detachFromResultSet();
    VERIFY_NOT_PREPARED(*result);
    QVERIFY(result->reset(QStringLiteral("SELECT 1")));
    result->detachFromResultSet();
    VERIFY_NOT_PREPARED(*result);
}

void tst_DorvyResult::closedDriver()
{
    driver->close();
    const QString own = QString::number(proxy->connectionCount());
    QVERIFY(proxy->waitForLine(own + QLatin1String("> Terminate")));
    proxy->clear();
    for (const bool prepared : {false, true}) {
        QVERIFY(!(prepared ? result->prepare(QStringLiteral("SELECT 1"))
                           : result->reset(QStringLiteral("SELECT 1"))));
        COMPARE_ERROR(result->lastError(), StatementError,
                      QStringLiteral("Невозможно выполнить запрос"),
                      QStringLiteral("Отсутствует соединение с СУБД"), QString());
        VERIFY_INACTIVE(*result);
    }
    QCOMPARE(proxy->frontend(), QStringList());
}

void tst_DorvyResult::lostConnection()
{
    QVERIFY(result->prepare(QStringLiteral("INSERT INTO t VALUES (?)")));
    result->bindValue(0, 6, QSql::In);
    proxy->cut();
    QVERIFY(!result->exec());
    QCOMPARE(result->lastError().databaseText(), executeFailed());
    QVERIFY(result->lastError().driverText().contains(QLatin1String("connection")));
    QVERIFY(!result->exec()); // now it is known
    COMPARE_ERROR(result->lastError(), StatementError,
                  QStringLiteral("Невозможно выполнить подготовленный запрос"),
                  QStringLiteral("Отсутствует соединение с СУБД"), QStringLiteral("0"));
    VERIFY_INACTIVE(*result);
    QVERIFY(!result->reset(QStringLiteral("SELECT 1")));
    COMPARE_ERROR(result->lastError(), StatementError,
                  QStringLiteral("Невозможно выполнить запрос"),
                  QStringLiteral("Отсутствует соединение с СУБД"), QString());
}

void tst_DorvyResult::noConnectionInThePool()
{
    cluster.run(QStringLiteral("CREATE ROLE single LOGIN CONNECTION LIMIT 1"));
    QVERIFY_SQL(*driver, driver->open(QStringLiteral("postgres"), QStringLiteral("single"),
                                      QString(), cluster.socketDir(), cluster.port(), QString()));
    QVERIFY_SQL(*result, result->reset(QStringLiteral("SET work_mem = '8MB'"))); // on its own
    QVERIFY(!result->reset(QStringLiteral("SELECT 1")));
    COMPARE_ERROR(result->lastError(), ConnectionError,
                  QStringLiteral("connection to server on socket \"%1/.s.PGSQL.%2\" failed: "
                                 "FATAL:  too many connections for role \"single\"\n")
                      .arg(cluster.socketDir())
                      .arg(cluster.port()),
                  QStringLiteral("Ошибка при установке соединения с СУБД"), QString());
    VERIFY_NOT_PREPARED(*result);
}

void tst_DorvyResult::emptyText()
{
    QVERIFY(!result->reset(QString()));
    COMPARE_ERROR(result->lastError(), StatementError, QString(), executeFailed(), QString());
    VERIFY_INACTIVE(*result);
}

void tst_DorvyResult::tooFewValues()
{
    QVERIFY(result->prepare(QStringLiteral("INSERT INTO t VALUES (?, ?)")));
    result->addBindValue(6, QSql::In);
    QVERIFY(!result->exec());
    QVERIFY(result->lastError().driverText().startsWith(
        QLatin1String("ERROR:  bind message supplies 1 parameters, but prepared statement")));
    QCOMPARE(result->lastError().databaseText(), executeFailed());
}

void tst_DorvyResult::surplusValuesAreIgnored()
{
    QVERIFY(result->prepare(QStringLiteral("SELECT ?::int")));
    result->addBindValue(6, QSql::In);
    result->addBindValue(QStringLiteral("not a number"), QSql::In);
    QVERIFY_SQL(*result, result->exec());
    QVERIFY(result->fetchFirst());
    QCOMPARE(result->data(0).toInt(), 6);
}

void tst_DorvyResult::runningATextWithParameters()
{
    QVERIFY(!result->reset(QStringLiteral("INSERT INTO t VALUES (?)")));
    QVERIFY(result->lastError().driverText().startsWith(
        QLatin1String("ERROR:  bind message supplies 0 parameters, but prepared statement")));
    QCOMPARE(result->lastError().databaseText(), executeFailed());
    // The statement is kept and can be run with its value.
    result->addBindValue(6, QSql::In);
    QVERIFY_SQL(*result, result->exec());
}

void tst_DorvyResult::columns_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QVariant::Type>("qtType");
    QTest::addColumn<int>("oid");
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("precision");
    const auto row = [](const char *type, QVariant::Type qtType, int oid, int length,
                        int precision) {
        QTest::newRow(type) << QString::fromLatin1(type) << qtType << oid << length << precision;
    };
    row("timestamp", QVariant::DateTime, 1114, 8, 3);
    row("timestamp(0)", QVariant::DateTime, 1114, 8, 3);
    row("timestamp(6)", QVariant::DateTime, 1114, 8, 3);
    row("timestamptz", QVariant::DateTime, 1184, 8, 3);
    row("timestamptz(2)", QVariant::DateTime, 1184, 8, 3);
    row("numeric", QVariant::Double, 1700, -1, -1);
    row("numeric(12,2)", QVariant::Double, 1700, 12, 2);
    row("numeric(5)", QVariant::Double, 1700, 5, 0);
    row("numeric(1)", QVariant::Double, 1700, 1, 0);
    row("numeric(1000,1000)", QVariant::Double, 1700, 1000, 1000);
    row("uuid", QVariant::String, 2950, 38, -1);
    row("varchar(40)", QVariant::String, 1043, 40, -1);
    row("varchar(1)", QVariant::String, 1043, 1, -1);
    row("varchar", QVariant::String, 1043, -1, -1);
    row("char(5)", QVariant::String, 1042, 5, -1);
    row("bpchar", QVariant::String, 1042, -1, -1);
    row("text", QVariant::ByteArray, 25, -1, -1);
    row("bytea", QVariant::ByteArray, 17, -1, -1);
    row("jsonb", QVariant::ByteArray, 3802, -1, -1);
    row("bool", QVariant::Bool, 16, 1, -1);
    row("name", QVariant::String, 19, 64, -1);
    row("int2", QVariant::Int, 21, 2, -1);
    row("int4", QVariant::Int, 23, 4, -1);
    row("int8", QVariant::LongLong, 20, 8, -1);
    row("float4", QVariant::Double, 700, 4, -1);
    row("float8", QVariant::Double, 701, 8, -1);
    row("date", QVariant::Date, 1082, 4, -1);
    row("time", QVariant::Time, 1083, 8, -1);
    row("time(3)", QVariant::Time, 1083, 8, 3); // its modifier
    row("time(6)", QVariant::Time, 1083, 8, 6); // is no length, though it is 4 or more
}

void tst_DorvyResult::columns()
{
    QFETCH(QString, type);
    QFETCH(QVariant::Type, qtType);
    QFETCH(int, oid);
    QFETCH(int, length);
    QFETCH(int, precision);
    QVERIFY_SQL(*result, result->reset(QStringLiteral("SELECT NULL::%1 AS c").arg(type)));
    QCOMPARE(result->record().count(), 1);
    const QSqlField field = result->record().field(0);
    QCOMPARE(field.name(), QStringLiteral("c"));
    QCOMPARE(field.type(), qtType);
    QCOMPARE(field.typeID(), oid);
    QCOMPARE(field.length(), length);
    QCOMPARE(field.precision(), precision);
}

void tst_DorvyResult::columnsNoServerMakes_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("modifier");
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("precision");
    QTest::newRow("unknown, ended by a zero") << 705 << -2 << -1 << -2 << -1;
    QTest::newRow("size -2 with a modifier") << 705 << -2 << 24 << -2 << 24;
    QTest::newRow("varchar, least modifier") << 1043 << -1 << 4 << 0 << -1;
    QTest::newRow("varchar, modifier below it") << 1043 << -1 << 3 << -1 << 3;
    QTest::newRow("varchar, modifier 0") << 1043 << -1 << 0 << -1 << 0;
    QTest::newRow("varchar, greatest modifier") << 1043 << -1 << 2147483647 << 2147483643 << -1;
    QTest::newRow("int4 with a modifier") << 23 << 4 << 24 << 4 << 24;
    QTest::newRow("numeric, modifier 4") << 1700 << -1 << 4 << 0 << 0;
    QTest::newRow("numeric, modifier 0") << 1700 << -1 << 0 << 0 << 65532;
    QTest::newRow("numeric, negative modifier") << 1700 << -1 << -5 << -1 << 65527;
    QTest::newRow("uuid with a modifier") << 2950 << 16 << 7 << 38 << 7;
    QTest::newRow("timestamp with a modifier") << 1114 << 8 << 6 << 8 << 3;
}

void tst_DorvyResult::columnsNoServerMakes()
{
    QFETCH(int, oid);
    QFETCH(int, size);
    QFETCH(int, modifier);
    QFETCH(int, length);
    QFETCH(int, precision);
    char name[] = "c";
    PGresAttDesc column{name, 0, 0, 1, static_cast<Oid>(oid), size, modifier};
    PGresult *rows = PQmakeEmptyPGresult(nullptr, PGRES_TUPLES_OK);
    QVERIFY(PQsetResultAttrs(rows, 1, &column));
    const Dorvy3Result page(rows, QSharedPointer<Dorvy3Connection>::create(nullptr, QString()));
    const QSqlRecord record = hlpDescribeColumns(page);
    QCOMPARE(record.count(), 1);
    QCOMPARE(record.field(0).name(), QStringLiteral("c"));
    QCOMPARE(record.field(0).length(), length);
    QCOMPARE(record.field(0).precision(), precision);
    QCOMPARE(record.field(0).typeID(), oid);
}

void tst_DorvyResult::columnAttributesAreQts()
{
    QVERIFY(result->reset(QStringLiteral("SELECT a FROM t")));
    const QSqlField field = result->record().field(0);
    QCOMPARE(field.requiredStatus(), QSqlField::Unknown);
    QVERIFY(!field.defaultValue().isValid());
    QVERIFY(!field.isReadOnly());
    QVERIFY(!field.isAutoValue());
    QVERIFY(field.isGenerated());
    QVERIFY(field.isNull());
    QVERIFY(field.tableName().isEmpty());
}

void tst_DorvyResult::columnsAreInOrder()
{
    QVERIFY(result->reset(
        QStringLiteral("SELECT 1 AS b, 2 AS a, 3 AS \"Имя\", 4 AS b, 5 FROM t WHERE false")));
    const QSqlRecord record = result->record(); // of a query without rows
    QCOMPARE(record.count(), 5);
    QCOMPARE(record.fieldName(0), QStringLiteral("b"));
    QCOMPARE(record.fieldName(1), QStringLiteral("a"));
    QCOMPARE(record.fieldName(2), QStringLiteral("Имя"));
    QCOMPARE(record.fieldName(3), QStringLiteral("b"));
    QCOMPARE(record.fieldName(4), QStringLiteral("?column?"));
}

void tst_DorvyResult::columnsOfEveryRun()
{
    QVERIFY(result->prepare(
        QStringLiteral("SELECT a, b, 1.5::numeric(12,2) AS c FROM t WHERE a >= ?")));
    QVERIFY(result->record().isEmpty());
    const QStringList columns{QStringLiteral("a 2 23 4 -1"), QStringLiteral("b 12 25 -1 -1"),
                              QStringLiteral("c 6 1700 12 2")};
    const QList<QPair<QVariant, int>> runs{{1, 5}, {4, 2}, {6, 0}, {QVariant(QVariant::Int), 0},
                                           {5, 1}, {1, 5}};
    for (const auto &run : runs) {
        result->bindValue(0, run.first, QSql::In);
        QVERIFY_SQL(*result, result->exec());
        QCOMPARE(columnsOf(result->record()), columns);
        QCOMPARE(result->size(), run.second);
        QCOMPARE(result->fetchFirst(), run.second > 0);
        QCOMPARE(result->data(2), run.second > 0 ? QVariant(1.5) : QVariant(QVariant::Double));
        QVERIFY(result->record().field(0).isNull()); // a description has no values
    }
}

void tst_DorvyResult::columnsOfAnotherText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("column");
    QTest::addColumn<QVariant>("value");
    const auto row = [](const char *tag, const char *text, const char *column,
                        const QVariant &value) {
        QTest::newRow(tag) << QString::fromLatin1(text) << QString::fromLatin1(column) << value;
    };
    row("the same", "SELECT 1 AS a", "a 2 23 4 -1", 1);
    row("another value", "SELECT 2 AS a", "a 2 23 4 -1", 2);
    row("another name", "SELECT 1 AS b", "b 2 23 4 -1", 1);
    row("another type", "SELECT 1::int8 AS a", "a 4 20 8 -1", 1);
    row("another length", "SELECT 'x'::varchar(5) AS a", "a 10 1043 5 -1", QStringLiteral("x"));
}

void tst_DorvyResult::columnsOfAnotherText()
{
    QFETCH(QString, text);
    QFETCH(QString, column);
    QFETCH(QVariant, value);
    const QString first = QStringLiteral("SELECT 1 AS a");
    for (const bool failing : {false, true}) {
        QVERIFY(result->prepare(first));
        for (int run = 0; run < 2; ++run) {
            QVERIFY_SQL(*result, result->exec());
            QCOMPARE(columnsOf(result->record()), QStringList(QStringLiteral("a 2 23 4 -1")));
        }
        if (failing) {
            QVERIFY(!result->prepare(QStringLiteral("SELEC 1")));
            VERIFY_INACTIVE(*result);
        }
        QVERIFY_SQL(*result, result->prepare(text));
        QVERIFY(result->record().isEmpty());
        for (int run = 0; run < 2; ++run) {
            QVERIFY_SQL(*result, result->exec());
            QCOMPARE(columnsOf(result->record()), QStringList(column));
            QVERIFY(result->fetchFirst());
            QCOMPARE(result->data(0), value);
        }
        QVERIFY_SQL(*result, result->reset(first));
        QCOMPARE(columnsOf(result->record()), QStringList(QStringLiteral("a 2 23 4 -1")));
    }
}

void tst_DorvyResult::columnsAfterDetach()
{
    QVERIFY(result->prepare(QStringLiteral("SELECT a, b FROM t")));
    QVERIFY(result->exec());
    QVERIFY(result->fetchFirst());
    const QStringList columns = columnsOf(result->record());
    QCOMPARE(columns.size(), 2);
    result->detachFromResultSet();
    QCOMPARE(columnsOf(result->record()), columns);
    QVERIFY(!result->data(0).isValid());
    QVERIFY(!result->data(2).isValid());
    QVERIFY(!result->isNull(0));
    // Prepared again, it is what it was; so is another text.
    for (const char *text : {"SELECT a, b FROM t", "SELECT b FROM t"}) {
        QVERIFY_SQL(*result, result->prepare(QString::fromLatin1(text)));
        QVERIFY(result->record().isEmpty());
        QVERIFY_SQL(*result, result->exec());
        QVERIFY(result->fetchFirst());
        const int last = result->record().count() - 1;
        QCOMPARE(columnsOf(result->record()), columns.mid(1 - last));
        QCOMPARE(result->data(last), QVariant(QStringLiteral("text 1")));
        result->detachFromResultSet();
    }
}

void tst_DorvyResult::columnsAreACopy()
{
    QVERIFY(result->prepare(QStringLiteral("SELECT a, b FROM t")));
    QVERIFY(result->exec());
    const QStringList columns = columnsOf(result->record());
    QSqlRecord changed = result->record();
    changed.setValue(0, 7);
    changed.remove(1);
    QVERIFY(result->exec());
    QCOMPARE(columnsOf(result->record()), columns);
    QVERIFY(result->record().isNull(0));
}

void tst_DorvyResult::columnOfUnknownTypeIsFatal_data()
{
    QTest::addColumn<QString>("expression");
    QTest::addColumn<QString>("message");
    const auto row = [](const char *expression, const char *message) {
        QTest::newRow(expression) << QString::fromLatin1(expression)
                                  << QString::fromLatin1(message);
    };
    // The type table stands before the rule about their length.
    row("B'101'::bit(3)", "DORVY: hlpDecodePSQLType - unknown ptype (1560)");
    row("B'101'::varbit(5)", "DORVY: hlpDecodePSQLType - unknown ptype (1562)");
    row("'1 day'::interval", "DORVY: hlpDecodePSQLType - unknown ptype (1186)");
    row("1, NULL::oid", "DORVY: hlpDecodePSQLType - unknown ptype (26)");
    row("'{}'::json", "DORVY: hlpDecodePSQLType - unknown ptype (114)");
    row("'12:00+03'::timetz", "DORVY: hlpDecodePSQLType - unknown ptype (1266)");
    row("ARRAY[1::int2]", "DORVY: hlpDecodePSQLType - unknown ptype (1005)");
}

void tst_DorvyResult::columnOfUnknownTypeIsFatal()
{
    QFETCH(QString, expression);
    QFETCH(QString, message);
    const ChildOutcome outcome = runInChild([this, expression]() {
        DorvyDriver own(QSharedPointer<Dorvy3Transacted>::create());
        own.open(QStringLiteral("postgres"), QStringLiteral("dorvy"), QString(),
                 cluster.socketDir(), cluster.port(), QString());
        OpenResult rows(&own);
        rows.reset(QStringLiteral("SELECT ") + expression);
    });
    QCOMPARE(outcome.fatal, message);
    QVERIFY(outcome.aborted);
}

void tst_DorvyResult::dataWithoutPageIsInvalid()
{
    result->setAt(0);
    QVERIFY(!result->data(0).isValid());
    QVERIFY(!result->data(-1).isValid());
    QVERIFY(!result->isNull(0));
    QVERIFY(result->reset(QStringLiteral("SELECT NULL::int")));
    result->detachFromResultSet();
    QVERIFY(!result->data(0).isValid());
    QVERIFY(!result->isNull(0));
}

void tst_DorvyResult::dataBeyondTheColumnsIsInvalid()
{
    QVERIFY(result->reset(QStringLiteral("SELECT 1, 2")));
    QVERIFY(result->fetchFirst());
    QCOMPARE(result->data(1), QVariant(2));
    QVERIFY(!result->data(2).isValid());
    QVERIFY(!result->data(2147483647).isValid());
    QVERIFY(result->reset(QStringLiteral("UPDATE t SET b = 'new'")));
    QVERIFY(!result->data(0).isValid());
}

void tst_DorvyResult::dataOfNothingIsSilent()
{
    const ChildOutcome outcome = runInChild([this]() {
        DorvyDriver own(QSharedPointer<Dorvy3Transacted>::create());
        own.open(QStringLiteral("postgres"), QStringLiteral("dorvy"), QString(),
                 cluster.socketDir(), cluster.port(), QString());
        OpenResult rows(&own);
        rows.data(0);
        rows.reset(QStringLiteral("SELECT 1"));
        rows.fetchFirst();
        rows.data(1);
        std::printf("read %d", rows.data(0).toInt());
    });
    QCOMPARE(outcome.output, QStringLiteral("read 1"));
    QVERIFY(!outcome.aborted);
}

void tst_DorvyResult::dataOfNegativeColumnIsFatal()
{
    VERIFY_FATAL(runInChild([this]() {
                     DorvyDriver own(QSharedPointer<Dorvy3Transacted>::create());
                     own.open(QStringLiteral("postgres"), QStringLiteral("dorvy"), QString(),
                              cluster.socketDir(), cluster.port(), QString());
                     OpenResult rows(&own);
                     rows.reset(QStringLiteral("SELECT 1"));
                     rows.fetchFirst();
                     rows.data(-1);
                 }),
                 "DORVY: hlpDecodePSQLType - unknown ptype (0)");
}

void tst_DorvyResult::nullHasItsType_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QVariant::Type>("qtType");
    const auto row = [](const char *type, QVariant::Type qtType) {
        QTest::newRow(type) << QString::fromLatin1(type) << qtType;
    };
    row("bool", QVariant::Bool);
    row("bytea", QVariant::ByteArray);
    row("name", QVariant::String);
    row("int8", QVariant::LongLong);
    row("int2", QVariant::Int);
    row("int4", QVariant::Int);
    row("text", QVariant::ByteArray);
    row("float4", QVariant::Double);
    row("float8", QVariant::Double);
    row("bpchar", QVariant::String);
    row("varchar", QVariant::String);
    row("date", QVariant::Date);
    row("time", QVariant::Time);
    row("timestamp", QVariant::DateTime);
    row("timestamptz", QVariant::DateTime);
    row("numeric", QVariant::Double);
    row("uuid", QVariant::String);
    row("jsonb", QVariant::ByteArray);
}

void tst_DorvyResult::nullHasItsType()
{
    QFETCH(QString, type);
    QFETCH(QVariant::Type, qtType);
    QVERIFY(result->reset(QStringLiteral("SELECT NULL::") + type));
    QVERIFY(result->fetchFirst());
    const QVariant value = result->data(0);
    QVERIFY(value.isNull());
    QVERIFY(value.isValid());
    QCOMPARE(value.type(), qtType);
    QVERIFY(result->isNull(0));
}

void tst_DorvyResult::nullOfUnknownTypeIsFatal()
{
    VERIFY_FATAL(runInChild([this]() {
                     const auto connection = QSharedPointer<Dorvy3Connection>::create(
                         PQconnectdb(cluster.conninfo().constData()), QString());
                     PGresult *null = PQexec(connection->connection(), "SELECT NULL::interval");
                     OpenResult rows(driver.get());
                     rows.half().page = QSharedPointer<Dorvy3Result>::create(null, connection);
                     rows.setAt(0);
                     rows.data(0);
                 }),
                 "DORVY: hlpDecodePSQLType - unknown ptype (1186)");
}

void tst_DorvyResult::dataBesideTheRowsIsNull()
{
    // The position goes to libpq as it is, and libpq calls a row that is not there null.
    QVERIFY(result->reset(QStringLiteral("SELECT 1")));
    for (const int row : {int(QSql::BeforeFirstRow), int(QSql::AfterLastRow), 1, 1000}) {
        result->setAt(row);
        QCOMPARE(result->data(0).type(), QVariant::Int);
        QVERIFY(result->data(0).isNull());
        QVERIFY(result->isNull(0));
    }
    result->setAt(0);
    QCOMPARE(result->data(0), QVariant(1));
}

void tst_DorvyResult::dataOfTextResult()
{
    // The driver asks for binary rows alone; a text result is decoded all the same.
    const auto connection = QSharedPointer<Dorvy3Connection>::create(
        PQconnectdb(cluster.conninfo().constData()), QString());
    PGresult *rows = PQexec(connection->connection(),
                            "SELECT -5, 12.50, 'Имя'::varchar, true, NULL::int8, 1::int2");
    result->half().page = QSharedPointer<Dorvy3Result>::create(rows, connection);
    result->setAt(0);
    QCOMPARE(result->data(0).userType(), int(QMetaType::UInt));
    QCOMPARE(result->data(0).toInt(), -5);
    QCOMPARE(result->data(1), QVariant(12.5));
    result->setNumericalPrecisionPolicy(QSql::HighPrecision);
    QCOMPARE(result->data(1), QVariant(QStringLiteral("12.50")));
    result->setNumericalPrecisionPolicy(QSql::LowPrecisionInt32);
    QCOMPARE(result->data(1), QVariant(12));
    result->setNumericalPrecisionPolicy(QSql::LowPrecisionInt64);
    QCOMPARE(result->data(1), QVariant(Q_INT64_C(12)));
    QCOMPARE(result->data(2), QVariant(QStringLiteral("Имя")));
    QCOMPARE(result->data(3), QVariant(true));
    QCOMPARE(result->data(4).type(), QVariant::LongLong);
    QVERIFY(result->data(4).isNull());
    QVERIFY(result->isNull(4));
    QVERIFY(!result->isNull(5));
}

void tst_DorvyResult::timeInTextResultIsFatal()
{
    VERIFY_FATAL(runInChild([this]() {
                     const auto connection = QSharedPointer<Dorvy3Connection>::create(
                         PQconnectdb(cluster.conninfo().constData()), QString());
                     PGresult *time = PQexec(connection->connection(), "SELECT '10:00'::time");
                     OpenResult rows(driver.get());
                     rows.half().page = QSharedPointer<Dorvy3Result>::create(time, connection);
                     rows.setAt(0);
                     rows.data(0);
                 }),
                 "DORVY: hlpPSQLValueToVariant - unsupported ptype (1083)");
}

void tst_DorvyResult::isNullTellsNullsFromValues()
{
    QVERIFY(result->reset(QStringLiteral("SELECT NULL::int, 0, '', NULL::text")));
    QVERIFY(result->fetchFirst());
    QVERIFY(result->isNull(0));
    QVERIFY(!result->isNull(1));
    QVERIFY(!result->isNull(2));
    QVERIFY(result->isNull(3));
}

void tst_DorvyResult::isNullOfNoColumnIsTrue()
{
    // The column goes to libpq as it is, and libpq calls one that is not there null.
    QVERIFY(result->reset(QStringLiteral("SELECT 0, 1")));
    QVERIFY(result->fetchFirst());
    QVERIFY(!result->isNull(1));
    for (const int column : {-1, 2, 2147483647}) {
        QVERIFY(result->isNull(column));
    }
}

void tst_DorvyResult::valuesOfEveryPage()
{
    QVERIFY(result->prepare(QStringLiteral("SELECT g, 'text ' || g, CASE WHEN g % 2 = 0 THEN "
                                           "g::float8 / 2 END, '2000-01-01'::date + g "
                                           "FROM generate_series(?::int, 300) g")));
    for (const int first : {1, 150, 300, 1}) {
        result->setAt(QSql::BeforeFirstRow);
        result->bindValue(0, first, QSql::In);
        QVERIFY_SQL(*result, result->exec());
        for (int row = first; row <= 300; ++row) {
            QVERIFY_SQL(*result, result->fetchNext());
            QCOMPARE(result->data(0), QVariant(row));
            QCOMPARE(result->data(1), QVariant(QStringLiteral("text %1").arg(row)));
            QCOMPARE(result->data(2).toDouble(), row % 2 == 0 ? row / 2.0 : 0.0);
            QCOMPARE(result->isNull(2), row % 2 != 0);
            QCOMPARE(result->data(2).isNull(), row % 2 != 0);
            QCOMPARE(result->data(3), QVariant(QDate(2000, 1, 1).addDays(row)));
            QVERIFY(!result->isNull(3));
            QVERIFY(!result->data(4).isValid());
            QVERIFY(result->isNull(4));
        }
        QVERIFY(!result->fetchNext());
        QCOMPARE(result->record().count(), 4);
    }
}

void tst_DorvyResult::resultLeavesTheDriversList()
{
    auto *half = static_cast<DorvyDriverPrivate *>(QObjectPrivate::get(driver.get()));
    QCOMPARE(half->results.size(), 1);
    result.reset();
    QVERIFY(half->results.isEmpty());
}

void tst_DorvyResult::resultOutlivesItsDriver()
{
    QVERIFY(result->reset(QStringLiteral("SELECT a FROM t")));
    QVERIFY(result->fetchFirst());
    driver.reset();
    QVERIFY(!result->driver());
    QVERIFY(!result->data(0).isValid());
    QVERIFY(!result->isNull(0));
    QVERIFY(!result->fetchNext());
    QCOMPARE(result->size(), -1);
    QCOMPARE(result->numRowsAffected(), -1);
    QVERIFY(!result->lastInsertId().isValid());
    VERIFY_NOT_PREPARED(*result);
    QVERIFY(!result->reset(QStringLiteral("SELECT 1")));
    COMPARE_ERROR(result->lastError(), StatementError,
                  QStringLiteral("Невозможно выполнить запрос"),
                  QStringLiteral("Отсутствует соединение с СУБД"), QString());
    QVERIFY(!result->prepare(QStringLiteral("SELECT 1")));
    QCOMPARE(result->lastError().databaseText(), QStringLiteral("Отсутствует соединение с СУБД"));
    result->detachFromResultSet();
    result.reset(); // with nothing to unregister from
}

QTEST_GUILESS_MAIN(tst_DorvyResult)
#include "tst_dorvyresult.moc"
