// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The instructions that a row and an execution cost in the plugin's own code, libpq's archive left
// out: no more than were recorded. What they cost in all, and what Qt and libpq cost alone, is
// printed.
#include "tests/instructions/callgrind.h"
#include "tests/support/pgcluster.h"

#include <QtTest/QtTest>

namespace {

constexpr double Tolerance = 1.03; // of a compiler that is a little newer
constexpr double PageRows = 128;
constexpr double PageAllocations = 8;
const char *const Plugin = "libqsqldorvy.so";

double sum(const UnitCost &cost)
{
    const QList<double> values = cost.instructions.values();
    return std::accumulate(values.begin(), values.end(), 0.0);
}

} // namespace

class tst_Instructions : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void ownCodeCostsNoMoreThanRecorded_data();
    void ownCodeCostsNoMoreThanRecorded();
    void rowsAllocateNothingBesideQtsValues();

private:
    UnitCost cost(const QStringList &program, const QString &work, int fewer, int more) const;

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

UnitCost tst_Instructions::cost(const QStringList &program, const QString &work, int fewer,
                                int more) const
{
    const auto run = [&](int count) {
        return profileOf(program + QStringList{work, QString::number(count), cluster.socketDir(),
                                               QString::number(cluster.port())});
    };
    return costOfUnit(run(more), run(fewer), more - fewer);
}

void tst_Instructions::ownCodeCostsNoMoreThanRecorded_data()
{
    QTest::addColumn<int>("fewer"); // units of the two runs whose difference is measured
    QTest::addColumn<int>("more");
    QTest::addColumn<double>("recorded"); // instructions of a unit in the plugin's own code
    QTest::newRow("walk") << 0 << 20000 << 587.0;
    QTest::newRow("point") << 1000 << 3000 << 3278.0;
    QTest::newRow("insert") << 1000 << 3000 << 1388.0;
}

void tst_Instructions::ownCodeCostsNoMoreThanRecorded()
{
    QFETCH(int, fewer);
    QFETCH(int, more);
    QFETCH(double, recorded);
    const QString work = QString::fromLatin1(QTest::currentDataTag());
    const QString sqlWork = QStringLiteral(DORVY_SQLWORK);
    const auto driver = cost({sqlWork, QStringLiteral("DORVY")}, work, fewer, more);
    const auto qt = cost({sqlWork, QStringLiteral("IDLE")}, work, fewer, more);
    const auto libpq = cost({QStringLiteral(DORVY_LIBPQWORK)}, work, fewer, more);
    const QString plugin = QString::fromLatin1(Plugin);
    const double found = driver.instructions.value(fromSource(plugin));
    qInfo("%s: %.0f in all, %.0f of them in the plugin's own code and %.0f in the libpq within it; "
          "Qt alone %.0f, libpq alone %.0f",
          QTest::currentDataTag(), sum(driver), found, driver.instructions.value(plugin), sum(qt),
          sum(libpq));
    QVERIFY(found > 0);
    QVERIFY2(found <= recorded * Tolerance, qPrintable(QStringLiteral("%1 instructions in place of "
                                                                      "%2")
                                                           .arg(found)
                                                           .arg(recorded)));
}

void tst_Instructions::rowsAllocateNothingBesideQtsValues()
{
    const auto allocations = [this](const char *driver) {
        const QStringList program{QStringLiteral(DORVY_SQLWORK), QString::fromLatin1(driver)};
        return cost(program, QStringLiteral("walk"), 0, 20000).allocations;
    };
    const double driver = allocations("DORVY");
    const double qt = allocations("IDLE");
    qInfo("allocations of a row: %.3f, Qt alone %.3f", driver, qt);
    QVERIFY(qt >= 1); // the text
    QVERIFY(driver - qt <= PageAllocations / PageRows);
}

QTEST_GUILESS_MAIN(tst_Instructions)
#include "tst_instructions.moc"
