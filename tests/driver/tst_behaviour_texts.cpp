// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What an application has to know of the texts it sends, of encodings and names, and of the end.
#include "tests/driver/behaviour.h"

class tst_BehaviourTexts : public QObject, private Behaviour
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(start(), qPrintable(cluster.why())); }
    void init() { QVERIFY(openAnew("CREATE TABLE t (a text)")); }
    void cleanup() { closeForGood(); }

    void questionMarkInQuotesIsText();
    void questionMarkInACommentCounts();
    void questionMarkInADollarQuotedTextIsReplaced();
    void apostropheInACommentHidesPlaceholders();
    void jsonbOperatorIsTakenForAPlaceholder();
    void colonInAnArraySliceIsTakenForAName();
    void namedPlaceholders();

    void severalStatementsInOneTextAreRefused();
    void severalStatementsInADoBlock();
    void copyToTheClientFails();
    void copyFromTheClientFails();
    void copyFromTheClientFailsTheTransaction();
    void copyToTheClientHoldsUpTheCommit();
    void copyToTheClientHoldsUpTheRollback();
    void emptyTextFails();
    void errorsAreTheServersWords();

    void otherClientEncodingGarblesWhatIsSent();
    void nameOutsideLatin1BecomesQuestionMarks();
    void passwordOutsideLatin1IsWrong();
    void latin1LetterIsSentInLatin1();
    void mixedCaseSchemaBlocksReads();
    void mixedCaseSchemaWrittenOutIsFound();
    void noticesGoToStandardError();
    void noticesCanBeSwitchedOff();

    void queryOutlivesTheClose();
    void databaseInUseIsRemovedAllTheSame();
    void closedDatabase();

private:
    QString stored() const { return cluster.value("SELECT a FROM t"); }
};

void tst_BehaviourTexts::questionMarkInQuotesIsText()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t SELECT 'why?' || ?"));
    query.addBindValue(" because");
    QVERIFY(query.exec());
    QCOMPARE(stored(), QString("why? because"));
}

void tst_BehaviourTexts::questionMarkInACommentCounts()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT 1 -- why?")); // harmless alone
    QVERIFY(!query.prepare("SELECT /* why? */ ?::text"));
    QCOMPARE(serversWords(query), QString("ERROR:  could not determine data type of parameter $1"));
}

void tst_BehaviourTexts::questionMarkInADollarQuotedTextIsReplaced()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("INSERT INTO t VALUES ($$why?$$)"));
    QCOMPARE(stored(), QString("why$1"));
}

void tst_BehaviourTexts::apostropheInACommentHidesPlaceholders()
{
    QSqlQuery query(db);
    QVERIFY(!query.prepare("INSERT INTO t -- Ivan's\n VALUES (?)"));
    QCOMPARE(serversWords(query), QString("ERROR:  syntax error at or near \")\""));
}

void tst_BehaviourTexts::jsonbOperatorIsTakenForAPlaceholder()
{
    QSqlQuery query(db);
    QVERIFY(!query.exec("SELECT '{\"a\": 1}'::jsonb ? 'a'"));
    QCOMPARE(serversWords(query), QString("ERROR:  syntax error at or near \"$1\""));

    QVERIFY(query.exec("SELECT jsonb_exists('{\"a\": 1}'::jsonb, 'a')"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toBool(), true);
}

void tst_BehaviourTexts::colonInAnArraySliceIsTakenForAName()
{
    QSqlQuery query(db);
    QVERIFY(!query.prepare("SELECT (ARRAY[5, 6, 7])[1:2]::text"));
    QVERIFY(query.prepare("SELECT (ARRAY[5, 6, 7])[1: 2]::text")); // with a blank it is none
    QVERIFY(query.exec());
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(), QString("{5,6}"));
}

void tst_BehaviourTexts::namedPlaceholders()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t VALUES (:who || :greeting || :who)"));
    query.bindValue(":who", "we");
    query.bindValue(":greeting", " and ");
    QVERIFY(query.exec());
    QCOMPARE(stored(), QString("we and we"));
}

