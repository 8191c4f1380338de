// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Russian text on its whole road, in databases of several encodings.
#include "access/dorvy3.h"
#include "driver/dorvydecode_p.h"
#include "driver/dorvydriver.h"
#include "tests/support/dorvydatabase.h"
#include "tests/support/pgcluster.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/wireproxy.h"

#include <QtCore/QTextCodec>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlField>
#include <QtSql/QSqlQuery>
#include <QtSql/QSqlRecord>
#include <QtTest/QtTest>

#include <limits>
#include <memory>

namespace {

// "Привет, Ёж" in the encodings of the table.
constexpr char Utf8[] = "d09fd180d0b8d0b2d0b5d1822c20d081d0b6";
constexpr char Cp1251[] = "cff0e8e2e5f22c20a8e6";
constexpr char Koi8R[] = "f0d2c9d7c5d42c20b3d6";

// "имя" likewise.
constexpr char NameUtf8[] = "d0b8d0bcd18f";
constexpr char NameCp1251[] = "e8ecff";
constexpr char NameKoi8R[] = "c9cdd1";

QString greeting()
{
    return QStringLiteral("Привет, Ёж");
}

QString connectionName()
{
    return QStringLiteral("encodings");
}

// The codec of the locale, put back at the end.
class LocaleCodec
{
public:
    explicit LocaleCodec(const QByteArray &name)
        : old(QTextCodec::codecForLocale())
    {
        if (!name.isEmpty()) {
            QTextCodec::setCodecForLocale(QTextCodec::codecForName(name));
        }
    }
    ~LocaleCodec() { QTextCodec::setCodecForLocale(old); }

private:
    Q_DISABLE_COPY(LocaleCodec)

    QTextCodec *old;
};

} // namespace

class tst_Encodings : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();

    void boundValue_data() { databases(); }
    void boundValue();
    void valueInText_data() { databases(); }
    void valueInText();
    void boundValueEqualsValueInText_data() { databases(); }
    void boundValueEqualsValueInText();
    void valueWrittenByOthers_data() { databases(); }
    void valueWrittenByOthers();
    void bytesOnTheWire_data() { databases(); }
    void bytesOnTheWire();
    void everyTextType_data();
    void everyTextType();
    void wholeAlphabet_data() { databases(); }
    void wholeAlphabet();
    void columnNames_data() { databases(); }
    void columnNames();
    void tableNames_data() { databases(); }
    void tableNames();
    void errorOfPreparation_data() { databases(); }
    void errorOfPreparation();
    void errorOfExecution_data() { databases(); }
    void errorOfExecution();
    void errorOfALaterPage_data() { databases(); }
    void errorOfALaterPage();
    void valueInTextFormat_data() { databases(); }
    void valueInTextFormat();
    void searchPathIsTakenOver_data() { databases(); }
    void searchPathIsTakenOver();

    void unencodableCharacter_data();
    void unencodableCharacter();
    void codecIsChosenAtTheConnection();
    void negativeLengthIsUpToTheZero_data() { databases(); }
    void negativeLengthIsUpToTheZero();

private:
    void databases();
    bool open(const QString &database);
    QSqlQuery query() const { return QSqlQuery(QSqlDatabase::database(connectionName())); }
    // Bytes of the first column of the first row, as the server holds them.
    QByteArray stored(const QString &sql, const QString &database) const
    {
        return cluster.value(sql, database).toLatin1();
    }

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
};

void tst_Encodings::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
    const QStringList encodings{QStringLiteral("UTF8"), QStringLiteral("WIN1251"),
                                QStringLiteral("KOI8R"), QStringLiteral("SQL_ASCII")};
    for (const QString &encoding : encodings) {
        const QString database = encoding.toLower();
        cluster.createDatabase(database, encoding);
        cluster.run(QStringLiteral("CREATE TABLE t (v text)"), database);
    }
}

void tst_Encodings::cleanupTestCase()
{
    proxy.reset();
}

void tst_Encodings::cleanup()
{
    QSqlDatabase::removeDatabase(connectionName());
    for (const char *database : {"utf8", "win1251", "koi8r", "sql_ascii"}) {
        cluster.run(QStringLiteral("TRUNCATE t"), QString::fromLatin1(database));
    }
}

