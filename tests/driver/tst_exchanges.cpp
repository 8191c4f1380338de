// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// How often the driver waits for the server: prepared queries that run again, and walks over pages.
#include "tests/driver/exchanges.h"

namespace {

constexpr int PageRows = 128;
constexpr char FirstPage[] = "2> Close Bind Describe Execute"; // with the close of the old portal
constexpr char FurtherPage[] = "2> Execute";

void nothing()
{
}

void run(QSqlQuery &query)
{
    QVERIFY_SQL(query, query.exec());
    QVERIFY(!query.seek(-1)); // a run leaves the position where it was
}

void step(QSqlQuery &query, int rows)
{
    for (int i = 0; i < rows; ++i) {
        QVERIFY_SQL(query, query.next());
    }
}

void runAndWalk(QSqlQuery &query, int rows)
{
    run(query);
    step(query, rows);
    QVERIFY(!query.next());
}

} // namespace

class tst_Exchanges : public QObject, private Exchanges
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(startWithTable(), qPrintable(cluster.why())); }
    void init() { QVERIFY(openThroughProxy()); }
    void cleanup() { closeForGood(); }

    void walkAgain_data();
    void walkAgain();
    void furtherPage();
    void nothingIsReadInAdvance();
    void halfReadAgain();
    void severalOpen();
    void commandAgain_data();
    void commandAgain();

private:
    QSqlQuery series(int rows) const;
};

// A prepared query of so many rows, which has run.
QSqlQuery tst_Exchanges::series(int rows) const
{
    QSqlQuery query(db);
    query.prepare("SELECT generate_series(1, ?)");
    query.addBindValue(rows);
    run(query);
    return query;
}

void tst_Exchanges::walkAgain_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<int>("exchanges");
    QTest::newRow("none") << 0 << 1;
    QTest::newRow("one") << 1 << 1;
    QTest::newRow("one less than a page") << 127 << 1;
    QTest::newRow("a page") << 128 << 2; // which does not show that it is the last
    QTest::newRow("one more than a page") << 129 << 2;
    QTest::newRow("one less than two pages") << 255 << 2;
    QTest::newRow("two pages") << 256 << 3;
    QTest::newRow("300") << 300 << 3;
}

void tst_Exchanges::walkAgain()
{
    QFETCH(int, rows);
    QFETCH(int, exchanges);
    QSqlQuery query = series(rows);
    QStringList said{FirstPage};
    while (said.size() < exchanges) {
        said += FurtherPage;
    }
    verify({nothing, [&] { runAndWalk(query, rows); }}, exchanges, said);
}

void tst_Exchanges::furtherPage()
{
    QSqlQuery query = series(300);
    const auto toTheEndOfAPage = [&] {
        run(query);
        step(query, PageRows);
    };
    verify({toTheEndOfAPage, [&] { step(query, PageRows); }}, 1, {FurtherPage});
}

void tst_Exchanges::nothingIsReadInAdvance()
{
    QSqlQuery query = series(300);
    verify({[&] { run(query); }, [&] { step(query, PageRows); }}, 0, {});
    verify({nothing, [&] { QVERIFY(query.first() && query.last() && query.seek(64)); }}, 0, {});
}

void tst_Exchanges::halfReadAgain()
{
    QSqlQuery query = series(300);
    verify({[&] { step(query, PageRows + 1); }, [&] { run(query); }}, 1, {FirstPage});
}

void tst_Exchanges::severalOpen()
{
    QSqlQuery first = series(300);
    QSqlQuery second = series(300);
    QSqlQuery third = series(300);
    const auto fresh = [&] {
        for (QSqlQuery *query : {&first, &second, &third}) {
            run(*query);
            step(*query, PageRows);
        }
    };
    const auto pageOfEach = [&] {
        step(first, PageRows);
        step(second, PageRows);
        step(third, PageRows);
    };
    verify({fresh, pageOfEach}, 3, {FurtherPage, FurtherPage, FurtherPage});
    const auto oneAgainBetweenPages = [&] {
        step(first, PageRows);
        run(second);
        step(third, PageRows);
    };
    verify({fresh, oneAgainBetweenPages}, 3, {FurtherPage, FirstPage, FurtherPage});
}

void tst_Exchanges::commandAgain_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("INSERT") << "INSERT INTO t (a) VALUES (?)";
    QTest::newRow("UPDATE") << "UPDATE t SET a = ?";
    QTest::newRow("DELETE") << "DELETE FROM t WHERE a = ?";
}

void tst_Exchanges::commandAgain()
{
    QFETCH(QString, text);
    QSqlQuery command(db);
    QVERIFY_SQL(command, command.prepare(text));
    command.addBindValue(1);
    const auto again = [&] { QVERIFY_SQL(command, command.exec()); };
    again();
    verify({nothing, again}, 1, {"1> Bind Describe Execute"});
}

QTEST_GUILESS_MAIN(tst_Exchanges)
#include "tst_exchanges.moc"
