// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What docs/types.md says of every type, compared with the driver and with the server's catalog.
#include "access/dorvy3connection.h"
#include "access/dorvy3encoder_p.h"
#include "driver/dorvydecode_p.h"
#include "driver/dorvytypes_p.h"
#include "tests/driver/behaviour.h"
#include "tests/support/documenttable.h"
#include "tests/support/sqlmacros.h"

#include <QtCore/QDateTime>
#include <QtCore/QJsonDocument>
#include <QtCore/QRegularExpression>
#include <QtCore/QUrl>
#include <QtCore/QUuid>
#include <QtSql/QSqlField>
#include <QtSql/QSqlRecord>

#include <functional>

namespace {

constexpr char Dash[] = "—";

// A row of the page's first table.
struct TypeRow
{
    QString name;
    int oid;
    QString gives;
    QString described;
    QString takes;
    QString wire;

    bool isColumn() const { return gives != Dash; }
    bool isParameter() const { return !takes.startsWith(Dash); }
};

QList<TypeRow> typeRows()
{
    QList<TypeRow> rows;
    for (const QStringList &cells : documentTable("types.md", "Type")) {
        rows.append({quotedIn(cells.at(0)).value(0), cells.at(1).toInt(),
                     quotedIn(cells.at(2)).value(0, Dash), quotedIn(cells.at(3)).value(0, Dash),
                     cells.at(4), cells.at(5)});
    }
    return rows;
}

// QVariant::ByteArray is "ByteArray", as an application writes it.
QString enumerator(QVariant::Type type)
{
    const QString name = QVariant::typeToName(type);
    if (type == QVariant::LongLong) {
        return "LongLong";
    }
    return name.startsWith('Q') ? name.mid(1) : name.at(0).toUpper() + name.mid(1);
}

// A literal of each type, such that no two of its bytes are the same by accident alone.
QString sample(const QString &type)
{
    static const QMap<QString, QString> samples{{"bool", "true"},
                                                {"bytea", "\\x00ff5c"},
                                                {"int2", "-2"},
                                                {"int4", "-70000"},
                                                {"int8", "-5000000000"},
                                                {"float4", "1.5"},
                                                {"float8", "-0.1"},
                                                {"numeric", "1234.5"},
                                                {"date", "2016-03-01"},
                                                {"time", "10:11:12.345"},
                                                {"timetz", "10:11:12.345+00"},
                                                {"timestamp", "2016-03-01 10:11:12.345"},
                                                {"timestamptz", "2016-03-01 10:11:12.345+00"},
                                                {"uuid", "f81d4fae-7dec-11d0-a765-00a0c91e6bf6"},
                                                {"jsonb", "{\"a\": 1}"},
                                                {"oid", "5"},
                                                {"json", "{\"a\": 1}"},
                                                {"xml", "<a/>"},
                                                {"point", "(1,2)"},
                                                {"cidr", "192.168.0.0/16"},
                                                {"money", "5"},
                                                {"macaddr", "08:00:2b:01:02:03"},
                                                {"inet", "::1"},
                                                {"int4[]", "{1,2}"},
                                                {"text[]", "{a,b}"},
                                                {"interval", "1 day"},
                                                {"bit", "101"},
                                                {"varbit", "101"},
                                                {"regclass", "pg_class"},
                                                {"tsvector", "'a'"},
                                                {"int4range", "[1,5)"}};
    return samples.value(type, "x");
}

// An expression that has a value of the type.
QString expression(const QString &type)
{
    if (type == "record") {
        return "ROW(1, 2)";
    }
    if (type == "void") {
        return "pg_sleep(0)";
    }
    const QString literal = "'" + sample(type).replace("'", "''") + "'::";
    return type == "bit" ? literal + "bit(3)" : literal + type;
}

// The value to bind for a parameter of a type, and its text on the server.
QVariant bindable(const QString &type)
{
    if (type == "bytea") {
        return QByteArray("\0\xFF\\", 3);
    }
    if (type == "timestamp" || type == "timestamptz") {
        return QDateTime(QDate(2016, 3, 1), QTime(10, 11, 12, 345), Qt::UTC);
    }
    if (type == "timetz") {
        return QTime(10, 11, 12, 345);
    }
    return sample(type);
}

// Whether QVariant's conversion of that name takes the value.
bool converts(const QString &conversion, const QVariant &value)
{
    bool ok = false;
    if (conversion == "toInt()") {
        value.toInt(&ok);
    } else if (conversion == "toLongLong()") {
        value.toLongLong(&ok);
    } else if (conversion == "toFloat()") {
        value.toFloat(&ok);
    } else if (conversion == "toDouble()") {
        value.toDouble(&ok);
    } else if (conversion == "toDate()") {
        ok = value.toDate().isValid();
    } else if (conversion == "toTime()") {
        ok = value.toTime().isValid();
    } else if (conversion == "toDateTime()") {
        ok = value.toDateTime().isValid() || value.type() == QVariant::Double;
    } else if (conversion == "toByteArray()") {
        ok = !value.toByteArray().isEmpty();
    } else {
        ok = conversion == "toString()";
    }
    return ok;
}

// Values of every kind that an application has at hand.
QVariantList values()
{
    return {true,
            -1,
            1.5,
            1.5F,
            Q_INT64_C(5000000000),
            "12",
            " 12 ",
            "1.5",
            "1,5",
            "inf",
            "nan",
            "words",
            "",
            "2.1.2020",
            "2020-01-02",
            "03:04",
            "03:04:05.678",
            "2020-01-02T03:04:05",
            "2020-01-02T03:04:05+03:00",
            "2020-01-02 03:04:05",
            QByteArray("7"),
            QByteArray(""),
            QDate(2020, 1, 2),
            QTime(3, 4),
            QDateTime(QDate(2020, 1, 2), QTime(3, 4), Qt::UTC),
            QStringList{"a", "b"},
            QUrl("http://localhost/")};
}

} // namespace