// One row for each encoding; a server without one leaves the choice to the locale.
void tst_Encodings::databases()
{
    QTest::addColumn<QString>("database");
    QTest::addColumn<QByteArray>("locale");
    QTest::addColumn<QByteArray>("hex");     // of the greeting
    QTest::addColumn<QByteArray>("nameHex"); // of "имя"
    const auto row = [](const char *tag, const char *database, const char *locale, const char *hex,
                        const char *nameHex) {
        QTest::newRow(tag) << QString::fromLatin1(database) << QByteArray(locale) << QByteArray(hex)
                           << QByteArray(nameHex);
    };
    row("UTF8", "utf8", "", Utf8, NameUtf8);
    row("UTF8, other locale", "utf8", "KOI8-R", Utf8, NameUtf8);
    row("WIN1251", "win1251", "", Cp1251, NameCp1251);
    row("WIN1251, other locale", "win1251", "KOI8-R", Cp1251, NameCp1251);
    row("KOI8R", "koi8r", "", Koi8R, NameKoi8R);
    row("KOI8R, other locale", "koi8r", "windows-1251", Koi8R, NameKoi8R);
    row("SQL_ASCII, UTF-8", "sql_ascii", "UTF-8", Utf8, NameUtf8);
    row("SQL_ASCII, windows-1251", "sql_ascii", "windows-1251", Cp1251, NameCp1251);
    row("SQL_ASCII, KOI8-R", "sql_ascii", "KOI8-R", Koi8R, NameKoi8R);
}

bool tst_Encodings::open(const QString &database)
{
    QSqlDatabase db = addDorvyDatabase(connectionName(), cluster, database);
    db.setHostName(proxy->host());
    db.setPort(proxy->port());
    db.setConnectOptions(QStringLiteral("sslmode=disable;gssencmode=disable"));
    return db.open();
}

#define OPEN_IN_ENCODING                                                                           \
    QFETCH(QString, database);                                                                     \
    QFETCH(QByteArray, locale);                                                                    \
    QFETCH(QByteArray, hex);                                                                       \
    QFETCH(QByteArray, nameHex);                                                                   \
    const LocaleCodec localeCodec(locale);                                                         \
    QVERIFY(open(database));                                                                       \
    Q_UNUSED(hex)                                                                                  \
    Q_UNUSED(nameHex)

void tst_Encodings::boundValue()
{
    OPEN_IN_ENCODING
    QSqlQuery insert = query();
    QVERIFY_SQL(insert, insert.prepare(QStringLiteral("INSERT INTO t VALUES (?)")));
    insert.addBindValue(greeting());
    QVERIFY_SQL(insert, insert.exec());
    QCOMPARE(stored(QStringLiteral("SELECT encode(v::bytea, 'hex') FROM t"), database), hex);
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.prepare(QStringLiteral("SELECT v FROM t WHERE v = ?")));
    select.addBindValue(greeting());
    QVERIFY_SQL(select, select.exec());
    QVERIFY(select.next());
    QCOMPARE(select.value(0).toString(), greeting());
}

void tst_Encodings::valueInText()
{
    OPEN_IN_ENCODING
    QSqlQuery insert = query();
    QVERIFY_SQL(insert, insert.exec(QStringLiteral("INSERT INTO t VALUES ('%1')").arg(greeting())));
    QCOMPARE(stored(QStringLiteral("SELECT encode(v::bytea, 'hex') FROM t"), database), hex);
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(QStringLiteral("SELECT v, '%1' FROM t").arg(greeting())));
    QVERIFY(select.next());
    QCOMPARE(select.value(0).toString(), greeting());
    QCOMPARE(select.value(1).toString(), greeting());
}

void tst_Encodings::boundValueEqualsValueInText()
{
    OPEN_IN_ENCODING
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.prepare(QStringLiteral("SELECT ?::text = '%1'").arg(greeting())));
    select.addBindValue(greeting());
    QVERIFY_SQL(select, select.exec());
    QVERIFY(select.next());
    QCOMPARE(select.value(0), QVariant(true));
}

void tst_Encodings::valueWrittenByOthers()
{
    OPEN_IN_ENCODING
    // In ASCII alone, so that no client's encoding has a part in it.
    cluster.run(
        QStringLiteral("INSERT INTO t VALUES (convert_from('\\x%1', getdatabaseencoding()))")
            .arg(QString::fromLatin1(hex)),
        database);
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(QStringLiteral("SELECT v FROM t")));
    QVERIFY(select.next());
    QCOMPARE(select.value(0).toString(), greeting());
}

void tst_Encodings::bytesOnTheWire()
{
    OPEN_IN_ENCODING
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.prepare(QStringLiteral("SELECT ?::text, 'Привет, Ёж'")));
    select.addBindValue(greeting());
    QVERIFY_SQL(select, select.exec());
    const QByteArray bytes = QByteArray::fromHex(hex);
    int texts = 0;
    int values = 0;
    int rows = 0;
    for (const WireMessage &message : proxy->messages()) {
        if (message.connection > proxy->connectionCount() - 2) {
            const int found = message.body.count(bytes);
            texts += message.fromClient && message.type == 'P' ? found : 0;
            values += message.fromClient && message.type == 'B' ? found : 0;
            rows += !message.fromClient && message.type == 'D' ? found : 0;
        }
    }
    QCOMPARE(texts, 2); // prepared on either connection
    QCOMPARE(values, 1);
    QCOMPARE(rows, 2);
}

