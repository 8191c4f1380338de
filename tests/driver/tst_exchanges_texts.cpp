// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// How often the driver waits for the server: new texts, transactions, connections.
#include "tests/driver/exchanges.h"

namespace {

constexpr int StartUp = 1; // of a connection: libpq's, without encryption and password
constexpr char Insert[] = "INSERT INTO t (a) VALUES (1)";
constexpr char Select[] = "SELECT 1";

} // namespace

class tst_ExchangesTexts : public QObject, private Exchanges
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(startWithTable(), qPrintable(cluster.why())); }
    void init() { QVERIFY(openThroughProxy()); }
    void cleanup() { closeForGood(); }

    void command_data() { addWays(); }
    void command();
    void selectWhileBorrowed_data() { addWays(); }
    void selectWhileBorrowed();
    void selectWithSpare_data() { addWays(); }
    void selectWithSpare();
    void selectWithNewConnection_data() { addWays(); }
    void selectWithNewConnection();

    void transactionCommand_data();
    void transactionCommand();
    void commandInTransaction_data() { addWays(); }
    void commandInTransaction();
    void preparedCommandInTransaction();
    void selectInTransaction_data() { addWays(); }
    void selectInTransaction();

    void lastInsertId();
    void open();
    void close();

private:
    static void addWays();
    // Runs the text on a query that had none before.
    Operation newText(QSqlQuery &query, const char *text);
};

void tst_ExchangesTexts::addWays()
{
    QTest::addColumn<bool>("prepared");
    QTest::newRow("text") << false;
    QTest::newRow("prepared first") << true;
}

Operation tst_ExchangesTexts::newText(QSqlQuery &query, const char *text)
{
    const auto run = [&query, text] {
        QFETCH(bool, prepared);
        if (prepared) {
            QVERIFY_SQL(query, query.prepare(text));
        }
        QVERIFY_SQL(query, prepared ? query.exec() : query.exec(text));
    };
    return {[&query] { query.finish(); }, run};
}

void tst_ExchangesTexts::command()
{
    QSqlQuery query(db);
    verify(newText(query, Insert), 3, {"1> Parse", "1> Describe", "1> Bind Describe Execute"});
}

void tst_ExchangesTexts::selectWhileBorrowed()
{
    QSqlQuery keeper(Select, db);
    QSqlQuery query(db);
    verify(newText(query, Select), 5,
           {"1> Parse", "1> Describe", "1> Close Close", "2> Parse", "2> Describe",
            "2> Close Bind Describe Execute"});
}

void tst_ExchangesTexts::selectWithSpare()
{
    QSqlQuery query(Select, db);
    verify(newText(query, Select), 8,
           {"1> Parse", "1> Describe", "1> SELECT current_schema()", "1> Close Close",
            "2> SET SEARCH_PATH TO public", "2> BEGIN", "2> Parse", "2> Describe",
            "2> Close Bind Describe Execute"});
}

// Counted alone, as the server takes its own time to make a process for the connection.
void tst_ExchangesTexts::selectWithNewConnection()
{
    QSqlQuery query(db);
    QCOMPARE(exchangesOf(newText(query, Select)), StartUp + 9);
    QCOMPARE(requests(), QStringList({"1> Parse", "1> Describe", "1> SELECT current_schema()",
                                      "1> Close Close", "2> Startup", "2> SET DATESTYLE TO 'ISO'",
                                      "2> SET SEARCH_PATH TO public", "2> BEGIN", "2> Parse",
                                      "2> Describe", "2> Close Bind Describe Execute"}));
}

void tst_ExchangesTexts::transactionCommand_data()
{
    QTest::addColumn<bool>("open");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("said");
    QTest::newRow("begin") << false << "transaction" << QStringList("1> BEGIN");
    QTest::newRow("commit") << true << "commit" << QStringList("1> COMMIT");
    QTest::newRow("rollback") << true << "rollback" << QStringList("1> ROLLBACK");
    QTest::newRow("rollback without a transaction") << false << "rollback" << QStringList();
}

void tst_ExchangesTexts::transactionCommand()
{
    QFETCH(bool, open);
    QFETCH(QString, name);
    QFETCH(QStringList, said);
    const auto approach = [&] {
        db.rollback();
        QVERIFY_SQL(db, !open || db.transaction());
    };
    const auto run = [&] {
        QVERIFY_SQL(db, name == "transaction" ? db.transaction()
                        : name == "commit"    ? db.commit()
                                              : db.rollback());
    };
    verify({approach, run}, said.size(), said);
}

void tst_ExchangesTexts::commandInTransaction()
{
    QSqlQuery query(db);
    QVERIFY_SQL(db, db.transaction());
    verify(newText(query, Insert), 5,
           {"1> SAVEPOINT", "1> Parse", "1> Describe", "1> RELEASE SAVEPOINT",
            "1> Bind Describe Execute"});
}

void tst_ExchangesTexts::preparedCommandInTransaction()
{
    QSqlQuery query(db);
    QVERIFY_SQL(db, db.transaction());
    QVERIFY_SQL(query, query.prepare(Insert));
    verify({[] {}, [&] { QVERIFY_SQL(query, query.exec()); }}, 1, {"1> Bind Describe Execute"});
}

void tst_ExchangesTexts::selectInTransaction()
{
    QSqlQuery keeper(Select, db);
    QSqlQuery query(db);
    QVERIFY_SQL(db, db.transaction());
    verify(newText(query, Select), 7,
           {"1> SAVEPOINT", "1> Parse", "1> Describe", "1> RELEASE SAVEPOINT", "1> Close Close",
            "2> Parse", "2> Describe", "2> Close Bind Describe Execute"});
}

void tst_ExchangesTexts::lastInsertId()
{
    QSqlQuery query(Insert, db);
    verify({[] {}, [&] { QVERIFY(query.lastInsertId().isValid()); }}, 1, {"1> SELECT lastval()"});
}

// Counted alone, as for a new connection above.
void tst_ExchangesTexts::open()
{
    db.close();
    QVERIFY(proxy->waitUntilBroken(1)); // the record has its last message
    QCOMPARE(exchangesOf({[] {}, [&] { QVERIFY_SQL(db, db.open()); }}), StartUp + 1);
    QCOMPARE(requests(), QStringList({"2> Startup", "2> SET DATESTYLE TO 'ISO'"}));
}

void tst_ExchangesTexts::close()
{
    QSqlQuery halfRead("SELECT generate_series(1, 300)", db);
    QCOMPARE(exchangesOf({[] {}, [&] { db.close(); }}), 0);
    QTRY_COMPARE(requests(), QStringList({"1> Terminate", "2> Terminate"})); // no answer tells when
}

QTEST_GUILESS_MAIN(tst_ExchangesTexts)
#include "tst_exchanges_texts.moc"
