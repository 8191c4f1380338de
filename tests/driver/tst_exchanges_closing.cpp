// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// How often the driver waits for the server: statements that are closed, and what comes next.
#include "tests/driver/exchanges.h"

namespace {

// A close does not wait for its answer; what comes next on the connection goes out behind it, and
// waits for both at once. Only another close takes it in first: libpq, whose own calls may be mixed
// with closes, has no more than one answer under way.
constexpr int CloseBehindClose = 1;

// The borrowed connection: the rollback, behind the close of the last statement.
constexpr int GivingBack = 1;

constexpr char Insert[] = "INSERT INTO t (a) VALUES (1)";
constexpr char Select[] = "SELECT generate_series(1, 300)";

// The step of nextAtOnce and nextAfterAPause, with what it needs.
struct Next
{
    explicit Next(const QSqlDatabase &database)
        : db(database)
        , command(database)
        , pages(database)
    {
    }

    void approach()
    {
        db.rollback();
        QVERIFY_SQL(command, command.prepare(Insert));
        QVERIFY_SQL(pages, pages.exec(Select) && pages.last());
    }

    void take()
    {
        QFETCH(QString, next);
        QVERIFY(next == "run" ? command.exec() : next == "begin" ? db.transaction() : pages.next());
    }

    QSqlDatabase db;
    QSqlQuery command;
    QSqlQuery pages;
};

} // namespace

class tst_ExchangesClosing : public QObject, private Exchanges
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(startWithTable(), qPrintable(cluster.why())); }
    void init();
    void cleanup();

    void closeIsNoExchange_data() { addEnds(); }
    void closeIsNoExchange();
    void closesInARow();
    void nextAtOnce_data() { addNext(); }
    void nextAtOnce();
    void nextAfterAPause_data() { addNext(); }
    void nextAfterAPause();
    void commandOnTheSameQuery();
    void selectOnTheSameQuery();
    void preparationOnTheSameQuery();
    void givingBack_data() { addEnds(); }
    void givingBack();
    void commandInPlaceOfTheLastSelect();

private:
    static void addEnds();
    static void addNext();
    void exec(const QString &text);
    void prepare(const char *text) { QVERIFY_SQL(*query, query->prepare(text)); }
    void end(const QString &way);

    QScopedPointer<QSqlQuery> query;
};

void tst_ExchangesClosing::init()
{
    QVERIFY(openThroughProxy());
    query.reset(new QSqlQuery(db));
}

void tst_ExchangesClosing::cleanup()
{
    query.reset();
    closeForGood();
}

void tst_ExchangesClosing::addEnds()
{
    QTest::addColumn<QString>("way");
    QTest::newRow("finish") << "finish";
    QTest::newRow("clear") << "clear";
    QTest::newRow("destroyed") << "destroyed";
}

void tst_ExchangesClosing::exec(const QString &text)
{
    if (!query) {
        query.reset(new QSqlQuery(db));
    }
    QVERIFY_SQL(*query, query->exec(text));
}

void tst_ExchangesClosing::end(const QString &way)
{
    if (way == "finish") {
        query->finish();
    } else if (way == "clear") {
        query->clear();
    } else {
        query.reset();
    }
}

void tst_ExchangesClosing::closeIsNoExchange()
{
    QFETCH(QString, way);
    QSqlQuery keeper(Select, db);
    const auto ending = [&] { end(way); };
    verify({[&] { exec(Insert); }, ending}, 0, {"1> Close Close"});
    verify({[&] { exec(Select); }, ending}, 0, {"2> Close Close"});
}

void tst_ExchangesClosing::closesInARow()
{
    QSqlQuery second(db);
    QSqlQuery third(db);
    const auto approach = [&] {
        exec(Insert);
        QVERIFY_SQL(second, second.exec(Insert));
        QVERIFY_SQL(third, third.exec(Insert));
    };
    const auto run = [&] {
        query->finish();
        second.finish();
        third.finish();
    };
    verify({approach, run}, 2 * CloseBehindClose,
           {"1> Close Close", "1> Close Close", "1> Close Close"});
}

