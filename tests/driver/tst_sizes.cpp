// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The largest values and rows, and those that are larger: what arrives, and what fails how.
#include "access/dorvy3.h"

#include "tests/support/childprocess.h"
#include "tests/support/dorvydatabase.h"
#include "tests/support/pgcluster.h"
#include "tests/support/sqlmacros.h"

#include <QtCore/QCryptographicHash>
#include <QtSql/QSqlDriver>
#include <QtSql/QSqlField>
#include <QtSql/QSqlQuery>
#include <QtTest/QtTest>

#include <cstdio>
#include <cstring>
#include <utility>

#include <sys/resource.h>

namespace {

constexpr int MiB = 1024 * 1024;

// Bytes that no compression makes smaller, and that show where a piece is lost.
QByteArray scrambledBytes(int count)
{
    QByteArray bytes(count, Qt::Uninitialized);
    char *position = bytes.data();
    quint64 state = 42;
    for (int i = 0; i < count; i += static_cast<int>(sizeof(state))) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        std::memcpy(position + i, &state, sizeof(state));
    }
    return bytes;
}

// Sixteen letters of ASCII.
QByteArray scrambledLetters(int count)
{
    QByteArray letters = scrambledBytes(count);
    for (char &letter : letters) {
        letter = static_cast<char>('a' + (letter & 0xf));
    }
    return letters;
}

QByteArray md5(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toHex();
}

// While one lives, the process gets no more than so much memory beyond what it has.
class Shortage
{
public:
    explicit Shortage(int mebibytes)
    {
        std::FILE *file = std::fopen("/proc/self/statm", "r");
        unsigned long pages = 0;
        if (!file || std::fscanf(file, "%lu", &pages) != 1 || std::fclose(file) != 0) {
            qFatal("no statm");
        }
        limit(pages * 4096 + static_cast<rlim_t>(mebibytes) * MiB);
    }
    ~Shortage() { limit(RLIM_INFINITY); }

private:
    Q_DISABLE_COPY(Shortage)

    static void limit(rlim_t bytes)
    {
        const rlimit both = {bytes, RLIM_INFINITY};
        setrlimit(RLIMIT_AS, &both);
    }
};

void tell(const QSqlQuery &query, bool success)
{
    const QSqlError error = query.lastError();
    std::printf("%d|%d|%s|%s\n", success, error.type(), qUtf8Printable(error.driverText()),
                qUtf8Printable(error.databaseText()));
}

} // namespace

class tst_Sizes : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void bytesGoBothWays();
    void textGoesBothWays();
    void largestParameterIsSent();
    void sumBeyondAMessageIsRefused();
    void textBeyondAStringIsInvalid();
    void rowBeyondAMessageFails();
    void queryBeyondAMessageIsRefused();
    void literalBeyondAStringIsEmpty_data();
    void literalBeyondAStringIsEmpty();
    void memoryShortage_data();
    void memoryShortage();
    void memoryShortageForAnError_data();
    void memoryShortageForAnError();

private:
    void insert(const char *column, const QVariant &value);
    void verifyStored(const char *column, const QByteArray &hash);
    void verifyUsable();

    PgCluster cluster;
    QSqlDatabase db;
};

void tst_Sizes::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
}

void tst_Sizes::init()
{
    cluster.run(QStringLiteral("CREATE TABLE t (b bytea, c text)"));
    db = addDorvyDatabase(QStringLiteral("sizes"), cluster);
    QVERIFY_SQL(db, db.open());
}

void tst_Sizes::cleanup()
{
    db = QSqlDatabase();
    QSqlDatabase::removeDatabase(QStringLiteral("sizes"));
    cluster.run(QStringLiteral("DROP TABLE t"));
}

void tst_Sizes::insert(const char *column, const QVariant &value)
{
    QSqlQuery query(db);
    QVERIFY_SQL(
        query,
        query.prepare(QStringLiteral("INSERT INTO t (%1) VALUES (?)").arg(QLatin1String(column))));
    query.addBindValue(value);
    QVERIFY_SQL(query, query.exec());
    // A connection keeps buffers as large as its largest message: they would take the memory.
    db.close();
    QVERIFY_SQL(db, db.open());
}

void tst_Sizes::verifyStored(const char *column, const QByteArray &hash)
{
    const QString stored = cluster.value(
        QStringLiteral("SELECT length(%1) || ' ' || md5(%1) FROM t").arg(QLatin1String(column)));
    QCOMPARE(stored, QStringLiteral("536870912 ") + QString::fromLatin1(hash));
}