class tst_TypesPage : public QObject, private Behaviour
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(start(), qPrintable(cluster.why())); }
    void init() { QVERIFY(openAnew()); }
    void cleanup() { closeForGood(); }

    void everyTypeOfTheServer();
    void columns_data() { types(&TypeRow::isColumn); }
    void columns();
    void wireBytes_data() { types(nullptr); }
    void wireBytes();
    void parameters_data() { types(&TypeRow::isParameter); }
    void parameters();
    void parametersTakeWhatTheyConvert_data() { types(&TypeRow::isParameter); }
    void parametersTakeWhatTheyConvert();
    void castsOfParameters_data() { types(nullptr); }
    void castsOfParameters();
    void lengthsAndPrecisions_data();
    void lengthsAndPrecisions();
    void infinities();
    void precisionPolicyChangesNothing_data();
    void precisionPolicyChangesNothing();

    void otherTypesEndTheProcess_data() { otherTypes(); }
    void otherTypesEndTheProcess();
    void otherTypesByTheirCasts_data() { otherTypes(); }
    void otherTypesByTheirCasts();
    void waysRound_data();
    void waysRound();
    void domainIsReadAsItsBase();
    void parameterOfADomainEndsTheProcess();

    void valuesThatBecomeNull_data();
    void valuesThatBecomeNull();
    void zeroCharacterIsRefused();
    void zoneInATextIsPassedOver();
    void nullValues_data() { types(&TypeRow::isColumn); }
    void nullValues();
    void emptyValues();
    void invalidDateIsNull();

private:
    static void types(bool (TypeRow::*kind)() const);
    static void otherTypes();
    // Runs the text with one value; the first value of its only row.
    QVariant answer(const QString &text, const QVariant &value)
    {
        QSqlQuery query(db);
        query.prepare(text);
        query.addBindValue(value);
        return query.exec() && query.next() ? query.value(0)
                                            : QVariant(query.lastError().driverText());
    }
    QSharedPointer<Dorvy3Connection> connect() const
    {
        return QSharedPointer<Dorvy3Connection>::create(PQconnectdb(cluster.conninfo().constData()),
                                                        QString());
    }
};

Q_DECLARE_METATYPE(TypeRow)

void tst_TypesPage::types(bool (TypeRow::*kind)() const)
{
    QTest::addColumn<TypeRow>("row");
    for (const TypeRow &row : typeRows()) {
        if (!kind || (row.*kind)()) {
            QTest::newRow(qPrintable(row.name)) << row;
        }
    }
}