void tst_BehaviourTexts::severalStatementsInOneTextAreRefused()
{
    QSqlQuery query(db);
    QVERIFY(!query.exec("INSERT INTO t VALUES ('a'); INSERT INTO t VALUES ('b')"));
    COMPARE_TEXTS(query.lastError(),
                  "ERROR:  cannot insert multiple commands into a prepared statement\n",
                  PrepareFailed);
    QVERIFY(query.exec("INSERT INTO t VALUES ('a');")); // a single one may end so
}

void tst_BehaviourTexts::severalStatementsInADoBlock()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("DO $$ BEGIN"
                       "    INSERT INTO t VALUES ('a');"
                       "    INSERT INTO t VALUES ('b');"
                       "END $$"));
    QCOMPARE(cluster.value("SELECT count(*) FROM t"), QString("2"));
}

void tst_BehaviourTexts::copyToTheClientFails()
{
    QSqlQuery query(db);
    QVERIFY(!query.exec("COPY t TO STDOUT"));
    COMPARE_TEXTS(query.lastError(), "", ExecuteFailed);
    QVERIFY(query.exec("INSERT INTO t VALUES ('kept')")); // and all is well again
    QCOMPARE(stored(), QString("kept"));
}

void tst_BehaviourTexts::copyFromTheClientFails()
{
    QSqlQuery query(db);
    QVERIFY(!query.exec("COPY t FROM STDIN"));
    COMPARE_TEXTS(query.lastError(), "", ExecuteFailed);
    QVERIFY(query.exec("INSERT INTO t VALUES ('kept')"));
    QCOMPARE(stored(), QString("kept"));
}

void tst_BehaviourTexts::copyFromTheClientFailsTheTransaction()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(!query.exec("COPY t FROM STDIN"));
    QVERIFY(!query.exec("INSERT INTO t VALUES ('lost')"));
    QVERIFY(!db.commit());
    QVERIFY(db.rollback());
}

void tst_BehaviourTexts::copyToTheClientHoldsUpTheCommit()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES ('kept')"));
    QVERIFY(!query.exec("COPY t TO STDOUT"));
    QVERIFY(!db.commit());
    COMPARE_TEXTS(db.lastError(), "Невозможно завершить транзакцию",
                  "Текущее состояние соединения запрещает завершение транзакции");
    QVERIFY(query.exec("SET client_min_messages = notice")); // any statement ends the copying
    QVERIFY(db.commit());
    QCOMPARE(stored(), QString("kept"));
}

void tst_BehaviourTexts::copyToTheClientHoldsUpTheRollback()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES ('lost')"));
    QVERIFY(!query.exec("COPY t TO STDOUT"));
    QVERIFY(db.rollback()); // which has done nothing
    QVERIFY(query.exec("SET client_min_messages = notice"));
    QVERIFY(!db.transaction()); // the old one is open still
    QVERIFY(db.rollback());
    QVERIFY(db.transaction());
    QCOMPARE(cluster.value("SELECT count(*) FROM t"), QString("0"));
}

void tst_BehaviourTexts::emptyTextFails()
{
    QSqlQuery query(db);
    QVERIFY(!query.exec("-- nothing to do"));
    COMPARE_TEXTS(query.lastError(), "", ExecuteFailed);
}

void tst_BehaviourTexts::errorsAreTheServersWords()
{
    QSqlQuery query(db);
    QVERIFY(!query.exec("SELECT b FROM t"));
    const QSqlError error = query.lastError();
    QCOMPARE(error.type(), QSqlError::StatementError);
    QVERIFY(error.driverText().startsWith("ERROR:  column \"b\" does not exist\n"));
    QCOMPARE(error.databaseText(), QString(PrepareFailed));
    QCOMPARE(error.nativeErrorCode(), QString()); // the server's code is not handed on
}