void tst_ExchangesClosing::addNext()
{
    QTest::addColumn<QString>("closed");
    QTest::addColumn<QString>("next");
    QTest::addColumn<QStringList>("said");
    QTest::addColumn<int>("exchanges");
    QTest::newRow("run after a command")
        << Insert << "run" << QStringList{"1> Close Close", "1> Bind Describe Execute"} << 1;
    QTest::newRow("begin after a command")
        << Insert << "begin" << QStringList{"1> Close Close", "1> BEGIN"} << 1;
    QTest::newRow("page after a select")
        << Select << "page" << QStringList{"2> Close Close", "2> Execute"} << 1;
    QTest::newRow("page after a command, on the other connection")
        << Insert << "page" << QStringList{"1> Close Close", "2> Execute"} << 1;
}

void tst_ExchangesClosing::nextAtOnce()
{
    QFETCH(QString, closed);
    QFETCH(QStringList, said);
    QFETCH(int, exchanges);
    Next next(db);
    const auto approach = [&] {
        next.approach();
        exec(closed);
    };
    const auto closeAndGoOn = [&] {
        query->finish();
        next.take();
    };
    verify({approach, closeAndGoOn}, exchanges, said);
}

void tst_ExchangesClosing::nextAfterAPause()
{
    QFETCH(QString, closed);
    QFETCH(QStringList, said);
    Next next(db);
    const auto approachAndClose = [&] {
        next.approach();
        exec(closed);
        query->finish();
    };
    verify({approachAndClose, [&] { next.take(); }}, 1, said.mid(1)); // verify() makes the pause
}

void tst_ExchangesClosing::commandOnTheSameQuery()
{
    verify({[&] { exec(Insert); }, [&] { exec(Insert); }}, 3,
           {"1> Parse", "1> Describe", "1> Close Close", "1> Bind Describe Execute"});
}

void tst_ExchangesClosing::selectOnTheSameQuery()
{
    QSqlQuery keeper(Select, db);
    verify({[&] { exec(Select); }, [&] { exec(Select); }}, 5,
           {"1> Parse", "1> Describe", "1> Close Close", "2> Parse", "2> Describe",
            "2> Close Close", "2> Close Bind Describe Execute"});
}

void tst_ExchangesClosing::preparationOnTheSameQuery()
{
    QSqlQuery keeper(Select, db);
    const auto run = [&] { QVERIFY_SQL(*query, query->exec()); };
    verify({[&] { exec(Insert); }, [&] { prepare(Insert); }}, 2,
           {"1> Parse", "1> Describe", "1> Close Close"});
    verify({[&] { prepare(Insert); }, run}, 1, {"1> Bind Describe Execute"}); // after a pause
    verify(
        {[&] { exec(Select); }, [&] { prepare(Select); }}, 4,
        {"1> Parse", "1> Describe", "1> Close Close", "2> Parse", "2> Describe", "2> Close Close"});
    verify({[&] { prepare(Select); }, run}, 1, {"2> Close Bind Describe Execute"});
}

void tst_ExchangesClosing::givingBack()
{
    QFETCH(QString, way);
    verify({[&] { exec(Select); }, [&] { end(way); }}, GivingBack,
           {"2> Close Close", "2> ROLLBACK"});
}

void tst_ExchangesClosing::commandInPlaceOfTheLastSelect()
{
    verify(
        {[&] { exec(Select); }, [&] { exec(Insert); }}, 3 + GivingBack,
        {"1> Parse", "1> Describe", "1> Bind Describe Execute", "2> Close Close", "2> ROLLBACK"});
}

QTEST_GUILESS_MAIN(tst_ExchangesClosing)
#include "tst_exchanges_closing.moc"
