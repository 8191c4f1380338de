// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyDriver::record: how it describes the one column that it reads. A driver's own result stands
// before its first row, where there is nothing to describe; here one in its place stands on a row.
#include "access/dorvy3.h"
#include "driver/dorvydriver.h"

#include <QtSql/QSqlField>
#include <QtSql/QSqlQuery>
#include <QtSql/QSqlRecord>
#include <QtSql/QSqlResult>
#include <QtTest/QtTest>

Q_DECLARE_METATYPE(QVariant::Type)
Q_DECLARE_METATYPE(QSqlField::RequiredStatus)

namespace {

// What a played query answers, and what was asked of it.
struct Play
{
    QVariantList row;
    bool succeeds;
    bool isActive;
    int results; // made
    int steps;   // to another row
};

// A query that stands on a row, with another one behind it, as soon as it has run.
class PlayedResult : public QSqlResult
{
public:
    PlayedResult(const QSqlDriver *sqlDriver, Play &played)
        : QSqlResult(sqlDriver)
        , play(played)
    {
        ++play.results;
    }

protected:
    QVariant data(int field) override { return play.row.value(field); }
    bool isNull(int field) override { return play.row.value(field).isNull(); }
    bool reset(const QString & /*query*/) override
    {
        setSelect(true);
        setActive(play.isActive);
        setAt(0);
        return play.succeeds;
    }
    bool fetch(int row) override
    {
        ++play.steps;
        setAt(row);
        return row < 2;
    }
    bool fetchFirst() override { return fetch(0); }
    bool fetchLast() override { return fetch(1); }
    int size() override { return 2; }
    int numRowsAffected() override { return -1; }

private:
    Play &play;
};

// Open without a server, with played results.
class PlayingDriver : public DorvyDriver
{
public:
    explicit PlayingDriver(Play &played)
        : DorvyDriver(QSharedPointer<Dorvy3Transacted>::create())
        , play(played)
    {
    }

    bool isOpen() const override { return true; }
    QSqlResult *createResult() const override { return new PlayedResult(this, play); }

private:
    Play &play;
};

// A row of the catalog: an int4 column that is as the query answers it, but for its default.
QVariantList rowWithDefault(const QVariant &source)
{
    return {QStringLiteral("a"), 23, false, 4, -1, source};
}

QSqlRecord recordOf(const QVariantList &row)
{
    Play play{row, true, true, 0, 0};
    return PlayingDriver(play).record(QStringLiteral("t"));
}

} // namespace

class tst_DorvyDriverColumns : public QObject
{
    Q_OBJECT

private slots:
    void columnIsDescribed_data();
    void columnIsDescribed();
    void defaultIsDescribed_data();
    void defaultIsDescribed();
    void columnWithoutDefaultHasAnEmptyOne();
    void firstColumnAloneIsRead();
    void failedQueryGivesAnEmptyRecord();
    void inactiveQueryGivesAnEmptyRecord();
};

void tst_DorvyDriverColumns::columnIsDescribed_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<int>("attlen");
    QTest::addColumn<int>("atttypmod");
    QTest::addColumn<bool>("attnotnull");
    QTest::addColumn<QVariant::Type>("type");
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("precision");
    QTest::addColumn<QSqlField::RequiredStatus>("status");
    QTest::newRow("varchar(20)") << 1043 << -1 << 24 << false << QVariant::String << 20 << -1
                                 << QSqlField::Optional;
    QTest::newRow("char(1), not null")
        << 1042 << -1 << 5 << true << QVariant::String << 1 << -1 << QSqlField::Required;
    QTest::newRow("varchar without a length")
        << 1043 << -1 << -1 << false << QVariant::String << -1 << -1 << QSqlField::Optional;
    QTest::newRow("text") << 25 << -1 << -1 << false << QVariant::ByteArray << -1 << -1
                          << QSqlField::Optional;
    QTest::newRow("variable length, modifier 0")
        << 1043 << -1 << 0 << false << QVariant::String << -4 << -1 << QSqlField::Optional;
    QTest::newRow("variable length, modifier -2")
        << 1043 << -1 << -2 << false << QVariant::String << -1 << -2 << QSqlField::Optional;
    QTest::newRow("bool") << 16 << 1 << -1 << false << QVariant::Bool << 1 << -1
                          << QSqlField::Optional;
    QTest::newRow("int4, not null")
        << 23 << 4 << -1 << true << QVariant::Int << 4 << -1 << QSqlField::Required;
    QTest::newRow("int8") << 20 << 8 << -1 << false << QVariant::LongLong << 8 << -1
                          << QSqlField::Optional;
    QTest::newRow("name") << 19 << 64 << -1 << true << QVariant::String << 64 << -1
                          << QSqlField::Required;
    QTest::newRow("timestamp(3)") << 1114 << 8 << 3 << false << QVariant::DateTime << 8 << 3
                                  << QSqlField::Optional;
    QTest::newRow("time(0)") << 1083 << 8 << 0 << false << QVariant::Time << 8 << 0
                             << QSqlField::Optional;
    QTest::newRow("length of a C string, with a modifier")
        << 705 << -2 << 9 << false << QVariant::ByteArray << -2 << 9 << QSqlField::Optional;
}