// The own connection and the borrowed one, as they are.
void tst_Sizes::verifyUsable()
{
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec(QStringLiteral("INSERT INTO t (c) VALUES ('after')")));
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT c FROM t")) && query.next());
    QCOMPARE(query.value(0).toString(), QStringLiteral("after"));
}

void tst_Sizes::bytesGoBothWays()
{
    QByteArray bytes = scrambledBytes(512 * MiB);
    const QByteArray hash = md5(bytes);
    insert("b", bytes);
    bytes.clear();
    verifyStored("b", hash);
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT b FROM t")) && query.next());
    const QByteArray read = query.value(0).toByteArray();
    QCOMPARE(read.size(), 536870912);
    QCOMPARE(md5(read), hash);
}

void tst_Sizes::textGoesBothWays()
{
    QByteArray letters = scrambledLetters(512 * MiB);
    const QByteArray hash = md5(letters);
    insert("c", QString::fromLatin1(std::exchange(letters, QByteArray())));
    verifyStored("c", hash);
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT c FROM t")) && query.next());
    const QString read = query.value(0).toString();
    QCOMPARE(read.size(), 536870912);
    QCOMPARE(md5(read.toLatin1()), hash);
}

// With names of 18 and 17 letters, which addresses of 12 hexadecimal digits make, Bind has room for
// 1073741766 bytes.
void tst_Sizes::largestParameterIsSent()
{
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.prepare(QStringLiteral("SELECT length(?::bytea)")));
    query.bindValue(0, QByteArray(1073741766, 'x'));
    QVERIFY_SQL(query, query.exec() && query.next());
    QCOMPARE(query.value(0).toInt(), 1073741766);
    query.bindValue(0, QByteArray(1073741767, 'x'));
    QVERIFY(!query.exec());
    COMPARE_ERROR(query.lastError(), StatementError,
                  QStringLiteral("Параметры запроса слишком велики"),
                  QStringLiteral("Ошибка при выполнении запроса к СУБД"), QString());
}

void tst_Sizes::sumBeyondAMessageIsRefused()
{
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.prepare(QStringLiteral(
                           "INSERT INTO t (b) SELECT ?::bytea || ?::bytea || ?::bytea")));
    const QByteArray shared(800 * MiB, 'x');
    for (int i = 0; i < 3; ++i) {
        query.addBindValue(shared);
    }
    QVERIFY(!query.exec());
    COMPARE_ERROR(query.lastError(), StatementError,
                  QStringLiteral("Параметры запроса слишком велики"),
                  QStringLiteral("Ошибка при выполнении запроса к СУБД"), QString());
    query.clear();
    verifyUsable();
}

// Of ASCII letters Qt decodes 1073741809 at most; the server sends six more.
void tst_Sizes::textBeyondAStringIsInvalid()
{
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT repeat('0123456789', 107374181)")) &&
                           query.next());
    QVERIFY(!query.value(0).isValid());
    QVERIFY(!query.isNull(0));
    query.clear();
    verifyUsable();
}

void tst_Sizes::rowBeyondAMessageFails()
{
    QSqlQuery query(db);
    QVERIFY(!query.exec(QStringLiteral("SELECT repeat('0123456789', 60000000), "
                                       "repeat('0123456789', 60000000)")));
    COMPARE_ERROR(query.lastError(), StatementError,
                  QStringLiteral("ERROR:  out of memory\nDETAIL:  Cannot enlarge string buffer "
                                 "containing 600000010 bytes by 600000000 more bytes.\n"),
                  QStringLiteral("Ошибка при выполнении запроса к СУБД"), QString());
    query.clear();
    verifyUsable();
}

// Three bytes each. Not through QSqlQuery, which makes copies of the text before.
void tst_Sizes::queryBeyondAMessageIsRefused()
{
    const auto connection = QSharedPointer<Dorvy3Connection>::create(
        PQconnectdb(cluster.conninfo().constData()), QString());
    Dorvy3Statement statement;
    QSqlError error;
    QVERIFY(!statement.prep(QString(357913942, QChar(0x20ac)), connection, &error, nullptr));
    COMPARE_ERROR(error, StatementError, QStringLiteral("Текст запроса слишком велик"),
                  QStringLiteral("Ошибка при подготовке запроса к СУБД"), QString());
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), connection, &error, nullptr));
}