// The page's rows are all that the driver knows, and their names and numbers the server's.
void tst_TypesPage::everyTypeOfTheServer()
{
    QMap<int, TypeRow> rows;
    for (const TypeRow &row : typeRows()) {
        QCOMPARE(cluster.value(QString("SELECT '%1'::regtype::oid").arg(row.name)),
                 QString::number(row.oid));
        rows.insert(row.oid, row);
    }
    const auto connection = connect();
    for (const QString &number : cluster.run("SELECT oid FROM pg_type ORDER BY oid")) {
        const int oid = number.toInt();
        const TypeRow row = rows.value(oid, {QString(), oid, Dash, Dash, Dash, QString()});
        const bool ends = runInChild([oid] { hlpDecodePSQLType(oid); }).aborted;
        QVERIFY2(row.isColumn() != ends, qPrintable(number));
        QByteArray out;
        int length = 0;
        const bool unknown =
            hlpEncode("1", oid, *connection, out, &length) == Dorvy3Encoding::UnknownType;
        QVERIFY2(row.isParameter() != unknown, qPrintable(number));
    }
}

void tst_TypesPage::columns()
{
    QFETCH(TypeRow, row);
    if (row.name == "unknown") { // of which the server makes a text
        QCOMPARE(QString(hlpBinaryPSQLValueToVariant(connect(), row.oid, 1, "x").typeName()),
                 row.gives);
        QCOMPARE(enumerator(hlpDecodePSQLType(row.oid)), row.described);
        return;
    }
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec("SELECT " + expression(row.name)));
    QVERIFY(query.next());
    QCOMPARE(QString(query.value(0).typeName()), row.gives);
    QCOMPARE(enumerator(query.record().field(0).type()), row.described);
    QCOMPARE(query.record().field(0).typeID(), row.oid);
}

// Of the types whose size the page tells.
void tst_TypesPage::wireBytes()
{
    QFETCH(TypeRow, row);
    const QRegularExpressionMatch told = QRegularExpression("^(\\d+) bytes?").match(row.wire);
    if (!told.hasMatch()) {
        QVERIFY(!row.wire.isEmpty());
        return;
    }
    const QString send =
        cluster.value(QString("SELECT typsend::regproc FROM pg_type WHERE oid = %1").arg(row.oid));
    QCOMPARE(cluster.value(QString("SELECT length(%1(%2))").arg(send, expression(row.name))),
             told.captured(1));
    if (!row.isParameter()) {
        return;
    }
    const QRegularExpressionMatch other =
        QRegularExpression("parameter (\\d+) bytes").match(row.wire);
    QByteArray out;
    int length = 0;
    QCOMPARE(hlpEncode(bindable(row.name), row.oid, *connect(), out, &length),
             Dorvy3Encoding::Done);
    QCOMPARE(QString::number(length), (other.hasMatch() ? other : told).captured(1));
}

void tst_TypesPage::parameters()
{
    QFETCH(TypeRow, row);
    const bool refused = row.takes.contains("refused by the server");
    const QString server = row.name == "numeric" ? QString("'1234'") : expression(row.name);
    const QVariant same =
        answer(QString("SELECT ?::%1 = %2::%1").arg(row.name, server), bindable(row.name));
    QVERIFY2(refused ? same.toString().startsWith("ERROR:") : same == QVariant(true),
             qPrintable(same.toString()));
}

void tst_TypesPage::parametersTakeWhatTheyConvert()
{
    QFETCH(TypeRow, row);
    const auto connection = connect();
    for (const QVariant &value : values()) {
        QByteArray out;
        int length = 0;
        const bool takes =
            hlpEncode(value, row.oid, *connection, out, &length) == Dorvy3Encoding::Done;
        const bool endless = row.name == "numeric" && value.toString() == "inf";
        QVERIFY2(takes == (converts(quotedIn(row.takes).value(0), value) && !endless),
                 qPrintable(QString(value.typeName()) + ' ' + value.toString()));
    }
}

// The casts that the page has for a parameter that does not go as it is.
void tst_TypesPage::castsOfParameters()
{
    QFETCH(TypeRow, row);
    const QStringList casts = quotedIn(row.takes).filter(QRegularExpression("^\\?"));
    QCOMPARE(casts.size(), row.isParameter() && !row.takes.contains("refused") ? 0 : 1);
    if (casts.isEmpty()) {
        return;
    }
    const QVariant value = row.name == "bool" ? QVariant(true) : QVariant(sample(row.name));
    QCOMPARE(answer(QString("SELECT %1 = %2").arg(casts.first(), expression(row.name)), value),
             QVariant(true));
}