void tst_BehaviourTexts::otherClientEncodingGarblesWhatIsSent()
{
    db.close();
    db.setConnectOptions("client_encoding=WIN1251"); // the database's is UTF8
    QVERIFY(db.open());
    QSqlQuery query(db);
    QVERIFY(query.exec("INSERT INTO t VALUES ('Дом')"));
    QCOMPARE(stored(), QString("Р”РѕРј"));
    cluster.run("UPDATE t SET a = 'Дом'");
    QVERIFY(query.exec("SELECT a FROM t"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(), QString("Дом")); // what others have stored is read right
}

void tst_BehaviourTexts::nameOutsideLatin1BecomesQuestionMarks()
{
    db.close();
    db.setDatabaseName("склад");
    QVERIFY(!db.open());
    QVERIFY(db.lastError().driverText().contains("FATAL:  database \"?????\" does not exist"));
    db.setDatabaseName("postgres");
    db.setUserName("Иван");
    QVERIFY(!db.open());
    QVERIFY(db.lastError().driverText().contains("FATAL:  role \"????\" does not exist"));
}

void tst_BehaviourTexts::passwordOutsideLatin1IsWrong()
{
    cluster.run("CREATE ROLE keeper LOGIN PASSWORD 'пароль' IN ROLE passworded");
    db.close();
    db.setUserName("keeper");
    db.setPassword("пароль");
    QVERIFY(!db.open());
    QVERIFY(db.lastError().driverText().contains("password authentication failed for user"));
    cluster.run("ALTER ROLE keeper PASSWORD 'password'");
    db.setPassword("password");
    QVERIFY(db.open());
}

void tst_BehaviourTexts::latin1LetterIsSentInLatin1()
{
    cluster.createDatabase("café"); // by a client that speaks UTF-8
    db.close();
    db.setDatabaseName("café");
    QVERIFY(!db.open());
}

void tst_BehaviourTexts::mixedCaseSchemaBlocksReads()
{
    cluster.run("CREATE SCHEMA \"Stock\"; CREATE TABLE \"Stock\".goods AS SELECT 5 AS a");
    QSqlQuery query(db);
    QVERIFY(query.exec("SET search_path TO \"Stock\""));
    QVERIFY(query.exec("UPDATE goods SET a = 6"));
    QVERIFY(!query.exec("SELECT a FROM goods"));
    QCOMPARE(serversWords(query), QString("ERROR:  relation \"goods\" does not exist"));
    QVERIFY(!query.exec("SELECT 1")); // until the database is closed and opened
}

void tst_BehaviourTexts::mixedCaseSchemaWrittenOutIsFound()
{
    cluster.run("CREATE SCHEMA \"Goods\"; CREATE TABLE \"Goods\".list AS SELECT 5 AS a");
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT a FROM \"Goods\".list"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toInt(), 5);
}

void tst_BehaviourTexts::noticesGoToStandardError()
{
    const ChildOutcome outcome = inChild(
        [](QSqlQuery &query) { query.exec("DO $$ BEGIN RAISE NOTICE 'half done'; END $$"); });
    QCOMPARE(outcome.output, QString("NOTICE:  half done\n"));
}

void tst_BehaviourTexts::noticesCanBeSwitchedOff()
{
    const ChildOutcome outcome = inChild([](QSqlQuery &query) {
        query.exec("SET client_min_messages = warning");
        query.exec("DO $$ BEGIN RAISE NOTICE 'half done'; END $$");
    });
    QCOMPARE(outcome.output, QString());
}

void tst_BehaviourTexts::queryOutlivesTheClose()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT generate_series(1, 300)"));
    db.close();
    QVERIFY(query.next()); // of the page that it holds
    QCOMPARE(query.value(0).toInt(), 1);
    QVERIFY(query.last());
    QVERIFY(!query.next());
    COMPARE_TEXTS(query.lastError(), "Невозможно выполнить подготовленный запрос",
                  "Отсутствует соединение с СУБД");
}

void tst_BehaviourTexts::databaseInUseIsRemovedAllTheSame()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT generate_series(1, 300)"));
    QTest::ignoreMessage(QtWarningMsg,
                         "QSqlDatabasePrivate::removeDatabase: connection 'app' is still in use, "
                         "all queries will cease to work.");
    QSqlDatabase::removeDatabase("app");
    QVERIFY(!db.isOpen());
    QVERIFY(!query.next());   // not even the rows that were there
    QVERIFY(!query.driver()); // Qt takes no further text then: it looks for the driver unasked
}

void tst_BehaviourTexts::closedDatabase()
{
    QSqlQuery query(db);
    db.close();
    QTest::ignoreMessage(QtWarningMsg, "QSqlQuery::exec: database not open");
    QVERIFY(!query.exec("SELECT 1"));
}

QTEST_GUILESS_MAIN(tst_BehaviourTexts)
#include "tst_behaviour_texts.moc"