void tst_Sizes::literalBeyondAStringIsEmpty_data()
{
    QTest::addColumn<int>("bytes");
    QTest::newRow("more than a QString holds") << 268435456;
    QTest::newRow("more than 32 bits count") << 1073741830;
}

// Four letters for each byte.
void tst_Sizes::literalBeyondAStringIsEmpty()
{
    QFETCH(int, bytes);
    QSqlField field(QStringLiteral("b"), QVariant::ByteArray);
    field.setValue(QByteArray(bytes, '\xff'));
    QCOMPARE(db.driver()->formatValue(field).size(), 0);
}

void tst_Sizes::memoryShortage_data()
{
    QTest::addColumn<QString>("sql");
    QTest::addColumn<int>("valueMebibytes");
    QTest::addColumn<int>("memoryMebibytes");
    QTest::addColumn<QString>("outcome");
    const QString insert = QStringLiteral("INSERT INTO t (b) VALUES (?)");
    QTest::newRow("encoding") << insert << 128 << 64
                              << QStringLiteral("0|2|Недостаточно памяти|"
                                                "Ошибка при выполнении запроса к СУБД\n");
    QTest::newRow("sending") << insert << 128 << 160
                             << QStringLiteral("0|2|cannot allocate memory for output buffer\n|"
                                               "Ошибка при выполнении запроса к СУБД\n");
    QTest::newRow("receiving")
        << QStringLiteral("SELECT repeat('0123456789', 13000000), length(?::bytea)") << 1 << 64
        << QStringLiteral("0|2|cannot allocate memory for input buffer\n"
                          "lost synchronization with server: got message type \"D\", length "
                          "130000014\n|"
                          "Ошибка при выполнении запроса к СУБД\n");
}

// The database can be used again without another open().
void tst_Sizes::memoryShortage()
{
    QFETCH(QString, sql);
    QFETCH(int, valueMebibytes);
    QFETCH(int, memoryMebibytes);
    QFETCH(QString, outcome);
    const ChildOutcome child = runInChild([&] {
        QSqlDatabase own = addDorvyDatabase(QStringLiteral("child"), cluster);
        own.open();
        QSqlQuery query(own);
        query.prepare(sql);
        query.addBindValue(QByteArray(valueMebibytes * MiB, 'x'));
        bool success = true;
        {
            const Shortage shortage(memoryMebibytes);
            success = query.exec();
        }
        tell(query, success);
        query.clear(); // lets a connection that is lost go
        tell(query, query.exec(QStringLiteral("SELECT 1")));
    });
    QCOMPARE(child.output, outcome + QStringLiteral("1|0||\n"));
}

void tst_Sizes::memoryShortageForAnError_data()
{
    QTest::addColumn<bool>("later");
    QTest::newRow("first page") << false;
    QTest::newRow("later page") << true;
}

// The connection has buffers for it from the first time, and the program no QString.
void tst_Sizes::memoryShortageForAnError()
{
    QFETCH(bool, later);
    const QString failing = QStringLiteral("SELECT CASE WHEN g = %1 THEN loud() END "
                                           "FROM generate_series(1, 200) g")
                                .arg(later ? 150 : 1);
    cluster.run(QStringLiteral("CREATE OR REPLACE FUNCTION loud() RETURNS int LANGUAGE plpgsql AS "
                               "'BEGIN RAISE EXCEPTION USING MESSAGE = repeat(''x'', 130000000); "
                               "END'"));
    const ChildOutcome child = runInChild([&] {
        QSqlDatabase own = addDorvyDatabase(QStringLiteral("child"), cluster);
        own.open();
        QSqlQuery first(own);
        QSqlQuery query(own);
        const auto fails = [&failing](QSqlQuery *reader) {
            return !reader->exec(failing) || (reader->last() && !reader->next());
        };
        bool failed = fails(&first);
        first.clear(); // gives the borrowed connection back
        {
            const Shortage shortage(420);
            failed = fails(&query) && failed;
        }
        tell(query, !failed);
    });
    QCOMPARE(child.output, QStringLiteral("0|2|Недостаточно памяти|"
                                          "Ошибка при выполнении запроса к СУБД\n"));
}

QTEST_GUILESS_MAIN(tst_Sizes)
#include "tst_sizes.moc"