void tst_TypesPage::lengthsAndPrecisions_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("precision");
    QTest::newRow("varchar(n)") << "'x'::varchar(20)" << 20 << -1;
    QTest::newRow("varchar") << "'x'::varchar" << -1 << -1;
    QTest::newRow("char(n)") << "'x'::char(5)" << 5 << -1;
    QTest::newRow("numeric(p, s)") << "1.25::numeric(6, 2)" << 6 << 2;
    QTest::newRow("numeric") << "1.25::numeric" << -1 << -1;
    QTest::newRow("timestamp") << "now()::timestamp" << 8 << 3;
    QTest::newRow("timestamptz") << "now()" << 8 << 3;
    QTest::newRow("time(n)") << "'10:11'::time(2)" << 8 << 2;
    QTest::newRow("uuid") << expression("uuid") << 38 << -1;
    QTest::newRow("int4") << "1" << 4 << -1;
    QTest::newRow("name") << "'x'::name" << 64 << -1;
    QTest::newRow("text") << "'x'::text" << -1 << -1;
}

void tst_TypesPage::lengthsAndPrecisions()
{
    QFETCH(QString, value);
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec("SELECT " + value));
    QTEST(query.record().field(0).length(), "length");
    QTEST(query.record().field(0).precision(), "precision");
}

void tst_TypesPage::infinities()
{
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec("SELECT '-infinity'::date, 'infinity'::date, "
                                  "'infinity'::timestamp, 'infinity'::float8"));
    QVERIFY(query.next());
    QVERIFY(!query.value(0).toDate().isValid());
    QVERIFY(query.value(0).isNull()); // to Qt, whose null date is the invalid one
    QVERIFY(!query.isNull(0));
    QCOMPARE(query.value(1).toDate().year(), 5881610);
    QVERIFY(query.value(2).toDateTime().date().year() > 294000);
    QVERIFY(qIsInf(query.value(3).toDouble()));
}

void tst_TypesPage::precisionPolicyChangesNothing_data()
{
    QTest::addColumn<int>("policy");
    QTest::newRow("double") << int(QSql::LowPrecisionDouble);
    QTest::newRow("int") << int(QSql::LowPrecisionInt32);
    QTest::newRow("qlonglong") << int(QSql::LowPrecisionInt64);
    QTest::newRow("text") << int(QSql::HighPrecision);
}

void tst_TypesPage::precisionPolicyChangesNothing()
{
    QFETCH(int, policy);
    db.setNumericalPrecisionPolicy(QSql::NumericalPrecisionPolicy(policy));
    QSqlQuery query(db);
    query.setNumericalPrecisionPolicy(QSql::NumericalPrecisionPolicy(policy));
    QVERIFY_SQL(query, query.exec("SELECT 12.75::numeric"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).userType(), int(QMetaType::Double));
    QCOMPARE(query.value(0).toDouble(), 12.75);
}

void tst_TypesPage::otherTypes()
{
    QTest::addColumn<QStringList>("cells");
    for (const QStringList &cells : documentTable("types.md", "Other type")) {
        QTest::newRow(qPrintable(quotedIn(cells.first()).value(0))) << cells;
    }
}

void tst_TypesPage::otherTypesEndTheProcess()
{
    QFETCH(QStringList, cells);
    const QString name = quotedIn(cells.at(0)).value(0);
    QCOMPARE(cluster.value(QString("SELECT '%1'::regtype::oid").arg(name)), cells.at(1));
    // Also without a row, and where the value is null.
    const QString text = "SELECT " + expression(name) + " WHERE false";
    QCOMPARE(fatalMessage([&text](QSqlQuery &query) { query.exec(text); }),
             QString("DORVY: hlpDecodePSQLType - unknown ptype (%1)").arg(cells.at(1)));
}

void tst_TypesPage::otherTypesByTheirCasts()
{
    QFETCH(QStringList, cells);
    const QString name = quotedIn(cells.at(0)).value(0);
    QSqlQuery query(db);
    const QString read = '(' + expression(name) + ')' + quotedIn(cells.at(2)).value(0);
    QVERIFY_SQL(query, query.exec("SELECT " + read));
    QVERIFY(query.next());
    QCOMPARE(QString(query.value(0).typeName()), quotedIn(cells.at(3)).value(0));
    const QString send = quotedIn(cells.at(4)).value(0);
    if (!send.isEmpty()) {
        QCOMPARE(answer(QString("SELECT (%1)::text = (%2)::text").arg(send, expression(name)),
                        sample(name)),
                 QVariant(true));
    }
}

