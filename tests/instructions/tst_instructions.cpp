// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The instructions that a row and an execution cost in the plugin: no more than were recorded. What
// they cost in all, and what Qt and libpq cost alone, is printed.
#include "tests/instructions/callgrind.h"
#include "tests/support/pgcluster.h"

#include <QtTest/QtTest>

namespace {

constexpr double Tolerance = 1.03; // of a compiler that is a little newer
const char *const Plugin = "libqsqldorvy.so";

double sum(const QMap<QString, double> &costs)
{
    const QList<double> values = costs.values();
    return std::accumulate(values.begin(), values.end(), 0.0);
}

} // namespace

class tst_Instructions : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void pluginCostsNoMoreThanRecorded_data();
    void pluginCostsNoMoreThanRecorded();

private:
    QMap<QString, double> cost(const QStringList &program, const QString &work, int fewer,
                               int more) const;

    PgCluster cluster;
};

void tst_Instructions::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    cluster.run(QStringLiteral(
        "CREATE TABLE walked AS SELECT i::int8 AS id, i * 0.25::float8 AS number, 'text number ' "
        "|| "
        "lpad(i::text, 8, '0') AS label, timestamp '2020-01-01' + i * interval '1 second' AS at "
        "FROM generate_series(1, 20000) i"));
    cluster.run(QStringLiteral("CREATE INDEX ON walked (id)"));
    cluster.run(
        QStringLiteral("CREATE TABLE inserted (id int8, number float8, label text, at timestamp)"));
    cluster.run(QStringLiteral("VACUUM ANALYZE"));
}

QMap<QString, double> tst_Instructions::cost(const QStringList &program, const QString &work,
                                             int fewer, int more) const
{
    const auto run = [&](int count) {
        return countInstructions(program + QStringList{work, QString::number(count),
                                                       cluster.socketDir(),
                                                       QString::number(cluster.port())});
    };
    return costOfUnit(run(more), run(fewer), more - fewer);
}

void tst_Instructions::pluginCostsNoMoreThanRecorded_data()
{
    QTest::addColumn<int>("fewer"); // units of the two runs whose difference is measured
    QTest::addColumn<int>("more");
    QTest::addColumn<double>("recorded"); // instructions of a unit within the plugin
    QTest::newRow("walk") << 0 << 20000 << 600.0;
    QTest::newRow("point") << 1000 << 3000 << 7672.0;
    QTest::newRow("insert") << 1000 << 3000 << 4300.0;
}

void tst_Instructions::pluginCostsNoMoreThanRecorded()
{
    QFETCH(int, fewer);
    QFETCH(int, more);
    QFETCH(double, recorded);
    const QString work = QString::fromLatin1(QTest::currentDataTag());
    const QString sqlWork = QStringLiteral(DORVY_SQLWORK);
    const auto driver = cost({sqlWork, QStringLiteral("DORVY")}, work, fewer, more);
    const auto qt = cost({sqlWork, QStringLiteral("IDLE")}, work, fewer, more);
    const auto libpq = cost({QStringLiteral(DORVY_LIBPQWORK)}, work, fewer, more);
    const double found = driver.value(QLatin1String(Plugin));
    qInfo("%s: %.0f in all, %.0f of them in the plugin; Qt alone %.0f, libpq alone %.0f",
          QTest::currentDataTag(), sum(driver), found, sum(qt), sum(libpq));
    QVERIFY(found > 0);
    QVERIFY2(found <= recorded * Tolerance, qPrintable(QStringLiteral("%1 instructions in place of "
                                                                      "%2")
                                                           .arg(found)
                                                           .arg(recorded)));
}

QTEST_GUILESS_MAIN(tst_Instructions)
#include "tst_instructions.moc"