void tst_Encodings::everyTextType_data()
{
    QTest::addColumn<QString>("database");
    QTest::addColumn<QByteArray>("locale");
    QTest::addColumn<QString>("type");
    for (const char *database : {"utf8", "win1251", "koi8r", "sql_ascii"}) {
        for (const char *type : {"text", "varchar", "varchar(40)", "name", "bpchar", "char(40)"}) {
            QTest::newRow((QByteArray(database) + ' ' + type).constData())
                << QString::fromLatin1(database) << QByteArray("UTF-8")
                << QString::fromLatin1(type);
        }
    }
}

void tst_Encodings::everyTextType()
{
    QFETCH(QString, database);
    QFETCH(QByteArray, locale);
    QFETCH(QString, type);
    const LocaleCodec localeCodec(locale);
    QVERIFY(open(database));
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.prepare(QStringLiteral("SELECT ?::text::%1").arg(type)));
    select.addBindValue(greeting());
    QVERIFY_SQL(select, select.exec());
    QVERIFY(select.next());
    QCOMPARE(select.value(0).userType(), int(QMetaType::QString));
    QCOMPARE(select.value(0).toString(), greeting());
}

void tst_Encodings::wholeAlphabet()
{
    OPEN_IN_ENCODING
    const QString alphabet =
        QStringLiteral("АБВГДЕЁЖЗИЙКЛМНОПРСТУФХЦЧШЩЪЫЬЭЮЯ абвгдеёжзийклмнопрстуфхцчшщъыьэюя");
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.prepare(QStringLiteral("SELECT ?::text, '%1'::text").arg(alphabet)));
    select.addBindValue(alphabet);
    QVERIFY_SQL(select, select.exec());
    QVERIFY(select.next());
    QCOMPARE(select.value(0).toString(), alphabet);
    QCOMPARE(select.value(1).toString(), alphabet);
}

void tst_Encodings::columnNames()
{
    OPEN_IN_ENCODING
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(QStringLiteral("SELECT 1 AS имя, 2 AS \"Два слова\"")));
    QCOMPARE(select.record().fieldName(0), QStringLiteral("имя"));
    QCOMPARE(select.record().fieldName(1), QStringLiteral("Два слова"));
    QVERIFY(select.next());
    QCOMPARE(select.value(QStringLiteral("имя")).toInt(), 1);
    QCOMPARE(select.record().value(QStringLiteral("Два слова")).toInt(), 2);
}

void tst_Encodings::tableNames()
{
    OPEN_IN_ENCODING
    QSqlQuery create = query();
    QVERIFY_SQL(create, create.exec(QStringLiteral("CREATE TABLE имя (имя text)")));
    QCOMPARE(stored(QStringLiteral("SELECT encode(relname::text::bytea, 'hex') FROM pg_class "
                                   "WHERE oid > 16384 AND relkind = 'r' AND relname <> 't'"),
                    database),
             nameHex);
    QVERIFY_SQL(create,
                create.exec(QStringLiteral("INSERT INTO имя VALUES ('%1')").arg(greeting())));
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(QStringLiteral("SELECT имя FROM имя")));
    QVERIFY(select.next());
    QCOMPARE(select.value(0).toString(), greeting());
    select.finish();
    QVERIFY_SQL(create, create.exec(QStringLiteral("DROP TABLE имя")));
}

void tst_Encodings::errorOfPreparation()
{
    OPEN_IN_ENCODING
    QSqlQuery select = query();
    QVERIFY(!select.exec(QStringLiteral("SELECT * FROM \"Нет такой\"")));
    COMPARE_ERROR(select.lastError(), StatementError,
                  QStringLiteral("ERROR:  relation \"Нет такой\" does not exist\n"
                                 "LINE 1: SELECT * FROM \"Нет такой\"\n"
                                 "                      ^\n"),
                  QStringLiteral("Ошибка при подготовке запроса к СУБД"), QString());
}

void tst_Encodings::errorOfExecution()
{
    OPEN_IN_ENCODING
    QSqlQuery raise = query();
    QVERIFY(!raise.exec(QStringLiteral("DO $$ BEGIN RAISE EXCEPTION 'Привет, Ёж' "
                                       "USING DETAIL = 'Подробно', HINT = 'Совет'; END $$")));
    QCOMPARE(raise.lastError().databaseText(),
             QStringLiteral("Ошибка при выполнении запроса к СУБД"));
    QVERIFY2(raise.lastError().driverText().startsWith(
                 QStringLiteral("ERROR:  Привет, Ёж\nDETAIL:  Подробно\nHINT:  Совет\n")),
             qPrintable(raise.lastError().driverText()));
}