void tst_DorvyDriverColumns::columnIsDescribed()
{
    QFETCH(int, oid);
    QFETCH(int, attlen);
    QFETCH(int, atttypmod);
    QFETCH(bool, attnotnull);
    QFETCH(QVariant::Type, type);
    QFETCH(int, length);
    QFETCH(int, precision);
    QFETCH(QSqlField::RequiredStatus, status);
    const QSqlRecord record =
        recordOf({QStringLiteral("My Column"), oid, attnotnull, attlen, atttypmod, QVariant()});
    QCOMPARE(record.count(), 1);
    const QSqlField field = record.field(0);
    QCOMPARE(field.name(), QStringLiteral("My Column"));
    QCOMPARE(field.type(), type);
    QCOMPARE(field.length(), length);
    QCOMPARE(field.precision(), precision);
    QCOMPARE(field.requiredStatus(), status);
    QCOMPARE(field.typeID(), oid);
    QVERIFY(field.isNull());
}

void tst_DorvyDriverColumns::defaultIsDescribed_data()
{
    QTest::addColumn<QByteArray>("source"); // adsrc is a text, which the driver reads as bytes
    QTest::addColumn<QString>("value");
    const auto row = [](const char *tag, const char *source, const char *value) {
        QTest::newRow(tag) << QByteArray(source) << QString::fromUtf8(value);
    };
    row("number", "42", "42");
    row("call", "nextval('s'::regclass)", "nextval('s'::regclass)");
    row("text", "'abc'", "abc");
    row("text with its type", "'abc'::text", "abc'::tex");
    row("text with a quote", "'o''brien'", "o''brien");
    row("quote last only", "abc'", "abc'");
    row("blank before the quote", " 'abc'", " 'abc'");
    row("double quotes", "\"abc\"", "\"abc\"");
    row("Russian", "'Ёж'::text", "Ёж'::tex");
    row("empty text", "''", "");
    row("quote and one more", "'a", "");
    row("quote alone", "'", "");
    row("empty", "", "");
}

void tst_DorvyDriverColumns::defaultIsDescribed()
{
    QFETCH(QByteArray, source);
    QFETCH(QString, value);
    const QVariant defaultValue = recordOf(rowWithDefault(source)).field(0).defaultValue();
    QCOMPARE(defaultValue.type(), QVariant::String);
    QCOMPARE(defaultValue.toString(), value);
}

void tst_DorvyDriverColumns::columnWithoutDefaultHasAnEmptyOne()
{
    const QSqlRecord record = recordOf(rowWithDefault(QVariant(QVariant::ByteArray)));
    const QVariant defaultValue = record.field(0).defaultValue();
    QCOMPARE(defaultValue.type(), QVariant::String);
    QCOMPARE(defaultValue.toString(), QString());
}

void tst_DorvyDriverColumns::firstColumnAloneIsRead()
{
    Play play{rowWithDefault(QVariant()), true, true, 0, 0};
    QCOMPARE(PlayingDriver(play).record(QStringLiteral("t")).count(), 1);
    QCOMPARE(play.steps, 0); // where the query stands after it has run
    QCOMPARE(play.results, 1);
}

void tst_DorvyDriverColumns::failedQueryGivesAnEmptyRecord()
{
    Play play{rowWithDefault(QVariant()), false, true, 0, 0};
    QVERIFY(PlayingDriver(play).record(QStringLiteral("t")).isEmpty());
}

void tst_DorvyDriverColumns::inactiveQueryGivesAnEmptyRecord()
{
    Play play{rowWithDefault(QVariant()), true, false, 0, 0};
    QVERIFY(PlayingDriver(play).record(QStringLiteral("t")).isEmpty());
}

QTEST_GUILESS_MAIN(tst_DorvyDriverColumns)
#include "tst_dorvydriver_columns.moc"