void tst_TypesPage::waysRound_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("interval as seconds")
        << "SELECT extract(epoch FROM '1 day'::interval)::float8" << QVariant(86400.0);
    QTest::newRow("json as bytes")
        << "SELECT '{\"a\": 1}'::json::text::bytea" << QVariant(QByteArray("{\"a\": 1}"));
    QTest::newRow("array row by row") << "SELECT unnest('{7,8}'::int4[])" << QVariant(7);
    QTest::newRow("void") << "SELECT pg_advisory_lock_shared(1)::text" << QVariant("");
}

void tst_TypesPage::waysRound()
{
    QFETCH(QString, text);
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec(text));
    QVERIFY(query.next());
    QTEST(query.value(0), "value");
}

void tst_TypesPage::domainIsReadAsItsBase()
{
    cluster.run("CREATE DOMAIN word AS text");
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec("SELECT 'dorvy'::word"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0), QVariant("dorvy"));
    QCOMPARE(answer("SELECT ?::text::word", "dorvy"), QVariant("dorvy"));
}

void tst_TypesPage::parameterOfADomainEndsTheProcess()
{
    cluster.run("CREATE DOMAIN word AS text; CREATE TABLE t (w word)");
    const QString oid = cluster.value("SELECT 'word'::regtype::oid");
    QCOMPARE(fatalMessage([](QSqlQuery &query) {
                 query.prepare("INSERT INTO t VALUES (?)");
                 query.addBindValue("dorvy");
                 query.exec();
             }),
             QString("DORVY: hlpEncodePSQLValue - unknown ptype (%1)").arg(oid));
}

void tst_TypesPage::valuesThatBecomeNull_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::newRow("empty text") << QVariant("");
    QTest::newRow("list of several texts") << QVariant(QStringList{"a", "b"});
    QTest::newRow("map") << QVariant(QVariantMap{{"a", 1}});
    QTest::newRow("JSON document") << QVariant(QJsonDocument::fromJson("{\"a\": 1}"));
}

void tst_TypesPage::valuesThatBecomeNull()
{
    QFETCH(QVariant, value);
    QCOMPARE(answer("SELECT ?::text IS NULL", value), QVariant(true));
}

void tst_TypesPage::zeroCharacterIsRefused()
{
    const QString said = answer("SELECT ?::text", QString("a") + QChar(0) + "b").toString();
    QVERIFY2(said.startsWith("ERROR:  invalid byte sequence for encoding \"UTF8\": 0x00"),
             qPrintable(said));
}

void tst_TypesPage::zoneInATextIsPassedOver()
{
    QCOMPARE(answer("SELECT ?::timestamp::text", "2020-01-02T03:04:05+03:00"),
             QVariant("2020-01-02 03:04:05"));
}

void tst_TypesPage::nullValues()
{
    QFETCH(TypeRow, row);
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec("SELECT NULL::" + row.name));
    QVERIFY(query.next());
    QVERIFY(query.value(0).isNull());
    QCOMPARE(enumerator(query.value(0).type()), row.described);
    if (row.name != "unknown") { // which the server wants resolved
        QCOMPARE(answer(QString("SELECT ?::%1 IS NULL").arg(row.name), QVariant()), QVariant(true));
    }
}

void tst_TypesPage::emptyValues()
{
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec("SELECT ''::text, ''::bytea"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0), QVariant(""));
    QVERIFY(!query.value(0).isNull());
    QCOMPARE(query.value(1), QVariant(QByteArray("")));
    QVERIFY(!query.value(1).isNull());
}

void tst_TypesPage::invalidDateIsNull()
{
    QCOMPARE(answer("SELECT ?::date IS NULL", QDate(2020, 13, 1)), QVariant(true));
    QCOMPARE(answer("SELECT ?::time IS NULL", QTime(25, 0)), QVariant(true));
    QCOMPARE(answer("SELECT ?::timestamp IS NULL", QDateTime()), QVariant(true));
    QCOMPARE(answer("SELECT ?::uuid IS NULL", QUuid()), QVariant(true));
}

QTEST_GUILESS_MAIN(tst_TypesPage)
#include "tst_typespage.moc"