void tst_Encodings::errorOfALaterPage()
{
    OPEN_IN_ENCODING
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.prepare(QStringLiteral(
                            "SELECT CASE WHEN g = 200 THEN ?::text ELSE '1' END::bool "
                            "FROM generate_series(1, 300) g")));
    select.addBindValue(greeting());
    QVERIFY_SQL(select, select.exec());
    while (select.next()) {}
    COMPARE_ERROR(select.lastError(), StatementError,
                  QStringLiteral("ERROR:  invalid input syntax for type boolean: "
                                 "\"Привет, Ёж\"\n"),
                  QStringLiteral("Ошибка при выполнении запроса к СУБД"), QString());
}

void tst_Encodings::valueInTextFormat()
{
    OPEN_IN_ENCODING
    const auto connection = QSharedPointer<Dorvy3Connection>::create(
        PQconnectdb(cluster.conninfo(database).constData()), QString());
    QVERIFY(connection->isValid());
    const QByteArray bytes = QByteArray::fromHex(hex);
    QCOMPARE(hlpPSQLValueToVariant(connection, QVariant::String, 1043, QSql::LowPrecisionDouble,
                                   bytes.constData()),
             QVariant(greeting()));
    QCOMPARE(hlpBinaryPSQLValueToVariant(connection, 1043, bytes.size(), bytes.constData()),
             QVariant(greeting()));
}

void tst_Encodings::searchPathIsTakenOver()
{
    OPEN_IN_ENCODING
    // What the own connection is in goes to the borrowed one by name.
    QSqlQuery command = query();
    QVERIFY_SQL(command, command.exec(QStringLiteral("CREATE SCHEMA имя")));
    QVERIFY_SQL(command, command.exec(QStringLiteral("CREATE TABLE имя.u AS SELECT 5 AS a")));
    QVERIFY_SQL(command, command.exec(QStringLiteral("SET search_path TO имя")));
    {
        QSqlQuery select = query();
        QVERIFY_SQL(select, select.exec(QStringLiteral("SELECT a FROM u")));
        QVERIFY(select.next());
        QCOMPARE(select.value(0).toInt(), 5);
    }
    QVERIFY_SQL(command, command.exec(QStringLiteral("DROP TABLE имя.u")));
    QVERIFY_SQL(command, command.exec(QStringLiteral("DROP SCHEMA имя")));
}

void tst_Encodings::unencodableCharacter_data()
{
    QTest::addColumn<QString>("database");
    QTest::addColumn<bool>("kept");
    QTest::newRow("UTF8 has it") << QStringLiteral("utf8") << true;
    QTest::newRow("WIN1251 has not") << QStringLiteral("win1251") << false;
    QTest::newRow("KOI8R has not") << QStringLiteral("koi8r") << false;
}

void tst_Encodings::unencodableCharacter()
{
    QFETCH(QString, database);
    QFETCH(bool, kept);
    const QString text = QStringLiteral("\u4e2d\u2665");
    QVERIFY(open(database));
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.prepare(QStringLiteral("SELECT ?::text")));
    select.addBindValue(text);
    QVERIFY_SQL(select, select.exec());
    QVERIFY(select.next());
    // A replacement for each character; which one is the codec's choice.
    QCOMPARE(select.value(0).toString().size(), text.size());
    QCOMPARE(select.value(0).toString() == text, kept);
}

void tst_Encodings::codecIsChosenAtTheConnection()
{
    std::unique_ptr<LocaleCodec> locale(new LocaleCodec("KOI8-R"));
    QVERIFY(open(QStringLiteral("sql_ascii")));
    locale.reset(new LocaleCodec("windows-1251"));
    QSqlQuery insert = query();
    QVERIFY_SQL(insert, insert.exec(QStringLiteral("INSERT INTO t VALUES ('%1')").arg(greeting())));
    QCOMPARE(stored(QStringLiteral("SELECT encode(v::bytea, 'hex') FROM t"),
                    QStringLiteral("sql_ascii")),
             QByteArray(Koi8R));
    // The borrowed connection is a later one.
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(QStringLiteral("SELECT '%1'::text").arg(greeting())));
    QVERIFY(select.next());
    QCOMPARE(select.value(0).toString(), greeting());
}

void tst_Encodings::negativeLengthIsUpToTheZero()
{
    OPEN_IN_ENCODING
    const Dorvy3Connection connection(PQconnectdb(cluster.conninfo(database).constData()),
                                      QString());
    QVERIFY(connection.isValid());
    const QByteArray bytes = QByteArray::fromHex(hex) + QByteArray(1, '\0') + "behind it";
    for (const int length : {-1, -2, -7, std::numeric_limits<int>::min()}) {
        QCOMPARE(connection.client(bytes.constData(), length), greeting());
    }
}

QTEST_GUILESS_MAIN(tst_Encodings)
#include "tst_encodings.moc"
