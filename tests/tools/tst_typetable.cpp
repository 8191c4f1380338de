// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The words about types, held against the driver's decoder and encoder.
#include "typetable.h"

#include "access/dorvy3connection.h"
#include "access/dorvy3encoder_p.h"
#include "access/dorvy3oids_p.h"
#include "driver/dorvydecode_p.h"
#include "driver/dorvytypes_p.h"

#include <QtTest/QtTest>

namespace {

constexpr int LastOid = 5000; // beyond the built-in types that have a value of their own

} // namespace

class tst_TypeTable : public QObject
{
    Q_OBJECT

private slots:
    void whatIsReadIsTheDriversTable();
    void valuesAreTheDecoders();
    void whatEndsTheProcessIsTheEncoders();
    void casts_data();
    void casts();
};

void tst_TypeTable::whatIsReadIsTheDriversTable()
{
    for (int oid = -1; oid < LastOid; ++oid) {
        const ReadForm form = readForm(oid);
        QCOMPARE(form.isRead, hlpFindPSQLType(oid) != QVariant::Invalid);
        QCOMPARE(form.cast.isEmpty(), form.isRead);
    }
}

void tst_TypeTable::valuesAreTheDecoders()
{
    const QByteArray bytes(32, '\0'); // more than any type of fixed size has; a numeric of 0
    const Dorvy3Connection connection(nullptr, QString());
    int known = 0;
    for (int oid = 0; oid < LastOid; ++oid) {
        if (!readForm(oid).isRead) {
            continue;
        }
        const QVariant value = hlpBinaryDecoder(oid)(&connection, bytes.constData(), bytes.size());
        QCOMPARE(readForm(oid).value, QString::fromLatin1(value.typeName()));
        QCOMPARE(readForm(oid).described,
                 QString::fromLatin1(QVariant::typeToName(hlpFindPSQLType(oid))));
        ++known;
    }
    QVERIFY(known > 0);
}

void tst_TypeTable::whatEndsTheProcessIsTheEncoders()
{
    const Dorvy3Connection connection(nullptr, QString());
    for (int oid = -1; oid < LastOid; ++oid) {
        QByteArray out;
        int length = 0;
        const bool isUnknown = hlpEncode(QVariant(QStringLiteral("1")), oid, connection, out,
                                         &length) == Dorvy3Encoding::UnknownType;
        const SendForm form = sendForm(oid, QStringLiteral("thing"));
        QCOMPARE(form.note == QStringLiteral("a value that is not null ends the process"),
                 isUnknown);
        QVERIFY(!isUnknown || form.status == Status::Failed);
    }
}

void tst_TypeTable::casts_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<QString>("read");
    QTest::addColumn<QString>("sent");
    const auto row = [](const char *tag, int oid, const char *read, const char *sent) {
        QTest::newRow(tag) << oid << QString::fromLatin1(read) << QString::fromLatin1(sent);
    };
    row("int8", Dorvy3Oid::Int8, "", "");
    row("bool", Dorvy3Oid::Bool, "", "::int::bool");
    row("uuid", Dorvy3Oid::Uuid, "", "::text::uuid");
    row("numeric", Dorvy3Oid::Numeric, "", "::text::numeric");
    row("float4", Dorvy3Oid::Float4, "", "::float8");
    row("timetz", Dorvy3Oid::TimeTz, "::text", "::text::timetz");
    row("interval", 1186, "::text", "::text::interval");
    row("oid", 26, "::int8", "::text::oid");
    row("money", 790, "::numeric", "::text::money");
    row("json", 114, "::text", "::text::json");
    row("of a user", 16384, "::text", "::text::\"of a user\"");
}

void tst_TypeTable::casts()
{
    QFETCH(int, oid);
    QFETCH(QString, read);
    QFETCH(QString, sent);
    const QString tag = QString::fromLatin1(QTest::currentDataTag());
    const QString name = tag.contains(QLatin1Char(' ')) ? QStringLiteral("\"%1\"").arg(tag) : tag;
    QCOMPARE(readForm(oid).cast, read);
    QCOMPARE(sendForm(oid, name).cast, sent);
}

QTEST_GUILESS_MAIN(tst_TypeTable)
#include "tst_typetable.moc"
